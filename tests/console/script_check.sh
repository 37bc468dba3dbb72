#!/bin/sh
# atcmd-console in script mode against the real module, under a fresh root.
# usage: script_check.sh <atcmd-console> <directory of the module .so>
set -u
console=$1
dir=$2
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
mkdir -p "$root/dev" "$root/sys/class/tty" "$root/sdcard"
fail() { echo "FAIL: $*"; echo "--- output:"; cat "$root/out"; exit 1; }
# Under the sanitizers a report may exit 1 too, like a failed command; it
# lands in the module's log, which is standard error now.
log=$root/atcmd-console.log
clean() { ! grep -q 'Sanitizer\|runtime error' "$root/err" "$log" || fail "$(cat "$root/err" "$log")"; }

"$console" --dir "$dir" --root "$root" --capture "$root/sdcard/session.pcapng" --script - \
    >"$root/out" 2>"$root/err" <<'SCRIPT'
status
platform 2   # the accessory on the UART
status
prop x
setprop x 5
prop x
send AT+SN?#13&2
expect "+ERROR (24) seq 13: -110" 3000   # no accessory: the reply times out
info
quit
echo not reached
SCRIPT
rc=$?
[ $rc -eq 0 ] || fail "script exited $rc: $(cat "$root/err")"
clean
grep -qx 'platform: 2' "$root/out" || fail "platform not set"
grep -qx 'x=' "$root/out" && grep -qx 'x=5' "$root/out" || fail "property not read back"
grep -q ' client -> AT+SN?#13&2$' "$root/out" || fail "AT line not sent"
grep -qx 'sn: ""' "$root/out" || fail "no accessory record"
grep -q 'not reached' "$root/out" && fail "ran past quit"
# The module's log goes to its file, not into the console's output.
grep -q "the module's log (level 4) goes to $log" "$root/err" || fail "log file not named: $(cat "$root/err")"
grep -q 'atcmdprocess_open' "$log" || fail "no module log in $log"
grep -q 'atcmdprocess_open' "$root/out" "$root/err" && fail "module log on the console's streams"
grep -q 'warning: net.bluetooth.macaddr is not set' "$root/err" || fail "no warning without a Bluetooth address"
# --capture: a pcapng file (its first block's type) with the client's call in it.
[ "$(head -c 4 "$root/sdcard/session.pcapng" | od -An -tx1 | tr -d ' ')" = 0a0d0d0a ] ||
    fail "--capture wrote no pcapng file"
grep -aq 'client AT+SN?#13&2' "$root/sdcard/session.pcapng" || fail "the capture lacks the client's line"
"$console" --dir "$dir" --root "$root" --capture /elsewhere.pcapng --script - </dev/null >"$root/out" 2>"$root/err"
[ $? -eq 2 ] && grep -q 'not inside the root' "$root/err" || fail "--capture outside the root accepted"

printf 'echo before\nexpect "+SN (13)" 200\necho after\n' |
    "$console" --dir "$dir" --root "$root" --script - >"$root/out" 2>"$root/err"
rc=$?
[ $rc -eq 1 ] || fail "unmet expect exited $rc"
clean
grep -q 'line 2 failed' "$root/err" || fail "failing line not named: $(cat "$root/err")"
grep -q after "$root/out" && fail "ran past the failure"
echo PASS
