// Test helpers for the module's global queues.
#ifndef ATCMD_TESTS_PROTOCOL_QUEUE_PROBE_H
#define ATCMD_TESTS_PROTOCOL_QUEUE_PROBE_H

#include <string.h>

#include <string>
#include <vector>

#include "atcmdprocess.h"

namespace atcmd_test {

struct Taken {
    AtCmder_t rec;  // rec.data is cleared; the text is in text
    std::string text;
};

// Takes every record off the queue, in order.
inline std::vector<Taken> drain(atcmder_queue_t *head, pthread_mutex_t *lock) {
    std::vector<Taken> out;
    char buf[ATCMD_TEXT_MAX];
    AtCmder_t rec{};
    rec.data = buf;
    while (atcmder_dequeue(head, lock, &rec) == ATCMD_Q_OK) {
        out.push_back({rec, buf});
        out.back().rec.data = nullptr;
    }
    return out;
}

inline void put(atcmder_queue_t *head, pthread_mutex_t *lock, const char *text, uint16_t seq,
                int64_t sec = 0, int64_t usec = 0, uint8_t resendtimes = 0) {
    AtCmder_t rec{};
    rec.type = ATCMD_TYPE_QUERY;
    rec.seq_num = seq;
    rec.tv_sec = sec;
    rec.tv_usec = usec;
    rec.resendtimes = resendtimes;
    rec.data = const_cast<char *>(text);
    atcmder_enqueue(head, lock, &rec);
}

inline void drain_all() {
    atcmder_queue_exit(&Rx_head, &g_rxqueue_mutex);
    atcmder_queue_exit(&Tx_head, &g_txqueue_mutex);
    atcmder_queue_exit(&Timeout_head, &g_timeoutqueue_mutex);
}

}  // namespace atcmd_test

#endif
