// Every test process runs under its own temporary root, so that nothing a
// test does can reach a real device node or the real /sdcard.
#include <gtest/gtest.h>

#include "fixtures/sysroot.h"

int main(int argc, char **argv) {
    ::testing::InitGoogleTest(&argc, argv);
    // Death tests re-run the binary rather than fork a process with threads.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    atcmd_test::TempSysroot root;
    return RUN_ALL_TESTS();
}
