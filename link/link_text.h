// Log texts chosen at run time from a link's description (the UART and the
// virtual UART share one implementation but word a few messages differently).
// A printf format that is not a literal loses the compiler's argument check,
// so each description pins its texts' conversions with has_conversions in a
// static_assert next to it.
#ifndef ATCMD_LINK_LINK_TEXT_H
#define ATCMD_LINK_LINK_TEXT_H

#include <stdio.h>

#include "core/log.h"

namespace atcmd {

// True when the printf conversions of fmt, in order, are the letters of want
// ("%s is %zu" has "su"; length modifiers are skipped, "%%" is no conversion).
constexpr bool has_conversions(const char *fmt, const char *want) {
    for (; *fmt != '\0'; ++fmt) {
        if (*fmt != '%') continue;
        ++fmt;
        if (*fmt == '%') continue;
        while (*fmt == 'z' || *fmt == 'l' || *fmt == 'h') ++fmt;
        if (*fmt != *want) return false;
        ++want;
    }
    return *want == '\0';
}

// The longest message a link text yields: the receive threads log a whole
// receive buffer (1024 bytes) inside their texts.
constexpr size_t kLinkTextMax = 1280;

}  // namespace atcmd

// ATLOG for a run-time text that takes at least one argument; the prefix
// still names the calling function and line. Texts without arguments go
// through ATLOG(level, prio, tag, "%s", text) instead.
#define ATLOG_TEXT(level, prio, tag, text, ...)                                  \
    do {                                                                         \
        if (log_level >= (level)) {                                              \
            char atlog_text_[atcmd::kLinkTextMax];                               \
            _Pragma("GCC diagnostic push")                                       \
            _Pragma("GCC diagnostic ignored \"-Wformat-nonliteral\"")            \
            snprintf(atlog_text_, sizeof atlog_text_, text, __VA_ARGS__);        \
            _Pragma("GCC diagnostic pop")                                        \
            ATLOG(level, prio, tag, "%s", atlog_text_);                          \
        }                                                                        \
    } while (0)

#endif
