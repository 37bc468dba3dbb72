// The service's waits that last long enough to matter to a test suite, in
// microseconds, with the values the module ships with. They are variables
// only so that tests can shorten them before they start the thread that
// waits; nothing in the module writes them.
#ifndef ATCMD_CORE_DELAYS_H
#define ATCMD_CORE_DELAYS_H

#include <unistd.h>

namespace atcmd {

struct Delays {
    // A HID daemon whose heartbeat number does not change for this long is
    // restarted.
    useconds_t heartbeat_period = 5000000;
    // How long the daemon has to acknowledge "exit" before it is stopped by
    // force (one check, no polling).
    useconds_t daemon_exit_ack = 1000000;
    // Between attempts at a UART that cannot be read or opened.
    useconds_t uart_retry_pause = 1000000;
    // After a failed virtual UART read, before looking for the node.
    useconds_t vuart_recheck_pause = 300000;
};

inline Delays g_delays;

}  // namespace atcmd

#endif
