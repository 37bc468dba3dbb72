// Turns a message the module hands its client into one readable line:
// the row's name and number, the sequence number and the payload read the
// way its row says (atcmd_payload_kind_of), e.g.
//   +SN (13) seq 13: "KV5816A00123"
//   +BAT (9) seq 9: 85,1,3900,250,1,0
//   +ERROR (24) seq 13: -110 (reply timed out)
#ifndef ATCMD_CONSOLE_DECODE_H
#define ATCMD_CONSOLE_DECODE_H

#include <string>

#include "atcmdprocess.h"

namespace atcmd_console {

// table: the module's AT_CMDS (ATCMD_NUM_CMDS rows) or nullptr; a row it
// cannot name reads "row N".
std::string describe(const AT_CMD_CbMsg_t &msg, const at_cmd_t *table);

}  // namespace atcmd_console

#endif
