#!/bin/bash
# Builds and runs every test: the Linux suite, the same suite under
# AddressSanitizer and UndefinedBehaviorSanitizer, the suite built for 32-bit
# x86 and run under qemu-i386, every fuzzing harness for a minute, then the
# Windows builds (the 32-bit DLL's export table, the 64-bit suite under
# Wine). Fails when any test fails. Prints each stage's time at the end.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh test
jobs=$(nproc)
times=()
# Runs one stage and notes how long it took.
stage() {
  local name=$1 start=$SECONDS
  shift
  echo "== $name"
  "$@"
  times+=("$name: $((SECONDS - start))s")
}

linux() {
  cmake --preset default -DRVDB_TESTS=ON -DRVDB_ONLY_DIRS= >/dev/null
  cmake --build --preset default -j"$jobs"
  ctest --preset default
}
sanitizers() {
  cmake --preset asan -DRVDB_ONLY_DIRS= >/dev/null
  cmake --build --preset asan -j"$jobs"
  ctest --preset asan
}
x86() {
  cmake --preset linux-x86 -DRVDB_ONLY_DIRS= >/dev/null
  cmake --build --preset linux-x86 -j"$jobs"
  ctest --preset linux-x86
}

stage "Linux build and tests" linux
stage "Sanitizer build and tests" sanitizers
stage "32-bit x86 build and tests under qemu-i386" x86
stage "Fuzzing, 60 s per harness" bash scripts/fuzz.sh 60
stage "Windows builds" env RVDB_ONLY_DIRS= bash scripts/test-windows.sh
echo "== Stage times"
printf '  %s\n' "${times[@]}"
