#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "atcmdprocess.h"
#include "harness/census.h"
#include "harness/sysroot.h"
#include "link/acm_link.h"
#include "link/serial_port.h"
#include "link/usb_hotplug.h"
#include "sim/accessory.h"

namespace {

using atcmd_harness::TempSysroot;

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
    const int fds = atcmd_harness::open_fd_count();
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
    EXPECT_EQ(fds, atcmd_harness::open_fd_count());
}

// Alive only while /dev/ttyACM0 still names the open tty and that tty is
// up: another tty under the name, or none, is a dead link.
TEST(VuartLinkState, TheOpenTtyAgainstTheNode) {
    using atcmd::VuartLink;
    TempSysroot root;
    atsim::Transcript transcript;
    atsim::Accessory first(root.root(), transcript), second(root.root(), transcript);
    EXPECT_EQ(VuartLink::kClosed, atcmd::vuart_link_state(0));
    ASSERT_TRUE(first.plug_usb(0));
    g_vuart_fd = open(first.node_path().c_str(), O_RDWR | O_NOCTTY);
    EXPECT_EQ(VuartLink::kAlive, atcmd::vuart_link_state(0));
    ASSERT_TRUE(second.plug_usb(0));  // takes the name over; the first tty stays up
    EXPECT_EQ(VuartLink::kDead, atcmd::vuart_link_state(0));
    close(g_vuart_fd);
    g_vuart_fd = open(second.node_path().c_str(), O_RDWR | O_NOCTTY);
    EXPECT_EQ(VuartLink::kAlive, atcmd::vuart_link_state(0));
    second.unplug();
    EXPECT_EQ(VuartLink::kDead, atcmd::vuart_link_state(0));
    close(g_vuart_fd);
}

}  // namespace
