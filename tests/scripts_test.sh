#!/bin/bash
# Usage: scripts_test.sh SOURCE-FOLDER
#
# What every script prints before it does anything: its help, and errors about a read-only checkout,
# missing packages or a port that is in use. Nothing is installed or built.
set -euo pipefail
export LC_ALL=C
source=$1

fail() {
  printf 'scripts_test.sh: %s\n' "$*" >&2
  exit 1
}

root=$(mktemp -d)
listener=''
clean_up() {
  if [ -n "$listener" ]; then kill "$listener"; fi
  chmod -R u+w "$root"
  rm -rf "$root"
}
trap clean_up EXIT
chmod 755 "$root"

# Simulates a system where nothing can be installed or built, so the scripts stop early.
mkdir "$root/bin" "$root/tarn"
for command in apt-get cmake ctest dpkg-query ninja sudo; do
  printf '#!/bin/sh\necho "%s was called"\nexit 99\n' "$command" >"$root/bin/$command"
done
chmod 755 "$root"/bin/*
export PATH=$root/bin:$PATH
cp -R "$source/scripts" "$source/packaging" "$source/fuzz" "$source/VERSION" \
  "$source/CMakeLists.txt" "$root/tarn"
chmod -R a+rX "$root/tarn"

names=()
for script in "$root"/tarn/scripts/*; do
  if [ -x "$script" ]; then names+=("$(basename "$script")"); fi
done
[ ${#names[@]} -ge 13 ] || fail "only ${#names[@]} scripts: ${names[*]}"

# Runs one of the scripts and keeps its status and the number of its lines.
run() {
  status=0
  "${as_user[@]}" "$root/tarn/scripts/$1" "${@:2}" >"$root/said" 2>&1 </dev/null || status=$?
  lines=$(wc -l <"$root/said")
}
as_user=(env)

# ---- Help ----------------------------------------------------------------------------------------

for name in "${names[@]}"; do
  for option in --help -h; do
    run "$name" "$option"
    [ "$status" = 0 ] || fail "$name $option ends with status $status"
    head -n 1 "$root/said" | grep -qE "^(Usage: scripts/|usage: )$name" ||
      fail "$name $option begins with: $(head -n 1 "$root/said")"
    [ "$lines" -ge 4 ] || fail "$name $option has hardly any help"
    if grep -nE '^#|^set |was called|Traceback' "$root/said"; then
      fail "$name $option must not print these lines"
    fi
  done
done
[ ! -e "$root/tarn/build" ] || fail 'a script created a folder just to print its help'

# ---- A read-only checkout ------------------------------------------------------------------------

chmod -R a-w "$root/tarn"
if [ "$(id -u)" = 0 ]; then
  as_user=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
fi
for name in "${names[@]}"; do
  arguments=()
  case $name in
    setup | skips) continue ;; # neither writes to the checkout
    fuzz) arguments=(text) ;;
    release) arguments=(prepare 2.0.0) ;;
  esac
  run "$name" "${arguments[@]}"
  [[ $status != 0 && $lines = 1 && $(cat "$root/said") == "scripts/$name: cannot write to "* ]] ||
    fail "$name in a read-only checkout: status $status, $(cat "$root/said")"
done
as_user=(env)
chmod -R u+w "$root/tarn"

# ---- Missing packages ----------------------------------------------------------------------------

installing=0
for name in "${names[@]}"; do
  arguments=()
  case $name in
    setup) arguments=(build) ;;
    fuzz) arguments=(text) ;;
    release) arguments=(tag) ;;
    *) grep -q '^ *scripts/setup ' "$root/tarn/scripts/$name" || continue ;;
  esac
  run "$name" "${arguments[@]}" --no-install
  [[ $status != 0 && $lines = 1 && $(cat "$root/said") == \
    'scripts/setup: these packages are missing: '*'g++'*' --no-install' ]] ||
    [[ $name =~ ^(package|release)$ && $(cat "$root/said") == *'are missing: build-essential '* ]] ||
    fail "$name --no-install: status $status, $(cat "$root/said")"
  ((++installing))
done
[ "$installing" -ge 11 ] || fail "only $installing scripts know --no-install"

# setup prints what it is about to install.
cat >"$root/bin/apt-get" <<'END'
#!/bin/sh
case $* in *--assume-no*) echo 'Need to get 52.1 MB of archives.' ;; *) echo "apt-get $*" ;; esac
END
if [ "$(id -u)" = 0 ]; then as_user=(setpriv --reuid=nobody --regid=nogroup --clear-groups); fi
run setup memory
as_user=(env)
diff - "$root/said" >&2 <<'END' || fail 'setup does not print this before it calls sudo'
Installing missing packages with sudo, for memory (52.1 MB to download):
valgrind
sudo was called
scripts/setup: sudo refused: as root, run 'apt-get install valgrind'
END

# ---- Long steps ----------------------------------------------------------------------------------

# Prints dots, keeps the output of the command in the log, and ends with its status.
status=0
(
  cd "$root/tarn"
  . scripts/common.sh
  patiently "$root/log" sh -c 'echo begun; sleep 5; echo ended >&2; exit 3'
) 2>"$root/said" >"$root/printed" || status=$?
[ "$status" = 3 ] || fail "a command that ends with status 3 ended with $status"
[ "$(tr '\n' ' ' <"$root/log")" = 'begun ended ' ] || fail "the log has: $(cat "$root/log")"
grep -qx '\.\.*' "$root/said" || fail "a command of five seconds showed: $(cat "$root/said")"
[ ! -s "$root/printed" ] || fail 'dots went to standard output'

# ---- A port that is in use or reserved for root --------------------------------------------------

coproc server {
  exec python3 -c '
import socket
with socket.create_server(("127.0.0.1", 0)) as listening:
    print(listening.getsockname()[1], flush=True)
    input()'
}
# shellcheck disable=SC2154  # coproc sets both
listener=$server_PID
read -r port <&"${server[0]}"
run demo --port "$port"
[[ $status != 0 && $(cat "$root/said") == "scripts/demo: port $port is in use" ]] ||
  fail "demo with a port in use: $(cat "$root/said")"
if [ "$(cat /proc/sys/net/ipv4/ip_unprivileged_port_start)" -gt 1 ]; then
  mkdir -p "$root/tarn/build"
  chmod 777 "$root/tarn/build"
  if [ "$(id -u)" = 0 ]; then as_user=(setpriv --reuid=nobody --regid=nogroup --clear-groups); fi
  run demo --port 1
  [[ $status != 0 && $lines = 1 && $(cat "$root/said") == 'scripts/demo: port 1 needs root'* ]] ||
    fail "demo with a port that needs root: $(cat "$root/said")"
fi
printf '%d scripts.\n' ${#names[@]}
