#!/usr/bin/env bash
# Drives atcmd-setprop and atcmd-getprop the way a person at a shell would,
# against a store under a private temporary sysroot.
# usage: check_tools.sh GETPROP SETPROP
set -u
getprop=$1
setprop=$2
ATCMD_SYSROOT=$(mktemp -d) || exit 1
export ATCMD_SYSROOT
unset ATCMD_PROPERTY_DIR
trap 'rm -rf "$ATCMD_SYSROOT"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

"$setprop" test.key 'hello world' || fail "setprop test.key"
[ -f "$ATCMD_SYSROOT/dev/__properties__/test.key" ] || fail "the store is not under the sysroot"
[ "$("$getprop" test.key)" = "hello world" ] || fail "getprop test.key"
[ "$("$getprop" test.unset fallback)" = fallback ] || fail "getprop of an unset key with a default"
"$setprop" ro.test.once 1 || fail "first setprop of ro.test.once"
"$setprop" ro.test.once 2 2>/dev/null
[ $? -eq 1 ] || fail "a second setprop of ro.test.once must exit 1"
[ "$("$getprop")" = $'[ro.test.once]: [1]\n[test.key]: [hello world]' ] || fail "listing: $("$getprop")"
"$setprop" test.key 2>/dev/null
[ $? -eq 2 ] || fail "a usage error must exit 2"

# Where the store lives: ATCMD_PROPERTY_DIR wins; without a sysroot, a private
# directory under XDG_RUNTIME_DIR.
ATCMD_PROPERTY_DIR=$ATCMD_SYSROOT/p "$setprop" test.where override || fail "setprop with ATCMD_PROPERTY_DIR"
[ -f "$ATCMD_SYSROOT/p/test.where" ] || fail "ATCMD_PROPERTY_DIR is not honoured"
run=$ATCMD_SYSROOT/run
XDG_RUNTIME_DIR=$run ATCMD_SYSROOT= "$setprop" test.where private || fail "setprop without a sysroot"
[ "$(stat -c %a "$run/atcmd-properties")" = 700 ] || fail "the per-user store must be mode 700"
[ "$(XDG_RUNTIME_DIR=$run ATCMD_SYSROOT= "$getprop" test.where)" = private ] || fail "getprop without a sysroot"
[ "$("$getprop" test.where unset)" = unset ] || fail "the stores must be apart"
echo "property tools OK"
