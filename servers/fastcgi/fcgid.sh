mkdir -p socket
if [ "$(id -u)" = 0 ]; then chown www-data: socket; fi
export SITE="$PWD"
exec /usr/sbin/apache2 -d "$PWD" -f fcgid.conf -D FOREGROUND
