#include "core/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <regex>
#include <string>

#include "core/delays.h"
#include "harness/census.h"
#include "harness/sysroot.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char *kLogDir = "/sdcard/tavrinola/.log";
constexpr const char *kLogFile = "/sdcard/tavrinola/.log/atcmdprocess";

struct Log : ::testing::Test {
    atcmd_harness::TempSysroot root;
    void SetUp() override { log_level = 4; }
};

TEST(Timestamp, MicrosecondsAreNotPaddedAndTheBaseIsSubtracted) {
    char out[32];
    EXPECT_STREQ("1700000000.7", atcmd::format_timestamp(out, sizeof out, 1700000000, 7, 0));
    EXPECT_STREQ("100.500000", atcmd::format_timestamp(out, sizeof out, 100, 500000, 0));
    EXPECT_STREQ("60.0", atcmd::format_timestamp(out, sizeof out, 1700000060, 0, 1700000000));
    EXPECT_EQ(buf_timestamp, get_timestamp());
    EXPECT_TRUE(std::regex_match(buf_timestamp, std::regex(R"(\d+\.\d{1,6})"))) << buf_timestamp;
}

TEST_F(Log, FileLinesHaveTheFixedPrefixAndAReopenAppendsToOneStream) {
    log_file_init(kLogDir, "atcmdprocess");
    ASSERT_NE(nullptr, fd_logfile);
    char text[] = "AT+VER?#11&1";
    AtCmder_t rec{3, 2, 3, 1, 0, 11, 11, 1700000000, 7, text};
    dump_atcmd_data(&rec);
    int fds = atcmd_harness::open_fd_count();
    log_file_init(kLogDir, "atcmdprocess");  // its own line still reaches the old stream
    EXPECT_EQ(fds, atcmd_harness::open_fd_count());
    ATLOGI(3, atcmd::kTagManage, "tail");

    const std::string pfx = R"(\[\d+\.\d{1,6}\]\[tid:)" + std::to_string(gettid()) + R"(\])";
    // The file opens after log_file_init's first line; texts get no newline.
    std::regex shape(pfx + R"(dump_atcmd_data:\d+: dump_atcmd_data type:3,source:2,dest:3, flag:1,)"
                           R"(resendtimes:0 cmd_id:11, seq_num:11,tv_sec:1700000000,tv_usec:7, )"
                           R"(data:AT\+VER\?#11&1)" +
                     pfx + R"(log_file_init:\d+: log_filename=/sdcard/tavrinola/\.log/atcmdprocess\n)" +
                     pfx + R"(TestBody:\d+: tail)");
    std::string log = root.read_file(kLogFile);
    EXPECT_TRUE(std::regex_match(log, shape)) << log;
}

TEST_F(Log, LevelGateAppliesToEveryOutputAndArgumentsRunOncePerOutput) {
    log_file_init(kLogDir, "atcmdprocess");
    ::testing::internal::CaptureStdout();
    log_level = 3;
    int n = 0;
    ATLOGI(4, atcmd::kTagManage, "level four %d", ++n);
    EXPECT_EQ(0, n) << "a gated statement evaluates nothing";
    ATLOGE(3, atcmd::kTagManage, "level three %d", ++n);
    EXPECT_EQ(3, n) << "standard output, the Android log and the file";
    log_level = -1;
    ATLOGE(0, atcmd::kTagManage, "level zero");
    std::string out = ::testing::internal::GetCapturedStdout();
    for (const std::string &s : {out, root.read_file(kLogFile)}) {
        EXPECT_THAT(s, Not(HasSubstr("level four")));
        EXPECT_THAT(s, Not(HasSubstr("level zero")));
    }
    EXPECT_THAT(out, HasSubstr("level three 1"));
    EXPECT_THAT(root.read_file(kLogFile), HasSubstr("level three 3"));
}

TEST_F(Log, ADirectoryWithBlanksAndQuotesIsMadeAsNamed) {
    log_file_init("/sdcard/a b/it's $(x)", "atcmdprocess");
    ATLOGI(3, atcmd::kTagManage, "here");
    EXPECT_THAT(root.read_file("/sdcard/a b/it's $(x)/atcmdprocess"), HasSubstr("here"));
}

TEST_F(Log, UncreatableDirectoryReportsOnStderrAndLoggingGoesOn) {
    root.write_file("/sdcard/tavrinola", "a file where the directory should be");
    ::testing::internal::CaptureStderr();
    log_file_init(kLogDir, "atcmdprocess");
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("create log file error!\n"));
    EXPECT_EQ(nullptr, fd_logfile);
    ::testing::internal::CaptureStdout();
    ATLOGI(3, atcmd::kTagManage, "still logging");
    EXPECT_THAT(::testing::internal::GetCapturedStdout(), HasSubstr("still logging"));
}

TEST_F(Log, WaitOverridesLogWhatTheySetAndWhatTheyLeftOut) {
    const atcmd::Delays before = atcmd::g_delays;
    ::testing::internal::CaptureStdout();
    atcmd::apply_delay_overrides("heartbeat_period=300000,nap=5,daemon_exit_ack=-1,"
                                 "uart_retry_pause=4294967296,vuart_recheck_pause=0,,"
                                 "daemon_exit_ack=100000");
    const std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(300000u, atcmd::g_delays.heartbeat_period);
    EXPECT_EQ(100000u, atcmd::g_delays.daemon_exit_ack);
    EXPECT_EQ(before.uart_retry_pause, atcmd::g_delays.uart_retry_pause);
    EXPECT_EQ(before.vuart_recheck_pause, atcmd::g_delays.vuart_recheck_pause);
    EXPECT_THAT(out, HasSubstr(": nap=5,daemon_exit_ack=-1,uart_retry_pause=4294967296,"
                               "vuart_recheck_pause=0"));
    EXPECT_THAT(out, HasSubstr(": heartbeat_period=300000,daemon_exit_ack=100000"));
}

}  // namespace
