// The service's start-up, the signal thread and the shut-down: the one place
// that knows every layer.
#ifndef ATCMD_HAL_SERVICE_H
#define ATCMD_HAL_SERVICE_H

#include <stdint.h>

#include "atcmdprocess.h"

extern "C" {

/* Start-up, called by the module's open: queues, the blocked service signals
 * (SIGUSR1, SIGUSR2, SIGURG, SIGVTALRM, taken only by the signal thread) and
 * the service threads. Returns 0, or 1 when a thread could not be started. */
ATCMD_API int atcmder_hal_open(void);
/* The signal thread: turns the service signals into link events (USB node
 * in, USB node out, WiFi up, hand-shake). */
ATCMD_API void *atcmder_sigProcess_thread(void *arg);

/* Shut-down, called by the device's close: closes the links, empties the
 * queues and sends SIGKILL to the service threads, which ends the hosting
 * process whenever one of them runs. */
ATCMD_API int atcmder_hal_close(void);
}

namespace atcmd {

// The signal thread's steps log as the signal thread.
inline constexpr char kSignalThread[] = "atcmder_sigProcess_thread";

// The signal thread's closing line after each link event.
void log_cast_mode(const system_status_t *st);

}  // namespace atcmd

#endif
