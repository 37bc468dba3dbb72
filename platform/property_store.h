// Where the host property store lives. The module's property_get/property_set
// and the atcmd-getprop/atcmd-setprop tools share this one rule, so a shell
// always looks at the store the module uses.
#ifndef ATCMD_PLATFORM_PROPERTY_STORE_H
#define ATCMD_PLATFORM_PROPERTY_STORE_H

#include <limits.h>
#include <stddef.h>
#include <stdlib.h>
#include <sys/stat.h>

namespace atcmd {

// Where the store is under a file-system root (ATCMD_SYSROOT): Android's own
// place for the property area.
inline constexpr char kRootPropertyArea[] = "/dev/__properties__";

// Writes the store's directory into buf (size n) and returns buf, or nullptr
// when it cannot be named: $ATCMD_PROPERTY_DIR if set and non-empty, else
// $ATCMD_SYSROOT/dev/__properties__ if ATCMD_SYSROOT is set and non-empty,
// else <state>/properties in the user's state directory (user_state_dir() in
// platform/host/state_dir.h: $XDG_STATE_HOME/atcmd or ~/.local/state/atcmd).
// The directory may not exist yet: the first property_set creates it.
__attribute__((visibility("hidden"))) const char *property_dir(char *buf, size_t n);

// For the tools' --root DIR: makes DIR, as an absolute path, the root the
// store is found under, exactly as ATCMD_SYSROOT=DIR does for the module
// (ATCMD_PROPERTY_DIR still wins). False when DIR is not a directory.
inline bool use_sysroot(const char *dir) {
    char real[PATH_MAX];
    struct stat st;
    if (realpath(dir, real) == nullptr || stat(real, &st) != 0 || !S_ISDIR(st.st_mode))
        return false;
    return setenv("ATCMD_SYSROOT", real, 1) == 0;
}

}  // namespace atcmd

#endif
