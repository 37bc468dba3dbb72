#include "link/serial_rx.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "core/delays.h"
#include "core/queue.h"
#include "core/relaxed.h"
#include "core/threads.h"
#include "fixtures/callback_sink.h"
#include "fixtures/child_process.h"
#include "fixtures/device.h"
#include "fixtures/log_capture.h"
#include "fixtures/queue_probe.h"
#include "hal/wiring.h"
#include "harness/census.h"
#include "harness/sysroot.h"
#include "harness/wait_until.h"
#include "link/acm_link.h"
#include "link/serial_port.h"
#include "link/uart_link.h"
#include "sim/accessory.h"

namespace {

using atcmd_harness::wait_until;
using Lines = std::vector<std::string>;

// Takes the receive queue's lines, all from the MCU, once at least n came.
Lines rx_lines(size_t n = 0) {
    Lines lines;
    wait_until([&] {
        for (const auto &t : atcmd_test::drain(&Rx_head, &g_rxqueue_mutex)) {
            EXPECT_EQ(ATCMD_EP_MCU, t.rec.source);
            lines.push_back(t.text);
        }
        return lines.size() >= n;
    });
    return lines;
}

// Fed through a pipe rather than a pty: one write is one read there, so the
// test decides where reads split. The long batches end in a line the parser
// keeps, so passing and dropping show on the queue.
TEST(Gather, BatchesOfWholeLinesReachTheParserFromTheMcu) {
    const std::string ok = "+OK#4&1\r\n";
    const std::string batch512 = std::string(501, 'z') + "\r\n" + ok;
    const struct {
        Lines reads, lines;
    } rows[] = {
        {{"AT+VER?#1&2\r", "\n"}, {"AT+VER?#1&2\r\n"}},
        {{ok + "+BAT=50#9&1\r\n"}, {ok, "+BAT=50#9&1\r\n"}},
        {{ok + "+BA", "T=50\r\n"}, {ok, "+BAT=50\r\n"}},
        {{std::string(600, 'x'), "+STATE=1\r\n"}, {"+STATE=1\r\n"}},
        {{batch512}, {ok}},
        {{"z" + batch512}, {}},
    };
    atcmd_test::TestDevice dev;
    for (const auto &r : rows) {
        SCOPED_TRACE(r.reads[0].substr(0, 16));
        int p[2];
        ASSERT_EQ(0, pipe(p));
        atcmd::RxBatch batch;
        for (const std::string &bytes : r.reads) {
            ASSERT_EQ(static_cast<ssize_t>(bytes.size()), write(p[1], bytes.data(), bytes.size()));
            EXPECT_TRUE(atcmd::receive_once(atcmd::kUartRx, p[0], &batch));
        }
        EXPECT_EQ(r.lines, rx_lines());
        close(p[1]);
        EXPECT_FALSE(atcmd::receive_once(atcmd::kVuartRx, p[0], &batch)) << "end of input";
        close(p[0]);
    }
}

// Start-up registers the parser; a batch read before that (or in a program
// that never called wire_layers) is logged and dropped, not handed to nothing.
TEST(Gather, WithoutTheParserRegisteredABatchIsLoggedAndDropped) {
    struct Rewire {
        ~Rewire() { atcmd::wire_layers(); }
    } rewire;
    atcmd::set_rx_hooks(nullptr);
    atcmd_test::TestDevice dev;
    int p[2];
    ASSERT_EQ(0, pipe(p));
    const std::string ok = "+OK#4&1\r\n";
    ASSERT_EQ(static_cast<ssize_t>(ok.size()), write(p[1], ok.data(), ok.size()));
    atcmd::RxBatch batch;
    const std::string log = atcmd_test::stdout_of(
        [&] { EXPECT_TRUE(atcmd::receive_once(atcmd::kUartRx, p[0], &batch)); });
    EXPECT_NE(std::string::npos, log.find("no receive hooks registered")) << log;
    EXPECT_EQ(Lines{}, rx_lines());
    close(p[0]);
    close(p[1]);
}

// The UART receive thread runs for ever: a child process.
TEST(UartRxThread, LinesFlowUntilThePortDiesThenRetriesWithPauses) {
    EXPECT_CHILD_PASSES([] {
        atcmd_harness::TempSysroot root;
        atcmd_test::TestDevice dev;
        atsim::Transcript transcript;
        atsim::Accessory pty(root.root(), transcript);
        ASSERT_TRUE(pty.plug_uart());
        ASSERT_EQ(0, UART_init(&g_uart_fd));
        ASSERT_EQ(0, pthread_create(&g_uartRx_thread, nullptr, atcmder_uartRx_thread, nullptr));
        pty.send("+VER=1.0.2#11&2\r\n");
        EXPECT_EQ(Lines{"+VER=1.0.2#11&2\r\n"}, rx_lines(1));

        // The port dies and stays dead: each failed re-opening tells the
        // client, one attempt a pause at most (a spinning loop would have
        // sent thousands of notices by then).
        auto start = std::chrono::steady_clock::now();
        pty.unplug();
        ASSERT_TRUE(atcmd_test::CallbackSink::wait_for(3));
        auto pauses = std::chrono::duration_cast<std::chrono::microseconds>(
                          std::chrono::steady_clock::now() - start) /
                      std::chrono::microseconds(atcmd::g_delays.uart_retry_pause);
        auto msgs = atcmd_test::CallbackSink::messages();
        EXPECT_LE(msgs.size(), 2 + static_cast<size_t>(pauses));
        for (const auto &m : msgs) {
            EXPECT_EQ(ATCMD_ID_ERROR, m.cmd_id);
            EXPECT_EQ(ATCMD_ERR_UART_DOWN, m.i32[0]);
        }
        EXPECT_EQ(-1, atcmd::relaxed_load(&g_uart_fd));
    });
}

}  // namespace
