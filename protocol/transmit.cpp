// The transmit thread: the only writer on every link. It drains Tx_head, puts
// each command that expects a reply on the timeout queue before sending it,
// and hands the text to the one link that the device's platform and cast
// mode and the record's dest select; each link's file does the write.
#include "protocol/transmit.h"

#include <string.h>
#include <sys/prctl.h>
#include <sys/time.h>
#include <unistd.h>

#include "core/device_state.h"
#include "core/log.h"
#include "core/queue.h"
#include "core/relaxed.h"
#include "link/acm_link.h"
#include "link/uart_link.h"
#include "link/wifi_link.h"

namespace atcmd {
namespace {

// Only rows "+REBOOT" to "+WIFICON" of the command table are ever waited
// for; later rows are reports, answered or not.
constexpr uint8_t kFirstUnwatchedCmd = ATCMD_ID_WIFICON + 1;

// The helpers below log as the function they work for, so that the log
// names atcmder_Tx_thread as it always has.
constexpr char kTxThread[] = "atcmder_Tx_thread";

// No device installed (before open, or in a process that drives the
// protocol alone) means no link to choose: platform 0 selects none.
bool current_links(const char *func, LinkStatus *links) {
    *links = {0, ATCMD_MODE_NONE};
    if (read_link_status(links)) return true;
    ATLOGE_FN(func, kLogAlways, kTagManage, "no device, no link to send on");
    return false;
}

// Called on the transmit thread before the send; the timeout thread measures
// the reply's delay from this stamp.
void watch_for_reply(const AtCmder_t &cmd) {
    AtCmder_t copy = cmd;
    timeval now;
    gettimeofday(&now, nullptr);
    copy.tv_sec = now.tv_sec;
    copy.tv_usec = now.tv_usec;
    queue_put(kTimeoutQueue, &copy);
    ATLOGI_FN(kTxThread, kLogDetail, kTagManage, "Timeout buf enqueued cmd %s", cmd.data);
}

}  // namespace

bool awaits_reply(const AtCmder_t &cmd, int32_t platform) {
    bool is_command = cmd.type >= ATCMD_TYPE_ACTION && cmd.type <= ATCMD_TYPE_QUERY;
    return is_command && cmd.seq_num != 0 && cmd.flag == platform &&
           cmd.cmd_id < kFirstUnwatchedCmd;
}

}  // namespace atcmd

using namespace atcmd;

void *atcmder_Tx_thread(void *) {
    prctl(PR_SET_NAME, "Tx_thread");
    ATLOGI(kLogState, kTagManage, "atcmder_Tx_thread thread is running");
    for (;;) {
        queue_wait_not_empty(kTxQueue);
        while (!atcmder_empty_queue(&Tx_head, &g_txqueue_mutex)) {
            char text[ATCMD_TEXT_MAX] = {};
            AtCmder_t cmd;
            memset(&cmd, 0, sizeof cmd);
            cmd.data = text;
            if (atcmder_dequeue(&Tx_head, &g_txqueue_mutex, &cmd) != ATCMD_Q_OK) continue;

            LinkStatus links;
            if (current_links(__func__, &links) && awaits_reply(cmd, links.platform))
                watch_for_reply(cmd);
            if (atcmder_Tx_process(&cmd) == 0)
                ATLOGI(kLogState, kTagManage,
                       "atcmder_Tx_thread send cmd success,dest is %u, mode is %d, cmd is %s",
                       cmd.dest, links.mode, text);
        }
    }
    return nullptr;
}

// Runs on the transmit thread; the result is only logged, a failed send is
// not queued again here (the timeout queue resends what awaits a reply).
int atcmder_Tx_process(AtCmder_t *cmd) {
    if (cmd == nullptr || cmd->data == nullptr) return ATCMD_Q_NULL;
    LinkStatus links;
    current_links(__func__, &links);
    const char *text = cmd->data;
    size_t len = strlen(text);

    if (links.platform == ATCMD_PLATFORM_VUART)
        return links.mode == ATCMD_MODE_WIFI ? wifi_send(text, len, WifiTransmit::kCast)
                                             : acm_send(text, len);
    if (links.platform == ATCMD_PLATFORM_UART)
        return cmd->dest == ATCMD_EP_MPHONE && links.mode == ATCMD_MODE_WIFI
                   ? wifi_send(text, len, WifiTransmit::kRelay)
                   : uart_send(text, len);
    return 0;  // no link on any other platform
}
