#!/bin/bash
# Builds and runs every test: the Linux suite, then the same suite under
# AddressSanitizer and UndefinedBehaviorSanitizer. Fails when any test fails.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh test
jobs=$(nproc)

echo "== Linux build and tests"
cmake --preset default -DRVDB_TESTS=ON >/dev/null
cmake --build --preset default -j"$jobs"
ctest --preset default

echo "== Sanitizer build and tests"
cmake --preset asan >/dev/null
cmake --build --preset asan -j"$jobs"
ctest --preset asan
