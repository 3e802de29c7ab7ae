#!/bin/bash
# Installs the build into a scratch prefix, then builds the host program
# against the installed files twice, through find_package and through
# pkg-config, and runs both and the installed rvdb.
set -euo pipefail
build=$1
source_dir=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name 'librvdb4xx.so' | head -n 1)")
export LD_LIBRARY_PATH=$libdir
cmake -S "$source_dir" -B "$work/cm" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cm" >/dev/null
"$work/cm/host" "$work/a.dbf"
PKG_CONFIG_PATH=$libdir/pkgconfig cc -o "$work/pc_host" "$source_dir/host.c" \
  $(PKG_CONFIG_PATH=$libdir/pkgconfig pkg-config --cflags --libs rvdb4xx)
"$work/pc_host" "$work/b.dbf"
"$prefix/bin/rvdb" info "$work/b.dbf" | grep -q "records     1"
echo "installed files: find_package, pkg-config and rvdb work"
