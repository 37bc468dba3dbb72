// Shut-down of the service: what the device's close calls.
#include <signal.h>
#include <unistd.h>

#include <initializer_list>

#include "atcmdprocess.h"

int atcmder_hal_close(void) {
    for (int *fd : {&g_vuart_fd, &g_uart_fd, &g_fifo_tx_fd, &g_fifo_rx_fd}) {
        close(*fd);
        *fd = -1;
    }
    // The condition locks, not the queue locks: that is how shut-down has
    // always drained the queues.
    atcmder_queue_exit(&Rx_head, &rxbuffer_Mutex);
    atcmder_queue_exit(&Tx_head, &txbuffer_Mutex);
    atcmder_queue_exit(&Timeout_head, &timeoutbuffer_Mutex);

    // SIGKILL cannot be caught: the first live thread named here takes the
    // whole hosting process with it. The signal, VUART receive and heartbeat
    // threads are not named.
    for (pthread_t t : {g_uartRx_thread, g_Tx_thread, g_dispatch_thread, g_wifiRx_thread,
                        g_timeout_thread}) {
        if (t != 0) pthread_kill(t, SIGKILL);
    }
    return 0;
}
