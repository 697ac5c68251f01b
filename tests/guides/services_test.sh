#!/bin/bash
# The file that starts services in the guide "Serving" ends them without a word, however it is ended,
# and reports a service that it cannot end.
set -euo pipefail
export LC_ALL=C
services=$(realpath "$(dirname -- "$0")/../../servers/fastcgi/services.sh")

fail() {
  printf 'services_test.sh: %s\n' "$*" >&2
  exit 1
}

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
chmod 755 "$folder"
cd "$folder"
# The shell forgets the service that has ended by the time the server ends.
cat >start.sh <<EOF
. $services
serve sh -c 'echo \$\$ >>pids; exec sleep 100'
serve true
run sh -c 'echo \$\$ >>pids; sleep 100 & trap "kill \$! 2>/dev/null; exit" INT TERM; wait'
EOF
chmod 777 .
user=()
if [ "$(id -u)" = 0 ]; then user=(setpriv --reuid=www-data --regid=www-data --clear-groups); fi

# Starts the script in a process group of its own, ends it as told, and shows what it has printed.
end() {
  local tries=0 process
  rm -rf pids said socket
  set -m
  "${user[@]}" sh start.sh >said 2>&1 &
  set +m
  until [ -e pids ] && [ "$(wc -l <pids)" = 2 ]; do
    sleep 0.02
    [ $((++tries)) -lt 5000 ] || fail "it does not start: $(cat said)"
  done
  kill "$1" -- "$2$!"
  wait $! || true
  while read -r process; do
    [ ! -d "/proc/$process" ] || grep -q '^State:.Z' "/proc/$process/status" 2>/dev/null ||
      fail "process $process stays after $1 $2"
  done <pids
  cat said
}

for signal in -TERM -INT; do
  for whom in '' -; do
    for _ in 1 2 3 4 5; do
      said=$(end $signal "$whom")
      [ -z "$said" ] || fail "after $signal to $whom it said: $said"
    done
  done
done

# Process 1 belongs to another user.
[ ${#user[@]} -gt 0 ] || [ "$(id -u)" != 0 ] || fail 'must not try to end process 1'
# shellcheck disable=SC2016
sed -i 's/^serve true/services="$services 1"/' start.sh
said=$(end -TERM '')
[[ $said == *'ermi'* ]] || fail "it does not report a service that it cannot end: $said"
