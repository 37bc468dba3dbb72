// The WiFi channel's receive thread: lines from /dev/fifo_rx to the frame
// parser, ended from outside with SIGALRM.
#ifndef ATCMD_LINK_WIFI_RX_H
#define ATCMD_LINK_WIFI_RX_H

#include <stdint.h>

#include "atcmdprocess.h"

extern "C" {

ATCMD_API void *atcmder_wifiRx_thread(void *arg);
}

#endif
