#!/usr/bin/env bash
# The project's figures in one table: parsing against a memchr line splitter,
# receive to client, transmit against a raw pty write, idle wake-ups, the
# soak runs, and instructions per parsed line under callgrind. Every row is
# measured in this run, next to its baseline where it has one, so the ratios
# hold on any machine. Builds a Release tree in build/bench.
#
#   bash tools/bench.sh            the table (a few minutes)
#   bash tools/bench.sh --long     also the 60 s soak (instead of 10 s) and
#                                  every fuzz target for FUZZ_MINUTES (30)
#                                  minutes under ASan/UBSan
set -euo pipefail
cd "$(dirname "$0")/.."

LONG=0
for arg in "$@"; do
  case "$arg" in
    --long) LONG=1 ;;
    -h|--help) sed -n '2,11p' "$0"; exit 0 ;;
    *) echo "unknown option: $arg" >&2; exit 2 ;;
  esac
done
FUZZ_MINUTES=${FUZZ_MINUTES:-30}
SOAK_SECONDS=${SOAK_SECONDS:-$([ "$LONG" = 1 ] && echo 60 || echo 10)}
JOBS=${JOBS:-$(nproc)}

source tools/deps.sh
atcmd_install_missing cmake ninja-build g++ libgtest-dev libgmock-dev libbenchmark-dev \
  android-liblog-dev valgrind

cmake -S . -B build/bench -G Ninja -DCMAKE_CXX_COMPILER=g++ -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/bench -j "$JOBS" --target atcmdprocess atcmd_bench atcmd_e2e_bench atcmd_soak >/dev/null

rows=$(mktemp)
trap 'rm -f "$rows"' EXIT

echo "== parsing (Google Benchmark)" >&2
build/bench/atcmd_bench --benchmark_min_time=1 2>/dev/null | grep '^ROW|' >>"$rows"

echo "== instructions per line (callgrind)" >&2
irs() {  # total instructions inside the function pattern $1 over one pass
  local out
  out=$(mktemp)
  valgrind --tool=callgrind --callgrind-out-file="$out" --toggle-collect="$1" \
    build/bench/atcmd_bench --one-pass >/dev/null 2>&1
  callgrind_annotate "$out" | awk '/PROGRAM TOTALS/ {gsub(",", "", $1); print $1}'
  rm -f "$out"
}
lines=$(build/bench/atcmd_bench --one-pass | awk '{print $1}')
module_ir=$(irs cmd_Parse_from_buffer)
split_ir=$(irs '*splitter_pass*')
awk -v m="$module_ir" -v s="$split_ir" -v n="$lines" 'BEGIN {
  printf "ROW|parse|instructions per line, all corpora (callgrind)|%.0f|%.0f (memchr splitter)|%.1fx|-|-\n",
    m / n, s / n, m / s }' >>"$rows"

echo "== receive, transmit, idle" >&2
build/bench/atcmd_e2e_bench all | grep '^ROW|' >>"$rows"

echo "== soak (${SOAK_SECONDS} s of lines) and faults" >&2
soak=$(find build/bench -name atcmd_soak -type f -perm -u+x | head -n 1)
for item in lines garbage plug_cycles silent stalled_daemon link_reuse; do
  ATCMD_SOAK_SECONDS=$SOAK_SECONDS "$soak" "$item" | grep '^ROW|' >>"$rows" || true
done

echo
echo "Machine: $(lscpu | sed -n 's/^Model name: *//p' | head -n 1), $(nproc) cores," \
  "$(uname -sr), $(date -u +%Y-%m-%d)"
echo
echo "| Section | Measure | Figure | Baseline (same run) | Ratio | Target | Met |"
echo "|---|---|---|---|---|---|---|"
awk -F'|' '{ printf "| %s | %s | %s | %s | %s | %s | %s |\n", $2, $3, $4, $5, $6, $7, $8 }' "$rows"

if [ "$LONG" = 1 ]; then
  atcmd_install_missing clang libclang-rt-14-dev
  cmake -S . -B build/fuzz-long -G Ninja -DCMAKE_CXX_COMPILER=clang++ \
    -DATCMD_SANITIZE=ON -DATCMD_FUZZ=ON >/dev/null
  cmake --build build/fuzz-long -j "$JOBS" >/dev/null
  export ASAN_OPTIONS=halt_on_error=1:detect_leaks=1 UBSAN_OPTIONS=halt_on_error=1
  ATCMD_PROPERTY_DIR=$(mktemp -d)
  export ATCMD_PROPERTY_DIR
  for target in build/fuzz-long/*_fuzzer; do
    name=$(basename "$target")
    corpus=$(mktemp -d)
    cp fuzz/corpus/"${name%_fuzzer}"/* "$corpus"/ 2>/dev/null || true
    echo "== fuzzing $name for $FUZZ_MINUTES min"
    "$target" -max_total_time=$((FUZZ_MINUTES * 60)) -timeout=10 -print_final_stats=1 "$corpus" \
      2>&1 | grep -E '^(Done|stat::number_of_executed_units|stat::peak_rss_mb)|ERROR|SUMMARY'
    rm -rf "$corpus"
  done
fi
