#define LOG_TAG "ATCMD_TEST"
#include "core/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <fcntl.h>
#include <unistd.h>

#include <regex>
#include <string>

#include "fixtures/census.h"
#include "fixtures/sysroot.h"

namespace {

using ::testing::HasSubstr;

constexpr const char *kLogDir = "/sdcard/tavrinola/.log";
constexpr const char *kLogFile = "/sdcard/tavrinola/.log/atcmdprocess";

int count_of(const std::string &hay, const std::string &needle) {
    int n = 0;
    for (size_t pos = hay.find(needle); pos != std::string::npos; pos = hay.find(needle, pos + 1))
        ++n;
    return n;
}

struct Log : ::testing::Test {
    atcmd_test::TempSysroot root;
    void SetUp() override { log_level = 4; }
    void TearDown() override {
        if (fd_logfile != nullptr) fclose(fd_logfile);
        fd_logfile = nullptr;
    }
};

TEST(Timestamp, MicrosecondsAreNotPaddedAndTheBaseIsSubtracted) {
    char out[32];
    EXPECT_STREQ("1700000000.7", atcmd::format_timestamp(out, sizeof out, 1700000000, 7, 0));
    EXPECT_STREQ("100.5", atcmd::format_timestamp(out, sizeof out, 100, 5, 0));
    EXPECT_STREQ("100.500000", atcmd::format_timestamp(out, sizeof out, 100, 500000, 0));
    EXPECT_STREQ("60.0", atcmd::format_timestamp(out, sizeof out, 1700000060, 0, 1700000000));
    EXPECT_EQ(buf_timestamp, get_timestamp());
    EXPECT_TRUE(std::regex_match(buf_timestamp, std::regex(R"(\d+\.\d{1,6})"))) << buf_timestamp;
}

TEST_F(Log, FileLinesHaveTheFixedPrefixAndNoAddedNewline) {
    log_file_init(kLogDir, "atcmdprocess");
    ASSERT_NE(nullptr, fd_logfile);
    char text[] = "AT+VER?#11&1";
    AtCmder_t rec{3, 2, 3, 1, 0, 11, 11, 1700000000, 7, text};
    dump_atcmd_data(&rec);
    ATLOGI(3, "no newline here");
    ATLOGI(3, "tail");

    std::string log = root.read_file(kLogFile);
    const std::string pfx = R"(\[\d+\.\d{1,6}\]\[tid:)" + std::to_string(gettid()) + R"(\])";
    // The file opens after log_file_init's own line, so it starts with the dump.
    std::regex shape(pfx + R"(dump_atcmd_data:\d+: dump_atcmd_data type:3,source:2,dest:3, flag:1,)"
                           R"(resendtimes:0 cmd_id:11, seq_num:11,tv_sec:1700000000,tv_usec:7, )"
                           R"(data:AT\+VER\?#11&1)" +
                     pfx + R"(TestBody:\d+: no newline here)" + pfx + R"(TestBody:\d+: tail)");
    EXPECT_TRUE(std::regex_match(log, shape)) << log;
}

TEST_F(Log, LevelGateAppliesToEveryOutput) {
    log_file_init(kLogDir, "atcmdprocess");
    ::testing::internal::CaptureStdout();
    log_level = 3;
    ATLOGI(4, "level four");
    ATLOGE(3, "level three");
    log_level = -1;
    ATLOGE(0, "level zero");
    std::string out = ::testing::internal::GetCapturedStdout();
    std::string file = root.read_file(kLogFile);
    for (const std::string &s : {out, file}) {
        EXPECT_THAT(s, HasSubstr("level three"));
        EXPECT_THAT(s, ::testing::Not(HasSubstr("level four")));
        EXPECT_THAT(s, ::testing::Not(HasSubstr("level zero")));
    }
}

TEST_F(Log, ArgumentsAreEvaluatedOncePerOutput) {
    int n = 0;
    ATLOGI(3, "%d", ++n);
    EXPECT_EQ(2, n) << "standard output and the Android log";
    log_file_init(kLogDir, "atcmdprocess");
    n = 0;
    ATLOGI(3, "%d", ++n);
    EXPECT_EQ(3, n) << "plus the log file";
    EXPECT_THAT(root.read_file(kLogFile), HasSubstr(": 3"));
    log_level = 2;
    n = 0;
    ATLOGI(3, "%d", ++n);
    EXPECT_EQ(0, n) << "a gated statement evaluates nothing";
}

TEST_F(Log, ReopeningKeepsOneStreamAndAppends) {
    log_file_init(kLogDir, "atcmdprocess");
    ASSERT_NE(nullptr, fd_logfile);
    ATLOGI(3, "before reopen");
    int fds_before = atcmd_test::open_fd_count();
    log_file_init(kLogDir, "atcmdprocess");  // its own line still reaches the old stream
    ASSERT_NE(nullptr, fd_logfile);
    EXPECT_EQ(fds_before, atcmd_test::open_fd_count());
    ATLOGI(3, "after reopen");
    std::string log = root.read_file(kLogFile);
    EXPECT_EQ(1, count_of(log, "before reopen"));
    EXPECT_EQ(1, count_of(log, "log_filename="));
    EXPECT_EQ(1, count_of(log, "after reopen"));
}

TEST_F(Log, UncreatableDirectoryReportsOnStderrAndLoggingGoesOn) {
    root.write_file("/sdcard/tavrinola", "a file where the directory should be");
    ::testing::internal::CaptureStderr();
    log_file_init(kLogDir, "atcmdprocess");
    std::string err = ::testing::internal::GetCapturedStderr();
    EXPECT_THAT(err, HasSubstr("create log file error!\n"));
    EXPECT_EQ(nullptr, fd_logfile);
    ::testing::internal::CaptureStdout();
    ATLOGI(3, "still logging");
    EXPECT_THAT(::testing::internal::GetCapturedStdout(), HasSubstr("still logging"));
}

}  // namespace
