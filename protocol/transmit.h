// The transmit thread's rule for which records wait on the timeout queue.
#ifndef ATCMD_PROTOCOL_TRANSMIT_H
#define ATCMD_PROTOCOL_TRANSMIT_H

#include <stdint.h>

#include "atcmdprocess.h"

extern "C" {

/* Result codes of atcmder_Tx_process. */
#define ATCMD_TX_VUART_CLOSED 5
#define ATCMD_TX_FIFO_WRITE_FAILED 14
#define ATCMD_TX_UART_CLOSED 15
#define ATCMD_TX_FIFO_CLOSED 16
/* The link went away, or took nothing for a second, while the record
 * waited to be written: the record was dropped (and logged). */
#define ATCMD_TX_DROPPED 17

ATCMD_API void *atcmder_Tx_thread(void *arg);
ATCMD_API int atcmder_Tx_process(AtCmder_t *cmd);
}

namespace atcmd {

// A command (type 1 to 3) of this side's own link (flag == platform) that
// carries a sequence number and is one of the first 19 table rows.
bool awaits_reply(const AtCmder_t &cmd, int32_t platform);

}  // namespace atcmd

#endif
