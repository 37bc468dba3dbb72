#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "atcmdprocess.h"
#include "core/threads.h"
#include "fixtures/census.h"
#include "fixtures/device.h"
#include "fixtures/hid_daemon.h"
#include "fixtures/queue_probe.h"
#include "fixtures/sysroot.h"
#include "fixtures/wait_until.h"

namespace {

using atcmd_test::Taken;

void daemon_sends(const atcmd_test::FakeHidDaemon &d, const std::string &bytes) {
    ASSERT_EQ(static_cast<ssize_t>(bytes.size()), write(d.rx_writer(), bytes.data(), bytes.size()));
}

std::vector<Taken> received(size_t n) {
    std::vector<Taken> got;
    atcmd_test::wait_until([&] {
        for (Taken &t : atcmd_test::drain(&Rx_head, &g_rxqueue_mutex)) got.push_back(t);
        return got.size() >= n;
    });
    return got;
}

TEST(WifiRx, BatchesFromTheDaemonAreParsedWithThePlatformsSourceUntilTheChannelCloses) {
    atcmd_test::TempSysroot root;
    atcmd_test::TestDevice dev;
    atcmd_test::FakeHidDaemon daemon(root, "exit");
    int fds_before = atcmd_test::open_fd_count();
    int threads_before = atcmd_test::thread_count();
    ASSERT_EQ(0, Socket_Fifo_Init());
    ASSERT_EQ(0, atcmd::start_alarm_thread(&g_wifiRx_thread, atcmder_wifiRx_thread));

    daemon_sends(daemon, "+OK\r\n+BAT=1,2,3,4,5,6\r\n");
    auto got = received(2);
    ASSERT_EQ(2u, got.size());
    EXPECT_EQ("+OK\r\n", got[0].text);
    EXPECT_EQ(9, got[1].rec.cmd_id);
    EXPECT_EQ(ATCMD_EP_CLIENT, got[1].rec.source) << "platform 1 hears the client's side";

    dev.status().platform = 2;
    daemon_sends(daemon, "+SN=AB");  // a line split across two arrivals
    daemon_sends(daemon, "C#13&2\r\n");
    got = received(1);
    ASSERT_EQ(1u, got.size());
    EXPECT_EQ("+SN=ABC#13&2\r\n", got[0].text);
    EXPECT_EQ(ATCMD_EP_MPHONE, got[0].rec.source);

    stop_wifi_channel();  // SIGALRM ends the thread, which is joined
    EXPECT_EQ(0u, g_wifiRx_thread);
    EXPECT_EQ(fds_before, atcmd_test::open_fd_count());
    EXPECT_EQ(threads_before, atcmd_test::thread_count());
}

}  // namespace
