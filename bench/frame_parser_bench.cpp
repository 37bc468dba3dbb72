// Throughput of the receive path: cmd_Parse_from_buffer on typical batches,
// including the hand-off onto Rx_head and freeing what was queued. Run with
// log_level 0 (only failures logged) and 4 (the shipped default, every line
// logged). Standard output is sent to /dev/null while measuring and the
// Android log lines are formatted but dropped, so the figures show the cost
// of producing the log, not of the terminal.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <string>

#include "atcmdprocess.h"
#include "fuzz/fuzz_quiet.h"

namespace {

// What the accessory sends in a busy second: replies to the phone's queries
// and its unsolicited reports.
const char *const kBatch[] = {
    "+VER=MCU:1.0.2,BT:2.1,WIFI:3.3,AML:V20231105_user,TP:7,CAM:8,BOOT:9#11&1\r\n",
    "+BAT=85,1,3900,250,1,0#9&1\r\n",
    "+BATCG=85,1,3900,250,1,0\r\n",
    "+HALLCG=1,0,0\r\n",
    "+HRM=35,40\r\n",
    "+SN=KV5816A00123#13&1\r\n",
    "+STATE=ACTIVE#10&1\r\n",
    "+OK#7&1\r\n",
};

class StdoutToNull {
public:
    StdoutToNull() : saved_(dup(STDOUT_FILENO)) {
        fflush(stdout);
        int null_fd = open("/dev/null", O_WRONLY);
        dup2(null_fd, STDOUT_FILENO);
        close(null_fd);
    }
    ~StdoutToNull() {
        fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }

private:
    int saved_;
};

void BM_ParseBatch(benchmark::State &state) {
    atcmd_fuzz::silence_android_log();
    atcmd_fuzz::install_device();
    std::string batch;
    for (const char *line : kBatch) batch += line;
    const int64_t lines = sizeof kBatch / sizeof kBatch[0];

    const int32_t saved_level = log_level;
    log_level = static_cast<int32_t>(state.range(0));
    char text[ATCMD_TEXT_MAX];
    AtCmder_t scratch{};
    scratch.data = text;
    scratch.source = ATCMD_EP_MCU;
    {
        StdoutToNull quiet;
        for (auto _ : state) {
            cmd_Parse_from_buffer(&scratch, batch.c_str());
            atcmder_queue_exit(&Rx_head, &g_rxqueue_mutex);
        }
    }
    log_level = saved_level;
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(batch.size()));
    state.counters["lines/s"] = benchmark::Counter(static_cast<double>(state.iterations() * lines),
                                                   benchmark::Counter::kIsRate);
}

BENCHMARK(BM_ParseBatch)->ArgName("log_level")->Arg(0)->Arg(4);

// Noise without a line end: every character is skipped on its own, and the
// cost must grow with the length, not with its square.
void BM_SkipUnsupportedText(benchmark::State &state) {
    atcmd_fuzz::silence_android_log();
    atcmd_fuzz::install_device();
    const std::string noise(static_cast<size_t>(state.range(0)), 'x');
    const int32_t saved_level = log_level;
    log_level = 0;
    char text[ATCMD_TEXT_MAX];
    AtCmder_t scratch{};
    scratch.data = text;
    for (auto _ : state) cmd_Parse_from_buffer(&scratch, noise.c_str());
    log_level = saved_level;
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_SkipUnsupportedText)->ArgName("bytes")->Arg(4096)->Arg(65536);

}  // namespace

BENCHMARK_MAIN();
