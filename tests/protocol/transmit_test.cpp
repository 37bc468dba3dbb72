#include "protocol/transmit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <string>

#include "fixtures/child_process.h"
#include "fixtures/device.h"
#include "fixtures/log_capture.h"
#include "fixtures/pty_link.h"
#include "fixtures/sysroot.h"
#include "fixtures/queue_probe.h"

namespace {

using ::testing::HasSubstr;
using atcmd_test::PtyLink;

AtCmder_t record(uint8_t type, uint16_t seq, uint8_t flag, uint8_t cmd_id, const char *text,
                 uint8_t dest = ATCMD_EP_MCU) {
    AtCmder_t r;
    memset(&r, 0, sizeof r);
    r.type = type;
    r.source = ATCMD_EP_CLIENT;
    r.dest = dest;
    r.flag = flag;
    r.cmd_id = cmd_id;
    r.seq_num = seq;
    r.data = const_cast<char *>(text);
    return r;
}

TEST(AwaitsReply, CommandsOfThisLinkWithASequenceNumberInTheFirst19Rows) {
    struct Row {
        uint8_t type;
        uint16_t seq;
        uint8_t flag, cmd_id;
        int32_t platform;
        bool waits;
    };
    const Row rows[] = {
        {3, 11, 1, 11, 1, true},  {1, 3, 2, 0, 2, true},   {2, 5, 2, 18, 2, true},
        {3, 11, 1, 19, 1, false}, {4, 11, 1, 11, 1, false}, {5, 11, 1, 11, 1, false},
        {0, 11, 1, 11, 1, false}, {3, 0, 1, 11, 1, false},  {3, 11, 2, 11, 1, false},
    };
    for (const Row &r : rows) {
        AtCmder_t cmd = record(r.type, r.seq, r.flag, r.cmd_id, "x");
        EXPECT_EQ(r.waits, atcmd::awaits_reply(cmd, r.platform))
            << "type " << +r.type << " seq " << r.seq << " flag " << +r.flag << " cmd "
            << +r.cmd_id << " platform " << r.platform;
    }
}

// The WiFi transmit FIFO, opened both ways so a write never lacks a reader.
struct Fifo {
    int fd = -1;
    explicit Fifo(const atcmd_test::TempSysroot &root) {
        std::string path = root.path("/dev/fifo_tx");
        if (mkfifo(path.c_str(), 0600) == 0) fd = open(path.c_str(), O_RDWR | O_NONBLOCK);
    }
    ~Fifo() { close(fd); }
    std::string drain() {  // a FIFO write is complete when write returns
        char buf[256];
        ssize_t n = read(fd, buf, sizeof buf);
        return n > 0 ? std::string(buf, static_cast<size_t>(n)) : "";
    }
};

enum Link { kNone, kUart, kVuart, kFifo, kFifoReadOnly };

struct Links : ::testing::Test {
    atcmd_test::TempSysroot root;
    atcmd_test::TestDevice dev;
    PtyLink uart, vuart;
    Fifo fifo{root};

    void SetUp() override {
        ASSERT_GE(fifo.fd, 0);
        connect_all();
    }
    void TearDown() override {
        g_uart_fd = g_vuart_fd = g_fifo_tx_fd = -1;
    }
    void connect_all() {
        g_uart_fd = uart.slave_fd();
        g_vuart_fd = vuart.slave_fd();
        g_fifo_tx_fd = fifo.fd;
    }
};

TEST_F(Links, EachPlatformModeAndDestPicksOneLink) {
    struct Row {
        int32_t platform, mode;
        uint8_t dest;
        Link fault;  // this link is closed (or the FIFO refuses writes)
        int result;
        Link written;
        const char *log;
    };
    const Row rows[] = {
        {1, -1, 3, kNone, 0, kVuart, "Vuart successfully send cmd len is 14, data is AT+VER?#11&1"},
        {1, 0, 1, kNone, 0, kVuart, "Vuart successfully send"},
        {1, 1, 3, kNone, 0, kFifo, "wifi fifotx successfully send data AT+VER?#11&1"},
        {2, 1, 1, kNone, 0, kFifo, "wifi fifotx successfully send data"},
        {2, 1, 3, kNone, 0, kUart, "uart successfully send cmd data len 14, data is AT+VER?"},
        {2, 0, 1, kNone, 0, kUart, "uart successfully send"},
        {3, 1, 1, kNone, 0, kNone, ""},
        {1, 0, 3, kVuart, 5, kNone, "Vuart is not open"},
        {1, 1, 3, kFifo, 16, kNone, "wifi fifo is not opened!"},
        {2, 1, 1, kFifo, 16, kNone, "wifi fifo is not opened!"},
        {2, 0, 3, kUart, 15, kNone, "uart is not open"},
        // Platform 1 reports success before it looks at the write.
        {1, 1, 3, kFifoReadOnly, 14, kNone,
         "wifi fifotx successfully send data AT+VER?#11&1\r\n"},
        {1, 1, 3, kFifoReadOnly, 14, kNone, "atcmder_Tx_process fifotx fail to send data"},
        {2, 1, 1, kFifoReadOnly, 14, kNone, "wifi fifotx fails to write data AT+VER?"},
    };
    const std::string frame = "AT+VER?#11&1\r\n";
    int read_only = open(root.path("/dev/fifo_tx").c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(read_only, 0);
    for (const Row &r : rows) {
        SCOPED_TRACE(testing::Message() << "platform " << r.platform << " mode " << r.mode
                                        << " dest " << +r.dest << " fault " << r.fault);
        dev.status().platform = r.platform;
        dev.status().mode = r.mode;
        if (r.fault == kUart) g_uart_fd = -1;
        if (r.fault == kVuart) g_vuart_fd = -1;
        if (r.fault == kFifo) g_fifo_tx_fd = -1;
        if (r.fault == kFifoReadOnly) g_fifo_tx_fd = read_only;

        AtCmder_t cmd = record(3, 11, 1, 11, frame.c_str(), r.dest);
        std::string out = atcmd_test::stdout_of([&] { EXPECT_EQ(r.result, atcmder_Tx_process(&cmd)); });
        EXPECT_THAT(out, HasSubstr(r.log));
        EXPECT_EQ(r.written == kUart ? frame : "", uart.take_output());
        EXPECT_EQ(r.written == kVuart ? frame : "", vuart.take_output());
        EXPECT_EQ(r.written == kFifo ? frame : "", fifo.drain());
        connect_all();
    }
    close(read_only);

    g_patcmd_dev = nullptr;  // no device: nothing to route by, nothing sent
    AtCmder_t cmd = record(3, 11, 1, 11, frame.c_str());
    EXPECT_EQ(0, atcmder_Tx_process(&cmd));
    EXPECT_EQ("", vuart.take_output());
}

// Signals under the consumer's lock, so the test cannot lose a wake-up
// between the thread's emptiness test and its wait.
void queue_tx(AtCmder_t rec) {
    ASSERT_EQ(0u, atcmder_enqueue(&Tx_head, &g_txqueue_mutex, &rec));
    pthread_mutex_lock(&txbuffer_Mutex);
    pthread_cond_signal(&txbuffer_notempty);
    pthread_mutex_unlock(&txbuffer_Mutex);
}

int64_t usec_of(int64_t sec, int64_t usec) { return sec * 1000000 + usec; }

int64_t now_usec() {
    timeval tv;
    gettimeofday(&tv, nullptr);
    return usec_of(tv.tv_sec, tv.tv_usec);
}

// The transmit thread never ends, so it runs in a child process.
TEST_F(Links, ThreadSendsInOrderAndStampsWhatAwaitsAReply) {
    EXPECT_CHILD_PASSES([this] {
        int64_t before = now_usec();
        ASSERT_EQ(0, pthread_create(&g_Tx_thread, nullptr, atcmder_Tx_thread, nullptr));
        queue_tx(record(3, 11, 1, 11, "AT+VER?#11&1\r\n"));
        queue_tx(record(4, 0, 1, 7, "+STATE=1#0&1\r\n"));
        EXPECT_EQ("AT+VER?#11&1\r\n+STATE=1#0&1\r\n", vuart.read_until("+STATE=1#0&1\r\n"));
        int64_t after = now_usec();

        auto waiting = atcmd_test::drain(&Timeout_head, &g_timeoutqueue_mutex);
        ASSERT_EQ(1u, waiting.size()) << "the report carries no sequence number";
        EXPECT_EQ("AT+VER?#11&1\r\n", waiting[0].text);
        EXPECT_EQ(11, waiting[0].rec.seq_num);
        int64_t stamp = usec_of(waiting[0].rec.tv_sec, waiting[0].rec.tv_usec);
        EXPECT_LE(before, stamp);
        EXPECT_GE(after, stamp);
    });
}

}  // namespace
