// The model codes the parsers compare the accessory's "+TYPE" with, beside
// the record they fill (g_kavren_devInfo, in the client's header).
#ifndef ATCMD_PROTOCOL_ACCESSORY_INFO_H
#define ATCMD_PROTOCOL_ACCESSORY_INFO_H

#include <stdint.h>

#include "atcmdprocess.h"

extern "C" {

/* Model codes that TYPE_parser compares "+TYPE" replies with. */
ATCMD_API extern char type_with_wifi[32];
ATCMD_API extern char type_without_wifi[32];
}

#endif
