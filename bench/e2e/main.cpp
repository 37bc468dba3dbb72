// atcmd_e2e_bench: the loaded module against the accessory simulator.
//
//   atcmd_e2e_bench receive|transmit|idle|all [--quick] [--idle-seconds S]
//                   [--child-log FILE]
//
// Rows for the bench table go to standard output as
// ROW|section|measure|value|baseline|ratio|target|met; the detail behind
// them (per-thread figures, spreads, counts) goes to standard error.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "bench/e2e/harness.h"

namespace {

// Jiffies of the whole machine from /proc/stat: busy (not idle, not
// waiting for I/O) and total.
bool machine_jiffies(unsigned long long *busy, unsigned long long *total) {
    FILE *f = fopen("/proc/stat", "r");
    if (f == nullptr) return false;
    unsigned long long v[8] = {};
    int n = fscanf(f, "cpu %llu %llu %llu %llu %llu %llu %llu %llu", &v[0], &v[1], &v[2], &v[3],
                   &v[4], &v[5], &v[6], &v[7]);
    fclose(f);
    if (n != 8) return false;
    *total = 0;
    for (unsigned long long x : v) *total += x;
    *busy = *total - v[3] - v[4];
    return true;
}

int usage(const char *argv0) {
    fprintf(stderr,
            "usage: %s receive|transmit|idle|all [--quick] [--idle-seconds S] "
            "[--child-log FILE]\n"
            "  receive   report lines from the simulator to the client's callback\n"
            "  transmit  cmd_from_hidl to the bytes at the simulator, against a raw write\n"
            "  idle      wake-ups per second of the module's process\n"
            "  --quick         fewer lines and samples, for a smoke run\n"
            "  --idle-seconds  length of each idle window (default 5)\n"
            "  --child-log     keep the module process's stdout/stderr in FILE\n",
            argv0);
    return 2;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) return usage(argv[0]);
    const std::string what = argv[1];
    e2e::Options opt;
    for (int i = 2; i < argc; ++i) {
        if (strcmp(argv[i], "--quick") == 0) {
            opt.quick = true;
        } else if (strcmp(argv[i], "--idle-seconds") == 0 && i + 1 < argc) {
            opt.idle_seconds = atof(argv[++i]);
        } else if (strcmp(argv[i], "--child-log") == 0 && i + 1 < argc) {
            opt.child_log = argv[++i];
        } else {
            return usage(argv[0]);
        }
    }
    if (opt.idle_seconds <= 0) return usage(argv[0]);
    // Other work on the machine shows in every figure; say how busy it was.
    if (FILE *f = fopen("/proc/loadavg", "r")) {
        char load[128] = {};
        if (fgets(load, sizeof load, f) != nullptr)
            fprintf(stderr, "load average at start: %s", load);
        fclose(f);
    }
    unsigned long long busy0 = 0, total0 = 0, busy1 = 0, total1 = 0;
    const bool have_stat = machine_jiffies(&busy0, &total0);
    int rc;
    if (what == "receive")
        rc = e2e::run_receive(opt);
    else if (what == "transmit")
        rc = e2e::run_transmit(opt);
    else if (what == "idle")
        rc = e2e::run_idle(opt);
    else if (what == "all")
        rc = e2e::run_receive(opt) | e2e::run_transmit(opt) | e2e::run_idle(opt);
    else
        return usage(argv[0]);
    if (have_stat && machine_jiffies(&busy1, &total1) && total1 > total0)
        fprintf(stderr, "machine busy %.0f%% of all CPUs during the run (this bench included)\n",
                100.0 * static_cast<double>(busy1 - busy0) / static_cast<double>(total1 - total0));
    return rc;
}
