// Everything that crossed the wire (and what the simulator noticed), with the
// time it happened, so a failing scenario can be read back in order.
#ifndef ATSIM_TRANSCRIPT_H
#define ATSIM_TRANSCRIPT_H

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace atsim {

struct Event {
    double t;          // seconds since the transcript was created
    std::string who;   // "mcu>phone", "phone>mcu", "daemon>phone", "phone>daemon",
                       // "daemon-status" or "note"
    std::string text;  // as sent, "\r\n" included
};

class Transcript {
public:
    using Event = atsim::Event;

    Transcript();

    void add(std::string who, std::string text);
    std::vector<Event> events() const;
    // One line per event: "12.345 phone>mcu AT+SN?#13&1\r\n", control bytes escaped.
    std::string dump() const;
    // Called for every event after it is stored, outside every simulator lock,
    // so the listener may print or look at the transcript.
    void set_listener(std::function<void(const Event &)> listener);
    // Off: events still reach the listener but are no longer stored, so a
    // long run at thousands of lines a second does not grow without bound.
    // On by default.
    void set_keep(bool keep);

private:
    const std::chrono::steady_clock::time_point start_;
    mutable std::mutex mu_;
    std::vector<Event> events_;
    std::function<void(const Event &)> listener_;
    bool keep_ = true;
};

// "\r" and "\n" as the two characters "\\r" and "\\n", other control bytes as "\\xNN".
std::string escape(const std::string &text);

}  // namespace atsim

#endif
