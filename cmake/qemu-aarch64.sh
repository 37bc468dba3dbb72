#!/bin/sh
# Runs a program of the arm64 cross build on this host under qemu-user:
#   qemu-aarch64.sh PROGRAM [ARGS...]
#
# The C library is the cross toolchain's (/usr/aarch64-linux-gnu), the one
# the program was linked against. LD_LIBRARY_PATH keeps it ahead of the
# multiarch libc6:arm64 that liblog's package brings along, a different build
# of glibc than the toolchain's dynamic loader, which must not be mixed with it.
#
# A gtest death test starts a fresh copy of its program by executing its own
# argv[0]. qemu-user cannot execute an aarch64 file by itself (that takes a
# binfmt_misc handler, which containers lack), so the program is given this
# script as argv[0] and finds its way back here through ATCMD_QEMU_PROGRAM.
set -eu
if [ -n "${ATCMD_QEMU_PROGRAM:-}" ]; then
  program=$ATCMD_QEMU_PROGRAM
else
  program=$1
  shift
  case $program in
    /*) ;;
    *) program=$PWD/$program ;;
  esac
fi
exec qemu-aarch64 -L /usr/aarch64-linux-gnu \
  -E LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib \
  -E ATCMD_QEMU_PROGRAM="$program" \
  -0 "$0" "$program" "$@"
