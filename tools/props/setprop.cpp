// atcmd-setprop: the host's setprop. It compiles in the module's own store
// code, so the module sees what it sets, with the module's rules.
#include <cutils/properties.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include "platform/property_errors.h"
#include "platform/property_store.h"
#include "tools/props/options.h"

namespace {

const char kUsage[] =
    "usage: atcmd-setprop [--root DIR] KEY VALUE\n"
    "  KEY is 1 to 255 characters, without '/' and not starting with '.';\n"
    "  VALUE at most 91; a ro.* key can be set once.\n"
    "  --root DIR  the store under DIR, as with ATCMD_SYSROOT=DIR\n"
    "The store is $ATCMD_PROPERTY_DIR, else $ATCMD_SYSROOT/dev/__properties__,\n"
    "else $XDG_STATE_HOME/atcmd/properties (~/.local/state/atcmd/properties),\n"
    "made on the first set.\n"
    "Exit status: 0 set, 1 refused (with the reason), 2 usage error.\n";

}  // namespace

int main(int argc, char **argv) {
    int status = 0;
    const int i = atcmd_props::read_options(argc, argv, "atcmd-setprop", kUsage, &status);
    if (i < 0) return status;
    if (argc - i != 2 || argv[i][0] == '-') {
        fputs(kUsage, stderr);
        return 2;
    }
    if (int rc = property_set(argv[i], argv[i + 1])) {
        char dir[PATH_MAX], why[256];
        const char *where = atcmd::property_dir(dir, sizeof dir);
        fprintf(stderr, "atcmd-setprop: cannot set %s: %s (store: %s)\n", argv[i],
                atcmd::property_set_reason(rc, why, sizeof why),
                where != nullptr ? where : "none: no home directory or the path is too long");
        return 1;
    }
    return 0;
}
