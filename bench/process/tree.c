/* Builds an HTML tree of ELEMENTS elements with BREADTH children each, as far as the elements go.
 * OPERATION, set at compile time, chooses what is then done with the tree. To get the cost of that
 * operation, subtract the time of tree-build. */
#include <stdio.h>
#include <stdlib.h>
#include <tarn.h>

enum { BUILD, CLONE, SET };

static long number(const char *variable) {
  const char *text = getenv(variable);
  return text ? strtol(text, NULL, 10) : 0;
}

static TarnHandle newElement(void) {
  TarnHandle element = 0;
  CGIgs_new(&element, TARN_ELEMENT_MAGIC);
  CGIgs_setString(&element, TARN_ELEMENT_NAME, "div", TARN_ELEMENT_MAGIC);
  return element;
}

static TarnHandle embeddedIn(TarnHandle element) {
  return CGIgs_getStruct(&element, TARN_ELEMENT_EMBEDDED, TARN_ELEMENT_MAGIC);
}

/* Adds a new child and returns the copy that its parent owns. */
static TarnHandle addTo(TarnHandle parent) {
  TarnHandle child = newElement();
  HTMLElement_addElement(&parent, &child);
  HTMLElement_delete(&child);
  TarnHandle list = embeddedIn(parent);
  return HTMLElementList_getByIndex(&list, (uint32_t)HTMLElementList_getCount(&list) - 1);
}

/* Stores at most `most` elements of the tree in `all`, level by level, and returns their number. */
static long collect(TarnHandle root, TarnHandle *all, long most) {
  long count = 0;
  all[count++] = root;
  for (long i = 0; i < count; i++) {
    TarnHandle list = embeddedIn(all[i]);
    const int children = HTMLElementList_getCount(&list);
    for (int k = 0; k < children && count < most; k++) {
      all[count++] = HTMLElementList_getByIndex(&list, (uint32_t)k);
    }
  }
  return count;
}

int main(void) {
  const long elements = number("ELEMENTS");
  const long breadth = number("BREADTH");
  TarnHandle *all = malloc(2 * (size_t)elements * sizeof *all);
  if (!all || breadth < 1) return 1;
  TarnHandle root = all[0] = newElement();
  for (long i = 1; i < elements; i++) all[i] = addTo(all[(i - 1) / breadth]);
  TarnHandle copy = 0;
  TarnHandle list = embeddedIn(root);
  if (OPERATION == CLONE && HTMLElement_clone(&root, &copy) != TARN_OK) return 1;
  if (OPERATION == SET) {
    copy = newElement();
    if (HTMLElement_setEmbedded(&copy, &list) != TARN_OK) return 1;
  }
  const long made = collect(root, all, 2 * elements);
  const long copied = copy ? collect(copy, all, 2 * elements) : 0;
  printf("Content-Type: text/plain\n\n%ld elements, %ld copied\n", made, copied);
  HTMLElement_delete(&copy);
  HTMLElement_delete(&root);
  free(all);
  return fflush(stdout) == 0 ? 0 : 1;
}
