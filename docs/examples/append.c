/* Builds a text piece by piece and writes it: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle line = 0, copy = 0;
  if (TARNString_new(&line) != TARN_OK ||
      TARNString_new(&copy) != TARN_OK) {
    return 1;
  }
  TARNString_reserve(&line,
                     80); /* one allocation instead of several */

  TARNString_append(&line, "Llyn ");
  TARNString_appendn(&line, "Ogwen, Idwal, Alaw", 7, 5);
  TARNString_fprint(&line, stdout);
  printf(", ");
  TARNString_print(&line);
  printf("\n");

  TARNString_set_string(&copy, &line);
  TARNString_append(&copy, " and ");
  TARNString_append_string(&copy, &line);
  TARNString_fprintline(&copy, stdout);

  TARNString_delete(&copy);
  TARNString_delete(&line);
  return 0;
}

/* Output:
$ ./append
Llyn Idwal, Llyn Idwal
Llyn Idwal and Llyn Idwal
*/
