#include "console/decode.h"

#include <stdio.h>
#include <string.h>

namespace atcmd_console {
namespace {

// The codes the module puts in "+ERROR" messages of its own.
constexpr int32_t kReplyTimedOut = -110;
constexpr int32_t kUartDoesNotWork = -6;

// The payload lives on the module's stack with no alignment promise: copy.
template <typename T>
T read_at(const void *data, size_t index) {
    T v;
    memcpy(&v, static_cast<const char *>(data) + index * sizeof(T), sizeof v);
    return v;
}

// Accessory texts may carry line ends or stray bytes; keep the line whole.
std::string quoted(const char *text) {
    std::string s = "\"";
    for (const char *p = text; *p != '\0'; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
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

std::string payload(const AT_CMD_CbMsg_t &msg) {
    size_t count = 0;
    switch (atcmd_payload_kind_of(msg.cmd_id, &count)) {
    case ATCMD_PAYLOAD_NONE:
        return "";
    case ATCMD_PAYLOAD_NUMBER:
        return std::to_string(read_at<int64_t>(msg.data, 0));
    case ATCMD_PAYLOAD_TEXT:
        return quoted(static_cast<const char *>(msg.data));
    case ATCMD_PAYLOAD_USB_EVENT:
        return "connected=" + std::to_string(read_at<int32_t>(msg.data, 0)) +
               " devinfo=" + std::to_string(read_at<int32_t>(msg.data, 1));
    case ATCMD_PAYLOAD_ERROR: {
        // Only the first word: the module's own codes are an int32 and a
        // zero word, the accessory's number an int64 that fits in it.
        int32_t code = read_at<int32_t>(msg.data, 0);
        std::string s = std::to_string(code);
        if (code == kReplyTimedOut) s += " (reply timed out)";
        if (code == kUartDoesNotWork) s += " (UART does not work)";
        return s;
    }
    case ATCMD_PAYLOAD_LIST: {
        std::string s;
        for (size_t i = 0; i < count; ++i)
            s += (i ? "," : "") + std::to_string(read_at<int32_t>(msg.data, i));
        return s;
    }
    }
    return "";
}

}  // namespace

std::string describe(const AT_CMD_CbMsg_t &msg, const at_cmd_t *table) {
    const std::string row = std::to_string(msg.cmd_id);
    std::string s;
    if (table != nullptr && msg.cmd_id < ATCMD_NUM_CMDS && table[msg.cmd_id].name != nullptr)
        s = std::string(table[msg.cmd_id].name) + " (" + row + ")";
    else
        s = "row " + row;
    s += " seq " + std::to_string(msg.seq_num);
    if (msg.data == nullptr) return s;
    std::string p = payload(msg);
    return p.empty() ? s : s + ": " + p;
}

}  // namespace atcmd_console
