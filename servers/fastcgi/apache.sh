. ./services.sh
serve bin/hello --listen unix:socket/hello
export SITE="$PWD"
run /usr/sbin/apache2 -d "$PWD" -f apache.conf -D FOREGROUND
