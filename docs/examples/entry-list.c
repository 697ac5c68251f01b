/* A copy of a list stays valid after the list is cleared: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle entry = 0, list = 0, copy = 0;
  CGIgs_new(&entry, TARN_FORM_ENTRY_MAGIC);
  CGIgs_new(&list, TARN_FORM_ENTRY_LIST_MAGIC);
  if (!entry || !list) return 1;

  FormEntry_init(&entry, "tag", "cold", 4);
  FormEntryList_addEntry(&list, &entry);
  FormEntryList_reserve(&list, 100); /* room for more */
  FormEntryList_addEntry(&list, &entry);
  CGIgs_delete(&entry, TARN_FORM_ENTRY_MAGIC);

  FormEntryList_clone(&list, &copy);
  FormEntryList_clear(&list);
  printf("%d in the list, %d in the copy\n",
         (int)FormEntryList_getCount(&list),
         (int)FormEntryList_getCount(&copy));

  FormEntryList_delete(&copy);
  FormEntryList_delete(&list);
  return 0;
}

/* Output:
$ ./entry-list
0 in the list, 2 in the copy
*/
