#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <string>
#include <thread>
#include <vector>

#include "atcmdprocess.h"
#include "core/queue.h"

namespace {

struct Q : ::testing::Test {
    atcmder_queue_t head;
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    char buf[ATCMD_TEXT_MAX];
    AtCmder_t out{};
    void SetUp() override {
        atcmder_queue_init(&head);
        out.data = buf;
    }
    void TearDown() override { atcmder_queue_exit(&head, &lock); }

    unsigned push(const char *text, uint16_t seq = 0, uint8_t source = 0) {
        AtCmder_t rec{};
        rec.seq_num = seq;
        rec.source = source;
        rec.data = const_cast<char *>(text);
        return atcmder_enqueue(&head, &lock, &rec);
    }
    unsigned pop() { return atcmder_dequeue(&head, &lock, &out); }
};

TEST_F(Q, CopiesRecordAndTextInOrderAndRefusesNullArguments) {
    char text[32] = "AT+VER?#11&1\r\n";
    AtCmder_t rec{3, 2, 3, 1, 1, 11, 11, 1700000000, 7, text};
    ASSERT_EQ(ATCMD_Q_OK, atcmder_enqueue(&head, &lock, &rec));
    text[0] = 'X';  // the queue holds its own copy
    ASSERT_EQ(ATCMD_Q_OK, push("+OK\r\n"));
    AtCmder_t no_text{};
    EXPECT_EQ(ATCMD_Q_NULL, atcmder_enqueue(&head, &lock, &no_text));
    EXPECT_EQ(ATCMD_Q_NULL, atcmder_dequeue(&head, &lock, &no_text));

    ASSERT_EQ(ATCMD_Q_OK, pop());
    EXPECT_EQ(buf, out.data) << "dequeue writes into the caller's buffer";
    EXPECT_STREQ("AT+VER?#11&1\r\n", buf);
    EXPECT_EQ(0, memcmp(&rec, &out, offsetof(AtCmder_t, data)));
    ASSERT_EQ(ATCMD_Q_OK, pop());
    EXPECT_STREQ("+OK\r\n", buf);
    EXPECT_EQ(ATCMD_Q_NONE, pop());
    EXPECT_EQ(0, pthread_mutex_trylock(&lock)) << "an empty dequeue releases the lock";
    pthread_mutex_unlock(&lock);
    EXPECT_EQ(1, atcmder_empty_queue(&head, &lock));
}

TEST_F(Q, EmptyTextIsDroppedAndTheLockStaysHeld) {
    ASSERT_EQ(ATCMD_Q_OK, push(""));
    ASSERT_EQ(ATCMD_Q_OK, push("+OK\r\n"));
    EXPECT_EQ(ATCMD_Q_NONE, pop());
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(&lock));
    ASSERT_NE(nullptr, head.tqh_first);
    EXPECT_STREQ("+OK\r\n", head.tqh_first->text);
    pthread_mutex_unlock(&lock);
}

TEST_F(Q, OverLongTextsAreCutOrAbortButNeverDamageTheQueue) {
    for (size_t len : {160u, 176u}) ASSERT_EQ(ATCMD_Q_OK, push(std::string(len, 'x').c_str()));
    ASSERT_EQ(ATCMD_Q_OK, push("+OK\r\n"));
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(ATCMD_Q_OK, pop());
        EXPECT_EQ(std::string(159, 'x'), buf);
    }
    ASSERT_EQ(ATCMD_Q_OK, pop());
    EXPECT_STREQ("+OK\r\n", buf);
    EXPECT_DEATH(push(std::string(177, 'x').c_str()), "buffer overflow detected");
}

TEST_F(Q, ConcurrentProducersKeepTheirOrderAndLoseNothing) {
    constexpr int kProducers = 4, kEach = 500;
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p)
        producers.emplace_back([this, p] {
            for (int i = 0; i < kEach; ++i) {
                std::string text = "+P=" + std::to_string(p) + "," + std::to_string(i) + "\r\n";
                ASSERT_EQ(ATCMD_Q_OK, push(text.c_str(), static_cast<uint16_t>(i), static_cast<uint8_t>(p)));
            }
        });
    int next[kProducers] = {};
    for (int taken = 0; taken < kProducers * kEach;) {
        if (pop() != 0) continue;
        ASSERT_LT(out.source, kProducers);
        ASSERT_EQ(next[out.source]++, out.seq_num);
        ASSERT_EQ("+P=" + std::to_string(out.source) + "," + std::to_string(out.seq_num) + "\r\n",
                  std::string(buf));
        ++taken;
    }
    for (auto &t : producers) t.join();
    EXPECT_EQ(1, atcmder_empty_queue(&head, &lock));
}

}  // namespace
