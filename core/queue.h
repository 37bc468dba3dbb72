// Internal queue helpers shared by the threads that walk a queue themselves
// (the timeout scan). Both expect the queue's lock to be held.
#ifndef ATCMD_CORE_QUEUE_H
#define ATCMD_CORE_QUEUE_H

#include "atcmdprocess.h"

namespace atcmd {

void queue_insert_tail_locked(atcmder_queue_t *head, atcmder_node_t *node);
void queue_remove_locked(atcmder_queue_t *head, atcmder_node_t *node);

}  // namespace atcmd

#endif
