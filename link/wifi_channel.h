// The WiFi channel's life beyond its exported entry points: who may open and
// close it, and when a daemon's "running" still counts.
#ifndef ATCMD_LINK_WIFI_CHANNEL_H
#define ATCMD_LINK_WIFI_CHANNEL_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include "atcmdprocess.h"

extern "C" {

ATCMD_API extern int g_fifo_rx_fd;
ATCMD_API extern int g_fifo_tx_fd;
ATCMD_API extern int epfd_socket;

ATCMD_API int Socket_Fifo_Init(void);
ATCMD_API void stop_wifi_channel(void);
ATCMD_API int wifi_Chan_ReInit(void);
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
int wifi_transmit(const char *text, size_t len, WifiTransmit how);

}  // namespace atcmd

#endif
