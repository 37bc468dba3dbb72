// Heavy transmit while a link is torn down and set up again in a loop, and
// the hosting process opens and closes files as fast as it can: a byte meant
// for the accessory that lands in one of those files went through a number
// that was closed and reused. The soak's link_reuse item runs it: short in
// the test command's sanitizer runs, long with figures in the bench.
#ifndef ATCMD_BENCH_SOAK_LINK_STRESS_H
#define ATCMD_BENCH_SOAK_LINK_STRESS_H

#include <stddef.h>

#include <string>

#include "scenarios/module.h"

namespace scenario {

enum class StressedLink { kUsb, kWifi, kUart };

struct StressFigures {
    int cycles = 0;             // completed tear-down and set-up cycles
    size_t sent = 0;            // client lines handed to cmd_from_hidl
    size_t delivered = 0;       // of those, seen by the accessory or the daemon
    size_t host_opens = 0;      // files the hosting process opened meanwhile
    size_t misdirected = 0;     // bytes found in those files: must be 0
    std::string failure;        // the step that did not happen, if any
};

// Runs `cycles` cycles on one link of an opened module (platform 1 for USB
// and WiFi; the UART cycles switch the device to platform 2 and start the
// UART receive thread as a client does). Files go under scratch_dir.
StressFigures stress_link(Module &m, const std::string &sysroot, atsim::Transcript &t,
                          StressedLink link, int cycles, const std::string &scratch_dir);

// How often `what` appears in the file at path (the module's log, say).
size_t count_in_file(const std::string &path, const std::string &what);

}  // namespace scenario

#endif
