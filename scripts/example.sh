#!/usr/bin/env bash
# Installs what is missing, builds, and runs the example host program.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/setup.sh
cmake -S . -B build/native -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/native -j "$(nproc)" --target tavrin_info
./build/native/bin/tavrin_info "$@"
