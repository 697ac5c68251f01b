/* Builds a line and extracts a part of it: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle line = 0;
  if (TARNString_new(&line) != TARN_OK) return 1;

  TARNString_set(&line, "lake");
  TARNString_append_sprintf(&line, ": %d m", 18);
  TARNString_insert(&line, "deep ", 0);
  TARNString_printline(&line);

  TarnHandle word = 0;
  TARNString_substr(&line, 5, 4, &word);
  printf("\"%s\", %u bytes\n", TARNString_c_str(&word),
         (unsigned)TARNString_length(&word));

  TARNString_delete(&word);
  TARNString_delete(&line);
  return 0;
}

/* Output:
$ ./string
deep lake: 18 m
"lake", 4 bytes
*/
