// Cuts received text into AT lines and hands each finished line on.
//
// Runs on the receive threads (UART, virtual UART, WiFi), up to three at
// once; all state lives on the caller's stack and in the caller's scratch
// record, so the routine is re-entrant. No state survives a call: a line
// that is unfinished at the end of the buffer is dropped.
//
// Two ways through a line. The rules are a character-by-character state
// machine, and every odd line (unknown names, stray line ends, over-long
// text, sequence fields that run on) goes through it. Almost all traffic is
// well-formed, though, and for such a line the machine's result can be read
// off the whole line at once: where the name ends, which row it is, the
// digits of the sequence number and flag. The whole-line path takes a line
// only when it can prove the machine would accept it without a message and
// hands on exactly what the machine would; otherwise it leaves the line to
// the machine untouched.
#include "protocol/frame_parser.h"

#include <stdlib.h>
#include <string.h>

#include "core/log.h"
#include "protocol/cmd_table.h"
#include "protocol/dispatch.h"

using atcmd::kTagParse;

namespace {

// Log lines carry the public entry's name, which is what field logs are
// searched for, whichever path wrote them.
constexpr const char kParseFn[] = "cmd_Parse_from_buffer";

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

// What the machine would record for a well-formed line.
struct LineFields {
    uint8_t type;
    uint8_t cmd_id;
    bool has_tail;  // "#seq&flag" present
    uint16_t seq_num;
    uint8_t flag;
};

// 1 to 9 decimal digits ending at the first `stop`: then strtol's value is
// plain arithmetic. Anything else (signs, blanks, long numbers, a missing
// stop) is left to strtol on the machine's path. Returns the stop or null.
const char *read_digits(const char *p, const char *end, char stop, long *value) {
    const char *q = p;
    while (q < end && *q >= '0' && *q <= '9') ++q;
    if (q == p || q - p > 9 || q == end || *q != stop) return nullptr;
    long v = 0;
    for (; p < q; ++p) v = v * 10 + (*p - '0');
    *value = v;
    return q;
}

// The characters that end a name: '\r', '=' and '#', and for a command '?'.
struct NameEnds {
    bool response[256] = {};
    bool command[256] = {};
    constexpr NameEnds() {
        for (unsigned char c : "\r=#") response[c] = command[c] = true;
        command[static_cast<unsigned char>('?')] = true;
        response[0] = command[0] = false;  // the string's own NUL
    }
};
constexpr NameEnds kNameEnds;

const char *find(const char *from, const char *to, char c) {
    return static_cast<const char *>(memchr(from, c, static_cast<size_t>(to - from)));
}

// line[0] is '+' or 'A', line[n - 1] the first '\n' behind it. True when
// the machine would take this line as one record without any message.
bool read_whole_line(const char *line, size_t n, LineFields *out) {
    if (n < 3 || n > kMaxLine || line[n - 2] != '\r') return false;
    const char *const cr = line + n - 2;  // must be the line's only '\r'
    const bool command = line[0] == 'A';

    const bool *const ends = command ? kNameEnds.command : kNameEnds.response;
    const char *p = line + 1;
    while (p < cr && !ends[static_cast<unsigned char>(*p)]) ++p;
    if (*p == '\r' && p != cr) return false;  // "\r" without "\n"

    int row;
    if (command) {
        const size_t head = static_cast<size_t>(p - line);
        if (head < 4 || line[1] != 'T') return false;  // the machine logs these
        row = atcmd::command_row(line + 2, head - 2);
        out->type = *p == '=' ? ATCMD_TYPE_SET : *p == '?' ? ATCMD_TYPE_QUERY : ATCMD_TYPE_ACTION;
    } else {
        row = atcmd::response_row(line, static_cast<size_t>(p - line));
        out->type = ATCMD_TYPE_RESPONSE;
    }
    if (row < 0) return false;
    out->cmd_id = static_cast<uint8_t>(row);
    if (atcmd::is_unsolicited_cmd(out->cmd_id)) out->type = ATCMD_TYPE_UNSOLICITED;

    const char *hash = p;
    if (*p == '=' || *p == '?') {
        hash = find(p + 1, cr, '#');
        if (find(p + 1, hash != nullptr ? hash : cr, '\r') != nullptr) return false;
    }
    out->has_tail = hash != nullptr && *hash == '#';
    if (!out->has_tail) return true;

    long seq = 0, flag = 0;
    const char *amp = read_digits(hash + 1, cr, '&', &seq);
    if (amp == nullptr || read_digits(amp + 1, cr + 1, '\r', &flag) != cr) return false;
    out->seq_num = static_cast<uint16_t>(seq);
    out->flag = static_cast<uint8_t>(flag);
    return true;
}

// The end of an accepted line, common to both paths: the record and its
// text go to the hand-off.
void hand_off(AtCmder_t *cmd, const char *text) {
    atcmder_post_parse_process(cmd);
    ATLOGI_FN(kParseFn, atcmd::kLogState, kTagParse,
              "Get one line cmd: idx is %u ,  seq num is %d, flag is %d, cmd is %s", cmd->cmd_id,
              cmd->seq_num, cmd->flag, text);
}

int parse(AtCmder_t *cmd, const char *buffer, bool whole_lines) {
    if (cmd == nullptr || cmd->data == nullptr || buffer == nullptr) return 0;
    char *text = cmd->data;  // the caller's 160-byte buffer
    memset(text, 0, ATCMD_TEXT_MAX);
    const size_t len = strlen(buffer);
    if (len < 1) return 0;

    State state = State::kIdle;
    size_t count = 0;      // characters stored for the current line
    size_t dirty = 0;      // text[dirty..] is known to be zero
    size_t seq_start = 0;  // where the number behind '#' starts in text
    size_t flag_start = 0;
    size_t pos = 0;
    // Unsupported text is skipped to the next line end. The end found is
    // kept (len: there is none), since searching afresh from every skipped
    // character would be quadratic on long text without one.
    size_t next_nl = 0;
    bool nl_known = false;
    auto find_next_nl = [&]() {
        if (!nl_known || next_nl < pos) {
            const char *nl = static_cast<const char *>(memchr(buffer + pos, '\n', len - pos));
            next_nl = nl != nullptr ? static_cast<size_t>(nl - buffer) : len;
            nl_known = true;
        }
    };

    // Clearing the text buffer: only the part that can hold anything.
    auto clear = [&]() {
        memset(text, 0, dirty);
        dirty = 0;
    };
    auto store = [&](char c) {
        text[count++] = c;
        if (count > dirty) dirty = count;
    };
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
        clear();
        count = 0;
        state = State::kIdle;
    };

    while (pos < len) {
        const char c = buffer[pos];
        if (count >= kMaxLine) {
            // The old text is deliberately not cleared: a line that starts
            // here overwrites it from the first position.
            ATLOGI_FN(kParseFn, atcmd::kLogDetail, kTagParse, "Cmd  is too long and not supported!");
            count = 0;
            state = State::kIdle;
        }

        switch (state) {
        case State::kIdle:
            if (c == '+' || c == 'A') {
                LineFields f;
                find_next_nl();
                if (whole_lines && next_nl < len && read_whole_line(buffer + pos, next_nl + 1 - pos, &f)) {
                    const size_t n = next_nl + 1 - pos;
                    cmd->type = f.type;
                    cmd->cmd_id = f.cmd_id;
                    if (f.has_tail) {
                        cmd->seq_num = f.seq_num;
                        cmd->flag = f.flag;
                    }
                    memcpy(text, buffer + pos, n);
                    text[n] = '\0';
                    if (n > dirty) dirty = n;
                    hand_off(cmd, text);
                    clear();
                    pos += n;
                    continue;
                }
                store(c);
                state = c == '+' ? State::kResponseName : State::kCommandName;
            } else {
                find_next_nl();
                if (next_nl < len) pos = next_nl;
                ATLOGI_FN(kParseFn, atcmd::kLogDetail, kTagParse, "Cmd is not supported!");
                clear();
            }
            ++pos;
            continue;

        case State::kResponseName: {
            cmd->type = ATCMD_TYPE_RESPONSE;
            if (c != '\r' && c != '=' && c != '#') break;
            uint8_t idx = 0;
            if (!findResCmdIdx(stored(), &idx)) {
                ATLOGI_FN(kParseFn, atcmd::kLogState, kTagParse, "Cmd  %s is not supported!", text);
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
                ATLOGI_FN(kParseFn, atcmd::kLogState, kTagParse, "Cmd  %s is not supported!", text);
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
                ATLOGI_FN(kParseFn, atcmd::kLogState, kTagParse, "Cmd  %s is not supported!", stored());
                drop_line();
                continue;  // the character may begin the next line
            }
            if (atcmd::is_unsolicited_cmd(cmd->cmd_id)) cmd->type = ATCMD_TYPE_UNSOLICITED;
            text[count] = '\0';
            hand_off(cmd, text);
            drop_line();
            ++pos;
            continue;
        }
        store(c);
        ++pos;
    }
    return 0;
}

}  // namespace

int cmd_Parse_from_buffer(AtCmder_t *cmd, const char *buffer) { return parse(cmd, buffer, true); }

namespace atcmd {

int parse_char_by_char(AtCmder_t *cmd, const char *buffer) { return parse(cmd, buffer, false); }

}  // namespace atcmd
