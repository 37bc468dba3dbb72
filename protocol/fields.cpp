// Reading the value part of a received line. Every helper takes the whole
// line as received ("+NAME=value#seq&flag\r\n") and starts after its first
// '='. The text comes straight from the accessory or a network peer, so no
// copy may run past the caller's field, whatever the line holds.
#include "protocol/fields.h"

#include <stdlib.h>
#include <string.h>

#include "atcmdprocess.h"
#include "core/log.h"

using atcmd::kTagParse;
using atcmd::kVerSlots;

namespace {

constexpr unsigned kErrValue = 3;      // value unreadable
constexpr unsigned kErrDelimiter = 4;  // a delimiter missing

// Copies n characters of src into a slot of slot_size bytes, cut to fit and
// always NUL-terminated inside the slot.
void copy_bounded(char *slot, size_t slot_size, const char *src, size_t n) {
    if (n > slot_size - 1) n = slot_size - 1;
    memcpy(slot, src, n);
    slot[n] = '\0';
}

// Reads the fixed-length number list behind the '=': one separator character
// (any character, the accessory sends ',') is skipped between numbers, a
// missing number reads as 0, and text behind the last number is ignored.
// out is written only when every number was read.
template <size_t N>
bool read_number_list(const char *line, int32_t *out) {
    const char *eq = strchr(line, '=');
    if (eq == nullptr) return false;
    const char *end = line + strlen(line);
    int32_t values[N];
    const char *pos = eq + 1;
    for (size_t i = 0; i < N; ++i) {
        if (i > 0) {
            if (pos == end) return false;
            ++pos;
        }
        char *stop = nullptr;
        values[i] = static_cast<int32_t>(strtol(pos, &stop, 10));
        pos = stop;
    }
    memcpy(out, values, sizeof values);
    return true;
}

struct StateWord {
    const char *word;
    int32_t code;
    bool sent;  // INIT is read from the accessory, never sent to it
};

// Search order: "INIT" is tested before "UPDATE" and "NOACK", so a line that
// holds more than one word takes INIT's code.
constexpr StateWord kStateWords[] = {
    {"IDLE", ATCMD_STATE_IDLE, true},     {"ACTIVE", ATCMD_STATE_ACTIVE, true},
    {"READY", ATCMD_STATE_READY, true},   {"PWROFF", ATCMD_STATE_PWROFF, true},
    {"INIT", ATCMD_STATE_INIT, false},    {"UPDATE", ATCMD_STATE_UPDATE, true},
    {"NOACK", ATCMD_STATE_NOACK, true},
};

}  // namespace

const char *atcmd::state_word(int32_t state) {
    for (const StateWord &w : kStateWords)
        if (w.code == state) return w.sent ? w.word : "";
    return "";
}

unsigned int getvalue_fromCmdString(const char *line, int64_t *value) {
    if (line == nullptr || value == nullptr) return kErrValue;
    const char *eq = strchr(line, '=');
    if (eq == nullptr) return kErrValue;
    *value = strtoll(eq + 1, nullptr, 10);
    return 0;
}

// The value runs from behind the first '=' to the first '#', or without one
// to the first '\r'. An end mark that stands before the '=' leaves no value.
unsigned int getstr_fromCmdString(const char *line, char *out, size_t out_size) {
    if (line == nullptr || out == nullptr || out_size == 0) return kErrDelimiter;
    const char *eq = strchr(line, '=');
    const char *end = strchr(line, '#');
    if (end == nullptr) end = strchr(line, '\r');
    if (eq == nullptr || end == nullptr || end < eq) return kErrDelimiter;
    copy_bounded(out, out_size, eq + 1, static_cast<size_t>(end - eq - 1));
    return 0;
}

unsigned int getstate_fromCmdString(const char *line, int32_t *state) {
    if (state == nullptr) return 0;
    *state = -1;
    if (line == nullptr) return 0;
    for (const StateWord &w : kStateWords) {
        if (strstr(line, w.word) != nullptr) {
            *state = w.code;
            break;
        }
    }
    return 0;
}

namespace {

// The list helpers differ only in their count and in the message that names
// the record on failure; the message carries the helper's public name.
template <size_t N>
unsigned int number_list(const char *func, const char *line, int32_t *out, const char *what) {
    if (line == nullptr || out == nullptr) return kErrValue;
    if (!read_number_list<N>(line, out)) {
        ATLOGE_FN(func, atcmd::kLogAlways, kTagParse, "%s, raw data is %s! ", what, line);
        return kErrValue;
    }
    return 0;
}

}  // namespace

unsigned int getBatinfo_fromCmdString(const char *line, int32_t out[6]) {
    return number_list<6>(__func__, line, out, "Batinfo para error");
}

unsigned int getTmpinfo_fromCmdString(const char *line, int32_t out[2]) {
    return number_list<2>(__func__, line, out, "Tmpinfo para error");
}

unsigned int getUsbDevinfo_fromCmdString(const char *line, int32_t out[2]) {
    return number_list<2>(__func__, line, out, "usbstate para error");
}

unsigned int getHALLinfo_fromCmdString(const char *line, int32_t out[3]) {
    return number_list<3>(__func__, line, out, "get Hall info error");
}

unsigned int getACCinfo_fromCmdString(const char *line, int32_t out[3]) {
    return number_list<3>(__func__, line, out, "get Acc sensor info error");
}

// "+VER=" label:value,label:value,...,label:value#seq&flag: seven values,
// labels skipped. Items read before a failure stay in the block.
unsigned int getVerInfo_fromCmdString(const char *line, char block[256]) {
    if (block == nullptr) return kErrDelimiter;
    memset(block, 0, atcmd::kVerBlockSize);
    if (line == nullptr) return kErrDelimiter;
    const char *pos = line;
    for (size_t i = 0; i < 7; ++i) {
        const char *colon = strchr(pos, ':');
        if (colon == nullptr) return kErrDelimiter;
        const char *end = strchr(colon + 1, i < 6 ? ',' : '#');
        if (end == nullptr) {
            if (i < 6) return kErrDelimiter;
            end = line + strlen(line) - 1;  // item 7 stops before the line's last character
        }
        const size_t n = end > colon + 1 ? static_cast<size_t>(end - colon - 1) : 0;
        char *slot = block + kVerSlots[i].offset;
        if (n == 0)
            copy_bounded(slot, kVerSlots[i].size, "NULL", 4);
        else
            copy_bounded(slot, kVerSlots[i].size, colon + 1, n);
        ATLOGI(atcmd::kLogDetail, kTagParse, "ver item %d is %s", static_cast<int>(i), slot);
        pos = end;
    }
    return 0;
}
