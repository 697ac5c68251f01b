#!/bin/bash
# Usage: systemd_test.sh BUILD-FOLDER
#
# systemd accepts the installed units, finds the manual page that they name, and rates the service as
# well confined. The service runs the installed tarn-serve with options that it accepts.
set -euo pipefail
export LC_ALL=C SYSTEMD_COLORS=0
build=$1

fail() {
  printf 'systemd_test.sh: %s\n' "$*" >&2
  exit 1
}

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
cmake --install "$build" --prefix "$root" --component Unspecified >"$root/log"
units=$root/lib/systemd/system

# The units name the folder that was configured. Here, the programs are in another one.
program=$(sed -n 's/^ExecStart=\([^ ]*\) .*/\1/p' "$units/tarn-serve@.service")
[[ $program == /*/bin/tarn-serve ]] || fail "the service runs $program"
sed -i "s|^ExecStart=$program |ExecStart=$root/bin/tarn-serve |" "$units/tarn-serve@.service"
export MANPATH=$root/share/man:
systemd-analyze verify --recursive-errors=no "$units/tarn-serve@.service" \
  "$units/tarn-serve@.socket" >"$root/said" 2>&1 || fail "$(cat "$root/said")"
[ ! -s "$root/said" ] || fail "$(cat "$root/said")"

# A unit with a mistake is found, so the check above is one.
mkdir "$root/wrong"
for mistake in 's/^KillMode=.*/KillMode=some/' 's|bin/tarn-serve |bin/missing |' \
  's/\(1\)$/(7)/' 's/^ProtectHome=/ProtectHouse=/'; do
  sed -E "$mistake" "$units/tarn-serve@.service" >"$root/wrong/tarn-serve@.service"
  cmp -s "$units/tarn-serve@.service" "$root/wrong/tarn-serve@.service" &&
    fail "$mistake changes nothing"
  cp "$units/tarn-serve@.socket" "$root/wrong"
  systemd-analyze verify --recursive-errors=no "$root/wrong/tarn-serve@.service" >"$root/said" \
    2>&1 || true
  [ -s "$root/said" ] || fail "systemd does not report $mistake"
done

# Of 100, where a service without any protection has 96.
systemd-analyze security --offline=yes --threshold=18 "$units/tarn-serve@.service" \
  >"$root/said" 2>&1 || fail "$(cat "$root/said")"
# shellcheck disable=SC2016
for line in Type=notify KillMode=mixed OOMPolicy=continue LimitCORE=0 \
  'ExecReload=/bin/kill -HUP $MAINPID'; do
  grep -qxF "$line" "$units/tarn-serve@.service" || fail "the service has no $line"
done

# The options of the service are set by a variable; without any, its command line must be accepted.
"$root/bin/tarn-serve" --children 8 --seconds 10 -- true </dev/null ||
  fail 'tarn-serve refuses the command line of the service'
tail -n 1 "$root/said"
