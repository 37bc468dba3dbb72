#include "protocol/reply_shape.h"

#include <stdlib.h>
#include <string.h>

#include "core/device_state.h"
#include "core/queue.h"
#include "protocol/fields.h"

namespace atcmd {
namespace {

// The one-number rule of getvalue_fromCmdString: the decimal number behind
// the first '='.
bool value_of(const AtCmder_t *cmd, int64_t *value) {
    return getvalue_fromCmdString(cmd->data, value) == 0;
}

bool skipped_on_uart_side(unsigned options) {
    return (options & kNotOnUartSide) != 0 && current_platform() == ATCMD_PLATFORM_UART;
}

}  // namespace

void open_line(const char *parser, const AtCmder_t *cmd, int level, const char *opens_as) {
    ATLOGI_FN(parser, level, kTagParse, "%s source is %u, idx is %u data is %s",
              opens_as != nullptr ? opens_as : parser, cmd->source, cmd->cmd_id, cmd->data);
}

void error_line(const char *parser, const char *error) {
    ATLOGE_FN(parser, atcmd::kLogAlways, kTagParse, "%s", error);
}

bool read_field(const char *parser, const AtCmder_t *cmd, const char *error, char *field,
                size_t size) {
    memset(field, 0, size);
    if (getstr_fromCmdString(cmd->data, field, size) == 0) return true;
    error_line(parser, error);
    return false;
}

void notify(uint8_t row, const AtCmder_t *cmd, void *payload) {
    AT_CMD_CbMsg_t msg = {row, cmd->seq_num, payload};
    notify_client(&msg);
}

void relay_when_bridging(const AtCmder_t *cmd, uint8_t cmd_id) {
    LinkStatus st;
    if (!read_link_status(&st) || st.platform != ATCMD_PLATFORM_UART ||
        st.mode != ATCMD_MODE_WIFI)
        return;
    AtCmder_t rec = {};
    rec.type = ATCMD_TYPE_UNSOLICITED;
    rec.dest = ATCMD_EP_MPHONE;
    rec.cmd_id = cmd_id;
    rec.data = cmd->data;
    queue_put(kTxQueue, &rec);
}

bool is_query_from_mcu(const AtCmder_t *cmd) {
    return cmd->type == ATCMD_TYPE_QUERY && cmd->source == ATCMD_EP_MCU;
}

bool number_reply(const char *parser, AtCmder_t *cmd, const NumberReply &r,
                  const char *opens_as) {
    open_line(parser, cmd, 4, opens_as);
    if (r.options & kToClient) cmd->dest = ATCMD_EP_CLIENT;
    int64_t value = 0;
    if (!value_of(cmd, &value)) {
        error_line(parser, r.error);
        return false;
    }
    if (skipped_on_uart_side(r.options)) return true;
    if (r.value_log != nullptr)
        ATLOG_TEXT_FN(parser, atcmd::kLogDetail, ANDROID_LOG_INFO, kTagParse, r.value_log,
                      static_cast<long>(value), r.row, cmd->seq_num);
    notify(r.row, cmd, &value);
    if (r.relay != kNoRelay) relay_when_bridging(cmd, static_cast<uint8_t>(r.relay));
    return true;
}

bool list_reply(const char *parser, AtCmder_t *cmd, const ListReply &r) {
    open_line(parser, cmd);
    int32_t v[6] = {};
    if (strchr(cmd->data, '=') == nullptr || r.read(cmd->data, v) != 0) {
        error_line(parser, r.error);
        return false;
    }
    ATLOG_TEXT_FN(parser, atcmd::kLogDetail, ANDROID_LOG_INFO, kTagParse, r.value_log, v[0], v[1], v[2], v[3],
                  v[4], v[5]);
    notify(r.row, cmd, v);
    if (r.relay != kNoRelay) relay_when_bridging(cmd, static_cast<uint8_t>(r.relay));
    return true;
}

bool text_reply(const char *parser, AtCmder_t *cmd, uint8_t row, const char *error) {
    open_line(parser, cmd);
    char text[ATCMD_TEXT_MAX];
    if (!read_field(parser, cmd, error, text, sizeof text)) return false;
    notify(row, cmd, text);
    return true;
}

}  // namespace atcmd
