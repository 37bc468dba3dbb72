// The WiFi link as the client drives it: start and stop a cast, and the
// daemon's status texts passed on; and what the signal thread does when the
// daemon reports "running". With link/wifi_link.h (the FIFO channel) and
// link/hiddemon.h (the daemon), this is the whole WiFi path.
#ifndef ATCMD_HAL_WIFI_CONTROL_H
#define ATCMD_HAL_WIFI_CONTROL_H

#include <stdint.h>

#include "atcmdprocess.h"

extern "C" {

ATCMD_API int atcmdprocess_wifi_init(const char *ipaddr);
ATCMD_API int atcmdprocess_wifi_stchange(int32_t state);
ATCMD_API int atcmdprocess_hiddemon_stchange(const char *status);
}

namespace atcmd {

// On the signal thread, for SIGURG: opens the channel and starts its
// threads, unless WiFi was stopped since the daemon's "running".
void wifi_up(system_status_t *st);

}  // namespace atcmd

#endif
