// What the phone sends on its own: queries for the accessory and reports
// about itself, as exact records on the transmit queue
// ("type/dest/cmd_id/seq_num/flag:text").
#include <cutils/properties.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>

#include <chrono>
#include <string>
#include <vector>

#include "atcmdprocess.h"
#include "core/log.h"
#include "device/factory.h"
#include "device/reports.h"
#include "fixtures/callback_sink.h"
#include "fixtures/device.h"
#include "fixtures/log_capture.h"
#include "fixtures/queue_probe.h"

namespace {

using atcmd_test::CallbackSink;
using atcmd_test::sent;
using Texts = std::vector<std::string>;

struct Reports : ::testing::Test {
    atcmd_test::TestDevice dev;
    system_status_t &st = dev.status();
};

// Each query carries its row as cmd_id and sequence number, and the tail of
// its platform; the accessory is asked in this order.
TEST_F(Reports, IdentityQueriesComeInOrderAndPlatform1AlsoAsksStateUsbAndBle) {
    property_set("net.bluetooth.macaddr", "AA:BB");
    st.platform = 2;
    get_kavren_info();
    EXPECT_EQ((Texts{"query>MCU +TYPE/15 f2:AT+TYPE?#15&2\r\n", "query>MCU +BAT/9 f2:AT+BAT?#9&2\r\n",
                     "response>MCU +BTMAC/7 f2:AT+BLEMAC=AA:BB#8&2\r\n", "query>MCU +SN/13 f2:AT+SN?#13&2\r\n",
                     "query>MCU +SID/14 f2:AT+SID?#14&2\r\n", "query>MCU +SCREEN/17 f2:AT+SCREEN?#17&2\r\n",
                     "query>MCU +MICMODE/19 f2:AT+MICMODE?#19&2\r\n", "query>MCU +VER/11 f2:AT+VER?#11&2\r\n"}),
              sent());
    st.platform = 1;
    get_kavren_info();
    EXPECT_EQ((Texts{"query>MCU +TYPE/15 f1:AT+TYPE?#15&1\r\n", "query>MCU +BAT/9 f1:AT+BAT?#9&1\r\n",
                     "response>MCU +BTMAC/7 f1:AT+BTMAC=AA:BB#7&1\r\n", "query>MCU +SN/13 f1:AT+SN?#13&1\r\n",
                     "query>MCU +SID/14 f1:AT+SID?#14&1\r\n", "query>MCU +SCREEN/17 f1:AT+SCREEN?#17&1\r\n",
                     "query>MCU +STATE/10 f1:AT+STATE?#10&1\r\n", "query>MCU +USBSTATE/16 f1:AT+USBSTATE?#16&1\r\n",
                     "query>MCU +BLEMAC/8 f1:AT+BLEMAC?#8&1\r\n", "query>MCU +MICMODE/19 f1:AT+MICMODE?#19&1\r\n",
                     "query>MCU +VER/11 f1:AT+VER?#11&1\r\n"}),
              sent());
    get_kavren_castmode();  // fixed text on every platform
    EXPECT_EQ(Texts{"query>MCU +MODE/28 f1:AT+MODE?#0&2\r\n"}, sent());
}

TEST_F(Reports, StateWordsAndTheVersionWithItsFallbackAndLimit) {
    st.state = 2;
    send_stateToMCU();
    st.state = 3;  // the MCU knows IDLE and ACTIVE only
    send_stateToMCU();
    send_stateToMPHONE(4);
    send_stateToMPHONE(9);
    EXPECT_EQ((Texts{"response>MCU +STATE/0 f0:+STATE=ACTIVE\r\n", "response>MCU +STATE/0 f0:+STATE=\r\n",
                     "response>MPHONE +STATE/0 f0:+STATE=PWROFF\r\n", "response>MPHONE +STATE/0 f0:+STATE=\r\n"}),
              sent());

    st.platform = 1;
    send_amlogic_ver();
    EXPECT_EQ(Texts{}, sent()) << "only the UART side reports its version";
    st.platform = 2;
    const std::string v70(70, 'v');
    property_set("ro.tavrinola.version", v70.c_str());
    EXPECT_THAT(atcmd_test::stdout_of([] { send_amlogic_ver(); }),
                ::testing::HasSubstr("send_amlogic_ver:"));
    EXPECT_EQ(Texts{"response>MCU +VER/0 f0:+VER=WIFI:" + v70 + "\r\n"}, sent());
    EXPECT_STREQ("", g_kavren_devInfo.ver_item3) << "too long to keep";
    strcpy(g_kavren_devInfo.ver_item3, "A1");
    send_amlogic_ver();
    EXPECT_EQ(Texts{"response>MCU +VER/0 f0:+VER=WIFI:A1\r\n"}, sent()) << "the accessory's item first";
}

// Without the property the report waits about 2 s, then gives up.
TEST_F(Reports, BtMacWaitsForItsPropertyThenGivesUp) {
    property_set("net.bluetooth.macaddr", "");  // an empty value reads as unset
    auto start = std::chrono::steady_clock::now();
    EXPECT_THAT(atcmd_test::stdout_of([] { send_bt_mac(); }),
                ::testing::HasSubstr("Can not get Kavren BTMAC net.bluetooth.macaddr."));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_EQ(Texts{}, sent());
}

TEST_F(Reports, WifiStateReachesTheClientAfterAPauseAndPlatform2TellsTheAccessory) {
    auto start = std::chrono::steady_clock::now();
    notify_wifi_state(1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
    EXPECT_EQ(Texts{"+WIFICON/0:1"}, CallbackSink::described());
    EXPECT_EQ(Texts{}, sent()) << "platform 1 sends nothing";

    st.platform = 2;
    for (int64_t state : {1, 0, 5}) notify_wifi_state(state);
    // Always "&2" in the text, whatever the flag says.
    EXPECT_EQ((Texts{"set>MCU +WIFICON/18 f2:AT+WIFICON=1#18&2\r\n", "set>MCU +WIFICON/18 f2:AT+WIFICON=0#18&2\r\n",
                     "set>MCU +WIFICON/18 f2:18&2\r\n"}),
              sent());
    EXPECT_EQ((Texts{"+WIFICON/0:1", "+WIFICON/0:1", "+WIFICON/0:0", "+WIFICON/0:5"}),
              CallbackSink::described());
}

}  // namespace

namespace {

// The wrap of the index's low 16 bits is logged with the round advanced
// once per output written: standard output and the Android log, and the
// file when one is open.
TEST_F(Reports, FactoryLinesOnPlatform2AndTheRoundAdvancesOncePerLogOutput) {
    st.platform = 2;
    uint32_t index = 0, round = 0;
    for (int i = 0; i < 3; ++i) atcmd::test_tx_step(&index, &round);
    EXPECT_EQ((Texts{"?>MCU +REBOOT/0 f0:AT+PTEST=123456789#0&2\r\n", "?>MCU +REBOOT/0 f0:AT+PTEST=987654321#1&2\r\n",
                     "?>MCU +REBOOT/0 f0:AT+PTEST=123456789#2&2\r\n"}),
              sent());
    st.platform = 1;
    atcmd::test_tx_step(&index, &round);
    EXPECT_EQ(4u, index) << "the index advances on every platform";
    EXPECT_EQ(Texts{}, sent());

    index = 65535;
    atcmd::test_tx_step(&index, &round);
    EXPECT_EQ(2u, round);
    log_file_init("/sdcard/tavrinola/.log", "atcmdprocess");
    index = 131071;
    atcmd::test_tx_step(&index, &round);
    EXPECT_EQ(5u, round);
    st.platform = 2;
    send_ptest_data(65536);
    EXPECT_EQ(Texts{"?>MCU +REBOOT/0 f0:AT+PTEST=123456789#65536&2\r\n"}, sent()) << "not reset, wrapped";
}

}  // namespace
