# Cross build for the phone's arm64 with Debian's aarch64 cross compiler
# (g++-aarch64-linux-gnu); the programs it builds run on this host under
# qemu-user, so CTest and gtest_discover_tests start them through
# qemu-aarch64.sh.
#
#   cmake -S . -B build/arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
#
# tools/test-arm64.sh installs what this needs, builds and runs the suite.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# arm64 libraries come from Debian's multiarch packages (android-liblog-dev:arm64,
# libgtest-dev:arm64) under /usr/lib/aarch64-linux-gnu, where CMake looks by
# this name, while the host's own libraries stay in /usr/lib/x86_64-linux-gnu,
# out of its sight. Headers are shared between the two.
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/qemu-aarch64.sh)
