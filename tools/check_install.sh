#!/usr/bin/env bash
# Installs a build into a fresh prefix and uses it as a new user would: every
# installed file is where the README says, a C client builds from the
# pkg-config file alone and loads the installed module by its moduledir, and
# the installed console finds the installed module by itself.
# usage: check_install.sh BUILD_DIR
set -euo pipefail
build=$1
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null

export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name atcmdprocess.pc)")
moduledir=$(pkg-config --variable=moduledir atcmdprocess)
missing=0
for f in "$moduledir/atcmdprocess.default.so" \
  "$(pkg-config --variable=includedir atcmdprocess)/atcmdprocess.h" \
  "$prefix"/bin/atcmd-{console,sim,getprop,setprop} \
  "$prefix"/lib/udev/rules.d/70-atcmd-accessory.rules \
  "$(dirname "$moduledir")"/wireshark/plugins/atcmd.lua; do
  [ -e "$f" ] || { echo "not installed: ${f#"$prefix"/}" >&2; missing=1; }
done
[ $missing -eq 0 ]

cat >"$prefix/client.c" <<'C'
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>
#include <atcmdprocess.h>
int main(int argc, char **argv) {
    (void)argc;
    void *so = dlopen(argv[1], RTLD_NOW);
    struct hw_module_t *hmi = so ? (struct hw_module_t *)dlsym(so, "HMI") : NULL;
    if (hmi == NULL || strcmp(hmi->id, ATCMDPROCESS_HARDWARE_MODULE_ID) != 0) {
        fprintf(stderr, "no module record in %s: %s\n", argv[1], so ? "no HMI" : dlerror());
        return 1;
    }
    printf("%s %d commands\n", hmi->id, ATCMD_NUM_CMDS);
    return 0;
}
C
# shellcheck disable=SC2046
cc -std=c99 -Wall -Wextra -Werror $(pkg-config --cflags atcmdprocess) -o "$prefix/client" \
  "$prefix/client.c" $(pkg-config --libs atcmdprocess)
"$prefix/client" "$moduledir/atcmdprocess.default.so"

# The console finds the module from its own place in the prefix.
mkdir -p "$prefix/root"
echo | "$prefix/bin/atcmd-console" --root "$prefix/root" --script - >/dev/null 2>&1 ||
  { echo "the installed atcmd-console did not find or open the installed module" >&2; exit 1; }
echo "installed under a fresh prefix: module, header, pkg-config file, programs, udev rule, dissector; a C client built from pkg-config loads the module"
