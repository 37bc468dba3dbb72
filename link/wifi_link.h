// The WiFi link: the FIFOs the HID daemon relays the accessory's bytes
// through (the daemon itself: link/hiddemon.h). Its face is the one every
// link shows: Socket_Fifo_Init opens it, wifi_send sends on it, the receive
// thread atcmder_wifiRx_thread reads it, stop_wifi_channel closes it. Below
// them: who may open and close it, and when a daemon's "running" still
// counts.
#ifndef ATCMD_LINK_WIFI_LINK_H
#define ATCMD_LINK_WIFI_LINK_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include "atcmdprocess.h"

extern "C" {

ATCMD_API extern int g_fifo_rx_fd;
ATCMD_API extern int g_fifo_tx_fd;
ATCMD_API extern int epfd_socket;

/* Socket_Fifo_Init: 0, or one of these. */
#define ATCMD_WIFI_FIFO_MISSING 10 /* a FIFO could not be opened (the daemon creates them) */
#define ATCMD_WIFI_EPOLL_FAILED 11 /* /dev/fifo_rx could not be watched */

ATCMD_API int Socket_Fifo_Init(void);
ATCMD_API void stop_wifi_channel(void);
ATCMD_API int wifi_Chan_ReInit(void);

ATCMD_API void *atcmder_wifiRx_thread(void *arg);
}

namespace atcmd {

// Held by every step that opens or closes the channel or decides about it:
// the signal thread's WiFi-up, the channel's own open and close, a tear-down,
// the heartbeat thread's restart. Recursive, since each of these calls the
// channel's open or close inside. A holder never waits for a thread that may
// itself be waiting for this lock (the heartbeat thread is ended outside it)
// and never takes SIGALRM while holding it.
class ChannelLock {
public:
    ChannelLock();
    ~ChannelLock();
    ChannelLock(const ChannelLock &) = delete;
    ChannelLock &operator=(const ChannelLock &) = delete;
};

// A WiFi session lasts from one tear-down to the next. The daemon's
// "running" is taken in the session in which it arrived; the signal thread
// acts on it only if no tear-down came in between, so a status that arrived
// before a stop but is handled after it cannot bring the link back.
uint32_t wifi_session();
void end_wifi_session();
void running_reported(uint32_t session);
bool running_still_current();

// The transmit thread's send on /dev/fifo_tx, through a write end of its own
// (link/link_writer.h), logged as atcmder_Tx_process: casting to the
// accessory on platform 1 logs success before it knows the write's result,
// relaying to the peer on platform 2 after; the two have always differed.
// 0, ATCMD_TX_FIFO_CLOSED, ATCMD_TX_FIFO_WRITE_FAILED or ATCMD_TX_DROPPED.
enum class WifiTransmit { kCast, kRelay };
int wifi_send(const char *text, size_t len, WifiTransmit how);

}  // namespace atcmd

#endif
