#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "atcmdprocess.h"
#include "fixtures/callback_sink.h"
#include "fixtures/child_process.h"
#include "fixtures/device.h"
#include "protocol/queue_probe.h"

namespace {

using atcmd_test::drain;
using atcmd_test::put;
using atcmd_test::queue_length;

struct Dispatch : ::testing::Test {
    atcmd_test::TestDevice dev;
    void SetUp() override { atcmd_test::drain_all(); }
    void TearDown() override { atcmd_test::drain_all(); }
};

AtCmder_t record(char *text, uint8_t type, uint8_t cmd_id, uint16_t seq, uint8_t flag,
                 uint8_t source = ATCMD_EP_MCU, uint8_t dest = 0) {
    AtCmder_t r;
    memset(&r, 0, sizeof r);
    r.type = type;
    r.cmd_id = cmd_id;
    r.seq_num = seq;
    r.flag = flag;
    r.source = source;
    r.dest = dest;
    r.data = text;
    return r;
}

TEST_F(Dispatch, PostParseRelaysFlagOneLinesWhileBridgingAndQueuesTheRest) {
    struct Row {
        const char *name;
        int platform, mode, flag, source, cmd_id;
        bool relayed;
        int dest;  // dest of the record afterwards (it starts at 0)
    } rows[] = {
        {"peer to MCU", 2, 1, 1, ATCMD_EP_MPHONE, 23, true, ATCMD_EP_MCU},
        {"MCU to peer", 2, 1, 1, ATCMD_EP_MCU, 23, true, ATCMD_EP_MPHONE},
        {"other source keeps dest", 2, 1, 1, ATCMD_EP_CLIENT, 23, true, 0},
        {"+DTR stays here", 2, 1, 1, ATCMD_EP_MCU, 34, false, 0},
        {"flag 2 on platform 2", 2, 1, 2, ATCMD_EP_MCU, 23, false, 0},
        {"not casting over WiFi", 2, 0, 1, ATCMD_EP_MCU, 23, false, 0},
        {"platform 1", 1, 1, 1, ATCMD_EP_MCU, 23, false, 0},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        dev.status().platform = r.platform;
        dev.status().mode = r.mode;
        char text[] = "+OK#5&1\r\n";
        AtCmder_t rec = record(text, ATCMD_TYPE_RESPONSE, static_cast<uint8_t>(r.cmd_id), 5,
                               static_cast<uint8_t>(r.flag), static_cast<uint8_t>(r.source));
        atcmder_post_parse_process(&rec);
        auto tx = drain(&Tx_head, &g_txqueue_mutex);
        auto rx = drain(&Rx_head, &g_rxqueue_mutex);
        ASSERT_EQ(r.relayed ? 1u : 0u, tx.size());
        ASSERT_EQ(r.relayed ? 0u : 1u, rx.size());
        const auto &got = r.relayed ? tx[0] : rx[0];
        EXPECT_EQ("+OK#5&1\r\n", got.text);
        EXPECT_EQ(r.dest, got.rec.dest);
        EXPECT_EQ(r.flag, got.rec.flag) << "a relayed line keeps its flag";
    }
}

TEST_F(Dispatch, PostParseWithoutADeviceQueuesLocally) {
    g_patcmd_dev = nullptr;
    char text[] = "+OK\r\n";
    AtCmder_t rec = record(text, ATCMD_TYPE_RESPONSE, 23, 0, 1);
    atcmder_post_parse_process(&rec);
    EXPECT_EQ(1u, drain(&Rx_head, &g_rxqueue_mutex).size());
    EXPECT_EQ(0, atcmder_dispatch(&rec));
}

// A response retires the waiting command only when it answers on this
// platform and carries a sequence number.
TEST_F(Dispatch, ResponsesRetireTheirCommandFromTheTimeoutQueue) {
    struct Row {
        const char *name;
        int type, seq, flag;
        size_t left;  // of the two entries with seq 7
    } rows[] = {
        {"matching response", ATCMD_TYPE_RESPONSE, 7, 1, 1},
        {"flag differs from platform", ATCMD_TYPE_RESPONSE, 7, 2, 2},
        {"no sequence number", ATCMD_TYPE_RESPONSE, 0, 1, 2},
        {"a query is no reply", ATCMD_TYPE_QUERY, 7, 1, 2},
        {"unsolicited report", ATCMD_TYPE_UNSOLICITED, 7, 1, 2},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        atcmd_test::drain_all();
        put(&Timeout_head, &g_timeoutqueue_mutex, "AT+VER?#7&1\r\n", 7);
        put(&Timeout_head, &g_timeoutqueue_mutex, "AT+SN?#7&1\r\n", 7);
        char text[] = "+OK\r\n";
        AtCmder_t rec = record(text, static_cast<uint8_t>(r.type), 23,
                               static_cast<uint16_t>(r.seq), static_cast<uint8_t>(r.flag));
        EXPECT_EQ(0, atcmder_dispatch(&rec));
        auto left = drain(&Timeout_head, &g_timeoutqueue_mutex);
        ASSERT_EQ(r.left, left.size());
        EXPECT_EQ("AT+SN?#7&1\r\n", left.back().text) << "the entry nearer the head goes first";
    }
}

TEST_F(Dispatch, OutOfRangeCommandIsSkipped) {
    put(&Timeout_head, &g_timeoutqueue_mutex, "AT+VER?#7&1\r\n", 7);
    char text[] = "+OK\r\n";
    AtCmder_t rec = record(text, ATCMD_TYPE_RESPONSE, ATCMD_NUM_CMDS, 7, 1);
    EXPECT_EQ(0, atcmder_dispatch(&rec));
    EXPECT_EQ(1u, queue_length(&Timeout_head, &g_timeoutqueue_mutex));
}

}  // namespace
