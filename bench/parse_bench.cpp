// Receive-path parsing against the fastest thing that could split the same
// bytes: cmd_Parse_from_buffer at log_level 0 (the hand-off onto Rx_head
// included) next to a memchr line splitter that hands each line to a
// function the compiler cannot see into. Both run over the same batches in
// the same process, so the ratio holds on any machine. Each row is printed
// as "ROW|parse|...", which tools/bench.sh gathers into the README's table.
//
// The batches are fixed-seed traffic from the simulator: typical lines and
// the table's last rows (the worst case for a row-by-row name lookup), one
// line per batch (a slow link's reads) and packed up to 512 bytes (a busy
// link's reads). The queued records are freed after every batch, inside
// the timed region: that is the dispatch thread's share, counted against
// the module rather than left out.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "atcmdprocess.h"
#include "core/log.h"
#include "core/queue.h"
#include "fuzz/fuzz_quiet.h"
#include "protocol/frame_parser.h"
#include "sim/traffic.h"

namespace {

constexpr size_t kLines = 4096;
constexpr uint32_t kSeed = 20261123;

struct Corpus {
    std::string name;
    std::vector<std::string> batches;
};

std::vector<Corpus> corpora() {
    const auto typical = atsim::typical_lines(kSeed, kLines);
    const auto last = atsim::last_row_lines(kSeed, kLines);
    return {
        {"typical, 1 line/batch", atsim::pack_batches(typical, 1)},
        {"typical, <=512 B/batch", atsim::pack_batches(typical, 512)},
        {"last rows, 1 line/batch", atsim::pack_batches(last, 1)},
        {"last rows, <=512 B/batch", atsim::pack_batches(last, 512)},
    };
}

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void count_lines(benchmark::State &state) {
    state.counters["lines/s"] = benchmark::Counter(static_cast<double>(state.iterations() * kLines),
                                                   benchmark::Counter::kIsRate);
}

void module_parse(benchmark::State &state, const Corpus *corpus) {
    log_level = 0;
    char text[ATCMD_TEXT_MAX];
    AtCmder_t scratch{};
    scratch.data = text;
    scratch.source = ATCMD_EP_MCU;
    for (auto _ : state) {
        const auto start = Clock::now();
        for (const std::string &batch : corpus->batches) {
            cmd_Parse_from_buffer(&scratch, batch.c_str());
            atcmder_queue_exit(&Rx_head, &g_rxqueue_mutex);
        }
        state.SetIterationTime(seconds_since(start));
    }
    count_lines(state);
}

// The splitter's consumer: out of line, and its argument escapes, so the
// compiler can neither drop the call nor merge the lines.
__attribute__((noinline)) void take_line(const char *line, size_t n) {
    benchmark::DoNotOptimize(line);
    benchmark::DoNotOptimize(n);
}

inline void split_lines(const std::string &batch) {
    const char *p = batch.data();
    const char *end = p + batch.size();
    while (const char *nl = static_cast<const char *>(memchr(p, '\n', end - p))) {
        take_line(p, static_cast<size_t>(nl + 1 - p));
        p = nl + 1;
    }
}

void memchr_split(benchmark::State &state, const Corpus *corpus) {
    for (auto _ : state) {
        const auto start = Clock::now();
        for (const std::string &batch : corpus->batches) split_lines(batch);
        state.SetIterationTime(seconds_since(start));
    }
    count_lines(state);
}

// Noise without a line end: every character is skipped on its own, and the
// cost must grow with the length, not with its square.
void skip_unsupported(benchmark::State &state) {
    const std::string noise(static_cast<size_t>(state.range(0)), 'x');
    log_level = 0;
    char text[ATCMD_TEXT_MAX];
    AtCmder_t scratch{};
    scratch.data = text;
    for (auto _ : state) cmd_Parse_from_buffer(&scratch, noise.c_str());
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

// Keeps the normal console output and remembers lines/s per benchmark name.
class RateReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs) {
            auto it = run.counters.find("lines/s");
            if (it != run.counters.end() && run.run_type == Run::RT_Iteration)
                rates[run.run_name.function_name] = it->second.value;
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> rates;
};

}  // namespace

// One pass of each over every corpus and nothing else, for an instruction
// count under callgrind (tools/bench.sh counts inside these two).
__attribute__((noinline)) void module_pass(const std::vector<Corpus> &all) {
    char text[ATCMD_TEXT_MAX];
    AtCmder_t scratch{};
    scratch.data = text;
    scratch.source = ATCMD_EP_MCU;
    for (const Corpus &c : all) {
        for (const std::string &batch : c.batches) {
            cmd_Parse_from_buffer(&scratch, batch.c_str());
            atcmder_queue_exit(&Rx_head, &g_rxqueue_mutex);
        }
    }
}

__attribute__((noinline)) void splitter_pass(const std::vector<Corpus> &all) {
    for (const Corpus &c : all)
        for (const std::string &batch : c.batches) split_lines(batch);
}

int main(int argc, char **argv) {
    atcmd_fuzz::silence_android_log();
    atcmd_fuzz::install_device();
    if (argc == 2 && strcmp(argv[1], "--one-pass") == 0) {
        log_level = 0;
        const std::vector<Corpus> all = corpora();
        module_pass(all);
        splitter_pass(all);
        printf("%zu lines\n", all.size() * kLines);
        return 0;
    }
    // Failures are the only log lines at level 0; none are expected, and
    // the terminal must not be part of the figure.
    fflush(stdout);
    const int saved_stdout = dup(STDOUT_FILENO);
    const int null_fd = open("/dev/null", O_WRONLY);
    if (saved_stdout < 0 || null_fd < 0 || dup2(null_fd, STDOUT_FILENO) < 0) return 1;
    close(null_fd);
    const std::vector<Corpus> all = corpora();
    for (const Corpus &c : all) {
        benchmark::RegisterBenchmark(("module: " + c.name).c_str(), module_parse, &c)->UseManualTime();
        benchmark::RegisterBenchmark(("splitter: " + c.name).c_str(), memchr_split, &c)->UseManualTime();
    }
    benchmark::RegisterBenchmark("skip unsupported text", skip_unsupported)->Arg(4096)->Arg(65536);

    benchmark::Initialize(&argc, argv);
    RateReporter reporter;
    reporter.SetOutputStream(&std::cerr);
    reporter.SetErrorStream(&std::cerr);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    fflush(stdout);
    dup2(saved_stdout, STDOUT_FILENO);
    close(saved_stdout);

    for (const Corpus &c : all) {
        const double module = reporter.rates["module: " + c.name];
        const double splitter = reporter.rates["splitter: " + c.name];
        if (module == 0 || splitter == 0) continue;  // filtered out
        const double ratio = module / splitter;
        printf("ROW|parse|%s, lines/s|%.2fM|%.1fM (memchr splitter)|%.3f|>= 0.150|%s\n",
               c.name.c_str(), module / 1e6, splitter / 1e6, ratio, ratio >= 0.15 ? "yes" : "no");
    }
    benchmark::Shutdown();
    return 0;
}
