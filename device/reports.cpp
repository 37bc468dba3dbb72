// Reports the phone sends about itself. Each is one line put on the transmit
// queue; none waits for an answer.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "core/device_state.h"
#include "core/log.h"
#include "core/queue.h"

using atcmd::kTagParse;

// Tells the client, and on platform 2 the accessory, whether the WiFi link is
// up. Holds its caller 100 ms before the callback.
void notify_wifi_state(int64_t state) {
    AT_CMD_CbMsg_t msg = {};
    msg.cmd_id = ATCMD_ID_WIFICON;
    msg.data = &state;
    usleep(100000);
    atcmd::notify_client(&msg);

    const int32_t platform = atcmd::current_platform();
    if (platform == ATCMD_PLATFORM_UART) {
        char text[ATCMD_TEXT_MAX] = "";
        if (state == 1)
            strcpy(text, "AT+WIFICON=1#");
        else if (state == 0)
            strcpy(text, "AT+WIFICON=0#");
        size_t used = strlen(text);
        // The line always ends in "&2", whatever the flag says.
        snprintf(text + used, sizeof text - used, "%d&2\r\n", ATCMD_ID_WIFICON);
        ATLOGI(4, kTagParse, "notify_wifi_stated to kavren %ld, data is %s",
               static_cast<long>(state), text);
        AtCmder_t rec = {};
        rec.type = ATCMD_TYPE_SET;
        rec.dest = ATCMD_EP_MCU;
        rec.cmd_id = ATCMD_ID_WIFICON;
        rec.seq_num = ATCMD_ID_WIFICON;
        rec.flag = static_cast<uint8_t>(platform);
        rec.data = text;
        atcmd::queue_put(atcmd::kTxQueue, &rec);
    }
    ATLOGI(4, kTagParse, "notify_wifi_stated %ld", static_cast<long>(state));
}
