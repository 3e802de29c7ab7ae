#!/bin/bash
# Builds the benchmark (optimised) and runs it at N records (default
# 1,000,000) and at 100,000, each in a scratch directory under /tmp that is
# removed afterwards. Prints one table per run.
#   scripts/bench.sh [N]
set -euo pipefail
cd "$(dirname "$0")/.."
n="${1:-1000000}"
build=build/bench
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DRVDB_TESTS=OFF -DRVDB_BENCH=ON >/dev/null
cmake --build "$build" -j"$(nproc)" --target rvbench toolbench rvdb >/dev/null
"$build/bench/rvbench" "$n"
if [ "$n" != 100000 ]; then
  "$build/bench/rvbench" 100000
fi
"$build/bench/toolbench" "$build/tools/rvdb" "$n"
