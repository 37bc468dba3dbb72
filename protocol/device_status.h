// Reads of the device's system status for the protocol threads. These
// threads can run before open has installed a device (in tests, and in a
// process that drives the protocol alone), so every read goes through here.
#ifndef ATCMD_PROTOCOL_DEVICE_STATUS_H
#define ATCMD_PROTOCOL_DEVICE_STATUS_H

#include "atcmdprocess.h"

namespace atcmd {

struct LinkStatus {
    int32_t platform;
    int32_t mode;
};

// False when no device is installed; out is then left alone. The fields are
// read without a lock, as everywhere: the signal thread is their writer.
inline bool read_link_status(LinkStatus *out) {
    const atcmdprocess_device_t *dev = g_patcmd_dev;
    if (dev == nullptr) return false;
    out->platform = dev->system_status.platform;
    out->mode = dev->system_status.mode;
    return true;
}

}  // namespace atcmd

#endif
