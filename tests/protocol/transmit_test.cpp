#include "protocol/transmit.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <string>

#include "core/queue.h"
#include "core/threads.h"
#include "fixtures/child_process.h"
#include "fixtures/device.h"
#include "fixtures/log_capture.h"
#include "fixtures/queue_probe.h"
#include "harness/sysroot.h"
#include "link/acm_link.h"
#include "link/serial_port.h"
#include "link/uart_link.h"
#include "link/wifi_link.h"
#include "sim/accessory.h"

namespace {

AtCmder_t record(uint8_t type, uint16_t seq, uint8_t flag, uint8_t cmd_id, const char *text,
                 uint8_t dest = ATCMD_EP_MCU) {
    return {type, ATCMD_EP_CLIENT, dest, flag, 0, cmd_id, seq, 0, 0, const_cast<char *>(text)};
}

TEST(AwaitsReply, CommandsOfThisLinkWithASequenceNumberInTheFirst19Rows) {
    const struct { uint8_t type; uint16_t seq; uint8_t flag, cmd_id; int32_t platform; bool waits; } rows[] = {
        {3, 11, 1, 11, 1, true},  {1, 3, 2, 0, 2, true},   {2, 5, 2, 18, 2, true},
        {3, 11, 1, 19, 1, false}, {4, 11, 1, 11, 1, false}, {0, 11, 1, 11, 1, false},
        {3, 0, 1, 11, 1, false},  {3, 11, 2, 11, 1, false}};
    for (const auto &r : rows)
        EXPECT_EQ(r.waits, atcmd::awaits_reply(record(r.type, r.seq, r.flag, r.cmd_id, "x"), r.platform))
            << +r.type << " seq " << r.seq << " flag " << +r.flag << " cmd " << +r.cmd_id;
}

enum Link { kNone, kUart, kVuart, kFifo, kFifoRefuses };

struct Links : ::testing::Test {
    atcmd_test::TestDevice dev;
    atcmd_harness::TempSysroot root;
    atsim::Transcript transcript;
    atsim::Accessory uart{root.root(), transcript}, vuart{root.root(), transcript};
    int fifo[2] = {-1, -1};  // a pipe stands in for the WiFi FIFO; its read end refuses writes
    void SetUp() override {
        ASSERT_TRUE(uart.plug_uart() && vuart.plug_usb(0));
        ASSERT_EQ(0, pipe2(fifo, O_NONBLOCK));
    }
    void TearDown() override { close(fifo[0]), close(fifo[1]); }
    std::string fifo_output() {  // a pipe write is complete when write returns
        char buf[256];
        ssize_t n = read(fifo[0], buf, sizeof buf);
        return n > 0 ? std::string(buf, static_cast<size_t>(n)) : "";
    }
};

TEST_F(Links, EachPlatformModeAndDestPicksOneLink) {
    // fault: this link is closed, or the FIFO refuses writes. One log check per message family.
    const struct { int32_t platform, mode; uint8_t dest; Link fault; int result; Link written;
                   const char *log; } rows[] = {
        {1, -1, 3, kNone, 0, kVuart, "Vuart successfully send cmd len is 14, data is AT+VER?#11&1"},
        {1, 0, 1, kNone, 0, kVuart, ""},
        {1, 1, 3, kNone, 0, kFifo, "wifi fifotx successfully send data AT+VER?"},
        {2, 1, 1, kNone, 0, kFifo, ""},
        {2, 1, 3, kNone, 0, kUart, "uart successfully send cmd data len 14"},
        {2, 0, 1, kNone, 0, kUart, ""},
        {3, 1, 1, kNone, 0, kNone, ""},
        {1, 0, 3, kVuart, ATCMD_TX_VUART_CLOSED, kNone, "Vuart is not open"},
        {1, 1, 3, kFifo, ATCMD_TX_FIFO_CLOSED, kNone, "wifi fifo is not opened!"},
        {2, 1, 1, kFifo, ATCMD_TX_FIFO_CLOSED, kNone, ""},
        {2, 0, 3, kUart, ATCMD_TX_UART_CLOSED, kNone, "uart is not open"},
        {1, 1, 3, kFifoRefuses, ATCMD_TX_FIFO_WRITE_FAILED, kNone, "fifotx fail to send data AT+VER?"},
        {2, 1, 1, kFifoRefuses, ATCMD_TX_FIFO_WRITE_FAILED, kNone, "fifotx fails to write data AT+VER?"}};
    const std::string frame = "AT+VER?#11&1\r\n";
    for (const auto &r : rows) {
        SCOPED_TRACE(testing::Message() << "platform " << r.platform << " mode " << r.mode
                                        << " dest " << +r.dest << " fault " << r.fault);
        dev.status().platform = r.platform;
        dev.status().mode = r.mode;
        g_uart_fd = r.fault == kUart ? -1 : uart.slave_fd();
        g_vuart_fd = r.fault == kVuart ? -1 : vuart.slave_fd();
        g_fifo_tx_fd = r.fault == kFifo ? -1 : r.fault == kFifoRefuses ? fifo[0] : fifo[1];
        AtCmder_t cmd = record(3, 11, 1, 11, frame.c_str(), r.dest);
        std::string out = atcmd_test::stdout_of([&] { EXPECT_EQ(r.result, atcmder_Tx_process(&cmd)); });
        EXPECT_THAT(out, ::testing::HasSubstr(r.log));
        EXPECT_EQ(r.written == kUart ? frame : "", uart.take_output());
        EXPECT_EQ(r.written == kVuart ? frame : "", vuart.take_output());
        EXPECT_EQ(r.written == kFifo ? frame : "", fifo_output());
    }
    atcmd::install_device(nullptr);  // no device: nothing to route by, nothing sent
    AtCmder_t cmd = record(3, 11, 1, 11, frame.c_str());
    EXPECT_EQ(0, atcmder_Tx_process(&cmd));
    EXPECT_EQ("", vuart.take_output());
}

// Signals under the consumer's lock, so the thread cannot miss the wake-up.
void queue_tx(AtCmder_t rec) {
    ASSERT_EQ(ATCMD_Q_OK, atcmder_enqueue(&Tx_head, &g_txqueue_mutex, &rec));
    pthread_mutex_lock(&txbuffer_Mutex);
    pthread_cond_signal(&txbuffer_notempty);
    pthread_mutex_unlock(&txbuffer_Mutex);
}

int64_t now_usec() {
    timeval tv;
    gettimeofday(&tv, nullptr);
    return tv.tv_sec * 1000000LL + tv.tv_usec;
}

// The transmit thread never ends, so it runs in a child process.
TEST_F(Links, ThreadSendsInOrderAndStampsWhatAwaitsAReply) {
    uart.unplug();  // their threads would keep ThreadSanitizer out of the child
    vuart.unplug();
    EXPECT_CHILD_PASSES([this] {
        atsim::Accessory acc(root.root(), transcript);  // threads do not cross fork
        ASSERT_TRUE(acc.plug_usb(1));
        g_vuart_fd = dup(acc.slave_fd());  // acc closes its own at the end, under the thread
        int64_t before = now_usec();
        ASSERT_EQ(0, pthread_create(&g_Tx_thread, nullptr, atcmder_Tx_thread, nullptr));
        queue_tx(record(3, 11, 1, 11, "AT+VER?#11&1\r\n"));
        queue_tx(record(4, 0, 1, 7, "+STATE=1#0&1\r\n"));
        ASSERT_TRUE(acc.wait_for_count(2, std::chrono::seconds(5)));
        EXPECT_EQ((std::vector<std::string>{"AT+VER?#11&1\r\n", "+STATE=1#0&1\r\n"}),
                  acc.received());
        int64_t after = now_usec();
        auto waiting = atcmd_test::drain(&Timeout_head, &g_timeoutqueue_mutex);
        ASSERT_EQ(1u, waiting.size()) << "the report carries no sequence number";
        EXPECT_EQ("AT+VER?#11&1\r\n", waiting[0].text);
        int64_t stamp = waiting[0].rec.tv_sec * 1000000LL + waiting[0].rec.tv_usec;
        EXPECT_LE(before, stamp);
        EXPECT_GE(after, stamp);
    });
}

}  // namespace
