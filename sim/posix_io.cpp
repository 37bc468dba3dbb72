#include "sim/posix_io.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace atsim {

WakePipe::WakePipe() {
    if (pipe2(fds_, O_CLOEXEC | O_NONBLOCK) != 0) fds_[0] = fds_[1] = -1;
}

WakePipe::~WakePipe() {
    close_fd(&fds_[0]);
    close_fd(&fds_[1]);
}

void WakePipe::wake() {
    char c = 1;
    ssize_t r = write(fds_[1], &c, 1);
    (void)r;  // a full pipe already holds a wake-up
}

void WakePipe::drain() {
    char buf[64];
    while (read(fds_[0], buf, sizeof buf) > 0) {
    }
}

bool write_all(int fd, const char *data, size_t n, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (n > 0) {
        ssize_t w = write(fd, data, n);
        if (w > 0) {
            data += w;
            n -= static_cast<size_t>(w);
            continue;
        }
        if (w < 0 && errno == EINTR) continue;
        if (w < 0 && errno != EAGAIN) return false;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                        deadline - std::chrono::steady_clock::now())
                        .count();
        if (left <= 0) return false;
        pollfd p{fd, POLLOUT, 0};
        poll(&p, 1, static_cast<int>(std::min<long long>(left, 100)));
    }
    return true;
}

void close_fd(int *fd) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
}

FileStamp file_stamp(const std::string &path) {
    struct stat st;
    if (path.empty() || stat(path.c_str(), &st) != 0) return {};
    return {static_cast<uint64_t>(st.st_ino),
            static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec};
}

void name_thread(const char *name) { pthread_setname_np(pthread_self(), name); }

}  // namespace atsim
