#include "core/capture.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "core/device_state.h"
#include "core/log.h"
#include "core/pcapng_reader.h"
#include "fixtures/device.h"
#include "fixtures/log_capture.h"
#include "hal/device_ops.h"
#include "hal/wifi_control.h"
#include "harness/sysroot.h"
#include "link/acm_link.h"
#include "link/hiddemon.h"
#include "link/uart_link.h"
#include "link/wifi_link.h"

namespace {

using atcmd::CaptureDir;
using atcmd::CaptureIf;
using atcmd_test::PcapFile;
using atcmd_test::read_pcapng;

const std::vector<std::string> kFixedIfs = {"events", "uart ttyS4", "wifi fifo_rx", "wifi fifo_tx",
                                            "daemon fifo_cmd"};

uint64_t now_us() {
    timespec t;
    clock_gettime(CLOCK_REALTIME, &t);
    return static_cast<uint64_t>(t.tv_sec) * 1000000u + static_cast<uint64_t>(t.tv_nsec) / 1000u;
}

off_t size_of(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

struct Capture : ::testing::Test {
    atcmd_harness::TempSysroot root;
    std::string file;
    int in[2] = {-1, -1}, out[2] = {-1, -1};  // what links read, where they write
    void SetUp() override {
        log_level = 4;
        root.mkdirs("/sdcard");
        file = root.path("/sdcard/at.pcapng");
        ASSERT_EQ(0, pipe(in));
        ASSERT_EQ(0, pipe(out));
    }
    void TearDown() override {
        atcmd::capture_stop();
        for (int fd : {in[0], in[1], out[0], out[1]}) close(fd);
    }
    void feed(const std::string &s) { ASSERT_EQ(ssize_t(s.size()), write(in[1], s.data(), s.size())); }
};

// Every record point, in the order the module would hit them: each row is
// what it does and the one packet it must leave (none for a failed read).
TEST_F(Capture, EveryRecordPointLeavesItsBytesOnItsInterfaceWithItsDirection) {
    struct Row {
        std::function<void()> act;
        std::string iface;  // empty: nothing recorded
        uint32_t dir;
        std::string bytes;
    };
    atcmd_test::TestDevice dev;
    root.write_file("/dev/fifo_cmd", "");
    g_fifo_tx_fd = out[1];  // put back after the case by tests/main.cpp
    char buf[64];
    char sn[] = "AT+SN?#13&1\r\n";
    AtCmder_t rec{3, 2, 3, 1, 0, 13, 13, 0, 0, sn};
    AT_CMD_CbMsg_t msg{13, 13, nullptr};
    const std::string big(5000, 'x');
    const std::vector<Row> rows = {
        // One line read in two reads keeps its two boundaries.
        {[&] { feed("+OK#7&1\r\n"); UART_Recv(in[0], buf, 5, -1); }, "uart ttyS4", 1, "+OK#7"},
        {[&] { UART_Recv(in[0], buf, sizeof buf, -1); }, "uart ttyS4", 1, "&1\r\n"},
        {[&] { UART_Recv(in[0], buf, sizeof buf, 10); }, "", 0, ""},  // timed out
        {[&] { UART_Recv(-1, buf, sizeof buf, -1); }, "", 0, ""},    // failed
        {[&] { UART_Send(out[1], "AT+VER?#11&1\r\n", 14); }, "uart ttyS4", 2, "AT+VER?#11&1\r\n"},
        {[&] { atcmd::capture_acm_node(0); feed("+TYPE=KM5816W#15&1\r\n");
               VUART_Recv(in[0], buf, sizeof buf, -1); }, "acm ttyACM0", 1, "+TYPE=KM5816W#15&1\r\n"},
        {[&] { VUART_Send(out[1], "AT+BAT?#9&1\r\n", 13); }, "acm ttyACM0", 2, "AT+BAT?#9&1\r\n"},
        {[&] { atcmd::capture_acm_node(3); VUART_Send(out[1], "AT+SN?#13&1\r\n", 13); },
         "acm ttyACM3", 2, "AT+SN?#13&1\r\n"},
        {[&] { atcmd::capture_acm_node(0); VUART_Send(out[1], "AT+VER?#11&1\r\n", 14); },
         "acm ttyACM0", 2, "AT+VER?#11&1\r\n"},  // a known node keeps its interface
        {[&] { atcmd::wifi_send("AT+TIME#5&1\r\n", 13, atcmd::WifiTransmit::kRelay); },
         "wifi fifo_tx", 2, "AT+TIME#5&1\r\n"},
        {[&] { atcmd::capture_bytes(CaptureIf::kWifiRx, CaptureDir::kIn, "+OK#5&1\r\n", 9); },
         "wifi fifo_rx", 1, "+OK#5&1\r\n"},
        {[&] { stop_hiddemon(); }, "daemon fifo_cmd", 2, "exit"},
        {[&] { cmd_from_hidl(&rec); }, "events", 1, "client AT+SN?#13&1\r\n"},
        {[&] { atcmdprocess_hiddemon_stchange("heartbeat:3"); }, "events", 1, "daemon heartbeat:3"},
        {[&] { atcmdprocess_wifi_stchange(1); }, "events", 1, "wifi_stchange 1"},
        {[&] { atcmdprocess_amlogic_shake_hands(); }, "events", 1, "shake_hands"},
        {[&] { atcmd::notify_client(&msg); }, "events", 2, "message 13/13"},
        {[&] { atcmd::capture_bytes(CaptureIf::kUart, CaptureDir::kIn, big.data(), 5000); },
         "uart ttyS4", 1, big.substr(0, atcmd::kCaptureSnap)},
    };

    // Off: the same calls leave no file.
    for (const Row &r : rows) r.act();
    EXPECT_EQ(-1, size_of(file));
    while (UART_Recv(in[0], buf, sizeof buf, 0) > 0) {}

    const uint64_t before = now_us();
    ASSERT_TRUE(atcmd::capture_start(file.c_str()));
    for (const Row &r : rows) r.act();
    const uint64_t after = now_us();
    atcmd::capture_stop();
    const off_t stopped = size_of(file);
    rows[4].act();
    EXPECT_EQ(stopped, size_of(file)) << "nothing after the stop";

    PcapFile f = read_pcapng(file);
    ASSERT_EQ("", f.error);
    ASSERT_EQ(1u, f.sections.size());
    std::vector<std::string> ifs = kFixedIfs;
    ifs.insert(ifs.end(), {"acm ttyACM0", "acm ttyACM3"});
    EXPECT_EQ(ifs, f.sections[0].interfaces);
    std::vector<atcmd_test::PcapPacket> got = f.sections[0].packets;
    size_t i = 0;
    uint64_t last = before;
    for (const Row &r : rows) {
        if (r.iface.empty()) continue;
        ASSERT_LT(i, got.size()) << "no packet for " << r.bytes;
        EXPECT_EQ(r.iface, got[i].iface) << r.bytes;
        EXPECT_EQ(r.dir, got[i].flags & 3u) << r.bytes;
        EXPECT_EQ(r.bytes, got[i].bytes);
        EXPECT_EQ(r.bytes == big.substr(0, atcmd::kCaptureSnap) ? 5000u : r.bytes.size(),
                  got[i].orig_len);
        EXPECT_LE(last, got[i].ts_us) << "time stamps in order, within the run";
        last = got[i].ts_us;
        ++i;
    }
    EXPECT_EQ(i, got.size());
    EXPECT_LE(last, after);

    // A restart appends a section of its own; its ACM ids start afresh.
    ASSERT_TRUE(atcmd::capture_start(file.c_str()));
    rows[6].act();
    f = read_pcapng(file);
    ASSERT_EQ("", f.error);
    ASSERT_EQ(2u, f.sections.size());
    ASSERT_EQ(1u, f.sections[1].packets.size());
    EXPECT_EQ("acm ttyACM0", f.sections[1].packets[0].iface);
}

// Threads record at once into a file that rolls over many times: every
// block whole, each file within the limit with its own headers, the older
// one filled before it was set aside, each thread's packets in its order.
TEST_F(Capture, TheFileRollsOverToTwoFilesUnderTheLimitWithoutTearingBlocks) {
    constexpr uint64_t kLimit = 4096;
    constexpr int kThreads = 4, kEach = 100;
    constexpr size_t kPacketBlock = 28 + 100 + 8 + 8;  // an EPB of 100 bytes
    ASSERT_TRUE(atcmd::capture_start(file.c_str(), kLimit));
    atcmd::capture_acm_node(2);
    atcmd::capture_bytes(CaptureIf::kAcm, CaptureDir::kIn, "+OK\r\n", 5);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            for (int k = 0; k < kEach; ++k) {
                char text[101];
                snprintf(text, sizeof text, "%-100s", ("t" + std::to_string(t) + " k" + std::to_string(k)).c_str());
                atcmd::capture_bytes(CaptureIf::kUart, CaptureDir::kOut, text, 100);
            }
        });
    for (std::thread &t : threads) t.join();

    std::vector<int> next(kThreads, -1);
    size_t total = 0;
    for (const std::string &path : {file + ".1", file}) {
        PcapFile f = read_pcapng(path);
        ASSERT_EQ("", f.error) << path;
        EXPECT_LE(f.size, kLimit) << path;
        ASSERT_EQ(1u, f.sections.size()) << path;
        std::vector<std::string> ifs = kFixedIfs;
        ifs.push_back("acm ttyACM2");
        EXPECT_EQ(ifs, f.sections[0].interfaces) << "every file names every interface";
        for (const atcmd_test::PcapPacket &p : f.sections[0].packets) {
            int t = -1, k = -1;
            ASSERT_EQ(2, sscanf(p.bytes.c_str(), "t%d k%d", &t, &k)) << p.bytes;
            ASSERT_TRUE(t >= 0 && t < kThreads);
            char text[101];
            snprintf(text, sizeof text, "%-100s", ("t" + std::to_string(t) + " k" + std::to_string(k)).c_str());
            EXPECT_EQ(text, p.bytes);
            EXPECT_LT(next[t], k) << "thread " << t << " out of order";
            next[t] = k;
            ++total;
        }
    }
    EXPECT_GT(uint64_t(size_of(file + ".1")) + kPacketBlock, kLimit) << "rolled over only when full";
    EXPECT_GT(total, kLimit / kPacketBlock / 2);
    EXPECT_LT(total, size_t(kThreads * kEach));
}

// A path that cannot be written: one line says so, the capture stays off,
// the record points write nothing anywhere.
TEST_F(Capture, AnUnwritablePathGivesOneLineAndNoCapture) {
    const std::string bad = root.path("/sdcard/missing/dir/at.pcapng");
    bool started = true;
    const std::string log = atcmd_test::stdout_of([&] {
        started = atcmd::capture_start(bad.c_str());
        UART_Send(out[1], "AT+VER?#11&1\r\n", 14);
    });
    EXPECT_FALSE(started);
    EXPECT_FALSE(atcmd::capture_on());
    const std::string line = "packet capture to " + bad + " not started: cannot open it: No such file or directory";
    EXPECT_NE(std::string::npos, log.find(line)) << log;
    EXPECT_EQ(log.find("packet capture"), log.rfind("packet capture")) << "one line: " << log;
    EXPECT_EQ(-1, size_of(bad));
}

}  // namespace
