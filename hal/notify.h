// The one way the service reports to its client: the notify callback of the
// device object. Runs the callback on the caller's thread.
#ifndef ATCMD_HAL_NOTIFY_H
#define ATCMD_HAL_NOTIFY_H

#include "atcmdprocess.h"

namespace atcmd {

// Hands msg to the client's callback. A client that has not installed one
// (or no device yet) must not bring the service down: the message is dropped
// with a log line instead.
void notify_client(AT_CMD_CbMsg_t *msg);

}  // namespace atcmd

#endif
