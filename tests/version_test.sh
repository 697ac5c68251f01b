#!/bin/bash
# Usage: version_test.sh SOURCE-FOLDER
#
# Both changelogs must have the version in VERSION.
set -euo pipefail
cd -- "$1"

fail() {
  printf 'version_test.sh: %s\n' "$*" >&2
  exit 1
}

read -r version date <VERSION
[[ $version =~ ^[0-9]+\.[0-9]+\.[0-9]+$ && $date =~ ^[0-9]{4}-[0-9]{2}-[0-9]{2}$ ]] ||
  fail "VERSION holds '$version' and '$date', not a version and a date"

heading=$(grep -m 1 '^## ' CHANGELOG.md)
[[ $heading == "## $version ("* || $heading == *' (unreleased)' ]] ||
  fail "CHANGELOG.md begins with '$heading', VERSION with $version"

debian=packaging/debian/changelog
[[ $(head -n 1 "$debian") == "tarn ($version-"[0-9]*') '* ]] ||
  fail "$debian begins with '$(head -n 1 "$debian")', VERSION with $version"
signed=$(sed -n 's/^ -- .*>  //p' "$debian" | head -n 1)
[ "$(date -u -d "$signed" +%F)" = "$date" ] || fail "$debian has '$signed', VERSION $date"
