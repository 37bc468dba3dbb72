// AT_CMDS, the one table of the AT vocabulary, and its two lookups. A row's
// index is the command number the client sees (cmd_id), so rows are never
// reordered, inserted or removed.
#include "protocol/cmd_table.h"

#include <string.h>

#include "core/log.h"

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

}  // namespace

int findAtCmdIdx(const char *text, uint8_t *idx) {
    if (text == nullptr || idx == nullptr) return 0;
    if (strlen(text) < 4 || text[0] != 'A' || text[1] != 'T') {
        ATLOGE(0, atcmd::kTagParse, "Invalidate AT command!");
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
