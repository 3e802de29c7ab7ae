#!/bin/bash
# Builds the library and the rvdb tool, shows the tool at work on a sample
# table it makes (import, info, dump, find, verify, reindex), then runs the
# demo host program.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh build
cmake --preset default -DRVDB_TESTS=OFF >/dev/null
cmake --build --preset default -j"$(nproc)" --target rvdb rvdemo
rvdb=$PWD/build/default/tools/rvdb
rm -rf build/demo-run && mkdir -p build/demo-run && cd build/demo-run
cat > people.csv <<'CSV'
NAME,CITY,AMOUNT,BORN,ACTIVE
"Smith, Anna",OSLO,1250.50,1971-03-14,T
Okafor,LAGOS,-80.25,1990-11-02,T
Lindqvist,STOCKHOLM,0,1958-07-30,F
CSV
set -x
"$rvdb" import people.dbf --from people.csv --fields 'NAME C 20, CITY C 15, AMOUNT N 12 2, BORN D, ACTIVE L'
"$rvdb" info people.dbf
"$rvdb" dump people.dbf --format json
# An index made by the demo host program's engine, then rebuilt by the tool.
cat > mkindex.c <<'C'
#include <rvdb4xx.h>
int main(void) { char e[] = "NAME"; KXDINIT(20, 4); return KXDCCREATE("name.ntx", 'C', e, 20, 0) != 0; }
C
cc mkindex.c -I../../include -L../default -lrvdb4xx -o mkindex && LD_LIBRARY_PATH=../default ./mkindex
"$rvdb" reindex people.dbf name.ntx
"$rvdb" dump people.dbf --index name.ntx
"$rvdb" find people.dbf name.ntx Oka
"$rvdb" verify people.dbf name.ntx && echo "verify: all well"
set +x
../default/tools/rvdemo
