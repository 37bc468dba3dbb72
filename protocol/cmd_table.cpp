// AT_CMDS, the one table of the AT vocabulary, and its two lookups. A row's
// index is the command number the client sees (cmd_id), so rows are never
// reordered, inserted or removed.
#define LOG_TAG "ATCMD_PARSE"
#include "protocol/cmd_table.h"

#include <string.h>

#include "core/log.h"

// Parsers are filled in as they are written; dispatch skips a row without
// one, as it always has for "+STARTUP" and "+WIFICON".
constexpr at_cmd_t AT_CMDS[ATCMD_NUM_CMDS] = {
    {"+REBOOT", nullptr},   {"+UPGRADE", nullptr}, {"+RECOVERY", nullptr}, {"+SHUTDOWN", nullptr},
    {"+POWEROFF", nullptr}, {"+RESET", nullptr},   {"+STARTUP", nullptr},  {"+BTMAC", nullptr},
    {"+BLEMAC", nullptr},   {"+BAT", nullptr},     {"+STATE", nullptr},    {"+VER", nullptr},
    {"+HALL", nullptr},     {"+SN", nullptr},      {"+SID", nullptr},      {"+TYPE", nullptr},
    {"+USBSTATE", nullptr}, {"+SCREEN", nullptr},  {"+WIFICON", nullptr},  {"+MICMODE", nullptr},
    {"+WIFI", nullptr},     {"+BT", nullptr},      {"+TIME", nullptr},     {"+OK", nullptr},
    {"+ERROR", nullptr},    {"+SLEEP", nullptr},   {"+BATCG", nullptr},    {"+BKL", nullptr},
    {"+MODE", nullptr},     {"+ACC", nullptr},     {"+LIGHT", nullptr},    {"+HALLCG", nullptr},
    {"+TEST", nullptr},     {"+HRM", nullptr},     {"+DTR", nullptr},      {"+PTEST", nullptr},
    {"+MMI1", nullptr},     {"+PT", nullptr},      {"+WT", nullptr},
};

namespace {

constexpr int res_row(const char *name) {
    return atcmd::res_prefix_index(AT_CMDS, ATCMD_NUM_CMDS, name, atcmd::const_strlen(name));
}
constexpr int cmd_row(const char *name) {
    return atcmd::at_exact_index(AT_CMDS, ATCMD_NUM_CMDS, name);
}

// What the client and the accessory count on.
static_assert(cmd_row("+SHUTDOWN") == 3 && cmd_row("+USBSTATE") == 16 &&
                  cmd_row("+ERROR") == atcmd::kCmdError && cmd_row("+DTR") == atcmd::kCmdDtr,
              "rows the service itself names");
static_assert(cmd_row("+BATCG") == atcmd::kCmdBatcg && cmd_row("+HALLCG") == atcmd::kCmdHallcg &&
                  cmd_row("+HRM") == atcmd::kCmdHrm,
              "unsolicited report rows");
static_assert(cmd_row("+VER") == 11 && cmd_row("+BT") == 21 && cmd_row("+PT") == 37 &&
                  cmd_row("+WT") == 38,
              "command lines match names exactly");
// The response-name prefix rule and its consequences.
static_assert(res_row("+BT") == 7 && res_row("+WIFI") == 18 && res_row("+PT") == 35 &&
                  res_row("+") == 0,
              "short response names land on the first row they begin");
static_assert(res_row("+BAT") == 9 && res_row("+BATCG") == 26 && res_row("+HALL") == 12 &&
                  res_row("+HALLCG") == 31,
              "+BAT and +HALL stand before +BATCG and +HALLCG");
static_assert(res_row("+OKAY") == -1 && cmd_row("+VE") == -1, "no row");

}  // namespace

int findAtCmdIdx(const char *text, uint8_t *idx) {
    if (text == nullptr || idx == nullptr) return 0;
    if (strlen(text) < 4 || text[0] != 'A' || text[1] != 'T') {
        ATLOGE(0, "Invalidate AT command!");
        return 0;
    }
    int row = atcmd::at_exact_index(AT_CMDS, ATCMD_NUM_CMDS, text + 2);
    if (row < 0) return 0;
    *idx = static_cast<uint8_t>(row);
    return 1;
}

int findResCmdIdx(const char *name, uint8_t *idx) {
    if (name == nullptr || idx == nullptr) return 0;
    int row = atcmd::res_prefix_index(AT_CMDS, ATCMD_NUM_CMDS, name, strlen(name));
    if (row < 0) return 0;
    *idx = static_cast<uint8_t>(row);
    return 1;
}
