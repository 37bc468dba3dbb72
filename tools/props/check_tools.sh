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
# refused KEY VALUE REASON: the set exits 1 and says why.
refused() {
  local err
  err=$("$setprop" "$1" "$2" 2>&1 >/dev/null)
  [ $? -eq 1 ] && [[ $err == *"$3"* ]] || fail "setprop $1 must be refused with '$3': $err"
}

"$setprop" test.key 'hello world' || fail "setprop test.key"
[ -f "$ATCMD_SYSROOT/dev/__properties__/test.key" ] || fail "the store is not under the sysroot"
[ "$("$getprop" test.key)" = "hello world" ] || fail "getprop test.key"
[ "$("$getprop" test.unset fallback)" = fallback ] || fail "getprop of an unset key with a default"
"$setprop" ro.test.once 1 || fail "first setprop of ro.test.once"
refused ro.test.once 2 "write-once"
refused test.key "$(printf %092d 0)" "longer than 91"
long=$(printf 'k%.0s' {1..255})
refused "${long}k" 1 "1 to 255 characters"
"$setprop" persist.vendor.kavren.factory.wt 1 && "$setprop" "$long" 2 || fail "setprop of long keys"
[ "$("$getprop")" = $'['$long$']: [2]\n[persist.vendor.kavren.factory.wt]: [1]\n[ro.test.once]: [1]\n[test.key]: [hello world]' ] ||
  fail "listing: $("$getprop")"
"$setprop" test.key 2>/dev/null
[ $? -eq 2 ] || fail "a usage error must exit 2"

# Where the store lives: ATCMD_PROPERTY_DIR wins; --root DIR as ATCMD_SYSROOT=DIR;
# without a sysroot, a private directory in the user's state directory.
ATCMD_PROPERTY_DIR=$ATCMD_SYSROOT/p "$setprop" test.where override || fail "setprop with ATCMD_PROPERTY_DIR"
[ -f "$ATCMD_SYSROOT/p/test.where" ] || fail "ATCMD_PROPERTY_DIR is not honoured"
mkdir "$ATCMD_SYSROOT/r" && (cd "$ATCMD_SYSROOT" && "$setprop" --root r test.where rooted) || fail "setprop --root"
[ "$(ATCMD_SYSROOT= "$getprop" --root="$ATCMD_SYSROOT/r" test.where)" = rooted ] || fail "getprop --root"
"$getprop" --root "$ATCMD_SYSROOT/p/test.where" test.where 2>/dev/null
[ $? -eq 2 ] || fail "--root of a file must exit 2"
state=$ATCMD_SYSROOT/.local/state
XDG_STATE_HOME=$state ATCMD_SYSROOT= "$setprop" test.where private || fail "setprop without a sysroot"
[ "$(stat -c %a "$state/atcmd/properties")" = 700 ] || fail "the per-user store must be mode 700"
[ "$(HOME=$ATCMD_SYSROOT XDG_STATE_HOME= ATCMD_SYSROOT= "$getprop" test.where)" = private ] ||
  fail "getprop without a sysroot: ~/.local/state"
[ "$("$getprop" test.where unset)" = unset ] || fail "the stores must be apart"
ATCMD_PROPERTY_DIR=$ATCMD_SYSROOT/p/test.where refused test.x 1 "Not a directory"
mkdir -p "$ATCMD_SYSROOT/s/atcmd" && ln -s "$state/atcmd/properties" "$ATCMD_SYSROOT/s/atcmd/properties"
XDG_STATE_HOME=$ATCMD_SYSROOT/s ATCMD_SYSROOT= refused test.x 1 "Not a directory" # no symlinked store
echo "property tools OK"
