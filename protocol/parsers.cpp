// What each line from the accessory does, one parser per row of AT_CMDS.
// They run on the dispatch thread, one at a time; the client's callback runs
// on it too. Parsers of the common shape state their row, value, texts and
// relay (reply_shape.h); the others spell their rules out. Log texts are the
// ones field engineers know, including those that name another parser or
// share another's error message.
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <cutils/properties.h>

#include "core/device_state.h"
#include "core/log.h"
#include "core/queue.h"
#include "core/relaxed.h"
#include "protocol/accessory_info.h"
#include "protocol/fields.h"
#include "protocol/parsers.h"
#include "protocol/reply_effects.h"
#include "protocol/reply_shape.h"

using namespace atcmd;

namespace {

// Lets the "+STATE=PWROFF" report leave before the WiFi link goes down.
constexpr useconds_t kShutdownReportPauseUs = 50000;

}  // namespace

// Parsers of the common shape are one statement each: the parser's name,
// then what it states (reply_shape.h): row, value log, error text, and the
// relay's cmd_id and options where it has them.
#define NUMBER_PARSER(parser, ...)                        \
    unsigned int parser(AtCmder_t *cmd) {                 \
        static constexpr NumberReply kReply(__VA_ARGS__); \
        number_reply(#parser, cmd, kReply);               \
        return 0;                                         \
    }
#define LIST_PARSER(parser, ...)                        \
    unsigned int parser(AtCmder_t *cmd) {               \
        static constexpr ListReply kReply(__VA_ARGS__); \
        list_reply(#parser, cmd, kReply);               \
        return 0;                                       \
    }
#define TEXT_PARSER(parser, row, error)       \
    unsigned int parser(AtCmder_t *cmd) {     \
        text_reply(#parser, cmd, row, error); \
        return 0;                             \
    }
#define OPENING_LINE_PARSER(parser, level) \
    unsigned int parser(AtCmder_t *cmd) {  \
        open_line(#parser, cmd, level);    \
        return 0;                          \
    }

// ---- One number: a client message, and the relay where the row has one ----

NUMBER_PARSER(RESET_parser, ATCMD_ID_RESET, "kavren reset value is %ld, cmdIDX is %d",
              "Invalid reset cmd!")
NUMBER_PARSER(SCREEN_parser, ATCMD_ID_SCREEN, "kavren screen value is %ld, cmdIDX is %d",
              "Invalid SCREEN cmd!", 0)
NUMBER_PARSER(MICMODE_parser, ATCMD_ID_MICMODE, "micmode value is %ld, cmdIDX is %d",
              "Invalid micmode cmd!")
// WIFI_parser and BT_parser are reached only by "AT+WIFI" and "AT+BT"
// commands: "+WIFI" and "+BT" replies land on "+WIFICON" and "+BTMAC".
NUMBER_PARSER(WIFI_parser, ATCMD_ID_WIFI, "WIFI value is %ld, cmdIDX is %d", "Invalid WIFI cmd!",
              kNoRelay, kNotOnUartSide)
NUMBER_PARSER(BT_parser, ATCMD_ID_BT, "BT value is %ld, cmdIDX is %d", "Invalid BT cmd!", kNoRelay,
              kToClient | kNotOnUartSide)
NUMBER_PARSER(BKL_parser, ATCMD_ID_BKL, "BKL_parser backlight is %ld, cmdIDX is %d, seq num is %d",
              "Invalid backlight information!")
NUMBER_PARSER(MODE_parser, ATCMD_ID_MODE, "Mode value is %ld, cmdIDX is %d", "Invalid BT cmd!",
              kNoRelay, kToClient)
NUMBER_PARSER(LIGHT_parser, ATCMD_ID_LIGHT, "Light value is %ld, cmdIDX is %d", "Invalid BT cmd!",
              kNoRelay, kToClient)
NUMBER_PARSER(TEST_parser, ATCMD_ID_TEST, nullptr, "Invalid Test cmd!", kNoRelay, kToClient)

unsigned int REBOOT_parser(AtCmder_t *cmd) {
    static constexpr NumberReply kReply(ATCMD_ID_REBOOT, "REBOOT_parser state is %ld, cmdIDX is %d",
                                        "Invalid  reboot cmd!");
    return number_reply(__func__, cmd, kReply) ? 0 : ATCMD_PARSE_NO_VALUE;
}

unsigned int ERROR_parser(AtCmder_t *cmd) {
    static constexpr NumberReply kReply(ATCMD_ID_ERROR, "ERROR_parser state is %ld, cmdIDX is %d",
                                        "Invalid  error cmd!", 0);
    return number_reply(__func__, cmd, kReply) ? 0 : ATCMD_PARSE_NO_VALUE;
}

// The accessory powers off: on the USB side its link is gone with it.
unsigned int POWEROFF_parser(AtCmder_t *cmd) {
    static constexpr NumberReply kReply(ATCMD_ID_POWEROFF, "kavren reset value is %ld, cmdIDX is %d",
                                        "Invalid POWEROFF cmd!");
    if (!number_reply(__func__, cmd, kReply, "RESET_parser")) return 0;
    system_status_t *st = device_status();
    if (st != nullptr && relaxed_load(&st->platform) == ATCMD_PLATFORM_VUART) {
        relaxed_store(&st->usbdev_sts.usb_devinfo, 0);
        relaxed_store(&st->usbdev_sts.usb_connected, 0);
        notify_usbevent();
    }
    return 0;
}

// ---- Lists of numbers; the battery parsers share the MAC parsers' error ----

LIST_PARSER(BAT_parser, ATCMD_ID_BAT, 6, getBatinfo_fromCmdString,
            "batinfo: %d, %d, %d, %d, %d, %d", "Invalid BT MAC info!", ATCMD_ID_BAT)
LIST_PARSER(BATCG_parser, ATCMD_ID_BATCG, 6, getBatinfo_fromCmdString,
            "batinfo: %d, %d, %d, %d, %d, %d", "Invalid BT MAC info!", ATCMD_ID_BATCG)
LIST_PARSER(HALL_parser, ATCMD_ID_HALL, 3, getHALLinfo_fromCmdString, "hallInfo: %d, %d, %d",
            "Invalid hallInfo!")
LIST_PARSER(HALLCG_parser, ATCMD_ID_HALLCG, 3, getHALLinfo_fromCmdString, "hallInfo: %d, %d, %d",
            "Invalid hallInfo!", 0)
LIST_PARSER(ACC_parser, ATCMD_ID_ACC, 3, getACCinfo_fromCmdString, "Accinfo: %d, %d, %d",
            "Invalid AccInfo!")
LIST_PARSER(HRM_TEMP_parser, ATCMD_ID_HRM, 2, getTmpinfo_fromCmdString,
            "Board temperature info: %d, %d", "Invalid hallInfo!", 0)

// ---- Texts for the client; PT_parser is reached only by "AT+PT" commands,
// a "+PT" reply lands on "+PTEST" ----

TEXT_PARSER(DTR_parser, ATCMD_ID_DTR, "Invalid DTR data!")
TEXT_PARSER(MMI1_parser, ATCMD_ID_MMI1, "Invalid MMI1 data!")
TEXT_PARSER(PT_parser, ATCMD_ID_PT, "Invalid PT data!")

// ---- Nothing but the opening line ----

OPENING_LINE_PARSER(TIME_parser, 3)
OPENING_LINE_PARSER(OK_parser, 4)
OPENING_LINE_PARSER(SLEEP_parser, 4)
OPENING_LINE_PARSER(INFO_parser, 4)
OPENING_LINE_PARSER(SENSOR_parser, 4)

#undef NUMBER_PARSER
#undef LIST_PARSER
#undef TEXT_PARSER
#undef OPENING_LINE_PARSER

// ---- Requests for the client, without a value ----

unsigned int UPGRADE_parser(AtCmder_t *cmd) {
    open_line(__func__, cmd, 4, "RECOVERY_parser");
    cmd->dest = ATCMD_EP_CLIENT;
    notify(ATCMD_ID_UPGRADE, cmd, nullptr);
    return 0;
}

unsigned int RECOVERY_parser(AtCmder_t *cmd) {
    open_line(__func__, cmd);
    cmd->dest = ATCMD_EP_CLIENT;
    notify(ATCMD_ID_RECOVERY, cmd, nullptr);
    property_set("vendor.kavren.recovery", "1");
    return 0;
}

// The accessory is shutting down, and the phone with it. Over WiFi the peer
// hears "+STATE=PWROFF" before the link is torn down.
unsigned int SHUTDOWN_parser(AtCmder_t *cmd) {
    open_line(__func__, cmd);
    cmd->dest = ATCMD_EP_CLIENT;
    notify(ATCMD_ID_SHUTDOWN, cmd, nullptr);
    const system_status_t *st = device_status();
    if (st != nullptr && relaxed_load(&st->mode) == ATCMD_MODE_WIFI) {
        char text[ATCMD_TEXT_MAX] = "+STATE=PWROFF\r\n";
        AtCmder_t rec = {};
        rec.type = ATCMD_TYPE_RESPONSE;
        rec.dest = ATCMD_EP_MPHONE;
        rec.cmd_id = ATCMD_ID_STATE;
        rec.data = text;
        queue_put(kTxQueue, &rec);
        if (const ReplyEffects *e = reply_effects(__func__)) e->wifi_stchange(0);
        usleep(kShutdownReportPauseUs);
    }
    property_set("sys.powerctl", "shutdown");
    return 0;
}

// ---- The accessory's identity ----

namespace {

// The accessory's identity texts: the field cleared and filled, one line
// that names the parser with the value (instead of the opening line), and
// the client told. False when the line has no value.
bool identity_reply(const char *parser, AtCmder_t *cmd, uint8_t row, char *field, size_t size,
                    const char *error, const char *value_log) {
    if (!read_field(parser, cmd, error, field, size)) return false;
    ATLOG_TEXT_FN(parser, kLogDetail, ANDROID_LOG_INFO, kTagParse, value_log, cmd->source, cmd->cmd_id,
                  cmd->data, field);
    notify(row, cmd, field);
    return true;
}

constexpr char kSnLog[] = "SN_parser source is %u, idx is %u data is %s, kavren_sn is %s";
constexpr char kSidLog[] = "SID_parser source is %u, idx is %u data is %s, sid is %s";
constexpr char kTypeLog[] = "TYPE_parser source is %u, idx is %u data is %s, type is %s";
static_assert(has_conversions(kSnLog, "uuss") && has_conversions(kSidLog, "uuss") &&
                  has_conversions(kTypeLog, "uuss"),
              "identity value logs");

}  // namespace

unsigned int SN_parser(AtCmder_t *cmd) {
    identity_reply(__func__, cmd, ATCMD_ID_SN, g_kavren_devInfo.sn, sizeof g_kavren_devInfo.sn,
                   "Invalid SN Info!", kSnLog);
    return 0;
}

unsigned int SID_parser(AtCmder_t *cmd) {
    identity_reply(__func__, cmd, ATCMD_ID_SID, g_kavren_devInfo.sid, sizeof g_kavren_devInfo.sid,
                   "Invalid SID Info!", kSidLog);
    return 0;
}

// The client hears the model code before the model class changes.
unsigned int TYPE_parser(AtCmder_t *cmd) {
    char *type = g_kavren_devInfo.type;
    if (!identity_reply(__func__, cmd, ATCMD_ID_TYPE, type, sizeof g_kavren_devInfo.type,
                        "Invalid TYPE Info!", kTypeLog))
        return 0;
    int32_t model = -1;
    if (strcmp(type, type_with_wifi) == 0)
        model = 1;
    else if (strcmp(type, type_without_wifi) == 0)
        model = 2;
    g_kavren_devInfo.model = model;
    ATLOGI(kLogDetail, kTagParse, "TYPE_parser g_kavren_devInfo.model is %d", model);
    return 0;
}

// The version items are filled as one block, laid out as the extractor's.
static_assert(offsetof(kavren_devInfo_t, ver_item3) - offsetof(kavren_devInfo_t, ver_item0) ==
                      kVerSlots[3].offset &&
                  sizeof g_kavren_devInfo.ver_item3 == kVerSlots[3].size &&
                  offsetof(kavren_devInfo_t, ver_item6) - offsetof(kavren_devInfo_t, ver_item0) ==
                      kVerSlots[6].offset &&
                  offsetof(kavren_devInfo_t, mac) - offsetof(kavren_devInfo_t, ver_item0) ==
                      kVerBlockSize,
              "version items of the accessory record");

unsigned int VER_parser(AtCmder_t *cmd) {
    open_line(__func__, cmd);
    if (is_query_from_mcu(cmd)) {
        if (const ReplyEffects *e = reply_effects(__func__)) e->send_version();
        return 0;
    }
    kavren_devInfo_t &d = g_kavren_devInfo;
    if (getVerInfo_fromCmdString(cmd->data, d.ver_item0) != 0) {
        error_line(__func__, "Invalid verInfo info!");
        return 0;
    }
    ATLOGI(kLogDetail, kTagParse, "verinfo: %s, %s, %s, %s, %s, %s, %s\n", d.ver_item0, d.ver_item1,
           d.ver_item2, d.ver_item3, d.ver_item4, d.ver_item5, d.ver_item6);
    notify(ATCMD_ID_VER, cmd, d.ver_item0);
    return 0;
}

namespace {

// "+BTMAC" and "+BLEMAC" share the one mac field; each tells the client only
// on the platform whose own report it answers.
unsigned int mac_reply(const char *parser, AtCmder_t *cmd, uint8_t row, const char *value_log,
                       int32_t told_on) {
    open_line(parser, cmd);
    char *mac = g_kavren_devInfo.mac;
    memset(mac, 0, sizeof g_kavren_devInfo.mac);
    if (is_query_from_mcu(cmd)) {
        if (const ReplyEffects *e = reply_effects(parser)) e->send_bt_mac();
        return 0;
    }
    if (!read_field(parser, cmd, "Invalid BT MAC info!", mac, sizeof g_kavren_devInfo.mac))
        return 0;
    ATLOG_TEXT_FN(parser, kLogDetail, ANDROID_LOG_INFO, kTagParse, value_log, mac, row);
    if (current_platform() == told_on) notify(row, cmd, mac);
    return 0;
}

static_assert(has_conversions("BTMAC is %s, cmdIDX is %d", "sd") &&
                  has_conversions("BLEMAC is %s, cmdIDX is %d", "sd"),
              "MAC value logs");

}  // namespace

// Also reached by "+BT" replies, by the response-name prefix rule.
unsigned int BTMAC_parser(AtCmder_t *cmd) {
    return mac_reply(__func__, cmd, ATCMD_ID_BTMAC, "BTMAC is %s, cmdIDX is %d",
                     ATCMD_PLATFORM_UART);
}

unsigned int BLEMAC_parser(AtCmder_t *cmd) {
    return mac_reply(__func__, cmd, ATCMD_ID_BLEMAC, "BLEMAC is %s, cmdIDX is %d",
                     ATCMD_PLATFORM_VUART);
}

// ---- State and link changes ----

unsigned int STATE_parser(AtCmder_t *cmd) {
    cmd->dest = ATCMD_EP_MCU;
    open_line(__func__, cmd);
    if (is_query_from_mcu(cmd)) {
        if (const ReplyEffects *e = reply_effects(__func__)) e->send_state();
        return 0;
    }
    int32_t state = -1;
    getstate_fromCmdString(cmd->data, &state);
    notify(ATCMD_ID_STATE, cmd, &state);
    ATLOGI(kLogDetail, kTagParse, "state status is %d", state);
    const system_status_t *st = device_status();
    if (st != nullptr && relaxed_load(&st->platform) == ATCMD_PLATFORM_VUART &&
        state == ATCMD_STATE_PWROFF &&
        relaxed_load(&st->mode) == ATCMD_MODE_WIFI) {
        if (const ReplyEffects *e = reply_effects(__func__)) e->wifi_stchange(0);
    }
    return 0;
}

// The report carries the connection indicator first; the device keeps it
// second (usbdev_sts is {usb_devinfo, usb_connected}).
unsigned int USBSTATE_parser(AtCmder_t *cmd) {
    open_line(__func__, cmd);
    int32_t v[2];
    if (strchr(cmd->data, '=') == nullptr || getUsbDevinfo_fromCmdString(cmd->data, v) != 0) {
        error_line(__func__, "Invalid usbdev_sts_t!");
        return 0;
    }
    system_status_t *st = device_status();
    if (st == nullptr) {
        ATLOGE(kLogAlways, kTagParse, "no device, usb state %d %d dropped", v[0], v[1]);
        return 0;
    }
    relaxed_store(&st->usbdev_sts.usb_devinfo, v[1]);
    relaxed_store(&st->usbdev_sts.usb_connected, v[0]);
    if (v[0] == 1)
        relaxed_store(&st->mode, ATCMD_MODE_USB);
    else
        relaxed_store(&st->mode,
                      relaxed_load(&st->wifi_status) == 1 ? ATCMD_MODE_WIFI : ATCMD_MODE_NONE);
    notify_usbevent();
    relay_when_bridging(cmd, 0);
    ATLOGI(kLogState, kTagParse, "Current cast mode is %d", relaxed_load(&st->mode));
    return 0;
}

// ---- Factory tests ----

// The accessory echoes the factory test pattern of the line's sequence
// number (see send_ptest_data); only a mismatch is logged.
unsigned int PTEST_parser(AtCmder_t *cmd) {
    open_line(__func__, cmd);
    char result[ATCMD_TEXT_MAX];
    if (!read_field(__func__, cmd, "Invalid PTEST_parser cmd!", result, sizeof result)) return 0;
    const char *expected = (cmd->seq_num & 1) != 0 ? "987654321" : "123456789";
    if (strcmp(result, expected) != 0)
        ATLOGI(kLogDetail, kTagParse, "PTEST_parser error happens, result is %s, string should be %s",
               result, expected);
    return 0;
}

// Tells the MCU the phone's factory flag, "N" when it has none.
unsigned int WT_parser(AtCmder_t *cmd) {
    open_line(__func__, cmd);
    char flag[PROPERTY_VALUE_MAX];
    property_get("persist.vendor.kavren.factory.wt", flag, "N");
    char text[ATCMD_TEXT_MAX];
    snprintf(text, sizeof text, "+WT=%s\r\n", flag);
    AtCmder_t rec = {};
    rec.type = ATCMD_TYPE_UNSOLICITED;
    rec.dest = ATCMD_EP_MCU;
    rec.data = text;
    queue_put(kTxQueue, &rec);
    return 0;
}
