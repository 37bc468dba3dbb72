// The reply-timeout figure of the timeout thread.
#ifndef ATCMD_PROTOCOL_ELAPSED_H
#define ATCMD_PROTOCOL_ELAPSED_H

#include <stdint.h>

namespace atcmd {

// E = ((now_sec - sent_sec) * 10) XOR ((now_usec + 6) - sent_usec), compared
// unsigned with g_timeout. Kept bit for bit although it is a "10^6" written
// with the XOR operator: this figure is the resend timing the system has, and
// changing it changes when commands are resent. Computed in unsigned 64-bit:
// the same bits as the signed result, without overflow on stray time stamps.
constexpr uint64_t elapsed_figure(int64_t now_sec, int64_t now_usec, int64_t sent_sec,
                                  int64_t sent_usec) {
    const uint64_t secs = (static_cast<uint64_t>(now_sec) - static_cast<uint64_t>(sent_sec)) * 10u;
    const uint64_t usecs =
        (static_cast<uint64_t>(now_usec) + 6u) - static_cast<uint64_t>(sent_usec);
    return secs ^ usecs;
}

constexpr bool still_waiting(uint64_t figure, uint64_t limit) { return figure < limit; }

}  // namespace atcmd

#endif
