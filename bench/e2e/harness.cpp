#include "bench/e2e/harness.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <fstream>
#include <new>
#include <sstream>

#include "client/loader.h"

namespace e2e {
namespace {

// The child's view of the shared page, for the callback.
Shared *g_child_shared = nullptr;

constexpr const char *kMac = "AA:BB:CC:DD:EE:FF";

// The first value of each report the receive bench sends; a callback that
// sees another one was handed a wrongly parsed line.
int32_t expected_first_value(uint16_t cmd_id) {
    switch (cmd_id) {
    case ATCMD_ID_HRM: return 35;
    case ATCMD_ID_BATCG: return 85;
    case ATCMD_ID_HALLCG: return 1;
    default: return INT32_MIN;
    }
}

// Runs on the module's threads. The receive path stamps and counts without a
// system call, so the callback adds as little as a client could to the CPU
// figure; the rarer messages wake the child's waiting main thread.
void on_message(AT_CMD_CbMsg_t *msg) {
    const uint64_t t = now_ns();
    Shared *sh = g_child_shared;
    sh->told_mask.fetch_or(told_bit(msg->cmd_id & 63));
    switch (msg->cmd_id) {
    case ATCMD_ID_HRM:
    case ATCMD_ID_BATCG:
    case ATCMD_ID_HALLCG: {
        int32_t first = msg->data != nullptr ? *static_cast<const int32_t *>(msg->data) : INT32_MIN;
        if (first != expected_first_value(msg->cmd_id)) sh->malformed.fetch_add(1);
        if (sh->end_ns[msg->seq_num] != 0) {
            sh->duplicates.fetch_add(1);
        } else {
            sh->end_ns[msg->seq_num] = t;
            sh->delivered.fetch_add(1, std::memory_order_release);
        }
        break;
    }
    case ATCMD_ID_SN:
        sh->replies.fetch_add(1);
        wake(&sh->replies);
        break;
    case ATCMD_ID_ERROR:
        sh->timeouts.fetch_add(1);
        wake(&sh->timeouts);
        break;
    default: break;
    }
}

void redirect_output(const Options &opt) {
    int fd = opt.child_log.empty()
                 ? open("/dev/null", O_WRONLY)
                 : open(opt.child_log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd >= 0) {
        dup2(fd, 1);
        dup2(fd, 2);
        close(fd);
    }
    // As for a service whose standard output is no terminal: fully
    // buffered, whatever the bench's own output was.
    setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);
}

long futex(std::atomic<uint32_t> *word, int op, uint32_t val, const timespec *ts) {
    static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t), "futex word");
    return syscall(SYS_futex, reinterpret_cast<uint32_t *>(word), op, val, ts, nullptr, 0);
}

uint64_t read_u64_after(const std::string &text, const char *key) {
    size_t at = text.find(key);
    return at == std::string::npos ? 0 : strtoull(text.c_str() + at + strlen(key), nullptr, 10);
}

std::string slurp(const std::string &path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

}  // namespace

Shared *map_shared() {
    void *p =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) {
        perror("mmap");
        exit(2);
    }
    // Zero-filled by the kernel; the atomics start at 0.
    return new (p) Shared;
}

void unmap_shared(Shared *s) { munmap(s, sizeof(Shared)); }

uint64_t now_ns() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}

void sleep_ns(uint64_t ns) { sleep_until_ns(now_ns() + ns); }

void sleep_until_ns(uint64_t deadline) {
    timespec ts = {static_cast<time_t>(deadline / 1000000000u),
                   static_cast<long>(deadline % 1000000000u)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &ts, nullptr) == EINTR) {
    }
}

void wake(std::atomic<uint32_t> *word) { futex(word, FUTEX_WAKE, INT_MAX, nullptr); }

bool wait_at_least(std::atomic<uint32_t> *word, uint32_t at_least, int timeout_ms) {
    const uint64_t deadline = now_ns() + static_cast<uint64_t>(timeout_ms) * 1000000u;
    for (;;) {
        uint32_t v = word->load(std::memory_order_acquire);
        if (v >= at_least) return true;
        uint64_t now = now_ns();
        if (now >= deadline) return false;
        uint64_t left = deadline - now;
        timespec ts = {static_cast<time_t>(left / 1000000000u),
                       static_cast<long>(left % 1000000000u)};
        futex(word, FUTEX_WAIT, v, &ts);
    }
}

FineTimerSlack::FineTimerSlack() : previous_(prctl(PR_GET_TIMERSLACK)) {
    prctl(PR_SET_TIMERSLACK, 1);
}

FineTimerSlack::~FineTimerSlack() {
    if (previous_ > 0) prctl(PR_SET_TIMERSLACK, previous_);
}

pid_t spawn_module_child(const std::string &sysroot, Shared *sh, int log_level, const Options &opt,
                         const ChildBody &body) {
    fflush(nullptr);
    pid_t pid = fork();
    if (pid != 0) return pid;
    redirect_output(opt);
    g_child_shared = sh;
    setenv("ATCMD_SYSROOT", sysroot.c_str(), 1);
    atcmd_client::Module m;
    std::string error;
    if (!m.load_path(ATCMD_MODULE_PATH, &error)) _exit(3);
    int32_t *level = m.sym<int32_t>("log_level");
    auto *set_prop = m.sym<int(const char *, const char *)>("property_set");
    if (level == nullptr || set_prop == nullptr) _exit(3);
    if (log_level != kDefaultLogLevel) *level = log_level;
    set_prop("net.bluetooth.macaddr", kMac);
    if (opt.capture) set_prop("persist.vendor.atcmd.capture", "1");
    atcmdprocess_device_t *dev = m.open(&error);
    if (dev == nullptr) {
        sh->failed.store(1);
        wake(&sh->ready);
        _exit(3);
    }
    dev->set_notify_callback(dev, on_message);
    sh->ready.store(1);
    wake(&sh->ready);
    body(sh, dev);
    fflush(nullptr);
    sh->done.store(1);
    wake(&sh->done);
    for (;;) pause();  // the service's threads run on until the parent kills us
}

pid_t spawn_plain_child(Shared *sh, const Options &opt, const std::function<void(Shared *)> &body) {
    fflush(nullptr);
    pid_t pid = fork();
    if (pid != 0) return pid;
    redirect_output(opt);
    body(sh);
    _exit(0);
}

void end_child(pid_t pid) {
    if (pid <= 0) return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

uint64_t process_cpu_ns(pid_t pid) {
    clockid_t cid;
    if (clock_getcpuclockid(pid, &cid) != 0) return 0;
    timespec ts;
    if (clock_gettime(cid, &ts) != 0) return 0;
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}

std::map<int, TaskCounters> read_tasks(pid_t pid) {
    std::map<int, TaskCounters> out;
    const std::string dir = "/proc/" + std::to_string(pid) + "/task";
    DIR *d = opendir(dir.c_str());
    if (d == nullptr) return out;
    while (const dirent *e = readdir(d)) {
        if (e->d_name[0] == '.') continue;
        const std::string task = dir + "/" + e->d_name;
        TaskCounters c;
        c.name = slurp(task + "/comm");
        while (!c.name.empty() && c.name.back() == '\n') c.name.pop_back();
        const std::string status = slurp(task + "/status");
        c.switches = read_u64_after(status, "\nvoluntary_ctxt_switches:") +
                     read_u64_after(status, "\nnonvoluntary_ctxt_switches:");
        c.run_ns = strtoull(slurp(task + "/schedstat").c_str(), nullptr, 10);
        out[atoi(e->d_name)] = c;
    }
    closedir(d);
    return out;
}

std::map<int, TaskCounters> task_delta(const std::map<int, TaskCounters> &before,
                                       const std::map<int, TaskCounters> &after) {
    std::map<int, TaskCounters> out;
    for (const auto &[tid, a] : after) {
        TaskCounters d = a;
        auto it = before.find(tid);
        if (it != before.end()) {
            d.switches -= std::min(d.switches, it->second.switches);
            d.run_ns -= std::min(d.run_ns, it->second.run_ns);
        }
        out[tid] = d;
    }
    return out;
}

Spread spread_of(std::vector<double> us) {
    Spread s;
    s.n = us.size();
    if (us.empty()) return s;
    std::sort(us.begin(), us.end());
    s.median_us = us[us.size() / 2];
    size_t p99 = static_cast<size_t>(std::ceil(0.99 * static_cast<double>(us.size()))) - 1;
    s.p99_us = us[std::min(p99, us.size() - 1)];
    s.max_us = us.back();
    return s;
}

void row(const std::string &section, const std::string &measure, const std::string &value,
         const std::string &baseline, const std::string &ratio, const std::string &target,
         const std::string &met) {
    bench_rows::print_row(stdout, section, measure, value, baseline, ratio, target, met);
}

bool wait_told(Shared *sh, int cmd_id, int timeout_ms) {
    const uint64_t deadline = now_ns() + static_cast<uint64_t>(timeout_ms) * 1000000u;
    while ((sh->told_mask.load() & told_bit(cmd_id)) == 0) {
        if (now_ns() >= deadline) return false;
        sleep_ns(5000000);
    }
    return true;
}

}  // namespace e2e
