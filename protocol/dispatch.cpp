// The receive side after the frame parser: the hand-off that either relays a
// line to the other link or queues it on Rx_head, and the dispatch thread
// that drains Rx_head through each row's parser and retires the command the
// line answers.
#define LOG_TAG "ATCMD_PARSE"
#include <string.h>
#include <sys/prctl.h>

#include "atcmdprocess.h"
#include "core/queue.h"
#include "protocol/cmd_table.h"
#include "protocol/device_status.h"
#include "protocol/log_tags.h"

namespace {

// The phone bridges the WiFi peer and the MCU on platform 2 while casting
// over WiFi: lines marked as link 1 are passed through, except "+DTR",
// which is always for this side.
bool is_relayed(const AtCmder_t *cmd, const atcmd::LinkStatus &st) {
    return cmd->flag == 1 && st.mode == 1 && st.platform == 2 && cmd->cmd_id != atcmd::kCmdDtr;
}

void enqueue_and_signal(atcmder_queue_t *head, pthread_mutex_t *lock, pthread_cond_t *cond,
                        const AtCmder_t *cmd) {
    atcmder_enqueue(head, lock, cmd);
    pthread_cond_signal(cond);
}

}  // namespace

// Runs on a receive thread, once per finished line; cmd is that thread's
// scratch record, copied by the queue.
void atcmder_post_parse_process(AtCmder_t *cmd) {
    if (cmd == nullptr) return;
    atcmd::LinkStatus st;
    if (!atcmd::read_link_status(&st)) {
        ATLOGE(0, "no device: line queued for local dispatch, flag is %d", cmd->flag);
        enqueue_and_signal(&Rx_head, &g_rxqueue_mutex, &rxbuffer_notempty, cmd);
        return;
    }
    ATLOGI(4, "current platform is %d, mode is %d, flag is %d", st.platform, st.mode, cmd->flag);

    if (is_relayed(cmd, st)) {
        if (cmd->source == ATCMD_EP_MPHONE)
            cmd->dest = ATCMD_EP_MCU;
        else if (cmd->source == ATCMD_EP_MCU)
            cmd->dest = ATCMD_EP_MPHONE;
        enqueue_and_signal(&Tx_head, &g_txqueue_mutex, &txbuffer_notempty, cmd);
        return;
    }
    enqueue_and_signal(&Rx_head, &g_rxqueue_mutex, &rxbuffer_notempty, cmd);
}

// Runs on the dispatch thread. The parser runs first, and the timeout test
// reads the record after it, so a parser's changes to type, flag or seq_num
// count.
int atcmder_dispatch(AtCmder_t *cmd) {
    if (cmd == nullptr) return 0;
    if (cmd->cmd_id >= ATCMD_NUM_CMDS) {
        // Only the frame parser feeds Rx_head, but the queue is exported.
        MANAGE_LOGE(0, "atcmder_dispatch cmd_id %u out of range, data is %s", cmd->cmd_id,
                    cmd->data != nullptr ? cmd->data : "");
        return 0;
    }
    atcmd_parser_t parser = AT_CMDS[cmd->cmd_id].parser;
    if (parser != nullptr) parser(cmd);

    atcmd::LinkStatus st;
    if (!atcmd::read_link_status(&st)) {
        MANAGE_LOGE(0, "atcmder_dispatch no device, timeout queue left alone, data is %s",
                    cmd->data != nullptr ? cmd->data : "");
        return 0;
    }
    if (cmd->flag == st.platform && cmd->type == ATCMD_TYPE_RESPONSE && cmd->seq_num != 0)
        rmTimeoutItem(cmd);
    MANAGE_LOGI(4, "atcmder_dispatch type is %u, flag is %u, platform is %d, data is %s",
                cmd->type, cmd->flag, st.platform, cmd->data != nullptr ? cmd->data : "");
    return 0;
}

// The dispatch thread: runs for the life of the process (no stop flag).
// Parsers and the client's callback run on it.
void *atcmder_dispatch_thread(void *) {
    prctl(PR_SET_NAME, "dispatch_thread");
    MANAGE_LOGI(3, "atcmder_dispatch_thread thread is running");
    for (;;) {
        atcmd::queue_wait_not_empty(&Rx_head, &g_rxqueue_mutex, &rxbuffer_notempty,
                                    &rxbuffer_Mutex);

        while (!atcmder_empty_queue(&Rx_head, &g_rxqueue_mutex)) {
            char text[ATCMD_TEXT_MAX];
            AtCmder_t cmd;
            memset(&cmd, 0, sizeof cmd);
            memset(text, 0, sizeof text);
            cmd.data = text;
            if (atcmder_dequeue(&Rx_head, &g_rxqueue_mutex, &cmd) != ATCMD_Q_OK) continue;
            MANAGE_LOGI(4, "atcmder_dispatch_thread source is %u, data is %s", cmd.source, text);
            atcmder_dispatch(&cmd);
        }
    }
    return nullptr;
}
