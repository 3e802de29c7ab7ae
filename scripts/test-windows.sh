#!/bin/bash
# The Windows builds, cross-compiled with mingw-w64:
#   1. RVDB4XX.DLL for 32-bit x86 (__stdcall exports, undecorated names) and
#      its import library; the DLL's export table must list exactly the
#      functions the public header declares, and it may need only system DLLs.
#   2. The 64-bit library, demo and test programs, run under Wine (wine64).
# Fails when any check or test fails. Usage: scripts/test-windows.sh
# (RVDB_ONLY_DIRS="dbf;convert" in the environment builds only those source
# directories, and then skips the export check.)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=$(nproc)
only="${RVDB_ONLY_DIRS:-}"
start=$(date +%s)

# ---- What the Windows builds need (Debian packages), installed when missing.
want=(cmake make gcc-mingw-w64-i686 g++-mingw-w64-i686 g++-mingw-w64-x86-64
      binutils-mingw-w64-i686 binutils-mingw-w64-x86-64 libgtest-dev wine64)
missing=()
for p in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
wine=/usr/lib/wine/wine64
[ -x "$wine" ] || { echo "FAIL: $wine not found (package wine64)"; exit 1; }

# ---- 1. The 32-bit DLL and its export table.
echo "== Windows x86 (32-bit): RVDB4XX.DLL"
b32="$root/build/win32"
cmake -S . -B "$b32" --toolchain cmake/toolchain-mingw32.cmake \
  -DCMAKE_BUILD_TYPE=Release -DRVDB_TESTS=OFF -DRVDB_BENCH=OFF \
  -DRVDB_ONLY_DIRS="$only" >/dev/null
cmake --build "$b32" -j"$jobs"
dll="$b32/bin/RVDB4XX.DLL"
objdump=i686-w64-mingw32-objdump
# Names the header declares with KXAPI.
want_names=$(grep -oE 'KXAPI[[:space:]]+[A-Za-z_0-9]+[[:space:]]*\(' include/rvdb4xx.h |
             sed -E 's/KXAPI[[:space:]]+//; s/[[:space:]]*\(//' | sort -u)
# Names in the DLL's export table ("[   3] KXDINIT" lines of objdump -p).
have_names=$("$objdump" -p "$dll" |
              sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' |
              sed -nE 's/^[[:space:]]*\[[[:space:]]*[0-9]+\][[:space:]]+(.+)$/\1/p' | sort -u)
if [ -z "$have_names" ]; then
  echo "FAIL: no export table in $dll"
  exit 1
fi
if grep -q '@' <<<"$have_names"; then
  echo "FAIL: decorated names in the export table of $dll:"
  grep '@' <<<"$have_names"
  exit 1
fi
if [ -z "$only" ]; then
  if [ "$want_names" != "$have_names" ]; then
    echo "FAIL: the exports of $dll differ from the header (< header, > DLL):"
    diff <(echo "$want_names") <(echo "$have_names") || true
    exit 1
  fi
  echo "RVDB4XX.DLL (x86) exports exactly the header's $(wc -l <<<"$want_names") functions, undecorated"
else
  extra=$(comm -13 <(echo "$want_names") <(echo "$have_names"))
  if [ -n "$extra" ]; then
    echo "FAIL: $dll exports names the header does not declare:"
    echo "$extra"
    exit 1
  fi
  echo "RVDB4XX.DLL (x86): partial build ($only), $(wc -l <<<"$have_names") exports, all declared"
fi
# Only system DLLs: the compiler's runtimes are linked in.
deps=$("$objdump" -p "$dll" | sed -nE 's/^[[:space:]]*DLL Name: (.+)$/\1/p' | sort -u)
nonsys=$(grep -viE '^(kernel32|user32|msvcrt|advapi32|ntdll)\.dll$' <<<"$deps" || true)
if [ -n "$nonsys" ]; then
  echo "FAIL: $dll needs DLLs that Windows does not ship:"
  echo "$nonsys"
  exit 1
fi
echo "RVDB4XX.DLL (x86) needs only: $(tr '\n' ' ' <<<"$deps")"
# The import library maps the header's decorated names to the exports.
implib=$(i686-w64-mingw32-nm "$b32/bin/RVDB4XX.lib")
if ! grep -q ' __imp__KXDINIT@8$' <<<"$implib"; then
  echo "FAIL: RVDB4XX.lib does not provide KXDINIT@8"
  exit 1
fi

# ---- 2. The 64-bit build and the whole test suite under Wine.
echo "== Windows x64 (64-bit): library, demo and tests under Wine"
b64="$root/build/win64"
cmake -S . -B "$b64" --toolchain cmake/toolchain-mingw64.cmake \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DRVDB_TESTS=ON -DRVDB_BENCH=OFF \
  -DRVDB_ONLY_DIRS="$only" >/dev/null
cmake --build "$b64" -j"$jobs"

export WINEPREFIX="$b64/wineprefix"
export WINEDEBUG=-all
# No Mono or Gecko installers, no windows on any display.
export WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY WAYLAND_DISPLAY
export RVDB4XX_NOTICE=0
wineserver=/usr/lib/wine/wineserver64
[ -x "$wineserver" ] || wineserver=/usr/lib/wine/wineserver
cleanup() { WINEPREFIX="$WINEPREFIX" "$wineserver" -k >/dev/null 2>&1 || true; }
trap cleanup EXIT
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  echo "creating the Wine prefix $WINEPREFIX"
  timeout 300 "$wine" wineboot -i </dev/null >"$b64/wineboot.log" 2>&1 ||
    { echo "FAIL: wineboot -i (see $b64/wineboot.log)"; exit 1; }
else
  timeout 300 "$wine" wineboot -u </dev/null >"$b64/wineboot.log" 2>&1 ||
    { echo "FAIL: wineboot -u (see $b64/wineboot.log)"; exit 1; }
fi
"$wineserver" -w >/dev/null 2>&1 || true

set +e
ctest --test-dir "$b64" --output-on-failure -j"$jobs" --timeout 900
rc=$?
set -e
secs=$(( $(date +%s) - start ))
if [ $rc -ne 0 ]; then
  echo "== Windows builds: FAILED (tests under Wine failed; ${secs}s)"
  exit 1
fi
n=$(ctest --test-dir "$b64" -N | sed -nE 's/^Total Tests: ([0-9]+)/\1/p')
echo "== Windows builds: OK (x86 DLL exports checked; $n test programs passed under Wine; ${secs}s)"
