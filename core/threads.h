// The service's threads as other threads see them: their global handles
// (declared below), signalling them, and the threads that are
// ended from outside with SIGALRM (the WiFi receive and heartbeat threads),
// since Android's libc has no pthread_cancel.
//
// Thread map. "Callbacks" are the client's notify_callback calls made on the
// thread; a lock in brackets is taken inside a call the thread makes.
//
//   sigProcess_thread   started by open; runs plug, unplug, WiFi up and the
//                       hand-shake, one signal at a time, for ever.
//                       Opens and closes g_vuart_fd, opens the WiFi channel.
//                       Locks: fd lock, hot-plug node lock, channel lock,
//                       [Tx queue]. Callbacks: USB events.
//   Tx_thread           started by open; the only writer on every link.
//                       Locks: txbuffer_Mutex, g_txqueue_mutex, then
//                       g_timeoutqueue_mutex (never both queue locks at once),
//                       fd lock. Callbacks: none.
//   dispatch_thread     started by open; runs the parsers.
//                       Locks: rxbuffer_Mutex, g_rxqueue_mutex,
//                       g_timeoutqueue_mutex, [Tx queue], [channel lock: the
//                       parsers' WiFi tear-down]. Callbacks: parsed replies
//                       and reports, USB events (POWEROFF, USBSTATE), WiFi
//                       state.
//   Timeout_thread      started by open; resends and reports time-outs.
//                       Locks: timeoutbuffer_Mutex, g_timeoutqueue_mutex held
//                       while it takes g_txqueue_mutex (the one nesting).
//                       Callbacks: +ERROR -110, with the timeout queue locked.
//   devEpoll_process    started by open on platform 1; watches /dev.
//                       Locks: hot-plug node lock. Callbacks: none.
//   uartRx_thread       started by open on platform 2 (or by a client);
//                       reads and re-opens the UART. Locks: fd lock,
//                       g_rxqueue_mutex, [Tx queue: relays].
//                       Callbacks: +ERROR -6 when the UART cannot be opened.
//   VuartRx_thread      started by the signal thread on a plug; ends itself
//                       when the node goes. Locks: fd lock, g_rxqueue_mutex,
//                       [Tx queue]. Callbacks: none.
//   wifiRx_thread       started by the signal thread on "running"; ended with
//                       SIGALRM and joined by the channel's close, under the
//                       channel lock. Locks: g_rxqueue_mutex, [Tx queue].
//                       Takes SIGALRM only in its waits. Callbacks: none.
//   wifiHBeat_thread    started by the signal thread on "running"; ended with
//                       SIGALRM and joined by wifi_stchange(0), outside the
//                       channel lock (the thread may wait for that lock).
//                       Locks: channel lock, fd lock. Takes SIGALRM only in
//                       its sleep. Callbacks: none.
//   client's threads    the device operations. wifi_stchange(0) holds the
//                       channel lock; callbacks: WiFi state.
//
// The log file lock is taken by every statement of every thread, last.
//
// Descriptors that threads share (core/link_fd.h has the rule: publish once
// set up, use a duplicate or the descriptor lock, retire before closing):
//
//   descriptor          opened by                used by                  closed by
//   g_uart_fd           open (platform 2),       uartRx_thread (own dup), uartRx_thread on a
//                       uartRx_thread            Tx_thread (own write-    failed read; close
//                                                only description per     (parked)
//                                                write)
//   g_vuart_fd          signal thread (plug)     VuartRx_thread (dup),    signal thread (unplug,
//                                                Tx_thread (as above),    re-plug); close
//                                                signal thread (dup, to   (parked)
//                                                judge the link)
//   g_fifo_rx_fd        signal thread            wifiRx_thread, by        under the channel lock,
//                       (Socket_Fifo_Init)       number                   after wifiRx_thread was
//                                                                         ended and joined; close
//                                                                         (parked)
//   g_fifo_tx_fd        signal thread            Tx_thread (as above)     with g_fifo_rx_fd
//   epfd_socket         signal thread            wifiRx_thread, by        with g_fifo_rx_fd
//                                                number; EPOLL_CTL_DEL
//                                                under the fd lock
//   /dev/fifo_cmd       the caller of            that caller              that caller
//                       stop_hiddemon
//   fd_inotify_input,   open (published once     devEpoll_process         never
//   epfd_hid_devs       both exist)
//
// "Parked": close does not stop the threads that use these, so it points each
// number at an empty pipe rather than freeing it.
#ifndef ATCMD_CORE_THREADS_H
#define ATCMD_CORE_THREADS_H

#include <pthread.h>
#include <signal.h>
#include <unistd.h>
#include "atcmdprocess.h"

extern "C" {

/* Thread handles: 0 while the thread does not run. */
ATCMD_API extern pthread_t g_Sigprocess_thread;
ATCMD_API extern pthread_t g_uartRx_thread;
ATCMD_API extern pthread_t g_VuartRx_thread;
ATCMD_API extern pthread_t g_Tx_thread;
ATCMD_API extern pthread_t g_dispatch_thread;
ATCMD_API extern pthread_t g_timeout_thread;
ATCMD_API extern pthread_t g_wifiRx_thread;
ATCMD_API extern pthread_t g_wifiHBeat_thread;

/* SIGALRM handler of the WiFi receive and heartbeat threads: ends the caller. */
ATCMD_API void thread_exit_handler(int sig);
}

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
