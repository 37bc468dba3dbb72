# Sourced by the demo and the test command: installs the Debian packages
# named as arguments that are not installed yet (as root, on Debian 12), and
# nothing at all when every one is there, so a second run starts at once.
atcmd_install_missing() {
  local missing=() p native
  native=$(dpkg --print-architecture)
  for p in "$@"; do
    # With a foreign architecture's copy installed too (the arm64 step's
    # multiarch packages), a bare name is ambiguous to dpkg: ask for ours.
    dpkg -s "$p" >/dev/null 2>&1 || { [[ $p != *:* ]] && dpkg -s "$p:$native" >/dev/null 2>&1; } ||
      missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "== installing: ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}
