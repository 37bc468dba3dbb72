// Host file-system root: ATCMD_SYSROOT, read at every use so that a test can
// point a fresh process at its own tree. Unset or empty means the real root,
// for driving a real accessory from a PC: /dev and /sys stay the real ones,
// but /sdcard (the log) is moved into the user's state directory, since a
// PC's /sdcard is nobody's to create, least of all when running as root.
#include "platform/sysroot.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "platform/host/state_dir.h"

namespace atcmd {

const char *resolve_path(const char *abs, char *out, size_t n) {
    const char *root = getenv("ATCMD_SYSROOT");
    if (root != nullptr && root[0] != '\0') {
        snprintf(out, n, "%s%s", root, abs);
        return out;
    }
    static const char kSdcard[] = "/sdcard";
    const size_t k = sizeof kSdcard - 1;
    if (strncmp(abs, kSdcard, k) != 0 || (abs[k] != '\0' && abs[k] != '/')) {
        snprintf(out, n, "%s", abs);
        return out;
    }
    // No state directory: an empty path, which every file call refuses,
    // rather than the real /sdcard.
    char state[PATH_MAX];
    if (user_state_dir(state, sizeof state) == nullptr) {
        if (n > 0) out[0] = '\0';
    } else {
        snprintf(out, n, "%s%s", state, abs);
    }
    return out;
}

}  // namespace atcmd
