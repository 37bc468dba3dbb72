// The queues as the module's own threads use them: each queue with its
// wake-up condition, the producer's one step (enqueue, then wake the
// consumer) and the consumer's sleep.
#ifndef ATCMD_CORE_QUEUE_H
#define ATCMD_CORE_QUEUE_H

#include "atcmdprocess.h"

namespace atcmd {

struct QueueRef {
    atcmder_queue_t *head;
    pthread_mutex_t *lock;       // guards the list
    pthread_cond_t *not_empty;   // signalled by producers
    pthread_mutex_t *wait_lock;  // held by the consumer around its wait only
};

inline constexpr QueueRef kRxQueue = {&Rx_head, &g_rxqueue_mutex, &rxbuffer_notempty,
                                      &rxbuffer_Mutex};
inline constexpr QueueRef kTxQueue = {&Tx_head, &g_txqueue_mutex, &txbuffer_notempty,
                                      &txbuffer_Mutex};
inline constexpr QueueRef kTimeoutQueue = {&Timeout_head, &g_timeoutqueue_mutex,
                                           &timeoutbuffer_notempty, &timeoutbuffer_Mutex};

// Copies rec onto q and wakes its consumer, without the consumer's lock.
// Everything the module sends goes through this with kTxQueue. Returns what
// waking the consumer returned, which the senders hand on; a refused record
// (no text) is logged by the queue.
int queue_put(const QueueRef &q, const AtCmder_t *rec);

// A consumer's sleep: holds wait_lock (never the queue lock) and waits on
// not_empty while the queue is empty. Producers signal without wait_lock, so
// a wake-up between the test and the wait is lost until the next one; the
// consumers have always accepted that.
void queue_wait_not_empty(const QueueRef &q);

// List surgery for the threads that walk a queue themselves (the timeout
// scan and its retirement of answered commands). Both expect the queue's
// lock to be held.
void queue_insert_tail_locked(atcmder_queue_t *head, atcmder_node_t *node);
void queue_remove_locked(atcmder_queue_t *head, atcmder_node_t *node);

}  // namespace atcmd

#endif
