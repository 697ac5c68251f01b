/* Words that are addresses of texts: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle list = 0;
  if (TARNGenericList_new(&list) != TARN_OK) return 1;

  TARNGenericList_addDatum(&list, (uintptr_t) "Llyn Idwal");
  TARNGenericList_addDatum(&list, (uintptr_t) "Llyn Ogwen");
  TARNGenericList_setByIndex(&list, 0, (uintptr_t) "Llyn Alaw");

  for (uint32_t i = 0; i < TARNGenericList_getCount(&list); ++i) {
    puts((const char *)TARNGenericList_getByIndex(&list, i));
  }
  printf("room for %u\n",
         (unsigned)TARNGenericList_getCapacity(&list));

  TARNGenericList_delete(&list);
  return 0;
}

/* Output:
$ ./list
Llyn Alaw
Llyn Ogwen
room for 10
*/
