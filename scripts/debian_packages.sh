# shellcheck shell=bash
# Sourced by ./ombrix.sh and .ci/windows.sh: ensure_debian_packages installs the Debian packages
# it is given that are missing (as root; otherwise it names them and stops the calling script).
# Each caller keeps its own package list; the check and the installation live here only.

ensure_debian_packages() {
  local p status
  local missing=()
  for p in "$@"; do
    status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
    [[ "$status" == "install ok installed" ]] || missing+=("$p")
  done
  ((${#missing[@]})) || return 0
  if [[ $(id -u) -ne 0 ]]; then
    echo "Missing Debian packages: ${missing[*]}" >&2
    echo "Install them as root: apt-get install ${missing[*]}" >&2
    exit 1
  fi
  echo "Installing missing Debian packages: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
}
