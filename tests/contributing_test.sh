#!/bin/bash
# Usage: contributing_test.sh SOURCE-FOLDER
#
# Every file and folder that CONTRIBUTING.md names in backticks exists.
set -euo pipefail
cd -- "$1"

# The first word of each code span, if it has a slash or a file extension. "*" matches any text, and
# so does "NAME". build/ is left out because the build creates it.
# shellcheck disable=SC2016
mapfile -t paths < <(awk '/^```/ { code = !code } !code' CONTRIBUTING.md | grep -o '`[^`]*`' |
  tr -d '`' | cut -d ' ' -f 1 | grep -E '^[A-Za-z.]' |
  grep -E '/|\.(md|txt|toml|cpp|hpp|h|c|py|sh|json)$|^VERSION$' | grep -vE '^build/' | sort -u)
[ ${#paths[@]} -ge 60 ] || {
  printf 'contributing_test.sh: only %d paths were found\n' "${#paths[@]}" >&2
  exit 1
}

missing=0
for path in "${paths[@]}"; do
  pattern=${path//NAME/*}
  if [[ $pattern != */* && $pattern == *'*'* ]]; then pattern=tests/request/$pattern; fi
  compgen -G "$pattern" >/dev/null && continue
  printf 'contributing_test.sh: CONTRIBUTING.md names %s, which does not exist\n' "$path" >&2
  missing=1
done
exit $missing
