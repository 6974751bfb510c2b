#!/usr/bin/env bash
# Installs a built tree into a temporary prefix and builds the pkg-config host
# (examples/pkgconfig) against it with `pkg-config --cflags --libs tavrin-opengl` alone, then
# runs it headless. Usage: scripts/pkgconfig-host.sh [build tree, default build/native]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
tree=${1:-build/native}
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$tree" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name tavrin-opengl.pc -print -quit)")/..
export PKG_CONFIG_PATH="$libdir/pkgconfig"
"${CXX:-c++}" -std=c++17 -Wall -Wextra -Werror examples/pkgconfig/main.cpp \
  $(pkg-config --cflags --libs tavrin-opengl) -o "$prefix/host"
LD_LIBRARY_PATH="$libdir" "$prefix/host"
