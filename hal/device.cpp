// The single device object the module hands to its client, and the path by
// which the service calls back into that client.
#define LOG_TAG "AtCmdProcessHal"
#include "core/log.h"
#include "hal/notify.h"

atcmdprocess_device_t *g_patcmd_dev = nullptr;

namespace atcmd {

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
