// The parsers driven as the system drives them: lines through the frame
// parser, records off the receive queue into atcmder_dispatch. What counts
// is what the client is told ("cmd_id/seq_num:payload"), what is sent
// ("type/dest/cmd_id/seq_num/flag:text"), the accessory record and the
// properties.
#include <cutils/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "atcmdprocess.h"
#include "core/queue.h"
#include "fixtures/callback_sink.h"
#include "fixtures/device.h"
#include "fixtures/log_capture.h"
#include "fixtures/props.h"
#include "fixtures/queue_probe.h"
#include "protocol/dispatch.h"
#include "protocol/frame_parser.h"
#include "protocol/parsers.h"

namespace {

using atcmd_test::CallbackSink;
using atcmd_test::prop;
using atcmd_test::sent;
using Texts = std::vector<std::string>;

// One receive batch from source; returns what the client was told.
Texts feed(const std::string &lines, uint8_t source = ATCMD_EP_MCU) {
    CallbackSink::clear();
    char text[ATCMD_TEXT_MAX];
    AtCmder_t scratch{};
    scratch.data = text;
    scratch.source = source;
    cmd_Parse_from_buffer(&scratch, lines.c_str());
    char buf[ATCMD_TEXT_MAX];
    AtCmder_t rec{};
    for (rec.data = buf; atcmder_dequeue(&Rx_head, &g_rxqueue_mutex, &rec) == ATCMD_Q_OK;)
        atcmder_dispatch(&rec);
    return CallbackSink::described();
}

struct Parsers : ::testing::Test {
    atcmd_test::TestDevice dev;
    system_status_t &st = dev.status();
    void SetUp() override {
        property_set("net.bluetooth.macaddr", "AA:BB:CC:DD:EE:FF");
        property_set("ro.tavrinola.version", "V1.2");
    }
    void on(int32_t platform, int32_t mode) {
        st.platform = platform;
        st.mode = mode;
    }
};

// Numbers, lists and texts: the message, and the relayed copy while
// platform 2 casts over WiFi. Lines tailed "&1" are bridged before any
// parser sees them, so the relayed lines here carry "&2" or no tail.
TEST_F(Parsers, ValuesReachTheClientAndTheOtherSideWhileBridging) {
    const struct {
        int32_t platform, mode;
        std::string lines;
        Texts told, relayed;
    } rows[] = {
        {2, 1, "+SCREEN=1#17&2\r\n", {"+SCREEN/17:1"}, {"report>MPHONE +REBOOT/0 f0:+SCREEN=1#17&2\r\n"}},
        {2, 1, "+ERROR=-5#9&2\r\n", {"+ERROR/9:-5"}, {"report>MPHONE +REBOOT/0 f0:+ERROR=-5#9&2\r\n"}},
        {2, 1, "+BAT=85,1,3900,250,1,0#9&2\r\n", {"+BAT/9:85,1,3900,250,1,0"},
         {"report>MPHONE +BAT/0 f0:+BAT=85,1,3900,250,1,0#9&2\r\n"}},
        {2, 1, "+BATCG=1,2,3,4,5,6\r\n+HALLCG=1,0,7\r\n+HRM=35,40\r\n+HALL=1,0,7\r\n",
         {"+BATCG/0:1,2,3,4,5,6", "+HALLCG/0:1,0,7", "+HRM/0:35,40", "+HALL/0:1,0,7"},
         {"report>MPHONE +BATCG/0 f0:+BATCG=1,2,3,4,5,6\r\n", "report>MPHONE +REBOOT/0 f0:+HALLCG=1,0,7\r\n",
          "report>MPHONE +REBOOT/0 f0:+HRM=35,40\r\n"}},
        {1, 1, "+SCREEN=0\r\n+ACC=-10,20,30\r\n", {"+SCREEN/0:0", "+ACC/0:-10,20,30"}, {}},
        {1, -1,
         "+REBOOT=3\r\n+RESET=1\r\n+MICMODE=2\r\n+MODE=1\r\n+LIGHT=5\r\n+TEST=1\r\n+BKL=80#27&1\r\n",
         {"+REBOOT/0:3", "+RESET/0:1", "+MICMODE/0:2", "+MODE/0:1", "+LIGHT/0:5", "+TEST/0:1",
          "+BKL/27:80"},
         {}},
        {1, -1, "AT+WIFI=1\r\nAT+BT=1\r\n", {"+WIFI/0:1", "+BT/0:1"}, {}},
        {2, -1, "AT+WIFI=1\r\nAT+BT=1\r\n+WIFI=1\r\n", {}, {}},  // "+WIFI" lands on "+WIFICON"
        {2, -1, "+POWEROFF=2\r\n", {"+POWEROFF/0:2"}, {}},
        {1, -1, "+POWEROFF=1\r\n", {"+POWEROFF/0:1", "+USBSTATE/0:0,0"}, {}},  // the USB link too
        {1, -1, "+DTR=abc\r\n+MMI1=x,y\r\nAT+PT=hello\r\n+PT=123456789#2&1\r\n",
         {"+DTR/0:'abc'", "+MMI1/0:'x,y'", "+PT/0:'hello'"}, {}},  // "+PT" lands on "+PTEST"
        {1, -1, "+UPGRADE\r\n+RECOVERY\r\n+OK\r\n+TIME=1\r\n+SLEEP\r\n",
         {"+UPGRADE/0:-", "+RECOVERY/0:-"}, {}},
    };
    for (const auto &r : rows) {
        on(r.platform, r.mode);
        EXPECT_EQ(r.told, feed(r.lines)) << r.lines;
        EXPECT_EQ(r.relayed, sent()) << r.lines;
    }
    EXPECT_EQ("1", prop("vendor.kavren.recovery"));
}

TEST_F(Parsers, IdentityRepliesFillTheRecordAndTellTheClientOnTheirPlatform) {
    on(1, -1);
    EXPECT_EQ((Texts{"+SN/13:'KV5816A00123'", "+SID/14:'S-01'", "+TYPE/15:'KM5816N'",
                     "+VER/11:'1.0.2'", "+BLEMAC/8:'AA:BB'"}),
              feed("+SN=KV5816A00123#13&1\r\n+SID=S-01#14&1\r\n+TYPE=KM5816N#15&1\r\n"
                   "+VER=MCU:1.0.2,BT:,WIFI:3.3,AML:V2023,TP:7,CAM:8,BOOT:9#11&1\r\n"
                   "+BLEMAC=AA:BB#8&1\r\n+BT=CC:DD#7&1\r\n"));
    const kavren_devInfo_t &d = g_kavren_devInfo;
    EXPECT_EQ(2, d.model);
    EXPECT_STREQ("NULL", d.ver_item1);
    EXPECT_STREQ("V2023", d.ver_item3);
    EXPECT_STREQ("CC:DD", d.mac) << "+BT lands on +BTMAC, which tells the client on platform 2 only";

    on(2, -1);
    EXPECT_EQ((Texts{"+BTMAC/7:'EE:FF'"}), feed("+BTMAC=EE:FF#7&2\r\n+BLEMAC=11:22#8&2\r\n"));
    EXPECT_STREQ("11:22", d.mac);

    // The client hears the model code before the model class changes.
    static int32_t model_when_told;
    dev.get()->notify_callback = [](AT_CMD_CbMsg_t *m) {
        if (m->cmd_id == ATCMD_ID_TYPE) model_when_told = g_kavren_devInfo.model;
    };
    const struct { const char *line; int32_t model; } types[] = {
        {"+TYPE=KM5816W\r\n", 1}, {"+TYPE=KM5816X\r\n", -1}, {"+TYPE=KM5816N\r\n", 2}};
    for (const auto &t : types) {
        int32_t before = d.model;
        feed(t.line);
        EXPECT_EQ(before, model_when_told) << t.line;
        EXPECT_EQ(t.model, d.model) << t.line;
    }
    dev.get()->notify_callback = &CallbackSink::callback;

    // Cut to the field, cleared by a reply that does not parse.
    feed("+SN=" + std::string(40, 'S') + "\r\n");
    EXPECT_EQ(std::string(31, 'S'), d.sn);
    EXPECT_EQ(Texts{}, feed("+SN\r\n+BTMAC\r\n"));
    EXPECT_STREQ("", d.sn);
    EXPECT_STREQ("", d.mac);
}

// The accessory's own questions are answered on the transmit queue.
TEST_F(Parsers, QueriesFromTheMcuAreAnsweredNotReported) {
    const struct {
        int32_t platform;
        const char *line;
        Texts sent;
    } rows[] = {
        {2, "AT+STATE?#10&2\r\n", {"response>MCU +STATE/0 f0:+STATE=IDLE\r\n"}},
        {1, "AT+BTMAC?\r\n", {"response>MCU +BTMAC/7 f1:AT+BTMAC=AA:BB:CC:DD:EE:FF#7&1\r\n"}},
        {2, "AT+BLEMAC?\r\n", {"response>MCU +BTMAC/7 f2:AT+BLEMAC=AA:BB:CC:DD:EE:FF#8&2\r\n"}},
        {2, "AT+VER?\r\n", {"response>MCU +VER/0 f0:+VER=WIFI:V1.2\r\n"}},
        {1, "AT+VER?\r\n", {}},
        {1, "+WT\r\n", {"report>MCU +REBOOT/0 f0:+WT=N\r\n"}},
    };
    strcpy(g_kavren_devInfo.mac, "old");
    for (const auto &r : rows) {
        on(r.platform, -1);
        EXPECT_EQ(Texts{}, feed(r.line)) << r.line;
        EXPECT_EQ(r.sent, sent()) << r.line;
    }
    EXPECT_STREQ("V1.2", g_kavren_devInfo.ver_item3) << "the version read once is kept";
    EXPECT_STREQ("", g_kavren_devInfo.mac) << "a MAC query clears the accessory's MAC";
}

// The report carries the connection first, the device keeps it second.
TEST_F(Parsers, UsbStateAndPowerOffChangeTheCastMode) {
    on(2, -1);
    st.wifi_status = 1;
    EXPECT_EQ(Texts{"+USBSTATE/0:1,3"}, feed("+USBSTATE=1,3#16&2\r\n"));
    EXPECT_EQ(3, st.usbdev_sts.usb_devinfo);
    EXPECT_EQ(1, st.usbdev_sts.usb_connected);
    EXPECT_EQ(ATCMD_MODE_USB, st.mode);
    EXPECT_EQ(Texts{"+USBSTATE/0:0,5"}, feed("+USBSTATE=0,5\r\n"));
    EXPECT_EQ(ATCMD_MODE_WIFI, st.mode) << "WiFi was requested";
    EXPECT_EQ(Texts{"report>MPHONE +REBOOT/0 f0:+USBSTATE=0,5\r\n"}, sent()) << "now bridging: relayed";

    on(1, ATCMD_MODE_WIFI);
    EXPECT_EQ((Texts{"+STATE/0:4", "+WIFICON/0:0"}), feed("+STATE=PWROFF\r\n"));
    EXPECT_EQ(0, st.wifi_status) << "the WiFi link was torn down";
    EXPECT_EQ(ATCMD_MODE_NONE, st.mode);

    on(2, ATCMD_MODE_WIFI);
    EXPECT_EQ((Texts{"+SHUTDOWN/0:-", "+WIFICON/0:0"}), feed("+SHUTDOWN\r\n"));
    EXPECT_EQ((Texts{"response>MPHONE +STATE/0 f0:+STATE=PWROFF\r\n", "set>MCU +WIFICON/18 f2:AT+WIFICON=0#18&2\r\n"}), sent());
    EXPECT_EQ("shutdown", prop("sys.powerctl"));
}

// Field engineers grep the log by parser name, also where a shared helper
// writes the line.
TEST_F(Parsers, LogLinesNameTheirParserAndOnlyAPatternMismatchIsLogged) {
    const std::string screen = atcmd_test::stdout_of([] { feed("+SCREEN=1\r\n+RESET\r\n"); });
    for (const char *text : {"]SCREEN_parser:", "SCREEN_parser source is 3, idx is 17 data is",
                             ": kavren screen value is 1, cmdIDX is 17", "]RESET_parser:",
                             ": Invalid reset cmd!"})
        EXPECT_THAT(screen, ::testing::HasSubstr(text));
    EXPECT_THAT(atcmd_test::stdout_of([] { feed("+PTEST=123456789#4&1\r\n"); }),
                ::testing::Not(::testing::HasSubstr("error happens")));
    EXPECT_THAT(atcmd_test::stdout_of([] { feed("+PTEST=123456789#5&1\r\n"); }),
                ::testing::HasSubstr("PTEST_parser error happens, result is 123456789, string "
                                     "should be 987654321"));
}

// Lines without a value, with an empty one, with one longer than any field
// or with a number out of range, for every row: no message where a value
// is needed, every text field still terminated within its width.
TEST_F(Parsers, BadValuesOnEveryRowAreDroppedWithoutHarm) {
    on(1, -1);
    const uint8_t takes_no_value[] = {ATCMD_ID_UPGRADE, ATCMD_ID_RECOVERY, ATCMD_ID_SHUTDOWN,
                                      ATCMD_ID_STATE,   ATCMD_ID_TIME,     ATCMD_ID_OK,
                                      ATCMD_ID_SLEEP,   ATCMD_ID_WT};
    for (const at_cmd_t &row : AT_CMDS) {
        const std::string name = row.name;
        const uint8_t id = static_cast<uint8_t>(&row - AT_CMDS);
        bool needs_value = std::find(std::begin(takes_no_value), std::end(takes_no_value), id) ==
                           std::end(takes_no_value);
        Texts told = feed(name + "\r\n");
        if (needs_value) {
            EXPECT_EQ(Texts{}, told) << name;
        }
        for (const std::string &value : Texts{"", std::string(140, 'x'),
                                              "99999999999999999999999,-99999999999999999999"})
            feed(name + "=" + value + "\r\n");
        const kavren_devInfo_t &d = g_kavren_devInfo;
        for (const char *field : {d.sn, d.sid, d.type, d.ver_item0, d.ver_item6, d.mac})
            ASSERT_NE(nullptr, memchr(field, '\0', 32)) << name;
        ASSERT_NE(nullptr, memchr(d.ver_item3, '\0', sizeof d.ver_item3)) << name;
        sent();
    }
    AtCmder_t rec{};
    rec.data = const_cast<char *>("+REBOOT\r\n");
    EXPECT_EQ(unsigned{ATCMD_PARSE_NO_VALUE}, REBOOT_parser(&rec));
    rec.data = const_cast<char *>("+ERROR\r\n");
    EXPECT_EQ(unsigned{ATCMD_PARSE_NO_VALUE}, ERROR_parser(&rec));
    EXPECT_EQ(0u, RESET_parser(&rec));
}

}  // namespace
