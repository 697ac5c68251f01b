/* Copies a text, changes its middle, and compares both: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle text = 0, copy = 0;
  if (TARNString_new(&text) != TARN_OK) return 1;
  TARNString_set(&text, "lake, deep");
  if (TARNString_dup(&text, &copy) != TARN_OK) return 1;

  TARNString_insert_sprintf(&copy, 6, "%d m ", 18);
  TARNString_insertn(&copy, "cold blue ", 5, 5, 0);
  TARNString_printline(&copy);
  TARNString_remove(&copy, 0, 5);
  TARNString_remove(&copy, 6, 5);
  TARNString_printline(&copy);
  printf(
      "as before: %s\n",
      TARNString_compare_string(&copy, &text) == 0 ? "yes" : "no");
  printf("before \"mere\": %s\n",
         TARNString_compare(&copy, "mere") < 0 ? "yes" : "no");

  TARNString_clear(&copy);
  printf("cleared: %u bytes\n", (unsigned)TARNString_length(&copy));
  TARNString_delete(&copy);
  printf("deleted: %s\n", TARNString_IsA(&copy) ? "no" : "yes");
  TARNString_delete(&text);
  return 0;
}

/* Output:
$ ./insert
blue lake, 18 m deep
lake, deep
as before: yes
before "mere": yes
cleared: 0 bytes
deleted: yes
*/
