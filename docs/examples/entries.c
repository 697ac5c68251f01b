/* A list of entries, and their values as text and as numbers: */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tarn.h>

static void add(TarnHandle *list, const char *name,
                const char *value) {
  TarnHandle entry = 0;
  CGIgs_new(&entry, TARN_FORM_ENTRY_MAGIC);
  FormEntry_init(&entry, name, value, (uint32_t)strlen(value));
  FormEntryList_addEntry(list, &entry); /* appends a copy ... */
  CGIgs_delete(&entry, TARN_FORM_ENTRY_MAGIC); /* ... of this */
}

int main(void) {
  TarnHandle list = 0;
  if (CGIgs_new(&list, TARN_FORM_ENTRY_LIST_MAGIC) != TARN_OK) {
    return 1;
  }
  add(&list, "depth", " 18 m ");
  add(&list, "price", "2.50");

  int32_t count = FormEntryList_getCount(&list);
  for (int32_t i = 0; i < count; ++i) {
    TarnHandle entry = FormEntryList_getByIndex(&list, (uint32_t)i);
    const char *name = CGIgs_getString(&entry, TARN_ENTRY_NAME,
                                       TARN_FORM_ENTRY_MAGIC);
    char *value = (char *)FormEntry_getStrippedValue(&entry);
    printf("%s: \"%s\", %d, %.2f\n", name, value,
           FormEntry_getIntegerValue(&entry),
           FormEntry_getDoubleValue(&entry));
    free(value);
  }

  FormEntryList_delete(&list);
  return 0;
}

/* Output:
$ ./entries
depth: "18 m", 18, 18.00
price: "2.50", 2, 2.50
*/
