#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (AddressSanitizer + UBSan) and runs each for a bounded
# time on its seed corpus from fuzz/corpus (new inputs go to build/fuzz/corpus, the seeds stay).
# A fixed seed (TAVRIN_FUZZ_SEED, default 1) keeps CI runs repeatable.
# Usage: scripts/fuzz.sh [seconds per target, default 20]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
seconds=${1:-20}
CC=clang CXX=clang++ cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAVRIN_BUILD_FUZZERS=ON \
  -DTAVRIN_SANITIZE=ON -DTAVRIN_BUILD_TESTS=OFF -DTAVRIN_BUILD_EXAMPLES=OFF -DTAVRIN_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build build/fuzz -j "$(nproc)" >/dev/null
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
for fuzzer in build/fuzz/bin/fuzz_*; do
  name=$(basename "$fuzzer")
  corpus=fuzz/corpus/${name#fuzz_}
  mkdir -p "build/fuzz/corpus/$name" "$corpus"
  echo "=== $name (${seconds}s)"
  status=0
  "$fuzzer" -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=10 -seed=${TAVRIN_FUZZ_SEED:-1} -artifact_prefix=build/fuzz/ \
    "build/fuzz/corpus/$name" "$corpus" >"build/fuzz/$name.log" 2>&1 || status=$?
  grep -E "^(#[0-9]+.*DONE|SUMMARY|.*runtime error)" "build/fuzz/$name.log" || true
  if [[ $status -ne 0 ]]; then
    echo "$name found a fault (log: build/fuzz/$name.log, input: build/fuzz/crash-* / leak-* / timeout-*)"
    exit 1
  fi
done
echo "fuzzing: every target ran ${seconds}s without a finding"
