// The WiFi receive thread: reads what the accessory sent over WiFi from
// /dev/fifo_rx (relayed by the HID daemon) and hands whole batches of lines
// to the frame parser, exactly as the serial receive threads do. It never
// closes anything itself: stop_wifi_channel ends it with SIGALRM and joins it.
#include <signal.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "core/device_state.h"
#include "core/log.h"
#include "core/relaxed.h"
#include "core/threads.h"
#include "link/serial_rx.h"
#include "link/wifi_channel.h"
#include "link/wifi_rx.h"

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
    return static_cast<int>(read(events[0].data.fd, buf, static_cast<size_t>(len)));
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
