#include "protocol/fields.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "atcmdprocess.h"
#include "fixtures/log_capture.h"

namespace {

TEST(Fields, NumberStringAndStateAfterTheFirstEquals) {
    const struct { const char *line; unsigned rc; int64_t value; } numbers[] = {
        {"+SCREEN=1#17&2\r\n", 0, 1}, {"+BKL= -42\r\n", 0, -42},
        {"+TIME=1700000000123\r\n", 0, 1700000000123}, {"+SCREEN\r\n", 3, 99}};
    for (const auto &r : numbers) {
        int64_t v = 99;
        EXPECT_EQ(r.rc, getvalue_fromCmdString(r.line, &v)) << r.line;
        EXPECT_EQ(r.value, v) << r.line;
    }
    // The value ends at '#', else at '\r'; over-long values are cut to size - 1.
    const struct { const char *line; size_t size; unsigned rc; const char *text; } strings[] = {
        {"+SN=A=B#5&2\r\n", 32, 0, "A=B"}, {"+SN=ABC\r\n", 32, 0, "ABC"},
        {"+SN=ABCDEFGH#5&2\r\n", 4, 0, "ABC"}, {"+SN\r\n", 32, 4, "old"},
        {"+SN=ABC", 32, 4, "old"}, {"+SN#5=ABC\r\n", 32, 4, "old"}, {"+SN=ABC#5&2\r\n", 0, 4, "old"}};
    for (const auto &r : strings) {
        char out[40];
        memset(out, 'z', sizeof out);
        strcpy(out, "old");
        EXPECT_EQ(r.rc, getstr_fromCmdString(r.line, out, r.size)) << r.line;
        EXPECT_STREQ(r.text, out) << r.line;
        for (size_t i = r.size > 4 ? r.size : 4; i < sizeof out; ++i)
            ASSERT_EQ('z', out[i]) << r.line << ": written past out_size at " << i;
    }
    const struct { const char *line; int32_t code; } states[] = {
        {"+STATE=IDLE\r\n", 1}, {"+STATE=ACTIVE#10&1\r\n", 2}, {"+STATE=READY\r\n", 3},
        {"+STATE=PWROFF\r\n", 4}, {"+STATE=UPDATE\r\n", 5}, {"+STATE=NOACK\r\n", 6},
        {"+STATE=INITUPDATE\r\n", 7}, {"+STATE=X\r\n", -1}};  // INIT is looked for before UPDATE
    for (const auto &r : states) {
        int32_t code = 99;
        EXPECT_EQ(0u, getstate_fromCmdString(r.line, &code)) << r.line;
        EXPECT_EQ(r.code, code) << r.line;
    }
}

// One separator character is skipped between numbers and a missing number
// reads 0; a list that ends early fails with 3 and leaves the output alone.
TEST(Fields, NumberListsSkipOneSeparatorAndFailAtTheEndOfTheLine) {
    using Fn = unsigned int (*)(const char *, int32_t *);
    const struct { Fn fn; const char *line; std::vector<int32_t> values; } rows[] = {
        {getBatinfo_fromCmdString, "+BAT=1,,3,-4;5,6#9&2\r\n", {1, 0, 3, -4, 5, 6}},
        {getBatinfo_fromCmdString, "+BAT=1,2,3,4,5,\r\n", {1, 2, 3, 4, 5, 0}},
        {getBatinfo_fromCmdString, "+BAT=1,2", {}}, {getBatinfo_fromCmdString, "+BAT\r\n", {}},
        {getTmpinfo_fromCmdString, "+HRM=35,40\r\n", {35, 40}}, {getTmpinfo_fromCmdString, "+HRM=35", {}},
        {getUsbDevinfo_fromCmdString, "+USBSTATE=1,3#16&1\r\n", {1, 3}},
        {getUsbDevinfo_fromCmdString, "+USBSTATE=", {}},
        {getHALLinfo_fromCmdString, "+HALL=1,0,7\r\n", {1, 0, 7}}, {getHALLinfo_fromCmdString, "+HALL=1,0", {}},
        {getACCinfo_fromCmdString, "+ACC=-10,20,30 tail\r\n", {-10, 20, 30}},
        {getACCinfo_fromCmdString, "+ACC=", {}}};
    for (const auto &r : rows) {
        int32_t out[8] = {99, 99, 99, 99, 99, 99, 99, 99};
        EXPECT_EQ(r.values.empty() ? 3u : 0u, r.fn(r.line, out)) << r.line;
        for (size_t i = 0; i < 8; ++i)
            EXPECT_EQ(i < r.values.size() ? r.values[i] : 99, out[i]) << r.line << " [" << i << "]";
    }
    int32_t out[6];
    EXPECT_THAT(atcmd_test::stdout_of([&] { getBatinfo_fromCmdString("+BAT=1,2", out); }),
                ::testing::HasSubstr(": Batinfo para error, raw data is +BAT=1,2! "));
}

TEST(Fields, VersionItemsLandInTheirSlotsCutToFit) {
    const std::string v40(40, '0'), v80(80, '3');
    const struct { std::string line; unsigned rc; std::vector<std::string> items; } rows[] = {
        {"+VER=MCU:1.0.2,BT:2.1,WIFI:3.3,AML:V20231105_user,TP:7,CAM:8,BOOT:9#11&2\r\n", 0,
         {"1.0.2", "2.1", "3.3", "V20231105_user", "7", "8", "9"}},
        {"a:" + v40 + ",b:,c:2,d:" + v80 + ",e:4,f:5,g:6\r\n", 0,
         {v40.substr(0, 31), "NULL", "2", v80.substr(0, 63), "4", "5", "6\r"}},
        {"a:0,b:1,c:2,d:3", 4, {"0", "1", "2", "", "", "", ""}}};
    for (const auto &r : rows) {
        char block[256 + 16];
        memset(block, 'z', sizeof block);
        EXPECT_EQ(r.rc, getVerInfo_fromCmdString(r.line.c_str(), block)) << r.line;
        std::vector<std::string> items;
        for (const auto &slot : atcmd::kVerSlots) items.emplace_back(block + slot.offset);
        EXPECT_EQ(r.items, items) << r.line;
        for (size_t i = 256; i < sizeof block; ++i) ASSERT_EQ('z', block[i]) << "past the block";
    }
}

}  // namespace
