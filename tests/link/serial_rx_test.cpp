#include "link/serial_rx.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <string>
#include <vector>

#include "fixtures/accessory.h"
#include "fixtures/callback_sink.h"
#include "fixtures/census.h"
#include "fixtures/child_process.h"
#include "fixtures/device.h"
#include "fixtures/log_capture.h"
#include "fixtures/pty_link.h"
#include "fixtures/signal_catcher.h"
#include "fixtures/sysroot.h"
#include "fixtures/wait_until.h"
#include "fixtures/queue_probe.h"

namespace {

using ::testing::HasSubstr;
using atcmd_test::CallbackSink;
using atcmd_test::PtyLink;
using atcmd_test::wait_until;

size_t rx_length() {
    pthread_mutex_lock(&g_rxqueue_mutex);
    size_t n = 0;
    for (atcmder_node_t *node = Rx_head.tqh_first; node != nullptr; node = node->link.tqe_next) ++n;
    pthread_mutex_unlock(&g_rxqueue_mutex);
    return n;
}

// Fed through a pipe rather than a pty: one write is one read there, so the
// test decides where reads split.
TEST(Gather, BatchesOfWholeLinesReachTheParserFromTheMcu) {
    struct Row {
        std::vector<std::string> reads;
        std::vector<std::string> lines;  // what reaches the receive queue
        const char *log;
    };
    const std::string x600(600, 'x');
    const Row rows[] = {
        {{"AT+VER?#1&2\r", "\n"}, {"AT+VER?#1&2\r\n"},
         "Uart rcv data length is 13, receive data is AT+VER?#1&2\r\n"},
        {{"+OK#4&1\r\n+BAT=50#9&1\r\n"}, {"+OK#4&1\r\n", "+BAT=50#9&1\r\n"}, "length is 22"},
        {{"+OK#4&1\r\n+BA", "T=50\r\n"}, {"+OK#4&1\r\n", "+BAT=50\r\n"}, "length is 18"},
        {{x600, "+STATE=1\r\n"}, {"+STATE=1\r\n"},
         "Uart receive data length is too long, skip it, receive data is xxxxxxxx"},
        {{std::string(510, 'z') + "\r\n"}, {}, "Uart rcv data length is 512"},
        {{std::string(511, 'z') + "\r\n"}, {}, "too long, skip it"},
    };
    atcmd_test::TestDevice dev;
    for (const Row &r : rows) {
        SCOPED_TRACE(r.reads[0].substr(0, 16));
        int p[2];
        ASSERT_EQ(0, pipe(p));
        atcmd::RxBatch batch;
        std::string log;
        for (const std::string &bytes : r.reads) {
            ASSERT_EQ(static_cast<ssize_t>(bytes.size()), write(p[1], bytes.data(), bytes.size()));
            log += atcmd_test::stdout_of([&] { EXPECT_TRUE(atcmd::receive_once(atcmd::kUartRx, p[0], &batch)); });
        }
        EXPECT_THAT(log, HasSubstr(r.log));
        EXPECT_EQ(0u, batch.size());
        std::vector<std::string> lines;
        for (const auto &t : atcmd_test::drain(&Rx_head, &g_rxqueue_mutex)) {
            EXPECT_EQ(ATCMD_EP_MCU, t.rec.source);
            lines.push_back(t.text);
        }
        EXPECT_EQ(r.lines, lines);
        close(p[1]);
        EXPECT_FALSE(atcmd::receive_once(atcmd::kVuartRx, p[0], &batch)) << "end of input";
        close(p[0]);
    }
}

// The accessory goes away while its receive thread blocks in a read; the
// thread ends itself and tells the signal thread.
TEST(VuartRxThread, EndsWhenTheAccessoryIsPulledOrWasNeverOpened) {
    atcmd_test::TempSysroot root;
    atcmd_test::SignalCatcher signals({SIGUSR1, SIGUSR2});
    atcmd_test::TestDevice dev;
    dev.status().usbdev_sts.usb_connected = 1;
    PtyLink pty;
    pty.plug(root, "/dev/ttyACM0");
    ASSERT_EQ(0, VUART_init(&g_vuart_fd, 0));
    int baseline_threads = atcmd_test::thread_count();

    ASSERT_EQ(0, pthread_create(&g_VuartRx_thread, nullptr, atcmder_VuartRx_thread, nullptr));
    pty.send("+STATE=2#0&1\r\n");
    ASSERT_TRUE(wait_until([] { return rx_length() == 1; }));
    pty.unplug();
    ASSERT_TRUE(signals.wait_for(1));
    EXPECT_EQ(SIGUSR2, signals.received()[0]);
    EXPECT_TRUE(wait_until([] { return g_VuartRx_thread == 0; }));
    EXPECT_TRUE(wait_until([&] { return atcmd_test::thread_count() == baseline_threads; }));
    close(g_vuart_fd);
    g_vuart_fd = -1;

    // Started with no link open: it ends at once, and says so while the
    // accessory still counts as plugged.
    ASSERT_EQ(0, pthread_create(&g_VuartRx_thread, nullptr, atcmder_VuartRx_thread, nullptr));
    ASSERT_TRUE(signals.wait_for(2));
    EXPECT_EQ(SIGUSR2, signals.received()[1]);
    EXPECT_TRUE(wait_until([] { return g_VuartRx_thread == 0; }));
    EXPECT_TRUE(wait_until([&] { return atcmd_test::thread_count() == baseline_threads; }));
    atcmd_test::drain_all();
}

// Plays the signal thread's part for the virtual UART, as the service does
// on SIGUSR1 (plugged) and SIGUSR2 (gone).
void vuart_plugged(atcmdprocess_device_t *dev) {
    ASSERT_EQ(1, kavren_plugged());
    ASSERT_EQ(0, VUART_init(&g_vuart_fd, g_dev_ACM));
    dev->system_status.usbdev_sts.usb_connected = 1;
    if (g_VuartRx_thread == 0) {
        ASSERT_EQ(0, pthread_create(&g_VuartRx_thread, nullptr, atcmder_VuartRx_thread, nullptr));
    }
}

void vuart_gone(atcmdprocess_device_t *dev) {
    dev->system_status.usbdev_sts.usb_connected = 0;
    dev->system_status.usbdev_sts.usb_devinfo = -1;
    close(g_vuart_fd);
    g_vuart_fd = -1;
}

// The hot-plug watcher never ends, so this runs in a child process.
TEST(VuartRxThread, TwentyPlugCyclesLeaveNoDescriptorOrThreadBehind) {
    EXPECT_CHILD_PASSES([] {
        atcmd_test::TempSysroot root;
        atcmd_test::SignalCatcher signals({SIGUSR1, SIGUSR2});
        atcmd_test::TestDevice dev;
        ASSERT_EQ(0, dev_hotplug_init());
        atcmd_test::write_uevent(root, "ttyACM0", atcmd_test::kAccessoryProduct);
        const int fds = atcmd_test::open_fd_count();
        const int threads = atcmd_test::thread_count();

        for (int cycle = 0; cycle < 20; ++cycle) {
            SCOPED_TRACE(cycle);
            size_t seen = signals.received().size();
            {
                PtyLink pty;
                pty.plug(root, "/dev/ttyACM0");
                ASSERT_TRUE(signals.wait_for(seen + 1));
                ASSERT_EQ(SIGUSR1, signals.received()[seen]);
                vuart_plugged(dev.get());

                const std::string line = "+STATE=" + std::to_string(cycle) + "#0&1\r\n";
                pty.send(line);
                ASSERT_TRUE(wait_until([] { return rx_length() == 1; }));
                EXPECT_EQ(line, atcmd_test::drain(&Rx_head, &g_rxqueue_mutex).at(0).text);

                pty.unplug();
                ASSERT_TRUE(signals.wait_for(seen + 2));
                ASSERT_EQ(SIGUSR2, signals.received()[seen + 1]);
                vuart_gone(dev.get());
            }
            ASSERT_TRUE(wait_until([] { return g_VuartRx_thread == 0; }));
            ASSERT_TRUE(wait_until([&] { return atcmd_test::thread_count() == threads; }));
            // The thread's own SIGUSR2 may still be on its way.
            wait_until([&] { return signals.received().size() >= seen + 3; }, 1000);
        }
        EXPECT_EQ(fds, atcmd_test::open_fd_count());
        EXPECT_EQ(threads, atcmd_test::thread_count());
        std::cout << "after 20 plug cycles: " << atcmd_test::open_fd_count() << " descriptors (before "
                  << fds << "), " << atcmd_test::thread_count() << " threads (before " << threads
                  << ")\n";
    });
}

// What the client sends on platform 2 to ask for the accessory's version.
AtCmder_t ver_query(char *text) {
    return {ATCMD_TYPE_QUERY, ATCMD_EP_CLIENT, ATCMD_EP_MCU, 2, 0, 11, 11, 0, 0, text};
}

// The UART, transmit and receive threads run for ever: a child process.
TEST(UartRxThread, AnswersFlowUntilThePortDiesThenRetriesWithPauses) {
    EXPECT_CHILD_PASSES([] {
        atcmd_test::TempSysroot root;
        atcmd_test::TestDevice dev;
        dev.status().platform = 2;
        PtyLink pty;
        pty.plug(root, "/dev/ttyS4");
        ASSERT_EQ(0, UART_init(&g_uart_fd));  // as the start-up does on platform 2
        ASSERT_EQ(0, pthread_create(&g_uartRx_thread, nullptr, atcmder_uartRx_thread, nullptr));
        ASSERT_EQ(0, pthread_create(&g_Tx_thread, nullptr, atcmder_Tx_thread, nullptr));
        {
            atcmd_test::ScriptedAccessory accessory(pty);
            accessory.answer("AT+VER?", "+VER=1.0.2#11&2\r\n");
            char query[] = "AT+VER?#11&2\r\n";
            AtCmder_t rec = ver_query(query);
            ASSERT_EQ(0u, atcmder_enqueue(&Tx_head, &g_txqueue_mutex, &rec));
            pthread_mutex_lock(&txbuffer_Mutex);  // no lost wake-up in the test
            pthread_cond_signal(&txbuffer_notempty);
            pthread_mutex_unlock(&txbuffer_Mutex);

            ASSERT_TRUE(wait_until([] { return rx_length() == 1; }));
            EXPECT_EQ(std::vector<std::string>{query}, accessory.lines());
            auto got = atcmd_test::drain(&Rx_head, &g_rxqueue_mutex);
            EXPECT_EQ("+VER=1.0.2#11&2\r\n", got.at(0).text);
            EXPECT_EQ(11, got.at(0).rec.seq_num);
            EXPECT_EQ(ATCMD_EP_MCU, got.at(0).rec.source);
        }

        // The port dies and stays dead: each failed re-opening tells the
        // client, one attempt a second at most (a spinning loop would have
        // sent thousands of notices by then).
        auto start = std::chrono::steady_clock::now();
        pty.unplug();
        ASSERT_TRUE(CallbackSink::wait_for(3));
        auto elapsed = std::chrono::steady_clock::now() - start;
        auto msgs = CallbackSink::messages();
        EXPECT_LE(msgs.size(),
                  2 + static_cast<size_t>(
                          std::chrono::duration_cast<std::chrono::seconds>(elapsed).count()));
        for (const auto &m : msgs) {
            EXPECT_EQ(24, m.cmd_id);
            EXPECT_EQ(-6, m.i32[0]);
        }
        EXPECT_EQ(-1, g_uart_fd);
    });
}

}  // namespace
