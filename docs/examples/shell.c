/* A variable of the environment, and a command of the script's own,
 * never one of a visitor's: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  printf("home: \"%s\"\n", safeGetenv("LAKE_HOME"));
  printf("unset: \"%s\"\n", safeGetenv("LAKE_NONE"));
  fflush(stdout);

  /* This is one command: the semicolon is escaped. */
  return saferSystem("echo deep; cold");
}

/* Output:
$ LAKE_HOME=/srv/lakes ./shell
home: "/srv/lakes"
unset: ""
deep; cold
*/
