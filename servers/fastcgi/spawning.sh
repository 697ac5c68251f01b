mkdir -p socket
exec /usr/sbin/lighttpd -D -f spawning.conf
