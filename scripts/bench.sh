#!/usr/bin/env bash
# Installs what is missing, builds natively and runs the benchmarks: each library hot path
# against hand-written raw GL doing the same GL work, measured in alternating rounds, as a
# table of median ratios (library / baseline) with their spread. Arguments go to tavrin_bench,
# e.g. --rows=Compute (the rows whose label contains it) or --rounds=N (default 15).
# Runs headless (EGL); no display needed.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/setup.sh
cmake -S . -B build/native -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/native -j "$(nproc)" --target tavrin_bench
./build/native/bin/tavrin_bench "$@"
