// Supervision of the HID daemon beyond its exported entry points: the
// heartbeat number the client passes in, and the end of the heartbeat thread.
#ifndef ATCMD_LINK_HIDDEMON_H
#define ATCMD_LINK_HIDDEMON_H

#include <stdint.h>

namespace atcmd {

// Stores the daemon's latest heartbeat number for the heartbeat thread.
void record_heartbeat(uint64_t num);

// Ends the heartbeat thread (SIGALRM, then join), once: a second caller, or
// one that finds no thread running, returns at once.
void stop_heartbeat_thread();

}  // namespace atcmd

#endif
