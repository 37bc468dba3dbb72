// The options atcmd-getprop and atcmd-setprop share: --help, and --root DIR
// (or --root=DIR) for the store under DIR, as the console and the simulator
// take it.
#ifndef ATCMD_TOOLS_PROPS_OPTIONS_H
#define ATCMD_TOOLS_PROPS_OPTIONS_H

#include <stdio.h>
#include <string.h>

#include "platform/property_store.h"

namespace atcmd_props {

// Reads the leading options and returns the index of the first other
// argument, or -1 when the program is done: *status then holds its exit
// status (0 after --help, 2 for a root that is no directory).
inline int read_options(int argc, char **argv, const char *tool, const char *usage, int *status) {
    int i = 1;
    for (; i < argc && argv[i][0] == '-'; ++i) {
        if (strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0) {
            fputs(usage, stdout);
            *status = 0;
            return -1;
        }
        const char *root = strncmp(argv[i], "--root=", 7) == 0 ? argv[i] + 7
                           : strcmp(argv[i], "--root") == 0 && i + 1 < argc ? argv[++i]
                                                                            : nullptr;
        if (root == nullptr) break;
        if (!atcmd::use_sysroot(root)) {
            fprintf(stderr, "%s: --root %s is not a directory\n", tool, root);
            *status = 2;
            return -1;
        }
    }
    return i;
}

}  // namespace atcmd_props

#endif
