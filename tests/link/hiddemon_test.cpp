#include "link/hiddemon.h"

#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <string>
#include <thread>

#include "atcmdprocess.h"
#include "core/delays.h"
#include "core/threads.h"
#include "fixtures/callback_sink.h"
#include "fixtures/device.h"
#include "fixtures/hid_daemon.h"
#include "fixtures/props.h"
#include "fixtures/signal_catcher.h"
#include "fixtures/sysroot.h"
#include "fixtures/wait_until.h"

namespace {

using atcmd_test::CallbackSink;
using atcmd_test::prop;

struct Hiddemon : ::testing::Test {
    atcmd_test::TempSysroot root;
    atcmd_test::TestDevice dev;
    system_status_t &st = dev.status();
};

TEST_F(Hiddemon, HeartbeatRunningAndErrorTexts) {
    atcmd_test::SignalCatcher catcher({SIGURG});
    atcmd_test::FakeHidDaemon daemon(root, "exit");
    st.wifi_status = 0;  // no start requested: every text is ignored
    atcmdprocess_hiddemon_stchange("running");
    atcmdprocess_hiddemon_stchange("heartbeat:5");
    EXPECT_FALSE(catcher.wait_for(1, 300));
    EXPECT_EQ(0u, g_wifiHBeat_num);
    st.wifi_status = 1;

    atcmdprocess_hiddemon_stchange("heartbeat:41");
    EXPECT_EQ(41u, g_wifiHBeat_num);
    atcmdprocess_hiddemon_stchange("heartbeat");
    EXPECT_EQ(41u, g_wifiHBeat_num) << "no number without ':'";
    atcmdprocess_hiddemon_stchange("heartbeat running error:42");
    EXPECT_EQ(42u, g_wifiHBeat_num) << "heartbeat wins over the other words";
    EXPECT_TRUE(CallbackSink::messages().empty());

    atcmdprocess_hiddemon_stchange("running, no error");
    ASSERT_TRUE(catcher.wait_for(1));
    EXPECT_EQ(SIGURG, catcher.received()[0]);
    ASSERT_EQ(1u, CallbackSink::messages().size());
    EXPECT_EQ(18, CallbackSink::messages()[0].cmd_id);
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
    EXPECT_EQ(1u, catcher.received().size());
}

TEST_F(Hiddemon, ALostHeartbeatRestartsTheDaemonAndARegularOneDoesNot) {
    atcmd_test::FakeHidDaemon daemon(root, "exit");
    st.wifi_status = 1;
    ASSERT_EQ(0, Socket_Fifo_Init());
    ASSERT_EQ(0, atcmd::start_alarm_thread(&g_wifiHBeat_thread, atcmder_wifiHBeat_thread));

    // Beats far more often than the period, for three periods, keep the link.
    const auto beat = std::chrono::microseconds(atcmd::g_delays.heartbeat_period / 8);
    for (int n = 1; n <= 24; ++n) {
        atcmdprocess_hiddemon_stchange(("heartbeat:" + std::to_string(n)).c_str());
        std::this_thread::sleep_for(beat);
    }
    EXPECT_EQ(0, daemon.exit_requests());
    EXPECT_GE(g_fifo_rx_fd, 1);

    // Silence for a whole period: channel closed, daemon restarted.
    EXPECT_TRUE(atcmd_test::wait_until([&] { return daemon.exit_requests() == 1; }));
    EXPECT_TRUE(atcmd_test::wait_until([] { return prop("vendor.hid_cmd") == "start_server"; }));
    EXPECT_EQ(-1, g_fifo_rx_fd);

    atcmd::stop_heartbeat_thread();
    EXPECT_EQ(0u, g_wifiHBeat_thread);
}

}  // namespace
