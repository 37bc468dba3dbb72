// Repeatable streams of protocol lines, for loads that must be the same on
// every run: a busy accessory's typical traffic, and a worst case made of
// the vocabulary's last rows (the ones a linear name lookup reaches last).
#ifndef ATSIM_TRAFFIC_H
#define ATSIM_TRAFFIC_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace atsim {

// Replies to the phone's queries, unsolicited reports and the WiFi peer's
// commands, each a whole line with "\r\n", drawn with a fixed seed.
std::vector<std::string> typical_lines(uint32_t seed, size_t count);

// Responses and commands of the table's last rows only.
std::vector<std::string> last_row_lines(uint32_t seed, size_t count);

// Whole lines packed into receive batches of at most max_bytes each (a
// longer line gets a batch of its own), as a serial read hands them over.
std::vector<std::string> pack_batches(const std::vector<std::string> &lines, size_t max_bytes);

}  // namespace atsim

#endif
