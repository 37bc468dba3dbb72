// Service-wide thread handles and the shut-down path. The threads themselves
// live with the subsystem they serve; their handles live here so every part
// of the module can signal or join them.
#define LOG_TAG "ATCMD_MANAGE"
#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <initializer_list>

#include "atcmdprocess.h"
#include "core/log.h"
#include "core/service.h"

pthread_t g_Sigprocess_thread;
pthread_t g_uartRx_thread;
pthread_t g_VuartRx_thread;
pthread_t g_Tx_thread;
pthread_t g_dispatch_thread;
pthread_t g_timeout_thread;
pthread_t g_wifiRx_thread;
pthread_t g_wifiHBeat_thread;

// Installed for SIGALRM by the WiFi receive and heartbeat threads; the only
// way to stop them, since Android's libc has no pthread_cancel.
void thread_exit_handler(int sig) {
    ATLOGI(2, "receive signal is %d", sig);
    pthread_exit(nullptr);
}

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

namespace atcmd {

void install_thread_exit_handler() {
    struct sigaction sa = {};
    sigemptyset(&sa.sa_mask);
    sa.sa_handler = thread_exit_handler;
    sigaction(SIGALRM, &sa, nullptr);
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
}

void wait_mask_for_exit(sigset_t *mask) {
    pthread_sigmask(SIG_SETMASK, nullptr, mask);
    sigdelset(mask, SIGALRM);
}

int sleep_until_exit_signal(useconds_t us) {
    sigset_t mask;
    wait_mask_for_exit(&mask);
    struct timespec ts = {static_cast<time_t>(us / 1000000), static_cast<long>(us % 1000000) * 1000};
    return ppoll(nullptr, 0, &ts, &mask) < 0 ? -1 : 0;
}

int signal_thread(pthread_t thread, int sig) {
    if (thread == 0) {
        ATLOGE(0, "signal %d not sent: thread is not running", sig);
        return ESRCH;
    }
    return pthread_kill(thread, sig);
}

}  // namespace atcmd
