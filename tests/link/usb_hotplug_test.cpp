#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "atcmdprocess.h"
#include "fixtures/accessory.h"
#include "fixtures/callback_sink.h"
#include "fixtures/child_process.h"
#include "fixtures/device.h"
#include "fixtures/log_capture.h"
#include "fixtures/signal_catcher.h"
#include "fixtures/sysroot.h"

namespace {

using ::testing::HasSubstr;
using atcmd_test::CallbackSink;
using atcmd_test::SignalCatcher;
using atcmd_test::TempSysroot;

TEST(ParseDevName, NumberAfterTtyAcmAndTheNameKept) {
    struct Row {
        const char *name;
        int64_t n;
        const char *kept;  // g_dev_ACM_name afterwards
    };
    const std::string long_name = "ttyACM5" + std::string(80, 'z');
    const Row rows[] = {
        {"ttyACM0", 0, "ttyACM0"},   {"ttyACM12", 12, "ttyACM12"},
        {"ttyS5", -1, "ttyACM12"},   {"ttyACMx", 0, "ttyACMx"},
        {"usb-ttyACM3", 3, "usb-ttyACM3"}, {"ttyacm1", -1, "usb-ttyACM3"},
        {long_name.c_str(), 5, nullptr},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(r.n, parse_dev_name(r.name));
        if (r.kept != nullptr) {
            EXPECT_STREQ(r.kept, g_dev_ACM_name);
        }
    }
    EXPECT_EQ(long_name.substr(0, 63), g_dev_ACM_name) << "at most 63 characters are kept";
}

TEST(KavrenPlugged, OnlyTheAccessoryProductLineMatches) {
    TempSysroot root;
    struct Row {
        const char *product;  // nullptr: no uevent file
        int plugged;
    };
    const Row rows[] = {
        {atcmd_test::kAccessoryProduct, 1}, {"6f2a/4c07", 1}, {"6f2a/4c08/100", 0},
        {"6F2A/4C07/100", 0},               {"1d6b/0002/515", 0}, {nullptr, 0},
    };
    int i = 0;
    for (const Row &r : rows) {
        std::string node = "ttyACM" + std::to_string(i++);
        SCOPED_TRACE(node);
        if (r.product != nullptr) atcmd_test::write_uevent(root, node, r.product);
        parse_dev_name(node.c_str());
        std::string out = atcmd_test::stdout_of([&] { EXPECT_EQ(r.plugged, kavren_plugged()); });
        EXPECT_THAT(out, HasSubstr(r.product == nullptr ? "open node fail."
                                                        : "buf_match PRODUCT=6f2a/4c07"));
    }
}

// The watcher thread never ends, so it runs in a child process.
TEST(HotplugWatcher, NodesComingAndGoingReachTheSignalThread) {
    EXPECT_CHILD_PASSES([] {
        TempSysroot root;
        SignalCatcher signals({SIGUSR1, SIGUSR2});
        root.write_file("/dev/ttyACM0", "");
        ASSERT_EQ(0, dev_hotplug_init());
        ASSERT_TRUE(signals.wait_for(1)) << "the start-up scan announces ttyACM0";
        EXPECT_NE(0u, g_find_acmdev_thread);

        atcmd_test::write_uevent(root, "ttyACM1", atcmd_test::kAccessoryProduct);
        root.write_file("/dev/ttyACM1", "");
        ASSERT_TRUE(signals.wait_for(2));
        EXPECT_EQ(1, g_dev_ACM);
        EXPECT_STREQ("ttyACM1", g_dev_ACM_name);
        EXPECT_EQ(1, kavren_plugged());

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

TEST(NotifyUsbevent, PluggedFlagFirstThenDeviceValue) {
    atcmd_test::TestDevice dev;
    dev.status().usbdev_sts = {5, 1};  // usb_devinfo 5, usb_connected 1
    std::string out = atcmd_test::stdout_of([] { notify_usbevent(); });
    EXPECT_THAT(out, HasSubstr("Notify usb evt 1 5"));
    ASSERT_EQ(1u, CallbackSink::messages().size());
    auto msg = CallbackSink::messages()[0];
    EXPECT_EQ(16, msg.cmd_id);
    EXPECT_EQ(0, msg.seq_num);
    EXPECT_EQ(1, msg.i32[0]);
    EXPECT_EQ(5, msg.i32[1]);
}

}  // namespace
