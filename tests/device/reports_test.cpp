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
    EXPECT_EQ((Texts{"3/3/15/15/2:AT+TYPE?#15&2\r\n", "3/3/9/9/2:AT+BAT?#9&2\r\n",
                     "4/3/7/7/2:AT+BLEMAC=AA:BB#8&2\r\n", "3/3/13/13/2:AT+SN?#13&2\r\n",
                     "3/3/14/14/2:AT+SID?#14&2\r\n", "3/3/17/17/2:AT+SCREEN?#17&2\r\n",
                     "3/3/19/19/2:AT+MICMODE?#19&2\r\n", "3/3/11/11/2:AT+VER?#11&2\r\n"}),
              sent());
    st.platform = 1;
    get_kavren_info();
    EXPECT_EQ((Texts{"3/3/15/15/1:AT+TYPE?#15&1\r\n", "3/3/9/9/1:AT+BAT?#9&1\r\n",
                     "4/3/7/7/1:AT+BTMAC=AA:BB#7&1\r\n", "3/3/13/13/1:AT+SN?#13&1\r\n",
                     "3/3/14/14/1:AT+SID?#14&1\r\n", "3/3/17/17/1:AT+SCREEN?#17&1\r\n",
                     "3/3/10/10/1:AT+STATE?#10&1\r\n", "3/3/16/16/1:AT+USBSTATE?#16&1\r\n",
                     "3/3/8/8/1:AT+BLEMAC?#8&1\r\n", "3/3/19/19/1:AT+MICMODE?#19&1\r\n",
                     "3/3/11/11/1:AT+VER?#11&1\r\n"}),
              sent());
    get_kavren_castmode();  // fixed text on every platform
    EXPECT_EQ(Texts{"3/3/28/28/1:AT+MODE?#0&2\r\n"}, sent());
}

TEST_F(Reports, StateWordsAndTheVersionWithItsFallbackAndLimit) {
    st.state = 2;
    send_stateToMCU();
    st.state = 3;  // the MCU knows IDLE and ACTIVE only
    send_stateToMCU();
    send_stateToMPHONE(4);
    send_stateToMPHONE(9);
    EXPECT_EQ((Texts{"4/3/10/0/0:+STATE=ACTIVE\r\n", "4/3/10/0/0:+STATE=\r\n",
                     "4/1/10/0/0:+STATE=PWROFF\r\n", "4/1/10/0/0:+STATE=\r\n"}),
              sent());

    st.platform = 1;
    send_amlogic_ver();
    EXPECT_EQ(Texts{}, sent()) << "only the UART side reports its version";
    st.platform = 2;
    const std::string v70(70, 'v');
    property_set("ro.tavrinola.version", v70.c_str());
    EXPECT_THAT(atcmd_test::stdout_of([] { send_amlogic_ver(); }),
                ::testing::HasSubstr("send_amlogic_ver:"));
    EXPECT_EQ(Texts{"4/3/11/0/0:+VER=WIFI:" + v70 + "\r\n"}, sent());
    EXPECT_STREQ("", g_kavren_devInfo.ver_item3) << "too long to keep";
    strcpy(g_kavren_devInfo.ver_item3, "A1");
    send_amlogic_ver();
    EXPECT_EQ(Texts{"4/3/11/0/0:+VER=WIFI:A1\r\n"}, sent()) << "the accessory's item first";
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
    EXPECT_EQ((Texts{"2/3/18/18/2:AT+WIFICON=1#18&2\r\n", "2/3/18/18/2:AT+WIFICON=0#18&2\r\n",
                     "2/3/18/18/2:18&2\r\n"}),
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
    EXPECT_EQ((Texts{"0/3/0/0/0:AT+PTEST=123456789#0&2\r\n", "0/3/0/0/0:AT+PTEST=987654321#1&2\r\n",
                     "0/3/0/0/0:AT+PTEST=123456789#2&2\r\n"}),
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
    EXPECT_EQ(Texts{"0/3/0/0/0:AT+PTEST=123456789#65536&2\r\n"}, sent()) << "not reset, wrapped";
}

}  // namespace
