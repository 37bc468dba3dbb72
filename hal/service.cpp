// Start-up and shut-down of the service, and the signal thread that turns
// the service signals into link changes. Everything else runs on threads
// started here: this is where the layers are put together, so it sits at
// the top with the device object, and nothing below depends on it.
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cutils/properties.h>

#include <initializer_list>

#include "atcmdprocess.h"
#include "core/capture.h"
#include "core/device_state.h"
#include "core/link_fd.h"
#include "core/log.h"
#include "core/queue.h"
#include "core/relaxed.h"
#include "core/threads.h"
#include "device/reports.h"
#include "hal/service.h"
#include "hal/wifi_control.h"
#include "hal/wiring.h"
#include "link/acm_link.h"
#include "link/hiddemon.h"
#include "link/serial_port.h"
#include "link/serial_rx.h"
#include "link/uart_link.h"
#include "link/usb_hotplug.h"
#include "link/wifi_link.h"
#include "protocol/dispatch.h"
#include "protocol/timeout.h"
#include "protocol/transmit.h"

using namespace atcmd;

namespace {

// Lets the version report leave before the queries that follow it.
constexpr useconds_t kShakeHandsPauseUs = 50000;

}  // namespace

namespace atcmd {

void log_cast_mode(const system_status_t *st) {
    ATLOGI_FN(kSignalThread, kLogState, kTagManage, "Current cast mode is %d", relaxed_load(&st->mode));
}

}  // namespace atcmd

namespace {

sigset_t service_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (int sig : {SIGUSR1, SIGUSR2, SIGURG, SIGVTALRM}) sigaddset(&set, sig);
    return set;
}

// The node the virtual UART was opened on. Only this thread opens and
// closes that link, so only this thread uses it.
int64_t link_node = -1;

// A receive thread that still runs picks a new descriptor up itself.
// pthread_create stores the handle before the thread runs, so the thread's
// own clearing of it on its way out always comes later.
bool start_vuart_reader() {
    if (relaxed_load(&g_VuartRx_thread) != 0 ||
        pthread_create(&g_VuartRx_thread, nullptr, atcmder_VuartRx_thread, nullptr) == 0)
        return true;
    ATLOGE_FN(kSignalThread, kLogAlways, kTagManage, "atcmder_VuartRx_thread pthread_create failed");
    return false;
}

// The accessory's ACM node appeared: node is the name and number the
// watcher stored together.
void usb_plugged(system_status_t *st, const AcmNode &node) {
    if (kavren_node_plugged(node.name) != 1) return;
    ATLOGI_FN(kSignalThread, kLogDetail, kTagManage, "hot pluged device is kavren.");
    acm_close();
    if (acm_open(node.number) != 0) return;
    link_node = node.number;
    ATCMD_CAPTURE_EVENT(CaptureDir::kIn, "plug ttyACM%lld", static_cast<long long>(node.number));
    if (!start_vuart_reader()) return;
    relaxed_store(&st->mode, ATCMD_MODE_USB);
    relaxed_store(&st->usbdev_sts.usb_connected, 1);
    get_kavren_info();
    notify_usbevent();
    log_cast_mode(st);
}

void usb_unplugged(system_status_t *st) {
    ATCMD_CAPTURE_EVENT(CaptureDir::kIn, "unplug ttyACM%lld", static_cast<long long>(link_node));
    relaxed_store(&st->usbdev_sts.usb_connected, 0);
    relaxed_store(&st->usbdev_sts.usb_devinfo, -1);
    notify_usbevent();
    acm_close();
    relaxed_store(&st->mode,
                  relaxed_load(&st->wifi_status) == 1 ? ATCMD_MODE_WIFI : ATCMD_MODE_NONE);
    log_cast_mode(st);
}

// SIGUSR2 comes from the watcher for any ttyACM node that went and from a
// virtual UART thread on its way out. By the time it is taken the accessory
// may be back under a new tty, opened already on the SIGUSR1 that is taken
// first: a link still alive on its node outlives the unplug.
void usb_unplug_signalled(system_status_t *st) {
    if (vuart_link_state(link_node) != VuartLink::kAlive) {
        usb_unplugged(st);
        return;
    }
    ATLOGI_FN(kSignalThread, kLogState, kTagManage,
              "ttyACM%ld is still plugged and open: stale unplug ignored",
              static_cast<long>(link_node));
}

// Signals of one kind coalesce and SIGUSR1 is taken before SIGUSR2, so the
// events taken need not be the events that happened. After each, the link
// is made to agree with the nodes: a dead link is torn down, an accessory
// node with no link open is opened, an open link without a reader gets one.
// A change after this look raises a signal of its own, so one look suffices.
// tried: the node the plug steps have just run on, if any.
void usb_settle(system_status_t *st, const AcmNode *tried) {
    VuartLink link = vuart_link_state(link_node);
    if (link == VuartLink::kDead) {
        ATLOGI_FN(kSignalThread, kLogState, kTagManage, "ttyACM%ld went away under the open link",
                  static_cast<long>(link_node));
        usb_unplugged(st);
        link = VuartLink::kClosed;
    }
    if (link == VuartLink::kClosed) {
        AcmNode node;
        if (!find_accessory_node(&node)) return;
        if (tried != nullptr && tried->number == node.number) return;  // it just failed
        ATLOGI_FN(kSignalThread, kLogState, kTagManage, "%s present with no link open", node.name);
        usb_plugged(st, node);
    } else if (relaxed_load(&g_VuartRx_thread) == 0) {
        ATLOGI_FN(kSignalThread, kLogState, kTagManage, "the link on ttyACM%ld has no reader",
                  static_cast<long>(link_node));
        start_vuart_reader();
    }
}

void shake_hands() {
    send_amlogic_ver();
    usleep(kShakeHandsPauseUs);
    get_kavren_info();
    get_kavren_usbstate();
}

struct ServiceThread {
    pthread_t *handle;
    void *(*body)(void *);
    const char *failed;
};

}  // namespace

// Started by atcmder_hal_open before any other service thread, so that every
// thread the service starts inherits the blocked signals and they reach this
// thread only, one at a time.
void *atcmder_sigProcess_thread(void *) {
    const sigset_t set = service_signals();
    prctl(PR_SET_NAME, "sigProcess_thread");
    ATLOGI(kLogState, kTagManage, "atcmder_sigProcess_thread thread is running");
    int sig = 0;
    for (;;) {
        // A failed wait goes on with the signal of the previous pass.
        if (sigwait(&set, &sig) != 0) ATLOGE(kLogAlways, kTagManage, "sigwait error");
        ATLOGI(kLogState, kTagManage, "atcmder_sigProcess_thread handling thread got signal %d", sig);
        system_status_t *st = device_status();
        if (st == nullptr) continue;
        switch (sig) {
        case SIGUSR1: {
            const AcmNode node = acm_node_snapshot();
            usb_plugged(st, node);
            usb_settle(st, &node);
            break;
        }
        case SIGUSR2:
            usb_unplug_signalled(st);
            usb_settle(st, nullptr);
            break;
        case SIGURG: wifi_up(st); break;
        case SIGVTALRM: shake_hands(); break;
        default: break;
        }
    }
    return nullptr;
}

// Runs on the client's thread inside open. Nothing guards a second call: a
// second open starts a second set of threads on the new device.
int atcmder_hal_open(void) {
    ATLOGI(kLogState, kTagManage, "func is atcmder_hal_open.");
    wire_layers();
    memset(&g_kavren_devInfo, 0, sizeof g_kavren_devInfo);
    const sigset_t set = service_signals();
    for (atcmder_queue_t *q : {&Rx_head, &Tx_head, &Timeout_head}) atcmder_queue_init(q);

    Init_TimeoutPara();
    const int32_t platform = current_platform();
    if (platform == ATCMD_PLATFORM_UART) uart_open();

    // Blocked here, in the client's thread, so every thread started below
    // inherits the mask and only the signal thread's sigwait takes them.
    if (pthread_sigmask(SIG_BLOCK, &set, nullptr) != 0)
        ATLOGE(kLogAlways, kTagManage, "!! Set pthread mask failed\n");

    const ServiceThread threads[] = {
        {&g_Sigprocess_thread, atcmder_sigProcess_thread, "atcmder_sigProcess_thread init failed!"},
        {&g_uartRx_thread, atcmder_uartRx_thread, "atcmder_uartRx_thread init failed!"},
        {&g_Tx_thread, atcmder_Tx_thread, "atcmder_Tx_thread init failed!"},
        {&g_dispatch_thread, atcmder_dispatch_thread, "atcmder_dispatch_thread init failed!"},
        {&g_timeout_thread, atcmder_Timeout_thread, "atcmder_Timeout_thread init failed!"},
    };
    int result = 0;
    for (const ServiceThread &t : threads) {
        if (t.handle == &g_uartRx_thread && platform != ATCMD_PLATFORM_UART) continue;
        if (pthread_create(t.handle, nullptr, t.body, nullptr) != 0) {
            ATLOGE(kLogAlways, kTagManage, "%s", t.failed);
            result = 1;
        }
    }
    ATLOGI(kLogState, kTagManage, "g_patcmd_dev->system_status.platform is %d", platform);
    if (platform == ATCMD_PLATFORM_VUART) dev_hotplug_init();
    return result;
}

int atcmder_hal_close(void) {
    // The threads that use these are not stopped before the kill: each
    // number is pointed at an empty pipe rather than freed, so that none of
    // them can reach a file the hosting process opens meanwhile.
    for (int *fd : {&g_vuart_fd, &g_uart_fd, &g_fifo_tx_fd, &g_fifo_rx_fd}) fd_retire_parked(fd);
    // The condition locks, not the queue locks: that is how shut-down has
    // always drained the queues.
    atcmder_queue_exit(&Rx_head, &rxbuffer_Mutex);
    atcmder_queue_exit(&Tx_head, &txbuffer_Mutex);
    atcmder_queue_exit(&Timeout_head, &timeoutbuffer_Mutex);

    // SIGKILL cannot be caught: the first live thread named here takes the
    // whole hosting process with it. The signal, VUART receive and heartbeat
    // threads are not named.
    for (pthread_t *handle : {&g_uartRx_thread, &g_Tx_thread, &g_dispatch_thread,
                              &g_wifiRx_thread, &g_timeout_thread}) {
        const pthread_t t = relaxed_load(handle);
        if (t != 0) pthread_kill(t, SIGKILL);
    }
    return 0;
}
