#!/usr/bin/env bash
# Sets up a Debian 12 machine for Ardentium and builds it.
#   tools/setup.sh linux   Debian packages for the Linux build, then build/ (the program is build/ardentium)
#   tools/setup.sh all     also the Windows cross build in build-win/ (ardentium.exe) and what the tests need
set -euo pipefail
cd "$(dirname "$0")/.."
mode=${1:-linux}

linux_pkgs=(build-essential cmake ninja-build pkg-config python3 libirrlicht-dev libstb-dev libsdl2-dev
            libegl-dev libgl-dev libgles-dev libgl1-mesa-dri libegl-mesa0 libgtest-dev libgmock-dev googletest libbenchmark-dev libbullet-dev
            fonts-liberation libfontconfig-dev libopenal-dev libvorbis-dev sox xvfb xauth xdotool x11-utils
            libimgui-dev libcurl4-openssl-dev)
win_pkgs=(g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine wine64 dpkg-dev)
# Sanitizer and fuzz builds of the tests.
test_pkgs=(clang libclang-rt-14-dev)

want=("${linux_pkgs[@]}")
[ "$mode" = all ] && want+=("${win_pkgs[@]}" "${test_pkgs[@]}")

missing=()
for p in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "== installing: ${missing[*]}"
  SUDO=; [ "$(id -u)" -eq 0 ] || SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

jobs=$(nproc)
echo "== building Linux (build/)"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$jobs"

if [ "$mode" = all ]; then
  echo "== Windows libraries"
  bash tools/win-deps.sh
  echo "== building Windows (build-win/)"
  cmake -S . -B build-win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build build-win -j "$jobs"
fi
