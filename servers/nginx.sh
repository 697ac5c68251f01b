mkdir -p socket
rm -f socket/fcgiwrap
if [ "$(id -u)" = 0 ]; then
  user='user www-data;'
  as_user='setpriv --reuid=www-data --regid=www-data --clear-groups'
  chown www-data: socket
fi
setsid $as_user env -i PATH=/usr/bin:/bin \
  /usr/sbin/fcgiwrap -c 20 -s unix:socket/fcgiwrap 2>>scripts.log &
scripts=$!
until [ -S socket/fcgiwrap ]; do
  kill -0 "$scripts" || exit 1
  sleep 0.1
done
/usr/sbin/nginx -p "$PWD" -c nginx.conf -e error.log -g "$user" &
server=$!
trap 'kill "$server"' INT TERM
wait "$server"
wait "$server"
kill -- "-$scripts"
