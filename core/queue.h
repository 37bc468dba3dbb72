// Internal queue helpers shared by the threads that walk a queue themselves
// (the timeout scan). Both expect the queue's lock to be held.
#ifndef ATCMD_CORE_QUEUE_H
#define ATCMD_CORE_QUEUE_H

#include "atcmdprocess.h"

namespace atcmd {

void queue_insert_tail_locked(atcmder_queue_t *head, atcmder_node_t *node);

// A consumer's sleep: holds wait_lock (the condition's lock, never the queue
// lock) and waits on not_empty while the queue is empty. Producers signal
// without wait_lock, so a wake-up between the test and the wait is lost until
// the next one; the consumers have always accepted that.
void queue_wait_not_empty(atcmder_queue_t *head, pthread_mutex_t *queue_lock,
                          pthread_cond_t *not_empty, pthread_mutex_t *wait_lock);
void queue_remove_locked(atcmder_queue_t *head, atcmder_node_t *node);

}  // namespace atcmd

#endif
