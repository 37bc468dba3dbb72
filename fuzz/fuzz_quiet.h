// Shared by the fuzz targets and the benchmark: keeps every log statement
// running (its formatting is part of what is exercised and measured) while
// its output goes nowhere, and installs a device object.
#ifndef ATCMD_FUZZ_FUZZ_QUIET_H
#define ATCMD_FUZZ_FUZZ_QUIET_H

#include <android/log.h>
#include <string.h>

#include "atcmdprocess.h"
#include "core/device_state.h"
#include "hal/device_ops.h"

namespace atcmd_fuzz {

inline void discard_log(const struct __android_logger_data *, const char *) {}

// Android log lines are still formatted by liblog, then handed here and dropped.
inline void silence_android_log() { __android_log_set_logger(discard_log); }

inline atcmdprocess_device_t *install_device() {
    static atcmdprocess_device_t dev;
    memset(&dev, 0, sizeof dev);
    atcmd::init_device(&dev, nullptr);
    atcmd::install_device(&dev);
    return &dev;
}

}  // namespace atcmd_fuzz

#endif
