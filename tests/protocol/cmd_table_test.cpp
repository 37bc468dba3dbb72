#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "atcmdprocess.h"

namespace {

using ::testing::HasSubstr;

// The row numbers are what the client sees as cmd_id: the order is ABI.
TEST(CmdTable, ThirtyNineRowsInProtocolOrder) {
    const char *names[ATCMD_NUM_CMDS] = {
        "+REBOOT", "+UPGRADE", "+RECOVERY", "+SHUTDOWN", "+POWEROFF", "+RESET",  "+STARTUP",
        "+BTMAC",  "+BLEMAC",  "+BAT",      "+STATE",    "+VER",      "+HALL",   "+SN",
        "+SID",    "+TYPE",    "+USBSTATE", "+SCREEN",   "+WIFICON",  "+MICMODE", "+WIFI",
        "+BT",     "+TIME",    "+OK",       "+ERROR",    "+SLEEP",    "+BATCG",  "+BKL",
        "+MODE",   "+ACC",     "+LIGHT",    "+HALLCG",   "+TEST",     "+HRM",    "+DTR",
        "+PTEST",  "+MMI1",    "+PT",       "+WT"};
    for (int i = 0; i < ATCMD_NUM_CMDS; ++i) EXPECT_STREQ(names[i], AT_CMDS[i].name) << i;
    EXPECT_EQ(nullptr, AT_CMDS[6].parser);
    EXPECT_EQ(nullptr, AT_CMDS[18].parser);
}

struct LookupRow {
    const char *text;
    int found;
    int idx;
};

TEST(CmdTable, CommandLookupIsExactBehindAT) {
    const LookupRow rows[] = {
        {"AT+VER", 1, 11},   {"AT+BT", 1, 21},     {"AT+PT", 1, 37},    {"AT+BATCG", 1, 26},
        {"AT+REBOOT", 1, 0}, {"AT+WT", 1, 38},     {"AT+VE", 0, -1},    {"AT+VERX", 0, -1},
        {"AT+", 0, -1},      {"ATX+VER", 0, -1},   {"AT+ver", 0, -1},
    };
    for (const auto &r : rows) {
        uint8_t idx = 200;
        EXPECT_EQ(r.found, findAtCmdIdx(r.text, &idx)) << r.text;
        EXPECT_EQ(r.found ? r.idx : 200, idx) << r.text << ": untouched unless found";
    }
}

TEST(CmdTable, ShortOrNonATTextIsRejectedWithAnError) {
    for (const char *text : {"AT", "A+OK", "", "+VER", "XT+VER"}) {
        uint8_t idx = 200;
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(0, findAtCmdIdx(text, &idx)) << text;
        EXPECT_THAT(::testing::internal::GetCapturedStdout(),
                    HasSubstr("findAtCmdIdx:"));
        EXPECT_EQ(200, idx);
    }
    ::testing::internal::CaptureStdout();
    uint8_t idx = 0;
    findAtCmdIdx("AT", &idx);
    EXPECT_THAT(::testing::internal::GetCapturedStdout(), HasSubstr(": Invalidate AT command!"));
}

TEST(CmdTable, ResponseLookupTakesTheFirstRowTheNameBegins) {
    const LookupRow rows[] = {
        {"+BT", 1, 7},     {"+PT", 1, 35},     {"+WIFI", 1, 18},  {"+", 1, 0},
        {"+BATCG", 1, 26}, {"+BAT", 1, 9},     {"+HALL", 1, 12},  {"+HALLCG", 1, 31},
        {"+OK", 1, 23},    {"+SID", 1, 14},    {"+S", 1, 3},      {"+OKAY", 0, -1},
        {"OK", 0, -1},     {"+BATX", 0, -1},
    };
    for (const auto &r : rows) {
        uint8_t idx = 200;
        EXPECT_EQ(r.found, findResCmdIdx(r.text, &idx)) << r.text;
        EXPECT_EQ(r.found ? r.idx : 200, idx) << r.text;
    }
}

}  // namespace
