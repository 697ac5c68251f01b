. ./services.sh
serve bin/hello --listen unix:socket/hello
run /usr/sbin/lighttpd -D -f lighttpd.conf
