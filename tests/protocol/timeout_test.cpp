#include <gtest/gtest.h>

#include "atcmdprocess.h"
#include "core/queue.h"
#include "fixtures/callback_sink.h"
#include "fixtures/device.h"
#include "fixtures/queue_probe.h"
#include "protocol/elapsed.h"
#include "protocol/timeout.h"

namespace {

using atcmd_test::CallbackSink;
using atcmd_test::drain;
using atcmd_test::put;

TEST(Timeout, LateCommandsAreResentByTheXorFigure) {
    atcmd_test::TestDevice dev;
    // E = (seconds apart * 10) XOR (microseconds apart + 6), so a plain difference
    // gets the last two rows wrong both ways.
    const struct { uint64_t limit; int64_t sent_s, sent_us, now_s, now_us; uint64_t e; bool resent; } rows[] = {
        {100000, 100, 200000, 100, 300000, 100006, true},
        {100000, 100, 200000, 100, 299990, 99996, false},
        {400000, 100, 900000, 101, 100, 10u ^ static_cast<uint64_t>(-899894), true},
        {100000, 100, 0, 101, 50000, 50012, false},  // 1.05 s late: 10 XOR 50006, E small
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.e);
        EXPECT_EQ(r.e, atcmd::elapsed_figure(r.now_s, r.now_us, r.sent_s, r.sent_us));
        g_timeout = r.limit;
        put(&Timeout_head, &g_timeoutqueue_mutex, "AT+VER?#11&1\r\n", 11, r.sent_s, r.sent_us);
        pthread_mutex_lock(&g_timeoutqueue_mutex);
        atcmd::timeout_scan_locked(r.now_s, r.now_us);
        pthread_mutex_unlock(&g_timeoutqueue_mutex);
        auto tx = drain(&Tx_head, &g_txqueue_mutex);
        EXPECT_EQ(r.resent ? 0u : 1u, drain(&Timeout_head, &g_timeoutqueue_mutex).size());
        ASSERT_EQ(r.resent ? 1u : 0u, tx.size());
        for (const auto &copy : tx) EXPECT_EQ("AT+VER?#11&1\r\n", copy.text);
    }
    EXPECT_TRUE(CallbackSink::messages().empty());
}

TEST(Timeout, LimitFollowsPlatformAndModeAndNoticesNeedACallback) {
    atcmd_test::TestDevice dev;
    const struct { int platform, mode; uint64_t limit; } rows[] = {
        {1, 1, 400000}, {1, 0, 100000}, {1, -1, 100000}, {2, 1, 100000}};
    for (const auto &r : rows) {
        dev.status().platform = r.platform;
        dev.status().mode = r.mode;
        Init_TimeoutPara();
        EXPECT_EQ(r.limit, g_timeout) << r.platform << "/" << r.mode;
    }
    AtCmder_t cmd{};  // without a callback or a device the notice is dropped
    dev.get()->notify_callback = nullptr;
    notifytimeout(&cmd);
    atcmd::install_device(nullptr);
    notifytimeout(&cmd);
    Init_TimeoutPara();
    EXPECT_EQ(100000u, g_timeout) << "no device: unchanged";
}

// Sent, then resent twice, each copy queued again with its new send time as
// the transmit thread queues it; then reported once and dropped. An entry
// without text goes at the first scan, without a notice.
TEST(Timeout, UnansweredCommandIsSentThreeTimesThenReportedOnce) {
    atcmd_test::TestDevice dev;
    g_timeout = 100000;
    auto scan_half_a_second_later = [](int64_t sent_s) {
        pthread_mutex_lock(&g_timeoutqueue_mutex);
        atcmd::timeout_scan_locked(sent_s, 500000);
        pthread_mutex_unlock(&g_timeoutqueue_mutex);
    };
    int64_t sec = 100;
    put(&Timeout_head, &g_timeoutqueue_mutex, "", 5, sec, 0);
    put(&Timeout_head, &g_timeoutqueue_mutex, "AT+VER?#11&1\r\n", 11, sec, 0);
    for (uint8_t n = 1; n <= 2; ++n) {
        scan_half_a_second_later(sec);
        auto tx = drain(&Tx_head, &g_txqueue_mutex);
        ASSERT_EQ(1u, tx.size()) << "resend " << int(n);
        EXPECT_EQ("AT+VER?#11&1\r\n", tx[0].text);
        EXPECT_EQ(n, tx[0].rec.resendtimes);
        EXPECT_EQ(1, atcmder_empty_queue(&Timeout_head, &g_timeoutqueue_mutex));
        put(&Timeout_head, &g_timeoutqueue_mutex, tx[0].text.c_str(), 11, ++sec, 0, n);
    }
    scan_half_a_second_later(sec);
    EXPECT_TRUE(drain(&Tx_head, &g_txqueue_mutex).empty()) << "nothing is sent after the report";
    EXPECT_EQ(1, atcmder_empty_queue(&Timeout_head, &g_timeoutqueue_mutex));
    auto msgs = CallbackSink::messages();
    ASSERT_EQ(1u, msgs.size());
    EXPECT_EQ(ATCMD_ID_ERROR, msgs[0].cmd_id);
    EXPECT_EQ(11, msgs[0].seq_num);
    EXPECT_EQ(ATCMD_ERR_REPLY_TIMEOUT, msgs[0].i32[0]);
}

}  // namespace
