#include <gtest/gtest.h>
#include <errno.h>
#include <pthread.h>
#include <string.h>

#include <string>
#include <thread>
#include <vector>

#include "atcmdprocess.h"

namespace {

struct Q : ::testing::Test {
    atcmder_queue_t head;
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    void SetUp() override { atcmder_queue_init(&head); }
    void TearDown() override { atcmder_queue_exit(&head, &lock); }

    unsigned push(const char *text, uint16_t seq = 0) {
        AtCmder_t rec{};
        rec.seq_num = seq;
        rec.data = const_cast<char *>(text);
        return atcmder_enqueue(&head, &lock, &rec);
    }
    bool lock_is_free() {
        if (pthread_mutex_trylock(&lock) != 0) return false;
        pthread_mutex_unlock(&lock);
        return true;
    }
};

TEST_F(Q, FirstInFirstOutWithFieldsAndOwnCopyOfText) {
    char text[32] = "AT+VER?#11&1\r\n";
    AtCmder_t rec{};
    rec.type = 3;
    rec.source = 2;
    rec.dest = 3;
    rec.flag = 1;
    rec.resendtimes = 1;
    rec.cmd_id = 11;
    rec.seq_num = 11;
    rec.tv_sec = 1700000000;
    rec.tv_usec = 7;
    rec.data = text;
    ASSERT_EQ(0u, atcmder_enqueue(&head, &lock, &rec));
    strcpy(text, "overwritten");  // the queue must have taken a copy
    ASSERT_EQ(0u, push("+OK\r\n"));
    EXPECT_EQ(0, atcmder_empty_queue(&head, &lock));

    char buf[ATCMD_TEXT_MAX];
    AtCmder_t out{};
    out.data = buf;
    ASSERT_EQ(0u, atcmder_dequeue(&head, &lock, &out));
    EXPECT_EQ(buf, out.data) << "dequeue must not move the caller's data pointer";
    EXPECT_STREQ("AT+VER?#11&1\r\n", buf);
    EXPECT_EQ(3, out.type);
    EXPECT_EQ(2, out.source);
    EXPECT_EQ(3, out.dest);
    EXPECT_EQ(1, out.flag);
    EXPECT_EQ(1, out.resendtimes);
    EXPECT_EQ(11, out.cmd_id);
    EXPECT_EQ(11, out.seq_num);
    EXPECT_EQ(1700000000, out.tv_sec);
    EXPECT_EQ(7, out.tv_usec);

    ASSERT_EQ(0u, atcmder_dequeue(&head, &lock, &out));
    EXPECT_STREQ("+OK\r\n", buf);
    EXPECT_EQ(9u, atcmder_dequeue(&head, &lock, &out));
    EXPECT_TRUE(lock_is_free()) << "an empty dequeue releases the lock";
    EXPECT_EQ(1, atcmder_empty_queue(&head, &lock));
    EXPECT_EQ(&head.tqh_first, head.tqh_last);
}

TEST_F(Q, NullArgumentsAreRefusedAndLeaveTheQueueAlone) {
    AtCmder_t rec{};
    EXPECT_EQ(6u, atcmder_enqueue(&head, &lock, &rec));  // data NULL
    EXPECT_EQ(6u, atcmder_enqueue(&head, &lock, nullptr));
    EXPECT_EQ(1, atcmder_empty_queue(&head, &lock));

    ASSERT_EQ(0u, push("+OK\r\n"));
    AtCmder_t out{};
    EXPECT_EQ(6u, atcmder_dequeue(&head, &lock, &out));  // out.data NULL
    EXPECT_EQ(6u, atcmder_dequeue(&head, &lock, nullptr));
    EXPECT_EQ(0, atcmder_empty_queue(&head, &lock));
    EXPECT_TRUE(lock_is_free());
}

TEST_F(Q, EmptyTextIsDroppedAndTheLockStaysHeld) {
    ASSERT_EQ(0u, push(""));
    ASSERT_EQ(0u, push("+OK\r\n"));
    char buf[ATCMD_TEXT_MAX] = "untouched";
    AtCmder_t out{};
    out.data = buf;
    EXPECT_EQ(9u, atcmder_dequeue(&head, &lock, &out));
    EXPECT_STREQ("untouched", buf);
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(&lock));
    // The "+OK" record is still queued behind the dropped one.
    EXPECT_NE(nullptr, head.tqh_first);
    EXPECT_STREQ("+OK\r\n", head.tqh_first->text);
    pthread_mutex_unlock(&lock);
}

TEST_F(Q, TextsOf160To176CharactersDoNotDamageTheQueue) {
    for (size_t len : {159u, 160u, 170u, 176u}) {
        std::string text(len, 'x');
        ASSERT_EQ(0u, push(text.c_str(), static_cast<uint16_t>(len))) << len;
    }
    ASSERT_EQ(0u, push("+OK\r\n", 1));
    char buf[ATCMD_TEXT_MAX];
    AtCmder_t out{};
    out.data = buf;
    for (size_t len : {159u, 160u, 170u, 176u}) {
        ASSERT_EQ(0u, atcmder_dequeue(&head, &lock, &out)) << len;
        EXPECT_EQ(len, out.seq_num);
        EXPECT_EQ(std::string(159, 'x'), buf) << "over-long texts keep what fits";
    }
    ASSERT_EQ(0u, atcmder_dequeue(&head, &lock, &out));
    EXPECT_STREQ("+OK\r\n", buf);
    EXPECT_EQ(1, atcmder_empty_queue(&head, &lock));
}

TEST_F(Q, TextOver176CharactersAbortsLikeAFortifiedCopy) {
    std::string text(177, 'x');
    EXPECT_DEATH(push(text.c_str()), "buffer overflow detected");
}

TEST_F(Q, ExitFreesEveryNodeUnderTheGivenLock) {
    for (int i = 0; i < 10; ++i) ASSERT_EQ(0u, push("+OK\r\n"));
    pthread_mutex_t other = PTHREAD_MUTEX_INITIALIZER;
    EXPECT_EQ(0u, atcmder_queue_exit(&head, &other));
    EXPECT_EQ(1, atcmder_empty_queue(&head, &lock));
    EXPECT_EQ(&head.tqh_first, head.tqh_last);
    ASSERT_EQ(0u, push("+OK\r\n"));  // still usable afterwards
}

TEST_F(Q, ManyProducersKeepTheirOwnOrderAndLoseNothing) {
    constexpr int kProducers = 4;
    constexpr int kEach = 500;
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([this, p] {
            for (int i = 0; i < kEach; ++i) {
                char text[32];
                snprintf(text, sizeof text, "+P=%d,%d\r\n", p, i);
                AtCmder_t rec{};
                rec.source = static_cast<uint8_t>(p);
                rec.seq_num = static_cast<uint16_t>(i);
                rec.data = text;
                ASSERT_EQ(0u, atcmder_enqueue(&head, &lock, &rec));
            }
        });
    }
    int next[kProducers] = {};
    int taken = 0;
    char buf[ATCMD_TEXT_MAX];
    AtCmder_t out{};
    out.data = buf;
    while (taken < kProducers * kEach) {
        unsigned r = atcmder_dequeue(&head, &lock, &out);
        if (r == 9) {
            std::this_thread::yield();
            continue;
        }
        ASSERT_EQ(0u, r);
        ASSERT_LT(out.source, kProducers);
        ASSERT_EQ(next[out.source], out.seq_num);
        char expect[32];
        snprintf(expect, sizeof expect, "+P=%d,%d\r\n", out.source, out.seq_num);
        ASSERT_STREQ(expect, buf);
        ++next[out.source];
        ++taken;
    }
    for (auto &t : producers) t.join();
    EXPECT_EQ(1, atcmder_empty_queue(&head, &lock));
}

}  // namespace
