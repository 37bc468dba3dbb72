// describe() against a stand-in table: a client links no module code.
#include <gtest/gtest.h>

#include <utility>

#include "client/message.h"

namespace {

const int32_t kBat[6] = {85, 1, 3900, 250, 1, 0}, kHall[3] = {1, -2, 3}, kHrm[2] = {365, 1};
const int32_t kState[1] = {2}, kUsb[2] = {1, 3}, kTimedOut[2] = {-110, 0}, kNoUart[2] = {-6, 0};
const int64_t kMcuError = 3, kWide = 5000000000 /* past 32 bits */, kAny = 7;

TEST(Decode, DescribesEachPayloadKind) {
    at_cmd_t table[ATCMD_NUM_CMDS] = {};
    const std::pair<int, const char *> names[] = {
        {ATCMD_ID_SHUTDOWN, "+SHUTDOWN"}, {ATCMD_ID_BAT, "+BAT"},     {ATCMD_ID_STATE, "+STATE"},
        {ATCMD_ID_HALL, "+HALL"},         {ATCMD_ID_SN, "+SN"},       {ATCMD_ID_USBSTATE, "+USBSTATE"},
        {ATCMD_ID_WIFICON, "+WIFICON"},   {ATCMD_ID_ERROR, "+ERROR"}, {ATCMD_ID_HRM, "+HRM"}};
    for (const auto &n : names) table[n.first].name = n.second;
    const struct {
        uint16_t cmd_id, seq_num;
        const void *data;
        const char *want;
    } rows[] = {
        {ATCMD_ID_SN, 13, "KV5816A00123", "+SN (13) seq 13: \"KV5816A00123\""},
        {ATCMD_ID_SN, 1, "A\"b\r\n", "+SN (13) seq 1: \"A\\\"b\\r\\n\""},
        {ATCMD_ID_BAT, 9, kBat, "+BAT (9) seq 9: 85,1,3900,250,1,0"},
        {ATCMD_ID_HALL, 0, kHall, "+HALL (12) seq 0: 1,-2,3"},
        {ATCMD_ID_HRM, 4, kHrm, "+HRM (33) seq 4: 365,1"},
        {ATCMD_ID_STATE, 0, kState, "+STATE (10) seq 0: 2"},
        {ATCMD_ID_USBSTATE, 0, kUsb, "+USBSTATE (16) seq 0: connected=1 devinfo=3"},
        {ATCMD_ID_ERROR, 13, kTimedOut, "+ERROR (24) seq 13: -110 (reply timed out)"},
        {ATCMD_ID_ERROR, 0, kNoUart, "+ERROR (24) seq 0: -6 (UART does not work)"},
        {ATCMD_ID_ERROR, 5, &kMcuError, "+ERROR (24) seq 5: 3"},
        {ATCMD_ID_WIFICON, 0, &kWide, "+WIFICON (18) seq 0: 5000000000"},
        {ATCMD_ID_SHUTDOWN, 0, &kAny, "+SHUTDOWN (3) seq 0"},
        {ATCMD_ID_SN, 2, nullptr, "+SN (13) seq 2"},
        {57, 1, &kAny, "row 57 seq 1"},
    };
    for (const auto &r : rows) {
        AT_CMD_CbMsg_t msg{r.cmd_id, r.seq_num, const_cast<void *>(r.data)};
        EXPECT_EQ(atcmd_client::describe(msg, table), r.want);
    }
}

}  // namespace
