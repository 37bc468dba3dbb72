#include "core/device_state.h"

#include "core/capture.h"
#include "core/log.h"
#include "core/relaxed.h"

atcmdprocess_device_t *g_patcmd_dev = nullptr;

namespace atcmd {

void install_device(atcmdprocess_device_t *dev) { publish(&g_patcmd_dev, dev); }

system_status_t *device_status() {
    atcmdprocess_device_t *dev = acquire_load(&g_patcmd_dev);
    return dev != nullptr ? &dev->system_status : nullptr;
}

int32_t current_platform() {
    const system_status_t *st = device_status();
    return st != nullptr ? relaxed_load(&st->platform) : 0;
}

int32_t current_wifi_status() {
    const system_status_t *st = device_status();
    return st != nullptr ? relaxed_load(&st->wifi_status) : -1;
}

bool read_link_status(LinkStatus *out) {
    const system_status_t *st = device_status();
    if (st == nullptr) return false;
    out->platform = relaxed_load(&st->platform);
    out->mode = relaxed_load(&st->mode);
    return true;
}

void notify_client(AT_CMD_CbMsg_t *msg) {
    atcmdprocess_device_t *dev = acquire_load(&g_patcmd_dev);
    atcmd_notify_callback_t cb = dev != nullptr ? relaxed_load(&dev->notify_callback) : nullptr;
    if (cb == nullptr) {
        ATLOGE(atcmd::kLogAlways, kTagHal, "notify callback is not set, message cmd_id %u seq_num %u dropped!",
               msg->cmd_id, msg->seq_num);
        return;
    }
    ATCMD_CAPTURE_EVENT(CaptureDir::kOut, "message %u/%u", static_cast<unsigned>(msg->cmd_id),
                        static_cast<unsigned>(msg->seq_num));
    cb(msg);
}

}  // namespace atcmd

using namespace atcmd;

// The USB event, a client message like the others here. Called by the
// signal thread on plug and unplug and by the POWEROFF and USBSTATE parsers;
// it logs under the hot-plug tag, where field engineers look for USB events.
// The client receives the plugged flag first, then the accessory's device
// value: the reverse of the order they are stored in.
void notify_usbevent(void) {
    const system_status_t *st = device_status();
    if (st == nullptr) {
        ATLOGE(kLogAlways, kTagHotplug, "no device, usb event not sent");
        return;
    }
    int32_t evt[2] = {relaxed_load(&st->usbdev_sts.usb_connected),
                      relaxed_load(&st->usbdev_sts.usb_devinfo)};
    ATLOGI(kLogDetail, kTagHotplug, "Notify usb evt %d %d", evt[0], evt[1]);
    AT_CMD_CbMsg_t msg = {ATCMD_ID_USBSTATE, 0, evt};
    notify_client(&msg);
}
