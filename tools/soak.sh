#!/usr/bin/env bash
# The soak runs of one build (the CTest entries labelled "soak", from
# bench/soak), each item's figures printed as a table (measure, value,
# target, met) with its notes, its verdict and its time, whether it passed
# or failed: CTest by itself keeps a passing test's output in its log only.
# CTest stays the runner, with the entries' timeouts and labels, one item at
# a time. ATCMD_SOAK_SECONDS, ATCMD_SOAK_RATE and ATCMD_SOAK_CYCLES reach the
# items from the environment.
#
#   tools/soak.sh BUILD_DIR [more ctest options, e.g. -R soak_lines]
#
# Exits 0 when every item passed and its rows agree, 1 otherwise, 2 for a
# wrong call. CTest's whole output is kept in BUILD_DIR/soak-ctest.log.
set -uo pipefail

if [ $# -lt 1 ] || [ ! -f "$1/CTestTestfile.cmake" ]; then
  echo "usage: $0 BUILD_DIR [ctest options]   (BUILD_DIR: a configured build tree)" >&2
  exit 2
fi
build=$1
shift
log=$build/soak-ctest.log

settings=
for v in ATCMD_SOAK_SECONDS ATCMD_SOAK_RATE ATCMD_SOAK_CYCLES; do
  [ -n "${!v:-}" ] && settings+=" $v=${!v}"
done
echo "soak runs of $build (${settings:+${settings# }, otherwise }the program's default lengths);" \
  "CTest's output in $log"

# With -V, CTest prints every line of test N's output as "N: <line>", and
# "i/n Test #N: <name> ..... <verdict>  <time> sec" when it ends.
ctest --test-dir "$build" -L soak -V --no-tests=error "$@" 2>&1 | tee "$log" |
  awk -v logfile="$log" '
function show(n, name, verdict, secs,   k, wm, wv, wt, m) {
  printf "== %s: %s in %s s\n", name, verdict, secs
  wm = length("measure"); wv = length("value"); wt = length("target")
  for (k = 1; k <= rows[n]; k++) {
    if (length(M[n, k]) > wm) wm = length(M[n, k])
    if (length(V[n, k]) > wv) wv = length(V[n, k])
    if (length(T[n, k]) > wt) wt = length(T[n, k])
  }
  if (rows[n] > 0)
    printf "   %-" wm "s  %-" wv "s  %-" wt "s  %s\n", "measure", "value", "target", "met"
  m = 0
  for (k = 1; k <= rows[n]; k++) {
    printf "   %-" wm "s  %-" wv "s  %-" wt "s  %s\n", M[n, k], V[n, k], T[n, k], Y[n, k]
    m += Y[n, k] == "no"
  }
  if (rows[n] == 0) print "   (no figures printed)"
  for (k = 1; k <= notes[n]; k++) print "   " N[n, k]
  if (other[n] > 0) {
    printf "   other output, %d line%s%s:\n", other[n], (other[n] == 1 ? "" : "s"),
      (other[n] > 40 ? " (the first 40; all in " logfile ")" : "")
    for (k = 1; k <= other[n] && k <= 40; k++) print "     " O[n, k]
  }
  if (verdict == "Passed" && m > 0) {
    printf "   !! %s passed, yet %d of its rows say \"no\": its rows and its verdict disagree\n",
      name, m
    ++disagree
  }
  ++items
  failed += verdict != "Passed"
  done[n] = 1
  fflush()
}
/^[0-9]+: / {
  n = $0; sub(/:.*/, "", n)
  text = substr($0, length(n) + 3)
  seen[n] = 1
  if (text ~ /^ROW\|/) {
    split(text, f, "|")
    k = ++rows[n]
    M[n, k] = f[3]; sub(/^[a-z_]+: /, "", M[n, k])
    V[n, k] = f[4]; T[n, k] = f[7]; Y[n, k] = f[8]
  } else if (text ~ /^# /) {
    N[n, ++notes[n]] = text
  } else if (text !~ /^(Test command|Working Directory|Test timeout computed to be): /) {
    O[n, ++other[n]] = text
  }
  next
}
/^ *[0-9]+\/[0-9]+ +Test +#[0-9]+: / {
  line = $0
  sub(/^.*Test +#/, "", line)
  n = line; sub(/:.*/, "", n)
  sub(/^[0-9]+: +/, "", line)
  name = line; sub(/ .*/, "", name)
  sub(/^[^ ]+ */, "", line)
  gsub(/^[. *]+/, "", line)
  k = split(line, w, / +/)
  verdict = w[1]
  for (i = 2; i <= k - 2; i++) verdict = verdict " " w[i]
  show(n, name, verdict, w[k - 1])
}
END {
  for (key in seen) if (!(key in done)) show(key, "test " key, "no verdict from CTest", "?")
  if (items == 0) print "soak: no item ran (see " logfile ")"
  else printf "soak: %d item%s, %d passed, %d failed%s\n", items, (items == 1 ? "" : "s"),
    items - failed, failed,
    (disagree ? ", " disagree " with rows that disagree with the verdict" : "")
  exit items == 0 || failed > 0 || disagree > 0
}'
status=("${PIPESTATUS[@]}")
if [ "${status[0]}" -ne 0 ] || [ "${status[2]}" -ne 0 ]; then
  echo "soak: FAILED (ctest exit ${status[0]}; CTest's output in $log)"
  exit 1
fi
