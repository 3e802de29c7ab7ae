#!/bin/bash
# Builds the library and runs the demo host program.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh build
cmake --preset default -DRVDB_TESTS=OFF >/dev/null
cmake --build --preset default -j"$(nproc)" --target rvdemo
mkdir -p build/demo-run
cd build/demo-run
../default/tools/rvdemo
