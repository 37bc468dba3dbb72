// The machinery the UART and the virtual UART share, each driven by its
// link's SerialLink description; and the line settings, built without a
// device so that they can be tested (a pseudo-terminal, what the tests have,
// forces 8 data bits and no parity whatever is asked).
#ifndef ATCMD_LINK_SERIAL_PORT_H
#define ATCMD_LINK_SERIAL_PORT_H

#include <fcntl.h>
#include <stddef.h>
#include <stdint.h>
#include <termios.h>

#include "core/log.h"
#include "link/link_writer.h"

namespace atcmd {

enum class LineError { kNone, kDataSize, kParity, kStopBits };

// Fills *out from an all-zero record: raw input, output and local modes,
// CLOCAL | CREAD, the given frame, VTIME 1 and VMIN 1, and the speed code of
// baud (9600 for a rate that baud_is_known rejects). *out is untouched on an
// error.
LineError make_line_settings(int baud, int bits, char parity, int stop, termios *out);
bool baud_is_known(int baud);

constexpr int kOpenFlags = O_RDWR | O_NOCTTY | O_NONBLOCK;
constexpr int kLineBaud = 460800;

// The public functions' names go into the log prefix of the shared steps
// below, so each link's lines name UART_init or VUART_Send, as a reader
// searching the log expects.
struct SerialLink {
    const char *tag;
    const char *init_fn;
    const char *setopt_fn;
    const char *send_fn;
    const char *fcntl_done;     // %d: what clearing the status flags returned
    const char *not_a_tty;
    const char *opened;         // %d: the descriptor (the UART's text leaves it out)
    const char *setopt_failed;
    const char *ready;          // %s %d: device path, descriptor
    // The transmit thread's send on the link, logged as atcmder_Tx_process.
    const char *not_open;       // no descriptor to write to
    int closed;                 // what the send returns then
    const char *sent;           // %zu %s: length and text
};

constexpr bool texts_take_their_arguments(const SerialLink &l, const char *opened) {
    return has_conversions(l.fcntl_done, "d") && has_conversions(l.not_a_tty, "") &&
           has_conversions(l.opened, opened) && has_conversions(l.setopt_failed, "") &&
           has_conversions(l.ready, "sd") && has_conversions(l.not_open, "") &&
           has_conversions(l.sent, "us");
}

// The steps behind each link's exported calls, logged under that link's
// names. set_line: UART_setOpt / VUART_setOpt.
int set_line(const SerialLink &link, int fd, int baud, int bits, char parity, int stop);
// The steps after a successful open. On a failure the descriptor is closed
// but the caller's variable keeps its number: the callers store -1
// themselves before retrying.
int configure_opened(const SerialLink &link, int fd, const char *path);
int serial_recv(int fd, char *buf, int len, int timeout_ms);
// One write, no retry: a short write counts as a failure and whatever the
// line still holds is discarded. data is a NUL-terminated frame (it is
// logged as a string).
int serial_send(const SerialLink &link, int fd, const char *data, int len);

// The transmit thread's send: through writer's write end of its own
// (link/link_writer.h). 0, or link.closed, or ATCMD_TX_DROPPED; the write's
// own result is logged by serial_send, not returned.
int serial_transmit(const SerialLink &link, LinkWriter &writer, const char *text, size_t len);

}  // namespace atcmd

#endif
