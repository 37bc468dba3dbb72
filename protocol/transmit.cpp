// The transmit thread: the only writer on every link. It drains Tx_head, puts
// each command that expects a reply on the timeout queue before sending it,
// and writes the text to the one link that the device's platform and cast
// mode and the record's dest select.
#include "protocol/transmit.h"

#include <string.h>
#include <sys/prctl.h>
#include <sys/time.h>
#include <unistd.h>

#include "core/device_state.h"
#include "core/log.h"
#include "core/queue.h"
#include "core/relaxed.h"
#include "link/link_writer.h"

namespace atcmd {
namespace {

// Only rows "+REBOOT" to "+WIFICON" of the command table are ever waited
// for; later rows are reports, answered or not.
constexpr uint8_t kFirstUnwatchedCmd = ATCMD_ID_WIFICON + 1;

// The helpers below log as the function they work for, so that the log
// names atcmder_Tx_thread and atcmder_Tx_process as it always has.
constexpr char kTxThread[] = "atcmder_Tx_thread";
constexpr char kTxProcess[] = "atcmder_Tx_process";

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

// The transmit thread's links with their stall state; another thread that
// calls atcmder_Tx_process gets its own.
struct TxLinks {
    LinkWriter vuart{&g_vuart_fd, "Vuart"};
    LinkWriter uart{&g_uart_fd, "uart"};
    LinkWriter fifo{&g_fifo_tx_fd, "wifi fifo"};
};
thread_local TxLinks t_links;

// True once end can take the text; false with the record dropped.
bool ready(LinkWriter &link, const WriteEnd &end, const char *text) {
    const LinkWait wait = link.wait_writable(end.fd());
    if (wait == LinkWait::kReady) return true;
    link.drop(kTxProcess, wait, text);
    return false;
}

int send_vuart(const char *text, size_t len) {
    WriteEnd end(t_links.vuart);
    if (end.fd() < 0) {
        ATLOGE_FN(kTxProcess, kLogAlways, kTagManage, "Vuart is not open");
        return ATCMD_TX_VUART_CLOSED;
    }
    if (!ready(t_links.vuart, end, text)) return ATCMD_TX_DROPPED;
    VUART_Send(end.fd(), text, static_cast<int>(len));
    ATLOGI_FN(kTxProcess, kLogDetail, kTagManage, "Vuart successfully send cmd len is %zu, data is %s", len,
              text);
    return 0;
}

int send_uart(const char *text, size_t len) {
    WriteEnd end(t_links.uart);
    if (end.fd() < 0) {
        ATLOGE_FN(kTxProcess, kLogAlways, kTagManage, "uart is not open");
        return ATCMD_TX_UART_CLOSED;
    }
    if (!ready(t_links.uart, end, text)) return ATCMD_TX_DROPPED;
    UART_Send(end.fd(), text, static_cast<int>(len));
    ATLOGI_FN(kTxProcess, kLogDetail, kTagManage, "uart successfully send cmd data len %zu, data is %s", len,
              text);
    return 0;
}

// The WiFi FIFO ready for the text, or a result other than 0.
int fifo_ready(const WriteEnd &end, const char *text) {
    if (end.fd() < 0) {
        ATLOGE_FN(kTxProcess, kLogAlways, kTagManage, "wifi fifo is not opened!");
        return ATCMD_TX_FIFO_CLOSED;
    }
    return ready(t_links.fifo, end, text) ? 0 : ATCMD_TX_DROPPED;
}

// Casting over WiFi on platform 1. The success line is logged before the
// write's result is known; that is how this path has always reported.
int send_fifo_cast(const char *text, size_t len) {
    WriteEnd end(t_links.fifo);
    if (int r = fifo_ready(end, text)) return r;
    ssize_t n = write(end.fd(), text, len);
    ATLOGI_FN(kTxProcess, kLogDetail, kTagManage, "wifi fifotx successfully send data %s", text);
    if (n < 0) {
        ATLOGE_FN(kTxProcess, kLogAlways, kTagManage, "atcmder_Tx_process fifotx fail to send data %s",
                  text);
        return ATCMD_TX_FIFO_WRITE_FAILED;
    }
    return 0;
}

// Relaying to the WiFi peer on platform 2.
int send_fifo_relay(const char *text, size_t len) {
    WriteEnd end(t_links.fifo);
    if (int r = fifo_ready(end, text)) return r;
    if (write(end.fd(), text, len) < 0) {
        ATLOGE_FN(kTxProcess, kLogAlways, kTagManage, "wifi fifotx fails to write data %s", text);
        return ATCMD_TX_FIFO_WRITE_FAILED;
    }
    ATLOGI_FN(kTxProcess, kLogDetail, kTagManage, "wifi fifotx successfully send data %s", text);
    return 0;
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
        return links.mode == ATCMD_MODE_WIFI ? send_fifo_cast(text, len) : send_vuart(text, len);
    if (links.platform == ATCMD_PLATFORM_UART)
        return cmd->dest == ATCMD_EP_MPHONE && links.mode == ATCMD_MODE_WIFI
                   ? send_fifo_relay(text, len)
                   : send_uart(text, len);
    return 0;  // no link on any other platform
}
