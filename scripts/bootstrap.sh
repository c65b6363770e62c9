#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the tools need.
# Idempotent: packages already present are not fetched again.
set -euo pipefail

PACKAGES=(
  build-essential g++-12 cmake ninja-build pkg-config
  g++-multilib
  libloki-dev
  libfftw3-dev
  libhwy-dev
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  libtiff-dev libcli11-dev
  python3 python3-numpy python3-tifffile python3-scipy
  python3-dask python3-distributed python3-zarr
)

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
$SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
