// Transmit: a command handed to cmd_from_hidl, through the transmit queue
// and thread, to the moment its bytes are readable at the simulator.
//
// The baseline is a raw write of a line of the same length by the same
// process on the same pty node, read by the same simulator thread: the
// difference is what the module adds. A raw write made by a second thread
// woken for it (standard error only) shows what a bare thread hop costs on
// the machine at hand. Samples take turns (raw, raw after a hop, a set the
// phone awaits no reply to, a query it does) one millisecond apart, so the
// threads start each sample asleep, as a client's sporadic commands find them.
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/e2e/harness.h"
#include "harness/sysroot.h"
#include "sim/sim.h"

namespace e2e {
namespace {

enum Kind { kRaw, kHop, kSet, kQuery, kKinds };
const char *const kKindName[kKinds] = {"raw pty write", "raw write after a thread hop",
                                       "set, no reply awaited", "query, reply awaited"};

// The same raw write, made by a second thread that a condition variable
// wakes, as cmd_from_hidl wakes the transmit thread.
class WriterThread {
public:
    explicit WriterThread(int fd) : fd_(fd), thread_([this] { run(); }) {}
    ~WriterThread() {
        {
            std::lock_guard<std::mutex> lk(mu_);
            stop_ = true;
        }
        cv_.notify_one();
        thread_.join();
    }
    void write_line(const char *text, size_t len, Shared *sh) {
        {
            std::lock_guard<std::mutex> lk(mu_);
            text_.assign(text, len);
            sh_ = sh;
        }
        cv_.notify_one();
    }

private:
    void run() {
        for (;;) {
            std::string text;
            Shared *sh;
            {
                std::unique_lock<std::mutex> lk(mu_);
                cv_.wait(lk, [this] { return stop_ || !text_.empty(); });
                if (stop_) return;
                text.swap(text_);
                sh = sh_;
            }
            if (write(fd_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
                sh->failed.store(1);
        }
    }

    const int fd_;
    std::mutex mu_;
    std::condition_variable cv_;
    std::string text_;
    Shared *sh_ = nullptr;
    bool stop_ = false;
    std::thread thread_;
};

constexpr uint64_t kGapNs = 1000000;

// Sample k (1-based) is of kind (k - 1) % kKinds and carries k as its sequence
// number, which the simulator's side reads back to stamp it. The set row
// (+MICMODE) is past the rows the phone waits for, and the simulator is told
// not to answer it; the query is answered, and the next sample waits for the
// answer to reach the client.
std::string line_for(Kind kind, uint32_t k) {
    const std::string tail = "#" + std::to_string(k) + "&1\r\n";
    return kind == kQuery ? "AT+SN?" + tail : "AT+MICMODE=1" + tail;
}

void transmit_body(Shared *sh, atcmdprocess_device_t *dev, const std::string &node,
                   uint32_t iterations) {
    if (!wait_at_least(&sh->go, 1, 30000)) return;
    // Left open: the child is killed when the samples are done.
    int fd = open(node.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        sh->failed.store(1);
        return;
    }
    WriterThread writer(fd);
    uint32_t queries = 0;
    for (uint32_t k = 1; k <= iterations * kKinds; ++k) {
        const Kind kind = static_cast<Kind>((k - 1) % kKinds);
        char text[ATCMD_TEXT_MAX];
        snprintf(text, sizeof text, "%s", line_for(kind, k).c_str());
        const size_t len = strlen(text);
        AtCmder_t cmd;
        memset(&cmd, 0, sizeof cmd);
        cmd.type = kind == kQuery ? ATCMD_TYPE_QUERY : ATCMD_TYPE_SET;
        cmd.source = ATCMD_EP_CLIENT;
        cmd.dest = ATCMD_EP_MCU;
        cmd.flag = ATCMD_PLATFORM_VUART;
        cmd.cmd_id = kind == kQuery ? ATCMD_ID_SN : ATCMD_ID_MICMODE;
        cmd.seq_num = static_cast<uint16_t>(k);
        cmd.data = text;

        sh->start_ns[k] = now_ns();
        if (kind == kRaw) {
            if (write(fd, text, len) != static_cast<ssize_t>(len)) sh->failed.store(1);
        } else if (kind == kHop) {
            writer.write_line(text, len, sh);
        } else {
            dev->cmd_from_hidl(&cmd);
        }
        if (!wait_at_least(&sh->received, k, 3000)) {
            sh->failed.store(k);
            break;
        }
        if (kind == kQuery && !wait_at_least(&sh->replies, ++queries, 3000)) {
            sh->failed.store(k);
            break;
        }
        sleep_ns(kGapNs);
    }
}

// The simulator's reader thread: stamps each line the phone wrote with the
// time its read returned, by the counter behind '#'.
class Stamper {
public:
    explicit Stamper(Shared *sh) : sh_(sh) {}
    void on_bytes(const char *data, size_t n) {
        const uint64_t t = now_ns();
        if (!counting_.load(std::memory_order_acquire)) return;
        carry_.append(data, n);
        for (size_t nl; (nl = carry_.find('\n')) != std::string::npos; carry_.erase(0, nl + 1)) {
            size_t hash = carry_.rfind('#', nl);
            if (hash == std::string::npos) continue;
            unsigned long k = strtoul(carry_.c_str() + hash + 1, nullptr, 10);
            if (k == 0 || k >= kMaxSamples || sh_->end_ns[k] != 0) continue;
            sh_->end_ns[k] = t;
            sh_->received.fetch_add(1, std::memory_order_release);
            wake(&sh_->received);
        }
    }
    void start() { counting_.store(true, std::memory_order_release); }

private:
    Shared *sh_;
    std::atomic<bool> counting_{false};
    std::string carry_;
};

struct TxResult {
    bool ok = false;
    uint32_t failed_at = 0;
    Spread kinds[kKinds];
};

TxResult transmit_case(int log_level, const Options &opt) {
    const uint32_t iterations = opt.quick ? 200 : 1000;
    atcmd_harness::TempSysroot root;
    Shared *sh = map_shared();
    const std::string node = root.path("/dev/ttyACM0");
    pid_t pid = spawn_module_child(root.root(), sh, log_level, opt,
                                   [&node, iterations](Shared *s, atcmdprocess_device_t *dev) {
                                       transmit_body(s, dev, node, iterations);
                                   });
    TxResult r;
    atsim::Transcript transcript;
    Stamper stamper(sh);
    {
        atsim::Accessory acc(root.root(), transcript);
        acc.silence("+MICMODE");
        acc.set_read_observer([&stamper](const char *d, size_t n) { stamper.on_bytes(d, n); });
        if (wait_at_least(&sh->ready, 1, 10000) && sh->failed.load() == 0 && acc.plug_usb(0) &&
            wait_told(sh, ATCMD_ID_VER, 10000)) {
            sleep_ns(300000000);  // the query burst answered, nothing left waiting
            stamper.start();
            sh->go.store(1);
            wake(&sh->go);
            r.ok = wait_at_least(&sh->done, 1, 50000);
            r.failed_at = sh->failed.load();
        } else {
            fprintf(stderr, "transmit: the module did not come up with the accessory\n");
        }
        end_child(pid);
    }
    std::vector<double> us[kKinds];
    for (uint32_t k = 1; k <= iterations * kKinds; ++k) {
        if (sh->end_ns[k] == 0 || sh->start_ns[k] == 0) continue;
        const double latency_us = static_cast<double>(sh->end_ns[k] - sh->start_ns[k]) / 1e3;
        us[(k - 1) % kKinds].push_back(latency_us);
    }
    for (int kind = 0; kind < kKinds; ++kind) r.kinds[kind] = spread_of(us[kind]);
    unmap_shared(sh);
    return r;
}

}  // namespace

int run_transmit(const Options &opt) {
    constexpr double kMedianMarginUs = 30.0;
    const struct {
        const char *label;
        int level;
    } levels[] = {{"log_level 0", 0}, {"default log_level 4 + log file", kDefaultLogLevel}};
    for (const auto &lv : levels) {
        TxResult r = transmit_case(lv.level, opt);
        const Spread &raw = r.kinds[kRaw];
        for (int kind = 0; kind < kKinds; ++kind) {
            const Spread &s = r.kinds[kind];
            fprintf(stderr, "transmit %-30s %-22s: n %zu, median %.1f p99 %.1f max %.1f us%s\n",
                    lv.label, kKindName[kind], s.n, s.median_us, s.p99_us, s.max_us,
                    r.failed_at ? fmt(" (stopped at sample %u)", r.failed_at).c_str() : "");
        }
        for (int kind = kSet; kind < kKinds; ++kind) {
            const Spread &s = r.kinds[kind];
            const std::string what = std::string("cmd_from_hidl to bytes at the simulator, ") +
                                     kKindName[kind] + ", " + lv.label;
            const bool complete = r.ok && r.failed_at == 0 && s.n > 0 && raw.n > 0;
            row("transmit", what + ", median", fmt("%.1f us", s.median_us),
                fmt("%.1f us (raw pty write)", raw.median_us),
                fmt("%.2fx (%+.1f us)", s.median_us / raw.median_us, s.median_us - raw.median_us),
                fmt("<= raw + %.0f us", kMedianMarginUs),
                yes_no(complete && s.median_us - raw.median_us <= kMedianMarginUs));
            row("transmit", what + ", p99", fmt("%.1f us", s.p99_us),
                fmt("%.1f us (raw pty write)", raw.p99_us),
                fmt("%.2fx (%+.1f us)", s.p99_us / raw.p99_us, s.p99_us - raw.p99_us), "-", "-");
        }
    }
    return 0;
}

}  // namespace e2e
