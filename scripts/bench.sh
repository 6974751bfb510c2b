#!/usr/bin/env bash
# Installs what is missing, builds natively and runs the benchmarks: each library hot path
# against hand-written raw GL doing the same GL work, in the same run, then the table of
# ratios (library / baseline). Arguments go to tavrin_bench, e.g. --benchmark_filter=Compute.
# Runs headless (EGL); no display needed.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/setup.sh
cmake -S . -B build/native -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/native -j "$(nproc)" --target tavrin_bench
./build/native/bin/tavrin_bench "$@"
