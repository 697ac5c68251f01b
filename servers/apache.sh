exec env SITE="$PWD" /usr/sbin/apache2 -d "$PWD" -f apache.conf -D FOREGROUND
