/* Runs the CGI program on its command line for each request, for ten
 * seconds at most: */

#include <tarn_serve.h>

int main(int count, char **arguments) {
  if (count < 2) return 2;
  tarn_serve_option("seconds", "10");
  return tarn_serve_program(arguments + 1);
}

/* Output:
$ printf '%s\n' '#!/bin/sh' 'echo "Content-Type: text/plain"' \
    echo 'echo "$1 m deep"' >depth.sh
$ chmod +x depth.sh
$ ./serve-program ./depth.sh 18
Content-Type: text/plain

18 m deep
$ ./serve-program ./missing 2>&1 || echo "exit status $?"
tarn-serve: ./missing: No such file or directory
exit status 127
*/
