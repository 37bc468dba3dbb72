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

namespace {

const char kUsage[] =
    "usage: atcmd-getprop [KEY [DEFAULT]]\n"
    "  without KEY: list every property as [key]: [value], sorted by key\n"
    "  with KEY: print its value, or DEFAULT (empty without one)\n"
    "The store is $ATCMD_PROPERTY_DIR, else $ATCMD_SYSROOT/dev/__properties__,\n"
    "else $XDG_RUNTIME_DIR/atcmd-properties, else /tmp/atcmd-properties-<uid>.\n";

void list() {
    char dir[PATH_MAX];
    std::vector<std::string> keys;
    DIR *d = atcmd::property_dir(dir, sizeof dir) != nullptr ? opendir(dir) : nullptr;
    if (d != nullptr) {
        // Dot files are writers' temporaries; over-long names are no keys.
        while (const dirent *e = readdir(d))
            if (e->d_name[0] != '.' && strlen(e->d_name) < PROPERTY_KEY_MAX)
                keys.emplace_back(e->d_name);
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
    if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (argc > 3 || (argc > 1 && argv[1][0] == '-')) {
        fputs(kUsage, stderr);
        return 2;
    }
    if (argc == 1) {
        list();
        return 0;
    }
    char value[PROPERTY_VALUE_MAX];
    property_get(argv[1], value, argc == 3 ? argv[2] : "");
    printf("%s\n", value);
    return 0;
}
