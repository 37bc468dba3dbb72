// What the accessory answers to the phone's queries, by name with its '+'.
#ifndef ATSIM_IDENTITY_H
#define ATSIM_IDENTITY_H

#include <map>
#include <string>

namespace atsim {

struct Identity {
    std::map<std::string, std::string> values;  // "+SN" -> "KV5816A00123"

    // A healthy accessory on USB with a charged battery.
    static Identity defaults();
};

}  // namespace atsim

#endif
