// Why the host's property_set said no. property_set returns 0 or one of the
// negative results below; this header needs no module code, so a program that
// reaches the module only through dlopen (the host console) can explain a
// result as well as the tools that compile the store in.
//
// Android's own property_set only ever says -1; callers in the module test for
// "not 0" and stay correct on both.
#ifndef ATCMD_PLATFORM_PROPERTY_ERRORS_H
#define ATCMD_PLATFORM_PROPERTY_ERRORS_H

#include <stdio.h>
#include <string.h>

namespace atcmd {

// Below -4095, so that no negative errno can take one of these values.
inline constexpr int kPropertyBadKey = -4096;        // empty, over NAME_MAX, '/', leading '.'
inline constexpr int kPropertyValueTooLong = -4097;  // over PROPERTY_VALUE_MAX - 1 characters
inline constexpr int kPropertyReadOnly = -4098;      // a ro.* key that already has a value
// Any other negative result is -errno of the store operation that failed: the
// store's directory could not be made or written (-ENOTDIR also when the store
// in the user's state directory is a symlink, -EPERM when another user owns it).

namespace detail {
// strerror_r comes in a GNU and an XSI form depending on the feature macros;
// these two overloads take either result.
inline const char *errno_text(const char *gnu, const char *) { return gnu; }
inline const char *errno_text(int xsi, const char *buf) { return xsi == 0 ? buf : "unknown error"; }
}  // namespace detail

// Writes a short reason for property_set's result rc into buf (size n) and
// returns buf. 0 reads "set".
inline const char *property_set_reason(int rc, char *buf, size_t n) {
    const char *fixed = rc == 0                       ? "set"
                        : rc == kPropertyBadKey       ? "the key must be 1 to 255 characters, "
                                                        "without '/' and not starting with '.'"
                        : rc == kPropertyValueTooLong ? "the value is longer than 91 characters"
                        : rc == kPropertyReadOnly
                            ? "ro.* properties are write-once and this one is already set"
                            : nullptr;
    if (fixed != nullptr) {
        snprintf(buf, n, "%s", fixed);
    } else if (rc < 0 && rc > kPropertyBadKey) {
        char tmp[128];
        snprintf(buf, n, "the store cannot be written: %s",
                 detail::errno_text(strerror_r(-rc, tmp, sizeof tmp), tmp));
    } else {
        snprintf(buf, n, "unexpected result %d", rc);
    }
    return buf;
}

}  // namespace atcmd

#endif
