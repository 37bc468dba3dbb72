// Supervision of the HID daemon beyond its exported entry points: the
// heartbeat number the client passes in, and the end of the heartbeat thread.
#ifndef ATCMD_LINK_HIDDEMON_H
#define ATCMD_LINK_HIDDEMON_H

#include <stdint.h>
#include "atcmdprocess.h"

extern "C" {

ATCMD_API extern uint64_t g_wifiHBeat_num;

ATCMD_API void *atcmder_wifiHBeat_thread(void *arg);
ATCMD_API int stop_hiddemon(void);
ATCMD_API int Kill_hiddemon_byforce(void);
}

namespace atcmd {

// Stores the daemon's latest heartbeat number for the heartbeat thread.
void record_heartbeat(uint64_t num);

// Ends the heartbeat thread (SIGALRM, then join), once: a second caller, or
// one that finds no thread running, returns at once.
void stop_heartbeat_thread();

}  // namespace atcmd

#endif
