// Reports to the accessory and to the client beyond the ones a client sends
// by name.
#ifndef ATCMD_DEVICE_REPORTS_H
#define ATCMD_DEVICE_REPORTS_H

#include <stdint.h>

#include "atcmdprocess.h"

extern "C" {

/* The property send_bt_mac reads the phone's Bluetooth address from. */
ATCMD_API extern const char *bt_mac_prop;

ATCMD_API int send_stateToMCU(void);
/* Both wait up to about 2 s for their property. */
ATCMD_API int send_bt_mac(void);
ATCMD_API int send_amlogic_ver(void);
ATCMD_API void notify_wifi_state(int64_t state);
}

#endif
