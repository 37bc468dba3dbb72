// Thread handles of the whole service and the means to signal and end the
// threads they name. The threads themselves live with the subsystem they
// serve.
#include "core/threads.h"

#include <errno.h>
#include <poll.h>

#include "atcmdprocess.h"
#include "core/log.h"
#include "core/relaxed.h"

pthread_t g_Sigprocess_thread;
pthread_t g_uartRx_thread;
pthread_t g_VuartRx_thread;
pthread_t g_Tx_thread;
pthread_t g_dispatch_thread;
pthread_t g_timeout_thread;
pthread_t g_wifiRx_thread;
pthread_t g_wifiHBeat_thread;

void thread_exit_handler(int sig) {
    ATLOGI(atcmd::kLogNotice, atcmd::kTagManage, "receive signal is %d", sig);
    pthread_exit(nullptr);
}

namespace atcmd {
namespace {

pthread_once_t g_exit_handler_once = PTHREAD_ONCE_INIT;

// Process-wide and for good: once any SIGALRM-ended thread may exist, the
// signal must never take its default action (ending the process).
void install_handler_once() {
    pthread_once(&g_exit_handler_once, [] {
        struct sigaction sa = {};
        sigemptyset(&sa.sa_mask);
        sa.sa_handler = thread_exit_handler;
        sigaction(SIGALRM, &sa, nullptr);
    });
}

sigset_t alarm_set() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGALRM);
    return set;
}

}  // namespace

int signal_thread(pthread_t thread, int sig) {
    if (thread == 0) {
        ATLOGE(atcmd::kLogAlways, kTagManage, "signal %d not sent: thread is not running", sig);
        return ESRCH;
    }
    return pthread_kill(thread, sig);
}

int start_alarm_thread(pthread_t *handle, void *(*body)(void *)) {
    install_handler_once();
    // The new thread inherits the creator's mask as it is at pthread_create.
    sigset_t alarm = alarm_set(), old;
    pthread_sigmask(SIG_BLOCK, &alarm, &old);
    pthread_t t = 0;
    int r = pthread_create(&t, nullptr, body, nullptr);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    if (r == 0) relaxed_store(handle, t);
    return r;
}

void end_alarm_thread(pthread_t *handle) {
    pthread_t t = take(handle, pthread_t{0});
    if (t == 0) return;
    install_handler_once();  // also for a thread not started by start_alarm_thread
    pthread_kill(t, SIGALRM);
    pthread_join(t, nullptr);
}

void leave_alarm_thread(pthread_t *handle) {
    pthread_t self = pthread_self();
    if (__atomic_compare_exchange_n(handle, &self, pthread_t{0}, false, __ATOMIC_ACQ_REL,
                                    __ATOMIC_ACQUIRE))
        pthread_detach(pthread_self());
}

void install_thread_exit_handler() {
    install_handler_once();
    sigset_t alarm = alarm_set();
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
}

void wait_mask_for_exit(sigset_t *mask) {
    pthread_sigmask(SIG_SETMASK, nullptr, mask);
    sigdelset(mask, SIGALRM);
}

int sleep_until_exit_signal(useconds_t us) {
    sigset_t mask;
    wait_mask_for_exit(&mask);
    struct timespec ts = {static_cast<time_t>(us / 1000000),
                          static_cast<long>(us % 1000000) * 1000};
    return ppoll(nullptr, 0, &ts, &mask) < 0 ? -1 : 0;
}

}  // namespace atcmd
