#include "link/link_writer.h"

#include <fcntl.h>
#include <poll.h>
#include <time.h>
#include <unistd.h>

#include "core/link_fd.h"
#include "core/log.h"
#include "core/relaxed.h"

namespace atcmd {
namespace {

int64_t now_ms() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// POLLOUT, or an error or hang-up: a write then fails at once rather than
// blocking, and the send reports it as it always has.
bool writable(int fd, int timeout_ms) {
    pollfd p = {fd, POLLOUT, 0};
    return poll(&p, 1, timeout_ms) > 0 && p.revents != 0;
}

// A descriptor not open for writing never polls writable; its write fails
// at once, and the send reports that as it always has.
bool refuses_writes(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    return flags >= 0 && (flags & O_ACCMODE) == O_RDONLY;
}

}  // namespace

int LinkWriter::open() {
    const uint32_t now = fd_generation(shared_);
    const int from = relaxed_load(shared_);
    if (now != generation_ || from != from_) stalled_ = false;
    generation_ = now;
    from_ = from;
    return fd_reopen_write(shared_);
}

LinkWait LinkWriter::wait_writable(int fd) {
    if (refuses_writes(fd)) return LinkWait::kReady;
    if (stalled_) {
        if (!writable(fd, 0)) return LinkWait::kStalled;
        stalled_ = false;
        ATLOGI(atcmd::kLogState, kTagManage, "%s takes bytes again, %llu records dropped on it so far", name_,
               static_cast<unsigned long long>(dropped_));
        return LinkWait::kReady;
    }
    const int64_t deadline = now_ms() + kStallAfterMs;
    for (;;) {
        if (writable(fd, kPollSliceMs)) return LinkWait::kReady;
        if (fd_generation(shared_) != generation_ || relaxed_load(shared_) != from_)
            return LinkWait::kGone;
        if (now_ms() >= deadline) {
            stalled_ = true;
            return LinkWait::kStalled;
        }
    }
}

bool LinkWriter::ready(const WriteEnd &end, const char *text) {
    const LinkWait wait = wait_writable(end.fd());
    if (wait == LinkWait::kReady) return true;
    drop(wait, text);
    return false;
}

void LinkWriter::drop(LinkWait why, const char *text) {
    ++dropped_;
    ATLOGE_FN(kTransmitFn, atcmd::kLogAlways, kTagManage, "%s %s, record dropped (%llu on this link): %s", name_,
              why == LinkWait::kGone ? "went away" : "takes nothing",
              static_cast<unsigned long long>(dropped_), text);
}

WriteEnd::~WriteEnd() {
    if (fd_ >= 0) close(fd_);
}

}  // namespace atcmd
