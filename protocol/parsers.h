// The response parsers that AT_CMDS names, each turning one received line
// into a client message and the reply's effects.
#ifndef ATCMD_PROTOCOL_PARSERS_H
#define ATCMD_PROTOCOL_PARSERS_H

#include <stdint.h>

#include "atcmdprocess.h"

extern "C" {

/* Response parsers, one per row of AT_CMDS but "+STARTUP" and "+WIFICON".
 * Each takes the received record (data: the whole line) and returns 0, or
 * ATCMD_PARSE_NO_VALUE when REBOOT_parser or ERROR_parser find no value. */
#define ATCMD_PARSE_NO_VALUE 3

ATCMD_API unsigned int REBOOT_parser(AtCmder_t *cmd);
ATCMD_API unsigned int UPGRADE_parser(AtCmder_t *cmd);
ATCMD_API unsigned int RECOVERY_parser(AtCmder_t *cmd);
ATCMD_API unsigned int SHUTDOWN_parser(AtCmder_t *cmd);
ATCMD_API unsigned int POWEROFF_parser(AtCmder_t *cmd);
ATCMD_API unsigned int RESET_parser(AtCmder_t *cmd);
ATCMD_API unsigned int BTMAC_parser(AtCmder_t *cmd);
ATCMD_API unsigned int BLEMAC_parser(AtCmder_t *cmd);
ATCMD_API unsigned int BAT_parser(AtCmder_t *cmd);
ATCMD_API unsigned int STATE_parser(AtCmder_t *cmd);
ATCMD_API unsigned int VER_parser(AtCmder_t *cmd);
ATCMD_API unsigned int HALL_parser(AtCmder_t *cmd);
ATCMD_API unsigned int SN_parser(AtCmder_t *cmd);
ATCMD_API unsigned int SID_parser(AtCmder_t *cmd);
ATCMD_API unsigned int TYPE_parser(AtCmder_t *cmd);
ATCMD_API unsigned int USBSTATE_parser(AtCmder_t *cmd);
ATCMD_API unsigned int SCREEN_parser(AtCmder_t *cmd);
ATCMD_API unsigned int MICMODE_parser(AtCmder_t *cmd);
ATCMD_API unsigned int WIFI_parser(AtCmder_t *cmd);
ATCMD_API unsigned int BT_parser(AtCmder_t *cmd);
ATCMD_API unsigned int TIME_parser(AtCmder_t *cmd);
ATCMD_API unsigned int OK_parser(AtCmder_t *cmd);
ATCMD_API unsigned int ERROR_parser(AtCmder_t *cmd);
ATCMD_API unsigned int SLEEP_parser(AtCmder_t *cmd);
ATCMD_API unsigned int BATCG_parser(AtCmder_t *cmd);
ATCMD_API unsigned int BKL_parser(AtCmder_t *cmd);
ATCMD_API unsigned int MODE_parser(AtCmder_t *cmd);
ATCMD_API unsigned int ACC_parser(AtCmder_t *cmd);
ATCMD_API unsigned int LIGHT_parser(AtCmder_t *cmd);
ATCMD_API unsigned int HALLCG_parser(AtCmder_t *cmd);
ATCMD_API unsigned int TEST_parser(AtCmder_t *cmd);
ATCMD_API unsigned int HRM_TEMP_parser(AtCmder_t *cmd);
ATCMD_API unsigned int DTR_parser(AtCmder_t *cmd);
ATCMD_API unsigned int PTEST_parser(AtCmder_t *cmd);
ATCMD_API unsigned int MMI1_parser(AtCmder_t *cmd);
ATCMD_API unsigned int PT_parser(AtCmder_t *cmd);
ATCMD_API unsigned int WT_parser(AtCmder_t *cmd);
/* Beside the table; no row leads to them. */
ATCMD_API unsigned int INFO_parser(AtCmder_t *cmd);
ATCMD_API unsigned int SENSOR_parser(AtCmder_t *cmd);
}

#endif
