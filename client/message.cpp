#include "client/message.h"

#include <stdio.h>
#include <string.h>

namespace atcmd_client {
namespace {

// Accessory texts may carry line ends or stray bytes; keep the line whole.
std::string quoted(const std::string &text) {
    std::string s = "\"";
    for (char ch : text) {
        unsigned char c = static_cast<unsigned char>(ch);
        switch (c) {
        case '"': s += "\\\""; break;
        case '\\': s += "\\\\"; break;
        case '\r': s += "\\r"; break;
        case '\n': s += "\\n"; break;
        case '\t': s += "\\t"; break;
        default:
            if (c < 0x20 || c >= 0x7f) {
                char hex[8];
                snprintf(hex, sizeof hex, "\\x%02x", c);
                s += hex;
            } else {
                s += static_cast<char>(c);
            }
        }
    }
    return s + "\"";
}

std::string int32_list(const Message &m) {
    std::string s;
    for (size_t i = 0; i < m.count; ++i) s += (i ? "," : "") + std::to_string(m.i32[i]);
    return s;
}

}  // namespace

Message copy_message(const AT_CMD_CbMsg_t &msg) {
    Message m;
    m.cmd_id = msg.cmd_id;
    m.seq_num = msg.seq_num;
    m.has_data = msg.data != nullptr;
    if (!m.has_data) return m;
    size_t count = 0;
    m.kind = atcmd_payload_kind_of(msg.cmd_id, &count);
    // The payload lives on the module's stack with no alignment promise:
    // memcpy, never a cast.
    switch (m.kind) {
    case ATCMD_PAYLOAD_NONE:
        break;
    case ATCMD_PAYLOAD_TEXT:
        m.text = static_cast<const char *>(msg.data);
        break;
    case ATCMD_PAYLOAD_LIST:
    case ATCMD_PAYLOAD_USB_EVENT:
        m.count = count;
        memcpy(m.i32, msg.data, count * sizeof(int32_t));
        break;
    case ATCMD_PAYLOAD_NUMBER:
        memcpy(&m.i64, msg.data, sizeof m.i64);
        break;
    case ATCMD_PAYLOAD_ERROR:
        // 8 bytes either way: the module's own code is an int32 and a zero
        // word, the accessory's number an int64 whose first word reads the
        // same on a little-endian phone.
        m.count = 1;
        memcpy(&m.i64, msg.data, sizeof m.i64);
        memcpy(m.i32, msg.data, sizeof m.i64);
        break;
    }
    return m;
}

std::string row_name(uint16_t cmd_id, const at_cmd_t *table) {
    if (table != nullptr && cmd_id < ATCMD_NUM_CMDS && table[cmd_id].name != nullptr)
        return table[cmd_id].name;
    return "row " + std::to_string(cmd_id);
}

std::string describe(const Message &m, const at_cmd_t *table) {
    std::string s = row_name(m.cmd_id, table);
    if (s.compare(0, 4, "row ") != 0) s += " (" + std::to_string(m.cmd_id) + ")";
    s += " seq " + std::to_string(m.seq_num);
    switch (m.kind) {
    case ATCMD_PAYLOAD_NONE: return s;
    case ATCMD_PAYLOAD_NUMBER: return s + ": " + std::to_string(m.i64);
    case ATCMD_PAYLOAD_TEXT: return s + ": " + quoted(m.text);
    case ATCMD_PAYLOAD_LIST: return s + ": " + int32_list(m);
    case ATCMD_PAYLOAD_USB_EVENT:
        return s + ": connected=" + std::to_string(m.i32[0]) + " devinfo=" + std::to_string(m.i32[1]);
    case ATCMD_PAYLOAD_ERROR:
        s += ": " + std::to_string(m.i32[0]);
        if (m.i32[0] == ATCMD_ERR_REPLY_TIMEOUT) s += " (reply timed out)";
        if (m.i32[0] == ATCMD_ERR_UART_DOWN) s += " (UART does not work)";
        return s;
    }
    return s;
}

std::string describe(const AT_CMD_CbMsg_t &msg, const at_cmd_t *table) {
    return describe(copy_message(msg), table);
}

std::string brief(const Message &m, const at_cmd_t *table) {
    const std::string s = row_name(m.cmd_id, table) + "/" + std::to_string(m.seq_num) + ":";
    switch (m.kind) {
    case ATCMD_PAYLOAD_NONE: return s + "-";
    case ATCMD_PAYLOAD_NUMBER: return s + std::to_string(m.i64);
    case ATCMD_PAYLOAD_TEXT: return s + "'" + m.text + "'";
    default: return s + int32_list(m);  // lists, the USB event, "+ERROR"'s first word
    }
}

}  // namespace atcmd_client
