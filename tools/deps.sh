# Sourced by the demo, the test command and the scripts they run. Installs
# Debian 12 packages that are missing (as root, or through sudo), and does
# nothing at all when every one is there, so a second run starts at once.
# apt's own output goes to build/logs/apt.log; the terminal gets one line
# saying what is installed, and the log's end only when apt fails.

ATCMD_APT_LOG=build/logs/apt.log

atcmd_sudo() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# atcmd_missing PKG...: prints the packages of the list that are not installed.
atcmd_missing() {
  local p native
  native=$(dpkg --print-architecture)
  for p in "$@"; do
    # With a foreign architecture's copy installed too (the arm64 build's
    # multiarch packages), a bare name is ambiguous to dpkg: ask for ours.
    dpkg -s "$p" >/dev/null 2>&1 || { [[ $p != *:* ]] && dpkg -s "$p:$native" >/dev/null 2>&1; } ||
      echo "$p"
  done
}

# atcmd_apt WHAT ARGS...: one apt-get step into the log; on failure, its end.
atcmd_apt() {
  local what=$1
  shift
  mkdir -p "$(dirname "$ATCMD_APT_LOG")"
  echo "--- $(date -u +%FT%TZ) apt-get $*" >>"$ATCMD_APT_LOG"
  if ! DEBIAN_FRONTEND=noninteractive atcmd_sudo apt-get "$@" >>"$ATCMD_APT_LOG" 2>&1; then
    echo "apt-get could not $what; the end of $ATCMD_APT_LOG:" >&2
    tail -n 25 "$ATCMD_APT_LOG" >&2
    return 1
  fi
}

# atcmd_add_arm64: Debian's arm64 architecture beside the host's, for the
# arm64 build's own liblog and GoogleTest (multiarch packages).
atcmd_add_arm64() {
  dpkg --print-foreign-architectures | grep -qx arm64 && return 0
  echo "== adding Debian's arm64 package architecture (dpkg --add-architecture arm64)"
  atcmd_sudo dpkg --add-architecture arm64
}

# atcmd_install_missing PKG...: installs those of the list not yet installed.
atcmd_install_missing() {
  local missing total
  mapfile -t missing < <(atcmd_missing "$@")
  [ ${#missing[@]} -eq 0 ] && return 0
  atcmd_apt "read the package lists" update -q || return 1
  # What apt would install: the packages named and everything they need.
  total=$(apt-get install -s --no-install-recommends "${missing[@]}" 2>/dev/null | grep -c '^Inst ' || true)
  echo "== installing ${#missing[@]} missing packages, ${total} with what they need" \
    "(apt's output: $ATCMD_APT_LOG): ${missing[*]}"
  atcmd_apt "install ${missing[*]}" install -y -q --no-install-recommends "${missing[@]}"
}
