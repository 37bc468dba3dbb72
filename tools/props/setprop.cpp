// atcmd-setprop: the host's setprop. It compiles in the module's own store
// code, so the module sees what it sets, with the module's rules.
#include <cutils/properties.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include "platform/property_store.h"

namespace {

const char kUsage[] =
    "usage: atcmd-setprop KEY VALUE\n"
    "  KEY is 1 to 31 characters, VALUE at most 91; a ro.* key can be set once.\n"
    "The store is $ATCMD_PROPERTY_DIR, else $ATCMD_SYSROOT/dev/__properties__,\n"
    "else $XDG_RUNTIME_DIR/atcmd-properties, else /tmp/atcmd-properties-<uid>.\n";

// property_set only says no; tell the person at the shell why.
const char *why_refused(const char *key, const char *value) {
    size_t n = strlen(key);
    if (n == 0 || n >= PROPERTY_KEY_MAX) return "the key must be 1 to 31 characters";
    if (key[0] == '.' || strchr(key, '/') != nullptr)
        return "the key must not start with '.' or hold '/'";
    if (strlen(value) >= PROPERTY_VALUE_MAX) return "the value is longer than 91 characters";
    if (strncmp(key, "ro.", 3) == 0) return "a ro.* property cannot change once set";
    return "the store cannot be written";
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
        fputs(kUsage, stdout);
        return 0;
    }
    if (argc != 3 || argv[1][0] == '-') {
        fputs(kUsage, stderr);
        return 2;
    }
    if (property_set(argv[1], argv[2]) != 0) {
        char dir[PATH_MAX];
        const char *where = atcmd::property_dir(dir, sizeof dir);
        fprintf(stderr, "atcmd-setprop: cannot set %s: %s (store: %s)\n", argv[1],
                why_refused(argv[1], argv[2]), where != nullptr ? where : "path too long");
        return 1;
    }
    return 0;
}
