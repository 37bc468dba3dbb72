#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/time.h>

#include <string>

#include "atcmdprocess.h"
#include "fixtures/callback_sink.h"
#include "fixtures/child_process.h"
#include "fixtures/device.h"
#include "protocol/elapsed.h"
#include "fixtures/queue_probe.h"
#include "protocol/timeout.h"

namespace {

using atcmd_test::CallbackSink;
using atcmd_test::drain;
using atcmd_test::put;
using ::testing::HasSubstr;

struct Timeout : ::testing::Test {
    atcmd_test::TestDevice dev;
    void SetUp() override { atcmd_test::drain_all(); }
    void TearDown() override { atcmd_test::drain_all(); }
    void scan(int64_t sec, int64_t usec) {
        pthread_mutex_lock(&g_timeoutqueue_mutex);
        atcmd::timeout_scan_locked(sec, usec);
        pthread_mutex_unlock(&g_timeoutqueue_mutex);
    }
};

TEST_F(Timeout, LateCommandsAreResentByTheXorFigure) {
    const struct { uint64_t limit; int64_t sent_s, sent_us, now_s, now_us; uint64_t e; bool resent; } rows[] = {
        {100000, 100, 200000, 100, 300000, 100006, true},
        {100000, 100, 200000, 100, 299990, 99996, false},
        {50000, 100, 200000, 100, 250000, 50006, true},
        {50000, 100, 200000, 100, 249990, 49996, false},
        {400000, 100, 900000, 101, 100, 10u ^ static_cast<uint64_t>(-899894), true},
        {100000, 100, 0, 101, 50000, 50012, false},  // 10 XOR 50006: 1.05 s late, E small
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.e);
        EXPECT_EQ(r.e, atcmd::elapsed_figure(r.now_s, r.now_us, r.sent_s, r.sent_us));
        g_timeout = r.limit;
        put(&Timeout_head, &g_timeoutqueue_mutex, "AT+VER?#11&1\r\n", 11, r.sent_s, r.sent_us);
        scan(r.now_s, r.now_us);
        auto tx = drain(&Tx_head, &g_txqueue_mutex);
        auto waiting = drain(&Timeout_head, &g_timeoutqueue_mutex);
        ASSERT_EQ(r.resent ? 1u : 0u, tx.size());
        EXPECT_EQ(r.resent ? 0u : 1u, waiting.size());
        for (const auto &copy : tx) {
            EXPECT_EQ("AT+VER?#11&1\r\n", copy.text);
            EXPECT_EQ(1, copy.rec.resendtimes);
        }
    }
    EXPECT_TRUE(CallbackSink::messages().empty());
}

TEST_F(Timeout, LimitFollowsPlatformAndMode) {
    const struct { int platform, mode; uint64_t limit; } rows[] = {
        {1, 1, 400000}, {1, 0, 100000}, {1, -1, 100000}, {2, 1, 100000}};
    EXPECT_EQ(50000u, g_timeout) << "before start-up";
    for (const auto &r : rows) {
        dev.status().platform = r.platform;
        dev.status().mode = r.mode;
        Init_TimeoutPara();
        EXPECT_EQ(r.limit, g_timeout) << r.platform << "/" << r.mode;
    }
    g_patcmd_dev = nullptr;
    Init_TimeoutPara();
    EXPECT_EQ(100000u, g_timeout) << "no device: unchanged";
}

TEST_F(Timeout, UartNoticeAndAMissingCallback) {
    ::testing::internal::CaptureStdout();
    notifyUartNotWork();
    std::string log = ::testing::internal::GetCapturedStdout();
    EXPECT_THAT(log, HasSubstr("]notifyUartNotWork:"));
    EXPECT_THAT(log, HasSubstr(": uart does not work"));
    auto msgs = CallbackSink::messages();
    ASSERT_EQ(1u, msgs.size());
    EXPECT_EQ(24, msgs[0].cmd_id);
    EXPECT_EQ(0, msgs[0].seq_num);
    EXPECT_EQ(-6, msgs[0].i32[0]);

    AtCmder_t cmd{};
    cmd.data = const_cast<char *>("AT+VER?#11&1\r\n");
    dev.get()->notify_callback = nullptr;  // dropped with a log line, no crash
    notifytimeout(&cmd);
    notifyUartNotWork();
    g_patcmd_dev = nullptr;
    notifytimeout(&cmd);
    notifyUartNotWork();
    EXPECT_EQ(1u, CallbackSink::messages().size());
}

// Plays the transmit thread: takes the next record off Tx_head, waiting on
// its condition with a deadline.
bool next_tx(atcmd_test::Taken *out, int timeout_ms) {
    for (int waited = 0; waited < timeout_ms; waited += 50) {
        auto got = drain(&Tx_head, &g_txqueue_mutex);
        if (!got.empty()) {
            EXPECT_EQ(1u, got.size());
            *out = got[0];
            return true;
        }
        struct timespec ts;
        clock_gettime(CLOCK_REALTIME, &ts);
        ts.tv_nsec += 50 * 1000000L;
        if (ts.tv_nsec >= 1000000000L) ts.tv_sec++, ts.tv_nsec -= 1000000000L;
        pthread_mutex_lock(&txbuffer_Mutex);
        pthread_cond_timedwait(&txbuffer_notempty, &txbuffer_Mutex, &ts);
        pthread_mutex_unlock(&txbuffer_Mutex);
    }
    return false;
}

void put_stamped(const char *text, uint16_t seq, uint8_t resendtimes) {
    struct timeval now;
    gettimeofday(&now, nullptr);
    put(&Timeout_head, &g_timeoutqueue_mutex, text, seq, now.tv_sec, now.tv_usec, resendtimes);
    pthread_cond_signal(&timeoutbuffer_notempty);
}

TEST(TimeoutThread, UnansweredCommandIsSentThreeTimesThenReportedOnce) {
    EXPECT_CHILD_PASSES([] {
        atcmd_test::TestDevice dev;
        g_timeout = 100000;
        pthread_t t;
        ASSERT_EQ(0, pthread_create(&t, nullptr, atcmder_Timeout_thread, nullptr));
        put_stamped("", 5, 0);  // dropped at the first scan, without notice
        put_stamped("AT+VER?#11&1\r\n", 11, 0);
        for (uint8_t n = 1; n <= 2; ++n) {
            atcmd_test::Taken resent;
            ASSERT_TRUE(next_tx(&resent, 5000)) << "resend " << int(n);
            EXPECT_EQ("AT+VER?#11&1\r\n", resent.text);
            EXPECT_EQ(n, resent.rec.resendtimes);
            put_stamped(resent.text.c_str(), resent.rec.seq_num, resent.rec.resendtimes);
        }
        ASSERT_TRUE(CallbackSink::wait_for(1, 5000));
        atcmd_test::Taken extra;
        EXPECT_FALSE(next_tx(&extra, 500)) << "nothing is sent after the report";
        EXPECT_FALSE(CallbackSink::wait_for(2, 300));
        auto msgs = CallbackSink::messages();
        ASSERT_EQ(1u, msgs.size());
        EXPECT_EQ(24, msgs[0].cmd_id);
        EXPECT_EQ(11, msgs[0].seq_num);
        EXPECT_EQ(-110, msgs[0].i32[0]);
        EXPECT_EQ(1, atcmder_empty_queue(&Timeout_head, &g_timeoutqueue_mutex));
    });
}

}  // namespace
