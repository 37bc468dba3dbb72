// The user's own state directory on a host, where everything the module keeps
// goes when no ATCMD_SYSROOT gives it a private tree: the property store and
// the stand-in for /sdcard. On a PC the real /dev/__properties__ and /sdcard
// are not ours to create, even when running as root. Header-only, so that a
// program that links no module code (the host console) finds the same place.
#ifndef ATCMD_PLATFORM_HOST_STATE_DIR_H
#define ATCMD_PLATFORM_HOST_STATE_DIR_H

#include <errno.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

namespace atcmd {

// Writes $XDG_STATE_HOME/atcmd into buf (size n), or $HOME/.local/state/atcmd
// when XDG_STATE_HOME is unset, empty or relative (relative ones are invalid
// for XDG and would move with the working directory); HOME comes from the
// password database when unset or empty. Returns buf, or nullptr with errno
// ENOENT when there is no home to be found, ENAMETOOLONG when it does not fit.
// Creates nothing. Safe on any thread (getpwuid_r, no static buffer).
inline const char *user_state_dir(char *buf, size_t n) {
    const char *state = getenv("XDG_STATE_HOME");
    int len;
    if (state != nullptr && state[0] == '/') {
        len = snprintf(buf, n, "%s/atcmd", state);
    } else {
        const char *home = getenv("HOME");
        struct passwd pw, *found = nullptr;
        char pwbuf[4096];
        if ((home == nullptr || home[0] == '\0') &&
            getpwuid_r(getuid(), &pw, pwbuf, sizeof pwbuf, &found) == 0 && found != nullptr)
            home = found->pw_dir;
        if (home == nullptr || home[0] == '\0') {
            errno = ENOENT;
            return nullptr;
        }
        len = snprintf(buf, n, "%s/.local/state/atcmd", home);
    }
    if (len < 0 || static_cast<size_t>(len) >= n) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    return buf;
}

}  // namespace atcmd

#endif
