// The module record the platform's loader looks up by the symbol "HMI", and
// the open/close pair that hands out and takes back the one device object.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <cutils/properties.h>

#include "core/capture.h"
#include "core/delays.h"
#include "core/device_state.h"
#include "core/log.h"
#include "hal/device_ops.h"
#include "hal/module.h"
#include "hal/service.h"
#include "platform/sysroot.h"

namespace {

hw_module_methods_t g_module_methods = {atcmdprocess_open};

constexpr char kLogDir[] = "/sdcard/tavrinola/.log";
constexpr char kCaptureProp[] = "persist.vendor.atcmd.capture";
constexpr char kDefaultCapture[] = "/sdcard/tavrinola/.log/atcmdprocess.pcapng";

// The field capture (core/capture.h), when the property asks for it: "1"
// for the file beside the log, an absolute path for any other; unset, empty
// or "0" is off. A value that is neither is refused with one line, so that a
// typo does not pass for a capture that runs.
void start_capture() {
    char value[PROPERTY_VALUE_MAX];
    property_get(kCaptureProp, value, "");
    if (value[0] == '\0' || strcmp(value, "0") == 0) return;
    const char *path = strcmp(value, "1") == 0 ? kDefaultCapture : value;
    if (path[0] != '/') {
        ATLOGE(atcmd::kLogAlways, atcmd::kTagHal,
               "%s=%s is neither 1 nor an absolute path: no packet capture", kCaptureProp, value);
        return;
    }
    atcmd::capture_start(atcmd::SysPath(path).c_str());
}

}  // namespace

// Writable on purpose: the loader stores its dlopen handle in dso.
hw_module_t HMI = {
    HARDWARE_MODULE_TAG,
    HARDWARE_MAKE_API_VERSION(1, 0),  // module_api_version
    HARDWARE_HAL_API_VERSION,
    ATCMDPROCESS_HARDWARE_MODULE_ID,
    "At cmd process HAL",
    "Quenmarod",
    &g_module_methods,
    nullptr,  // dso
    {},
};

int atcmdprocess_open(const struct hw_module_t *module, const char *name,
                      struct hw_device_t **device) {
    atcmd::load_delay_overrides();  // before start-up starts the threads that wait
    (void)name;  // there is only one kind of device
    ATLOGI(atcmd::kLogState, atcmd::kTagHal, "atcmdprocess_open");
    log_file_init(kLogDir, "atcmdprocess");
    start_capture();

    if (device == nullptr) {
        ATLOGE(atcmd::kLogAlways, atcmd::kTagHal, "NO device on open");
        return -EINVAL;
    }
    auto *dev = static_cast<atcmdprocess_device_t *>(calloc(1, sizeof(atcmdprocess_device_t)));
    if (dev == nullptr) {
        ATLOGE(atcmd::kLogAlways, atcmd::kTagHal, "out of memory");
        return -EINVAL;
    }
    atcmd::init_device(dev, module);
    *device = &dev->common;
    atcmd::install_device(dev);
    atcmder_hal_open();  // a start-up failure does not fail the open
    return 0;
}

int atcmdprocess_close(struct hw_device_t *device) {
    atcmder_hal_close();
    if (device == nullptr) return -1;
    // g_patcmd_dev keeps pointing here: when service threads run, the close
    // above has already ended the process.
    free(device);
    return 0;
}
