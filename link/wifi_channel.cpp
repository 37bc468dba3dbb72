// The WiFi link: the HID daemon owns the socket and relays its bytes through
// named FIFOs; this module reads /dev/fifo_rx and writes /dev/fifo_tx. These
// functions start, restart and tear down that link. They run on the client's
// thread (device operations), the dispatch thread (parsers), the heartbeat
// thread and the signal thread; the channel globals are shared unlocked.
#define LOG_TAG "ATCMD_MANAGE"
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <cutils/properties.h>

#include "core/log.h"
#include "core/service.h"
#include "link/hid_protocol.h"
#include "platform/sysroot.h"

using namespace atcmd;

int g_fifo_rx_fd = -1;
int g_fifo_tx_fd = -1;
int epfd_socket = 0;

namespace {

// Sends SIGALRM (thread_exit_handler ends the thread) and waits for the end.
void end_thread(pthread_t *thread) {
    if (*thread == 0) return;
    pthread_kill(*thread, SIGALRM);
    pthread_join(*thread, nullptr);
    *thread = 0;
}

// A descriptor 0 is not taken for an open channel; the channel has always
// been tested this way.
bool channel_open() { return g_fifo_rx_fd >= 1; }

void close_fifos() {
    close(g_fifo_rx_fd);
    close(g_fifo_tx_fd);
    g_fifo_rx_fd = -1;
    g_fifo_tx_fd = -1;
}

void close_epoll() {
    if (epfd_socket >= 1) {
        close(epfd_socket);
        epfd_socket = 0;
    }
}

}  // namespace

int Socket_Fifo_Init(void) {
    if (channel_open()) {
        close_fifos();
    } else if (g_fifo_tx_fd >= 0) {
        // Left from an attempt whose receive FIFO failed; nothing else would
        // ever close it.
        close(g_fifo_tx_fd);
        g_fifo_tx_fd = -1;
    }
    close_epoll();

    // O_RDWR: neither open waits for the daemon to open the other end.
    g_fifo_rx_fd = open(SysPath(kFifoRx).c_str(), O_RDWR | O_CLOEXEC);
    g_fifo_tx_fd = open(SysPath(kFifoTx).c_str(), O_RDWR | O_CLOEXEC);
    if (g_fifo_rx_fd < 0 || g_fifo_tx_fd < 0) {
        ATLOGE(0, "cannot open device: %s\n", kFifoRx);
        return 10;
    }

    epfd_socket = epoll_create1(0);
    if (epfd_socket < 0) {
        ATLOGE(0, "Create epoll instance, errno:%d, errstr:%s\n", errno, strerror(errno));
        epfd_socket = 0;
        return 11;
    }
    struct epoll_event ev = {};
    ev.events = EPOLLIN | EPOLLET;
    ev.data.fd = g_fifo_rx_fd;
    if (epoll_ctl(epfd_socket, EPOLL_CTL_ADD, g_fifo_rx_fd, &ev) < 0) {
        ATLOGE(0, "Set epoll_ctl, errno:%d, errstr:%s\n", errno, strerror(errno));
        return 11;
    }
    ATLOGI(3, "FIFO_RX and FIFO_TX open successfully!");
    return 0;
}

void stop_wifi_channel(void) {
    if (!channel_open()) return;
    if (epoll_ctl(epfd_socket, EPOLL_CTL_DEL, g_fifo_rx_fd, nullptr) < 0) {
        ATLOGE(0,
               "stop_wifi_channel Set epoll_ctl, epfd_socket is %d, g_fifo_rx_fd is %d, errno:%d, "
               "errstr:%s\n",
               epfd_socket, g_fifo_rx_fd, errno, strerror(errno));
    }
    end_thread(&g_wifiRx_thread);
    close_fifos();
    close_epoll();
    ATLOGI(3, "wifi channel has been closed and wifiRx_thread has been killed!");
}

int wifi_Chan_ReInit(void) {
    int r = stop_hiddemon();
    system_status_t *st = g_patcmd_dev != nullptr ? &g_patcmd_dev->system_status : nullptr;
    if (st == nullptr) return r;
    if (st->platform == kPlatformServer) {
        ATLOGI(3, "Hid_daemon stopped, begin re-init wifi server!");
        r = property_set(kPropHidCmd, kCmdStartServer);
    } else if (st->platform == kPlatformClient) {
        ATLOGI(3, "Hid_daemon stopped, begin re-init wifi client with serverIP %s!", st->ipaddr);
        property_set(kPropHidSts, st->ipaddr);
        r = property_set(kPropHidCmd, kCmdStartClient);
    }
    return r;
}

#undef LOG_TAG
#define LOG_TAG "AtCmdProcessHal"

int atcmdprocess_wifi_init(const char *ipaddr) {
    if (g_patcmd_dev == nullptr || ipaddr == nullptr) {
        ATLOGE(0, "wifi init without device or address!");
        return -EINVAL;
    }
    system_status_t *st = &g_patcmd_dev->system_status;
    ATLOGI(3, "wifi connection init begin with IPADDR %s, current platform is %d !", ipaddr,
           st->platform);
    // The stored address must keep its NUL; a longer text is no IPv4 address.
    if (strlen(ipaddr) >= sizeof st->ipaddr) {
        ATLOGE(0, "wifi init address %s is too long!", ipaddr);
        return -EINVAL;
    }
    char sts[PROPERTY_VALUE_MAX];
    property_get(kPropHidSts, sts, "");

    if (st->platform == kPlatformClient) {
        if (strcmp(ipaddr, st->ipaddr) != 0) stop_hiddemon();
        property_set(kPropHidSts, ipaddr);
        property_set(kPropHidCmd, kCmdStartClient);
        ATLOGI(4, " Client init begin!");
        memcpy(st->ipaddr, ipaddr, strlen(ipaddr) + 1);
    } else if (st->platform == kPlatformServer) {
        property_set(kPropHidCmd, kCmdStartServer);
    }
    st->wifi_status = 1;
    return 0;
}

int atcmdprocess_wifi_stchange(int32_t state) {
    if (state != 0) return 0;
    ATLOGI(3, "Get wifi disconnect from FW or Kavren poweroff");
    if (g_patcmd_dev != nullptr) {
        system_status_t *st = &g_patcmd_dev->system_status;
        st->wifi_status = 0;
        if (st->mode == 1) st->mode = -1;
    }
    stop_hiddemon();
    notify_wifi_state(0);
    property_set(kPropTimeSync, "disable");
    ATLOGI(3, "Set vendor.kavren.timesync disable!");
    stop_wifi_channel();
    end_thread(&g_wifiHBeat_thread);
    return 0;
}
