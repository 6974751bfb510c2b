#!/usr/bin/env bash
# Installs the Debian 12 packages the build needs that are missing (apt-get as root, sudo
# otherwise). `setup.sh` covers the native build and the examples; `setup.sh --tests` adds
# what the test suites need: MinGW-w64 and Wine for the Windows build, clang, Xvfb tools,
# xdotool, doxygen for the API reference.
set -euo pipefail

packages=(cmake make g++ pkg-config libgtest-dev libbenchmark-dev libglew-dev libeigen3-dev libstb-dev
  libx11-dev libxrandr-dev libfontconfig-dev libfreetype-dev libegl-dev libgl-dev libglu1-mesa-dev
  libgl1-mesa-dri libegl-mesa0 xvfb xauth x11-utils openbox fonts-liberation)
if [[ "${1:-}" == "--tests" ]]; then
  packages+=(googletest mingw-w64 g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix wine wine64
    xdotool x11-xserver-utils clang libclang-rt-14-dev doxygen)
fi

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "Installing: ${missing[*]}"
sudo=()
[[ $(id -u) -ne 0 ]] && sudo=(sudo)
"${sudo[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
