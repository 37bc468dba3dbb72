#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "atcmdprocess.h"
#include "fixtures/device.h"
#include "fixtures/log_capture.h"
#include "fixtures/queue_probe.h"

namespace {

// seq and flag in the scratch record before the call: a line without a
// "#seq&flag" tail leaves them as they were.
constexpr int kS = 77;
constexpr int kF = 9;

struct Line {
    int type, cmd_id, seq, flag;
    std::string text;
    bool operator==(const Line &o) const {
        return std::tie(type, cmd_id, seq, flag, text) == std::tie(o.type, o.cmd_id, o.seq, o.flag, o.text);
    }
};
void PrintTo(const Line &l, std::ostream *os) {
    *os << l.type << "/" << l.cmd_id << "/" << l.seq << "/" << l.flag << " " << ::testing::PrintToString(l.text);
}

TEST(FrameParser, CutsClassifiesAndHandsOffEachLine) {
    atcmd_test::TestDevice dev;  // platform 1, mode -1: every line is queued on Rx_head
    const std::string v151(151, 'x');  // "+MMI1=" + v151 + "\r\n" is 159 characters
    const struct {
        std::string input;
        std::vector<Line> lines;
        const char *log;
    } cases[] = {
        {"AT+VER?#17&2\r\n", {{3, 11, 17, 2, "AT+VER?#17&2\r\n"}},
         ": Get one line cmd: idx is 11 ,  seq num is 17, flag is 2, cmd is AT+VER?#17&2\r\n"},
        {"AT+REBOOT#3&2\r\n", {{1, 0, 3, 2, "AT+REBOOT#3&2\r\n"}}, ""},
        {"AT+BT=1\r\n", {{2, 21, kS, kF, "AT+BT=1\r\n"}}, ""},
        {"+BATCG=1,2\r\nAT+HALLCG?\r\n+HRM=35,40#4&1\r\n",
         {{5, 26, kS, kF, "+BATCG=1,2\r\n"}, {5, 31, kS, kF, "AT+HALLCG?\r\n"},
          {5, 33, 4, 1, "+HRM=35,40#4&1\r\n"}}, ""},
        {"+BT=1\r\n+WIFI=3\r\n+PT=ab#2&2\r\n+\r\n+OK\r\n",
         {{4, 7, kS, kF, "+BT=1\r\n"}, {4, 18, kS, kF, "+WIFI=3\r\n"}, {4, 35, 2, 2, "+PT=ab#2&2\r\n"},
          {4, 0, 2, 2, "+\r\n"}, {4, 23, 2, 2, "+OK\r\n"}}, ""},
        {"AT+VE?\r\n", {}, ": Cmd  AT+VE is not supported!"},
        {"AT\r\n", {}, ": Invalidate AT command!"},
        {"xyz\r\n+OK\r\n", {{4, 23, kS, kF, "+OK\r\n"}}, ""},
        {"+OK\r\n+BAT=1,2", {{4, 23, kS, kF, "+OK\r\n"}}, ""},
        {"+OK\r+BAT\r\n", {{4, 9, kS, kF, "+BAT\r\n"}}, ""},
        // Without its '&' a tail runs on into the next line.
        {"+OK#5\r\n+BAT=1#3&2\r\n", {{4, 23, 5, 2, "+OK#5\r\n+BAT=1#3&2\r\n"}}, ""},
        {"+MMI1=" + v151 + "\r\n", {{4, 36, kS, kF, "+MMI1=" + v151 + "\r\n"}}, ""},
        {"+MMI1=x" + v151 + "\r\n+OK\r\n", {{4, 23, kS, kF, "+OK\r\n"}}, ": Cmd  is too long and not supported!"},
    };
    for (const auto &c : cases) {
        char text[ATCMD_TEXT_MAX];
        AtCmder_t scratch{};
        scratch.data = text;
        scratch.source = ATCMD_EP_MCU;
        scratch.seq_num = kS;
        scratch.flag = kF;
        EXPECT_THAT(atcmd_test::stdout_of([&] { cmd_Parse_from_buffer(&scratch, c.input.c_str()); }),
                    ::testing::HasSubstr(c.log)) << c.input;
        std::vector<Line> got;
        for (const auto &t : atcmd_test::drain(&Rx_head, &g_rxqueue_mutex)) {
            EXPECT_EQ(ATCMD_EP_MCU, t.rec.source) << t.text;
            got.push_back({t.rec.type, t.rec.cmd_id, t.rec.seq_num, t.rec.flag, t.text});
        }
        EXPECT_EQ(c.lines, got) << c.input;
    }
}

}  // namespace
