#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "atcmdprocess.h"

namespace {

using ::testing::HasSubstr;

TEST(Fields, OneNumberAfterTheFirstEquals) {
    struct {
        const char *line;
        unsigned rc;
        int64_t value;
    } rows[] = {
        {"+SCREEN=1#17&2\r\n", 0, 1},
        {"+BKL= -42\r\n", 0, -42},
        {"+TIME=1700000000123\r\n", 0, 1700000000123},
        {"+MODE=x=5\r\n", 0, 0},
        {"+SCREEN\r\n", 3, 99},
    };
    for (const auto &r : rows) {
        int64_t v = 99;
        EXPECT_EQ(r.rc, getvalue_fromCmdString(r.line, &v)) << r.line;
        EXPECT_EQ(r.value, v) << r.line;
    }
}

TEST(Fields, StringRunsFromEqualsToHashOrCarriageReturnAndIsCutToFit) {
    struct {
        const char *line;
        size_t size;
        unsigned rc;
        const char *text;
    } rows[] = {
        {"+SN=ABC#5&2\r\n", 32, 0, "ABC"},
        {"+SN=ABC\r\n", 32, 0, "ABC"},
        {"+SN=#5&2\r\n", 32, 0, ""},
        {"+SN=A=B#5&2\r\n", 32, 0, "A=B"},
        {"+SN=ABCDEFGH#5&2\r\n", 4, 0, "ABC"},
        {"+SN=ABC#5&2\r\n", 1, 0, ""},
        {"+SN\r\n", 32, 4, "keep"},
        {"+SN=ABC", 32, 4, "keep"},
        {"+SN#5=ABC\r\n", 32, 4, "keep"},
        {"+SN=ABC#5&2\r\n", 0, 4, "keep"},
    };
    for (const auto &r : rows) {
        char out[40];
        memset(out, 'z', sizeof out);
        strcpy(out, "keep");
        EXPECT_EQ(r.rc, getstr_fromCmdString(r.line, out, r.size)) << r.line;
        EXPECT_STREQ(r.text, out) << r.line;
        for (size_t i = r.size > 5 ? r.size : 5; i < sizeof out; ++i)  // "keep" ends at 4
            ASSERT_EQ('z', out[i]) << r.line << ": written past out_size at " << i;
    }
}

TEST(Fields, StateWordsInTheirSearchOrder) {
    struct {
        const char *line;
        int32_t code;
    } rows[] = {
        {"+STATE=IDLE\r\n", 1},         {"+STATE=ACTIVE#10&1\r\n", 2}, {"+STATE=READY\r\n", 3},
        {"+STATE=PWROFF\r\n", 4},       {"+STATE=UPDATE\r\n", 5},      {"+STATE=NOACK\r\n", 6},
        {"+STATE=INIT\r\n", 7},         {"+STATE=INITUPDATE\r\n", 7},  {"+STATE=NOACK,IDLE\r\n", 1},
        {"+STATE=X\r\n", -1},           {"", -1},
    };
    for (const auto &r : rows) {
        int32_t code = 99;
        EXPECT_EQ(0u, getstate_fromCmdString(r.line, &code)) << r.line;
        EXPECT_EQ(r.code, code) << r.line;
    }
}

using ListFn = unsigned int (*)(const char *, int32_t *);

TEST(Fields, NumberListsSkipOneSeparatorAndFailAtTheEndOfTheLine) {
    struct {
        ListFn fn;
        size_t n;
        const char *line;
        unsigned rc;
        std::vector<int32_t> values;  // empty: output untouched
        const char *message;
    } rows[] = {
        {getBatinfo_fromCmdString, 6, "+BAT=1,2,3,4,5,6\r\n", 0, {1, 2, 3, 4, 5, 6}, nullptr},
        {getBatinfo_fromCmdString, 6, "+BAT=1,,3,-4,5,6#9&2\r\n", 0, {1, 0, 3, -4, 5, 6}, nullptr},
        {getBatinfo_fromCmdString, 6, "+BAT=1;2;3;4;5;6", 0, {1, 2, 3, 4, 5, 6}, nullptr},
        {getBatinfo_fromCmdString, 6, "+BAT=1,2,3,4,5,\r\n", 0, {1, 2, 3, 4, 5, 0}, nullptr},
        {getBatinfo_fromCmdString, 6, "+BAT=1,2", 3, {},
         ": Batinfo para error, raw data is +BAT=1,2! "},
        {getBatinfo_fromCmdString, 6, "+BAT\r\n", 3, {}, "Batinfo para error"},
        {getTmpinfo_fromCmdString, 2, "+HRM=35,40\r\n", 0, {35, 40}, nullptr},
        {getTmpinfo_fromCmdString, 2, "+HRM=35", 3, {}, ": Tmpinfo para error, raw data is +HRM=35! "},
        {getUsbDevinfo_fromCmdString, 2, "+USBSTATE=1,3#16&1\r\n", 0, {1, 3}, nullptr},
        {getUsbDevinfo_fromCmdString, 2, "+USBSTATE=", 3, {}, ": usbstate para error, raw data is +USBSTATE=! "},
        {getHALLinfo_fromCmdString, 3, "+HALL=1,0,7\r\n", 0, {1, 0, 7}, nullptr},
        {getHALLinfo_fromCmdString, 3, "+HALL=1,0", 3, {}, ": get Hall info error, raw data is +HALL=1,0! "},
        {getACCinfo_fromCmdString, 3, "+ACC=-10,20,30 trailing\r\n", 0, {-10, 20, 30}, nullptr},
        {getACCinfo_fromCmdString, 3, "+ACC=", 3, {}, ": get Acc sensor info error, raw data is +ACC=! "},
    };
    for (const auto &r : rows) {
        int32_t out[8];
        for (int32_t &v : out) v = 99;
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(r.rc, r.fn(r.line, out)) << r.line;
        std::string log = ::testing::internal::GetCapturedStdout();
        for (size_t i = 0; i < 8; ++i) {
            int32_t want = i < r.values.size() ? r.values[i] : 99;
            EXPECT_EQ(want, out[i]) << r.line << " [" << i << "]";
        }
        if (r.message != nullptr)
            EXPECT_THAT(log, HasSubstr(r.message)) << r.line;
        else
            EXPECT_EQ("", log) << r.line;
    }
}

std::vector<std::string> slots(const char *block) {
    static const size_t offsets[] = {0, 32, 64, 96, 160, 192, 224};
    std::vector<std::string> out;
    for (size_t off : offsets) out.emplace_back(block + off);
    return out;
}

TEST(Fields, VersionItemsLandInTheirSlots) {
    using V = std::vector<std::string>;
    const std::string long3(80, '3');
    const std::string long0(40, '0');
    const std::string line_long =
        "+VER=a:" + long0 + ",b:1,c:2,d:" + long3 + ",e:4,f:5,g:6#11&2\r\n";
    struct {
        std::string line;
        unsigned rc;
        V items;
    } rows[] = {
        {"+VER=MCU:1.0.2,BT:2.1,WIFI:3.3,AML:V20231105_user,TP:7,CAM:8,BOOT:9#11&2\r\n", 0,
         {"1.0.2", "2.1", "3.3", "V20231105_user", "7", "8", "9"}},
        {"a:,b:1,c:2,d:3,e:4,f:5,g:6#11&2\r\n", 0, {"NULL", "1", "2", "3", "4", "5", "6"}},
        {"a:0,b:1,c:2,d:3,e:4,f:5,g:6\r\n", 0, {"0", "1", "2", "3", "4", "5", "6\r"}},
        {"a:0,b:1,c:2,d:3,e:4,f:5,g:", 0, {"0", "1", "2", "3", "4", "5", "NULL"}},
        {"a:0,b:1,c:2,d:3", 4, {"0", "1", "2", "", "", "", ""}},
        {"a:0,b:1,c:2,d:3,e:4,f:5", 4, {"0", "1", "2", "3", "4", "", ""}},
        {"no items", 4, {"", "", "", "", "", "", ""}},
        {line_long, 0, {long0.substr(0, 31), "1", "2", long3.substr(0, 63), "4", "5", "6"}},
    };
    for (const auto &r : rows) {
        char block[256 + 16];
        memset(block, 'z', sizeof block);
        EXPECT_EQ(r.rc, getVerInfo_fromCmdString(r.line.c_str(), block)) << r.line;
        EXPECT_EQ(r.items, slots(block)) << r.line;
        for (size_t i = 256; i < sizeof block; ++i) ASSERT_EQ('z', block[i]) << "past the block";
    }
}

TEST(Fields, VersionItemsAreLogged) {
    char block[256];
    ::testing::internal::CaptureStdout();
    getVerInfo_fromCmdString("a:,b:1,c:2,d:3,e:4,f:5,g:6#11&2\r\n", block);
    std::string log = ::testing::internal::GetCapturedStdout();
    EXPECT_THAT(log, HasSubstr("getVerInfo_fromCmdString:"));
    EXPECT_THAT(log, HasSubstr(": ver item 0 is NULL"));
    EXPECT_THAT(log, HasSubstr(": ver item 6 is 6"));
}

}  // namespace
