// The single device object the module hands to its client, and its six
// operations. They run on the client's thread; the WiFi ones are also called
// by parsers on the dispatch thread. Each does the client-facing part here
// and leaves the links to link/.
#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>

#include <cutils/properties.h>

#include "core/device_state.h"
#include "core/log.h"
#include "core/queue.h"
#include "core/relaxed.h"
#include "core/threads.h"
#include "device/reports.h"
#include "hal/device_ops.h"
#include "hal/module.h"
#include "link/hid_protocol.h"
#include "link/hiddemon.h"
#include "link/wifi_channel.h"

using namespace atcmd;

namespace atcmd {

void init_device(atcmdprocess_device_t *dev, const hw_module_t *module) {
    dev->common.tag = HARDWARE_DEVICE_TAG;
    dev->common.version = HARDWARE_MAKE_API_VERSION(1, 0);
    dev->common.module = const_cast<hw_module_t *>(module);
    dev->common.close = atcmdprocess_close;

    system_status_t &st = dev->system_status;
    st.platform = ATCMD_PLATFORM_VUART;
    st.mode = ATCMD_MODE_NONE;
    st.wifi_status = -1;
    st.state = 1;
    st.usbdev_sts.usb_devinfo = -1;
    st.usbdev_sts.usb_connected = -1;
    dev->notify_callback = nullptr;

    dev->set_notify_callback = set_notify_callback;
    dev->cmd_from_hidl = cmd_from_hidl;
    dev->wifi_init = atcmdprocess_wifi_init;
    dev->wifi_stchange = atcmdprocess_wifi_stchange;
    dev->hiddemon_stchange = atcmdprocess_hiddemon_stchange;
    dev->amlogic_shake_hands = atcmdprocess_amlogic_shake_hands;
}

}  // namespace atcmd

int set_notify_callback(atcmdprocess_device_t *dev, atcmd_notify_callback_t cb) {
    ATLOGI(kLogDetail, kTagHal, "set_notify_callback");
    if (dev == nullptr) return -EINVAL;
    relaxed_store(&dev->notify_callback, cb);
    return 0;
}

// The enqueue result is not reported: a refused record (no text) is logged
// by the queue.
int cmd_from_hidl(AtCmder_t *cmd) {
    queue_put(kTxQueue, cmd);
    return 0;
}

int atcmdprocess_wifi_init(const char *ipaddr) {
    system_status_t *st = device_status();
    if (st == nullptr || ipaddr == nullptr) {
        ATLOGE(kLogAlways, kTagHal, "wifi init without device or address!");
        return -EINVAL;
    }
    const int32_t platform = relaxed_load(&st->platform);
    ATLOGI(kLogState, kTagHal, "wifi connection init begin with IPADDR %s, current platform is %d !",
           ipaddr, platform);
    // The stored address must keep its NUL; a longer text is no IPv4 address.
    if (strlen(ipaddr) >= sizeof st->ipaddr) {
        ATLOGE(kLogAlways, kTagHal, "wifi init address %s is too long!", ipaddr);
        return -EINVAL;
    }
    char sts[PROPERTY_VALUE_MAX];
    property_get(kPropHidSts, sts, "");

    // WiFi counts as requested before the start command goes out: the
    // daemon may report "running" before this thread runs again, and a
    // status that finds wifi_status other than 1 is dropped.
    if (platform == ATCMD_PLATFORM_UART) {
        if (strcmp(ipaddr, st->ipaddr) != 0) stop_hiddemon();
        property_set(kPropHidSts, ipaddr);
        relaxed_store(&st->wifi_status, 1);
        property_set(kPropHidCmd, kCmdStartClient);
        ATLOGI(kLogDetail, kTagHal, " Client init begin!");
        memcpy(st->ipaddr, ipaddr, strlen(ipaddr) + 1);
    } else if (platform == ATCMD_PLATFORM_VUART) {
        relaxed_store(&st->wifi_status, 1);
        property_set(kPropHidCmd, kCmdStartServer);
    }
    relaxed_store(&st->wifi_status, 1);
    return 0;
}

// Also called with 0 by the parsers when the accessory goes away. Under the
// channel lock, so that the signal thread's handling of a "running" comes
// wholly before this or not at all; the heartbeat thread, which may be
// waiting for that lock, is ended after it.
int atcmdprocess_wifi_stchange(int32_t state) {
    if (state != 0) return 0;
    {
        ChannelLock lock;
        ATLOGI(kLogState, kTagHal, "Get wifi disconnect from FW or Kavren poweroff");
        if (system_status_t *st = device_status()) {
            relaxed_store(&st->wifi_status, 0);
            if (relaxed_load(&st->mode) == ATCMD_MODE_WIFI)
                relaxed_store(&st->mode, ATCMD_MODE_NONE);
        }
        end_wifi_session();
        stop_hiddemon();
        notify_wifi_state(0);
        property_set(kPropTimeSync, "disable");
        ATLOGI(kLogState, kTagHal, "Set vendor.kavren.timesync disable!");
        stop_wifi_channel();
    }
    stop_heartbeat_thread();
    return 0;
}

// The daemon's status texts, passed on by the client. They are
// substring-tested in this order, so "heartbeat" wins and a text with both
// "running" and "error" counts as running.
int atcmdprocess_hiddemon_stchange(const char *status) {
    // Read before the test: a tear-down that comes after the test ends this
    // session, and the signal thread then leaves the "running" alone.
    const uint32_t session = wifi_session();
    if (status == nullptr || current_wifi_status() != 1) return 0;
    if (strstr(status, "heartbeat") != nullptr) {
        const char *colon = strchr(status, ':');
        if (colon != nullptr)
            record_heartbeat(static_cast<uint64_t>(strtol(colon + 1, nullptr, 10)));
        return 0;
    }
    ATLOGI(kLogState, kTagHal, "hiddemon status is %s, wifi_status is %d", status, current_wifi_status());
    if (strstr(status, "running") != nullptr) {
        running_reported(session);
        signal_thread(relaxed_load(&g_Sigprocess_thread), SIGURG);
        notify_wifi_state(1);
        return 0;
    }
    notify_wifi_state(0);
    if (strstr(status, "error") != nullptr)
        wifi_Chan_ReInit();
    else
        stop_wifi_channel();
    return 0;
}

// The signal thread sends the version report; the client's thread must not
// wait for the property reads that it involves.
int atcmdprocess_amlogic_shake_hands(void) {
    ATLOGI(kLogDetail, kTagHal, "atcmdprocess_amlogic_shake_hands.");
    return signal_thread(relaxed_load(&g_Sigprocess_thread), SIGVTALRM);
}
