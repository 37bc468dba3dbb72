#include "sim/pacer.h"

#include <algorithm>
#include <thread>

namespace atsim {

namespace {

std::chrono::steady_clock::duration period_of(double per_second) {
    if (per_second <= 0) return std::chrono::steady_clock::duration::zero();
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(1.0 / per_second));
}

}  // namespace

Pacer::Pacer(double per_second, double max_burst_rate)
    : period_(period_of(per_second)), min_gap_(period_of(max_burst_rate)) {}

void Pacer::wait() {
    if (slots_ == 0) {
        next_ = first_ = last_ = Clock::now();
    } else {
        std::this_thread::sleep_until(std::max(next_, last_ + min_gap_));
        last_ = Clock::now();
    }
    worst_ = std::max(worst_, std::chrono::duration_cast<std::chrono::microseconds>(last_ - next_));
    next_ += period_;
    ++slots_;
}

double Pacer::achieved_rate() const {
    const std::chrono::duration<double> run = last_ - first_;
    return slots_ > 1 && run.count() > 0 ? static_cast<double>(slots_ - 1) / run.count() : 0;
}

}  // namespace atsim
