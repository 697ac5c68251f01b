#!/bin/bash
# Usage: robustness_test.sh PAGE BUILD-FOLDER CTEST PROGRAM...
#
# Every item of the page's lists of inputs and cases names tests, every test that the page names,
# anywhere, exists, and the page names every test of hostile input.
set -euo pipefail
export LC_ALL=C
page=$1 build=$2 ctest=$3
shift 3

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
failed=0

fail() {
  printf '%s\n' "$*" >&2
  failed=1
}

# Lists the tests of each program, without the type parameter after a suite's name, and those of
# CTest. CTest starts a new log even when it only lists tests. It runs in another folder here,
# because scripts/skips reads the log of the current run.
mkdir "$folder/list"
printf 'subdirs("%s")\n' "$build" >"$folder/list/CTestTestfile.cmake"
{
  for program; do
    "$program" --gtest_list_tests |
      awk '/^[A-Za-z_]/ { suite = $1; sub(/\/.*/, ".", suite) } /^  / { print suite $1 }'
  done
  for configuration in Load Servers Soak; do
    "$ctest" --test-dir "$folder/list" -C "$configuration" -N
  done | sed -nE 's/^ *Test +#[0-9]+: //p'
} | sort -u >"$folder/tests"
# Not every build has the tests that need a web server.
with_e2e=no
if grep -q '^e2e:' "$folder/tests"; then with_e2e=yes; fi

# Prints "name test" for each test that the page names, and "bare item" for each without any.
awk '
  function close_item() { if (item != "" && names == 0) print "bare", item }
  listed && /^(- |[0-9]+\. )/ { close_item(); item = $0; names = 0 }
  /^#/ { close_item(); item = "" }
  /^## / { listed = /What strangers send|Defined where/ }
  {
    rest = $0
    while (match(rest, /`(e2e:[a-z_]+|[A-Z][A-Za-z0-9]*\.[A-Z][A-Za-z0-9]*)`/)) {
      print "name", substr(rest, RSTART + 1, RLENGTH - 2)
      rest = substr(rest, RSTART + RLENGTH)
      ++names
    }
  }
  END { close_item() }
' "$page" >"$folder/items"
sed -n 's/^name //p' "$folder/items" | sort -u >"$folder/named"

while read -r name; do
  if [[ $name == e2e:* && $with_e2e == no ]]; then continue; fi
  grep -qxF -- "$name" "$folder/tests" || fail "The page names a test that does not exist: $name"
done <"$folder/named"

while IFS= read -r item; do
  fail "No test is named at: $item"
done < <(sed -nE '/^bare /s/^bare //p' "$folder/items")

while read -r name; do
  fail "The page does not name the test $name"
done < <(grep -E '^(Hostile|MemoryEdge)' "$folder/tests" | grep -vxF -f "$folder/named")

sed -nE 's/^([0-9]+)\. .*/\1/p' "$page" >"$folder/numbers"
if ! diff <(seq 43) "$folder/numbers" >&2; then fail 'The inputs are not numbered from 1 to 43.'; fi

[ "$failed" = 0 ] || exit 1
printf '%d tests are on the page.\n' "$(wc -l <"$folder/named")"
