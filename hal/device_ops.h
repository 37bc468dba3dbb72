// The device object's operations and its start-up state.
#ifndef ATCMD_HAL_DEVICE_OPS_H
#define ATCMD_HAL_DEVICE_OPS_H

#include "atcmdprocess.h"

extern "C" {

ATCMD_API int set_notify_callback(atcmdprocess_device_t *dev, atcmd_notify_callback_t cb);
ATCMD_API int cmd_from_hidl(AtCmder_t *cmd);
ATCMD_API int atcmdprocess_amlogic_shake_hands(void);
}

namespace atcmd {

// Fills a zeroed device: header, operations, and the start-up system status
// (platform 1, mode -1, wifi_status -1, state 1, both USB values -1).
void init_device(atcmdprocess_device_t *dev, const hw_module_t *module);

}  // namespace atcmd

#endif
