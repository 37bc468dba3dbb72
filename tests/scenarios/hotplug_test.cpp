// Plugging and unplugging faster than the signal thread follows: whatever
// order and number of events it takes in, once they stop, the client's last
// USB event and the open tty agree with the node that exists.
#include <sys/stat.h>
#include <sys/wait.h>

#include <random>
#include <thread>

#include "fixtures/child_process.h"
#include "harness/sysroot.h"
#include "harness/wait_until.h"
#include "scenarios/module.h"

namespace {

using namespace scenario;
using atcmd_test::CallbackSink;

constexpr const char *kMac = "AA:BB:CC:DD:EE:FF";

struct Hotplug : ::testing::Test {
    atcmd_harness::TempSysroot root;
    atsim::Transcript transcript;

    // mac "" leaves net.bluetooth.macaddr unset: every plug then holds the
    // signal thread about 2 s while it waits for the property.
    void run(const char *mac, const std::function<void(Module &, atsim::Accessory &)> &body) {
        const int status = atcmd_test::run_in_child([&] {
            Module m(root.root(), kWaits);
            if (*mac != '\0') m.set_prop("net.bluetooth.macaddr", mac);
            ASSERT_NE(nullptr, m.open());
            atsim::Accessory acc(root.root(), transcript);
            acc.silence("+USBSTATE");  // its answer has the plug event's row and sequence
            body(m, acc);
            if (HasFailure()) fprintf(stderr, "%s", transcript.dump().c_str());
        }, 90000);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
    }
};

// The plugged flags of the client's USB events from message `from` on.
std::string usb_events(size_t from = 0) {
    std::string flags;
    const std::vector<atcmd_test::CapturedMsg> msgs = CallbackSink::messages();
    for (size_t i = from; i < msgs.size(); ++i)
        if (msgs[i].cmd_id == ATCMD_ID_USBSTATE && msgs[i].seq_num == 0)
            flags += msgs[i].i32[0] == 1 ? '1' : '0';
    return flags;
}

// The module's descriptor is looked at by path: the module may close the
// number meanwhile.
bool link_is(Module &m, const atsim::Accessory &acc) {
    const int fd = m.load<int>("g_vuart_fd");
    if (!acc.plugged()) return fd == -1;
    struct stat ours, theirs;
    return fd >= 0 && stat(("/proc/self/fd/" + std::to_string(fd)).c_str(), &ours) == 0 &&
           fstat(acc.slave_fd(), &theirs) == 0 && ours.st_rdev == theirs.st_rdev;
}

// Holds now and still a second later; then, when plugged, a report from
// the accessory's tty reaches the client within a second.
void expect_truth(Module &m, atsim::Accessory &acc) {
    const char want = acc.plugged() ? '1' : '0';
    auto truth = [&] { return (' ' + usb_events()).back() == want && link_is(m, acc); };
    EXPECT_TRUE(atcmd_harness::wait_until(truth, 15000));
    std::this_thread::sleep_for(1s);
    ASSERT_TRUE(truth()) << "USB events " << usb_events() << ", g_vuart_fd "
                         << m.load<int>("g_vuart_fd") << ", plugged " << want;
    if (want == '0') return;
    CallbackSink::clear();
    acc.report_every(50ms, "+HRM=35,40\r\n");
    EXPECT_TRUE(m.wait_told("+HRM/0:35,40", 1s));
    acc.stop_reports();
}

// Until nothing was sent to the accessory for `quiet`: no plug is under way.
void wait_quiet(const atsim::Accessory &acc, std::chrono::milliseconds quiet) {
    for (size_t seen = SIZE_MAX; seen != acc.received().size();) {
        seen = acc.received().size();
        std::this_thread::sleep_for(quiet);
    }
}

// Pulled and put back (same name, a new tty) while the signal thread still
// sends the plug's queries. With a foreign node going at the same moment,
// the name last seen is the foreign one when the plug is taken.
TEST_F(Hotplug, ReplugWhileThePlugIsHandledEndsConnectedToTheNewTty) {
    // Unset first: the property store outlives a child.
    const struct { const char *mac; bool foreign; } rows[] = {{"", 0}, {kMac, 0}, {kMac, 1}};
    for (const auto &r : rows) {
        SCOPED_TRACE(::testing::Message() << "address '" << r.mac << "', foreign " << r.foreign);
        run(r.mac, [&](Module &m, atsim::Accessory &acc) {
            atsim::Accessory foreign(root.root(), transcript);
            ASSERT_TRUE(!r.foreign || foreign.plug_usb(1, "1d6b/0002/515"));
            auto type_query = [](const std::string &l) { return l == "AT+TYPE?#15&1\r\n"; };
            ASSERT_TRUE(acc.plug_usb(0));
            ASSERT_TRUE(acc.wait_for_line(type_query, 5s));
            acc.unplug();
            ASSERT_TRUE(acc.plug_usb(0));
            foreign.unplug();
            acc.clear_received();
            ASSERT_TRUE(acc.wait_for_line(type_query, 15s)) << "the new tty is opened";
            const size_t up = CallbackSink::messages().size();
            wait_quiet(acc, *r.mac ? 500ms : 2500ms);
            EXPECT_EQ(std::string::npos, usb_events(up).find('0'))
                << "unplug told after the new tty was up: " << usb_events();
            expect_truth(m, acc);
        });
    }
}

// 200 plug/unplug cycles, random gaps of 0 to 20 ms; ends once plugged
// and once unplugged.
TEST_F(Hotplug, RandomPlugCyclesEndWithTheTruth) {
    run(kMac, [&](Module &m, atsim::Accessory &acc) {
        const unsigned seed = std::random_device{}();
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 rng(seed);
        std::uniform_int_distribution<int> gap_ms(0, 20);
        for (int toggles : {199, 201}) {
            for (int i = 0; i < toggles; ++i) {
                ASSERT_TRUE(acc.plugged() ? (acc.unplug(), true) : acc.plug_usb(0));
                std::this_thread::sleep_for(std::chrono::milliseconds(gap_ms(rng)));
            }
            expect_truth(m, acc);
        }
    });
}

}  // namespace
