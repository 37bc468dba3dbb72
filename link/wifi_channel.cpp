// The WiFi link: the HID daemon owns the socket and relays its bytes through
// named FIFOs; this module reads /dev/fifo_rx and writes /dev/fifo_tx. These
// functions open, close and restart that link. They run on the client's
// thread (device operations), the dispatch thread (parsers), the heartbeat
// thread and the signal thread; the channel globals are shared unlocked.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <cutils/properties.h>

#include "core/device_state.h"
#include "core/log.h"
#include "core/relaxed.h"
#include "core/threads.h"
#include "link/hid_protocol.h"
#include "platform/sysroot.h"

using namespace atcmd;

int g_fifo_rx_fd = -1;
int g_fifo_tx_fd = -1;
int epfd_socket = 0;

namespace {

// A descriptor 0 is not taken for an open channel; the channel has always
// been tested this way.
bool channel_open() { return relaxed_load(&g_fifo_rx_fd) >= 1; }

// Two threads may close the channel at once (the heartbeat thread's restart
// beside the client's tear-down): each descriptor is taken by one of them,
// so none is closed twice, which could hit a descriptor reused meanwhile.
void close_taken(int *fd) {
    int taken = take(fd, -1);
    if (taken >= 0) close_shared(taken);
}

void close_epoll() {
    int fd = take(&epfd_socket, 0);
    if (fd >= 1) close_shared(fd);
}

}  // namespace

int Socket_Fifo_Init(void) {
    // With the receive FIFO open both are closed; without it the transmit
    // FIFO may be left from an attempt whose receive FIFO failed, which
    // nothing else would ever close.
    if (channel_open()) close_taken(&g_fifo_rx_fd);
    close_taken(&g_fifo_tx_fd);
    close_epoll();

    // O_RDWR: neither open waits for the daemon to open the other end.
    const int rx = open(SysPath(kFifoRx).c_str(), O_RDWR | O_CLOEXEC);
    publish(&g_fifo_rx_fd, rx);
    const int tx = open(SysPath(kFifoTx).c_str(), O_RDWR | O_CLOEXEC);
    publish(&g_fifo_tx_fd, tx);
    if (rx < 0 || tx < 0) {
        ATLOGE(0, kTagManage, "cannot open device: %s\n", kFifoRx);
        return 10;
    }

    const int epfd = epoll_create1(0);
    publish(&epfd_socket, epfd);
    if (epfd < 0) {
        ATLOGE(0, kTagManage, "Create epoll instance, errno:%d, errstr:%s\n", errno,
               strerror(errno));
        relaxed_store(&epfd_socket, 0);
        return 11;
    }
    struct epoll_event ev = {};
    ev.events = EPOLLIN | EPOLLET;
    ev.data.fd = rx;
    if (epoll_ctl(epfd, EPOLL_CTL_ADD, rx, &ev) < 0) {
        ATLOGE(0, kTagManage, "Set epoll_ctl, errno:%d, errstr:%s\n", errno, strerror(errno));
        return 11;
    }
    ATLOGI(3, kTagManage, "FIFO_RX and FIFO_TX open successfully!");
    return 0;
}

void stop_wifi_channel(void) {
    if (!channel_open()) return;
    if (epoll_ctl(acquire_load(&epfd_socket), EPOLL_CTL_DEL, acquire_load(&g_fifo_rx_fd),
                  nullptr) < 0) {
        ATLOGE(0, kTagManage,
               "stop_wifi_channel Set epoll_ctl, epfd_socket is %d, g_fifo_rx_fd is %d, errno:%d, "
               "errstr:%s\n",
               relaxed_load(&epfd_socket), relaxed_load(&g_fifo_rx_fd), errno, strerror(errno));
    }
    end_alarm_thread(&g_wifiRx_thread);
    close_taken(&g_fifo_rx_fd);
    close_taken(&g_fifo_tx_fd);
    close_epoll();
    ATLOGI(3, kTagManage, "wifi channel has been closed and wifiRx_thread has been killed!");
}

int wifi_Chan_ReInit(void) {
    int r = stop_hiddemon();
    const system_status_t *st = device_status();
    if (st == nullptr) return r;
    const int32_t platform = relaxed_load(&st->platform);
    if (platform == ATCMD_PLATFORM_VUART) {
        ATLOGI(3, kTagManage, "Hid_daemon stopped, begin re-init wifi server!");
        r = property_set(kPropHidCmd, kCmdStartServer);
    } else if (platform == ATCMD_PLATFORM_UART) {
        ATLOGI(3, kTagManage, "Hid_daemon stopped, begin re-init wifi client with serverIP %s!",
               st->ipaddr);
        property_set(kPropHidSts, st->ipaddr);
        r = property_set(kPropHidCmd, kCmdStartClient);
    }
    return r;
}
