// Shortening the waits of core/delays.h from a text, for harnesses that load
// the module whole and so cannot write g_delays themselves.
#include "core/delays.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <limits>

#include "core/log.h"
#include "core/relaxed.h"
#include "platform/delay_overrides.h"

namespace atcmd {
namespace {

// The overrides' log lines belong to the open that applies them.
constexpr char kOpen[] = "atcmdprocess_open";

struct NamedDelay {
    const char *name;
    useconds_t Delays::*field;
};

constexpr NamedDelay kNamedDelays[] = {
    {"heartbeat_period", &Delays::heartbeat_period},
    {"daemon_exit_ack", &Delays::daemon_exit_ack},
    {"uart_retry_pause", &Delays::uart_retry_pause},
    {"vuart_recheck_pause", &Delays::vuart_recheck_pause},
};

useconds_t *delay_named(const char *name, size_t len) {
    for (const NamedDelay &d : kNamedDelays)
        if (strlen(d.name) == len && memcmp(d.name, name, len) == 0) return &(g_delays.*d.field);
    return nullptr;
}

// Digits only: strtoul would take a sign, blanks and a wrapped "-1". Zero is
// refused too: no wait of the module is meant to be skipped.
bool parse_usec(const char *p, const char *end, useconds_t *out) {
    const uint64_t max = std::numeric_limits<useconds_t>::max();
    uint64_t v = 0;
    if (p == end) return false;
    for (; p < end; ++p) {
        if (*p < '0' || *p > '9') return false;
        v = v * 10 + static_cast<uint64_t>(*p - '0');
        if (v > max) return false;
    }
    *out = static_cast<useconds_t>(v);
    return v > 0;
}

// Appends the entry [p, end) to the comma-separated list (size n), cut
// short when it does not fit: the list only goes to a log line.
void append(char *list, size_t n, const char *p, const char *end) {
    const size_t used = strlen(list);
    snprintf(list + used, n - used, "%s%.*s", used > 0 ? "," : "", static_cast<int>(end - p), p);
}

}  // namespace

void apply_delay_overrides(const char *text) {
    char set[256] = "", ignored[256] = "";
    for (const char *p = text;;) {
        const char *end = strchr(p, ',');
        if (end == nullptr) end = p + strlen(p);
        const char *eq = static_cast<const char *>(memchr(p, '=', static_cast<size_t>(end - p)));
        useconds_t *target = eq != nullptr ? delay_named(p, static_cast<size_t>(eq - p)) : nullptr;
        useconds_t usec = 0;
        if (target != nullptr && parse_usec(eq + 1, end, &usec)) {
            *target = usec;
            append(set, sizeof set, p, end);
        } else if (end > p) {
            append(ignored, sizeof ignored, p, end);
        }
        if (*end == '\0') break;
        p = end + 1;
    }
    if (ignored[0] != '\0')
        ATLOGE_FN(kOpen, kLogNotice, kTagHal,
                  "wait overrides ignored, not a wait's name=microseconds above 0: %s", ignored);
    if (set[0] != '\0')
        ATLOGI_FN(kOpen, kLogNotice, kTagHal, "waits overridden, microseconds: %s", set);
}

void load_delay_overrides() {
    static bool s_loaded = false;
    if (take(&s_loaded, true)) return;
    const char *text = delay_overrides();
    if (text != nullptr) apply_delay_overrides(text);
}

}  // namespace atcmd
