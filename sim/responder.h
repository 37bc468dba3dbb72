// How the accessory's firmware answers one line from the phone. Kept apart
// from the pty plumbing so that any channel (serial or WiFi) can answer alike.
#ifndef ATSIM_RESPONDER_H
#define ATSIM_RESPONDER_H

#include <set>
#include <string>

#include "sim/identity.h"

namespace atsim {

// "AT+SN?#13&1\r\n" -> name "+SN", kind '?', value "", tail "#13&1".
struct Command {
    std::string name;   // upper case, with its '+'
    char kind = 0;      // '?' query, '=' set with a value, 0 bare command
    std::string value;  // after '=' for a set
    std::string tail;   // "#seq&flag" exactly as received, or empty
};

// False for anything that is not a command ("AT+" first).
bool parse_command(const std::string &line, Command *out);

// The answer line ("\r\n" included), or empty for no answer: a query gets
// "+NAME=value" + tail if the identity knows the name; any other command
// with a tail gets "+OK" + tail; nothing for silenced names.
std::string answer_for(const Identity &id, const std::set<std::string> &silenced,
                       const std::string &line);

}  // namespace atsim

#endif
