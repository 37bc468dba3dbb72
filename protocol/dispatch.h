// The dispatch thread: received records off the receive queue, each to its
// row's parser, then what happens after a parse.
#ifndef ATCMD_PROTOCOL_DISPATCH_H
#define ATCMD_PROTOCOL_DISPATCH_H

#include <stdint.h>

#include "atcmdprocess.h"

extern "C" {

ATCMD_API void atcmder_post_parse_process(AtCmder_t *cmd);
ATCMD_API void *atcmder_dispatch_thread(void *arg);
ATCMD_API int atcmder_dispatch(AtCmder_t *cmd);
}

#endif
