// Internal pieces of the serial links that are worth testing on their own:
// the line settings are built without a device, since a pseudo-terminal
// (what the tests have) forces 8 data bits and no parity whatever is asked.
#ifndef ATCMD_LINK_SERIAL_PORT_H
#define ATCMD_LINK_SERIAL_PORT_H

#include <stdint.h>
#include <termios.h>

namespace atcmd {

enum class LineError { kNone, kDataSize, kParity, kStopBits };

// Fills *out from an all-zero record: raw input, output and local modes,
// CLOCAL | CREAD, the given frame, VTIME 1 and VMIN 1, and the speed code of
// baud (9600 for a rate that baud_is_known rejects). *out is untouched on an
// error.
LineError make_line_settings(int baud, int bits, char parity, int stop, termios *out);
bool baud_is_known(int baud);

// "/dev/ttyACM" keeps room for 4 digits in its 16-byte path buffer.
constexpr bool acm_number_fits(int64_t acm) { return acm >= 0 && acm <= 9999; }

}  // namespace atcmd

#endif
