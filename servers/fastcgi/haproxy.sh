. ./services.sh
serve bin/hello --listen tcp:127.0.0.1:9000 --errors own --body-size 10M
export SITE="$PWD"
run /usr/sbin/haproxy -db -f haproxy.cfg
