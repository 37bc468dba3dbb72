// The receive side after the frame parser: the hand-off that either relays a
// line to the other link or queues it on Rx_head, and the dispatch thread
// that drains Rx_head through each row's parser and retires the command the
// line answers.
#include <string.h>
#include <sys/prctl.h>

#include "atcmdprocess.h"
#include "core/device_state.h"
#include "core/log.h"
#include "core/queue.h"
#include "protocol/dispatch.h"
#include "protocol/timeout.h"

using atcmd::kTagManage;
using atcmd::kTagParse;

namespace {

// The phone bridges the WiFi peer and the MCU on platform 2 while casting
// over WiFi: lines marked as link 1 are passed through, except "+DTR",
// which is always for this side.
bool is_relayed(const AtCmder_t *cmd, const atcmd::LinkStatus &st) {
    return cmd->flag == ATCMD_PLATFORM_VUART && st.mode == ATCMD_MODE_WIFI &&
           st.platform == ATCMD_PLATFORM_UART && cmd->cmd_id != ATCMD_ID_DTR;
}

}  // namespace

// Runs on a receive thread, once per finished line; cmd is that thread's
// scratch record, copied by the queue.
void atcmder_post_parse_process(AtCmder_t *cmd) {
    if (cmd == nullptr) return;
    atcmd::LinkStatus st;
    if (!atcmd::read_link_status(&st)) {
        ATLOGE(atcmd::kLogAlways, kTagParse, "no device: line queued for local dispatch, flag is %d", cmd->flag);
        atcmd::queue_put(atcmd::kRxQueue, cmd);
        return;
    }
    ATLOGI(atcmd::kLogDetail, kTagParse, "current platform is %d, mode is %d, flag is %d", st.platform, st.mode,
           cmd->flag);

    if (is_relayed(cmd, st)) {
        if (cmd->source == ATCMD_EP_MPHONE)
            cmd->dest = ATCMD_EP_MCU;
        else if (cmd->source == ATCMD_EP_MCU)
            cmd->dest = ATCMD_EP_MPHONE;
        atcmd::queue_put(atcmd::kTxQueue, cmd);
        return;
    }
    atcmd::queue_put(atcmd::kRxQueue, cmd);
}

// Runs on the dispatch thread. The parser runs first, and the timeout test
// reads the record after it, so a parser's changes to type, flag or seq_num
// count.
int atcmder_dispatch(AtCmder_t *cmd) {
    if (cmd == nullptr) return 0;
    if (cmd->cmd_id >= ATCMD_NUM_CMDS) {
        // Only the frame parser feeds Rx_head, but the queue is exported.
        ATLOGE(atcmd::kLogAlways, kTagManage, "atcmder_dispatch cmd_id %u out of range, data is %s", cmd->cmd_id,
               cmd->data != nullptr ? cmd->data : "");
        return 0;
    }
    atcmd_parser_t parser = AT_CMDS[cmd->cmd_id].parser;
    if (parser != nullptr) parser(cmd);

    atcmd::LinkStatus st;
    if (!atcmd::read_link_status(&st)) {
        ATLOGE(atcmd::kLogAlways, kTagManage, "atcmder_dispatch no device, timeout queue left alone, data is %s",
               cmd->data != nullptr ? cmd->data : "");
        return 0;
    }
    if (cmd->flag == st.platform && cmd->type == ATCMD_TYPE_RESPONSE && cmd->seq_num != 0)
        rmTimeoutItem(cmd);
    ATLOGI(atcmd::kLogDetail, kTagManage, "atcmder_dispatch type is %u, flag is %u, platform is %d, data is %s",
           cmd->type, cmd->flag, st.platform, cmd->data != nullptr ? cmd->data : "");
    return 0;
}

// The dispatch thread: runs for the life of the process (no stop flag).
// Parsers and the client's callback run on it.
void *atcmder_dispatch_thread(void *) {
    prctl(PR_SET_NAME, "dispatch_thread");
    ATLOGI(atcmd::kLogState, kTagManage, "atcmder_dispatch_thread thread is running");
    for (;;) {
        atcmd::queue_wait_not_empty(atcmd::kRxQueue);

        while (!atcmder_empty_queue(&Rx_head, &g_rxqueue_mutex)) {
            char text[ATCMD_TEXT_MAX];
            AtCmder_t cmd;
            memset(&cmd, 0, sizeof cmd);
            memset(text, 0, sizeof text);
            cmd.data = text;
            if (atcmder_dequeue(&Rx_head, &g_rxqueue_mutex, &cmd) != ATCMD_Q_OK) continue;
            ATLOGI(atcmd::kLogDetail, kTagManage, "atcmder_dispatch_thread source is %u, data is %s", cmd.source,
                   text);
            atcmder_dispatch(&cmd);
        }
    }
    return nullptr;
}
