#!/bin/bash
# Usage: exports_test.sh LIBRARY MAP HEADER C-COMPILER OBJECT
#
# The shared library shows the functions of the header and nothing else, and needs the C library
# alone. The object uses every one of them.
set -euo pipefail
export LC_ALL=C
library=$1 map=$2 header=$3 compiler=$4 object=$5

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
failed=0

same() {
  if ! diff -u "$folder/$1" "$folder/$2"; then
    printf '%s\n' "$3" >&2
    failed=1
  fi
}

"$compiler" -E -P "$header" | tr '\n' ' ' | tr ';' '\n' | grep -F '__visibility__("default")' |
  sed -E 's/^.*__visibility__\("default"\)\)\)//; s/\(.*//; s/.*[ *]([A-Za-z_0-9]+) *$/\1/' |
  sort >"$folder/header"
sed -nE 's/^ +([A-Za-z_0-9]+);$/\1/p' "$map" | sort >"$folder/map"
nm -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' |
  sort >"$folder/library"
nm -u "$object" | awk '{ print $2 }' | grep -xF -f "$folder/map" | sort >"$folder/object"
readelf -d "$library" | sed -nE 's/.*\((NEEDED|SONAME)\).*\[(.*)\]/\1 \2/p' | sort >"$folder/links"
printf '%s\n' 'NEEDED libc.so.6' 'SONAME libtarn.so.1' >"$folder/wanted-links"

[ -s "$folder/header" ] || { printf 'no declaration found in %s\n' "$header" >&2; exit 1; }
same header map 'The header and the map name different functions.'
same map library 'The map and the library name different functions.'
same map object 'tests/every_function.c does not call every function.'
same wanted-links links 'The library is linked differently.'

if [ "$failed" = 0 ]; then
  printf 'The library shows the %d names of the header and needs libc.so.6 alone.\n' \
    "$(wc -l <"$folder/library")"
fi
exit "$failed"
