#!/bin/bash
# Usage: exports_test.sh LIBRARY VERSION-SCRIPT HEADER DEBIAN-SYMBOLS C-COMPILER OBJECT
#
# The shared library exports exactly what the header declares, each name with its version, and needs
# only the C library. OBJECT, compiled from every_function.c, calls every function.
set -euo pipefail
export LC_ALL=C
library=$1 script=$2 header=$3 symbols=$4 compiler=$5 object=$6

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
failed=0

same() {
  if ! diff -u "$folder/$1" "$folder/$2"; then
    printf '%s\n' "$3" >&2
    failed=1
  fi
}

# Every function and variable that the header itself declares, with or without TARN_API: the
# preprocessor's lines that come from this header, split at the semicolons.
"$compiler" -E "$header" |
  awk -v header="\"$header\"" '/^# [0-9]+ / { inside = $3 == header; next } inside' |
  tr '\n' ' ' | tr ';' '\n' | grep -E '\(|extern' | grep -vE '^ *(typedef|enum)' |
  sed -E 's/__attribute__\(\([^)]*(\([^)]*\))?\)\)//g; s/^ *extern "C" \{//; s/\(.*//
          s/.*[ *]([A-Za-z_0-9]+) *$/\1/' |
  sort >"$folder/declared"
awk '/^TARN_/ { names = "" } /;$/ && !/[*}]/ { sub(/;/, ""); held[++count] = $1 }
  /^}/ { for (i = 1; i <= count; ++i) print held[i] "@@" version; count = 0 }
  /\{$/ { version = $1 }' "$script" | sort >"$folder/versions"
sed 's/@.*//' "$folder/versions" | sort >"$folder/names"
nm -D --with-symbol-versions --defined-only "$library" | awk '$2 != "A" { print $3 }' |
  sort >"$folder/exported"
nm -u "$object" | awk '{ print $2 }' | grep -xF -f "$folder/names" | sort >"$folder/called"
readelf -d "$library" | sed -nE 's/.*\((NEEDED|SONAME)\).*\[(.*)\]/\1 \2/p' | sort >"$folder/links"
printf '%s\n' 'NEEDED libc.so.6' 'SONAME libtarn.so.1' >"$folder/expected-links"
sed 's/.*@@//' "$folder/versions" | sort -u >"$folder/script-versions"
sed -nE 's/^ \(symver\)(TARN_[0-9.]+) .*/\1/p' "$symbols" | sort -u >"$folder/symbol-versions"

same declared names "$header declares other names than $script exports. Is a TARN_API missing?"
same versions exported "$library exports other names or versions than $script."
same names called 'tests/every_function.c does not call every function.'
same script-versions symbol-versions "$symbols does not list the versions of $script."
same expected-links links 'The library needs other libraries, or has another name.'

# Programs rely on the names in a released version, so a new function needs a new version: put the
# version in a comment after the declaration.
closed=$(grep -c '@@TARN_1\.0$' "$folder/exported" || true)
if [ "$closed" != 209 ]; then
  printf '%s has %d names in version TARN_1.0, which is closed and has 209.\n' "$library" \
    "$closed" >&2
  failed=1
fi

if [ "$failed" = 0 ]; then
  printf 'The library exports the %d names that the header declares, and needs only libc.so.6.\n' \
    "$(wc -l <"$folder/exported")"
fi
exit "$failed"
