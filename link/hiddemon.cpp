// Supervision of the HID daemon that carries the WiFi link: its status texts
// (passed in by the client), its heartbeat, and stopping it, politely through
// /dev/fifo_cmd first and by property command when that fails.
#define LOG_TAG "ATCMD_MANAGE"
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cutils/properties.h>

#include "core/log.h"
#include "core/service.h"
#include "link/hid_protocol.h"
#include "platform/sysroot.h"

using namespace atcmd;

// Written by the client's thread, watched by the heartbeat thread.
uint64_t g_wifiHBeat_num = 0;

namespace {

constexpr useconds_t kHeartbeatPeriodUs = 5000000;
constexpr useconds_t kExitAckWaitUs = 1000000;
constexpr useconds_t kForcedStopPauseUs = 50000;

int platform_now() { return g_patcmd_dev != nullptr ? g_patcmd_dev->system_status.platform : 0; }
int wifi_status_now() {
    return g_patcmd_dev != nullptr ? g_patcmd_dev->system_status.wifi_status : -1;
}

uint64_t heartbeat_load() { return __atomic_load_n(&g_wifiHBeat_num, __ATOMIC_RELAXED); }

}  // namespace

int Kill_hiddemon_byforce(void) {
    property_set(kPropHidCmd, platform_now() == kPlatformClient ? kCmdStopClient : kCmdStopServer);
    return usleep(kForcedStopPauseUs);
}

// Blocks its caller for about a second while the daemon acknowledges.
int stop_hiddemon(void) {
    int fd = open(SysPath(kFifoCmd).c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        ATLOGE(0, "cannot open device: %s, will kill hiddemon!", kFifoCmd);
        return Kill_hiddemon_byforce();
    }
    if (write(fd, kExit, 4) != 4) {
        ATLOGE(0, " fails to write data %s to fifo_cmd", kExit);
        Kill_hiddemon_byforce();
        return close(fd);
    }
    usleep(kExitAckWaitUs);
    char sts[PROPERTY_VALUE_MAX];
    // One check, no polling: the acknowledgement must be exactly "exit".
    if (property_get(kPropHidSts, sts, "") > 0 && memcmp(sts, kExit, sizeof kExit) == 0) {
        ATLOGI(3, "Process Hiddemon exits successfully!");
        return close(fd);
    }
    ATLOGE(0, " hiddemon exit fails, will be killed!");
    Kill_hiddemon_byforce();
    return close(fd);
}

// Runs from the daemon's first "running" until the WiFi link is torn down,
// which ends it with SIGALRM. One whole period without a new number restarts
// the daemon.
void *atcmder_wifiHBeat_thread(void *) {
    prctl(PR_SET_NAME, "wifiHBeat_thread");
    ATLOGI(3, "atcmder_wifiHBeat_thread is running!");
    install_thread_exit_handler();
    for (;;) {
        uint64_t last = heartbeat_load();
        sleep_until_exit_signal(kHeartbeatPeriodUs);
        if (heartbeat_load() != last) continue;
        if (wifi_status_now() != 1) continue;
        ATLOGI(2, "!! HID demon lost heart beat, will restart! wifiHBeat_num is %lu .",
               static_cast<unsigned long>(heartbeat_load()));
        stop_wifi_channel();
        wifi_Chan_ReInit();
    }
    return nullptr;
}

#undef LOG_TAG
#define LOG_TAG "AtCmdProcessHal"

// Status texts are substring-tested in this order, so "heartbeat" wins and a
// text with both "running" and "error" counts as running.
int atcmdprocess_hiddemon_stchange(const char *status) {
    if (status == nullptr || wifi_status_now() != 1) return 0;
    if (strstr(status, "heartbeat") != nullptr) {
        const char *colon = strchr(status, ':');
        if (colon != nullptr) {
            auto num = static_cast<uint64_t>(strtol(colon + 1, nullptr, 10));
            __atomic_store_n(&g_wifiHBeat_num, num, __ATOMIC_RELAXED);
        }
        return 0;
    }
    ATLOGI(3, "hiddemon status is %s, wifi_status is %d", status, wifi_status_now());
    if (strstr(status, "running") != nullptr) {
        signal_thread(g_Sigprocess_thread, SIGURG);
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
