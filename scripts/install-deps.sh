#!/usr/bin/env bash
# Installs the Debian packages that building and testing zrn need, skipping
# those already present. Extra package names may be given as arguments (the
# benchmark and fuzzing scripts name the peers and tools only they need).
set -euo pipefail

packages=(
  g++ cmake make pkg-config
  libboost-thread-dev libboost-date-time-dev libboost-filesystem-dev libboost-system-dev
  libboost-stacktrace-dev
  libzip-dev libtinyxml-dev libsqlite3-dev libpq-dev
  libgtest-dev libgmock-dev locales
  zip unzip python3
  python3-dev pybind11-dev
  "$@"
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "install-deps: not root and no sudo; install by hand: ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
"${as_root[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends \
  "${missing[@]}" >/dev/null
