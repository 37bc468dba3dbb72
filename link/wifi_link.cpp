// The WiFi link: the HID daemon owns the socket and relays its bytes through
// named FIFOs; this module reads /dev/fifo_rx and writes /dev/fifo_tx. The
// functions below open, close and restart that link, send on it, and read it
// on the WiFi receive thread. They run on the client's
// thread (device operations), the dispatch thread (parsers), the heartbeat
// thread and the signal thread, one at a time under the channel lock. The
// receive thread works on the channel's numbers themselves, so they are
// retired only once it has been ended and joined.
#include "link/wifi_link.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cutils/properties.h>

#include "core/capture.h"
#include "core/device_state.h"
#include "core/link_fd.h"
#include "core/log.h"
#include "core/relaxed.h"
#include "core/threads.h"
#include "link/hid_protocol.h"
#include "link/hiddemon.h"
#include "link/link_writer.h"
#include "link/serial_rx.h"
#include "platform/sysroot.h"

using namespace atcmd;

int g_fifo_rx_fd = -1;
int g_fifo_tx_fd = -1;
int epfd_socket = 0;

namespace {

pthread_mutex_t g_channel_lock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
uint32_t g_wifi_session = 0;
uint32_t g_running_session = UINT32_MAX;  // no "running" taken yet

// A descriptor 0 is not taken for an open channel; the channel has always
// been tested this way.
constexpr int kFirstOpen = 1;
bool channel_open() { return relaxed_load(&g_fifo_rx_fd) >= kFirstOpen; }

// Both FIFOs and the epoll instance; none of them is closed twice, and
// none while the receive thread can still use it.
void retire_channel(bool receive_fifo_too) {
    if (receive_fifo_too) fd_retire(&g_fifo_rx_fd);
    fd_retire(&g_fifo_tx_fd);
    fd_retire(&epfd_socket, 0, kFirstOpen);
}

void log_not_unwatched(int epfd) {
    ATLOGE_FN("stop_wifi_channel", kLogAlways, kTagManage,
                  "stop_wifi_channel Set epoll_ctl, epfd_socket is %d, g_fifo_rx_fd is %d, "
                  "errno:%d, errstr:%s\n",
              epfd, relaxed_load(&g_fifo_rx_fd), errno, strerror(errno));
}

void stop_watching_fifo_rx(int epfd, void *) {
    if (epoll_ctl(epfd, EPOLL_CTL_DEL, relaxed_load(&g_fifo_rx_fd), nullptr) < 0)
        log_not_unwatched(epfd);
}

}  // namespace

namespace atcmd {

ChannelLock::ChannelLock() { pthread_mutex_lock(&g_channel_lock); }
ChannelLock::~ChannelLock() { pthread_mutex_unlock(&g_channel_lock); }

uint32_t wifi_session() { return __atomic_load_n(&g_wifi_session, __ATOMIC_SEQ_CST); }
void end_wifi_session() { __atomic_add_fetch(&g_wifi_session, 1, __ATOMIC_SEQ_CST); }
void running_reported(uint32_t session) {
    __atomic_store_n(&g_running_session, session, __ATOMIC_SEQ_CST);
}
namespace {

thread_local LinkWriter t_fifo{&g_fifo_tx_fd, "wifi fifo"};

}  // namespace

int wifi_send(const char *text, size_t len, WifiTransmit how) {
    WriteEnd end(t_fifo);
    if (end.fd() < 0) {
        ATLOGE_FN(kTransmitFn, kLogAlways, kTagManage, "wifi fifo is not opened!");
        return ATCMD_TX_FIFO_CLOSED;
    }
    if (!t_fifo.ready(end, text)) return ATCMD_TX_DROPPED;
    const ssize_t n = write(end.fd(), text, len);
    capture_bytes(CaptureIf::kWifiTx, CaptureDir::kOut, text, n);
    if (how == WifiTransmit::kCast) {
        ATLOGI_FN(kTransmitFn, kLogDetail, kTagManage, "wifi fifotx successfully send data %s",
                  text);
        if (n >= 0) return 0;
        ATLOGE_FN(kTransmitFn, kLogAlways, kTagManage,
                  "atcmder_Tx_process fifotx fail to send data %s", text);
        return ATCMD_TX_FIFO_WRITE_FAILED;
    }
    if (n < 0) {
        ATLOGE_FN(kTransmitFn, kLogAlways, kTagManage, "wifi fifotx fails to write data %s", text);
        return ATCMD_TX_FIFO_WRITE_FAILED;
    }
    ATLOGI_FN(kTransmitFn, kLogDetail, kTagManage, "wifi fifotx successfully send data %s", text);
    return 0;
}

// A SIGURG that no status report sent (none taken yet) is acted on.
bool running_still_current() {
    const uint32_t reported = __atomic_load_n(&g_running_session, __ATOMIC_SEQ_CST);
    return reported == UINT32_MAX || reported == wifi_session();
}

}  // namespace atcmd

int Socket_Fifo_Init(void) {
    ChannelLock lock;
    // With the receive FIFO open both are closed, once the receive thread
    // that reads it has ended (the signal thread starts a new one). Without
    // it the transmit FIFO may be left from an attempt whose receive FIFO
    // failed, which nothing else would ever close.
    const bool was_open = channel_open();
    if (was_open) end_alarm_thread(&g_wifiRx_thread);
    retire_channel(was_open);

    // O_RDWR: neither open waits for the daemon to open the other end.
    const int rx = open(SysPath(kFifoRx).c_str(), O_RDWR | O_CLOEXEC);
    if (rx >= 0) fd_publish(&g_fifo_rx_fd, rx);
    const int tx = open(SysPath(kFifoTx).c_str(), O_RDWR | O_CLOEXEC);
    if (tx >= 0) fd_publish(&g_fifo_tx_fd, tx);
    if (rx < 0 || tx < 0) {
        ATLOGE(kLogAlways, kTagManage, "cannot open device: %s\n", kFifoRx);
        return ATCMD_WIFI_FIFO_MISSING;
    }

    const int epfd = epoll_create1(0);
    if (epfd < 0) {
        ATLOGE(kLogAlways, kTagManage, "Create epoll instance, errno:%d, errstr:%s\n", errno,
               strerror(errno));
        return ATCMD_WIFI_EPOLL_FAILED;
    }
    struct epoll_event ev = {};
    ev.events = EPOLLIN | EPOLLET;
    ev.data.fd = rx;
    const bool watched = epoll_ctl(epfd, EPOLL_CTL_ADD, rx, &ev) == 0;
    const int err = errno;
    // Published even when the registration failed: the receive thread then
    // finds nothing to wait for, as it always has.
    fd_publish(&epfd_socket, epfd);
    if (!watched) {
        ATLOGE(kLogAlways, kTagManage, "Set epoll_ctl, errno:%d, errstr:%s\n", err, strerror(err));
        return ATCMD_WIFI_EPOLL_FAILED;
    }
    ATLOGI(kLogState, kTagManage, "FIFO_RX and FIFO_TX open successfully!");
    return 0;
}

void stop_wifi_channel(void) {
    ChannelLock lock;
    if (!channel_open()) return;
    if (!with_fd(&epfd_socket, kFirstOpen, stop_watching_fifo_rx, nullptr)) {
        errno = EBADF;  // no epoll instance: what the call on it would have said
        log_not_unwatched(relaxed_load(&epfd_socket));
    }
    end_alarm_thread(&g_wifiRx_thread);
    retire_channel(true);
    ATLOGI(kLogState, kTagManage, "wifi channel has been closed and wifiRx_thread has been killed!");
}

int wifi_Chan_ReInit(void) {
    int r = stop_hiddemon();
    const system_status_t *st = device_status();
    if (st == nullptr) return r;
    const int32_t platform = relaxed_load(&st->platform);
    if (platform == ATCMD_PLATFORM_VUART) {
        ATLOGI(kLogState, kTagManage, "Hid_daemon stopped, begin re-init wifi server!");
        r = property_set(kPropHidCmd, kCmdStartServer);
    } else if (platform == ATCMD_PLATFORM_UART) {
        ATLOGI(kLogState, kTagManage, "Hid_daemon stopped, begin re-init wifi client with serverIP %s!",
               st->ipaddr);
        property_set(kPropHidSts, st->ipaddr);
        r = property_set(kPropHidCmd, kCmdStartClient);
    }
    return r;
}

// ---- The receive thread ----
// Reads what the accessory sent over WiFi from /dev/fifo_rx (relayed by the
// HID daemon) and hands whole batches of lines to the frame parser, exactly
// as the serial receive threads do. It never closes anything itself:
// stop_wifi_channel ends it with SIGALRM and joins it.

namespace {

constexpr int kMaxEvents = 32;
// A channel whose epoll set-up failed makes every wait fail at once; pause
// rather than spin until the channel is closed. A wait that fails at once
// never takes the SIGALRM that closing sends, so the pause must.
constexpr useconds_t kFailedWaitPauseUs = 10000;

// Waits on the channel's epoll instance and reads from the first ready
// descriptor only: bytes beyond this read wait for the next arrival, even
// though the descriptor is edge-triggered.
int fifo_recv(int, char *buf, int len, int) {
    struct epoll_event events[kMaxEvents];
    sigset_t mask;
    atcmd::wait_mask_for_exit(&mask);  // SIGALRM may end the thread only in its waits
    int n = epoll_pwait(atcmd::acquire_load(&epfd_socket), events, kMaxEvents, -1, &mask);
    if (n < 1) return n;
    const ssize_t got = read(events[0].data.fd, buf, static_cast<size_t>(len));
    atcmd::capture_bytes(atcmd::CaptureIf::kWifiRx, atcmd::CaptureDir::kIn, buf, got);
    return static_cast<int>(got);
}

// Platform 2 hears the MPHONE peer over WiFi, platform 1 the local client's
// counterpart; any other platform leaves the source unset.
uint8_t wifi_source() {
    const int32_t platform = atcmd::current_platform();
    if (platform == ATCMD_PLATFORM_UART) return ATCMD_EP_MPHONE;
    if (platform == ATCMD_PLATFORM_VUART) return ATCMD_EP_CLIENT;
    return 0;
}

constexpr atcmd::SerialRx kWifiRx = {
    "atcmder_wifiRx_thread",
    "wifi receive data length is too long, skip it, receive data is %s ",
    "Wifi receive data length is %zu, receive data is %s",
    fifo_recv,
    wifi_source,
};
static_assert(atcmd::has_conversions(kWifiRx.too_long, "s") &&
                  atcmd::has_conversions(kWifiRx.batch, "us"),
              "WiFi receive texts");

}  // namespace

void *atcmder_wifiRx_thread(void *) {
    // First, before anything that takes a lock: a thread started with a
    // plain pthread_create may be sent SIGALRM at once, and the handler must
    // not end it inside its first log line, holding the log's lock.
    atcmd::install_thread_exit_handler();
    atcmd::RxBatch batch;
    prctl(PR_SET_NAME, "wifiRx_thread");
    ATLOGI(atcmd::kLogState, atcmd::kTagManage, "atcmder_wifiRx_thread is running!");

    for (int fd; (fd = atcmd::acquire_load(&g_fifo_rx_fd)) >= 0;) {
        if (!atcmd::receive_once(kWifiRx, fd, &batch))
            atcmd::sleep_until_exit_signal(kFailedWaitPauseUs);
    }
    atcmd::leave_alarm_thread(&g_wifiRx_thread);
    ATLOGI(atcmd::kLogState, atcmd::kTagManage, "atcmder_wifiRx_thread exits!");
    return nullptr;
}
