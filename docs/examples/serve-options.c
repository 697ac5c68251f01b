/* Limits a service to small and short requests, and lets its environment
 * change one of the limits: */

#include <stdio.h>
#include <stdlib.h>
#include <tarn_serve.h>

static int script(void) {
  puts("Content-Type: text/plain\r\n\r\nIt is a lake.");
  return 0;
}

int main(void) {
  const char *time = getenv("LAKE_SECONDS");
  if (!tarn_serve_option("body-size", "64K")) return 2;
  if (!tarn_serve_option("seconds", time ? time : "5")) return 2;
  return tarn_serve(script);
}

/* Output:
$ ./serve-options
Content-Type: text/plain

It is a lake.
$ LAKE_SECONDS=20 ./serve-options | tail -n 1
It is a lake.
$ LAKE_SECONDS=long ./serve-options 2>&1 || echo "exit status $?"
tarn-serve: --seconds needs a number from 1 to 1000000000
exit status 2
*/
