// Internal entry of the timeout thread's scan, for tests that drive it with
// chosen clock readings instead of the wall clock.
#ifndef ATCMD_PROTOCOL_TIMEOUT_H
#define ATCMD_PROTOCOL_TIMEOUT_H

#include <stdint.h>
#include "atcmdprocess.h"

extern "C" {

ATCMD_API extern uint64_t g_timeout;
ATCMD_API void *atcmder_Timeout_thread(void *arg);
ATCMD_API int rmTimeoutItem(AtCmder_t *reply);
ATCMD_API void notifytimeout(AtCmder_t *cmd);
ATCMD_API void notifyUartNotWork(void);
}

namespace atcmd {

// One pass over Timeout_head at the time now: drops entries with an empty
// text, resends late entries that were resent fewer than two times, and
// reports and drops the others. Expects g_timeoutqueue_mutex held; takes
// g_txqueue_mutex for a resend and calls the client for a final time-out.
void timeout_scan_locked(int64_t now_sec, int64_t now_usec);

}  // namespace atcmd

#endif
