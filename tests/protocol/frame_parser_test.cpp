#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "atcmdprocess.h"
#include "fixtures/device.h"
#include "fixtures/queue_probe.h"

namespace {

using ::testing::HasSubstr;

// seq and flag in the scratch record before the call: a line without a
// "#seq&flag" tail leaves them as they were.
constexpr int kS = 77;
constexpr int kF = 9;

struct Line {
    int type, cmd_id, seq, flag;
    std::string text;
};

struct FrameParser : ::testing::Test {
    atcmd_test::TestDevice dev;  // platform 1, mode -1: every line is queued on Rx_head
    void SetUp() override { atcmd_test::drain_all(); }
    void TearDown() override { atcmd_test::drain_all(); }

    std::vector<atcmd_test::Taken> parse(const std::string &input) {
        char text[ATCMD_TEXT_MAX];
        AtCmder_t scratch{};
        scratch.data = text;
        scratch.source = ATCMD_EP_MCU;
        scratch.seq_num = kS;
        scratch.flag = kF;
        cmd_Parse_from_buffer(&scratch, input.c_str());
        return atcmd_test::drain(&Rx_head, &g_rxqueue_mutex);
    }
};

TEST_F(FrameParser, CutsClassifiesAndHandsOffEachLine) {
    const std::string v151(151, 'x');  // "+MMI1=" + v151 + "\r\n" is 159 characters
    const struct {
        std::string input;
        std::vector<Line> lines;
    } cases[] = {
        {"AT+VER?#17&2\r\n", {{3, 11, 17, 2, "AT+VER?#17&2\r\n"}}},
        {"AT+REBOOT#3&2\r\n", {{1, 0, 3, 2, "AT+REBOOT#3&2\r\n"}}},
        {"AT+PTEST=123456789#5&2\r\n", {{2, 35, 5, 2, "AT+PTEST=123456789#5&2\r\n"}}},
        {"+OK\r\n", {{4, 23, kS, kF, "+OK\r\n"}}},
        {"+BATCG=1,2,3,4,5,6\r\n", {{5, 26, kS, kF, "+BATCG=1,2,3,4,5,6\r\n"}}},
        {"AT+HALLCG?\r\n", {{5, 31, kS, kF, "AT+HALLCG?\r\n"}}},
        {"+HRM=35,40#4&1\r\n", {{5, 33, 4, 1, "+HRM=35,40#4&1\r\n"}}},
        {"+BT=1\r\n+WIFI=3\r\n+PT=ab#2&2\r\n+\r\n",
         {{4, 7, kS, kF, "+BT=1\r\n"}, {4, 18, kS, kF, "+WIFI=3\r\n"}, {4, 35, 2, 2, "+PT=ab#2&2\r\n"},
          {4, 0, 2, 2, "+\r\n"}}},
        {"AT+BT=1\r\n", {{2, 21, kS, kF, "AT+BT=1\r\n"}}},
        {"AT+VE?\r\n", {}},
        {"xyz\r\n+OK\r\n", {{4, 23, kS, kF, "+OK\r\n"}}},
        {"+OK#7&2\r\n+BAT=1\r\n", {{4, 23, 7, 2, "+OK#7&2\r\n"}, {4, 9, 7, 2, "+BAT=1\r\n"}}},
        {"+OK\r\n+BAT=1,2", {{4, 23, kS, kF, "+OK\r\n"}}},
        {"+OK\r", {}},
        {"+OK\r+BAT\r\n", {{4, 9, kS, kF, "+BAT\r\n"}}},
        {"+OK#-1&2\r\n", {{4, 23, 65535, 2, "+OK#-1&2\r\n"}}},
        // Without its '&' a tail runs on into the next line.
        {"+OK#5\r\n+BAT=1#3&2\r\n", {{4, 23, 5, 2, "+OK#5\r\n+BAT=1#3&2\r\n"}}},
        {"+MMI1=" + v151 + "\r\n", {{4, 36, kS, kF, "+MMI1=" + v151 + "\r\n"}}},
        {"+MMI1=x" + v151 + "\r\n+OK\r\n", {{4, 23, kS, kF, "+OK\r\n"}}},
        {"", {}},
    };
    for (const auto &c : cases) {
        auto got = parse(c.input);
        ASSERT_EQ(c.lines.size(), got.size()) << c.input;
        for (size_t i = 0; i < got.size(); ++i) {
            const Line &want = c.lines[i];
            const AtCmder_t &rec = got[i].rec;
            EXPECT_EQ(want.text, got[i].text);
            EXPECT_EQ(want.type, rec.type) << want.text;
            EXPECT_EQ(want.cmd_id, rec.cmd_id) << want.text;
            EXPECT_EQ(want.seq, rec.seq_num) << want.text;
            EXPECT_EQ(want.flag, rec.flag) << want.text;
            EXPECT_EQ(ATCMD_EP_MCU, rec.source) << want.text;
        }
    }
}

TEST_F(FrameParser, FaultsAreLoggedWithTheTextStoredSoFar) {
    const std::pair<std::string, const char *> rows[] = {
        {"xyz\r\n", "]cmd_Parse_from_buffer:"},
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
        parse(r.first);
        EXPECT_THAT(::testing::internal::GetCapturedStdout(), HasSubstr(r.second)) << r.first;
    }
    log_level = 2;
    ::testing::internal::CaptureStdout();
    parse("xyz\r\nAT+VE?\r\n+OK\r\n");
    EXPECT_EQ("", ::testing::internal::GetCapturedStdout()) << "parse messages are level 3 and 4";
}

}  // namespace
