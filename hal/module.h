// The module record's open and device's close, which HMI and the device
// object point at.
#ifndef ATCMD_HAL_MODULE_H
#define ATCMD_HAL_MODULE_H

#include <stdint.h>

#include "atcmdprocess.h"

extern "C" {

ATCMD_API int atcmdprocess_open(const struct hw_module_t *module, const char *name,
                                struct hw_device_t **device);
ATCMD_API int atcmdprocess_close(struct hw_device_t *device);
}

#endif
