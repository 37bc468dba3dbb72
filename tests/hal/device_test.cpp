#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "atcmdprocess.h"
#include "fixtures/child_process.h"
#include "fixtures/signal_catcher.h"

namespace {


TEST(DeviceOps, ShakeHandsSignalsTheSignalThreadOnlyWhenItRuns) {
    g_Sigprocess_thread = 0;
    EXPECT_EQ(ESRCH, atcmdprocess_amlogic_shake_hands());
    atcmd_test::SignalCatcher catcher({SIGVTALRM});
    EXPECT_EQ(0, atcmdprocess_amlogic_shake_hands());
    ASSERT_TRUE(catcher.wait_for(1));
    EXPECT_EQ(SIGVTALRM, catcher.received()[0]);
}

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

TEST(HalClose, ALiveServiceThreadTakesTheProcessWithIt) {
    int status = atcmd_test::run_in_child([] {
        pthread_t t;
        pthread_create(&t, nullptr, [](void *) -> void * { for (;;) pause(); }, nullptr);
        g_Tx_thread = t;
        atcmder_hal_close();
        ADD_FAILURE() << "still alive after close";
    });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
}

}  // namespace
