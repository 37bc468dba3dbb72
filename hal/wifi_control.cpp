// The device's three WiFi operations, on the client's thread (wifi_stchange
// also on the dispatch thread, when the accessory powers off during a cast),
// and the signal thread's WiFi-up. The order of each step against the
// channel lock is what keeps a late "running" from reviving a stopped link.
#include "hal/wifi_control.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>

#include <cutils/properties.h>

#include "core/capture.h"
#include "core/device_state.h"
#include "core/log.h"
#include "core/relaxed.h"
#include "core/threads.h"
#include "device/reports.h"
#include "hal/service.h"
#include "link/hid_protocol.h"
#include "link/hiddemon.h"
#include "link/wifi_link.h"

using namespace atcmd;

int atcmdprocess_wifi_init(const char *ipaddr) {
    ATCMD_CAPTURE_EVENT(CaptureDir::kIn, "wifi_init %s", ipaddr != nullptr ? ipaddr : "(null)");
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
    ATCMD_CAPTURE_EVENT(CaptureDir::kIn, "wifi_stchange %d", static_cast<int>(state));
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
    // Every text the client passes on, heartbeats and ignored ones included.
    ATCMD_CAPTURE_EVENT(CaptureDir::kIn, "daemon %s", status != nullptr ? status : "(null)");
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

namespace atcmd {

// The HID daemon reported "running": open the channel and watch it. A USB
// cast in progress keeps mode 0. A tear-down since the report wins.
void wifi_up(system_status_t *st) {
    ChannelLock lock;
    if (!running_still_current()) {
        ATLOGI_FN(kSignalThread, kLogState, kTagManage,
                  "WiFi was stopped after the daemon reported running: channel stays closed");
        return;
    }
    if (relaxed_load(&st->mode) != ATCMD_MODE_USB) relaxed_store(&st->mode, ATCMD_MODE_WIFI);
    Socket_Fifo_Init();
    // The same text for both threads, as the field logs have always shown.
    if (relaxed_load(&g_wifiRx_thread) == 0 &&
        start_alarm_thread(&g_wifiRx_thread, atcmder_wifiRx_thread) != 0)
        ATLOGE_FN(kSignalThread, kLogAlways, kTagManage, "atcmder_wifiRx_thread init failed!");
    if (relaxed_load(&g_wifiHBeat_thread) == 0 &&
        start_alarm_thread(&g_wifiHBeat_thread, atcmder_wifiHBeat_thread) != 0)
        ATLOGE_FN(kSignalThread, kLogAlways, kTagManage, "atcmder_wifiRx_thread init failed!");
    if (relaxed_load(&st->platform) == ATCMD_PLATFORM_VUART) get_kavren_info();
    property_set("vendor.kavren.timesync", "enable");
    ATLOGI_FN(kSignalThread, kLogState, kTagManage, "Set vendor.kavren.timesync enable!");
    log_cast_mode(st);
}

}  // namespace atcmd
