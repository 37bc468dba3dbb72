// The transmit thread's rule for which records wait on the timeout queue.
#ifndef ATCMD_PROTOCOL_TRANSMIT_H
#define ATCMD_PROTOCOL_TRANSMIT_H

#include <stdint.h>

#include "atcmdprocess.h"
#include "link/link_writer.h"  // the ATCMD_TX_* results

extern "C" {

ATCMD_API void *atcmder_Tx_thread(void *arg);
ATCMD_API int atcmder_Tx_process(AtCmder_t *cmd);
}

namespace atcmd {

// A command (type 1 to 3) of this side's own link (flag == platform) that
// carries a sequence number and is one of the first 19 table rows.
bool awaits_reply(const AtCmder_t &cmd, int32_t platform);

}  // namespace atcmd

#endif
