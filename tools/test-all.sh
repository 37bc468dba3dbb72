#!/usr/bin/env bash
# The project's one test command: installs what is missing (Debian 12, as
# root), then
#   1. checks Android.bp's syntax with bpfmt and the 32-bit ARM layouts of
#      the public structures with the cross compiler,
#   2. builds with g++, runs the suite and the soak runs (bench/soak),
#   3. cross-builds for arm64 and runs the suite under qemu-user
#      (tools/test-arm64.sh),
#   4. builds with clang, AddressSanitizer and UndefinedBehaviorSanitizer and
#      runs the suite again (first report halts it),
#   5. builds with clang and ThreadSanitizer and runs the suite a third time
#      (tools/test-tsan.sh),
#   6. runs each fuzz target for FUZZ_SECONDS (60) seconds.
# Longer runs (the 60 s soak figures, 30-minute fuzzing) are in
# tools/bench.sh --long.
# Warnings are errors in every build.
set -euo pipefail
cd "$(dirname "$0")/.."

FUZZ_SECONDS=${FUZZ_SECONDS:-60}
JOBS=${JOBS:-$(nproc)}

source tools/deps.sh
atcmd_install_missing cmake ninja-build g++ clang libclang-rt-14-dev libgtest-dev libgmock-dev \
  libbenchmark-dev android-liblog-dev libreadline-dev blueprint-tools binutils perl \
  g++-arm-linux-gnueabihf

echo "== Android.bp syntax"
bpfmt -o Android.bp >/dev/null

echo "== 32-bit ABI layout"
arm-linux-gnueabihf-g++ -std=c++17 -fsyntax-only -Wall -Wextra -Werror \
  -Iinclude -Iplatform/host/include -I. hal/abi_layout.cpp

echo "== g++ build and tests"
cmake -S . -B build/gcc -G Ninja -DCMAKE_CXX_COMPILER=g++ >/dev/null
cmake --build build/gcc -j "$JOBS"
ctest --test-dir build/gcc -j "$JOBS" -LE soak --output-on-failure --no-tests=error
echo "== soak runs (g++ build; each prints its figures)"
ctest --test-dir build/gcc -L soak --output-on-failure --no-tests=error

echo "== arm64 cross build and tests under qemu-user"
JOBS="$JOBS" bash tools/test-arm64.sh

echo "== clang + ASan/UBSan build, tests and fuzzing"
cmake -S . -B build/clang-san -G Ninja -DCMAKE_CXX_COMPILER=clang++ \
  -DATCMD_SANITIZE=ON -DATCMD_FUZZ=ON >/dev/null
cmake --build build/clang-san -j "$JOBS"
export ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:strict_string_checks=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
ctest --test-dir build/clang-san -j "$JOBS" -LE soak --output-on-failure --no-tests=error
# Shorter soak runs under the sanitizers: they look for memory faults, not stamina.
ATCMD_SOAK_SECONDS=10 ATCMD_SOAK_CYCLES=20 \
  ctest --test-dir build/clang-san -L soak --output-on-failure --no-tests=error

echo "== clang + ThreadSanitizer build and tests"
JOBS="$JOBS" bash tools/test-tsan.sh

shopt -s nullglob
# Parsers set properties; the fuzz runs keep theirs in a directory of their own.
export ATCMD_PROPERTY_DIR
ATCMD_PROPERTY_DIR=$(mktemp -d)
trap 'rm -rf "$ATCMD_PROPERTY_DIR"' EXIT
for target in build/clang-san/*_fuzzer; do
  name=$(basename "$target")
  corpus=$(mktemp -d)
  cp fuzz/corpus/"${name%_fuzzer}"/* "$corpus"/ 2>/dev/null || true
  echo "== fuzzing $name for ${FUZZ_SECONDS}s"
  "$target" -max_total_time="$FUZZ_SECONDS" -print_final_stats=1 "$corpus" 2>&1 | tail -n 12
  rm -rf "$corpus"
done
echo "== all checks passed"
