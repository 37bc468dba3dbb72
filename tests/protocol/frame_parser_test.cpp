#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "atcmdprocess.h"
#include "fixtures/device.h"
#include "protocol/queue_probe.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

struct Line {
    int type;
    int cmd_id;
    int seq;
    int flag;
    std::string text;
};

struct Case {
    const char *name;
    std::string input;
    std::vector<Line> lines;  // in hand-off order
};

// seq and flag of the scratch record before the call, so that lines without
// a "#seq&flag" tail show what they leave alone.
constexpr int kSeqBefore = 77;
constexpr int kFlagBefore = 9;

struct FrameParser : ::testing::Test {
    atcmd_test::TestDevice dev;  // platform 1, mode -1: every line is queued on Rx_head
    char text[ATCMD_TEXT_MAX];
    AtCmder_t scratch;

    void SetUp() override { atcmd_test::drain_all(); }
    void TearDown() override { atcmd_test::drain_all(); }

    std::vector<atcmd_test::Taken> parse(const std::string &input) {
        memset(&scratch, 0, sizeof scratch);
        scratch.data = text;
        scratch.source = ATCMD_EP_MCU;
        scratch.seq_num = kSeqBefore;
        scratch.flag = kFlagBefore;
        cmd_Parse_from_buffer(&scratch, input.c_str());
        return atcmd_test::drain(&Rx_head, &g_rxqueue_mutex);
    }
};

TEST_F(FrameParser, CutsClassifiesAndHandsOffEachLine) {
    const std::string long_value(159 - 8, 'x');  // "+MMI1=" + value + "\r\n" = 159
    const Case cases[] = {
        {"query", "AT+VER?#17&2\r\n", {{3, 11, 17, 2, "AT+VER?#17&2\r\n"}}},
        {"action", "AT+REBOOT#3&2\r\n", {{1, 0, 3, 2, "AT+REBOOT#3&2\r\n"}}},
        {"set", "AT+PTEST=123456789#5&2\r\n", {{2, 35, 5, 2, "AT+PTEST=123456789#5&2\r\n"}}},
        {"response without tail", "+OK\r\n", {{4, 23, kSeqBefore, kFlagBefore, "+OK\r\n"}}},
        {"unsolicited report", "+BATCG=1,2,3,4,5,6\r\n", {{5, 26, kSeqBefore, kFlagBefore, "+BATCG=1,2,3,4,5,6\r\n"}}},
        {"unsolicited query", "AT+HALLCG?\r\n", {{5, 31, kSeqBefore, kFlagBefore, "AT+HALLCG?\r\n"}}},
        {"unsolicited hrm", "+HRM=35,40#4&1\r\n", {{5, 33, 4, 1, "+HRM=35,40#4&1\r\n"}}},
        {"prefix +BT", "+BT=1\r\n", {{4, 7, kSeqBefore, kFlagBefore, "+BT=1\r\n"}}},
        {"prefix +WIFI", "+WIFI=3\r\n", {{4, 18, kSeqBefore, kFlagBefore, "+WIFI=3\r\n"}}},
        {"prefix +PT", "+PT=ab#2&2\r\n", {{4, 35, 2, 2, "+PT=ab#2&2\r\n"}}},
        {"bare +", "+\r\n", {{4, 0, kSeqBefore, kFlagBefore, "+\r\n"}}},
        {"command +BT is exact", "AT+BT=1\r\n", {{2, 21, kSeqBefore, kFlagBefore, "AT+BT=1\r\n"}}},
        {"unknown command", "AT+VE?\r\n", {}},
        {"not a line start", "xyz\r\n+OK\r\n", {{4, 23, kSeqBefore, kFlagBefore, "+OK\r\n"}}},
        {"two lines; tail carries over",
         "+OK#7&2\r\n+BAT=1\r\n",
         {{4, 23, 7, 2, "+OK#7&2\r\n"}, {4, 9, 7, 2, "+BAT=1\r\n"}}},
        {"unfinished last line dropped", "+OK\r\n+BAT=1,2", {{4, 23, kSeqBefore, kFlagBefore, "+OK\r\n"}}},
        {"CR without LF", "+OK\r+BAT\r\n", {{4, 9, kSeqBefore, kFlagBefore, "+BAT\r\n"}}},
        {"negative sequence wraps", "+OK#-1&2\r\n", {{4, 23, 65535, 2, "+OK#-1&2\r\n"}}},
        {"a '#' without '&' swallows the next line",
         "+OK#5\r\n+BAT=1#3&2\r\n",
         {{4, 23, 5, 2, "+OK#5\r\n+BAT=1#3&2\r\n"}}},
        {"159 characters fit", "+MMI1=" + long_value + "\r\n",
         {{4, 36, kSeqBefore, kFlagBefore, "+MMI1=" + long_value + "\r\n"}}},
        {"160 characters do not", "+MMI1=x" + long_value + "\r\n+OK\r\n",
         {{4, 23, kSeqBefore, kFlagBefore, "+OK\r\n"}}},
        {"empty buffer", "", {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        auto got = parse(c.input);
        ASSERT_EQ(c.lines.size(), got.size());
        for (size_t i = 0; i < got.size(); ++i) {
            EXPECT_EQ(c.lines[i].type, got[i].rec.type) << i;
            EXPECT_EQ(c.lines[i].cmd_id, got[i].rec.cmd_id) << i;
            EXPECT_EQ(c.lines[i].seq, got[i].rec.seq_num) << i;
            EXPECT_EQ(c.lines[i].flag, got[i].rec.flag) << i;
            EXPECT_EQ(c.lines[i].text, got[i].text) << i;
            EXPECT_EQ(ATCMD_EP_MCU, got[i].rec.source) << i;
        }
    }
}

TEST_F(FrameParser, NoStateSurvivesACall) {
    EXPECT_TRUE(parse("+OK\r").empty());
    EXPECT_TRUE(parse("\n").empty());
    EXPECT_EQ(1u, parse("+OK\r\n").size());
}

TEST_F(FrameParser, FaultsAreLoggedWithTheirTexts) {
    struct {
        std::string input;
        const char *log;
    } rows[] = {
        {"xyz\r\n", ": Cmd is not supported!"},
        {"AT+VE?\r\n", ": Cmd  AT+VE is not supported!"},
        {"+NOPE=1\r\n", ": Cmd  +NOPE is not supported!"},
        {"+OK\rX\r\n", ": Cmd  +OK\rX is not supported!"},
        {"AT\r\n", ": Invalidate AT command!"},
        {"+MMI1=" + std::string(160, 'x') + "\r\n", ": Cmd  is too long and not supported!"},
        {"AT+VER?#17&2\r\n",
         ": Get one line cmd: idx is 11 ,  seq num is 17, flag is 2, cmd is AT+VER?#17&2\r\n"},
    };
    for (const auto &r : rows) {
        ::testing::internal::CaptureStdout();
        parse(r.input);
        EXPECT_THAT(::testing::internal::GetCapturedStdout(), HasSubstr(r.log)) << r.input;
    }
    log_level = 2;
    ::testing::internal::CaptureStdout();
    parse("xyz\r\nAT+VE?\r\n+OK\r\n");
    EXPECT_EQ("", ::testing::internal::GetCapturedStdout()) << "all parse messages are level 3 or 4";
    log_level = 4;
}

}  // namespace
