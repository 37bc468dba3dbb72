// Receive to client: report lines written by the simulated accessory on the
// USB node, one write per line, paced at the UART's line rate, four times
// that, and unpaced, through the virtual UART receive thread, the receive
// queue, the dispatch thread and the parsers to the client's callback.
//
// The baseline is the bare hop: a process that polls and reads the same kind
// of pty node the way the receive thread does, fed the same lines at the
// same pace. For the detail on standard error, a second one also hands each
// read through a locked queue and a condition variable to another thread,
// which stamps the lines: the module's two-thread shape with nothing in it.
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/e2e/harness.h"
#include "harness/sysroot.h"
#include "sim/sim.h"

namespace e2e {
namespace {

// 460800 baud, 8N1: ten bit times per byte.
constexpr double kLineBytesPerSecond = 460800.0 / 10.0;

constexpr double kUnpaced = 0.0;

struct Pace {
    const char *name;
    double factor;  // multiple of the line rate; kUnpaced: back to back
    size_t lines;
};

// Three reports an accessory sends on its own, in turn; the line's counter
// is its sequence number (1..n), which the callback gets back as seq_num.
std::vector<std::string> report_lines(size_t n) {
    static const char *const kReports[] = {"+HRM=35,40", "+BATCG=85,1,3900,250,1,0",
                                           "+HALLCG=1,0,0"};
    std::vector<std::string> lines;
    lines.reserve(n);
    for (size_t i = 0; i < n; ++i)
        lines.push_back(std::string(kReports[i % 3]) + "#" + std::to_string(i + 1) + "&1\r\n");
    return lines;
}

struct CaseResult {
    bool ok = false;
    size_t written = 0;
    size_t delivered = 0;
    size_t malformed = 0;
    size_t duplicates = 0;
    double write_seconds = 0;
    double nominal_seconds = 0;
    double cpu_us_per_line = 0;
    Spread latency;
    std::map<int, TaskCounters> tasks;
    long long log_file_bytes = -1;
    // Lines lost come in runs of consecutive counters; a run of at least 513
    // bytes is a whole batch the receive thread dropped as too long.
    size_t loss_runs = 0;
    size_t smallest_run_bytes = 0;
    size_t largest_run_bytes = 0;
};

void count_loss_runs(const std::vector<std::string> &lines, const Shared *sh, CaseResult *r) {
    size_t run_bytes = 0;
    for (size_t seq = 1; seq <= lines.size() + 1; ++seq) {
        if (seq <= lines.size() && sh->end_ns[seq] == 0) {
            run_bytes += lines[seq - 1].size();
            continue;
        }
        if (run_bytes == 0) continue;
        r->smallest_run_bytes =
            r->loss_runs == 0 ? run_bytes : std::min(r->smallest_run_bytes, run_bytes);
        r->largest_run_bytes = std::max(r->largest_run_bytes, run_bytes);
        ++r->loss_runs;
        run_bytes = 0;
    }
}

void write_stream(atsim::Accessory &acc, const std::vector<std::string> &lines, double factor,
                  Shared *sh) {
    FineTimerSlack slack;
    const double rate = kLineBytesPerSecond * factor;
    const uint64_t start = now_ns() + 1000000;
    double bytes = 0;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (factor != kUnpaced) sleep_until_ns(start + static_cast<uint64_t>(bytes / rate * 1e9));
        sh->start_ns[i + 1] = now_ns();
        acc.send(lines[i]);
        bytes += static_cast<double>(lines[i].size());
    }
}

// Writes, waits until every line arrived or none did for a while, and reads
// the figures. The CPU window opens before the first write and closes after
// the last arrival: the threads sleep in between, so idle time adds nothing.
CaseResult measure(atsim::Accessory &acc, const Pace &pace, Shared *sh, pid_t pid) {
    CaseResult r;
    const std::vector<std::string> lines = report_lines(pace.lines);
    double bytes = 0;
    for (const std::string &l : lines) bytes += static_cast<double>(l.size());
    r.written = lines.size();
    r.nominal_seconds = pace.factor == kUnpaced ? 0 : bytes / (kLineBytesPerSecond * pace.factor);

    const auto tasks_before = read_tasks(pid);
    const uint64_t cpu0 = process_cpu_ns(pid);
    const uint64_t t0 = now_ns();
    write_stream(acc, lines, pace.factor, sh);
    r.write_seconds = static_cast<double>(now_ns() - t0) / 1e9;

    uint32_t seen = 0;
    uint64_t last_progress = now_ns();
    while (seen < lines.size() && now_ns() - last_progress < 1500000000u) {
        sleep_ns(2000000);
        uint32_t d = sh->delivered.load(std::memory_order_acquire);
        if (d != seen) last_progress = now_ns();
        seen = d;
    }
    sleep_ns(20000000);  // the dispatch thread logs after the last callback
    const uint64_t cpu1 = process_cpu_ns(pid);
    r.tasks = task_delta(tasks_before, read_tasks(pid));

    r.delivered = sh->delivered.load();
    r.malformed = sh->malformed.load();
    r.duplicates = sh->duplicates.load();
    r.cpu_us_per_line = static_cast<double>(cpu1 - cpu0) / 1e3 / static_cast<double>(r.written);
    std::vector<double> us;
    for (size_t seq = 1; seq <= lines.size(); ++seq)
        if (sh->end_ns[seq] != 0)
            us.push_back(static_cast<double>(sh->end_ns[seq] - sh->start_ns[seq]) / 1e3);
    r.latency = spread_of(us);
    count_loss_runs(lines, sh, &r);
    r.ok = true;
    return r;
}

long long file_size(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

// The module in a child, plugged in, its query burst answered and settled.
CaseResult module_case(int log_level, const Pace &pace, const Options &opt) {
    atcmd_harness::TempSysroot root;
    Shared *sh = map_shared();
    pid_t pid = spawn_module_child(root.root(), sh, log_level, opt,
                                   [](Shared *, atcmdprocess_device_t *) {});
    CaseResult r;
    atsim::Transcript transcript;
    {
        atsim::Accessory acc(root.root(), transcript);
        if (wait_at_least(&sh->ready, 1, 10000) && sh->failed.load() == 0 && acc.plug_usb(0) &&
            wait_told(sh, ATCMD_ID_VER, 10000)) {
            sleep_ns(300000000);  // the last answers parsed, nothing left waiting
            r = measure(acc, pace, sh, pid);
        } else {
            fprintf(stderr, "receive: the module did not come up with the accessory\n");
        }
        end_child(pid);
    }
    r.log_file_bytes = file_size(root.path("/sdcard/tavrinola/.log/atcmdprocess"));
    unmap_shared(sh);
    return r;
}

// Stamps every line end in a batch, in order of arrival.
void stamp_lines(Shared *sh, const char *data, size_t n, uint32_t *lines) {
    const uint64_t t = now_ns();
    for (size_t i = 0; i < n; ++i)
        if (data[i] == '\n' && *lines + 1 < kMaxSamples) sh->end_ns[++*lines] = t;
    sh->delivered.store(*lines, std::memory_order_release);
}

// The second thread of the bare two-thread reader: takes batches off a
// locked queue, woken by a condition variable signalled outside the lock,
// the way the dispatch thread is handed lines.
class HandOff {
public:
    explicit HandOff(Shared *sh) : sh_(sh), thread_([this] { run(); }) {}
    void put(const char *data, size_t n) {
        {
            std::lock_guard<std::mutex> lk(mu_);
            batches_.emplace_back(data, n);
        }
        cv_.notify_one();
    }

private:
    void run() {
        uint32_t lines = 0;
        for (;;) {
            std::string batch;
            {
                std::unique_lock<std::mutex> lk(mu_);
                cv_.wait(lk, [this] { return !batches_.empty(); });
                batch = std::move(batches_.front());
                batches_.pop_front();
            }
            stamp_lines(sh_, batch.data(), batch.size(), &lines);
        }
    }

    Shared *sh_;
    std::mutex mu_;
    std::condition_variable cv_;
    std::deque<std::string> batches_;
    std::thread thread_;  // runs until the process is killed
};

// Polls and reads the node like the receive thread; stamps every line end
// itself, or hands each read to a second thread that does.
void raw_reader(Shared *sh, const std::string &node, bool hand_off) {
    if (!wait_at_least(&sh->go, 1, 10000)) return;
    int fd = open(node.c_str(), O_RDWR | O_NOCTTY);
    if (fd < 0) {
        sh->failed.store(1);
        wake(&sh->ready);
        return;
    }
    HandOff *second = hand_off ? new HandOff(sh) : nullptr;
    sh->ready.store(1);
    wake(&sh->ready);
    char buf[1024];
    uint32_t lines = 0;
    for (;;) {
        pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, -1) < 0) continue;
        ssize_t n = read(fd, buf, sizeof buf);
        if (n <= 0) break;
        if (second != nullptr)
            second->put(buf, static_cast<size_t>(n));
        else
            stamp_lines(sh, buf, static_cast<size_t>(n), &lines);
    }
    for (;;) pause();  // the hand-off thread may still be stamping
}

CaseResult raw_case(const Pace &pace, bool hand_off, const Options &opt) {
    atcmd_harness::TempSysroot root;
    Shared *sh = map_shared();
    const std::string node = root.path("/dev/ttyACM0");
    pid_t pid =
        spawn_plain_child(sh, opt, [&node, hand_off](Shared *s) { raw_reader(s, node, hand_off); });
    CaseResult r;
    atsim::Transcript transcript;
    {
        atsim::Accessory acc(root.root(), transcript);
        if (acc.plug_usb(0)) {
            sh->go.store(1);
            wake(&sh->go);
        }
        if (wait_at_least(&sh->ready, 1, 10000) && sh->failed.load() == 0)
            r = measure(acc, pace, sh, pid);
        else
            fprintf(stderr, "receive: the raw reader could not open the node\n");
        end_child(pid);
    }
    unmap_shared(sh);
    return r;
}

void detail(const char *label, const Pace &pace, const CaseResult &r) {
    fprintf(stderr,
            "receive %-22s %-8s: %zu/%zu delivered (%zu malformed, %zu twice), written in %.3f s "
            "(nominal %.3f s), cpu %.2f us/line, latency median %.1f p99 %.1f max %.1f us",
            label, pace.name, r.delivered, r.written, r.malformed, r.duplicates, r.write_seconds,
            r.nominal_seconds, r.cpu_us_per_line, r.latency.median_us, r.latency.p99_us,
            r.latency.max_us);
    if (r.log_file_bytes >= 0) fprintf(stderr, ", log file %lld bytes", r.log_file_bytes);
    fprintf(stderr, "\n");
    if (r.loss_runs > 0)
        fprintf(stderr, "    lost in %zu runs of consecutive lines, %zu to %zu bytes each\n",
                r.loss_runs, r.smallest_run_bytes, r.largest_run_bytes);
    for (const auto &[tid, t] : r.tasks)
        if (t.run_ns > 0 || t.switches > 0)
            fprintf(stderr, "    %-18s cpu %6.2f us/line, %6.2f switches/line\n", t.name.c_str(),
                    static_cast<double>(t.run_ns) / 1e3 / static_cast<double>(r.written),
                    static_cast<double>(t.switches) / static_cast<double>(r.written));
}

std::string ratio(double value, double base) { return base > 0 ? fmt("%.2fx", value / base) : "-"; }

// Unpaced, the module drops most of the flood in whole batches, so its CPU
// per line written says nothing about the cost of a line: no target there.
void rows_for(const char *label, const Pace &pace, const CaseResult &m, const CaseResult &raw,
              bool delivery_target, double cpu_target_us, const CaseResult *cpu_base) {
    const bool paced = pace.factor != kUnpaced;
    const std::string what = std::string(label) + ", " + pace.name;
    const double pct =
        m.written ? 100.0 * static_cast<double>(m.delivered) / static_cast<double>(m.written) : 0;
    const bool all = m.written > 0 && m.delivered == m.written && m.malformed == 0;
    row("receive", "lines delivered to the callback, " + what, fmt("%zu lines", m.delivered),
        fmt("%zu lines written", m.written), fmt("%.2f%%", pct), delivery_target ? "100%" : "-",
        delivery_target ? yes_no(all) : "-");

    const std::string cpu_target = !paced ? "-"
                                   : cpu_base == nullptr
                                       ? fmt("<= %.0f us", cpu_target_us)
                                       : fmt("<= %.0f us (4 x 8 us)", cpu_target_us);
    const CaseResult &base = cpu_base != nullptr ? *cpu_base : raw;
    const std::string base_text = cpu_base != nullptr
                                      ? fmt("%.2f us (log_level 0)", base.cpu_us_per_line)
                                      : fmt("%.2f us (raw pty reader)", base.cpu_us_per_line);
    row("receive", "CPU time per line (module process), " + what, fmt("%.2f us", m.cpu_us_per_line),
        base_text, ratio(m.cpu_us_per_line, base.cpu_us_per_line), cpu_target,
        paced ? yes_no(m.ok && m.cpu_us_per_line <= cpu_target_us) : "-");

    row("receive", "latency write to callback, median, " + what,
        fmt("%.1f us", m.latency.median_us), fmt("%.1f us (raw pty reader)", raw.latency.median_us),
        ratio(m.latency.median_us, raw.latency.median_us), "-", "-");
    row("receive", "latency write to callback, p99, " + what, fmt("%.1f us", m.latency.p99_us),
        fmt("%.1f us (raw pty reader)", raw.latency.p99_us),
        ratio(m.latency.p99_us, raw.latency.p99_us), "-", "-");
}

// The capture's cost: the same paced run at log_level 0 with the module
// recording every read and client message, against the run without it.
void capture_rows(const Pace &pace, const CaseResult &quiet, const Options &opt) {
    Options with_capture = opt;
    with_capture.capture = true;
    const CaseResult m = module_case(0, pace, with_capture);
    detail("log_level 0 + capture", pace, m);
    const std::string what = std::string("log_level 0 + capture, ") + pace.name;
    const bool all = m.written > 0 && m.delivered == m.written && m.malformed == 0;
    row("receive", "lines delivered to the callback, " + what, fmt("%zu lines", m.delivered),
        fmt("%zu lines written", m.written), "-", "100%", yes_no(all));
    row("receive", "CPU time per line (module process), " + what, fmt("%.2f us", m.cpu_us_per_line),
        fmt("%.2f us (log_level 0, no capture)", quiet.cpu_us_per_line),
        ratio(m.cpu_us_per_line, quiet.cpu_us_per_line), "-", "-");
}

}  // namespace

int run_receive(const Options &opt) {
    const size_t scale = opt.quick ? 5 : 1;
    const Pace paces[] = {
        {"1x line rate", 1.0, 2400 / scale},
        {"4x line rate", 4.0, 6000 / scale},
        {"unpaced", kUnpaced, 6000 / scale},
    };
    constexpr double kCpuTargetUs = 8.0;
    constexpr double kLoggingFactor = 4.0;
    for (const Pace &pace : paces) {
        CaseResult raw = raw_case(pace, false, opt);
        detail("raw pty reader", pace, raw);
        detail("bare 2-thread reader", pace, raw_case(pace, true, opt));
        CaseResult quiet = module_case(0, pace, opt);
        detail("log_level 0", pace, quiet);
        CaseResult logged = module_case(kDefaultLogLevel, pace, opt);
        detail("default log + file", pace, logged);
        const bool paced = pace.factor != kUnpaced;
        rows_for("log_level 0", pace, quiet, raw, paced, kCpuTargetUs, nullptr);
        rows_for("default log_level 4 + log file", pace, logged, raw, pace.factor == 1.0,
                 kCpuTargetUs * kLoggingFactor, &quiet);
        if (paced) capture_rows(pace, quiet, opt);
    }
    return 0;
}

}  // namespace e2e
