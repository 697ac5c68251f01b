. ./services.sh
if [ "$(id -u)" = 0 ]; then user='user www-data;'; fi
serve bin/hello --listen unix:socket/hello
run /usr/sbin/nginx -p "$PWD" -c nginx.conf -e error.log -g "$user"
