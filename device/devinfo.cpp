// The queries that fill the accessory's identity record. Each query
// is one line on the transmit queue whose sequence number is the command's
// row, so that the reply, which echoes it, retires the waiting entry.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <initializer_list>

#include "core/device_state.h"
#include "core/log.h"
#include "core/queue.h"
#include "device/reports.h"

namespace {

// The fixed query prefixes, one 32-byte slot each; a sender copies its slot
// whole into its text buffer.
enum QuerySlot { kVer, kType, kScreen, kBat, kSid, kSn, kState, kUsbState, kBleMac };
constexpr char kQueryPrefix[][32] = {
    "AT+VER?#", "AT+TYPE?#", "AT+SCREEN?#",   "AT+BAT?#",    "AT+SID?#",
    "AT+SN?#",  "AT+STATE?#", "AT+USBSTATE?#", "AT+BLEMAC?#",
};

constexpr useconds_t kQueryPauseUs = 10000;

int32_t platform() { return atcmd::current_platform(); }

int queue_query(char *text, uint8_t row) {
    AtCmder_t rec = {};
    rec.type = ATCMD_TYPE_QUERY;
    rec.dest = ATCMD_EP_MCU;
    rec.flag = static_cast<uint8_t>(platform());
    rec.cmd_id = row;
    rec.seq_num = row;
    rec.data = text;
    return atcmd::queue_put(atcmd::kTxQueue, &rec);
}

// Appends row and "&1\r\n" on platform 1, "&2\r\n" on any other, to the
// prefix already in text, and queues the query.
int query(char *text, size_t size, uint8_t row) {
    size_t used = strlen(text);
    snprintf(text + used, size - used, "%d%s", row,
             platform() == ATCMD_PLATFORM_VUART ? "&1\r\n" : "&2\r\n");
    return queue_query(text, row);
}

int slot_query(QuerySlot slot, uint8_t row) {
    char text[sizeof kQueryPrefix[0]];
    memcpy(text, kQueryPrefix[slot], sizeof text);
    return query(text, sizeof text, row);
}

}  // namespace

int get_kavren_ver(void) { return slot_query(kVer, ATCMD_ID_VER); }
int get_kavren_type(void) { return slot_query(kType, ATCMD_ID_TYPE); }
int get_kavren_screensts(void) { return slot_query(kScreen, ATCMD_ID_SCREEN); }
int get_kavren_BATINFO(void) { return slot_query(kBat, ATCMD_ID_BAT); }
int get_kavren_sid(void) { return slot_query(kSid, ATCMD_ID_SID); }
int get_kavren_sn(void) { return slot_query(kSn, ATCMD_ID_SN); }
int get_kavren_state(void) { return slot_query(kState, ATCMD_ID_STATE); }
int get_kavren_usbstate(void) { return slot_query(kUsbState, ATCMD_ID_USBSTATE); }
int get_remote_bt_mac(void) { return slot_query(kBleMac, ATCMD_ID_BLEMAC); }

int get_kavren_micmode(void) {
    char text[ATCMD_TEXT_MAX] = "AT+MICMODE?#";
    return query(text, sizeof text, ATCMD_ID_MICMODE);
}

// The text says sequence 0 and link 2 whatever the platform, while the
// record says row 28; the accessory firmware has always been sent this line.
int get_kavren_castmode(void) {
    char text[ATCMD_TEXT_MAX] = "AT+MODE?#0&2\r\n";
    return queue_query(text, ATCMD_ID_MODE);
}

// Runs on the signal thread when the accessory has come up; holds it for
// eight pauses on platform 1, six on the others.
void get_kavren_info(void) {
    ATLOGI(atcmd::kLogDetail, atcmd::kTagParse, " get kavren info.");
    for (int (*send)(void) : {get_kavren_type, get_kavren_BATINFO, send_bt_mac, get_kavren_sn,
                              get_kavren_sid, get_kavren_screensts}) {
        send();
        usleep(kQueryPauseUs);
    }
    if (platform() == ATCMD_PLATFORM_VUART) {
        get_kavren_state();
        usleep(kQueryPauseUs);
        get_kavren_usbstate();
        usleep(kQueryPauseUs);
        get_remote_bt_mac();
    }
    get_kavren_micmode();
    usleep(kQueryPauseUs);
    get_kavren_ver();
}
