/* Compares two fields by their names and values: */

#include <stdio.h>
#include <tarn.h>

static const char *word(int order) {
  return order < 0 ? "before" : order > 0 ? "after" : "equal";
}

int main(void) {
  TarnHandle lake = 0, other = 0;
  CGIgs_new(&lake, TARN_FORM_ENTRY_MAGIC);
  CGIgs_new(&other, TARN_FORM_ENTRY_MAGIC);
  if (!lake || !other) return 1;
  FormEntry_init(&lake, "lake", "Idwal", 5);
  FormEntry_init(&other, "Lake", "Ogwen", 5);

  printf("%s\n", word(FormEntry_compare(&lake, &other)));
  FormEntry_setValue(&other, "idwal", 5);
  printf("%s\n", word(FormEntry_compare(&lake, &other)));
  printf("%s\n", word(FormEntry_compareName(&lake, "depth")));
  printf("%s\n", word(FormEntry_compareValue(&lake, "Idwal")));

  CGIgs_delete(&other, TARN_FORM_ENTRY_MAGIC);
  CGIgs_delete(&lake, TARN_FORM_ENTRY_MAGIC);
  return 0;
}

/* Output:
$ ./compare
before
equal
after
equal
*/
