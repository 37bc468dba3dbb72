// What every end-to-end bench shares: the module loaded in a forked child
// (its threads live as long as the process, and close ends it), the
// simulator in the parent, a page of memory both processes see with
// CLOCK_MONOTONIC stamps in it, the child's CPU clock and its threads'
// counters read from /proc, and the ROW lines the bench script collects.
#ifndef ATCMD_BENCH_E2E_HARNESS_H
#define ATCMD_BENCH_E2E_HARNESS_H

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "atcmdprocess.h"
#include "bench/rows.h"

namespace e2e {

constexpr size_t kMaxSamples = 1 << 16;  // a line's counter travels as its 16-bit seq_num

// Lives in a MAP_SHARED mapping made before the fork. Counters are
// lock-free atomics, which work across processes; the stamp arrays are
// written by one side per index and read by the other only after the
// counter that covers the index says so.
struct Shared {
    std::atomic<uint32_t> ready;       // child: module open and callback installed
    std::atomic<uint32_t> go;          // parent: the child may start its part
    std::atomic<uint32_t> done;        // child: its part is over
    std::atomic<uint32_t> failed;      // child: something it waited for never came
    std::atomic<uint32_t> delivered;   // bench lines told to the client, or read raw
    std::atomic<uint32_t> malformed;   // bench lines told with a wrong value
    std::atomic<uint32_t> duplicates;  // a counter told twice
    std::atomic<uint32_t> received;    // transmit: lines the simulator read
    std::atomic<uint32_t> replies;     // "+SN" answers told to the client
    std::atomic<uint32_t> timeouts;    // reply time-outs told to the client
    std::atomic<uint64_t> told_mask;   // every cmd_id the client was told of
    uint64_t start_ns[kMaxSamples];    // written before the write or the call
    uint64_t end_ns[kMaxSamples];      // callback, raw read, or simulator read
};

Shared *map_shared();
void unmap_shared(Shared *s);

uint64_t now_ns();  // CLOCK_MONOTONIC, the same clock in both processes
void sleep_ns(uint64_t ns);
void sleep_until_ns(uint64_t deadline);

// Futex on a shared counter: wakes every waiter of the word.
void wake(std::atomic<uint32_t> *word);
// Waits until *word >= at_least; false after timeout_ms.
bool wait_at_least(std::atomic<uint32_t> *word, uint32_t at_least, int timeout_ms);

// Finer timer slack for the calling thread while pacing writes; restored on
// destruction, so that children forked later inherit the default.
class FineTimerSlack {
public:
    FineTimerSlack();
    ~FineTimerSlack();

private:
    long previous_;
};

struct Options {
    std::string child_log;  // where the child's stdout and stderr go; empty: /dev/null
    bool quick = false;     // smaller counts, for a smoke run
    double idle_seconds = 5.0;
    bool capture = false;   // the module records its links (persist.vendor.atcmd.capture=1)
};

// The child's part, run after the module is open with the bench callback.
using ChildBody = std::function<void(Shared *sh, atcmdprocess_device_t *dev)>;

// The module process: forks, loads atcmdprocess.default.so under sysroot
// with log_level set (kDefaultLogLevel: left as the module has it, with its
// log file on), opens the device, installs the bench callback, sets ready
// and runs body; then it blocks until killed. The child's standard output
// and error go to opt.child_log, so the module's own log lines stay off the
// bench's output.
constexpr int kDefaultLogLevel = 1000;
pid_t spawn_module_child(const std::string &sysroot, Shared *sh, int log_level, const Options &opt,
                         const ChildBody &body);
// A process that only forks and runs body (no module): the baselines.
pid_t spawn_plain_child(Shared *sh, const Options &opt, const std::function<void(Shared *)> &body);
void end_child(pid_t pid);

// CPU time of a whole other process, in ns (its CPU-time clock).
uint64_t process_cpu_ns(pid_t pid);

struct TaskCounters {
    std::string name;       // /proc/.../comm
    uint64_t switches = 0;  // voluntary + nonvoluntary context switches
    uint64_t run_ns = 0;    // schedstat: time on a CPU
};
std::map<int, TaskCounters> read_tasks(pid_t pid);
// after - before per thread (threads that appeared count from 0).
std::map<int, TaskCounters> task_delta(const std::map<int, TaskCounters> &before,
                                       const std::map<int, TaskCounters> &after);

struct Spread {
    size_t n = 0;
    double median_us = 0;
    double p99_us = 0;
    double max_us = 0;
};
Spread spread_of(std::vector<double> us);

// ROW|section|measure|value|baseline|ratio|target|met
void row(const std::string &section, const std::string &measure, const std::string &value,
         const std::string &baseline, const std::string &ratio, const std::string &target,
         const std::string &met);
using bench_rows::fmt;
inline const char *yes_no(bool ok) { return ok ? "yes" : "no"; }

// Messages of interest, for the callback and its users.
constexpr uint64_t told_bit(int cmd_id) { return uint64_t{1} << cmd_id; }
// Polls the child's told_mask every 5 ms until cmd_id's bit is set.
bool wait_told(Shared *sh, int cmd_id, int timeout_ms);

int run_receive(const Options &opt);
int run_transmit(const Options &opt);
int run_idle(const Options &opt);

}  // namespace e2e

#endif
