// The UART link: its description for the shared serial steps
// (link/serial_port.h), its exported calls, its send and its receive thread.
#include "link/uart_link.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "core/capture.h"
#include "core/delays.h"
#include "core/link_fd.h"
#include "core/log.h"
#include "core/relaxed.h"
#include "link/link_writer.h"
#include "link/serial_port.h"
#include "platform/sysroot.h"

int g_uart_fd = -1;

namespace atcmd {
namespace {

constexpr SerialLink kUart = {
    kTagUart,
    "UART_init",
    "UART_setOpt",
    "UART_Send",
    "serial fcntl=%d",
    "serial standard input is not a terminal device\n",
    "serial open success!",
    "serial Set opt Error\n",
    "Init uart %s successfully, uart fd is %d ",
    "uart is not open",
    ATCMD_TX_UART_CLOSED,
    "uart successfully send cmd data len %zu, data is %s",
};
static_assert(texts_take_their_arguments(kUart, ""), "UART texts");

constexpr char kUartPath[] = "/dev/ttyS4";

// The transmit thread's UART with its stall state; another thread that
// sends gets its own.
thread_local LinkWriter t_uart{&g_uart_fd, "uart"};

// Runs on the UART receive thread, which owns g_uart_fd's re-opening.
void reopen_uart() {
    uart_close();
    if (uart_open() == 0) return;
    if (const RxHooks *hooks = rx_hooks()) hooks->uart_down();
}

}  // namespace

int uart_open() {
    int fd = -1;
    if (UART_init(&fd) != 0) return -1;
    fd_publish(&g_uart_fd, fd);
    return 0;
}

int uart_send(const char *text, size_t len) { return serial_transmit(kUart, t_uart, text, len); }

void uart_close() { fd_retire(&g_uart_fd); }

}  // namespace atcmd

using namespace atcmd;

int UART_init(int *fd) {
    const int opened = open(SysPath(kUartPath).c_str(), kOpenFlags);
    publish(fd, opened);
    if (opened < 0) {
        ATLOGE(kLogAlways, kUart.tag, "open AMLOGIC UART fails");
        return -1;
    }
    return configure_opened(kUart, opened, kUartPath);
}

int UART_setOpt(int fd, int baud, int bits, char parity, int stop) {
    return set_line(kUart, fd, baud, bits, parity, stop);
}

int UART_Recv(int fd, char *buf, int len, int timeout_ms) {
    const int n = serial_recv(fd, buf, len, timeout_ms);
    capture_bytes(CaptureIf::kUart, CaptureDir::kIn, buf, n);
    return n;
}

int UART_Send(int fd, const char *data, int len) { return serial_send(kUart, fd, data, len); }

// While the UART cannot be read, each failure leads to one re-initialisation,
// at once after a working spell and a pause later. While g_uart_fd is
// negative it is not read at all.
void *atcmder_uartRx_thread(void *) {
    prctl(PR_SET_NAME, "uartRx_thread");
    ATLOGI(kLogState, kTagManage, "atcmder_uartRx_thread is running!");
    RxBatch batch;
    bool failing = false;  // nothing received since the last re-initialisation
    OwnFd own(&g_uart_fd);  // the thread reads through a duplicate of its own
    for (;;) {
        const int fd = own.get();
        if (fd >= 0) {
            if (receive_once(kUartRx, fd, &batch)) {
                failing = false;
                continue;
            }
            ATLOGI(kLogState, kTagManage, "uart cannot receive data, uart will be re-init!");
        }
        if (failing) usleep(g_delays.uart_retry_pause);
        failing = true;
        own.reset();
        reopen_uart();
    }
    return nullptr;
}
