#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "atcmdprocess.h"
#include "core/queue.h"
#include "hal/service.h"
#include "link/acm_link.h"
#include "link/serial_port.h"
#include "link/uart_link.h"
#include "link/wifi_link.h"

namespace {


TEST(HalClose, ClosesLinksAndDrainsQueuesWhenNoServiceThreadRuns) {
    int pipes[2];
    ASSERT_EQ(0, pipe(pipes));
    g_uart_fd = pipes[0];
    g_vuart_fd = pipes[1];
    const int probe = fcntl(pipes[0], F_DUPFD_CLOEXEC, 0);  // sees the writer go
    ASSERT_EQ(0, fcntl(probe, F_SETFL, O_NONBLOCK));
    char text[] = "+OK\r\n";
    AtCmder_t rec = {};
    rec.data = text;
    for (atcmder_queue_t *q : {&Rx_head, &Tx_head, &Timeout_head}) {
        atcmder_queue_init(q);
        ASSERT_EQ(ATCMD_Q_OK, atcmder_enqueue(q, &g_txqueue_mutex, &rec));
    }
    EXPECT_EQ(0, atcmder_hal_close());
    EXPECT_EQ(-1, g_uart_fd);
    EXPECT_EQ(-1, g_vuart_fd);
    EXPECT_EQ(-1, g_fifo_tx_fd);
    EXPECT_EQ(-1, g_fifo_rx_fd);
    // The pipe's write end is closed: its reader sees end-of-file. The
    // numbers stay taken, by an empty pipe, so that a thread still holding
    // one cannot reach a file opened after the close.
    char c;
    EXPECT_EQ(0, read(probe, &c, 1));
    EXPECT_EQ(0, read(pipes[1], &c, 1));
    EXPECT_EQ(-1, write(pipes[1], "x", 1));
    close(probe);
    for (atcmder_queue_t *q : {&Rx_head, &Tx_head, &Timeout_head}) EXPECT_EQ(nullptr, q->tqh_first);
}

}  // namespace
