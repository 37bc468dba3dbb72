// The UART link to the accessory, /dev/ttyS4, used on platform 2. Its face
// is the one every link shows: uart_open, uart_send, the receive thread
// atcmder_uartRx_thread, uart_close. The receive thread lives as long as the
// service and opens the UART again itself when it stops answering.
#ifndef ATCMD_LINK_UART_LINK_H
#define ATCMD_LINK_UART_LINK_H

#include <stddef.h>
#include <stdint.h>

#include "atcmdprocess.h"
#include "link/serial_rx.h"

extern "C" {

ATCMD_API extern int g_uart_fd;

ATCMD_API int UART_init(int *fd);
ATCMD_API int UART_setOpt(int fd, int baud, int bits, char parity, int stop);
ATCMD_API int UART_Recv(int fd, char *buf, int len, int timeout_ms);
ATCMD_API int UART_Send(int fd, const char *data, int len);

ATCMD_API void *atcmder_uartRx_thread(void *arg);
}

namespace atcmd {

// Opens the UART aside and publishes it as g_uart_fd once it is set up: a
// set-up that fails after the open leaves the closed number in its variable,
// which must never be g_uart_fd. 0, or -1 (logged by UART_init).
int uart_open();

// The transmit thread's send: through a write end of its own
// (link/link_writer.h), logged as atcmder_Tx_process. 0, or
// ATCMD_TX_UART_CLOSED or ATCMD_TX_DROPPED; the write's own result is logged
// by UART_Send, not returned.
int uart_send(const char *text, size_t len);

// Retires g_uart_fd (core/link_fd.h).
void uart_close();

inline constexpr SerialRx kUartRx = {
    "atcmder_uartRx_thread",
    "Uart receive data length is too long, skip it, receive data is %s ",
    "Uart rcv data length is %zu, receive data is %s",
    UART_Recv,
    from_mcu,
};
static_assert(has_conversions(kUartRx.too_long, "s") && has_conversions(kUartRx.batch, "us"),
              "UART receive texts");

}  // namespace atcmd

#endif
