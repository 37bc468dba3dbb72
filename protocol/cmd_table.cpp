// AT_CMDS, the one table of the AT vocabulary, and its two lookups. A row's
// index is the command number the client sees (cmd_id), so rows are never
// reordered, inserted or removed.
#include "protocol/cmd_table.h"

#include <string.h>

#include "core/log.h"
#include "protocol/parsers.h"

// Rows "+STARTUP" and "+WIFICON" have no parser: dispatch skips them.
constexpr at_cmd_t AT_CMDS[ATCMD_NUM_CMDS] = {
    {"+REBOOT", REBOOT_parser},     {"+UPGRADE", UPGRADE_parser},   {"+RECOVERY", RECOVERY_parser},
    {"+SHUTDOWN", SHUTDOWN_parser}, {"+POWEROFF", POWEROFF_parser}, {"+RESET", RESET_parser},
    {"+STARTUP", nullptr},          {"+BTMAC", BTMAC_parser},       {"+BLEMAC", BLEMAC_parser},
    {"+BAT", BAT_parser},           {"+STATE", STATE_parser},       {"+VER", VER_parser},
    {"+HALL", HALL_parser},         {"+SN", SN_parser},             {"+SID", SID_parser},
    {"+TYPE", TYPE_parser},         {"+USBSTATE", USBSTATE_parser}, {"+SCREEN", SCREEN_parser},
    {"+WIFICON", nullptr},          {"+MICMODE", MICMODE_parser},   {"+WIFI", WIFI_parser},
    {"+BT", BT_parser},             {"+TIME", TIME_parser},         {"+OK", OK_parser},
    {"+ERROR", ERROR_parser},       {"+SLEEP", SLEEP_parser},       {"+BATCG", BATCG_parser},
    {"+BKL", BKL_parser},           {"+MODE", MODE_parser},         {"+ACC", ACC_parser},
    {"+LIGHT", LIGHT_parser},       {"+HALLCG", HALLCG_parser},     {"+TEST", TEST_parser},
    {"+HRM", HRM_TEMP_parser},      {"+DTR", DTR_parser},           {"+PTEST", PTEST_parser},
    {"+MMI1", MMI1_parser},         {"+PT", PT_parser},             {"+WT", WT_parser},
};

namespace {

constexpr int res_row(const char *name) {
    return atcmd::res_prefix_index(AT_CMDS, ATCMD_NUM_CMDS, name, atcmd::const_strlen(name));
}
constexpr int cmd_row(const char *name) {
    return atcmd::at_exact_index(AT_CMDS, ATCMD_NUM_CMDS, name);
}

// Every row's name in the public header is its row here, exactly.
#define ROW_IS(name) (cmd_row("+" #name) == ATCMD_ID_##name)
static_assert(ROW_IS(REBOOT) && ROW_IS(UPGRADE) && ROW_IS(RECOVERY) && ROW_IS(SHUTDOWN) &&
                  ROW_IS(POWEROFF) && ROW_IS(RESET) && ROW_IS(STARTUP) && ROW_IS(BTMAC) &&
                  ROW_IS(BLEMAC) && ROW_IS(BAT) && ROW_IS(STATE) && ROW_IS(VER) && ROW_IS(HALL) &&
                  ROW_IS(SN) && ROW_IS(SID) && ROW_IS(TYPE) && ROW_IS(USBSTATE) && ROW_IS(SCREEN) &&
                  ROW_IS(WIFICON) && ROW_IS(MICMODE) && ROW_IS(WIFI) && ROW_IS(BT) &&
                  ROW_IS(TIME) && ROW_IS(OK) && ROW_IS(ERROR) && ROW_IS(SLEEP) && ROW_IS(BATCG) &&
                  ROW_IS(BKL) && ROW_IS(MODE) && ROW_IS(ACC) && ROW_IS(LIGHT) && ROW_IS(HALLCG) &&
                  ROW_IS(TEST) && ROW_IS(HRM) && ROW_IS(DTR) && ROW_IS(PTEST) && ROW_IS(MMI1) &&
                  ROW_IS(PT) && ROW_IS(WT) && ATCMD_ID_WT + 1 == ATCMD_NUM_CMDS,
              "the public row names match AT_CMDS");
#undef ROW_IS

// The response-name prefix rule and its consequences.
static_assert(res_row("+BT") == ATCMD_ID_BTMAC && res_row("+WIFI") == ATCMD_ID_WIFICON &&
                  res_row("+PT") == ATCMD_ID_PTEST && res_row("+") == ATCMD_ID_REBOOT,
              "short response names land on the first row they begin");
static_assert(res_row("+BAT") == ATCMD_ID_BAT && res_row("+BATCG") == ATCMD_ID_BATCG &&
                  res_row("+HALL") == ATCMD_ID_HALL && res_row("+HALLCG") == ATCMD_ID_HALLCG,
              "+BAT and +HALL stand before +BATCG and +HALLCG");
static_assert(res_row("+OKAY") == -1 && cmd_row("+VE") == -1 && cmd_row("+VERX") == -1, "no row");

// Rows grouped by the letter behind the '+', each group in row order, so
// that "first row wins" still holds inside a group. No name is longer than
// 9 characters, so the 8 behind the '+' fit one word and a prefix test is a
// masked compare.
constexpr size_t kLongestName = 9;

constexpr uint64_t name_key(const char *name, size_t n) {
    uint64_t key = 0;
    for (size_t i = 1; i < n; ++i) key |= uint64_t{static_cast<unsigned char>(name[i])} << (8 * (i - 1));
    return key;
}

struct LetterIndex {
    uint8_t begin[27] = {};  // letter L's rows are row[begin[L]] .. row[begin[L + 1] - 1]
    uint8_t row[ATCMD_NUM_CMDS] = {};
    uint8_t length[ATCMD_NUM_CMDS] = {};  // by row number, like key
    uint64_t key[ATCMD_NUM_CMDS] = {};
};

constexpr LetterIndex make_letter_index() {
    LetterIndex index;
    size_t next = 0;
    for (int letter = 0; letter < 26; ++letter) {
        index.begin[letter] = static_cast<uint8_t>(next);
        for (size_t r = 0; r < ATCMD_NUM_CMDS; ++r)
            if (AT_CMDS[r].name[1] == 'A' + letter) index.row[next++] = static_cast<uint8_t>(r);
    }
    index.begin[26] = static_cast<uint8_t>(next);
    for (size_t r = 0; r < ATCMD_NUM_CMDS; ++r) {
        index.length[r] = static_cast<uint8_t>(atcmd::const_strlen(AT_CMDS[r].name));
        index.key[r] = name_key(AT_CMDS[r].name, index.length[r]);
    }
    return index;
}

constexpr LetterIndex kLetters = make_letter_index();
static_assert(kLetters.begin[26] == ATCMD_NUM_CMDS, "every name is '+' and a capital letter");

constexpr bool longest_name_fits() {
    for (size_t r = 0; r < ATCMD_NUM_CMDS; ++r)
        if (kLetters.length[r] > kLongestName) return false;
    return true;
}
static_assert(longest_name_fits(), "a name's letters fit one 64-bit key");

// Shared by both rules: the first row of the name's letter group that has
// at least (exact: just) n characters and starts with the name.
constexpr int letter_group_row(const char *name, size_t n, bool exact) {
    if (n < 2 || n > kLongestName || name[0] != '+' || name[1] < 'A' || name[1] > 'Z') return -1;
    const uint64_t key = name_key(name, n);
    const uint64_t mask = n - 1 == 8 ? ~uint64_t{0} : (uint64_t{1} << (8 * (n - 1))) - 1;
    const int letter = name[1] - 'A';
    for (int i = kLetters.begin[letter]; i < kLetters.begin[letter + 1]; ++i) {
        const int r = kLetters.row[i];
        const size_t len = kLetters.length[r];
        if ((exact ? len == n : len >= n) && (kLetters.key[r] & mask) == key) return r;
    }
    return -1;
}

// Both rules agree with the row-by-row scan on every prefix of every name,
// the only texts that can match at all.
constexpr bool letter_index_agrees() {
    for (size_t r = 0; r < ATCMD_NUM_CMDS; ++r) {
        const char *name = AT_CMDS[r].name;
        for (size_t n = 2; n <= kLetters.length[r]; ++n) {
            if (letter_group_row(name, n, false) !=
                atcmd::res_prefix_index(AT_CMDS, ATCMD_NUM_CMDS, name, n))
                return false;
        }
        if (letter_group_row(name, kLetters.length[r], true) != cmd_row(name)) return false;
    }
    return true;
}
static_assert(letter_index_agrees(), "the letter groups answer as the table scan does");

}  // namespace

namespace atcmd {

int response_row(const char *name, size_t n) {
    // "" and "+" begin every name: the first row.
    if (n == 0 || (n == 1 && name[0] == '+')) return 0;
    return letter_group_row(name, n, false);
}

int command_row(const char *name, size_t n) { return letter_group_row(name, n, true); }

}  // namespace atcmd

int findAtCmdIdx(const char *text, uint8_t *idx) {
    if (text == nullptr || idx == nullptr) return 0;
    if (strlen(text) < 4 || text[0] != 'A' || text[1] != 'T') {
        ATLOGE(atcmd::kLogAlways, atcmd::kTagParse, "Invalidate AT command!");
        return 0;
    }
    int row = atcmd::command_row(text + 2, strlen(text + 2));
    if (row < 0) return 0;
    *idx = static_cast<uint8_t>(row);
    return 1;
}

int findResCmdIdx(const char *name, uint8_t *idx) {
    if (name == nullptr || idx == nullptr) return 0;
    int row = atcmd::response_row(name, strlen(name));
    if (row < 0) return 0;
    *idx = static_cast<uint8_t>(row);
    return 1;
}
