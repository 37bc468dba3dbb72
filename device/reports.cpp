// Reports the phone sends about itself: its run state, its Bluetooth
// address, its software version and the WiFi link's state. Each is one line
// put on the transmit queue; only the WiFi report waits for an answer.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <cutils/properties.h>

#include "core/device_state.h"
#include "core/log.h"
#include "core/queue.h"
#include "core/relaxed.h"
#include "device/reports.h"
#include "protocol/fields.h"

using atcmd::kTagParse;

const char *bt_mac_prop = "net.bluetooth.macaddr";

namespace {

constexpr int kPropertyRetries = 200;
constexpr useconds_t kPropertyRetryPauseUs = 10000;
constexpr size_t kMaxVersionKept = 63;  // what ver_item3 holds with its NUL

// A property that Bluetooth or the build sets a moment after boot: read
// again every 10 ms while it is empty, up to 200 times. Reaching the 200th
// retry counts as failure even when that read found a value, as it always
// has.
bool wait_for_property(const char *key, char (&value)[PROPERTY_VALUE_MAX]) {
    int retries = 0;
    while (property_get(key, value, "") <= 0 && retries < kPropertyRetries) {
        usleep(kPropertyRetryPauseUs);
        ++retries;
    }
    return retries < kPropertyRetries;
}

int send_report(char *text, uint8_t dest, uint8_t cmd_id, uint16_t seq_num = 0,
                uint8_t flag = 0) {
    AtCmder_t rec = {};
    rec.type = ATCMD_TYPE_RESPONSE;
    rec.dest = dest;
    rec.flag = flag;
    rec.cmd_id = cmd_id;
    rec.seq_num = seq_num;
    rec.data = text;
    return atcmd::queue_put(atcmd::kTxQueue, &rec);
}

int send_state(int32_t state, uint8_t dest) {
    char text[ATCMD_TEXT_MAX];
    snprintf(text, sizeof text, "+STATE=%s\r\n", atcmd::state_word(state));
    return send_report(text, dest, ATCMD_ID_STATE);
}

}  // namespace

// The MCU learns only IDLE or ACTIVE; any other state sends an empty word.
int send_stateToMCU(void) {
    const system_status_t *st = atcmd::device_status();
    const int32_t state = st != nullptr ? atcmd::relaxed_load(&st->state) : 0;
    return send_state(state == 1 || state == 2 ? state : 0, ATCMD_EP_MCU);
}

int send_stateToMPHONE(int32_t state) { return send_state(state, ATCMD_EP_MPHONE); }

// Platform 1 reports as "+BTMAC" with sequence 7, the others as "+BLEMAC"
// with sequence 8 in the text; the record says row 7 in both cases.
int send_bt_mac(void) {
    char mac[PROPERTY_VALUE_MAX];
    if (!wait_for_property(bt_mac_prop, mac)) {
        ATLOGE(atcmd::kLogAlways, kTagParse, "Can not get Kavren BTMAC %s.", bt_mac_prop);
        return 0;
    }
    const int32_t platform = atcmd::current_platform();
    char text[ATCMD_TEXT_MAX];
    if (platform == ATCMD_PLATFORM_VUART)
        snprintf(text, sizeof text, "AT+BTMAC=%s#%d&1\r\n", mac, ATCMD_ID_BTMAC);
    else
        snprintf(text, sizeof text, "AT+BLEMAC=%s#%d&2\r\n", mac, ATCMD_ID_BLEMAC);
    return send_report(text, ATCMD_EP_MCU, ATCMD_ID_BTMAC, ATCMD_ID_BTMAC,
                       static_cast<uint8_t>(platform));
}

// Only the UART side reports its version. The accessory's own version item
// is preferred; the build's version is read once and kept when it fits.
int send_amlogic_ver(void) {
    if (atcmd::current_platform() != ATCMD_PLATFORM_UART) return 0;
    char text[ATCMD_TEXT_MAX] = "+VER=WIFI:";
    char *item = g_kavren_devInfo.ver_item3;
    if (item[0] != '\0') {
        // The field is NUL-terminated within its 64 bytes.
        size_t used = strlen(text);
        snprintf(text + used, sizeof text - used, "%.63s", item);
    } else {
        char version[PROPERTY_VALUE_MAX];
        if (!wait_for_property("ro.tavrinola.version", version)) {
            ATLOGE(atcmd::kLogAlways, kTagParse, "get kavren ver fail.");
            return 0;
        }
        strcat(text, version);
        if (strlen(version) > kMaxVersionKept)
            ATLOGI(atcmd::kLogState, kTagParse, "Amlogic ver data is too long!");
        else
            memcpy(item, version, strlen(version) + 1);
    }
    ATLOGI(atcmd::kLogDetail, kTagParse, "ver data is %s", text);
    strcat(text, "\r\n");
    return send_report(text, ATCMD_EP_MCU, ATCMD_ID_VER);
}

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
        ATLOGI(atcmd::kLogDetail, kTagParse, "notify_wifi_stated to kavren %ld, data is %s",
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
    ATLOGI(atcmd::kLogDetail, kTagParse, "notify_wifi_stated %ld", static_cast<long>(state));
}
