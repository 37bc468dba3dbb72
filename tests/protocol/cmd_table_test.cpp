#include <gtest/gtest.h>

#include "atcmdprocess.h"

namespace {

struct LookupRow {
    const char *text;
    int idx;  // -1: not found, index left alone
};

void expect_lookup(int (*find)(const char *, uint8_t *), const LookupRow &r) {
    uint8_t idx = 200;
    EXPECT_EQ(r.idx >= 0 ? 1 : 0, find(r.text, &idx)) << r.text;
    EXPECT_EQ(r.idx >= 0 ? r.idx : 200, idx) << r.text;
}

TEST(CmdTable, CommandsMatchExactlyAndResponsesByFirstPrefixRow) {
    const LookupRow commands[] = {{"AT+VER", 11}, {"AT+BT", 21},   {"AT+PT", 37},  {"AT+BATCG", 26},
                                  {"AT+WT", 38},  {"AT+VE", -1},   {"AT+VERX", -1}, {"AT+", -1},
                                  {"ATX+VER", -1}, {"AT+ver", -1}, {"AT", -1},
                                  {"A+OK", -1},   {"", -1}};
    const LookupRow responses[] = {{"+BT", 7},     {"+PT", 35},  {"+WIFI", 18},  {"+", 0},
                                   {"+BATCG", 26}, {"+BAT", 9},  {"+HALL", 12},  {"+HALLCG", 31},
                                   {"+S", 3},      {"+OKAY", -1}, {"OK", -1}};
    for (const auto &r : commands) expect_lookup(findAtCmdIdx, r);
    for (const auto &r : responses) expect_lookup(findResCmdIdx, r);
}

}  // namespace
