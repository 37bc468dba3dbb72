// The service's threads as other threads see them: their global handles
// (declared in the public header), signalling them, and the threads that are
// ended from outside with SIGALRM (the WiFi receive and heartbeat threads),
// since Android's libc has no pthread_cancel.
#ifndef ATCMD_CORE_THREADS_H
#define ATCMD_CORE_THREADS_H

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

namespace atcmd {

// pthread_kill on a handle that may be 0 (thread not running): a 0 handle is
// not handed to pthread_kill, which would crash on it; ESRCH is returned.
int signal_thread(pthread_t thread, int sig);

// Starts body in a new thread whose handle goes to *handle. The thread starts
// with SIGALRM blocked and thread_exit_handler already installed for the
// process, so a stop that comes before the thread's first wait stays pending
// until that wait, instead of ending the whole process by SIGALRM's default
// action or the thread in the middle of a log statement. Returns
// pthread_create's result; *handle is left alone on failure.
int start_alarm_thread(pthread_t *handle, void *(*body)(void *));

// Ends the thread that *handle names and waits for it. Exactly one caller
// takes the handle (it reads 0 from then on); callers that find 0, because
// the thread does not run or another caller is ending it, return at once.
void end_alarm_thread(pthread_t *handle);

// For a SIGALRM-ended thread that leaves on its own: clears *handle if it
// still names the calling thread and detaches, since nobody will join it. If
// a stopper took the handle first, the stopper joins.
void leave_alarm_thread(pthread_t *handle);

// Called first by a SIGALRM-ended thread: makes sure thread_exit_handler is
// installed and SIGALRM blocked in the calling thread (already so when the
// thread came from start_alarm_thread). The thread then waits only through
// wait_mask_for_exit(), so that the signal can end it only while it waits,
// never while it holds a lock of the C library or of the log.
void install_thread_exit_handler();
// The calling thread's signal mask without SIGALRM, for epoll_pwait/ppoll.
void wait_mask_for_exit(sigset_t *mask);
// Sleeps like usleep, but is the one place SIGALRM may end the thread.
int sleep_until_exit_signal(useconds_t us);

}  // namespace atcmd

#endif
