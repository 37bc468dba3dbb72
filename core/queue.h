// The queues as the module's own threads use them: each queue with its
// wake-up condition, the producer's one step (enqueue, then wake the
// consumer) and the consumer's sleep.
#ifndef ATCMD_CORE_QUEUE_H
#define ATCMD_CORE_QUEUE_H

#include "atcmdprocess.h"
#include <pthread.h>

extern "C" {

/* Queue results. */
#define ATCMD_Q_OK 0
#define ATCMD_Q_NULL 6
#define ATCMD_Q_NOMEM 7
#define ATCMD_Q_NONE 9

/* A queue node owns a copy of the record and of its text. 208 bytes on LP64,
 * 200 on 32-bit ARM. */
typedef struct atcmder_node {
    AtCmder_t cmd; /* cmd.data points at text below */
    char text[ATCMD_TEXT_MAX];
    struct {
        struct atcmder_node *tqe_next;
        struct atcmder_node **tqe_prev;
    } link;
} atcmder_node_t;

/* Tail queue head: an empty head has tqh_first NULL and tqh_last == &tqh_first. */
typedef struct atcmder_queue {
    atcmder_node_t *tqh_first;
    atcmder_node_t **tqh_last;
} atcmder_queue_t;

ATCMD_API extern atcmder_queue_t Rx_head;
ATCMD_API extern atcmder_queue_t Tx_head;
ATCMD_API extern atcmder_queue_t Timeout_head;

/* List locks. Nested order, where both are needed: timeout queue, then transmit. */
ATCMD_API extern pthread_mutex_t g_rxqueue_mutex;
ATCMD_API extern pthread_mutex_t g_txqueue_mutex;
ATCMD_API extern pthread_mutex_t g_timeoutqueue_mutex;

/* Wake-up conditions and the locks their consumers wait with. */
ATCMD_API extern pthread_cond_t rxbuffer_notempty;
ATCMD_API extern pthread_cond_t txbuffer_notempty;
ATCMD_API extern pthread_cond_t timeoutbuffer_notempty;
ATCMD_API extern pthread_mutex_t rxbuffer_Mutex;
ATCMD_API extern pthread_mutex_t txbuffer_Mutex;
ATCMD_API extern pthread_mutex_t timeoutbuffer_Mutex;

ATCMD_API unsigned int atcmder_queue_init(atcmder_queue_t *head);
ATCMD_API unsigned int atcmder_enqueue(atcmder_queue_t *head, pthread_mutex_t *lock,
                                       const AtCmder_t *cmd);
ATCMD_API unsigned int atcmder_dequeue(atcmder_queue_t *head, pthread_mutex_t *lock,
                                       AtCmder_t *out);
ATCMD_API int atcmder_empty_queue(atcmder_queue_t *head, pthread_mutex_t *lock);
ATCMD_API unsigned int atcmder_queue_exit(atcmder_queue_t *head, pthread_mutex_t *lock);
}

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
