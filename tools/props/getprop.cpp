// atcmd-getprop: the host's getprop. It compiles in the module's own store
// code, so it reads exactly the properties the module reads.
#include <cutils/properties.h>
#include <dirent.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/property_store.h"
#include "tools/props/options.h"

namespace {

const char kUsage[] =
    "usage: atcmd-getprop [--root DIR] [KEY [DEFAULT]]\n"
    "  without KEY: list every property as [key]: [value], sorted by key\n"
    "  with KEY: print its value, or DEFAULT (empty without one)\n"
    "  --root DIR  the store under DIR, as with ATCMD_SYSROOT=DIR\n"
    "The store is $ATCMD_PROPERTY_DIR, else $ATCMD_SYSROOT/dev/__properties__,\n"
    "else $XDG_STATE_HOME/atcmd/properties (~/.local/state/atcmd/properties).\n";

void list() {
    char dir[PATH_MAX];
    std::vector<std::string> keys;
    DIR *d = atcmd::property_dir(dir, sizeof dir) != nullptr ? opendir(dir) : nullptr;
    if (d != nullptr) {
        // Dot files are writers' temporaries, never keys.
        while (const dirent *e = readdir(d))
            if (e->d_name[0] != '.') keys.emplace_back(e->d_name);
        closedir(d);
    }
    std::sort(keys.begin(), keys.end());
    char value[PROPERTY_VALUE_MAX];
    for (const std::string &key : keys) {
        property_get(key.c_str(), value, "");
        printf("[%s]: [%s]\n", key.c_str(), value);
    }
}

}  // namespace

int main(int argc, char **argv) {
    int status = 0;
    const int i = atcmd_props::read_options(argc, argv, "atcmd-getprop", kUsage, &status);
    if (i < 0) return status;
    int args = argc - i;
    if (args > 2 || (args > 0 && argv[i][0] == '-')) {
        fputs(kUsage, stderr);
        return 2;
    }
    if (args == 0) {
        list();
        return 0;
    }
    char value[PROPERTY_VALUE_MAX];
    property_get(argv[i], value, args == 2 ? argv[i + 1] : "");
    printf("%s\n", value);
    return 0;
}
