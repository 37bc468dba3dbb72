#include <cutils/properties.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <thread>

#include "atcmdprocess.h"
#include "core/threads.h"
#include "fixtures/child_process.h"
#include "fixtures/device.h"
#include "fixtures/props.h"
#include "hal/wifi_control.h"
#include "harness/census.h"
#include "harness/sysroot.h"
#include "harness/wait_until.h"
#include "link/hiddemon.h"
#include "link/wifi_link.h"
#include "sim/hid_daemon.h"

namespace {

using atcmd_test::prop;

struct WifiControl : ::testing::Test {
    atcmd_harness::TempSysroot root;
    atsim::Transcript transcript;
    // The daemon, acknowledging an orderly stop with ack ("" for none).
    std::unique_ptr<atsim::HidDaemon> daemon(const std::string &ack) {
        auto d = std::make_unique<atsim::HidDaemon>(root.root(), atsim::PropertyStore{property_get, property_set, ""}, transcript);
        if (ack.empty()) d->set_ack_exit(false);
        else d->set_ack_text(ack);
        return d;
    }
    atcmd_test::TestDevice dev;
    system_status_t &st = dev.status();
};

TEST_F(WifiControl, InitStartsTheDaemonInThePlatformsRole) {
    auto daemon = this->daemon("exit");
    st.platform = 2;
    ASSERT_EQ(0, atcmdprocess_wifi_init("192.168.1.7"));
    EXPECT_EQ(1, daemon->exit_requests()) << "a new server address restarts the daemon";
    EXPECT_EQ("start_client", prop("vendor.hid_cmd"));
    EXPECT_EQ("192.168.1.7", prop("vendor.hid_sts"));
    EXPECT_STREQ("192.168.1.7", st.ipaddr);
    ASSERT_EQ(0, atcmdprocess_wifi_init("192.168.1.7"));
    EXPECT_EQ(1, daemon->exit_requests()) << "the same address does not";
    EXPECT_EQ(-EINVAL, atcmdprocess_wifi_init("192.168.100.200x"));
    EXPECT_STREQ("192.168.1.7", st.ipaddr) << "an address that does not fit is refused";

    struct Row {
        int platform;
        const char *cmd;
    } rows[] = {{1, "start_server"}, {3, "untouched"}};
    for (const Row &r : rows) {
        st.platform = r.platform;
        st.wifi_status = 0;
        property_set("vendor.hid_cmd", "untouched");
        ASSERT_EQ(0, atcmdprocess_wifi_init("10.0.0.1"));
        EXPECT_EQ(r.cmd, prop("vendor.hid_cmd")) << r.platform;
        EXPECT_EQ(1, st.wifi_status) << r.platform;
    }
}

TEST_F(WifiControl, StopAsksPolitelyAndForcesWhenTheDaemonDoesNotAnswerExactly) {
    {
        auto daemon = this->daemon("exit");
        property_set("vendor.hid_cmd", "start_server");
        stop_hiddemon();
        EXPECT_EQ(1, daemon->exit_requests());
        EXPECT_EQ("start_server", prop("vendor.hid_cmd")) << "an orderly exit needs no force";
    }
    {
        auto daemon = this->daemon("exited");
        st.platform = 2;
        stop_hiddemon();
        EXPECT_EQ(1, daemon->exit_requests());
        EXPECT_EQ("stop_client", prop("vendor.hid_cmd"));
    }
    unlink(root.path("/dev/fifo_cmd").c_str());
    st.platform = 1;
    stop_hiddemon();
    EXPECT_EQ("stop_server", prop("vendor.hid_cmd")) << "no command FIFO: forced at once";
    st.platform = 7;
    property_set("vendor.hid_cmd", "x");
    EXPECT_EQ(0, Kill_hiddemon_byforce());
    EXPECT_EQ("stop_server", prop("vendor.hid_cmd"));
}

TEST_F(WifiControl, ChannelOpensOverTheDaemonsFifosAndClosesWithoutLeaks) {
    EXPECT_EQ(ATCMD_WIFI_FIFO_MISSING, Socket_Fifo_Init()) << "the FIFOs are the daemon's to create";
    auto daemon = this->daemon("exit");
    int before = atcmd_harness::open_fd_count();
    const std::string rx = root.path("/dev/fifo_rx");
    unlink(rx.c_str());
    EXPECT_EQ(ATCMD_WIFI_FIFO_MISSING, Socket_Fifo_Init());
    EXPECT_EQ(before + 1, atcmd_harness::open_fd_count()) << "the transmit FIFO stays open";
    mkfifo(rx.c_str(), 0600);
    ASSERT_EQ(0, Socket_Fifo_Init());
    EXPECT_GE(g_fifo_rx_fd, 1);
    EXPECT_GE(g_fifo_tx_fd, 1);
    EXPECT_GE(epfd_socket, 1);
    EXPECT_EQ(before + 3, atcmd_harness::open_fd_count());
    ASSERT_EQ(0, Socket_Fifo_Init()) << "re-opening replaces the old channel";
    EXPECT_EQ(before + 3, atcmd_harness::open_fd_count());

    stop_wifi_channel();
    EXPECT_EQ(-1, g_fifo_rx_fd);
    EXPECT_EQ(-1, g_fifo_tx_fd);
    EXPECT_EQ(0, epfd_socket);
    EXPECT_EQ(before, atcmd_harness::open_fd_count());
    stop_wifi_channel();  // nothing open: nothing to do
    EXPECT_EQ(before, atcmd_harness::open_fd_count());
}

// A stop right after a start, before the receive thread reached its first
// wait (or its first line), must end that thread and nothing else; two tear-downs at once (the
// heartbeat's restart beside the client's) must end each thread exactly once.
TEST_F(WifiControl, TearDownsThatRaceTheThreadsEndEachOneOnce) {
    int status = atcmd_test::run_in_child(
        [this] {
            auto daemon = this->daemon("exit");
            const int threads = atcmd_harness::thread_count();
            for (int round = 0; round < 60; ++round) {
                ASSERT_EQ(0, Socket_Fifo_Init());
                // Every other one started as a client would: a plain
                // pthread_create, SIGALRM not blocked, stopped at once.
                ASSERT_EQ(0, round % 2 ? pthread_create(&g_wifiRx_thread, nullptr,
                                                        atcmder_wifiRx_thread, nullptr)
                                       : atcmd::start_alarm_thread(&g_wifiRx_thread,
                                                                   atcmder_wifiRx_thread));
                stop_wifi_channel();
                ASSERT_EQ(0u, g_wifiRx_thread);
            }
            for (int round = 0; round < 5; ++round) {
                ASSERT_EQ(0, Socket_Fifo_Init());
                ASSERT_EQ(0, atcmd::start_alarm_thread(&g_wifiRx_thread, atcmder_wifiRx_thread));
                ASSERT_EQ(0,
                          atcmd::start_alarm_thread(&g_wifiHBeat_thread, atcmder_wifiHBeat_thread));
                std::thread client([] { atcmdprocess_wifi_stchange(0); });
                atcmdprocess_wifi_stchange(0);
                client.join();
                ASSERT_EQ(-1, g_fifo_rx_fd);
                ASSERT_EQ(0u, g_wifiRx_thread | g_wifiHBeat_thread);
            }
            EXPECT_TRUE(
                atcmd_harness::wait_until([&] { return atcmd_harness::thread_count() == threads; }));
        },
        20000);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child wait status " << status;
}

}  // namespace
