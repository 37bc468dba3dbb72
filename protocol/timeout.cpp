// Reply time-outs: commands that await a reply wait on Timeout_head (put
// there by the transmit thread, stamped with their send time) until a reply
// with their sequence number retires them, or until the timeout thread has
// sent them twice more and gives up, telling the client.
//
// Lock order: g_timeoutqueue_mutex, then g_txqueue_mutex (a resend enqueues
// on Tx_head while the scan holds the timeout queue).
#include "protocol/timeout.h"

#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/time.h>
#include <unistd.h>

#include "atcmdprocess.h"
#include "core/device_state.h"
#include "core/lock_guard.h"
#include "core/log.h"
#include "core/queue.h"
#include "core/relaxed.h"
#include "protocol/elapsed.h"

// Microseconds, in the sense of elapsed_figure. Start-up sets the value in
// force (Init_TimeoutPara's rule); this static value counts only before that.
uint64_t g_timeout = 50000;

using atcmd::kTagManage;
using atcmd::kTagParse;

namespace {

// The scan's log lines belong to the thread that runs it.
constexpr char kTimeoutThread[] = "atcmder_Timeout_thread";
constexpr uint8_t kMaxResends = 2;
constexpr useconds_t kScanPeriodUs = 10000;

void notify_error(uint16_t seq_num, int32_t code) {
    // The payload is the one int32 value[0]. The callback learns no payload
    // size, and clients that copy a fixed 8 bytes (the widest number payload)
    // must stay in bounds, so a zero word follows it.
    int32_t value[2] = {code, 0};
    AT_CMD_CbMsg_t msg;
    msg.cmd_id = ATCMD_ID_ERROR;
    msg.seq_num = seq_num;
    msg.data = value;
    atcmd::notify_client(&msg);
}

// Sends node's command again: a copy goes to the back of Tx_head, keeping
// its resend count; the transmit thread stamps it and queues it here anew.
void resend_locked(atcmder_node_t *node) {
    ++node->cmd.resendtimes;
    ATLOGI_FN(kTimeoutThread, atcmd::kLogDetail, kTagManage, "Re-send timeout cmd: %d times: %d data: %s",
              node->cmd.seq_num, node->cmd.resendtimes, node->text);
    node->cmd.data = node->text;
    atcmd::queue_put(atcmd::kTxQueue, &node->cmd);
}

}  // namespace

namespace atcmd {

void timeout_scan_locked(int64_t now_sec, int64_t now_usec) {
    atcmder_node_t *next = nullptr;
    for (atcmder_node_t *node = Timeout_head.tqh_first; node != nullptr; node = next) {
        next = node->link.tqe_next;
        if (node->text[0] == '\0') {
            atcmd::queue_remove_locked(&Timeout_head, node);
            free(node);
            continue;
        }
        const uint64_t e =
            atcmd::elapsed_figure(now_sec, now_usec, node->cmd.tv_sec, node->cmd.tv_usec);
        if (atcmd::still_waiting(e, relaxed_load(&g_timeout))) continue;

        if (node->cmd.resendtimes < kMaxResends) {
            resend_locked(node);
        } else {
            node->cmd.data = node->text;
            notifytimeout(&node->cmd);
            ATLOGI_FN(kTimeoutThread, atcmd::kLogDetail, kTagManage,
                      "No. %d atcmd has been removed since timeout, data is %s", node->cmd.seq_num,
                      node->text);
        }
        atcmd::queue_remove_locked(&Timeout_head, node);
        free(node);
    }
}

}  // namespace atcmd

void Init_TimeoutPara(void) {
    atcmd::LinkStatus st;
    if (!atcmd::read_link_status(&st)) {
        ATLOGE(atcmd::kLogAlways, kTagParse, "no device: g_timeout stays %lu",
               static_cast<unsigned long>(atcmd::relaxed_load(&g_timeout)));
        return;
    }
    // Written on the client's thread while the timeout thread reads it.
    const bool wifi_cast = st.mode == ATCMD_MODE_WIFI && st.platform == ATCMD_PLATFORM_VUART;
    atcmd::relaxed_store(&g_timeout, uint64_t{wifi_cast ? 400000u : 100000u});
}

// The timeout thread: sleeps while nothing awaits a reply, polls every 10 ms
// while something does. Runs for the life of the process (no stop flag).
void *atcmder_Timeout_thread(void *) {
    ATLOGI(atcmd::kLogState, kTagManage, "atcmder_Timeout_thread thread is running");
    prctl(PR_SET_NAME, "Timeout_thread");
    for (;;) {
        atcmd::queue_wait_not_empty(atcmd::kTimeoutQueue);

        while (!atcmder_empty_queue(&Timeout_head, &g_timeoutqueue_mutex)) {
            struct timeval now;
            gettimeofday(&now, nullptr);
            {
                atcmd::MutexGuard guard(&g_timeoutqueue_mutex);
                atcmd::timeout_scan_locked(now.tv_sec, now.tv_usec);
            }
            usleep(kScanPeriodUs);
        }
    }
    return nullptr;
}

// Runs on the dispatch thread for each response that carries a sequence
// number. Only seq_num is compared; at most the entry nearest the head goes.
int rmTimeoutItem(AtCmder_t *reply) {
    if (reply == nullptr) return 0;
    pthread_mutex_lock(&g_timeoutqueue_mutex);
    for (atcmder_node_t *node = Timeout_head.tqh_first; node != nullptr;
         node = node->link.tqe_next) {
        if (node->cmd.seq_num != reply->seq_num) continue;
        atcmd::queue_remove_locked(&Timeout_head, node);
        free(node);
        ATLOGI(atcmd::kLogDetail, kTagManage, "No. %d atcmd has been removed!", reply->seq_num);
        break;
    }
    return pthread_mutex_unlock(&g_timeoutqueue_mutex);
}

// Runs on the timeout thread with g_timeoutqueue_mutex held: the client's
// callback must not send anything that needs that lock on this thread.
void notifytimeout(AtCmder_t *cmd) {
    if (cmd == nullptr) return;
    ATLOGI(atcmd::kLogState, kTagParse, "Timeout happened, cmd is %s", cmd->data != nullptr ? cmd->data : "");
    notify_error(cmd->seq_num, ATCMD_ERR_REPLY_TIMEOUT);
}

// Runs on the UART receive thread when the port cannot be used.
void notifyUartNotWork(void) {
    ATLOGE(atcmd::kLogAlways, kTagParse, "uart does not work");
    notify_error(0, ATCMD_ERR_UART_DOWN);
}
