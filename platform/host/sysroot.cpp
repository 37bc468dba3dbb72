// Host file-system root: ATCMD_SYSROOT, read at every use so that a test can
// point a fresh process at its own tree. Unset or empty means the real root.
#include "platform/sysroot.h"

#include <stdio.h>
#include <stdlib.h>

namespace atcmd {

const char *resolve_path(const char *abs, char *out, size_t n) {
    const char *root = getenv("ATCMD_SYSROOT");
    if (root == nullptr) root = "";
    snprintf(out, n, "%s%s", root, abs);
    return out;
}

}  // namespace atcmd
