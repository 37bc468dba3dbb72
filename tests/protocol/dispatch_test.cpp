#include <gtest/gtest.h>

#include "atcmdprocess.h"
#include "core/queue.h"
#include "fixtures/child_process.h"
#include "fixtures/device.h"
#include "fixtures/queue_probe.h"
#include "harness/wait_until.h"
#include "protocol/dispatch.h"
#include "protocol/frame_parser.h"

namespace {

using atcmd_test::drain;
using atcmd_test::put;

TEST(Dispatch, PostParseRelaysLinkOneLinesWhileBridgingAndQueuesTheRest) {
    atcmd_test::TestDevice dev;
    const struct { int platform, mode; uint8_t flag, source, cmd_id; bool relayed; int dest; } rows[] = {
        {2, 1, 1, ATCMD_EP_MPHONE, 23, true, ATCMD_EP_MCU}, {2, 1, 1, ATCMD_EP_MCU, 23, true, ATCMD_EP_MPHONE},
        {2, 1, 1, ATCMD_EP_CLIENT, 23, true, 0},   // other sources keep dest
        {2, 1, 1, ATCMD_EP_MCU, 34, false, 0},     // "+DTR" is always for this side
        {2, 1, 2, ATCMD_EP_MCU, 23, false, 0},      {2, 0, 1, ATCMD_EP_MCU, 23, false, 0},
        {1, 1, 1, ATCMD_EP_MCU, 23, false, 0},      {0, 0, 1, ATCMD_EP_MCU, 23, false, -1}};  // -1: no device
    for (const auto &r : rows) {
        dev.status().platform = r.platform;
        dev.status().mode = r.mode;
        atcmd::install_device(r.dest < 0 ? nullptr : dev.get());
        char text[] = "+OK#5&1\r\n";
        AtCmder_t rec{0, r.source, 0, r.flag, 0, r.cmd_id, 0, 0, 0, text};
        atcmder_post_parse_process(&rec);
        auto tx = drain(&Tx_head, &g_txqueue_mutex);
        auto rx = drain(&Rx_head, &g_rxqueue_mutex);
        ASSERT_EQ(r.relayed ? 1u : 0u, tx.size()) << r.platform << r.mode << +r.flag << +r.source << +r.cmd_id;
        ASSERT_EQ(r.relayed ? 0u : 1u, rx.size());
        const auto &got = r.relayed ? tx[0] : rx[0];
        EXPECT_EQ("+OK#5&1\r\n", got.text);
        EXPECT_EQ(r.dest < 0 ? 0 : r.dest, got.rec.dest);
    }
}

bool waiting(uint16_t seq) {
    pthread_mutex_lock(&g_timeoutqueue_mutex);
    atcmder_node_t *n = Timeout_head.tqh_first;
    while (n != nullptr && n->cmd.seq_num != seq) n = n->link.tqe_next;
    pthread_mutex_unlock(&g_timeoutqueue_mutex);
    return n != nullptr;
}

// Lines reach the dispatch thread in order, so once the marker reply (seq 9)
// has retired its entry, every line before it has been handled. Of the seq 7
// lines only the reply on this platform's link retires an entry: the first.
TEST(DispatchThread, OnlyAMatchingReplyOnThisPlatformRetiresExactlyOneEntry) {
    EXPECT_CHILD_PASSES([] {
        atcmd_test::TestDevice dev;  // platform 1
        pthread_t t;
        ASSERT_EQ(0, pthread_create(&t, nullptr, atcmder_dispatch_thread, nullptr));
        put(&Timeout_head, &g_timeoutqueue_mutex, "AT+VER?#7&1\r\n", 7);
        put(&Timeout_head, &g_timeoutqueue_mutex, "AT+SN?#7&1\r\n", 7);
        put(&Timeout_head, &g_timeoutqueue_mutex, "AT+BAT?#9&1\r\n", 9);
        char text[ATCMD_TEXT_MAX];
        AtCmder_t scratch{};
        scratch.data = text;
        cmd_Parse_from_buffer(&scratch, "+VER=a:1#7&2\r\nAT+VER?#7&1\r\n+BATCG=1#7&1\r\n"
                                        "+VER=a:1#7&1\r\n+OK#9&1\r\n");
        ASSERT_TRUE(atcmd_harness::wait_until([] { return !waiting(9); }));
        auto left = drain(&Timeout_head, &g_timeoutqueue_mutex);
        ASSERT_EQ(1u, left.size());
        EXPECT_EQ("AT+SN?#7&1\r\n", left[0].text);
    });
}

}  // namespace
