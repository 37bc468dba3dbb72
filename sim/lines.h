// Lines as the far end receives them: bytes are split at '\n' (each line
// keeps its "\r\n"), and the lines are kept for a test thread to read or
// wait for.
#ifndef ATSIM_LINES_H
#define ATSIM_LINES_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace atsim {

// Owned by one reader thread; a line split across reads is joined here.
class LineSplitter {
public:
    std::vector<std::string> feed(const char *data, size_t n);
    void reset() { partial_.clear(); }

private:
    std::string partial_;
};

class ReceivedLines {
public:
    void add(const std::string &line);
    std::vector<std::string> lines() const;
    void clear();
    // The predicate runs outside the lock, so it may call back into the owner.
    bool wait_for_line(const std::function<bool(const std::string &)> &pred,
                       std::chrono::milliseconds timeout) const;
    bool wait_for_count(size_t n, std::chrono::milliseconds timeout) const;

    // How many lines came so far: a mark for the two calls below.
    size_t size() const;
    // The lines that came after the first `from`.
    std::vector<std::string> since(size_t from) const;
    // Waits until done(lines after the first `from`) holds; false at the
    // deadline. done runs under the lock, so it must not call back.
    bool wait_since(size_t from, const std::function<bool(const std::vector<std::string> &)> &done,
                    std::chrono::milliseconds timeout) const;

private:
    mutable std::mutex mu_;
    mutable std::condition_variable cv_;
    std::vector<std::string> lines_;
    uint64_t generation_ = 0;  // bumped by clear(), so a waiter starts over
};

}  // namespace atsim

#endif
