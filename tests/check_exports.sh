#!/bin/bash
# Compares the dynamic symbols of the shared library with the functions the
# public header declares; any difference fails.
lib="$1"
header="$2"
want=$(grep -oE 'KXAPI[[:space:]]+[A-Za-z_0-9]+[[:space:]]*\(' "$header" | sed -E 's/KXAPI[[:space:]]+//; s/[[:space:]]*\(//' | sort -u)
syms=$(nm -D --defined-only "$lib" | awk '{print $3}')
have=$(grep -E '^(_?KX|RV5)' <<<"$syms" | sort -u)
if [ "$want" != "$have" ]; then
  echo "exports differ from the header (< header, > library):"
  diff <(echo "$want") <(echo "$have")
  exit 1
fi
other=$(grep -vE '^(_?KX|RV5)' <<<"$syms" | grep -vE '^(_init|_fini|_edata|_end|__bss_start)$' || true)
if [ -n "$other" ]; then
  echo "unexpected exports:"
  echo "$other"
  exit 1
fi
echo "$(wc -l <<<"$want") exports match the header"
