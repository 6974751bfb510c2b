#!/usr/bin/env bash
# Installs what is missing, builds natively and runs the benchmarks: each library hot path
# against hand-written raw GL doing the same GL work, measured in alternating rounds, as a
# table of median ratios (library / baseline) with their spread. Arguments go to tavrin_bench,
# e.g. --rows=Compute (the rows whose label contains it) or --rounds=N.
# Runs headless (EGL); no display needed.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/setup.sh
cmake -S . -B build/native -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/native -j "$(nproc)" --target tavrin_bench
# The CPU-time rows (what the library adds to the calling thread) with llvmpipe rasterising on
# that thread: its rasteriser threads' hand-offs otherwise make up most of a small draw's time
# and move with whatever else the machine runs. The wall-clock rows (mip chains) with its threads.
LP_NUM_THREADS=0 ./build/native/bin/tavrin_bench --clock=cpu "$@"
./build/native/bin/tavrin_bench --clock=real "$@"
