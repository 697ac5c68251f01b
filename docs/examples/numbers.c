/* A list of numbers, and a sorted copy of it: */

#include <stdio.h>
#include <stdlib.h>
#include <tarn.h>

static int compare(const void *a, const void *b) {
  uintptr_t left = *(const uintptr_t *)a;
  uintptr_t right = *(const uintptr_t *)b;
  return (left > right) - (left < right);
}

static void print(TarnHandle *list) {
  for (uint32_t i = 0; i < TARNGenericList_getCount(list); ++i) {
    printf("%u ", (unsigned)TARNGenericList_getByIndex(list, i));
  }
  printf("of %u\n", (unsigned)TARNGenericList_getCapacity(list));
}

int main(void) {
  static const uintptr_t depths[] = {18, 3, 11};
  TarnHandle list = 0, sorted = 0;
  if (TARNGenericList_new(&list) != TARN_OK) return 1;
  ATRNGenericList_init(&list, depths, 3, 3);

  if (TARNGenericList_clone(&list, &sorted) != TARN_OK) return 1;
  TARNGenericList_reserve(&sorted, 25); /* grows in steps of ten */
  qsort(TARNGenericList_getData(&sorted),
        TARNGenericList_getCount(&sorted), sizeof(uintptr_t),
        compare);
  print(&list);
  print(&sorted);

  TARNGenericList_clear(&sorted);
  print(&sorted);
  TARNGenericList_delete(&sorted);
  TARNGenericList_delete(&list);
  printf("deleted: %s\n",
         TARNGenericList_IsA(&list) ? "no" : "yes");
  return 0;
}

/* Output:
$ ./numbers
18 3 11 of 3
3 11 18 of 33
of 33
deleted: yes
*/
