// One lock for every shared link descriptor: it is held only to read a
// number and duplicate it, or to take a number out of its global, never
// across a blocking call, so one lock for all links costs nothing.
#include "core/link_fd.h"

#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <unistd.h>

#include "core/lock_guard.h"
#include "core/relaxed.h"

namespace atcmd {
namespace {

pthread_mutex_t g_fd_lock = PTHREAD_MUTEX_INITIALIZER;

// Each link's count of publishes and retires, kept by the address of its
// global; a handful of links, so a short table searched under the lock.
struct Generation {
    const int *shared;
    uint32_t count;
};
Generation g_generations[8];
size_t g_generation_count;

Generation *generation_locked(const int *shared) {
    for (size_t i = 0; i < g_generation_count; ++i)
        if (g_generations[i].shared == shared) return &g_generations[i];
    if (g_generation_count == sizeof g_generations / sizeof g_generations[0]) return nullptr;
    g_generations[g_generation_count] = {shared, 0};
    return &g_generations[g_generation_count++];
}

void advance_locked(const int *shared) {
    if (Generation *g = generation_locked(shared)) ++g->count;
}

int take_locked(int *shared, int closed, int first_open) {
    MutexGuard lock(&g_fd_lock);
    const int fd = relaxed_load(shared);
    if (fd < first_open) return -1;
    relaxed_store(shared, closed);
    advance_locked(shared);
    return fd;
}

// A file that takes nothing and gives end-of-file: the read end of a pipe
// whose write end is closed. No path is needed, so it exists on any host.
int harmless_file() {
    int p[2];
    if (pipe2(p, O_CLOEXEC) != 0) return -1;
    close(p[1]);
    return p[0];
}

}  // namespace

void fd_publish(int *shared, int fd) {
    MutexGuard lock(&g_fd_lock);
    publish(shared, fd);
    advance_locked(shared);
}

int fd_retire(int *shared, int closed, int first_open) {
    const int fd = take_locked(shared, closed, first_open);
    return fd < 0 ? 0 : close(fd);
}

int fd_retire_parked(int *shared, int closed, int first_open) {
    const int fd = take_locked(shared, closed, first_open);
    if (fd < 0) return 0;
    const int parked = harmless_file();
    // dup2 closes the file the number named and reuses the number at once.
    if (parked < 0) return close(fd);
    const int r = dup2(parked, fd) < 0 ? close(fd) : 0;
    close(parked);
    return r;
}

int fd_dup(const int *shared, int first_open) {
    MutexGuard lock(&g_fd_lock);
    const int fd = relaxed_load(shared);
    return fd < first_open ? -1 : fcntl(fd, F_DUPFD_CLOEXEC, 0);
}

// The open runs outside the lock, on a duplicate taken under it: opening a
// tty may wait for that tty's own lock (a close draining its output, say),
// and the signal thread must never wait behind it to retire a link.
int fd_reopen_write(const int *shared) {
    const int dup = fd_dup(shared);
    if (dup < 0) return -1;
    // A descriptor not open for writing keeps refusing writes.
    const int flags = fcntl(dup, F_GETFL);
    if (flags < 0 || (flags & O_ACCMODE) == O_RDONLY) return dup;
    // The process's own view of its descriptors, not a file of the machine:
    // this path is not placed under ATCMD_SYSROOT.
    char path[32];
    snprintf(path, sizeof path, "/proc/self/fd/%d", dup);
    const int own = open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (own < 0) return dup;
    close(dup);
    return own;
}

uint32_t fd_generation(const int *shared) {
    MutexGuard lock(&g_fd_lock);
    const Generation *g = generation_locked(shared);
    return g != nullptr ? g->count : 0;
}

bool with_fd(const int *shared, int first_open, void (*f)(int fd, void *arg), void *arg) {
    MutexGuard lock(&g_fd_lock);
    const int fd = relaxed_load(shared);
    if (fd < first_open) return false;
    f(fd, arg);
    return true;
}

int OwnFd::get() {
    const uint32_t now = fd_generation(shared_);
    // A number stored straight into the global, as a test or a client may
    // do, is noticed too.
    if (own_ >= 0 && now == generation_ && relaxed_load(shared_) == from_) return own_;
    reset();
    generation_ = now;
    from_ = relaxed_load(shared_);
    own_ = fd_dup(shared_, first_open_);
    return own_;
}

void OwnFd::reset() {
    if (own_ >= 0) close(own_);
    own_ = -1;
}

}  // namespace atcmd
