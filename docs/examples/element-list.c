/* Embeds a list of elements in another element: */

#include <stdio.h>
#include <tarn.h>

static TarnHandle make(const char *name) {
  TarnHandle element = 0;
  CGIgs_new(&element, TARN_ELEMENT_MAGIC);
  CGIgs_setString(&element, TARN_ELEMENT_NAME, name,
                  TARN_ELEMENT_MAGIC);
  return element;
}

static int embedded(TarnHandle *element) {
  TarnHandle list = CGIgs_getStruct(element, TARN_ELEMENT_EMBEDDED,
                                    TARN_ELEMENT_MAGIC);
  return HTMLElementList_getCount(&list);
}

int main(void) {
  TarnHandle term = make("dt"), text = make("dd"),
             outer = make("dl");
  TarnHandle list = 0, copied_list = 0, copy = 0;
  CGIgs_new(&list, TARN_ELEMENT_LIST_MAGIC);
  if (!term || !text || !outer || !list) return 1;
  printf("dt after dd: %s\n",
         HTMLElement_compare(&term, &text) > 0 ? "yes" : "no");

  HTMLElementList_addElement(&list, &term);
  HTMLElementList_addElement(&list, &text);
  HTMLElementList_clone(&list, &copied_list);
  HTMLElement_setEmbedded(&outer, &copied_list);
  HTMLElement_clone(&outer, &copy);
  HTMLElement_clear(&outer);
  printf("%d left, %d in the copy\n", embedded(&outer),
         embedded(&copy));

  HTMLElementList_clear(&copied_list); /* also deletes the list */
  printf("cleared: %s\n", copied_list ? "no" : "yes");
  HTMLElementList_delete(&list);
  HTMLElement_delete(&copy);
  HTMLElement_delete(&outer);
  HTMLElement_delete(&text);
  HTMLElement_delete(&term);
  return 0;
}

/* Output:
$ ./element-list
dt after dd: yes
0 left, 2 in the copy
cleared: yes
*/
