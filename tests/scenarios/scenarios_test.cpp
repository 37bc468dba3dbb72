// Whole-module scenarios: only what a client has (the library, its public
// header, the device object and its callback) against the simulated
// accessory and HID daemon. Each runs in a child process of its own, since
// the service's threads live as long as the process and close ends it.
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <thread>

#include "core/pcapng_reader.h"
#include "fixtures/child_process.h"
#include "harness/census.h"
#include "harness/sysroot.h"
#include "harness/wait_until.h"
#include "scenarios/module.h"

namespace {

using namespace scenario;
using atcmd_harness::wait_until;

constexpr const char *kMac = "AA:BB:CC:DD:EE:FF";

struct Scenario : ::testing::Test {
    atcmd_harness::TempSysroot root;
    atsim::Transcript transcript;

    // Runs body in a child with the module loaded; the transcript is shown
    // when the child fails.
    void run(const std::function<void(Module &)> &body, int timeout_ms = 60000) {
        int status = atcmd_test::run_in_child(
            [&] {
                Module m(root.root(), kWaits);
                m.set_prop("net.bluetooth.macaddr", kMac);
                body(m);
                if (::testing::Test::HasFailure()) fprintf(stderr, "%s", transcript.dump().c_str());
            },
            timeout_ms);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child wait status " << status;
    }
};

int count_of(const Texts &lines, const std::string &line) {
    return static_cast<int>(std::count(lines.begin(), lines.end(), line));
}

// Each line once, in the order first seen. A query still unanswered when the
// clock's second changes is sent again at once (the reply-time rule), so a
// burst is compared without its repeats.
Texts first_sightings(const Texts &lines) {
    Texts out;
    for (const std::string &l : lines)
        if (count_of(out, l) == 0) out.push_back(l);
    return out;
}

bool wait_for_burst(const atsim::Accessory &acc, const Texts &burst) {
    return wait_until([&] { return first_sightings(acc.received()).size() >= burst.size(); });
}

// Plug-in: identity check, the virtual UART, mode 0, the query burst, the
// USB event, and the answers in the client and the accessory record.
TEST_F(Scenario, PlugInOpensTheLinkAsksTheAccessoryAndTellsTheClient) {
    run([&](Module &m) {
        ASSERT_NE(nullptr, m.open());
        const system_status_t &st = m.status();
        EXPECT_EQ((std::vector<int>{1, -1, -1, 1, -1, -1}),
                  (std::vector<int>{st.platform, st.mode, st.wifi_status, st.state,
                                    st.usbdev_sts.usb_devinfo, st.usbdev_sts.usb_connected}));
        EXPECT_EQ(0, access((root.root() + "/sdcard/tavrinola/.log/atcmdprocess").c_str(), F_OK));
        atsim::Accessory acc(root.root(), transcript);
        ASSERT_TRUE(acc.plug_usb(0));
        ASSERT_TRUE(wait_for_burst(acc, query_burst(1, kMac)));
        EXPECT_EQ(query_burst(1, kMac), first_sightings(acc.received()));
        // The plug event and the accessory's own "+USBSTATE" answer both say 1,3
        // once the answer has been parsed.
        EXPECT_TRUE(m.wait_told("+USBSTATE/0:1,3"));
        EXPECT_TRUE(m.wait_told("+VER/11:'1.0.2'"));
        Texts told = m.told();
        EXPECT_EQ(1, count_of(told, "+TYPE/15:'KM5816W'"));
        EXPECT_EQ(1, count_of(told, "+SN/13:'KV5816A00123'"));
        EXPECT_EQ(ATCMD_MODE_USB, m.status().mode);
        const auto *info = m.sym<kavren_devInfo_t>("g_kavren_devInfo");
        EXPECT_STREQ("KV5816A00123", info->sn);
        EXPECT_STREQ("SID-0001", info->sid);
        EXPECT_EQ(1, info->model);
        EXPECT_STREQ("V20231105_user", info->ver_item3);
    });
}

// persist.vendor.atcmd.capture=1: the open records into the file beside its
// log the plug, each query as written to the node, and the accessory's bytes
// on the node's own interface, one packet per read. The session also holds
// a query left unanswered, a line of an unknown name and an over-long one,
// for the dissector's check (tests/wireshark/), which keeps the file through
// ATCMD_KEEP_CAPTURE.
TEST_F(Scenario, TheCapturePropertyRecordsTheNodesBytesWithTheirReadBoundaries) {
    const char *keep = getenv("ATCMD_KEEP_CAPTURE");
    const std::string capture = root.path("/sdcard/tavrinola/.log/atcmdprocess.pcapng");
    run([&](Module &m) {
        m.set_prop("persist.vendor.atcmd.capture", "1");
        ASSERT_NE(nullptr, m.open());
        atsim::Accessory acc(root.root(), transcript);
        acc.silence("+SID");
        ASSERT_TRUE(acc.plug_usb(0));
        ASSERT_TRUE(m.wait_told("+VER/11:'1.0.2'"));
        ASSERT_TRUE(m.wait_told("+ERROR/14:-110"));
        atcmd_test::PcapFile f;
        Texts reads, writes, events;
        auto read_back = [&] {
            f = atcmd_test::read_pcapng(capture);
            reads.clear(), writes.clear(), events.clear();
            for (const auto &s : f.sections)
                for (const auto &p : s.packets)
                    (p.iface == "events" ? events : (p.flags & 3) == 1 ? reads : writes).push_back(p.bytes);
        };
        ASSERT_TRUE(acc.send("+NOPE=1\r\n") && acc.send_overlong(170));
        // Read before the next line starts, so that its reads stand alone.
        ASSERT_TRUE(wait_until([&] {
            read_back();
            return !reads.empty() && reads.back().find("+DTR=") != std::string::npos;
        }));
        const Texts chunks = {"+SN=KV58", "16A00999", "#13&1\r\n"};
        ASSERT_TRUE(acc.send_split(chunks[0] + chunks[1] + chunks[2], 8, 100ms));
        const bool arrived = wait_until([&] {
            read_back();
            return reads.size() >= 3 && Texts(reads.end() - 3, reads.end()) == chunks;
        });
        ASSERT_EQ("", f.error);
        EXPECT_TRUE(arrived) << "the reads: " << ::testing::PrintToString(reads);
        ASSERT_EQ(1u, f.sections.size());
        EXPECT_EQ("acm ttyACM0", f.sections[0].interfaces.at(5));
        EXPECT_EQ(query_burst(1, kMac), first_sightings(writes));
        std::string read_text;
        for (const std::string &r : reads) read_text += r;
        EXPECT_NE(std::string::npos, read_text.find("+TYPE=KM5816W#15&1\r\n")) << read_text;
        EXPECT_EQ("plug ttyACM0", events.at(0));
        EXPECT_EQ(1, count_of(events, "message 15/15"));
        if (keep != nullptr) std::filesystem::copy_file(capture, keep);
    });
}

// With two ACM nodes present at start the scan announces both and the last
// one read wins, a race the module accepts; so the foreign node comes later.
TEST_F(Scenario, ANodePresentAtStartIsFoundAForeignOneIgnored) {
    run([&](Module &m) {
        atsim::Accessory acc(root.root(), transcript);
        ASSERT_TRUE(acc.plug_usb(0));
        ASSERT_NE(nullptr, m.open());
        ASSERT_TRUE(wait_for_burst(acc, query_burst(1, kMac)));
        EXPECT_TRUE(m.wait_told("+USBSTATE/0:1,3"));
        atsim::Accessory foreign(root.root(), transcript);
        ASSERT_TRUE(foreign.plug_usb(1, "1d6b/0002/515"));
        std::this_thread::sleep_for(500ms);  // time for a wrong open to show
        EXPECT_EQ(Texts{}, foreign.received());
        EXPECT_EQ(query_burst(1, kMac), first_sightings(acc.received()));
        EXPECT_EQ(ATCMD_MODE_USB, m.status().mode);
    });
}

// Sent, resent twice, then reported; the answered ones are retired.
TEST_F(Scenario, AnUnansweredQueryIsSentThreeTimesThenReportedOnce) {
    run([&](Module &m) {
        ASSERT_NE(nullptr, m.open());
        atsim::Accessory acc(root.root(), transcript);
        acc.silence("+SN");
        ASSERT_TRUE(acc.plug_usb(0));
        ASSERT_TRUE(m.wait_told("+ERROR/13:-110", 10s));
        std::this_thread::sleep_for(1s);  // nothing else may time out meanwhile
        EXPECT_EQ(3, count_of(acc.received(), "AT+SN?#13&1\r\n"));
        EXPECT_EQ(1, count_of(acc.received(), "AT+SID?#14&1\r\n"));
        Texts told = m.told();
        EXPECT_EQ(1, std::count_if(told.begin(), told.end(),
                                   [](const std::string &t) { return t.rfind("+ERROR/", 0) == 0; }));
    });
}

// Pulled while reports flow: the USB event, mode back to none (or WiFi
// when WiFi is up), nothing left behind, and a second plug works.
TEST_F(Scenario, UnplugWhileLinesFlowThenPlugAgain) {
    run([&](Module &m) {
        ASSERT_NE(nullptr, m.open());
        atsim::Accessory acc(root.root(), transcript);
        std::this_thread::sleep_for(200ms);  // start-up done
        const int fds = atcmd_harness::open_fd_count(), threads = atcmd_harness::thread_count();
        ASSERT_TRUE(acc.plug_usb(0));
        ASSERT_TRUE(m.wait_told("+USBSTATE/0:1,3"));
        acc.report_every(20ms, "+HRM=35,40\r\n");
        ASSERT_TRUE(m.wait_told("+HRM/0:35,40"));
        acc.unplug();
        EXPECT_TRUE(m.wait_told("+USBSTATE/0:0,-1"));
        EXPECT_TRUE(wait_until([&] { return m.status().mode == ATCMD_MODE_NONE; }));
        EXPECT_TRUE(wait_until([&] { return atcmd_harness::thread_count() == threads; }))
            << atcmd_harness::thread_count() << " threads, " << threads << " before the plug";
        EXPECT_TRUE(wait_until([&] { return atcmd_harness::open_fd_count() == fds; }))
            << atcmd_harness::open_fd_count() << " descriptors, " << fds << " before the plug";

        atcmd_test::CallbackSink::clear();
        ASSERT_EQ(0, m.device()->wifi_init("10.0.0.1"));  // WiFi requested: unplug falls back to it
        ASSERT_TRUE(acc.plug_usb(0));
        EXPECT_TRUE(m.wait_told("+USBSTATE/0:1,3"));
        EXPECT_EQ(ATCMD_MODE_USB, m.status().mode);
        acc.unplug();
        EXPECT_TRUE(m.wait_told("+USBSTATE/0:0,-1"));
        EXPECT_TRUE(wait_until([&] { return m.status().mode == ATCMD_MODE_WIFI; }));
    });
}

// The WiFi link end to end on platform 1: start, "running", frames both
// ways, heartbeats, a lost heartbeat and the daemon's restart, tear-down.
TEST_F(Scenario, WifiLinkComesUpCarriesFramesSurvivesALostHeartbeatAndGoesDown) {
    run([&](Module &m) {
        ASSERT_NE(nullptr, m.open());
        Daemon daemon(m, root.root(), transcript);
        atcmdprocess_device_t *dev = m.device();
        static atcmdprocess_device_t *s_dev;
        s_dev = dev;
        daemon.on_status([](const std::string &text) { s_dev->hiddemon_stchange(text.c_str()); });
        ASSERT_EQ(0, dev->wifi_init("192.168.1.7"));
        ASSERT_TRUE(m.wait_told("+WIFICON/0:1")) << "the daemon's running reached the client";
        ASSERT_TRUE(daemon.wait_for_line([](const std::string &l) { return l == "AT+VER?#11&1\r\n"; },
                                         5s))
            << "the query burst goes out over WiFi";
        EXPECT_EQ(ATCMD_MODE_WIFI, m.status().mode);
        // Set once the queries are queued, which the transmit thread may beat.
        EXPECT_TRUE(wait_until([&] { return m.prop("vendor.kavren.timesync") == "enable"; }));
        daemon.send_to_module("+SN=WIFI-SN#13&1\r\n");
        EXPECT_TRUE(m.wait_told("+SN/13:'WIFI-SN'"));

        // Beats through two whole heartbeat periods keep the link; one silent
        // period restarts the daemon, noticed at the latest one check later.
        const uint64_t beats = 2 * kWaits.heartbeat_period / kDaemonBeat + 1;
        EXPECT_TRUE(wait_until([&] { return m.load<uint64_t>("g_wifiHBeat_num") >= beats; },
                               ms(beats * kDaemonBeat + kSlack)));
        EXPECT_EQ(0, daemon.exit_requests());
        daemon.pause_heartbeats(true);
        EXPECT_TRUE(wait_until([&] { return daemon.exit_requests() >= 1; },
                               ms(2 * kWaits.heartbeat_period + kSlack)));
        daemon.clear_received();
        daemon.pause_heartbeats(false);
        EXPECT_TRUE(
            wait_until([&] { return daemon.running(); }, ms(kWaits.daemon_exit_ack + kSlack)));
        // The signal thread takes the new "running" up on its own time; its
        // query burst shows it has, before the tear-down below.
        EXPECT_TRUE(daemon.wait_for_line([](const std::string &l) { return l == "AT+VER?#11&1\r\n"; },
                                         5s));

        atcmd_test::CallbackSink::clear();
        EXPECT_EQ(0, dev->wifi_stchange(1));
        EXPECT_EQ(ATCMD_MODE_WIFI, m.status().mode) << "only state 0 tears down";
        EXPECT_EQ(0, dev->wifi_stchange(0));
        EXPECT_TRUE(m.wait_told("+WIFICON/0:0"));
        EXPECT_EQ(ATCMD_MODE_NONE, m.status().mode);
        EXPECT_EQ("disable", m.prop("vendor.kavren.timesync"));
        EXPECT_EQ(0, m.status().wifi_status);
        EXPECT_EQ(0u, *m.sym<pthread_t>("g_wifiHBeat_thread"));
        EXPECT_EQ(-1, *m.sym<int>("g_fifo_rx_fd"));
        std::this_thread::sleep_for(300ms);  // the daemon polls its command every 20 ms
        EXPECT_FALSE(daemon.running()) << "after an exit it waits for a new start command";
    }, 90000);
}

// The daemon's "running" arrives while the signal thread is busy (a
// hand-shake whose address report waits 2 s for the Bluetooth address), and
// the client stops WiFi before the signal thread gets to it.
TEST_F(Scenario, ARunningHandledAfterTheStopLeavesTheLinkDown) {
    run([&](Module &m) {
        m.set_prop("net.bluetooth.macaddr", "");
        atcmdprocess_device_t *dev = m.open();
        ASSERT_NE(nullptr, dev);
        Daemon daemon(m, root.root(), transcript);
        ASSERT_EQ(0, dev->wifi_init("192.168.1.7"));
        ASSERT_EQ(0, dev->amlogic_shake_hands());
        std::this_thread::sleep_for(100ms);
        ASSERT_EQ(0, dev->hiddemon_stchange("hid running"));
        ASSERT_EQ(0, dev->wifi_stchange(0));
        std::this_thread::sleep_for(3s);  // the signal thread has handled it by now
        EXPECT_NE(ATCMD_MODE_WIFI, m.status().mode);
        EXPECT_EQ(-1, m.load<int>("g_fifo_rx_fd"));
        EXPECT_EQ(0u, m.load<pthread_t>("g_wifiRx_thread"));
        EXPECT_EQ(0u, m.load<pthread_t>("g_wifiHBeat_thread"));
        EXPECT_EQ("disable", m.prop("vendor.kavren.timesync"));
    });
}

// Platform 2 bridges the WiFi peer and the MCU on the UART while casting over
// WiFi; the hand-shake sends the version report and the queries.
TEST_F(Scenario, Platform2RelaysBetweenPeerAndMcuAndShakesHands) {
    run([&](Module &m) {
        m.set_prop("ro.tavrinola.version", "V1.2");
        ASSERT_NE(nullptr, m.open());
        atsim::Accessory acc(root.root(), transcript);
        acc.set_value("+USBSTATE", "0,0");  // on the UART, not connected over USB
        ASSERT_TRUE(acc.plug_uart());
        // The UART is the client's to open on a device switched to platform 2.
        m.set_platform(ATCMD_PLATFORM_UART);
        ASSERT_EQ(0, m.sym<int(int *)>("UART_init")(m.sym<int>("g_uart_fd")));
        pthread_t uart_rx;
        ASSERT_EQ(0, pthread_create(&uart_rx, nullptr, m.sym<void *(void *)>("atcmder_uartRx_thread"),
                                    nullptr));

        ASSERT_EQ(0, m.device()->amlogic_shake_hands());
        EXPECT_TRUE(acc.wait_for_line([](const std::string &l) { return l == "AT+USBSTATE?#16&2\r\n"; },
                                      5s));
        Texts expected = {"+VER=WIFI:V1.2\r\n"};
        for (const std::string &q : query_burst(2, kMac)) expected.push_back(q);
        expected.push_back("AT+USBSTATE?#16&2\r\n");
        EXPECT_EQ(expected, acc.received());

        Daemon daemon(m, root.root(), transcript);
        static atcmdprocess_device_t *s_dev;
        s_dev = m.device();
        daemon.on_status([](const std::string &text) { s_dev->hiddemon_stchange(text.c_str()); });
        acc.clear_received();
        ASSERT_EQ(0, m.device()->wifi_init("192.168.1.7"));
        EXPECT_EQ("192.168.1.7", m.prop("vendor.hid_sts"));
        ASSERT_TRUE(wait_until([&] { return m.status().mode == ATCMD_MODE_WIFI; }));
        daemon.clear_received();
        daemon.send_to_module("AT+SCREEN?#17&1\r\n");  // the peer asks the MCU
        EXPECT_TRUE(acc.wait_for_line([](const std::string &l) { return l == "AT+SCREEN?#17&1\r\n"; },
                                      5s));
        EXPECT_TRUE(daemon.wait_for_line([](const std::string &l) { return l == "+SCREEN=1#17&1\r\n"; },
                                         5s))
            << "and the MCU's answer goes back to the peer";
        EXPECT_EQ(Texts{"AT+SCREEN?#17&1\r\n"}, acc.received()) << "platform 2 asks nothing itself";
    });
}

// "+SHUTDOWN" powers the phone off; close then ends the whole process with
// SIGKILL, which the parent sees as signal 9 and never as another.
TEST_F(Scenario, ShutdownFromTheAccessoryAndCloseEndTheProcess) {
    int status = atcmd_test::run_in_child([&] {
        Module m(root.root(), kWaits);
        m.set_prop("net.bluetooth.macaddr", kMac);
        atcmdprocess_device_t *dev = m.open();
        atsim::Accessory acc(root.root(), transcript);
        if (dev == nullptr || !acc.plug_usb(0) || !m.wait_told("+USBSTATE/0:1,3")) _exit(2);
        acc.send("+SHUTDOWN\r\n");
        if (!wait_until([&] { return m.prop("sys.powerctl") == "shutdown"; })) _exit(3);
        if (!m.wait_told("+SHUTDOWN/0:-")) _exit(4);
        dev->common.close(&dev->common);
        _exit(5);
    });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "child wait status " << status;
}

// Garbage, over-long lines and split lines around well-formed reports: each
// report reaches the client exactly once, in order.
TEST_F(Scenario, NoiseDoesNotCostAWellFormedLine) {
    run([&](Module &m) {
        ASSERT_NE(nullptr, m.open());
        atsim::Accessory acc(root.root(), transcript);
        ASSERT_TRUE(acc.plug_usb(0));
        ASSERT_TRUE(m.wait_told("+USBSTATE/0:1,3"));
        atcmd_test::CallbackSink::clear();
        for (int i = 1; i <= 5; ++i) {
            const std::string n = std::to_string(i);
            acc.send_garbage(40);
            acc.send("+HRM=" + n + "," + n + "\r\n");
            acc.send_overlong(200);
            acc.send_split("+HALLCG=" + n + ",0,0\r\n", 4);
            std::this_thread::sleep_for(20ms);  // the accessory's own pace
        }
        ASSERT_TRUE(m.wait_told("+HALLCG/0:5,0,0"));
        Texts expected;
        for (int i = 1; i <= 5; ++i) {
            const std::string n = std::to_string(i);
            expected.push_back("+HRM/0:" + n + "," + n);
            expected.push_back("+HALLCG/0:" + n + ",0,0");
        }
        Texts reports = m.told();  // the query burst's answers may still come in
        reports.erase(std::remove_if(reports.begin(), reports.end(),
                                     [](const std::string &t) {
                                         return t.rfind("+HRM/", 0) != 0 && t.rfind("+HALLCG/", 0) != 0;
                                     }),
                      reports.end());
        EXPECT_EQ(expected, reports);
    });
}

TEST_F(Scenario, IdleWithNothingPluggedCostsNextToNoCpu) {
    run([&](Module &m) {
        ASSERT_NE(nullptr, m.open());
        std::this_thread::sleep_for(200ms);  // start-up done
        rusage before, after;
        getrusage(RUSAGE_SELF, &before);
        std::this_thread::sleep_for(5s);
        getrusage(RUSAGE_SELF, &after);
        auto usec = [](const rusage &r) {
            return (r.ru_utime.tv_sec + r.ru_stime.tv_sec) * 1000000L + r.ru_utime.tv_usec +
                   r.ru_stime.tv_usec;
        };
        EXPECT_LT(usec(after) - usec(before), 250000) << "CPU microseconds in 5 s";
    });
}

// A second open hands out a second device, and the service follows it.
TEST_F(Scenario, ASecondOpenServesTheNewDevice) {
    run([&](Module &m) {
        atcmdprocess_device_t *first = m.open();
        atcmdprocess_device_t *second = m.open();
        ASSERT_NE(nullptr, second);
        EXPECT_NE(first, second);
        EXPECT_EQ(second, *m.sym<atcmdprocess_device_t *>("g_patcmd_dev"));
        atsim::Accessory acc(root.root(), transcript);
        acc.silence("+USBSTATE");  // the mode then comes from the plug alone
        ASSERT_TRUE(acc.plug_usb(0));
        EXPECT_TRUE(wait_until([&] { return Module::status_of(second).mode == ATCMD_MODE_USB; }));
        EXPECT_EQ(ATCMD_MODE_NONE, Module::status_of(first).mode);
    });
}

}  // namespace
