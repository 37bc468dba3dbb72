// Cuts received text into AT lines and hands each finished line on.
//
// Runs on the receive threads (UART, virtual UART, WiFi), up to three at
// once; all state lives on the caller's stack and in the caller's scratch
// record, so the routine is re-entrant. No state survives a call: a line
// that is unfinished at the end of the buffer is dropped.
#include <stdlib.h>
#include <string.h>

#include "atcmdprocess.h"
#include "core/log.h"
#include "protocol/cmd_table.h"

using atcmd::kTagParse;

namespace {

enum class State {
    kIdle,          // between lines
    kResponseName,  // after a leading '+'
    kCommandName,   // after a leading 'A'
    kArguments,     // after '=' (also after '?': kQuery behaves alike)
    kQuery,
    kSequence,  // after '#', up to '&'
    kFlag,      // after '&', up to '\r'
    kLineEnd,   // after '\r', expecting '\n'
};

// A stored line holds at most this many characters, "\r\n" included, so
// that the NUL behind it fits the 160-byte text buffer.
constexpr size_t kMaxLine = ATCMD_TEXT_MAX - 1;

}  // namespace

int cmd_Parse_from_buffer(AtCmder_t *cmd, const char *buffer) {
    if (cmd == nullptr || cmd->data == nullptr || buffer == nullptr) return 0;
    char *text = cmd->data;  // the caller's 160-byte buffer
    memset(text, 0, ATCMD_TEXT_MAX);
    const size_t len = strlen(buffer);
    if (len < 1) return 0;

    State state = State::kIdle;
    size_t count = 0;      // characters stored for the current line
    size_t seq_start = 0;  // where the number behind '#' starts in text
    size_t flag_start = 0;
    size_t pos = 0;
    // Unsupported text is skipped to the next line end. The end found is
    // kept (len: there is none), since searching afresh from every skipped
    // character would be quadratic on long text without one.
    size_t next_nl = 0;
    bool nl_known = false;

    auto store = [&](char c) { text[count++] = c; };
    // Text stored so far as a C string, for lookups and log lines. The NUL
    // lands where the next character will be stored (or the line is cleared).
    auto stored = [&]() -> const char * {
        text[count] = '\0';
        return text;
    };
    // The state after a name or argument delimiter. The delimiter itself is
    // stored behind this call, so a sequence number starts after the '#'.
    auto follow = [&](char c) {
        if (c == '\r') state = State::kLineEnd;
        if (c == '=') state = State::kArguments;
        if (c == '?') state = State::kQuery;
        if (c == '#') {
            state = State::kSequence;
            seq_start = count + 1;
        }
    };
    auto drop_line = [&]() {
        memset(text, 0, ATCMD_TEXT_MAX);
        count = 0;
        state = State::kIdle;
    };

    while (pos < len) {
        const char c = buffer[pos];
        if (count >= kMaxLine) {
            // The old text is deliberately not cleared: a line that starts
            // here overwrites it from the first position.
            ATLOGI(4, kTagParse, "Cmd  is too long and not supported!");
            count = 0;
            state = State::kIdle;
        }

        switch (state) {
        case State::kIdle:
            if (c == '+') {
                store(c);
                state = State::kResponseName;
            } else if (c == 'A') {
                store(c);
                state = State::kCommandName;
            } else {
                if (!nl_known || next_nl < pos) {
                    const char *nl =
                        static_cast<const char *>(memchr(buffer + pos, '\n', len - pos));
                    next_nl = nl != nullptr ? static_cast<size_t>(nl - buffer) : len;
                    nl_known = true;
                }
                if (next_nl < len) pos = next_nl;
                ATLOGI(4, kTagParse, "Cmd is not supported!");
                memset(text, 0, ATCMD_TEXT_MAX);
            }
            ++pos;
            continue;

        case State::kResponseName: {
            cmd->type = ATCMD_TYPE_RESPONSE;
            if (c != '\r' && c != '=' && c != '#') break;
            uint8_t idx = 0;
            if (!findResCmdIdx(stored(), &idx)) {
                ATLOGI(3, kTagParse, "Cmd  %s is not supported!", text);
                drop_line();
                continue;  // Idle discards the rest of the line
            }
            cmd->cmd_id = idx;
            follow(c);
            break;
        }

        case State::kCommandName: {
            cmd->type = ATCMD_TYPE_ACTION;
            if (c != '\r' && c != '#' && c != '=' && c != '?') break;
            if (c == '=') cmd->type = ATCMD_TYPE_SET;
            if (c == '?') cmd->type = ATCMD_TYPE_QUERY;
            if (!findAtCmdIdx(stored(), &cmd->cmd_id)) {
                ATLOGI(3, kTagParse, "Cmd  %s is not supported!", text);
                drop_line();
                continue;
            }
            follow(c);
            break;
        }

        case State::kArguments:
        case State::kQuery:
            if (c == '#' || c == '\r') follow(c);
            break;

        case State::kSequence:
            if (c == '&') {
                // strtol stops at the '&' already stored behind the digits.
                store(c);
                cmd->seq_num = static_cast<uint16_t>(strtol(stored() + seq_start, nullptr, 10));
                flag_start = count;
                state = State::kFlag;
                ++pos;
                continue;
            }
            break;

        case State::kFlag:
            if (c == '\r') {
                store(c);
                cmd->flag = static_cast<uint8_t>(strtol(stored() + flag_start, nullptr, 10));
                state = State::kLineEnd;
                ++pos;
                continue;
            }
            break;

        case State::kLineEnd:
            store(c);
            if (c != '\n') {
                ATLOGI(3, kTagParse, "Cmd  %s is not supported!", stored());
                drop_line();
                continue;  // the character may begin the next line
            }
            if (atcmd::is_unsolicited_cmd(cmd->cmd_id)) cmd->type = ATCMD_TYPE_UNSOLICITED;
            text[count] = '\0';
            atcmder_post_parse_process(cmd);
            ATLOGI(3, kTagParse,
                   "Get one line cmd: idx is %u ,  seq num is %d, flag is %d, cmd is %s",
                   cmd->cmd_id, cmd->seq_num, cmd->flag, text);
            drop_line();
            ++pos;
            continue;
        }
        store(c);
        ++pos;
    }
    return 0;
}
