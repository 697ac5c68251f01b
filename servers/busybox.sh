exec env -i PATH=/usr/bin:/bin \
  HELLO_DATA="$PWD/data" \
  busybox httpd -f -p 127.0.0.1:8080 -h www 2>>scripts.log
