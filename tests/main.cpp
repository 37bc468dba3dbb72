// Every test process runs under its own temporary root, so that nothing a
// test does can reach a real device node or the real /sdcard.
#include <gtest/gtest.h>

#include <string>

#include "core/delays.h"
#include "fixtures/sysroot.h"

int main(int argc, char **argv) {
    // A death test's child re-runs this binary and dies; it gets no root of
    // its own, which it could never remove.
    bool death_child = false;
    for (int i = 1; i < argc; ++i)
        death_child |= std::string(argv[i]).find("internal_run_death_test") != std::string::npos;
    ::testing::InitGoogleTest(&argc, argv);
    // Death tests re-run the binary rather than fork a process with threads.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The waits keep their order and their roles, on a scale the suite need
    // not sit through; a test that measures one reads it from g_delays.
    atcmd::g_delays.heartbeat_period = 400 * 1000;
    atcmd::g_delays.daemon_exit_ack = 200 * 1000;
    atcmd::g_delays.uart_retry_pause = 200 * 1000;
    atcmd::g_delays.vuart_recheck_pause = 20 * 1000;
    if (death_child) return RUN_ALL_TESTS();
    atcmd_test::TempSysroot root;
    return RUN_ALL_TESTS();
}
