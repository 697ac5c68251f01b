/* A node owns a list as soon as it is set: */

#include <stdio.h>
#include <tarn.h>

enum { kValleyMagic = 4713, kLakes = 0 };

int main(void) {
  TarnHandle valley = 0, list = 0;
  CGIgs_new(&valley, kValleyMagic);
  if (!valley || TARNGenericList_new(&list) != TARN_OK) return 1;

  TARNGenericList_addDatum(&list, (uintptr_t) "Llyn Idwal");
  TARNGenericList_addDatum(&list, (uintptr_t) "Llyn Bochlwyd");
  CGIgs_setList(&valley, kLakes, &list, kValleyMagic);
  list = 0; /* now owned by the node */

  TarnHandle lakes = CGIgs_getList(&valley, kLakes, kValleyMagic);
  for (uint32_t i = 0; i < TARNGenericList_getCount(&lakes); ++i) {
    puts((const char *)TARNGenericList_getByIndex(&lakes, i));
  }

  CGIgs_delete(&valley, kValleyMagic); /* and its list */
  return 0;
}

/* Output:
$ ./node-list
Llyn Idwal
Llyn Bochlwyd
*/
