#!/bin/bash
# Builds the fuzz preset (clang, libFuzzer, ASan and UBSan) and runs every
# harness of fuzz/ for a bounded time each. Fails when a harness finds a
# crash, a hang (one input running 10 s by default), a leak or a memory
# blow-up; the input that did it is kept in build/fuzz/run/<harness>/.
# Prints executions and coverage per harness at the end.
# Usage: scripts/fuzz.sh [seconds-per-harness [harness...]]
#   seconds: default 60; 3600 for the long run. Harnesses are named as in
#   fuzz/ (ntx_fuzz, or just ntx); all of them when none is named.
# FUZZ_RUN names the directory of the logs, inputs and corpora (default
# build/fuzz/run), so that a short run beside a long one keeps apart.
# FUZZ_TIMEOUT is the seconds one input may run before it counts as a hang
# (default 10; more for a long run on a machine busy with other work, where
# a starved process can overrun 10 s of wall time on an ordinary input).
set -euo pipefail
cd "$(dirname "$0")/.."
secs=${1:-60}
shift || true
root=$(pwd)
chosen=" $* "

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j"$(nproc)"

run="${FUZZ_RUN:-$root/build/fuzz/run}"
hang="${FUZZ_TIMEOUT:-10}"
# The harnesses' scratch directories go under one directory of this run (in
# memory when /dev/shm is there: the harnesses write files for every input),
# removed at the end, so that none outlives a crash.
base=/dev/shm
[ -d "$base" ] && [ -w "$base" ] || base="$run"
mkdir -p "$run"
TMPDIR=$(mktemp -d "$base/rvdbfuzz.XXXXXX")
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export RVDB4XX_NOTICE=0
failed=()
summary=()
for src in fuzz/*_fuzz.cpp; do
  name=$(basename "$src" .cpp)
  [ "$chosen" = "  " ] || [[ "$chosen" == *" $name "* || "$chosen" == *" ${name%_fuzz} "* ]] || continue
  dir="$run/$name"
  mkdir -p "$dir/corpus"
  # The seeds the build wrote through the engine, and any inputs kept in the
  # tree, join what earlier runs collected.
  cp -n "$root/build/fuzz/corpus/$name"/* "$dir/corpus/" 2>/dev/null || true
  [ -d "fuzz/corpus/$name" ] && cp -n "fuzz/corpus/$name"/* "$dir/corpus/" 2>/dev/null
  opts=(-max_total_time="$secs" -timeout="$hang" -rss_limit_mb=2048 -malloc_limit_mb=2048 -detect_leaks=1
        -max_len=16384 -print_final_stats=1 -artifact_prefix="$dir/")
  [ -f "fuzz/$name.dict" ] && opts+=(-dict="$root/fuzz/$name.dict")
  echo "== $name: ${secs}s"
  set +e
  "$root/build/fuzz/fuzz/$name" "${opts[@]}" "$dir/corpus" >"$dir/log" 2>&1
  rc=$?
  set -e
  rm -rf "$TMPDIR"/rvdbfuzz_*
  execs=$(sed -nE 's/^stat::number_of_executed_units: *([0-9]+)/\1/p' "$dir/log" | tail -1)
  last=$(grep -E '^#[0-9]+' "$dir/log" | tail -1 || true)
  cov=$(sed -nE 's/.* cov: ([0-9]+) ft: ([0-9]+).*/cov \1 ft \2/p' <<<"$last")
  # Inputs that once found a fault (fuzz/repro/<family>/) must not fail.
  repro="$root/fuzz/repro/${name%_fuzz}"
  if [ $rc -eq 0 ] && [ -d "$repro" ]; then
    set +e
    find "$repro" -type f ! -name '*.md' -print0 |
      xargs -0 -r "$root/build/fuzz/fuzz/$name" -timeout="$hang" -rss_limit_mb=2048 -artifact_prefix="$dir/" >"$dir/repro.log" 2>&1
    rc=$?
    set -e
    [ $rc -ne 0 ] && cat "$dir/repro.log" >>"$dir/log"
  fi
  if [ $rc -ne 0 ]; then
    failed+=("$name")
    summary+=("$name: FAILED (exit $rc) after ${execs:-?} executions, ${cov:-no coverage line}")
    grep -E 'Running:|failed|outside|ERROR:|SUMMARY:|ALARM|Test unit written|^ *#[0-9]+ 0x' "$dir/log" | head -30 || true
  else
    summary+=("$name: ${execs:-?} executions, $cov")
  fi
done
echo "== Fuzzing summary (${secs}s per harness)"
printf '  %s\n' "${summary[@]}"
if [ ${#failed[@]} -gt 0 ]; then
  echo "FAIL: ${failed[*]} (logs and inputs in $run/<harness>/)"
  exit 1
fi
