#include "link/hiddemon.h"

#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <string>

#include "atcmdprocess.h"
#include "fixtures/callback_sink.h"
#include "fixtures/device.h"
#include "fixtures/props.h"
#include "hal/wifi_control.h"
#include "harness/sysroot.h"
#include "link/wifi_link.h"
#include "sim/hid_daemon.h"

namespace {

using atcmd_test::CallbackSink;
using atcmd_test::prop;

struct Hiddemon : ::testing::Test {
    atcmd_harness::TempSysroot root;
    atcmd_test::TestDevice dev;
    system_status_t &st = dev.status();
};

TEST_F(Hiddemon, HeartbeatRunningAndErrorTexts) {
    atsim::Transcript transcript;
    atsim::HidDaemon daemon(root.root(), {property_get, property_set, ""}, transcript);
    st.wifi_status = 0;  // no start requested: every text is ignored
    atcmdprocess_hiddemon_stchange("running");
    atcmdprocess_hiddemon_stchange("heartbeat:5");
    EXPECT_EQ(0u, g_wifiHBeat_num);
    EXPECT_TRUE(CallbackSink::messages().empty());
    st.wifi_status = 1;

    atcmdprocess_hiddemon_stchange("heartbeat:41");
    EXPECT_EQ(41u, g_wifiHBeat_num);
    atcmdprocess_hiddemon_stchange("heartbeat");
    EXPECT_EQ(41u, g_wifiHBeat_num) << "no number without ':'";
    atcmdprocess_hiddemon_stchange("heartbeat running error:42");
    EXPECT_EQ(42u, g_wifiHBeat_num) << "heartbeat wins over the other words";
    EXPECT_TRUE(CallbackSink::messages().empty());

    atcmdprocess_hiddemon_stchange("running, no error");  // the signal thread opens the link
    ASSERT_EQ(1u, CallbackSink::messages().size());
    EXPECT_EQ(ATCMD_ID_WIFICON, CallbackSink::messages()[0].cmd_id);
    EXPECT_EQ(1, CallbackSink::messages()[0].i64);

    property_set("vendor.hid_cmd", "none");
    atcmdprocess_hiddemon_stchange("hid error");
    EXPECT_EQ(1, daemon.exit_requests()) << "an error restarts the daemon";
    EXPECT_EQ("start_server", prop("vendor.hid_cmd"));
    ASSERT_EQ(2u, CallbackSink::messages().size());
    EXPECT_EQ(0, CallbackSink::messages()[1].i64);

    ASSERT_EQ(0, Socket_Fifo_Init());
    property_set("vendor.hid_cmd", "none");
    atcmdprocess_hiddemon_stchange("stopped");
    EXPECT_EQ(-1, g_fifo_rx_fd) << "any other text closes the channel";
    EXPECT_EQ("none", prop("vendor.hid_cmd")) << "and leaves the daemon alone";
}

}  // namespace
