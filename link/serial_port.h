// Internal pieces of the serial links that are worth testing on their own:
// the line settings are built without a device, since a pseudo-terminal
// (what the tests have) forces 8 data bits and no parity whatever is asked.
#ifndef ATCMD_LINK_SERIAL_PORT_H
#define ATCMD_LINK_SERIAL_PORT_H

#include <stddef.h>
#include <stdint.h>
#include <termios.h>
#include "atcmdprocess.h"

extern "C" {

ATCMD_API extern int g_uart_fd;
ATCMD_API extern int g_vuart_fd;

ATCMD_API int UART_init(int *fd);
ATCMD_API int VUART_init(int *fd, int64_t acm);
ATCMD_API int UART_setOpt(int fd, int baud, int bits, char parity, int stop);
ATCMD_API int VUART_setOpt(int fd, int baud, int bits, char parity, int stop);
ATCMD_API int UART_Recv(int fd, char *buf, int len, int timeout_ms);
ATCMD_API int VUART_Recv(int fd, char *buf, int len, int timeout_ms);
ATCMD_API int UART_Send(int fd, const char *data, int len);
ATCMD_API int VUART_Send(int fd, const char *data, int len);
}

namespace atcmd {

enum class LineError { kNone, kDataSize, kParity, kStopBits };

// Fills *out from an all-zero record: raw input, output and local modes,
// CLOCAL | CREAD, the given frame, VTIME 1 and VMIN 1, and the speed code of
// baud (9600 for a rate that baud_is_known rejects). *out is untouched on an
// error.
LineError make_line_settings(int baud, int bits, char parity, int stop, termios *out);
bool baud_is_known(int baud);

// The transmit thread's sends on the two serial links: through a write end
// of its own (link/link_writer.h), logged as atcmder_Tx_process. 0, or
// ATCMD_TX_VUART_CLOSED / ATCMD_TX_UART_CLOSED, or ATCMD_TX_DROPPED; the
// write's own result is logged by the send operation, not returned.
int vuart_transmit(const char *text, size_t len);
int uart_transmit(const char *text, size_t len);

// "/dev/ttyACM" keeps room for 4 digits in its 16-byte path buffer.
constexpr bool acm_number_fits(int64_t acm) { return acm >= 0 && acm <= 9999; }

}  // namespace atcmd

#endif
