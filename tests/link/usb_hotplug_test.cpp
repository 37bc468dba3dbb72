#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "atcmdprocess.h"
#include "fixtures/sysroot.h"
#include "fixtures/callback_sink.h"
#include "fixtures/census.h"
#include "fixtures/child_process.h"
#include "fixtures/device.h"
#include "fixtures/signal_catcher.h"

namespace {

using atcmd_test::TempSysroot;

// A name without "ttyACM" leaves the kept name alone; a long one is cut to
// what the buffer holds.
TEST(ParseDevName, NumberAfterTtyAcmAndTheNameKept) {
    const std::string long_name = "ttyACM5" + std::string(80, 'z');
    const struct {
        const char *name;
        int64_t n;
        std::string kept;  // g_dev_ACM_name afterwards
    } rows[] = {
        {"ttyACM12", 12, "ttyACM12"}, {"ttyS5", -1, "ttyACM12"},
        {"usb-ttyACM3", 3, "usb-ttyACM3"}, {"ttyacm1", -1, "usb-ttyACM3"},
        {long_name.c_str(), 5, long_name.substr(0, 63)},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(r.n, parse_dev_name(r.name));
        EXPECT_EQ(r.kept, g_dev_ACM_name);
    }
}

TEST(KavrenPlugged, OnlyTheAccessoryProductLineMatches) {
    TempSysroot root;
    const struct {
        const char *product;  // nullptr: no uevent file
        int plugged;
    } rows[] = {
        {"6f2a/4c07/100", 1}, {"6f2a/4c07", 1},     {"6f2a/4c08/100", 0},
        {"6F2A/4C07/100", 0}, {"1d6b/0002/515", 0}, {nullptr, 0},
    };
    const int fds = atcmd_test::open_fd_count();
    for (const auto &r : rows) {
        std::string node = "ttyACM" + std::to_string(&r - rows);
        if (r.product != nullptr) {  // as the kernel writes it for a CDC-ACM interface
            root.mkdirs("/sys/class/tty/" + node + "/device");
            root.write_file("/sys/class/tty/" + node + "/device/uevent",
                            "DRIVER=cdc_acm\nPRODUCT=" + std::string(r.product) + "\nTYPE=239/2/1\n");
        }
        parse_dev_name(node.c_str());
        EXPECT_EQ(r.plugged, kavren_plugged()) << node;
    }
    EXPECT_EQ(fds, atcmd_test::open_fd_count());
}

// The watcher thread never ends, so it runs in a child process.
TEST(HotplugWatcher, NodesComingAndGoingReachTheSignalThread) {
    EXPECT_CHILD_PASSES([] {
        TempSysroot root;
        atcmd_test::SignalCatcher signals({SIGUSR1, SIGUSR2});
        root.write_file("/dev/ttyACM0", "");
        ASSERT_EQ(0, dev_hotplug_init());
        ASSERT_TRUE(signals.wait_for(1)) << "the start-up scan announces ttyACM0";

        root.write_file("/dev/ttyACM1", "");
        ASSERT_TRUE(signals.wait_for(2));
        EXPECT_EQ(1, g_dev_ACM);
        EXPECT_STREQ("ttyACM1", g_dev_ACM_name);

        // Neither another tty nor a directory is an ACM node: the next
        // signal must be the removal's.
        root.write_file("/dev/ttyS5", "");
        root.mkdirs("/dev/ttyACM7");
        ASSERT_EQ(0, unlink(root.path("/dev/ttyACM1").c_str()));
        ASSERT_TRUE(signals.wait_for(3));
        EXPECT_EQ((std::vector<int>{SIGUSR1, SIGUSR1, SIGUSR2}), signals.received());
        EXPECT_EQ(1, g_dev_ACM) << "removal keeps the number";
    });
}

// Stored as {usb_devinfo, usb_connected}; the client gets them the other
// way round: {cmd_id, seq_num, usb_connected, usb_devinfo}.
TEST(NotifyUsbevent, PluggedFlagFirstThenDeviceValue) {
    atcmd_test::TestDevice dev;
    dev.status().usbdev_sts = {5, 1};
    notify_usbevent();
    auto msgs = atcmd_test::CallbackSink::messages();
    ASSERT_EQ(1u, msgs.size());
    const auto &m = msgs[0];
    EXPECT_EQ((std::vector<int>{16, 0, 1, 5}),
              (std::vector<int>{m.cmd_id, m.seq_num, m.i32[0], m.i32[1]}));
}

}  // namespace
