#include "sim/transcript.h"

#include <cstdio>

namespace atsim {

Transcript::Transcript() : start_(std::chrono::steady_clock::now()) {}

void Transcript::add(std::string who, std::string text) {
    std::chrono::duration<double> since = std::chrono::steady_clock::now() - start_;
    Event e{since.count(), std::move(who), std::move(text)};
    std::function<void(const Event &)> listener;
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (keep_) events_.push_back(e);
        listener = listener_;
    }
    if (listener) listener(e);
}

std::vector<Event> Transcript::events() const {
    std::lock_guard<std::mutex> lk(mu_);
    return events_;
}

std::string Transcript::dump() const {
    std::string out;
    for (const Event &e : events()) {
        char stamp[32];
        std::snprintf(stamp, sizeof stamp, "%.3f ", e.t);
        out += stamp + e.who + " " + escape(e.text) + "\n";
    }
    return out;
}

void Transcript::set_listener(std::function<void(const Event &)> listener) {
    std::lock_guard<std::mutex> lk(mu_);
    listener_ = std::move(listener);
}

void Transcript::set_keep(bool keep) {
    std::lock_guard<std::mutex> lk(mu_);
    keep_ = keep;
}

std::string escape(const std::string &text) {
    std::string out;
    for (unsigned char c : text) {
        if (c == '\r') {
            out += "\\r";
        } else if (c == '\n') {
            out += "\\n";
        } else if (c < 0x20 || c >= 0x7f) {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02x", c);
            out += hex;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

}  // namespace atsim
