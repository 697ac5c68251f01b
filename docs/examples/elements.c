/* Builds a tree from the top down and writes it as HTML: */

#include <stdio.h>
#include <tarn.h>

/* Embeds an element and returns a borrowed handle to the copy. */
static TarnHandle embed(TarnHandle *parent, const char *name) {
  TarnHandle element = 0;
  CGIgs_new(&element, TARN_ELEMENT_MAGIC);
  CGIgs_setString(&element, TARN_ELEMENT_NAME, name,
                  TARN_ELEMENT_MAGIC);
  HTMLElement_addElement(parent, &element);
  HTMLElement_delete(&element);

  TarnHandle list = CGIgs_getStruct(parent, TARN_ELEMENT_EMBEDDED,
                                    TARN_ELEMENT_MAGIC);
  int last = HTMLElementList_getCount(&list) - 1;
  return HTMLElementList_getByIndex(&list, (uint32_t)last);
}

static void print_tree(TarnHandle *element, int depth) {
  TarnHandle attributes = CGIgs_getStruct(
      element, TARN_ELEMENT_ATTRIBUTES, TARN_ELEMENT_MAGIC);
  TarnHandle embedded = CGIgs_getStruct(
      element, TARN_ELEMENT_EMBEDDED, TARN_ELEMENT_MAGIC);
  const char *name = CGIgs_getString(element, TARN_ELEMENT_NAME,
                                     TARN_ELEMENT_MAGIC);

  printf("%*s<%s", 2 * depth, "", name);
  for (int i = 0; i < HTMLAttributeList_getCount(&attributes);
       ++i) {
    TarnHandle attribute =
        HTMLAttributeList_getByIndex(&attributes, (uint32_t)i);
    printf(" %s=\"%s\"",
           CGIgs_getString(&attribute, TARN_ATTRIBUTE_NAME,
                           TARN_ATTRIBUTE_MAGIC),
           CGIgs_getString(&attribute, TARN_ATTRIBUTE_VALUE,
                           TARN_ATTRIBUTE_MAGIC));
  }
  printf(">\n");
  for (int i = 0; i < HTMLElementList_getCount(&embedded); ++i) {
    TarnHandle child =
        HTMLElementList_getByIndex(&embedded, (uint32_t)i);
    print_tree(&child, depth + 1);
  }
  printf("%*s</%s>\n", 2 * depth, "", name);
}

int main(void) {
  TarnHandle list = 0;
  if (CGIgs_new(&list, TARN_ELEMENT_MAGIC) != TARN_OK) return 1;
  CGIgs_setString(&list, TARN_ELEMENT_NAME, "ul",
                  TARN_ELEMENT_MAGIC);

  TarnHandle attribute = 0;
  CGIgs_new(&attribute, TARN_ATTRIBUTE_MAGIC);
  HTMLAttribute_init(&attribute, "class", "lakes");
  HTMLElement_addAttribute(&list, &attribute);
  CGIgs_delete(&attribute, TARN_ATTRIBUTE_MAGIC);

  TarnHandle item = embed(&list, "li");
  embed(&item, "b");
  embed(&list, "li");
  print_tree(&list, 0);

  HTMLElement_delete(&list);
  return 0;
}

/* Output:
$ ./elements
<ul class="lakes">
  <li>
    <b>
    </b>
  </li>
  <li>
  </li>
</ul>
*/
