// The USB ACM link: its description for the shared serial steps
// (link/serial_port.h), its exported calls, its send and its receive thread.
#include "link/acm_link.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "core/capture.h"
#include "core/delays.h"
#include "core/device_state.h"
#include "core/link_fd.h"
#include "core/log.h"
#include "core/relaxed.h"
#include "core/threads.h"
#include "link/link_writer.h"
#include "link/serial_port.h"
#include "link/usb_hotplug.h"
#include "platform/sysroot.h"

int g_vuart_fd = -1;

namespace atcmd {
namespace {

constexpr SerialLink kVuart = {
    kTagVuart,
    "VUART_init",
    "VUART_setOpt",
    "VUART_Send",
    "serial fcntl=%d\n",
    "serial standard input is not a terminal device!",
    "serial open successfully, vuart fd is %d!",
    "Vserial Set opt Error!",
    "Init Vuart %s successfully, Vuart fd is %d ",
    "Vuart is not open",
    ATCMD_TX_VUART_CLOSED,
    "Vuart successfully send cmd len is %zu, data is %s",
};
static_assert(texts_take_their_arguments(kVuart, "d"), "virtual UART texts");

// The transmit thread's ACM link with its stall state; another thread that
// sends gets its own.
thread_local LinkWriter t_vuart{&g_vuart_fd, "Vuart"};

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

int acm_open(int64_t number) {
    int fd = -1;
    if (VUART_init(&fd, number) != 0) return -1;
    fd_publish(&g_vuart_fd, fd);
    return 0;
}

int acm_send(const char *text, size_t len) { return serial_transmit(kVuart, t_vuart, text, len); }

void acm_close() { fd_retire(&g_vuart_fd); }

}  // namespace atcmd

using namespace atcmd;

int VUART_init(int *fd, int64_t acm) {
    if (!acm_number_fits(acm)) {
        ATLOGE(kLogAlways, kVuart.tag, "ttyACM number %lld does not fit the device path",
               static_cast<long long>(acm));
        return -1;
    }
    char path[16];
    snprintf(path, sizeof path, "/dev/ttyACM%ld", static_cast<long>(acm));
    const int opened = open(SysPath(path).c_str(), kOpenFlags);
    publish(fd, opened);
    if (opened < 0) {
        int err = errno;
        // The stored descriptor (-1) is logged where the error number is named.
        ATLOGE(kLogAlways, kVuart.tag, "open serial %s fails, error num is %d, error num is %s", path,
               opened, strerror(err));
        return -1;
    }
    // Its bytes are captured under the node's own name from here on.
    capture_acm_node(acm);
    return configure_opened(kVuart, opened, path);
}

int VUART_setOpt(int fd, int baud, int bits, char parity, int stop) {
    return set_line(kVuart, fd, baud, bits, parity, stop);
}

int VUART_Recv(int fd, char *buf, int len, int timeout_ms) {
    const int n = serial_recv(fd, buf, len, timeout_ms);
    capture_bytes(CaptureIf::kAcm, CaptureDir::kIn, buf, n);
    return n;
}

int VUART_Send(int fd, const char *data, int len) { return serial_send(kVuart, fd, data, len); }

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
