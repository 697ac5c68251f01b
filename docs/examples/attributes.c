/* Copies a list of attributes and sets it on an element: */

#include <stdio.h>
#include <tarn.h>

static void add(TarnHandle *list, const char *name,
                const char *value) {
  TarnHandle attribute = 0;
  CGIgs_new(&attribute, TARN_ATTRIBUTE_MAGIC);
  HTMLAttribute_init(&attribute, name, value);
  HTMLAttributeList_addAttribute(list, &attribute);
  CGIgs_delete(&attribute, TARN_ATTRIBUTE_MAGIC);
}

static void print(TarnHandle *list) {
  printf("%d:", HTMLAttributeList_getCount(list));
  for (int i = 0; i < HTMLAttributeList_getCount(list); ++i) {
    TarnHandle each =
        HTMLAttributeList_getByIndex(list, (uint32_t)i);
    printf(" %s=\"%s\"",
           CGIgs_getString(&each, TARN_ATTRIBUTE_NAME,
                           TARN_ATTRIBUTE_MAGIC),
           CGIgs_getString(&each, TARN_ATTRIBUTE_VALUE,
                           TARN_ATTRIBUTE_MAGIC));
  }
  printf("\n");
}

int main(void) {
  TarnHandle list = 0, copy = 0, element = 0;
  CGIgs_new(&list, TARN_ATTRIBUTE_LIST_MAGIC);
  CGIgs_new(&element, TARN_ELEMENT_MAGIC);
  if (!list || !element) return 1;
  add(&list, "class", "lake");

  HTMLAttributeList_clone(&list, &copy);
  add(&copy, "id", "idwal");
  HTMLElement_setAttributes(&element,
                            &copy); /* stores another copy */
  HTMLAttributeList_clear(&copy);
  print(&list);
  print(&copy);
  TarnHandle borrowed = CGIgs_getStruct(
      &element, TARN_ELEMENT_ATTRIBUTES, TARN_ELEMENT_MAGIC);
  print(&borrowed);

  HTMLElement_delete(&element);
  HTMLAttributeList_delete(&copy);
  HTMLAttributeList_delete(&list);
  return 0;
}

/* Output:
$ ./attributes
1: class="lake"
0:
2: class="lake" id="idwal"
*/
