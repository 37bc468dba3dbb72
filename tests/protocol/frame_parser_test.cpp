#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dirent.h>

#include <fstream>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "atcmdprocess.h"
#include "core/log.h"
#include "core/queue.h"
#include "fixtures/device.h"
#include "fixtures/log_capture.h"
#include "fixtures/queue_probe.h"
#include "protocol/frame_parser.h"
#include "sim/traffic.h"

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

// Everything one call leaves behind, on one line per item: the records
// handed off, the scratch record and its whole text buffer, and the log
// with time, thread and source line taken out.
std::string outcome(int (*parse)(AtCmder_t *, const char *), const std::string &input) {
    char text[ATCMD_TEXT_MAX];
    memset(text, '?', sizeof text);
    AtCmder_t scratch{};
    scratch.data = text;
    scratch.source = ATCMD_EP_MCU;
    scratch.seq_num = kS;
    scratch.flag = kF;
    std::string log = atcmd_test::stdout_of([&] { parse(&scratch, input.c_str()); });
    static const std::regex kPrefix(R"(\[[0-9.]+\]\[tid:[0-9]+\]([A-Za-z_]+):[0-9]+:)");
    std::ostringstream out;
    out << std::regex_replace(log, kPrefix, "$1:") << "\n";
    for (const auto &t : atcmd_test::drain(&Rx_head, &g_rxqueue_mutex))
        out << +t.rec.type << "/" << +t.rec.cmd_id << "/" << t.rec.seq_num << "/" << +t.rec.flag
            << ":" << t.text << "\n";
    out << "scratch " << +scratch.type << "/" << +scratch.cmd_id << "/" << scratch.seq_num << "/"
        << +scratch.flag << ":" << std::string(text, sizeof text);
    return out.str();
}

// The whole-line path must change nothing but speed: the same records, the
// same log and the same scratch state as the character rules, over typical
// traffic, the table's last rows, the fuzz corpus and fixed-seed mutations
// of all of them that break lines in the places the rules care about.
TEST(FrameParser, WholeLinesGiveWhatTheCharacterRulesGive) {
    atcmd_test::TestDevice dev;
    log_level = 4;
    // Numbers past what a 16-bit sequence or an 8-bit flag holds, and past
    // what strtol can hold.
    std::vector<std::string> inputs = {"+OK#12345678901234567890&1\r\n+BAT=1#65537&300\r\n"};
    for (const auto &lines : {atsim::typical_lines(7, 400), atsim::last_row_lines(7, 400)})
        for (size_t max : {1, 512})
            for (const std::string &b : atsim::pack_batches(lines, max)) inputs.push_back(b);
    if (DIR *dir = opendir(ATCMD_FUZZ_CORPUS_DIR "/frame_parser")) {
        while (const dirent *e = readdir(dir)) {
            if (e->d_name[0] == '.') continue;
            std::ifstream f(std::string(ATCMD_FUZZ_CORPUS_DIR "/frame_parser/") + e->d_name);
            inputs.emplace_back(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
        }
        closedir(dir);
    }
    std::mt19937 rng(11);
    const std::string alphabet = "\r\n#&=?+AT0123456789-x ";
    const size_t seeds = inputs.size();
    for (int i = 0; i < 3000; ++i) {
        std::string s = inputs[rng() % seeds] + inputs[rng() % seeds];
        for (int edits = 1 + rng() % 3; edits > 0 && !s.empty(); --edits) {
            const size_t at = rng() % s.size();
            const char c = alphabet[rng() % alphabet.size()];
            switch (rng() % 3) {
            case 0: s[at] = c; break;
            case 1: s.erase(at, 1); break;
            default: s.insert(at, 1, c);
            }
        }
        inputs.push_back(s);
    }
    for (const std::string &input : inputs) {
        const std::string fast = outcome(cmd_Parse_from_buffer, input);
        ASSERT_EQ(outcome(atcmd::parse_char_by_char, input), fast) << ::testing::PrintToString(input);
    }
}

}  // namespace
