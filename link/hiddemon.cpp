// Supervision of the HID daemon that carries the WiFi link: its heartbeat,
// and stopping it, politely through /dev/fifo_cmd first and by property
// command when that fails. The daemon's status texts arrive through the
// device operation hiddemon_stchange (hal/).
#include "link/hiddemon.h"

#include <fcntl.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cutils/properties.h>

#include "core/capture.h"
#include "core/delays.h"
#include "core/device_state.h"
#include "core/log.h"
#include "core/relaxed.h"
#include "core/threads.h"
#include "link/hid_protocol.h"
#include "link/wifi_link.h"
#include "platform/sysroot.h"

using namespace atcmd;

// Written by the client's thread, watched by the heartbeat thread.
uint64_t g_wifiHBeat_num = 0;

namespace {

constexpr useconds_t kForcedStopPauseUs = 50000;

}  // namespace

namespace atcmd {

void record_heartbeat(uint64_t num) { relaxed_store(&g_wifiHBeat_num, num); }

void stop_heartbeat_thread() { end_alarm_thread(&g_wifiHBeat_thread); }

}  // namespace atcmd

int Kill_hiddemon_byforce(void) {
    property_set(kPropHidCmd,
                 current_platform() == ATCMD_PLATFORM_UART ? kCmdStopClient : kCmdStopServer);
    return usleep(kForcedStopPauseUs);
}

// Blocks its caller for about a second while the daemon acknowledges.
int stop_hiddemon(void) {
    int fd = open(SysPath(kFifoCmd).c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        ATLOGE(kLogAlways, kTagManage, "cannot open device: %s, will kill hiddemon!", kFifoCmd);
        return Kill_hiddemon_byforce();
    }
    const ssize_t written = write(fd, kExit, 4);
    capture_bytes(CaptureIf::kDaemonCmd, CaptureDir::kOut, kExit, written);
    if (written != 4) {
        ATLOGE(kLogAlways, kTagManage, " fails to write data %s to fifo_cmd", kExit);
        Kill_hiddemon_byforce();
        return close(fd);
    }
    usleep(g_delays.daemon_exit_ack);
    char sts[PROPERTY_VALUE_MAX];
    // One check, no polling: the acknowledgement must be exactly "exit".
    if (property_get(kPropHidSts, sts, "") > 0 && memcmp(sts, kExit, sizeof kExit) == 0) {
        ATLOGI(kLogState, kTagManage, "Process Hiddemon exits successfully!");
        return close(fd);
    }
    ATLOGE(kLogAlways, kTagManage, " hiddemon exit fails, will be killed!");
    Kill_hiddemon_byforce();
    return close(fd);
}

// Runs from the daemon's first "running" until the WiFi link is torn down,
// which ends it with SIGALRM. One whole period without a new number restarts
// the daemon.
void *atcmder_wifiHBeat_thread(void *) {
    // First, before anything that takes a lock: a thread started with a
    // plain pthread_create may be sent SIGALRM at once.
    install_thread_exit_handler();
    prctl(PR_SET_NAME, "wifiHBeat_thread");
    ATLOGI(kLogState, kTagManage, "atcmder_wifiHBeat_thread is running!");
    for (;;) {
        uint64_t last = relaxed_load(&g_wifiHBeat_num);
        sleep_until_exit_signal(g_delays.heartbeat_period);
        if (relaxed_load(&g_wifiHBeat_num) != last) continue;
        // Looked at again under the lock: a tear-down that came meanwhile
        // has stopped the daemon, which must not be started again.
        ChannelLock lock;
        if (current_wifi_status() != 1) continue;
        ATLOGI(kLogNotice, kTagManage, "!! HID demon lost heart beat, will restart! wifiHBeat_num is %lu .",
               static_cast<unsigned long>(relaxed_load(&g_wifiHBeat_num)));
        stop_wifi_channel();
        wifi_Chan_ReInit();
    }
    return nullptr;
}
