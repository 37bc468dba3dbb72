// Whole-module scenarios on a host that lets the module down: a log
// directory that cannot be made, a property store that can be neither read
// nor written, an ACM node without its uevent, a FIFO the daemon did not
// make. The module goes on as its code says, and nothing crashes.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <thread>

#include "fixtures/child_process.h"
#include "harness/census.h"
#include "harness/sysroot.h"
#include "harness/wait_until.h"
#include "scenarios/module.h"

namespace {

using namespace scenario;
using atcmd_harness::wait_until;

struct Faults : ::testing::Test {
    atcmd_harness::TempSysroot root;
    atsim::Transcript transcript;

    void run(const std::function<void(Module &)> &body) {
        EXPECT_CHILD_PASSES([&] {
            Module m(root.root(), kWaits);
            body(m);
            if (::testing::Test::HasFailure()) fprintf(stderr, "%s", transcript.dump().c_str());
        });
    }
};

int count_prefix(const Texts &told, const std::string &prefix) {
    return static_cast<int>(std::count_if(
        told.begin(), told.end(), [&](const std::string &t) { return t.rfind(prefix, 0) == 0; }));
}

// A global of the module, read as its own threads read it.
template <typename T>
T global(Module &m, const char *name) {
    return __atomic_load_n(m.sym<T>(name), __ATOMIC_RELAXED);
}

// The time-outs the client was told of, sorted.
Texts timeouts(Module &m) {
    Texts t = m.told();
    t.erase(std::remove_if(t.begin(), t.end(),
                           [](const std::string &s) { return s.rfind("+ERROR/", 0) != 0; }),
            t.end());
    std::sort(t.begin(), t.end());
    return t;
}

// Files where the log directory and the property store belong: neither can
// be made, even by root. The log goes to standard output only, every
// property reads empty and no write lands; a node without a uevent is
// passed over, and the accessory on the next node is served without the
// Bluetooth address it could not be told.
TEST_F(Faults, NoLogDirectoryNoPropertiesANodeWithoutUevent) {
    root.write_file("/sdcard/tavrinola", "");
    root.write_file("/dev/__properties__", "");
    run([&](Module &m) {
        const std::string errors = root.path("/stderr.txt");
        int fd = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        dup2(fd, STDERR_FILENO);
        ASSERT_NE(nullptr, m.open());
        std::stringstream text;
        text << std::ifstream(errors).rdbuf();
        EXPECT_NE(std::string::npos, text.str().find("create log file error!"));

        root.write_file("/dev/ttyACM0", "");
        std::this_thread::sleep_for(500ms);  // time for a wrong open to show
        EXPECT_EQ(0, count_prefix(m.told(), "+USBSTATE/"));
        EXPECT_EQ(ATCMD_MODE_NONE, m.status().mode);

        atsim::Accessory acc(root.root(), transcript);
        ASSERT_TRUE(acc.plug_usb(1));
        Texts burst = query_burst(1, "");
        burst.erase(burst.begin() + 2);  // "AT+BTMAC=": after 2 s of retries, not sent
        ASSERT_TRUE(acc.wait_for_count(burst.size(), 10s));
        EXPECT_TRUE(m.wait_told("+VER/11:'1.0.2'"));
        EXPECT_EQ(burst, acc.received());
        EXPECT_TRUE(m.wait_told("+USBSTATE/0:1,3"));
        EXPECT_EQ(ATCMD_MODE_USB, m.status().mode);

        EXPECT_EQ(0, m.device()->wifi_init("10.0.0.1"));
        EXPECT_EQ("", m.prop("vendor.hid_cmd"));
    });
}

// The daemon runs but its transmit FIFO is gone: the channel opens for
// receiving only, the query burst cannot leave and times out query by
// query, and the tear-down still ends both WiFi threads and closes what
// was opened.
TEST_F(Faults, WifiWithoutTheTransmitFifo) {
    run([&](Module &m) {
        m.set_prop("net.bluetooth.macaddr", "AA:BB:CC:DD:EE:FF");
        ASSERT_NE(nullptr, m.open());
        Daemon daemon(m, root.root(), transcript);
        std::this_thread::sleep_for(200ms);  // start-up done
        const int fds = atcmd_harness::open_fd_count(), threads = atcmd_harness::thread_count();
        ASSERT_EQ(0, unlink(root.path("/dev/fifo_tx").c_str()));
        static atcmdprocess_device_t *s_dev;
        s_dev = m.device();
        daemon.on_status([](const std::string &text) { s_dev->hiddemon_stchange(text.c_str()); });

        ASSERT_EQ(0, s_dev->wifi_init("192.168.1.7"));
        ASSERT_TRUE(m.wait_told("+WIFICON/0:1"));
        EXPECT_TRUE(wait_until([&] { return global<int>(m, "g_fifo_rx_fd") >= 1; }));
        EXPECT_EQ(-1, global<int>(m, "g_fifo_tx_fd"));
        EXPECT_EQ(ATCMD_MODE_WIFI, m.status().mode);
        // Each query of the burst that awaits an answer: all but the address
        // report and "+MICMODE?" (a row past the watched ones).
        Texts expected;
        for (int seq : {8, 9, 10, 11, 13, 14, 15, 16, 17})
            expected.push_back("+ERROR/" + std::to_string(seq) + ":-110");
        std::sort(expected.begin(), expected.end());
        EXPECT_TRUE(wait_until([&] { return timeouts(m) == expected; }, 10000));
        EXPECT_EQ(Texts{}, daemon.received());

        atcmd_test::CallbackSink::clear();
        std::thread teardown([] { s_dev->wifi_stchange(0); });
        bool ended =
            wait_until([&] { return global<pthread_t>(m, "g_wifiHBeat_thread") == 0; }, 10000);
        if (!ended) {
            ADD_FAILURE() << "the tear-down did not end the WiFi threads";
            _exit(1);  // the tear-down thread cannot be joined
        }
        teardown.join();
        EXPECT_TRUE(m.wait_told("+WIFICON/0:0"));
        EXPECT_EQ(0u, global<pthread_t>(m, "g_wifiRx_thread"));
        EXPECT_EQ(-1, global<int>(m, "g_fifo_rx_fd"));
        EXPECT_TRUE(wait_until([&] { return atcmd_harness::thread_count() == threads; }));
        EXPECT_EQ(fds, atcmd_harness::open_fd_count());
    });
}

}  // namespace
