#!/usr/bin/env bash
# Installs what is missing, builds, and runs the viewer example.
#   scripts/example.sh [viewer options]            native build
#   scripts/example.sh --windows [viewer options]  Windows build under Wine
# With a display (DISPLAY set) the viewer opens its window; keys 1/2/3 switch views, F11 toggles
# full screen, Escape quits. Without one it starts a private Xvfb and renders 5 frames, writing
# every view as PNG to build/viewer-output (pass --frames/--out to choose).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
jobs=$(nproc)

platform=native
if [[ "${1:-}" == "--windows" ]]; then
  platform=windows
  shift
fi
arguments=("$@")

if [[ $platform == windows ]]; then
  bash scripts/setup.sh --tests
  cmake -S . -B build/windows -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build build/windows -j "$jobs" --target tavrin_viewer
  viewer=(wine build/windows/bin/tavrin_viewer.exe)
  export WINEDEBUG=-all WINEPREFIX="$root/build/wineprefix"
else
  bash scripts/setup.sh
  cmake -S . -B build/native -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build build/native -j "$jobs" --target tavrin_viewer
  viewer=(build/native/bin/tavrin_viewer)
fi

if [[ -z "${DISPLAY:-}" ]]; then
  source scripts/xvfb.sh
  tavrin_start_xvfb
  [[ " ${arguments[*]-} " == *" --frames "* ]] || arguments+=(--frames 5)
  [[ " ${arguments[*]-} " == *" --out "* ]] || arguments+=(--out "build/viewer-output/$platform")
fi
"${viewer[@]}" "${arguments[@]}"
