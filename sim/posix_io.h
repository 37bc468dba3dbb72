// Small descriptor helpers shared by the simulator's I/O threads.
#ifndef ATSIM_POSIX_IO_H
#define ATSIM_POSIX_IO_H

#include <chrono>
#include <cstddef>

namespace atsim {

// A pipe whose read end sits in an I/O thread's poll() set: one byte from
// the owner tells the thread to look at its stop flag.
class WakePipe {
public:
    WakePipe();
    ~WakePipe();
    WakePipe(const WakePipe &) = delete;
    WakePipe &operator=(const WakePipe &) = delete;

    bool ok() const { return fds_[0] >= 0; }
    int fd() const { return fds_[0]; }
    void wake();
    void drain();

private:
    int fds_[2] = {-1, -1};
};

// Writes all bytes to a non-blocking descriptor. The phone may not be reading
// (its buffer full, its thread stopped): the write gives up after `limit`
// instead of hanging the test. Usually this is exactly one write().
bool write_all(int fd, const char *data, size_t n,
               std::chrono::milliseconds limit = std::chrono::milliseconds(2000));

void close_fd(int *fd);

// Names the calling thread, so a hung test's thread list says who is who.
void name_thread(const char *name);

}  // namespace atsim

#endif
