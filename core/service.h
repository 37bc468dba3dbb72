// Helpers for signalling the service threads by their global handles.
#ifndef ATCMD_CORE_SERVICE_H
#define ATCMD_CORE_SERVICE_H

#include <pthread.h>

namespace atcmd {

// pthread_kill on a handle that may be 0 (thread not running): a 0 handle is
// not handed to pthread_kill, which would crash on it; ESRCH is returned.
int signal_thread(pthread_t thread, int sig);

}  // namespace atcmd

#endif
