exec /usr/sbin/lighttpd -D -f lighttpd.conf
