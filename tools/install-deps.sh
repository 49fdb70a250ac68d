#!/usr/bin/env bash
# Installs every build and test dependency from Debian packages. Safe to run again.
set -euo pipefail
packages=(
  build-essential cmake ninja-build pkg-config
  libpugixml-dev libssl-dev zlib1g-dev libsqlcipher-dev sqlcipher
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  clang libclang-rt-dev
  libcli11-dev nlohmann-json3-dev
  libcpp-httplib-dev libsqlite3-dev
  libcurl4-openssl-dev
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all packages present"
  exit 0
fi
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -q
"${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
