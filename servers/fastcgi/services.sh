# Starts services with serve and the web server with run, which ends all of them at INT or TERM.
mkdir -p socket
if [ "$(id -u)" = 0 ]; then
  as_user='setpriv --reuid=www-data --regid=www-data --clear-groups'
  chown www-data: socket
fi

serve() {
  $as_user env -i PATH="$PATH" "$@" 2>>scripts.log &
  services="$services $!"
}

# Ends a process, unless it has ended by itself.
end() {
  kill "$1" 2>/dev/null || [ ! -d "/proc/$1" ] || kill "$1"
}

run() {
  "$@" &
  server=$!
  trap 'end "$server"' INT TERM
  # HAProxy dies of the signal, which the shell would report.
  wait "$server" 2>/dev/null
  wait "$server" 2>/dev/null
  for service in $services; do
    end "$service"
  done
  wait
}
