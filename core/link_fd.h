// The link descriptors that the service's threads share (g_uart_fd,
// g_vuart_fd, g_fifo_rx_fd, g_fifo_tx_fd, epfd_socket) keep their exported
// meaning: the number while open, the closed value (-1, or 0 for
// epfd_socket) otherwise. What they may no longer do is name a number after
// its close: any open in the hosting process takes the lowest free number,
// and a write or read on it would land in somebody else's file.
//
// The rule, for every shared descriptor (README, "Threads and descriptors",
// has the table of who opens, uses and closes each one):
// - an opener publishes a descriptor only once it is fully set up;
// - a user never keeps the number: it takes a duplicate (fd_dup, OwnFd,
//   fd_reopen_write) or runs its call inside with_fd;
// - a closer retires: the global reads closed first, under the same lock
//   that the duplicating users take, and only then is the number closed.
// So no user can get hold of a number that is about to be closed, and a
// user's own duplicate keeps the old file (a gone tty, a FIFO) until the
// user lets it go. The WiFi receive thread is the one user that works on
// the numbers themselves (its epoll registration names fifo_rx); its
// descriptors are retired only after it has been ended and joined.
#ifndef ATCMD_CORE_LINK_FD_H
#define ATCMD_CORE_LINK_FD_H

#include <stdint.h>

namespace atcmd {

// A descriptor just opened and set up becomes the link's.
void fd_publish(int *shared, int fd);

// The link's descriptor is retired: *shared reads `closed` from now on and
// the number is closed after that. Returns close's result, or 0 when the
// link was already closed (a value below `first_open`).
int fd_retire(int *shared, int closed = -1, int first_open = 0);

// For a close that must not free the number while a thread may still work
// on it (shut-down, beside the WiFi receive thread): the number is pointed
// at /dev/null and left so. The file it named is closed all the same.
int fd_retire_parked(int *shared, int closed = -1, int first_open = 0);

// A duplicate of the descriptor *shared names now, or -1 when it is closed.
// The caller closes it.
int fd_dup(const int *shared, int first_open = 0);

// A write-only, non-blocking description of the file *shared names now
// (opened anew through /proc/self/fd, so that the flag does not reach the
// link's readers); a blocking duplicate where that open fails or where the
// descriptor is not open for writing (its writes keep failing); -1 when
// closed. The caller closes it.
int fd_reopen_write(const int *shared);

// Advances at every publish and retire of the link whose global this is: a
// thread that holds a duplicate takes a new one once this has moved.
uint32_t fd_generation(const int *shared);

// Runs f(fd) on the number itself while it cannot be retired, for calls
// that need the number and not a duplicate (epoll_ctl with EPOLL_CTL_DEL).
// False, without calling f, when *shared is closed.
bool with_fd(const int *shared, int first_open, void (*f)(int fd, void *arg), void *arg);

// A thread's own duplicate of a shared descriptor, taken again when the
// link changed. For threads that leave by returning, so that the duplicate
// is closed on the way out.
class OwnFd {
public:
    explicit OwnFd(const int *shared, int first_open = 0)
        : shared_(shared), first_open_(first_open) {}
    ~OwnFd() { reset(); }
    OwnFd(const OwnFd &) = delete;
    OwnFd &operator=(const OwnFd &) = delete;

    // The duplicate of what *shared names now; -1 when it is closed.
    int get();
    void reset();

private:
    const int *shared_;
    int first_open_;
    int own_ = -1;
    int from_ = -1;  // the number it was taken from
    uint32_t generation_ = 0;
};

}  // namespace atcmd

#endif
