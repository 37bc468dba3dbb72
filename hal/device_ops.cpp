// The single device object the module hands to its client, and its
// operations but the three WiFi ones (hal/wifi_control.cpp). They run on the
// client's thread. Each does the client-facing part here and leaves the links
// to link/.
#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>

#include <cutils/properties.h>

#include "core/capture.h"
#include "core/device_state.h"
#include "core/log.h"
#include "core/queue.h"
#include "core/relaxed.h"
#include "core/threads.h"
#include "device/reports.h"
#include "hal/device_ops.h"
#include "hal/module.h"
#include "hal/wifi_control.h"
#include "link/hid_protocol.h"
#include "link/hiddemon.h"
#include "link/wifi_link.h"

using namespace atcmd;

namespace atcmd {

void init_device(atcmdprocess_device_t *dev, const hw_module_t *module) {
    dev->common.tag = HARDWARE_DEVICE_TAG;
    dev->common.version = HARDWARE_MAKE_API_VERSION(1, 0);
    dev->common.module = const_cast<hw_module_t *>(module);
    dev->common.close = atcmdprocess_close;

    system_status_t &st = dev->system_status;
    st.platform = ATCMD_PLATFORM_VUART;
    st.mode = ATCMD_MODE_NONE;
    st.wifi_status = -1;
    st.state = 1;
    st.usbdev_sts.usb_devinfo = -1;
    st.usbdev_sts.usb_connected = -1;
    dev->notify_callback = nullptr;

    dev->set_notify_callback = set_notify_callback;
    dev->cmd_from_hidl = cmd_from_hidl;
    dev->wifi_init = atcmdprocess_wifi_init;
    dev->wifi_stchange = atcmdprocess_wifi_stchange;
    dev->hiddemon_stchange = atcmdprocess_hiddemon_stchange;
    dev->amlogic_shake_hands = atcmdprocess_amlogic_shake_hands;
}

}  // namespace atcmd

int set_notify_callback(atcmdprocess_device_t *dev, atcmd_notify_callback_t cb) {
    ATLOGI(kLogDetail, kTagHal, "set_notify_callback");
    if (dev == nullptr) return -EINVAL;
    relaxed_store(&dev->notify_callback, cb);
    return 0;
}

// The enqueue result is not reported: a refused record (no text) is logged
// by the queue.
int cmd_from_hidl(AtCmder_t *cmd) {
    ATCMD_CAPTURE_EVENT(CaptureDir::kIn, "client %s",
                        cmd != nullptr && cmd->data != nullptr ? cmd->data : "(null)");
    queue_put(kTxQueue, cmd);
    return 0;
}

// The signal thread sends the version report; the client's thread must not
// wait for the property reads that it involves.
int atcmdprocess_amlogic_shake_hands(void) {
    ATCMD_CAPTURE_EVENT(CaptureDir::kIn, "shake_hands");
    ATLOGI(kLogDetail, kTagHal, "atcmdprocess_amlogic_shake_hands.");
    return signal_thread(relaxed_load(&g_Sigprocess_thread), SIGVTALRM);
}
