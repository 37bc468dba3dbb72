// The service's waits that last long enough to matter to a test suite, in
// microseconds, with the values the module ships with. They are variables
// only so that tests can shorten them before they start the thread that
// waits: a unit test writes them directly, a harness that only loads the
// module names them in the host platform's override setting, which the
// module's first open applies.
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

// Sets the waits that text names, a comma-separated list of member names of
// Delays with a number of microseconds each:
//     heartbeat_period=300000,daemon_exit_ack=100000
// An entry with another name or with anything but a positive number that
// fits is left out: the rest of a harness's setting still counts, and one
// log line names what was left out. One log line names the waits set.
void apply_delay_overrides(const char *text);

// The platform's override setting (platform/delay_overrides.h), if there is
// one, applied once per process: at the first open, before any thread that
// waits starts. A later open finds those threads reading the waits.
void load_delay_overrides();

}  // namespace atcmd

#endif
