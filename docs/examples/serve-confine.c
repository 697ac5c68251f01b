/* Opens a file, and then gives up all other files: */

#include <stdio.h>
#include <tarn_serve.h>

static int script(void) {
  FILE *lakes = fopen("lakes", "rb");
  char name[64];
  if (!lakes || !tarn_confine()) return 1;
  puts("Content-Type: text/plain\r\n\r");
  while (fgets(name, sizeof name, lakes)) fputs(name, stdout);
  fclose(lakes);
  if (!fopen("/etc/passwd", "rb")) perror("/etc/passwd");
  return 0;
}

int main(void) { return tarn_serve(script); }

/* Output:
$ echo Idwal >lakes
$ ./serve-confine 2>&1
/etc/passwd: Permission denied
Content-Type: text/plain

Idwal
*/
