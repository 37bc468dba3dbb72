// Sends at a steady rate, as an accessory's firmware emits reports from a
// timer.
#ifndef ATSIM_PACER_H
#define ATSIM_PACER_H

#include <chrono>
#include <cstdint>

namespace atsim {

class Pacer {
public:
    // Slots come on an absolute schedule, so that the average rate holds
    // when the sender is delayed (a busy machine). A delayed sender makes up
    // its backlog at no more than max_burst_rate slots a second (0: at
    // once), as a firmware whose link is only so much faster than its reports.
    explicit Pacer(double per_second, double max_burst_rate = 0);

    // Sleeps until the next slot; the first returns at once.
    void wait();

    uint64_t slots() const { return slots_; }
    // How far behind its slot a wait() returned, at worst.
    std::chrono::microseconds worst_lateness() const { return worst_; }
    // Slots taken per second, from the first to the last.
    double achieved_rate() const;

private:
    using Clock = std::chrono::steady_clock;
    const Clock::duration period_;
    const Clock::duration min_gap_;
    Clock::time_point first_, last_, next_;
    uint64_t slots_ = 0;
    std::chrono::microseconds worst_{0};
};

}  // namespace atsim

#endif
