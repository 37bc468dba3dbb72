// The USB ACM link: the accessory's CDC-ACM node /dev/ttyACM<n>, the
// "virtual UART" of platform 1, present while the accessory is plugged in.
// Its face is the one every link shows: acm_open, acm_send, the receive
// thread atcmder_VuartRx_thread, acm_close. Only the signal thread opens and
// closes it (link/usb_hotplug.h tells it when); the receive thread ends
// itself when the node goes, telling the signal thread with SIGUSR2.
#ifndef ATCMD_LINK_ACM_LINK_H
#define ATCMD_LINK_ACM_LINK_H

#include <stddef.h>
#include <stdint.h>

#include "atcmdprocess.h"
#include "link/serial_rx.h"

extern "C" {

ATCMD_API extern int g_vuart_fd;

ATCMD_API int VUART_init(int *fd, int64_t acm);
ATCMD_API int VUART_setOpt(int fd, int baud, int bits, char parity, int stop);
ATCMD_API int VUART_Recv(int fd, char *buf, int len, int timeout_ms);
ATCMD_API int VUART_Send(int fd, const char *data, int len);

ATCMD_API void *atcmder_VuartRx_thread(void *arg);
}

namespace atcmd {

// "/dev/ttyACM" keeps room for 4 digits in its 16-byte path buffer.
constexpr bool acm_number_fits(int64_t acm) { return acm >= 0 && acm <= 9999; }

// Opens /dev/ttyACM<number> aside and publishes it as g_vuart_fd once it is
// set up: a failed set-up leaves a closed number in its variable, which must
// never be g_vuart_fd. 0, or -1 (logged by VUART_init).
int acm_open(int64_t number);

// The transmit thread's send: through a write end of its own
// (link/link_writer.h), logged as atcmder_Tx_process. 0, or
// ATCMD_TX_VUART_CLOSED or ATCMD_TX_DROPPED; the write's own result is
// logged by VUART_Send, not returned.
int acm_send(const char *text, size_t len);

// Retires g_vuart_fd (core/link_fd.h); the receive thread notices and ends.
void acm_close();

inline constexpr SerialRx kVuartRx = {
    "atcmder_VuartRx_thread",
    "Vuart receive data length is too long, skip it, receive data is %s ",
    "Vuart receive data length is %zu, receive data is %s",
    VUART_Recv,
    from_mcu,
};
static_assert(has_conversions(kVuartRx.too_long, "s") && has_conversions(kVuartRx.batch, "us"),
              "virtual UART receive texts");

}  // namespace atcmd

#endif
