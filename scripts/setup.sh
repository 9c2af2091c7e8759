#!/usr/bin/env bash
# Installs what building and testing need on a fresh Debian machine.
# Safe to run again: it installs only what is missing. Arguments name more
# packages to install the same way (scripts/package.sh).
set -euo pipefail

packages=(cmake make g++ clang pkg-config libjsoncpp-dev libgtest-dev libgmock-dev
          libbenchmark-dev strace python3 clang-tidy cppcheck gcovr "$@")
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo_cmd apt-get update -qq
  $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
