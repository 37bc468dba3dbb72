// Service-wide thread handles and the shut-down path. The threads themselves
// live with the subsystem they serve; their handles live here so every part
// of the module can signal or join them.
#define LOG_TAG "ATCMD_MANAGE"
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

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

namespace atcmd {

int signal_thread(pthread_t thread, int sig) {
    if (thread == 0) {
        ATLOGE(0, "signal %d not sent: thread is not running", sig);
        return ESRCH;
    }
    return pthread_kill(thread, sig);
}

}  // namespace atcmd
