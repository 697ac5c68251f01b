/* Reads the options of the service, and a greeting of its own, from the
 * command line. A web server must not start it as a CGI script: */

#include <stdio.h>
#include <stdlib.h>
#include <tarn_serve.h>

static const char *greeting = "Hello";

static int script(void) {
  printf("Content-Type: text/plain\r\n\r\n%s!\n", greeting);
  return 0;
}

int main(int count, char **arguments) {
  int read;
  if (getenv("GATEWAY_INTERFACE")) return 2;
  read = tarn_serve_arguments(count - 1, arguments + 1);
  if (read < 0) return 2;
  if (arguments[1 + read]) greeting = arguments[1 + read];
  return tarn_serve(script);
}

/* Output:
$ ./serve-arguments --children 4 --seconds=5 -- 'Good morning'
Content-Type: text/plain

Good morning!
$ ./serve-arguments --depth 18 2>&1 || echo "exit status $?"
tarn-serve: --depth is not an option
exit status 2
*/
