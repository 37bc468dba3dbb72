// Idle: how often the module's process wakes while there is nothing to do,
// counted as the context switches of all its threads over a few seconds
// (a thread that sleeps and wakes again switches out once per wake-up).
// With one command waiting for its reply the time-out thread rescans the
// queue every 10 ms; that figure is reported against that rate.
#include <stdio.h>
#include <string.h>

#include <string>

#include "bench/e2e/harness.h"
#include "harness/sysroot.h"
#include "sim/sim.h"

namespace e2e {
namespace {

enum class Setting { kNothingPlugged, kPlugged, kCommandWaiting };

struct IdleResult {
    bool ok = false;
    double seconds = 0;
    double per_second = 0;
    std::map<int, TaskCounters> tasks;
};

// The client's thread keeps one query in flight: when the module reports
// it timed out (sent three times, no accessory to answer), it sends the next.
void keep_one_waiting(Shared *sh, atcmdprocess_device_t *dev) {
    if (!wait_at_least(&sh->go, 1, 30000)) return;
    for (uint32_t n = 1;; ++n) {
        char text[ATCMD_TEXT_MAX] = "AT+SN?#13&1\r\n";
        AtCmder_t cmd;
        memset(&cmd, 0, sizeof cmd);
        cmd.type = ATCMD_TYPE_QUERY;
        cmd.source = ATCMD_EP_CLIENT;
        cmd.dest = ATCMD_EP_MCU;
        cmd.flag = ATCMD_PLATFORM_VUART;
        cmd.cmd_id = ATCMD_ID_SN;
        cmd.seq_num = ATCMD_ID_SN;
        cmd.data = text;
        dev->cmd_from_hidl(&cmd);
        if (!wait_at_least(&sh->timeouts, n, 5000)) {
            sh->failed.store(n);
            return;
        }
    }
}

IdleResult idle_case(Setting setting, const Options &opt) {
    atcmd_harness::TempSysroot root;
    Shared *sh = map_shared();
    pid_t pid = spawn_module_child(root.root(), sh, kDefaultLogLevel, opt,
                                   [setting](Shared *s, atcmdprocess_device_t *dev) {
                                       if (setting == Setting::kCommandWaiting)
                                           keep_one_waiting(s, dev);
                                   });
    IdleResult r;
    atsim::Transcript transcript;
    {
        atsim::Accessory acc(root.root(), transcript);
        bool up = wait_at_least(&sh->ready, 1, 10000) && sh->failed.load() == 0;
        if (up && setting == Setting::kPlugged)
            up = acc.plug_usb(0) && wait_told(sh, ATCMD_ID_VER, 10000);
        if (up) {
            sh->go.store(1);
            wake(&sh->go);
            sleep_ns(500000000);  // start-up done, the plug's burst answered
            const auto before = read_tasks(pid);
            const uint64_t t0 = now_ns();
            sleep_ns(static_cast<uint64_t>(opt.idle_seconds * 1e9));
            const auto after = read_tasks(pid);
            r.seconds = static_cast<double>(now_ns() - t0) / 1e9;
            r.tasks = task_delta(before, after);
            uint64_t total = 0;
            for (const auto &[tid, t] : r.tasks) total += t.switches;
            r.per_second = static_cast<double>(total) / r.seconds;
            r.ok = sh->failed.load() == 0;
        } else {
            fprintf(stderr, "idle: the module did not come up\n");
        }
        end_child(pid);
    }
    unmap_shared(sh);
    return r;
}

void detail(const char *label, const IdleResult &r) {
    fprintf(stderr, "idle %-40s: %.2f wake-ups/s over %.2f s%s\n", label, r.per_second, r.seconds,
            r.ok ? "" : " (incomplete)");
    for (const auto &[tid, t] : r.tasks)
        fprintf(stderr, "    tid %-7d %-18s %7.2f /s  cpu %8.1f us/s\n", tid, t.name.c_str(),
                static_cast<double>(t.switches) / r.seconds,
                static_cast<double>(t.run_ns) / 1e3 / r.seconds);
}

double per_second_of(const IdleResult &r, const char *thread) {
    uint64_t n = 0;
    for (const auto &[tid, t] : r.tasks)
        if (t.name == thread) n += t.switches;
    return r.seconds > 0 ? static_cast<double>(n) / r.seconds : 0;
}

}  // namespace

int run_idle(const Options &opt) {
    const struct {
        Setting setting;
        const char *label;
    } cases[] = {
        {Setting::kNothingPlugged, "module open, nothing plugged, nothing queued"},
        {Setting::kPlugged, "accessory plugged (USB link open), nothing queued"},
        {Setting::kCommandWaiting, "one command waiting for its reply, nothing plugged"},
    };
    constexpr double kRescansPerSecond = 100.0;  // one every 10 ms
    for (const auto &c : cases) {
        IdleResult r = idle_case(c.setting, opt);
        detail(c.label, r);
        const std::string what = std::string("wake-ups per second, whole process, ") + c.label;
        if (c.setting != Setting::kCommandWaiting) {
            row("idle", what, fmt("%.2f /s", r.per_second), "-", "-", "0 /s",
                yes_no(r.ok && r.per_second == 0));
            continue;
        }
        row("idle", what, fmt("%.2f /s", r.per_second), "100 /s (one rescan per 10 ms)",
            fmt("%.2fx", r.per_second / kRescansPerSecond), "- (10 ms rescan by design)", "-");
        const double timeout_thread = per_second_of(r, "Timeout_thread");
        row("idle", "wake-ups per second, Timeout_thread alone, " + std::string(c.label),
            fmt("%.2f /s", timeout_thread), "100 /s (one rescan per 10 ms)",
            fmt("%.2fx", timeout_thread / kRescansPerSecond), "- (10 ms rescan by design)", "-");
    }
    return 0;
}

}  // namespace e2e
