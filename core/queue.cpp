// The three FIFO queues that carry records between the module's threads.
// Each queue's list is guarded by its queue lock; the wake-up condition and
// its lock belong to the consumer (see the transmit, dispatch and timeout
// threads). A node owns a copy of the record and of its text.
#include "core/queue.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "core/lock_guard.h"
#include "core/log.h"

atcmder_queue_t Rx_head = {nullptr, &Rx_head.tqh_first};
atcmder_queue_t Tx_head = {nullptr, &Tx_head.tqh_first};
atcmder_queue_t Timeout_head = {nullptr, &Timeout_head.tqh_first};

pthread_mutex_t g_rxqueue_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t g_txqueue_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t g_timeoutqueue_mutex = PTHREAD_MUTEX_INITIALIZER;

pthread_cond_t rxbuffer_notempty = PTHREAD_COND_INITIALIZER;
pthread_cond_t txbuffer_notempty = PTHREAD_COND_INITIALIZER;
pthread_cond_t timeoutbuffer_notempty = PTHREAD_COND_INITIALIZER;
pthread_mutex_t rxbuffer_Mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t txbuffer_Mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t timeoutbuffer_Mutex = PTHREAD_MUTEX_INITIALIZER;

namespace atcmd {

// Room from a node's text buffer to the end of the node: the bound a
// fortified copy into that buffer would check.
constexpr size_t kNodeTailRoom = sizeof(atcmder_node_t) - offsetof(atcmder_node_t, text);

void queue_insert_tail_locked(atcmder_queue_t *head, atcmder_node_t *node) {
    node->link.tqe_next = nullptr;
    node->link.tqe_prev = head->tqh_last;
    *head->tqh_last = node;
    head->tqh_last = &node->link.tqe_next;
}

void queue_remove_locked(atcmder_queue_t *head, atcmder_node_t *node) {
    if (node->link.tqe_next != nullptr)
        node->link.tqe_next->link.tqe_prev = node->link.tqe_prev;
    else
        head->tqh_last = node->link.tqe_prev;
    *node->link.tqe_prev = node->link.tqe_next;
}

int queue_put(const QueueRef &q, const AtCmder_t *rec) {
    atcmder_enqueue(q.head, q.lock, rec);
    return pthread_cond_signal(q.not_empty);
}

void queue_wait_not_empty(const QueueRef &q) {
    MutexGuard guard(q.wait_lock);
    while (atcmder_empty_queue(q.head, q.lock)) pthread_cond_wait(q.not_empty, q.wait_lock);
}

}  // namespace atcmd

using namespace atcmd;

unsigned int atcmder_queue_init(atcmder_queue_t *head) {
    head->tqh_first = nullptr;
    head->tqh_last = &head->tqh_first;
    return ATCMD_Q_OK;
}

unsigned int atcmder_enqueue(atcmder_queue_t *head, pthread_mutex_t *lock, const AtCmder_t *cmd) {
    if (head == nullptr || lock == nullptr || cmd == nullptr) return ATCMD_Q_NULL;
    // A node is allocated for every line received, and glibc's calloc skips
    // the per-thread cache that malloc uses. The node still ends up all zero
    // wherever the copy below does not write: its text buffer is cleared
    // first, the record and the links are written whole.
    auto *node = static_cast<atcmder_node_t *>(malloc(sizeof(atcmder_node_t)));
    if (node == nullptr) return ATCMD_Q_NOMEM;
    if (cmd->data == nullptr) {
        ATLOGE(kLogAlways, kTagQueue, "Input atcmder data is NULL!");
        free(node);
        return ATCMD_Q_NULL;
    }

    size_t len = strlen(cmd->data);
    if (len > kNodeTailRoom) {
        // What a fortified copy does when the text would run past the node.
        static const char kMsg[] = "*** buffer overflow detected ***: terminated\n";
        ssize_t ignored = write(STDERR_FILENO, kMsg, sizeof kMsg - 1);
        (void)ignored;
        abort();
    }
    if (len >= ATCMD_TEXT_MAX) {
        // Would overwrite the node's links; keep what fits instead.
        ATLOGE(kLogAlways, kTagQueue, "Input atcmder data is too long (%zu), cut to %d!", len,
               ATCMD_TEXT_MAX - 1);
        len = ATCMD_TEXT_MAX - 1;
    }
    memset(node->text, 0, sizeof node->text);

    MutexGuard guard(lock);
    node->cmd = *cmd;
    memcpy(node->text, cmd->data, len);
    node->text[len] = '\0';
    node->cmd.data = node->text;
    queue_insert_tail_locked(head, node);
    return ATCMD_Q_OK;
}

unsigned int atcmder_dequeue(atcmder_queue_t *head, pthread_mutex_t *lock, AtCmder_t *out) {
    if (out == nullptr || out->data == nullptr) {
        ATLOGE(kLogAlways, kTagQueue, "Output atcmder is a NULL pointer!");
        return ATCMD_Q_NULL;
    }
    if (head == nullptr || lock == nullptr) return ATCMD_Q_NULL;

    pthread_mutex_lock(lock);
    atcmder_node_t *node = head->tqh_first;
    if (node == nullptr) {
        pthread_mutex_unlock(lock);
        return ATCMD_Q_NONE;
    }
    queue_remove_locked(head, node);
    if (node->text[0] == '\0') {
        ATLOGI(kLogDetail, kTagQueue, "Atcmd queue has null pointer, remove it!");
        free(node);
        return ATCMD_Q_NONE;  // the queue lock stays held on purpose
    }
    memcpy(out, &node->cmd, offsetof(AtCmder_t, data));
    memcpy(out->data, node->text, strlen(node->text) + 1);
    free(node);
    pthread_mutex_unlock(lock);
    return ATCMD_Q_OK;
}

int atcmder_empty_queue(atcmder_queue_t *head, pthread_mutex_t *lock) {
    MutexGuard guard(lock);
    return head->tqh_first == nullptr ? 1 : 0;
}

unsigned int atcmder_queue_exit(atcmder_queue_t *head, pthread_mutex_t *lock) {
    MutexGuard guard(lock);
    atcmder_node_t *node = head->tqh_first;
    while (node != nullptr) {
        atcmder_node_t *next = node->link.tqe_next;
        queue_remove_locked(head, node);
        free(node);
        node = next;
    }
    return ATCMD_Q_OK;
}
