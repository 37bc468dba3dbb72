// What some replies set off beyond the protocol: answering the accessory's
// questions about the phone, and ending a WiFi cast when the accessory powers
// off during one. Those answers and the cast's tear-down belong to the layers
// above (device/ and hal/), which register them at start-up
// (hal/wiring.cpp); the parsers reach them only through here.
#ifndef ATCMD_PROTOCOL_REPLY_EFFECTS_H
#define ATCMD_PROTOCOL_REPLY_EFFECTS_H

#include <stdint.h>

namespace atcmd {

struct ReplyEffects {
    int (*send_bt_mac)();                  // "AT+BTMAC?" / "AT+BLEMAC?" from the accessory
    int (*send_version)();                 // "AT+VER?" from the accessory
    int (*send_state)();                   // "AT+STATE?" from the accessory
    int (*wifi_stchange)(int32_t state);   // the accessory powers off during a WiFi cast
};

// Registered once before the dispatch thread starts; nullptr unregisters.
void set_reply_effects(const ReplyEffects *effects);

// The registered effects, or nullptr after one log line naming the parser
// whose effect is skipped.
const ReplyEffects *reply_effects(const char *parser);

}  // namespace atcmd

#endif
