#!/usr/bin/env bash
# The suite on the phone's arm64: installs what is missing (Debian 12, as
# root or through sudo), cross-builds the module and its tests with Debian's
# aarch64 cross compiler into build/arm64 and runs them with CTest under
# qemu-user (cmake/aarch64-linux-gnu.cmake, cmake/qemu-aarch64.sh). Warnings
# are errors here too. A second run rebuilds only what changed.
#
#   bash tools/test-arm64.sh [build|suite]   one step (default: both)
set -euo pipefail
cd "$(dirname "$0")/.."

JOBS=${JOBS:-$(nproc)}
BUILD=build/arm64
STEP=${1:-all}
case "$STEP" in build|suite|all) ;; *) echo "usage: $0 [build|suite]" >&2; exit 2 ;; esac

# liblog and GoogleTest for arm64 are Debian's own arm64 packages, installed
# beside the host's (multiarch); the cross toolchain brings the C and C++
# libraries the programs link and run with.
source tools/deps.sh
atcmd_add_arm64
atcmd_install_missing cmake ninja-build perl g++-aarch64-linux-gnu qemu-user \
  android-liblog-dev:arm64 libgtest-dev:arm64 libgmock-dev:arm64

if [ "$STEP" != suite ]; then
  echo "== arm64 cross build"
  cmake -S . -B "$BUILD" -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake >/dev/null
  cmake --build "$BUILD" -j "$JOBS"
fi
[ "$STEP" = build ] && exit 0

# Every test makes its own root and property store; a store named by the
# caller would be shared by all of them.
unset ATCMD_SYSROOT ATCMD_PROPERTY_DIR

# Scenarios whose checks depend on real-time pacing that emulation stretches.
# Under qemu the accessory's first replies take 10-20 ms instead of well under
# one, so the module's reply time-outs (100 ms, and at once when the wall
# clock's second changes) and the WiFi heartbeat land much nearer the margins
# these scenarios allow. Each gets up to three tries; a fault of the arm64
# build fails every one. The scenarios run as one process
# (atcmd_scenarios.one_process) include these three, so that entry gets the
# same tries.
PACED='^(Scenario\.(PlugInOpensTheLinkAsksTheAccessoryAndTellsTheClient|ANodePresentAtStartIsFoundAForeignOneIgnored|WifiLinkComesUpCarriesFramesSurvivesALostHeartbeatAndGoesDown)|atcmd_scenarios\.one_process)$'

# One test at a time: emulation already makes every thread several times
# slower, and a test sharing the two cores with another one misses the
# pacing its checks allow for. The soak runs (label "soak") take minutes and
# stay on the host build.
echo "== arm64 tests under qemu-aarch64"
ctest --test-dir "$BUILD" --output-on-failure --no-tests=error -LE soak -E "$PACED"
echo "== arm64 scenarios paced in real time, under qemu-aarch64"
ctest --test-dir "$BUILD" --output-on-failure --no-tests=error -R "$PACED" --repeat until-pass:3
