// A message the module hands its client, read the way its row says
// (atcmd_payload_kind_of) and kept: the message and its payload live on the
// module's stack only for the callback, so a client copies what it keeps,
// with the width the row carries. Two ways to write one down:
//   describe(): for people, e.g.
//     +SN (13) seq 13: "KV5816A00123"
//     +USBSTATE (16) seq 0: connected=1 devinfo=3
//     +ERROR (24) seq 13: -110 (reply timed out)
//   brief(): one short token to compare against, "name/seq:payload", e.g.
//     +SN/13:'KV5816A00123'   +USBSTATE/0:1,3   +ERROR/13:-110   +SHUTDOWN/0:-
#ifndef ATCMD_CLIENT_MESSAGE_H
#define ATCMD_CLIENT_MESSAGE_H

#include <stddef.h>
#include <stdint.h>

#include <string>

#include "atcmdprocess.h"

namespace atcmd_client {

struct Message {
    uint16_t cmd_id = 0;
    uint16_t seq_num = 0;
    bool has_data = false;
    atcmd_payload_kind kind = ATCMD_PAYLOAD_NONE;  // NONE too when data was NULL
    // The int32 values in i32: a list's count, 2 for the USB event
    // (connected, devinfo), 1 for "+ERROR" (its first word).
    size_t count = 0;
    std::string text;
    int32_t i32[6] = {};
    // A number; for "+ERROR" the whole 8 bytes (the accessory's number).
    int64_t i64 = 0;
};

// Copies msg and its payload, nothing more than its row says is there.
Message copy_message(const AT_CMD_CbMsg_t &msg);

// table: the module's AT_CMDS (ATCMD_NUM_CMDS rows) or nullptr; a row it
// cannot name reads "row N".
std::string row_name(uint16_t cmd_id, const at_cmd_t *table);

std::string describe(const Message &m, const at_cmd_t *table);
std::string describe(const AT_CMD_CbMsg_t &msg, const at_cmd_t *table);
std::string brief(const Message &m, const at_cmd_t *table);

}  // namespace atcmd_client

#endif
