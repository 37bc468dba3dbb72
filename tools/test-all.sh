#!/usr/bin/env bash
# The project's one test command. On a fresh Debian 12 machine it first adds
# Debian's arm64 architecture and installs what is missing (as root, or
# through sudo), then:
#   1. checks Android.bp's syntax with bpfmt and the 32-bit ARM layouts of
#      the public structures with the cross compiler,
#   2. builds with g++, runs the suite (each test case in its own process,
#      then each test binary whole, as one process) and the soak runs,
#   3. cross-builds for arm64 and runs the suite under qemu-user
#      (tools/test-arm64.sh),
#   4. builds with clang, AddressSanitizer and UndefinedBehaviorSanitizer and
#      runs the suite and shorter soak runs again (first report halts it),
#   5. builds with clang and ThreadSanitizer and runs them a third time
#      (tools/test-tsan.sh),
#   6. runs each fuzz target for FUZZ_SECONDS (60) seconds.
# Each stage prints one line with its time; the soak runs print their
# figures and the fuzz runs one summary line per target. A stage's whole
# output is in build/logs/; when a stage fails, the end of its log is shown.
# Longer runs (the 60 s soak figures, 30-minute fuzzing) are in
# tools/bench.sh --long. Warnings are errors in every build.
set -euo pipefail
cd "$(dirname "$0")/.."

FUZZ_SECONDS=${FUZZ_SECONDS:-60}
JOBS=${JOBS:-$(nproc)}
export JOBS
LOGS=build/logs
mkdir -p "$LOGS"
start=$SECONDS

# "1 min 05 s" for a number of seconds.
took() { printf '%d min %02d s' $(($1 / 60)) $(($1 % 60)); }

# stage NAME COMMAND...: runs COMMAND with its output in the stage's log and
# prints one line: the stage, its time, and for a CTest run the count. A
# failed stage shows the end of its log without the lines of passing tests
# and build progress, and ends the test command.
n=0
stage() {
  local name=$1 log t0=$SECONDS summary
  shift
  n=$((n + 1))
  log=$LOGS/$(printf '%02d' $n)-$(echo "$name" | tr -c 'A-Za-z0-9+\n' '-' | tr -s '-' | sed 's/-$//').log
  if "$@" >"$log" 2>&1; then
    summary=$(grep -E '^[0-9]+% tests passed' "$log" | paste -s -d ';' - | sed 's/;/; /g' || true)
    echo "== $name: ok${summary:+ (${summary})}, $(took $((SECONDS - t0)))"
    return 0
  fi
  echo "== $name: FAILED after $(took $((SECONDS - t0))); the end of $log:"
  grep -v -E '^\s*[0-9]+/[0-9]+ Test +#[0-9]+: .* Passed|^\[[0-9]+/[0-9]+\] ' "$log" | tail -n 150
  exit 1
}

# shown NAME COMMAND...: a stage whose output is its point (figures).
shown() {
  local name=$1 t0=$SECONDS
  shift
  n=$((n + 1))
  echo "== $name"
  if ! "$@"; then
    echo "== $name: FAILED after $(took $((SECONDS - t0)))"
    exit 1
  fi
  echo "== $name: ok, $(took $((SECONDS - t0)))"
}

echo "atcmd test command: about 20 minutes on two cores; each stage's output is in $LOGS/"

source tools/deps.sh
HOST_PACKAGES=(cmake ninja-build g++ clang libclang-rt-14-dev libgtest-dev libgmock-dev
  libbenchmark-dev android-liblog-dev libreadline-dev blueprint-tools binutils perl pkgconf
  tshark
  g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user)
ARM64_PACKAGES=(android-liblog-dev:arm64 libgtest-dev:arm64 libgmock-dev:arm64)
if ! dpkg --print-foreign-architectures | grep -qx arm64; then
  echo "== first run on this machine: it adds Debian's arm64 architecture beside the host's" \
    "(for the arm64 build's liblog and GoogleTest) and installs about 40 packages with apt-get;" \
    "the exact count follows"
fi
atcmd_add_arm64
atcmd_install_missing "${HOST_PACKAGES[@]}" "${ARM64_PACKAGES[@]}"

lint() {
  bpfmt -o Android.bp &&
  arm-linux-gnueabihf-g++ -std=c++17 -fsyntax-only -Wall -Wextra -Werror \
    -Iinclude -Iplatform/host/include -I. hal/abi_layout.cpp
}
stage "Android.bp syntax, 32-bit ARM layouts" lint

configure() {  # configure BUILD_DIR CMAKE_OPTIONS...
  local dir=$1
  shift
  cmake -S . -B "$dir" -G Ninja "$@" && cmake --build "$dir" -j "$JOBS"
}
suite() {  # suite BUILD_DIR: every test but the soak runs
  ctest --test-dir "$1" -j "$JOBS" -LE soak --output-on-failure --no-tests=error
}

stage "g++ build" configure build/gcc -DCMAKE_CXX_COMPILER=g++
stage "g++ suite" suite build/gcc
shown "g++ soak runs" bash tools/soak.sh build/gcc

stage "arm64 cross build" bash tools/test-arm64.sh build
stage "arm64 suite under qemu-aarch64" bash tools/test-arm64.sh suite

export ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:strict_string_checks=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
stage "clang ASan/UBSan build" configure build/clang-san -DCMAKE_CXX_COMPILER=clang++ \
  -DATCMD_SANITIZE=ON -DATCMD_FUZZ=ON
stage "ASan/UBSan suite" suite build/clang-san
# Shorter soak runs under the sanitizers: they look for memory faults, not stamina.
shown "ASan/UBSan soak runs" env ATCMD_SOAK_SECONDS=10 ATCMD_SOAK_CYCLES=20 \
  bash tools/soak.sh build/clang-san

stage "clang TSan build" bash tools/test-tsan.sh build
stage "TSan suite" bash tools/test-tsan.sh suite
shown "TSan soak runs" bash tools/test-tsan.sh soak

shown "fuzzing, ${FUZZ_SECONDS} s a target" bash tools/fuzz.sh build/clang-san "$FUZZ_SECONDS"

echo "== all checks passed in $(took $((SECONDS - start)))"
