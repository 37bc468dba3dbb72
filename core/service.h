// Helpers for signalling the service threads by their global handles.
#ifndef ATCMD_CORE_SERVICE_H
#define ATCMD_CORE_SERVICE_H

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

namespace atcmd {

// For the threads that are ended from outside with SIGALRM (the WiFi receive
// and heartbeat threads): installs thread_exit_handler for SIGALRM and blocks
// SIGALRM in the calling thread. The thread then waits only through
// wait_mask_for_exit(), so that the signal can end it only while it waits,
// never while it holds a lock of the C library or of the log.
void install_thread_exit_handler();
// The calling thread's signal mask without SIGALRM, for epoll_pwait/ppoll.
void wait_mask_for_exit(sigset_t *mask);
// Sleeps like usleep, but is the one place SIGALRM may end the thread.
int sleep_until_exit_signal(useconds_t us);

// pthread_kill on a handle that may be 0 (thread not running): a 0 handle is
// not handed to pthread_kill, which would crash on it; ESRCH is returned.
int signal_thread(pthread_t thread, int sig);

}  // namespace atcmd

#endif
