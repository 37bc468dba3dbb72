#!/usr/bin/env bash
# Checks that the module exports exactly the names its headers declare with
# ATCMD_API (the client's header and the internal headers next to the code),
# plus the host property store, and nothing else.
# usage: check_exports.sh MODULE.so SOURCE_DIR [NM]
# NM reads the module's symbols (default nm); a cross-built module needs the
# cross toolchain's own.
set -euo pipefail
so=$1
src=$2
nm=${3:-nm}
expected=$(mktemp)
actual=$(mktemp)
trap 'rm -f "$expected" "$actual"' EXIT

{
  cat "$src"/include/atcmdprocess.h "$src"/{core,link,protocol,device,hal}/*.h | grep -v '^#define' |
    perl -ne 'print "$1\n" if /\bATCMD_API\b[^(\[;]*?\b([A-Za-z_]\w*)\s*[(\[;]/'
  printf '%s\n' property_get property_set
} | sort -u >"$expected"

# Linker- and sanitizer-made symbols (UBSan emits type info for function
# types) are not part of the module's ABI.
"$nm" -D --defined-only "$so" | awk '{print $3}' |
  grep -v -E '^(_init|_fini|_edata|_end|__bss_start|__odr_asan.*|___asan.*|__asan.*|__ubsan.*|__sancov.*|__start___sancov.*|__stop___sancov.*|_ZT[IS]F.*)$' |
  sort -u >"$actual"

if ! diff -u "$expected" "$actual"; then
  echo "exported symbols differ from the headers (- missing, + unexpected)" >&2
  exit 1
fi
echo "$(wc -l <"$expected") exported names match the headers"
