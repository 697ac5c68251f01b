#!/bin/bash
# Usage: exports_test.sh LIBRARY ARCHIVE VERSION-SCRIPT HEADER DEBIAN-SYMBOLS C-COMPILER OBJECT \
#          COUNT [PROGRAM]
#
# The shared library exports exactly what the header declares, each name with its version. It needs
# only the C library, never calls a script's function instead of its own, and runs no code before
# main(). OBJECT, compiled from every_function.c, calls every function. COUNT is the number of names
# in the first version, or "open" if names may still be added to it. With a PROGRAM, the library and
# the program must be able to use files larger than 2 GiB on 32-bit machines.
set -euo pipefail
export LC_ALL=C
library=$1 archive=$2 script=$3 header=$4 symbols=$5 compiler=$6 object=$7 count=$8 program=${9-}

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
failed=0

wrong() {
  printf '%s\n' "$*" >&2
  failed=1
}

same() {
  diff -u "$folder/$1" "$folder/$2" || wrong "$3"
}

# Every function and variable that the header itself declares, with or without the macro that exports
# it: the preprocessor's lines that come from this header, split at the semicolons.
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
# On ARM and RISC-V the stack protector's value is in the loader, which is part of the C library.
nm -D --undefined-only "$library" >"$folder/undefined"
if grep -qE ' __stack_chk_guard(@|$)' "$folder/undefined"; then
  sed -i '/^NEEDED ld-linux-/d' "$folder/links"
fi
soname=$(head -n 1 "$symbols" | cut -d ' ' -f 1)
printf '%s\n' 'NEEDED libc.so.6' "SONAME $soname" >"$folder/expected-links"
sed 's/.*@@//' "$folder/versions" | sort -u >"$folder/script-versions"
sed -nE 's/^ \(symver\)([A-Z_]+_[0-9.]+) .*/\1/p' "$symbols" | sort -u >"$folder/symbol-versions"

same declared names "$header declares other names than $script exports. Is a macro missing?"
same versions exported "$library exports other names or versions than $script."
same names called 'tests/every_function.c does not call every function.'
same script-versions symbol-versions "$symbols does not list the versions of $script."
same expected-links links "$library needs other libraries, or has another name."

# Programs rely on the names in a released version, so a new function needs a new version: put the
# version in a comment after the declaration.
closed=$(grep -c '@@[A-Z_]*_1\.0$' "$folder/exported" || true)
if [ "$count" != open ] && [ "$closed" != "$count" ]; then
  wrong "$library has $closed names in its first version, which is closed and has $count."
fi

# The loader resolves a name in a relocation, and takes a script's function if it has that name.
nm -D --defined-only "$library" | sed -nE 's/.* T ([^@]*).*/\1/p' >"$folder/functions"
readelf -rW "$library" | awk '/^[0-9a-f]+ / { sub(/@.*/, "", $5); print $5 }' >"$folder/resolved"
grep -qx free "$folder/resolved" || wrong "readelf shows no relocations of $library."
if grep -xF -f "$folder/functions" "$folder/resolved"; then
  wrong "$library looks up these functions of its own when it is loaded."
fi

# With 64-bit offsets, glibc has other names for these functions, such as open64().
if [ -n "$program" ]; then
  nm -u "$archive" "$program" | sed -nE 's/^ +[UW] ([^@]*).*/\1/p' >"$folder/used"
  grep -qx open64 "$folder/used" || wrong "$archive does not open files with open64()."
  if grep -xE '(open|openat|creat|fopen|tmpfile|mkos?temp|[fl]?stat|fstatat|lseek|fseeko|ftello|pread|pwrite|mmap|f?truncate|sendfile)' \
    "$folder/used"; then
    wrong "$archive or $program uses these functions with 32-bit offsets."
  fi
fi

# Code that runs before or after main().
readelf -dW "$library" >"$folder/dynamic"
if grep -E '\((PREINIT|INIT|FINI)(_ARRAY)?\)' "$folder/dynamic"; then
  wrong "$library runs code when it is loaded or unloaded."
fi
readelf -SW "$archive" >"$folder/sections"
grep -q ' \.text' "$folder/sections" || wrong "readelf shows no sections of $archive."
if grep -oE ' \.(preinit|init|fini|ctors|dtors)[^ ]*' "$folder/sections"; then
  wrong "$archive has code that runs before or after main()."
fi

if [ "$failed" = 0 ]; then
  printf '%s exports the %d names that its header declares, and needs only the C library.\n' \
    "$soname" "$(wc -l <"$folder/exported")"
fi
exit "$failed"
