#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "atcmdprocess.h"

namespace {


TEST(HalClose, ClosesLinksAndDrainsQueuesWhenNoServiceThreadRuns) {
    int pipes[2];
    ASSERT_EQ(0, pipe(pipes));
    g_uart_fd = pipes[0];
    g_vuart_fd = pipes[1];
    char text[] = "+OK\r\n";
    AtCmder_t rec = {};
    rec.data = text;
    for (atcmder_queue_t *q : {&Rx_head, &Tx_head, &Timeout_head}) {
        atcmder_queue_init(q);
        ASSERT_EQ(0u, atcmder_enqueue(q, &g_txqueue_mutex, &rec));
    }
    EXPECT_EQ(0, atcmder_hal_close());
    EXPECT_EQ(-1, g_uart_fd);
    EXPECT_EQ(-1, g_vuart_fd);
    EXPECT_EQ(-1, g_fifo_tx_fd);
    EXPECT_EQ(-1, g_fifo_rx_fd);
    EXPECT_EQ(-1, fcntl(pipes[0], F_GETFD));
    EXPECT_EQ(-1, fcntl(pipes[1], F_GETFD));
    for (atcmder_queue_t *q : {&Rx_head, &Tx_head, &Timeout_head}) EXPECT_EQ(nullptr, q->tqh_first);
}

}  // namespace
