/* A log function of the script that takes a format: */

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <tarn.h>

static void say(const char *format, ...) TARN_PRINTF(1, 2);

static void say(const char *format, ...) {
  char *text;
  va_list args;
  va_start(args, format);
  int length = tarn_vasprintf(&text, format, args);
  va_end(args);
  if (text) printf("[%d] %s\n", length, text);
  free(text);
}

int main(void) {
  say("%s, %d m", "Llyn Idwal", 11);
  say("%d%%", 100);
  return 0;
}

/* Output:
$ ./log
[16] Llyn Idwal, 11 m
[4] 100%
*/
