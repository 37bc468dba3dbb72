#include "sim/responder.h"

#include <cctype>

namespace atsim {

namespace {

bool all_digits(const std::string &s) {
    if (s.empty()) return false;
    for (unsigned char c : s)
        if (!std::isdigit(c)) return false;
    return true;
}

// A value may itself hold '#', so only a last "#digits&digits" is the tail.
std::string cut_tail(std::string *body) {
    size_t hash = body->rfind('#');
    if (hash == std::string::npos) return "";
    std::string tail = body->substr(hash);
    size_t amp = tail.find('&');
    if (amp == std::string::npos || !all_digits(tail.substr(1, amp - 1)) ||
        !all_digits(tail.substr(amp + 1)))
        return "";
    body->erase(hash);
    return tail;
}

}  // namespace

bool parse_command(const std::string &line, Command *out) {
    std::string body = line;
    while (!body.empty() && (body.back() == '\n' || body.back() == '\r')) body.pop_back();
    if (body.compare(0, 3, "AT+") != 0) return false;
    body.erase(0, 2);
    Command c;
    c.tail = cut_tail(&body);
    size_t eq = body.find('=');
    if (eq != std::string::npos) {
        c.kind = '=';
        c.value = body.substr(eq + 1);
        body.erase(eq);
    } else if (!body.empty() && body.back() == '?') {
        c.kind = '?';
        body.pop_back();
    }
    for (char &ch : body) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    c.name = body;
    *out = c;
    return true;
}

std::string answer_for(const Identity &id, const std::set<std::string> &silenced,
                       const std::string &line) {
    Command c;
    if (!parse_command(line, &c) || silenced.count(c.name) != 0) return "";
    if (c.kind == '?') {
        auto it = id.values.find(c.name);
        if (it == id.values.end()) return "";
        return c.name + "=" + it->second + c.tail + "\r\n";
    }
    // Without a sequence number the phone waits for nothing, so nothing is said.
    if (c.tail.empty()) return "";
    return "+OK" + c.tail + "\r\n";
}

}  // namespace atsim
