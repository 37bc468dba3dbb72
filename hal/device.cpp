// The single device object the module hands to its client: its operations,
// and the path by which the service calls back into that client.
#define LOG_TAG "AtCmdProcessHal"
#include <errno.h>
#include <signal.h>

#include "core/log.h"
#include "core/service.h"
#include "hal/device_ops.h"
#include "hal/notify.h"

atcmdprocess_device_t *g_patcmd_dev = nullptr;

namespace atcmd {

void init_device(atcmdprocess_device_t *dev, const hw_module_t *module) {
    dev->common.tag = HARDWARE_DEVICE_TAG;
    dev->common.version = HARDWARE_MAKE_API_VERSION(1, 0);
    dev->common.module = const_cast<hw_module_t *>(module);
    dev->common.close = atcmdprocess_close;

    system_status_t &st = dev->system_status;
    st.platform = 1;
    st.mode = -1;
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

void notify_client(AT_CMD_CbMsg_t *msg) {
    atcmdprocess_device_t *dev = g_patcmd_dev;
    if (dev == nullptr || dev->notify_callback == nullptr) {
        ATLOGE(0, "notify callback is not set, message cmd_id %u seq_num %u dropped!",
               msg->cmd_id, msg->seq_num);
        return;
    }
    dev->notify_callback(msg);
}

}  // namespace atcmd

int set_notify_callback(atcmdprocess_device_t *dev, atcmd_notify_callback_t cb) {
    ATLOGI(4, "set_notify_callback");
    if (dev == nullptr) return -EINVAL;
    dev->notify_callback = cb;
    return 0;
}

// Runs on the client's thread. The enqueue result is not reported: a refused
// record (no text) is logged by the queue.
int cmd_from_hidl(AtCmder_t *cmd) {
    atcmder_enqueue(&Tx_head, &g_txqueue_mutex, cmd);
    pthread_cond_signal(&txbuffer_notempty);
    return 0;
}

// The signal thread sends the version report; the client's thread must not
// wait for the property reads that it involves.
int atcmdprocess_amlogic_shake_hands(void) {
    ATLOGI(4, "atcmdprocess_amlogic_shake_hands.");
    return atcmd::signal_thread(g_Sigprocess_thread, SIGVTALRM);
}
