#!/usr/bin/env bash
# The demo in one command: installs what is missing (Debian 12), builds the
# module, the console, the simulator and the demo, and runs the scripted
# session under a temporary root that it removes again. Options go to
# atcmd-demo (--quiet, --session FILE). Exit status: the session's.
set -euo pipefail
cd "$(dirname "$0")/.."

source tools/deps.sh
atcmd_install_missing cmake ninja-build g++ android-liblog-dev libreadline-dev

mkdir -p build
if ! { cmake -S . -B build/gcc -G Ninja -DCMAKE_CXX_COMPILER=g++ &&
       cmake --build build/gcc --target atcmd-demo atcmd-console atcmd-sim; } >build/demo-build.log 2>&1
then
  cat build/demo-build.log >&2
  echo "demo: the build failed (log above)" >&2
  exit 1
fi
exec build/gcc/demo/atcmd-demo --dir build/gcc "$@"
