#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "atcmdprocess.h"
#include "fixtures/callback_sink.h"
#include "fixtures/device.h"

namespace {

using atcmd_test::CallbackSink;

std::string take_tx(AtCmder_t *out, char *buf) {
    out->data = buf;
    if (atcmder_dequeue(&Tx_head, &g_txqueue_mutex, out) != 0) return "<none>";
    return buf;
}

TEST(WifiStateReport, ClientHearsItAfterAPauseAndPlatform2TellsTheAccessory) {
    atcmd_test::TestDevice dev;
    atcmder_queue_init(&Tx_head);

    auto start = std::chrono::steady_clock::now();
    notify_wifi_state(1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
    ASSERT_EQ(1u, CallbackSink::messages().size());
    EXPECT_EQ(18, CallbackSink::messages()[0].cmd_id);
    EXPECT_EQ(1, CallbackSink::messages()[0].i64);
    EXPECT_EQ(1, atcmder_empty_queue(&Tx_head, &g_txqueue_mutex)) << "platform 1 sends nothing";

    dev.status().platform = 2;
    struct Row {
        int64_t state;
        const char *line;
    } rows[] = {{1, "AT+WIFICON=1#18&2\r\n"}, {0, "AT+WIFICON=0#18&2\r\n"}, {5, "18&2\r\n"}};
    for (const Row &r : rows) {
        notify_wifi_state(r.state);
        AtCmder_t out = {};
        char buf[ATCMD_TEXT_MAX];
        EXPECT_EQ(r.line, take_tx(&out, buf));
        EXPECT_EQ(ATCMD_TYPE_SET, out.type);
        EXPECT_EQ(ATCMD_EP_MCU, out.dest);
        EXPECT_EQ(18, out.cmd_id);
        EXPECT_EQ(18, out.seq_num);
        EXPECT_EQ(2, out.flag);
        EXPECT_EQ(r.state, CallbackSink::messages().back().i64);
    }
}

}  // namespace
