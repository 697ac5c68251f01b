/* Decodes, trims and compares a text from a browser: */

#include <stdio.h>
#include <stdlib.h>
#include <tarn.h>

int main(void) {
  char *decoded = unescapeString("+Llyn%20Idwal+");
  char *name = stripString(decoded);
  printf("\"%s\" becomes \"%s\"\n", decoded, name);

  if (stringsAreEqual(name, "LLYN IDWAL") == 0) {
    char *text;
    int length = tarn_asprintf(&text, "%s, %d m", name, 11);
    printf("%s (%d bytes)\n", text, length);
    free(text);
  }

  free(name);
  free(decoded);
  return 0;
}

/* Output:
$ ./text
" Llyn Idwal " becomes "Llyn Idwal"
Llyn Idwal, 11 m (16 bytes)
*/
