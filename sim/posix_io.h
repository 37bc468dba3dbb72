// Small descriptor helpers shared by the simulator's I/O threads.
#ifndef ATSIM_POSIX_IO_H
#define ATSIM_POSIX_IO_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

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

// Which write of a file replaced by rename() a path names now: a writer that
// renames a new file over the old one changes it even when the content stays
// the same. All zero while the path does not exist.
struct FileStamp {
    uint64_t inode = 0;
    int64_t mtime_ns = 0;
    bool operator==(const FileStamp &o) const { return inode == o.inode && mtime_ns == o.mtime_ns; }
    bool operator!=(const FileStamp &o) const { return !(*this == o); }
};
FileStamp file_stamp(const std::string &path);

// Names the calling thread, so a hung test's thread list says who is who.
void name_thread(const char *name);

}  // namespace atsim

#endif
