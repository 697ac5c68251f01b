/* Greets the visitor, as a CGI script or as a FastCGI service: */

#include <stdio.h>
#include <stdlib.h>
#include <tarn_serve.h>

static int script(void) {
  const char *query = getenv("QUERY_STRING");
  puts("Content-Type: text/plain\r\n\r");
  printf("Hello, %s!\n", query && *query ? query : "stranger");
  return 0;
}

int main(void) { return tarn_serve(script); }

/* Output:
$ QUERY_STRING=Ada ./serve-hello
Content-Type: text/plain

Hello, Ada!
$ ./serve-hello --children none 2>&1 || echo "exit status $?"
tarn-serve: --children needs a number from 1 to 1000000000
exit status 2
*/
