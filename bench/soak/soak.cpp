// Soak and fault runs of the whole module: atcmdprocess.default.so loaded
// the way the platform's loader loads it, driven by the accessory simulator
// harder and longer than the scenarios drive it. Each item runs in a child
// process of its own (the service's threads live as long as the process, and
// close ends it) and prints its figures, one per line, as
//
//     ROW|soak|<measure>|<value>|-|-|<target>|<yes/no>
//
// for the bench script's table ("-" for a figure that only explains the
// others). The program exits 0 only when every target of the item was met.
//
//     atcmd_soak lines|garbage|plug_cycles|silent|stalled_daemon|link_reuse [options]
//
// The module logs every step to standard output, to the Android log
// (standard error on a host) and to its log file; the child sends the first
// two to /dev/null, and the rows go out on a copy of the original standard
// output.
#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SOAK_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SOAK_SANITIZED 1
#endif
#endif
#ifdef SOAK_SANITIZED
#include <sanitizer/allocator_interface.h>
#include <sanitizer/common_interface_defs.h>
#endif

#include "bench/rows.h"
#include "bench/soak/link_stress.h"
#include "fixtures/callback_sink.h"
#include "fixtures/child_process.h"
#include "harness/census.h"
#include "harness/sysroot.h"
#include "harness/wait_until.h"
#include "scenarios/module.h"
#include "sim/pacer.h"

namespace {

using namespace std::chrono_literals;
using atcmd_test::CallbackSink;
using atcmd_harness::wait_until;
using Clock = std::chrono::steady_clock;
using scenario::Module;
using scenario::Texts;
using scenario::count_in_file;

constexpr const char *kMac = "AA:BB:CC:DD:EE:FF";
constexpr const char *kLogFile = "/sdcard/tavrinola/.log/atcmdprocess";
constexpr const char *kDroppedBatch = "Vuart receive data length is too long";

struct Options {
    std::string item;
    double seconds = 60;  // lines
    double rate = 2000;   // lines
    int garbage = 10000;
    int cycles = 100;
    int commands = 20;
    // Lines lost in read batches that the module dropped as longer than 512
    // bytes (its rule, which a receive thread kept off the processor for
    // long enough meets) are explained: they do not fail the run, and the
    // rows and a note count them.
    bool allow_batch_drops = false;
    std::string keep_log;  // where to copy the module's log file, if anywhere
};

// ---- Reporting ----

FILE *g_report = stdout;  // a copy of the original standard output
bool g_all_met = true;    // of the rows this process printed

using bench_rows::fmt;

// Every row with a target counts: a missed one fails the run, so that the
// "met" column and the verdict always agree. A figure that may not fail the
// run is an info() row instead.
void row(const std::string &measure, const std::string &value, const std::string &target,
         bool met) {
    bench_rows::print_row(g_report, "soak", measure, value, "-", "-", target, met ? "yes" : "no");
    g_all_met = g_all_met && met;
}

void row(const std::string &measure, size_t value, size_t target) {
    row(measure, std::to_string(value), std::to_string(target), value == target);
}

void check(const std::string &measure, bool holds) {
    row(measure, holds ? "yes" : "no", "yes", holds);
}

// A figure without a target.
void info(const std::string &measure, const std::string &value) {
    bench_rows::print_row(g_report, "soak", measure, value, "-", "-", "-", "-");
}

void note(const std::string &text) {
    fprintf(g_report, "# %s\n", text.c_str());
    fflush(g_report);
}

// ---- What the process holds ----

// Heap in use: glibc's count over every arena, or the sanitizer allocator's
// own (glibc's then sees none of the program's allocations).
size_t heap_in_use() {
#ifdef SOAK_SANITIZED
    return __sanitizer_get_current_allocated_bytes();
#else
    return mallinfo2().uordblks;
#endif
}

// Thread ids of the process whose name (prctl) is name, of which the kernel
// keeps 15 characters ("wifiHBeat_threa").
std::vector<pid_t> tasks_named(const char *name) {
    const std::string want = std::string(name).substr(0, 15);
    std::vector<pid_t> out;
    DIR *d = opendir("/proc/self/task");
    if (d == nullptr) return out;
    while (const dirent *e = readdir(d)) {
        if (e->d_name[0] == '.') continue;
        std::string comm;
        std::getline(std::ifstream(std::string("/proc/self/task/") + e->d_name + "/comm"), comm);
        if (comm == want) out.push_back(static_cast<pid_t>(atol(e->d_name)));
    }
    closedir(d);
    return out;
}

// Where a thread is blocked: "<syscall number> <first argument>", or
// "running".
std::string task_syscall(pid_t tid) {
    std::ifstream in("/proc/self/task/" + std::to_string(tid) + "/syscall");
    std::string nr, arg0;
    in >> nr >> arg0;
    return nr == "running" ? nr : nr + " " + arg0;
}

double cpu_seconds() {
    rusage u;
    getrusage(RUSAGE_SELF, &u);
    return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
           static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

double seconds_since(Clock::time_point t) {
    return std::chrono::duration<double>(Clock::now() - t).count();
}

// The read batches the module dropped as longer than 512 bytes, and the
// numbered lines ("+HRM=<n>,40") in them, as its log file records them: the
// batch after "receive data is ", up to a blank and the next record. A batch
// that ends inside a line loses that line with it (the line's rest starts
// the next batch without its name), and so does one that starts inside one.
struct Dropped {
    size_t batches = 0;
    std::vector<uint32_t> numbers;
};

Dropped dropped_batches(const std::string &root) {
    std::ifstream in(root + kLogFile, std::ios::binary);
    const std::string log((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string head = std::string(kDroppedBatch) + ", skip it, receive data is ";
    Dropped d;
    for (size_t at = log.find(head); at != std::string::npos; at = log.find(head, at + 1)) {
        ++d.batches;
        const size_t from = at + head.size();
        size_t next = log.find("][tid:", from);
        next = next == std::string::npos ? log.size() : log.rfind('[', next);
        const std::string batch = log.substr(from, next - 1 - from);
        std::vector<uint32_t> whole;
        size_t first = std::string::npos;
        for (size_t n = batch.find("+HRM="); n != std::string::npos;
             n = batch.find("+HRM=", n + 1)) {
            char *stop = nullptr;
            const auto number = static_cast<uint32_t>(strtoul(batch.c_str() + n + 5, &stop, 10));
            if (batch.compare(static_cast<size_t>(stop - batch.c_str()), 5, ",40\r\n") != 0)
                continue;
            whole.push_back(number);
            if (first == std::string::npos) first = n;
        }
        if (whole.empty()) continue;
        if (first != 0) d.numbers.push_back(whole.front() - 1);
        d.numbers.insert(d.numbers.end(), whole.begin(), whole.end());
        if (batch.size() < 2 || batch.compare(batch.size() - 2, 2, "\r\n") != 0)
            d.numbers.push_back(whole.back() + 1);
    }
    return d;
}

// A global of the module, read as its own threads read it.
template <typename T>
T global(Module &m, const char *name) {
    return __atomic_load_n(m.sym<T>(name), __ATOMIC_RELAXED);
}

// ---- Numbered reports, counted in the client's callback ----

std::string hrm(uint32_t n) { return "+HRM=" + std::to_string(n) + ",40\r\n"; }

// Every "+HRM=<n>,40" line carries a running number n from 1. The callback
// runs on the dispatch thread and only counts, in storage allocated before
// the run, so that the heap figure sees the module alone. Other messages go
// to the callback sink as usual.
class Numbered {
public:
    static void start(Module &m, size_t count) {
        seen_.reset(new std::atomic<uint8_t>[count + 1]);
        for (size_t i = 0; i <= count; ++i) seen_[i].store(0);
        count_ = count;
        m.device()->set_notify_callback(m.device(), &callback);
    }

    // Waits until line n arrived, or nothing arrived for `quiet`.
    static bool wait_for(uint32_t n, std::chrono::milliseconds quiet) {
        uint64_t before = delivered_.load();
        auto progress = Clock::now();
        while (last_.load() < n) {
            std::this_thread::sleep_for(200us);
            if (delivered_.load() != before) {
                before = delivered_.load();
                progress = Clock::now();
            } else if (Clock::now() - progress > quiet) {
                return false;
            }
        }
        return true;
    }

    // Rows for lines 1 to sent: each reached the client once, in order. A
    // line lost in a batch that the module dropped as too long is told
    // apart from one lost anywhere else: with allow_batch_drops such lines
    // are the one loss that passes, and the rows' targets say so.
    static void report(const std::string &item, size_t sent, const Dropped &dropped,
                       bool allow_batch_drops) {
        std::vector<bool> in_dropped(sent + 1);
        for (uint32_t n : dropped.numbers)
            if (n <= sent) in_dropped[n] = true;
        size_t once = 0, lost = 0, lost_in_dropped = 0, repeated = 0, first_other = 0;
        for (size_t i = 1; i <= std::min(sent, count_); ++i) {
            const uint8_t s = seen_[i].load();
            once += s == 1;
            repeated += s > 1;
            lost += s == 0;
            lost_in_dropped += s == 0 && in_dropped[i];
            if (s == 0 && !in_dropped[i] && first_other == 0) first_other = i;
        }
        // Each line arrived once, or was lost in a dropped batch.
        const bool others_once = once + lost_in_dropped == sent;
        const size_t backwards = backwards_.load();
        if (allow_batch_drops && lost_in_dropped > 0) {
            row(item + ": lines delivered exactly once", fmt("%zu of %zu", once, sent),
                fmt("all but the %zu line%s in dropped batches", lost_in_dropped,
                    lost_in_dropped == 1 ? "" : "s"),
                others_once);
        } else {
            row(item + ": lines delivered exactly once", fmt("%zu of %zu", once, sent), "all",
                once == sent);
        }
        if (allow_batch_drops)
            info(item + ": read batches dropped as over 512 bytes (allowed)",
                 std::to_string(dropped.batches));
        else
            row(item + ": read batches dropped as over 512 bytes", dropped.batches, 0);
        info(item + ": lines lost in those batches", std::to_string(lost_in_dropped));
        row(item + ": lines lost otherwise", lost - lost_in_dropped, 0);
        row(item + ": lines delivered twice or more", repeated, 0);
        row(item + ": lines out of order", backwards, 0);
        row(item + ": reports with a wrong number or value", foreign_.load(), 0);
        if (dropped.batches > 0) {
            std::string rest;
            if (others_once && backwards == 0)
                rest = "every other line arrived once, in order";
            else
                rest = fmt("of the other lines, lost: %zu, arrived more than once: %zu, out of "
                           "order: %zu",
                           lost - lost_in_dropped, repeated, backwards);
            note(fmt("%s: the receive rule dropped %zu read batch%s over 512 bytes, and %zu "
                     "line%s with %s%s; %s",
                     item.c_str(), dropped.batches, dropped.batches == 1 ? "" : "es",
                     lost_in_dropped, lost_in_dropped == 1 ? "" : "s",
                     dropped.batches == 1 ? "it" : "them",
                     allow_batch_drops ? "" : " (not allowed in a strict run)", rest.c_str()));
        }
        if (first_other > 0)
            note(item + ": the first line lost outside those is number " +
                 std::to_string(first_other));
    }

private:
    static void callback(AT_CMD_CbMsg_t *msg) {
        if (msg->cmd_id != ATCMD_ID_HRM || msg->data == nullptr) {
            CallbackSink::callback(msg);
            return;
        }
        int32_t v[2];
        memcpy(v, msg->data, sizeof v);
        const uint32_t n = static_cast<uint32_t>(v[0]);
        if (v[1] != 40 || n == 0 || n > count_) {
            foreign_.fetch_add(1);
        } else {
            seen_[n].fetch_add(1);
            if (n <= last_.load()) backwards_.fetch_add(1);
            last_.store(n);
        }
        delivered_.fetch_add(1);
    }

    static inline std::unique_ptr<std::atomic<uint8_t>[]> seen_;
    static inline size_t count_ = 0;
    static inline std::atomic<uint32_t> last_{0};
    static inline std::atomic<uint64_t> delivered_{0}, backwards_{0}, foreign_{0};
};

// ---- The items, each in its child ----

struct Child {
    Module &m;
    const std::string &root;
    atsim::Transcript &transcript;
};

// The accessory plugged in over USB, its query burst sent and the last
// answer parsed.
bool plug_and_settle(Child &c, atsim::Accessory &acc, const std::string &item) {
    bool up = acc.plug_usb(0) && acc.wait_for_count(scenario::query_burst(1, kMac).size(), 10s) &&
              c.m.wait_told("+VER/11:'1.0.2'", 10s);
    if (!up) check(item + ": accessory plugged in and answered", false);
    return up;
}

// 1. Numbered lines at a steady rate, one write each, for a long time.
void item_lines(const Options &o, Child &c) {
    const auto count = static_cast<uint32_t>(o.rate * o.seconds);
    Numbered::start(c.m, count);
    atsim::Accessory acc(c.root, c.transcript);
    if (!plug_and_settle(c, acc, "lines")) return;
    c.transcript.set_keep(false);  // the run's own lines would grow it by megabytes

    std::this_thread::sleep_for(1s);  // start-up traffic done
    const size_t heap0 = heap_in_use();
    const int fds0 = atcmd_harness::open_fd_count();
    const double cpu0 = cpu_seconds();
    const auto t0 = Clock::now();
    // Behind after a delay of its own, the accessory catches up at twice its
    // rate: the backlog arrives faster, but not all at once.
    atsim::Pacer pacer(o.rate, 2 * o.rate);
    size_t failed = 0;
    for (uint32_t n = 1; n <= count; ++n) {
        pacer.wait();
        failed += !acc.send(hrm(n));
    }
    const double sent_rate = pacer.achieved_rate();
    const double run_s = seconds_since(t0);
    const bool arrived = Numbered::wait_for(count, 10s);
    const double drain_s = seconds_since(t0) - run_s;
    const double cpu = cpu_seconds() - cpu0;
    std::this_thread::sleep_for(1s);  // settle: queues empty, nothing in flight
    const long heap_delta = static_cast<long>(heap_in_use()) - static_cast<long>(heap0);
    const int fd_delta = atcmd_harness::open_fd_count() - fds0;

    // The accessory's own delays near the end are not quite made up by then.
    row("lines: rate sent, lines/s", fmt("%.1f", sent_rate), fmt(">= %.0f", o.rate * 0.97),
        sent_rate >= o.rate * 0.97);
    row("lines: writes that failed", failed, 0);
    Numbered::report("lines", count, dropped_batches(c.root), o.allow_batch_drops);
    // A chunk of the C library's or a thread cache may come or go.
    row("lines: heap in use after vs before, bytes", fmt("%+ld", heap_delta), "within 16384",
        labs(heap_delta) <= 16384);
    row("lines: open descriptors after vs before", fmt("%+d", fd_delta), "+0", fd_delta == 0);
    info("lines: run, s", fmt("%.1f, then %.2f until the last line arrived%s", run_s, drain_s,
                              arrived ? "" : " (gave up)"));
    info("lines: worst lateness of a write, ms",
         fmt("%.1f", static_cast<double>(pacer.worst_lateness().count()) / 1000));
    info("lines: CPU of the process, % of one core", fmt("%.0f", 100 * cpu / (run_s + drain_s)));
}

// 2. Garbage around valid lines: each kind a whole line that ends in "\r\n"
// before the next line starts.
class Garbage {
public:
    explicit Garbage(uint32_t seed) : rng_(seed) {}

    std::string line() {
        switch (pick(3)) {
        case 0: return random_line();
        case 1: return unknown_line();
        default: return overlong_line();
        }
    }
    // Random bytes. Not NUL: the parser takes a batch as a C string, so a NUL
    // hides the rest of its batch. Not '\n', which would end the line early.
    // Not '#': behind a name it opens a sequence number that only '&' ends,
    // so the parser would run on through "\r\n" into the next line of the
    // batch, as the line rules allow.
    std::string random_line() {
        std::uniform_int_distribution<int> len(1, 100), byte(1, 255);
        std::string s;
        for (int i = len(rng_); i > 0; --i) {
            const int b = byte(rng_);
            s += static_cast<char>(b == '\n' || b == '#' ? 'x' : b);
        }
        return s + "\r\n";
    }
    // Names no row has, nor begins (a response name is looked up by prefix:
    // "+HR" would be "+HRM").
    std::string unknown_line() {
        static const char *const kLines[] = {
            "+NOPE=1,2\r\n",  "+XYZ#12&1\r\n",  "AT+FOO?#9&1\r\n", "AT+BAR=3\r\n", "+HRMX=7,40\r\n",
            "++HRM=7,40\r\n", "+ HRM=7,40\r\n", "+OKAY\r\n",       "AT+HRMQ?\r\n", "+QQ=1\r\n",
        };
        return kLines[pick(sizeof kLines / sizeof kLines[0])];
    }
    // Longer than a stored line (159 characters), which the parser cuts.
    std::string overlong_line() {
        std::uniform_int_distribution<int> len(160, 238), printable(0x21, 0x7e);
        std::string s = pick(2) == 0 ? "+DTR=" : "";
        for (size_t n = static_cast<size_t>(len(rng_)); s.size() < n;) {
            const char ch = static_cast<char>(printable(rng_));
            s += ch == '#' ? '-' : ch;
        }
        return s + "\r\n";
    }
    size_t pick(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng_); }

private:
    std::mt19937 rng_;
};

// Two to four pieces, back to back: the module may read them apart or
// together.
bool send_in_pieces(atsim::Accessory &acc, const std::string &bytes, Garbage &g) {
    const size_t piece = std::max<size_t>(1, bytes.size() / (2 + g.pick(3)));
    for (size_t at = 0; at < bytes.size(); at += piece)
        if (!acc.send(bytes.substr(at, piece))) return false;
    return true;
}

void item_garbage(const Options &o, Child &c) {
    Numbered::start(c.m, static_cast<size_t>(o.garbage));  // a valid line per garbage line at most
    atsim::Accessory acc(c.root, c.transcript);
    if (!plug_and_settle(c, acc, "garbage")) return;
    c.transcript.set_keep(false);
    CallbackSink::clear();

    // Groups of one to three garbage lines and a valid line, each line
    // written whole or in pieces, or the group in one write (one parser
    // call). The next group waits until the valid line has reached the
    // client, so one group's bytes are all that the module can gather into
    // one read batch: kept within 512 bytes, beyond which the module drops a
    // batch whole by design.
    constexpr size_t kGroupBytes = 470;
    Garbage g(20240611);
    int garbage = 0;
    uint32_t valid = 0;
    size_t writes = 0, failed = 0, late = 0;
    const auto t0 = Clock::now();
    while (garbage < o.garbage && late < 20) {
        std::vector<std::string> group;
        size_t bytes = 0;
        for (size_t k = 1 + g.pick(3); k > 0; --k, ++garbage) {
            std::string junk = g.line();
            if (bytes + junk.size() > kGroupBytes) junk = g.unknown_line();
            bytes += junk.size();
            group.push_back(junk);
        }
        group.push_back(hrm(++valid));
        const size_t how = g.pick(3);
        if (how == 2) {
            std::string all;
            for (const std::string &l : group) all += l;
            group.assign(1, all);
        }
        for (const std::string &l : group) {
            ++writes;
            failed += !(how == 1 && g.pick(2) == 0 ? send_in_pieces(acc, l, g) : acc.send(l));
        }
        late += !Numbered::wait_for(valid, 1s);
    }
    const double run_s = seconds_since(t0);
    std::this_thread::sleep_for(500ms);

    row("garbage: garbage lines sent", fmt("%d", garbage), fmt(">= %d", o.garbage),
        garbage >= o.garbage);
    row("garbage: writes that failed", failed, 0);
    Numbered::report("garbage", valid, dropped_batches(c.root), o.allow_batch_drops);
    info("garbage: valid lines, lines or groups written", fmt("%u, %zu", valid, writes));
    info("garbage: run, s", fmt("%.1f", run_s));
    // What the garbage made of the module by itself: a random line that
    // begins a row's name (a lone "+" begins "+REBOOT") is parsed as that row.
    const Texts other = CallbackSink::described();
    std::string some;
    for (size_t i = 0; i < other.size() && i < 5; ++i) some += (i ? " " : ": ") + other[i];
    info("garbage: other messages to the client", fmt("%zu%s", other.size(), some.c_str()));
}

// 3. Plug and unplug, over and over.
void item_plug_cycles(const Options &o, Child &c) {
    auto usb_events = [](int connected) {
        int n = 0;
        for (const atcmd_test::CapturedMsg &m : CallbackSink::messages())
            n += m.cmd_id == ATCMD_ID_USBSTATE && m.seq_num == 0 && m.i32[0] == connected;
        return n;
    };
    atsim::Accessory acc(c.root, c.transcript);
    // Its answer to "+USBSTATE?" would be a message of the same row and
    // sequence number as the plug event.
    acc.silence("+USBSTATE");
    std::this_thread::sleep_for(300ms);  // start-up done
    const int fds0 = atcmd_harness::open_fd_count(), threads0 = atcmd_harness::thread_count();
    const auto t0 = Clock::now();

    int plugged_min = 1 << 30, plugged_max = 0, unplugged_min = 1 << 30, unplugged_max = 0;
    double worst_gone_ms = 0;
    int done = 0;
    while (done < o.cycles) {
        const int cycle = done + 1;
        const int plugged0 = usb_events(1), unplugged0 = usb_events(0);
        if (!acc.plug_usb(0)) break;
        // The query burst answered and its last answer parsed: the receive
        // thread waits in a read when the cable goes. One that has just read
        // finds the link closed instead and ends without a signal (its "not
        // found" ending), a race the module allows.
        const bool up = wait_until([&] { return usb_events(1) > plugged0; }) && wait_until([&] {
                            const Texts t = CallbackSink::described();
                            return std::count(t.begin(), t.end(), "+VER/11:'1.0.2'") >= cycle;
                        });
        std::this_thread::sleep_for(20ms);
        const auto pulled = Clock::now();
        acc.unplug();
        const bool gone = wait_until([] { return tasks_named("VuartRx_thread").empty(); });
        worst_gone_ms = std::max(worst_gone_ms, 1000 * seconds_since(pulled));
        // Every event of this cycle in before the next plug: a late one would
        // count for the next cycle (and a SIGUSR2 after the next SIGUSR1
        // would unplug it again).
        std::this_thread::sleep_for(200ms);
        const int plugged = usb_events(1) - plugged0, unplugged = usb_events(0) - unplugged0;
        plugged_min = std::min(plugged_min, plugged);
        plugged_max = std::max(plugged_max, plugged);
        unplugged_min = std::min(unplugged_min, unplugged);
        unplugged_max = std::max(unplugged_max, unplugged);
        if (!up || !gone) {
            note(fmt("cycle %d: link up %s, receive thread gone %s", cycle, up ? "yes" : "no",
                     gone ? "yes" : "no"));
            break;
        }
        done = cycle;
    }
    const double run_s = seconds_since(t0);
    std::this_thread::sleep_for(1500ms);  // time-outs of the last "+USBSTATE?" on their way
    const int fd_delta = atcmd_harness::open_fd_count() - fds0;
    const int thread_delta = atcmd_harness::thread_count() - threads0;

    row("plug_cycles: cycles completed", done, o.cycles);
    row("plug_cycles: plugged events per cycle", fmt("%d..%d", plugged_min, plugged_max), "1",
        plugged_min == 1 && plugged_max == 1);
    // Two by design: one when the node goes, one when the receive thread,
    // its read failed, ends through its "disappeared" ending 300 ms later.
    row("plug_cycles: unplugged events per cycle", fmt("%d..%d", unplugged_min, unplugged_max), "2",
        unplugged_min == 2 && unplugged_max == 2);
    row("plug_cycles: receive thread gone after unplug, worst ms", fmt("%.0f", worst_gone_ms),
        "<= 500", worst_gone_ms <= 500);
    row("plug_cycles: descriptors left", fmt("%+d", fd_delta), "+0", fd_delta == 0);
    row("plug_cycles: threads left", fmt("%+d", thread_delta), "+0", thread_delta == 0);
    info("plug_cycles: run, s", fmt("%.1f", run_s));
}

// 4. An accessory that answers nothing.
void item_silent(const Options &o, Child &c) {
    atsim::Accessory acc(c.root, c.transcript);
    if (!plug_and_settle(c, acc, "silent")) return;
    std::this_thread::sleep_for(300ms);
    acc.set_auto_answer(false);
    acc.clear_received();
    CallbackSink::clear();

    // Sequence numbers that no query of the module's own uses.
    const int first = 100, n = o.commands;
    auto line = [](int seq) { return "AT+SN?#" + std::to_string(seq) + "&1\r\n"; };
    auto timeouts = [] {
        size_t k = 0;
        for (const atcmd_test::CapturedMsg &m : CallbackSink::messages())
            k += m.cmd_id == ATCMD_ID_ERROR && m.i32[0] == ATCMD_ERR_REPLY_TIMEOUT;
        return k;
    };
    const auto t0 = Clock::now();
    for (int seq = first; seq < first + n; ++seq) {
        std::string text = line(seq);
        AtCmder_t rec = {};
        rec.type = ATCMD_TYPE_QUERY;
        rec.dest = ATCMD_EP_MCU;
        rec.flag = ATCMD_PLATFORM_VUART;
        rec.cmd_id = ATCMD_ID_SN;
        rec.seq_num = static_cast<uint16_t>(seq);
        rec.data = text.data();
        c.m.device()->cmd_from_hidl(&rec);
    }
    wait_until([&] { return timeouts() >= static_cast<size_t>(n); }, 30000);
    const double reported_s = seconds_since(t0);
    std::this_thread::sleep_for(1s);  // anything more would have come by now

    const Texts got = acc.received(), told = c.m.told();
    size_t writes = 0, thrice = 0, once = 0;
    for (int seq = first; seq < first + n; ++seq) {
        const auto k = static_cast<size_t>(std::count(got.begin(), got.end(), line(seq)));
        writes += k;
        thrice += k == 3;
        once += std::count(told.begin(), told.end(), fmt("+ERROR/%d:-110", seq)) == 1;
    }
    row("silent: writes at the accessory", got.size(), 3 * static_cast<size_t>(n));
    row("silent: commands written exactly 3 times", thrice, static_cast<size_t>(n));
    row("silent: other lines at the accessory", got.size() - writes, 0);
    row("silent: time-out reports (24, -110)", timeouts(), static_cast<size_t>(n));
    row("silent: commands reported exactly once", once, static_cast<size_t>(n));
    info("silent: last report after the sends, s", fmt("%.2f", reported_s));
}

// 5. A daemon that stops reading what the module sends it.
void item_stalled_daemon(const Options &, Child &c) {
    atsim::HidDaemon daemon(c.root, c.m.properties(), c.transcript);
    static atcmdprocess_device_t *s_dev;
    s_dev = c.m.device();
    daemon.on_status([](const std::string &text) { s_dev->hiddemon_stchange(text.c_str()); });
    // Up, and the query burst, which nobody answers over WiFi, timed out.
    if (s_dev->wifi_init("192.168.1.7") != 0 || !c.m.wait_told("+WIFICON/0:1", 10s) ||
        !c.m.wait_told("+ERROR/11:-110", 10s))
        return check("stalled_daemon: WiFi up", false);
    std::this_thread::sleep_for(500ms);
    check("stalled_daemon: WiFi receive and heartbeat threads up",
          tasks_named("wifiRx_thread").size() == 1 && tasks_named("wifiHBeat_thread").size() == 1);

    daemon.pause_reading(true);
    std::this_thread::sleep_for(200ms);
    const int fifo = open((c.root + "/dev/fifo_tx").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    const int capacity = fcntl(fifo, F_GETPIPE_SZ);
    int unread = -1;
    ioctl(fifo, FIONREAD, &unread);
    if (fifo < 0 || capacity <= 0 || unread != 0) {
        note(fmt("fifo_tx: descriptor %d, capacity %d, %d bytes unread", fifo, capacity, unread));
        return check("stalled_daemon: the FIFO measurable", false);
    }

    // Reports await no reply: nothing but these lines is written.
    constexpr size_t kLineBytes = 100;
    const size_t lines = 2 * static_cast<size_t>(capacity) / kLineBytes + 100;
    for (size_t i = 0; i < lines; ++i) {
        std::string text = "+DTR=" + std::string(kLineBytes - 13, 'x') + fmt("%06zu", i) + "\r\n";
        AtCmder_t rec = {};
        rec.type = ATCMD_TYPE_RESPONSE;
        rec.dest = ATCMD_EP_MCU;
        rec.cmd_id = ATCMD_ID_DTR;
        rec.data = text.data();
        s_dev->cmd_from_hidl(&rec);
    }
    // The FIFO full, the transmit thread waits for room a second, gives the
    // link up and drops the rest without waiting: every line is either in
    // the FIFO or counted as dropped, and none is left in the queue.
    const std::string log = c.root + kLogFile;
    const size_t line = kLineBytes;
    int filled = -1;
    size_t dropped = 0;
    const bool drained = wait_until(
        [&] {
            ioctl(fifo, FIONREAD, &filled);
            dropped = count_in_file(log, "takes nothing, record dropped");
            return filled > 0 && dropped + static_cast<size_t>(filled) / line >= lines;
        },
        30000);
    // Whole lines per page (a write of up to a page goes in whole or not at
    // all), and poll calls a pipe full once all its pages are in use, even
    // when the last one has room: the wait may start a page early.
    const long page = sysconf(_SC_PAGESIZE);
    const long whole_lines = (capacity / page - 1) * (page / static_cast<long>(line)) *
                             static_cast<long>(line);
    row("stalled_daemon: bytes in the FIFO when it stalled", fmt("%d of %d", filled, capacity),
        fmt(">= %ld", whole_lines), filled >= whole_lines && filled <= capacity);
    row("stalled_daemon: lines in the FIFO + lines dropped", 
        fmt("%zu + %zu", static_cast<size_t>(filled) / line, dropped), fmt("%zu", lines),
        drained && static_cast<size_t>(filled) / line + dropped == lines);
    const std::vector<pid_t> tx = tasks_named("Tx_thread");
    check("stalled_daemon: transmit thread not blocked in a write",
          tx.size() == 1 && task_syscall(tx[0]).rfind(fmt("%ld ", static_cast<long>(SYS_write)), 0) != 0);

    // Tear-down as the client does it, then the accessory on USB.
    const auto t0 = Clock::now();
    s_dev->wifi_stchange(0);
    info("stalled_daemon: WiFi stop took, s", fmt("%.2f", seconds_since(t0)));
    check("stalled_daemon: WiFi threads ended by WiFi stop", wait_until([] {
              return tasks_named("wifiRx_thread").empty() &&
                     tasks_named("wifiHBeat_thread").empty();
          }));
    check("stalled_daemon: their handles cleared",
          global<pthread_t>(c.m, "g_wifiRx_thread") == 0 &&
              global<pthread_t>(c.m, "g_wifiHBeat_thread") == 0);
    atsim::Accessory acc(c.root, c.transcript);
    if (!acc.plug_usb(0) || !c.m.wait_told("+USBSTATE/0:1,3", 10s))
        return check("stalled_daemon: USB accessory plugged after the stop", false);
    std::string after = "+DTR=AFTER\r\n";
    AtCmder_t rec = {};
    rec.type = ATCMD_TYPE_RESPONSE;
    rec.dest = ATCMD_EP_MCU;
    rec.cmd_id = ATCMD_ID_DTR;
    rec.data = after.data();
    const auto sent = Clock::now();
    s_dev->cmd_from_hidl(&rec);
    const bool arrived =
        acc.wait_for_line([&](const std::string &l) { return l == after; }, 5s);
    const double after_ms = 1000 * seconds_since(sent);
    row("stalled_daemon: a USB frame after the stop, ms", arrived ? fmt("%.0f", after_ms) : "never",
        "<= 250", arrived && after_ms <= 250);
    daemon.pause_reading(false);
    std::this_thread::sleep_for(500ms);
    size_t late = 0;
    for (const std::string &l : acc.received()) late += l.rfind("+DTR=x", 0) == 0;
    row("stalled_daemon: backlog lines reaching USB late", late, 0);
    if (!g_all_met) return;
    note("stalled_daemon: closing; the process must end by SIGKILL");
    s_dev->common.close(&s_dev->common);
    check("stalled_daemon: the process ended by close", false);
}

// 6. Links torn down under heavy transmit while the process opens files as
// fast as it can: no byte meant for the accessory may land in them.
void item_link_reuse(const Options &o, Child &c) {
    const struct {
        const char *name;
        scenario::StressedLink link;
        int cycles;
    } links[] = {{"usb", scenario::StressedLink::kUsb, 3 * o.cycles},
                 {"wifi", scenario::StressedLink::kWifi, std::max(1, o.cycles / 10)},
                 {"uart", scenario::StressedLink::kUart, std::max(1, o.cycles / 20)}};
    for (const auto &l : links) {
        const std::string name = std::string("link_reuse: ") + l.name;
        const std::string scratch = c.root + "/scratch-" + l.name;
        mkdir(scratch.c_str(), 0700);
        const auto t0 = Clock::now();
        const scenario::StressFigures f =
            scenario::stress_link(c.m, c.root, c.transcript, l.link, l.cycles, scratch);
        if (!f.failure.empty()) note(name + ": stopped at: " + f.failure);
        row(name + " cycles", static_cast<size_t>(f.cycles), static_cast<size_t>(l.cycles));
        info(name + " lines sent / delivered", fmt("%zu / %zu", f.sent, f.delivered));
        info(name + " files opened by the host", fmt("%zu", f.host_opens));
        row(name + " bytes in the host's files", f.misdirected, 0);
        info(name + " run, s", fmt("%.1f", seconds_since(t0)));
    }
}

// ---- Running an item ----

struct Item {
    const char *name;
    void (*run)(const Options &, Child &);
    bool ends_by_close;
    double (*budget_s)(const Options &);  // for the child, with room for slow builds
};

const Item kItems[] = {
    {"lines", item_lines, false, [](const Options &o) { return o.seconds * 2 + 60; }},
    {"garbage", item_garbage, false, [](const Options &o) { return o.garbage / 100.0 + 120; }},
    {"plug_cycles", item_plug_cycles, false, [](const Options &o) { return o.cycles * 3.0 + 60; }},
    {"silent", item_silent, false, [](const Options &o) { return o.commands * 0.5 + 60; }},
    {"stalled_daemon", item_stalled_daemon, true, [](const Options &) { return 90.0; }},
    {"link_reuse", item_link_reuse, false, [](const Options &o) { return o.cycles * 1.5 + 90; }},
};

// The module's own output would drown the rows, and cost the run; a
// sanitizer's report still goes to the original standard error.
void silence_module_output() {
#ifdef SOAK_SANITIZED
    const int report = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    __sanitizer_set_report_fd(reinterpret_cast<void *>(static_cast<intptr_t>(report)));
#endif
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
}

bool run(const Item &item, const Options &o) {
    atcmd_harness::TempSysroot root;
    atsim::Transcript transcript;
    const std::string name = item.name;
    const auto t0 = Clock::now();
    const int status = atcmd_test::run_in_child(
        [&] {
            silence_module_output();
            Module m(root.root());
            m.set_prop("net.bluetooth.macaddr", kMac);
            if (m.open() == nullptr) {
                check(name + ": module loaded and opened", false);
            } else {
                Child c{m, root.root(), transcript};
                item.run(o, c);
            }
            fflush(nullptr);
            _exit(g_all_met ? 0 : 1);
        },
        static_cast<int>(item.budget_s(o) * 1000));
    const double took = seconds_since(t0);
    info(name + ": whole item, s", fmt("%.1f", took));
    if (!o.keep_log.empty()) {
        std::ifstream from(root.path(kLogFile), std::ios::binary);
        std::ofstream(o.keep_log, std::ios::binary | std::ios::trunc) << from.rdbuf();
    }
    const std::string ended = WIFSIGNALED(status) ? fmt("signal %d", WTERMSIG(status))
                                                  : fmt("exit %d", WEXITSTATUS(status));
    if (item.ends_by_close) {
        // A child killed for running out of time ends by SIGKILL too.
        const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
        row(name + ": close ended the process", ended, "signal 9",
            killed && took < item.budget_s(o));
    } else if (!WIFEXITED(status) || WEXITSTATUS(status) > 1) {
        row(name + ": the child ended", ended, "exit 0", false);  // a crash, a sanitizer's exit
    } else {
        g_all_met = g_all_met && WEXITSTATUS(status) == 0;
    }
    return g_all_met;
}

void usage() {
    fprintf(stderr,
            "usage: atcmd_soak ITEM [--seconds S] [--rate R] [--garbage N] [--cycles N]\n"
            "                       [--commands N] [--allow-batch-drops] [--log FILE]\n"
            "  ITEM          lines, garbage, plug_cycles, silent, stalled_daemon\n"
            "                or link_reuse\n"
            "  --seconds S   how long 'lines' sends (default 60, or $ATCMD_SOAK_SECONDS)\n"
            "  --rate R      lines per second of 'lines' (default 2000, or $ATCMD_SOAK_RATE)\n"
            "  --garbage N   garbage lines of 'garbage' (default 10000)\n"
            "  --cycles N    plug/unplug cycles (default 100, or $ATCMD_SOAK_CYCLES)\n"
            "  --commands N  unanswered commands of 'silent' (default 20)\n"
            "  --allow-batch-drops  lines lost in read batches the module dropped as over\n"
            "                512 bytes are counted but do not fail the run\n"
            "  --log FILE    keep the module's log file there\n");
}

bool parse(int argc, char **argv, Options *o) {
    // The same from the environment, for the CTest entries of slower builds.
    if (const char *s = getenv("ATCMD_SOAK_SECONDS")) o->seconds = atof(s);
    if (const char *s = getenv("ATCMD_SOAK_RATE")) o->rate = atof(s);
    if (const char *s = getenv("ATCMD_SOAK_CYCLES")) o->cycles = atoi(s);
    if (argc < 2) return false;
    o->item = argv[1];
    for (int i = 2; i < argc; ++i) {
        const std::string opt = argv[i];
        if (opt == "--allow-batch-drops") {
            o->allow_batch_drops = true;
            continue;
        }
        if (i + 1 == argc) return false;
        const char *value = argv[++i];
        if (opt == "--log")
            o->keep_log = value;
        else if (opt == "--seconds")
            o->seconds = atof(value);
        else if (opt == "--rate")
            o->rate = atof(value);
        else if (opt == "--garbage")
            o->garbage = atoi(value);
        else if (opt == "--cycles")
            o->cycles = atoi(value);
        else if (opt == "--commands")
            o->commands = atoi(value);
        else
            return false;
    }
    return o->seconds > 0 && o->rate > 0 && o->garbage > 0 && o->cycles > 0 && o->commands > 0;
}

}  // namespace

int main(int argc, char **argv) {
    Options o;
    if (!parse(argc, argv, &o)) {
        usage();
        return 2;
    }
    g_report = fdopen(dup(STDOUT_FILENO), "w");
    for (const Item &item : kItems)
        if (o.item == item.name) return run(item, o) ? 0 : 1;
    usage();
    return 2;
}
