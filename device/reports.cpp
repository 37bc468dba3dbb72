// Reports the phone sends about itself. Each is one line put on the transmit
// queue; none waits for an answer.
#define LOG_TAG "ATCMD_PARSE"
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "core/log.h"
#include "hal/notify.h"

namespace {

constexpr uint8_t kCmdWificon = 18;  // "+WIFICON"

void send_record(AtCmder_t *rec) {
    atcmder_enqueue(&Tx_head, &g_txqueue_mutex, rec);
    pthread_cond_signal(&txbuffer_notempty);
}

}  // namespace

// Tells the client, and on platform 2 the accessory, whether the WiFi link is
// up. Holds its caller 100 ms before the callback.
void notify_wifi_state(int64_t state) {
    AT_CMD_CbMsg_t msg = {};
    msg.cmd_id = kCmdWificon;
    msg.data = &state;
    usleep(100000);
    atcmd::notify_client(&msg);

    int platform = g_patcmd_dev != nullptr ? g_patcmd_dev->system_status.platform : 0;
    if (platform == 2) {
        char text[ATCMD_TEXT_MAX] = "";
        if (state == 1)
            strcpy(text, "AT+WIFICON=1#");
        else if (state == 0)
            strcpy(text, "AT+WIFICON=0#");
        size_t used = strlen(text);
        // The line always ends in "&2", whatever the flag says.
        snprintf(text + used, sizeof text - used, "%d&2\r\n", kCmdWificon);
        ATLOGI(4, "notify_wifi_stated to kavren %ld, data is %s", static_cast<long>(state), text);
        AtCmder_t rec = {};
        rec.type = ATCMD_TYPE_SET;
        rec.dest = ATCMD_EP_MCU;
        rec.cmd_id = kCmdWificon;
        rec.seq_num = kCmdWificon;
        rec.flag = static_cast<uint8_t>(platform);
        rec.data = text;
        send_record(&rec);
    }
    ATLOGI(4, "notify_wifi_stated %ld", static_cast<long>(state));
}
