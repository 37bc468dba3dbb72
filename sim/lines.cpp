#include "sim/lines.h"

namespace atsim {

std::vector<std::string> LineSplitter::feed(const char *data, size_t n) {
    std::vector<std::string> lines;
    partial_.append(data, n);
    size_t start = 0;
    for (size_t nl; (nl = partial_.find('\n', start)) != std::string::npos; start = nl + 1)
        lines.push_back(partial_.substr(start, nl + 1 - start));
    partial_.erase(0, start);
    return lines;
}

void ReceivedLines::add(const std::string &line) {
    {
        std::lock_guard<std::mutex> lk(mu_);
        lines_.push_back(line);
    }
    cv_.notify_all();
}

std::vector<std::string> ReceivedLines::lines() const {
    std::lock_guard<std::mutex> lk(mu_);
    return lines_;
}

void ReceivedLines::clear() {
    {
        std::lock_guard<std::mutex> lk(mu_);
        lines_.clear();
        ++generation_;
    }
    cv_.notify_all();
}

bool ReceivedLines::wait_for_line(const std::function<bool(const std::string &)> &pred,
                                  std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::unique_lock<std::mutex> lk(mu_);
    uint64_t generation = generation_;
    size_t checked = 0;
    for (;;) {
        if (generation != generation_) {
            generation = generation_;
            checked = 0;
        }
        std::vector<std::string> fresh(lines_.begin() + static_cast<std::ptrdiff_t>(checked),
                                       lines_.end());
        checked = lines_.size();
        lk.unlock();
        for (const std::string &line : fresh)
            if (pred(line)) return true;
        lk.lock();
        if (!cv_.wait_until(lk, deadline, [&] {
                return generation != generation_ || lines_.size() > checked;
            }))
            return false;
    }
}

bool ReceivedLines::wait_for_count(size_t n, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lk(mu_);
    return cv_.wait_for(lk, timeout, [&] { return lines_.size() >= n; });
}

size_t ReceivedLines::size() const {
    std::lock_guard<std::mutex> lk(mu_);
    return lines_.size();
}

std::vector<std::string> ReceivedLines::since(size_t from) const {
    std::lock_guard<std::mutex> lk(mu_);
    if (from >= lines_.size()) return {};
    return {lines_.begin() + static_cast<std::ptrdiff_t>(from), lines_.end()};
}

bool ReceivedLines::wait_since(size_t from,
                               const std::function<bool(const std::vector<std::string> &)> &done,
                               std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lk(mu_);
    size_t checked = SIZE_MAX;
    return cv_.wait_for(lk, timeout, [&] {
        if (lines_.size() == checked) return false;  // woken, but nothing new
        checked = lines_.size();
        std::vector<std::string> fresh;
        if (from < lines_.size())
            fresh.assign(lines_.begin() + static_cast<std::ptrdiff_t>(from), lines_.end());
        return done(fresh);
    });
}

}  // namespace atsim
