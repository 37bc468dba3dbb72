#!/usr/bin/env bash
# Runs every libFuzzer target of a build (BUILD_DIR/*_fuzzer) for SECONDS
# seconds on a copy of its seed corpus (fuzz/corpus/<name without _fuzzer>),
# and prints one line per target: runs, executions a second, final coverage,
# corpus growth and findings. A finding fails the script; its report (the
# sanitizer's or libFuzzer's error, stack and summary) and its reproducer
# are printed below the line.
#
#   tools/fuzz.sh BUILD_DIR SECONDS [more libFuzzer flags, e.g. -timeout=10]
#
# libFuzzer's whole output goes to BUILD_DIR/fuzz-logs/<target>.log, and a
# reproducer to BUILD_DIR/fuzz-logs/<target>-crash-<sha1> (or -leak-,
# -timeout-, -oom-); a run replaces its target's earlier log and findings.
# ASAN_OPTIONS and UBSAN_OPTIONS come from the caller's environment.
set -uo pipefail

# SECONDS must be positive: libFuzzer takes -max_total_time=0 as no limit.
if [ $# -lt 2 ] || [ ! -d "$1" ] || ! [[ $2 =~ ^[1-9][0-9]*$ ]]; then
  echo "usage: $0 BUILD_DIR SECONDS [libFuzzer flags]" >&2
  exit 2
fi
build=$1
seconds=$2
shift 2
seeds_root=$(cd "$(dirname "$0")/.." && pwd)/fuzz/corpus
logs=$build/fuzz-logs
mkdir -p "$logs"

shopt -s nullglob
targets=("$build"/*_fuzzer)
if [ ${#targets[@]} -eq 0 ]; then
  echo "fuzz: no *_fuzzer in $build (configure it with -DATCMD_FUZZ=ON and build it)" >&2
  exit 1
fi

# Parsers set properties; the fuzz runs keep theirs in a directory of their own.
ATCMD_PROPERTY_DIR=$(mktemp -d)
export ATCMD_PROPERTY_DIR
corpus=
trap 'rm -rf "$ATCMD_PROPERTY_DIR" ${corpus:+"$corpus"}' EXIT

final_stat() { sed -n "s/^stat::$1: *//p" "$log" | tail -n 1; }

echo "fuzzing ${#targets[@]} targets of $build for ${seconds}s each; libFuzzer's output in $logs/"
failed=0
for target in "${targets[@]}"; do
  name=$(basename "$target")
  log=$logs/$name.log
  rm -f "$log" "$logs/$name"-*
  corpus=$(mktemp -d)
  seeds=$seeds_root/${name%_fuzzer}
  [ -d "$seeds" ] && cp "$seeds"/* "$corpus"/
  seeded=$(find "$corpus" -type f | wc -l)

  "$target" -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$logs/$name-" \
    "$@" "$corpus" >"$log" 2>&1
  status=$?
  grown=$(find "$corpus" -type f | wc -l)
  rm -rf "$corpus"
  corpus=

  runs=$(final_stat number_of_executed_units)
  rate=$(final_stat average_exec_per_sec)
  added=$(final_stat new_units_added)
  cov=$(grep -o ' cov: [0-9]*' "$log" | tail -n 1 | sed 's/.* //')
  reproducer=$(sed -n 's/.*Test unit written to \(.*\)$/\1/p' "$log" | tail -n 1)
  # The kind: the first SUMMARY line without its source location
  # ("AddressSanitizer: heap-buffer-overflow", "libFuzzer: timeout"), with
  # UndefinedBehaviorSanitizer's message, else the first error line.
  kind=$(sed -n 's/^SUMMARY: //p' "$log" | head -n 1 | sed 's| /.*||; s| in .*||')
  ub=$(grep -m 1 -o 'runtime error: .*' "$log")
  [ -n "$ub" ] && kind="${kind:+$kind, }$ub"
  [ -z "$kind" ] && kind=$(grep -m 1 -o 'ERROR: .*' "$log")
  [ -z "$kind" ] && kind="no error line"

  if [ -n "$reproducer" ]; then
    findings="1: $kind, $reproducer"
  elif [ "$status" -ne 0 ]; then
    findings="unknown: exit status $status without a reproducer ($kind)"
  elif [ -z "$runs" ] || [ -z "$cov" ]; then
    findings="unknown: no final stats in the log"
  else
    findings=0
  fi
  printf '%-21s runs %9s  execs/s %6s  cov %5s  corpus %3s -> %-4s (new units %s)  findings %s\n' \
    "$name" "${runs:-?}" "${rate:-?}" "${cov:-?}" "$seeded" "$grown" "${added:-?}" "$findings"

  if [ "$findings" != 0 ]; then
    failed=$((failed + 1))
    echo "  -- $name: libFuzzer exited with $status; its report (all of it in $log):"
    # From the first error line through the last SUMMARY line, at most 80 lines.
    awk '/ERROR: |runtime error: / && !on { on = 1 }
         on { text[++n] = $0 } /^SUMMARY: / { last = n }
         END { if (!last) last = n; for (i = 1; i <= last && i <= 80; i++) print "     " text[i]
               if (last > 80) print "     ... (" last - 80 " more lines in the log)" }' "$log"
    if [ -n "$reproducer" ]; then
      echo "  -- reproducer: $reproducer (run it again: $target $reproducer)"
    else
      echo "  -- no reproducer written; the last lines of the log:"
      tail -n 15 "$log" | sed 's/^/     /'
    fi
  fi
done

if [ "$failed" -gt 0 ]; then
  echo "fuzz: FAILED, $failed of ${#targets[@]} targets with a finding or an unexplained end"
  exit 1
fi
echo "fuzz: ${#targets[@]} targets, no findings"
