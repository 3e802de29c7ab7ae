#!/bin/bash
# Installs what building and testing need on Debian 12, skipping what is
# already there. Run as root. Usage: scripts/deps.sh [build|test]
set -euo pipefail
want=(build-essential cmake libcli11-dev nlohmann-json3-dev libfmt-dev pkg-config)
if [ "${1:-build}" = test ]; then
  want+=(libgtest-dev python3 python3-dbf python3-dbfread libdbd-xbase-perl binutils gcc-mingw-w64-i686 g++-mingw-w64-i686 g++-mingw-w64-x86-64 wine64
         g++-multilib qemu-user clang-14 libclang-rt-14-dev)
fi
missing=()
for p in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
