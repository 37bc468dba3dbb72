// The receive threads of the two serial links. Each gathers bytes into
// batches of whole lines and hands every batch to the frame parser on its own
// thread. The UART thread lives as long as the service and re-opens the UART
// itself; the virtual UART thread lives while the accessory's ACM node does
// and ends itself, telling the signal thread with SIGUSR2.
#include "link/serial_rx.h"

#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "core/delays.h"
#include "core/device_state.h"
#include "core/link_fd.h"
#include "core/log.h"
#include "core/relaxed.h"
#include "core/threads.h"
#include "link/serial_port.h"
#include "link/usb_hotplug.h"

namespace atcmd {
namespace {

constexpr int kWaitForever = -1;

const RxHooks *g_rx_hooks = nullptr;

const RxHooks *rx_hooks() {
    const RxHooks *hooks = acquire_load(&g_rx_hooks);
    if (hooks == nullptr) ATLOGE(kLogAlways, kTagManage, "no receive hooks registered");
    return hooks;
}

// The parser copies each line it finds; the scratch record only carries
// the header fields common to the batch.
void hand_to_parser(const char *text, uint8_t source) {
    const RxHooks *hooks = rx_hooks();
    if (hooks == nullptr) return;
    char line[ATCMD_TEXT_MAX] = {};
    AtCmder_t scratch;
    memset(&scratch, 0, sizeof scratch);
    scratch.source = source;
    scratch.data = line;
    hooks->parse(&scratch, text);
}

// Runs on the UART receive thread, which owns g_uart_fd's re-opening. The
// port is opened aside and published only when set up: a set-up that fails
// after the open leaves the closed number in its variable.
void reopen_uart() {
    fd_retire(&g_uart_fd);
    int fd = -1;
    if (UART_init(&fd) == 0) {
        fd_publish(&g_uart_fd, fd);
        return;
    }
    if (const RxHooks *hooks = rx_hooks()) hooks->uart_down();
}

// usb_connected of the device's USB status; no device counts as unplugged.
int32_t usb_connected() {
    const system_status_t *st = device_status();
    if (st == nullptr) {
        ATLOGE_FN(kVuartRx.thread, kLogAlways, kTagManage, "no device, usb counted as unplugged");
        return 0;
    }
    return relaxed_load(&st->usbdev_sts.usb_connected);
}

void no_op(int, void *) {}

// Asked by a leaving thread once its handle reads 0. The signal thread
// publishes a new link before it looks at the handle, and both go through
// the descriptors' lock: either this sees the new link, or the signal
// thread sees the handle clear and starts a reader itself.
bool link_left_without_reader() { return with_fd(&g_vuart_fd, 0, no_op, nullptr); }

// The two endings of the virtual UART thread differ on purpose in their
// order and in whether SIGUSR2 depends on the plugged flag. Either one
// also signals when a link was opened while the thread was leaving, so
// that the signal thread gives it a reader.
void *vuart_disappeared() {
    ATLOGI_FN(kVuartRx.thread, kLogState, kTagManage,
              "ACM device disappear, atcmder_VuartRx_thread will die!");
    signal_thread(relaxed_load(&g_Sigprocess_thread), SIGUSR2);
    relaxed_store(&g_VuartRx_thread, pthread_t{0});
    if (link_left_without_reader()) signal_thread(relaxed_load(&g_Sigprocess_thread), SIGUSR2);
    return nullptr;
}

void *vuart_not_found() {
    relaxed_store(&g_VuartRx_thread, pthread_t{0});
    if (usb_connected() == 1 || link_left_without_reader())
        signal_thread(relaxed_load(&g_Sigprocess_thread), SIGUSR2);
    ATLOGI_FN(kVuartRx.thread, kLogState, kTagManage,
              "ACM device can not find, atcmder_VuartRx_thread will die!");
    return nullptr;
}

}  // namespace

void set_rx_hooks(const RxHooks *hooks) { publish(&g_rx_hooks, hooks); }

BatchState RxBatch::add(size_t n) {
    size_t room_left = kRxBufferSize - fill_;
    fill_ += static_cast<uint32_t>(n < room_left ? n : room_left);
    buf_[fill_] = '\0';
    if (fill_ > kMaxBatch) return BatchState::kTooLong;
    if (fill_ < 2 || buf_[fill_ - 2] != '\r' || buf_[fill_ - 1] != '\n')
        return BatchState::kPartial;
    return BatchState::kComplete;
}

void RxBatch::clear() {
    memset(buf_, 0, fill_);
    fill_ = 0;
}

bool receive_once(const SerialRx &link, int fd, RxBatch *batch) {
    int n = link.recv(fd, batch->tail(), batch->room(), kWaitForever);
    if (n < 1) return false;
    switch (batch->add(static_cast<size_t>(n))) {
    case BatchState::kPartial:
        break;
    case BatchState::kTooLong:
        ATLOG_TEXT_FN(link.thread, kLogState, ANDROID_LOG_INFO, kTagManage, link.too_long, batch->text());
        batch->clear();
        break;
    case BatchState::kComplete:
        ATLOG_TEXT_FN(link.thread, kLogState, ANDROID_LOG_INFO, kTagManage, link.batch,
                      strlen(batch->text()), batch->text());
        hand_to_parser(batch->text(), link.source());
        batch->clear();
        break;
    }
    return true;
}

}  // namespace atcmd

using namespace atcmd;

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

// Started by the signal thread after VUART_init succeeded; detaches itself.
// It notices the signal thread closing the link through g_vuart_fd turning
// -1, and a pulled cable through a failed read.
void *atcmder_VuartRx_thread(void *) {
    RxBatch batch;
    prctl(PR_SET_NAME, "VuartRx_thread");
    ATLOGI(kLogState, kTagManage, "atcmder_VuartRx_thread is running!");
    pthread_detach(pthread_self());
    // The thread reads through a duplicate of its own: the signal thread
    // closes g_vuart_fd when the node goes, and the number is free for the
    // next open in the process at once.
    OwnFd own(&g_vuart_fd);
    while (relaxed_load(&g_vuart_fd) != -1) {
        const int fd = own.get();
        if (fd >= 0 && receive_once(kVuartRx, fd, &batch)) continue;
        own.reset();  // the next pass takes whatever g_vuart_fd holds then
        ATLOGI(kLogState, kTagManage, "Vuart cannot receive data!");
        usleep(g_delays.vuart_recheck_pause);
        if (usb_connected() == 0 || scan_acm_devices() == 0) return vuart_disappeared();
    }
    return vuart_not_found();
}
