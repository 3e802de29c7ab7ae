#!/bin/bash
# Builds and runs every test: the Linux suite, the same suite under
# AddressSanitizer and UndefinedBehaviorSanitizer, then the Windows builds
# (the 32-bit DLL's export table, the 64-bit suite under Wine). Fails when
# any test fails.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh test
jobs=$(nproc)

echo "== Linux build and tests"
cmake --preset default -DRVDB_TESTS=ON -DRVDB_ONLY_DIRS= >/dev/null
cmake --build --preset default -j"$jobs"
ctest --preset default

echo "== Sanitizer build and tests"
cmake --preset asan -DRVDB_ONLY_DIRS= >/dev/null
cmake --build --preset asan -j"$jobs"
ctest --preset asan

echo "== Windows builds"
RVDB_ONLY_DIRS= bash scripts/test-windows.sh
