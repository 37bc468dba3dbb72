// The AT vocabulary's two lookups as pure functions over AT_CMDS, usable in
// constant expressions so that consequences of the table order can be pinned
// at compile time (see cmd_table.cpp).
#ifndef ATCMD_PROTOCOL_CMD_TABLE_H
#define ATCMD_PROTOCOL_CMD_TABLE_H

#include <stddef.h>
#include <stdint.h>

#include "atcmdprocess.h"

extern "C" {

ATCMD_API int findAtCmdIdx(const char *text, uint8_t *idx);
ATCMD_API int findResCmdIdx(const char *name, uint8_t *idx);
}

namespace atcmd {

// Rows whose received lines are unsolicited reports (type 5).
constexpr bool is_unsolicited_cmd(uint8_t idx) {
    return idx == ATCMD_ID_BATCG || idx == ATCMD_ID_HALLCG || idx == ATCMD_ID_HRM;
}

constexpr size_t const_strlen(const char *s) {
    size_t n = 0;
    while (s[n] != '\0') ++n;
    return n;
}

// strncmp(a, b, n) == 0, usable at compile time.
constexpr bool same_prefix(const char *a, const char *b, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        if (a[i] != b[i]) return false;
        if (a[i] == '\0') return true;
    }
    return true;
}

// The response-name rule: the first row whose name begins with the n
// characters of name wins. A name that is the start of an earlier row's name
// lands on that row ("+BT" on "+BTMAC"); the accessory's firmware relies on
// this routing, so it stays. Returns the row or -1.
constexpr int res_prefix_index(const at_cmd_t *table, size_t rows, const char *name, size_t n) {
    for (size_t i = 0; i < rows; ++i)
        if (same_prefix(name, table[i].name, n)) return static_cast<int>(i);
    return -1;
}

// The command rule: the text behind "AT" equals a row's name exactly.
constexpr int at_exact_index(const at_cmd_t *table, size_t rows, const char *name) {
    const size_t n = const_strlen(name);
    for (size_t i = 0; i < rows; ++i)
        if (same_prefix(name, table[i].name, n + 1)) return static_cast<int>(i);
    return -1;
}

// The same two rules for the receive path, which meets a name as n bytes of
// a line rather than as a string of its own. They answer exactly as the
// functions above over AT_CMDS but look only at the rows whose name starts
// with the same letter. Both return the row or -1.
int response_row(const char *name, size_t n);
int command_row(const char *name, size_t n);  // name: the text behind "AT"

}  // namespace atcmd

#endif
