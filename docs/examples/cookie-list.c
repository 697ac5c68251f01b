/* A list of cookies, a copy of it, and the order of its cookies: */

#include <stdio.h>
#include <tarn.h>

static void add(TarnHandle *list, const char *name) {
  TarnHandle cookie = 0;
  CGIgs_new(&cookie, TARN_COOKIE_MAGIC);
  HTTPCookie_init(&cookie, name, "1", NULL, NULL, 0, NULL, 0);
  HTTPCookieList_addCookie(list, &cookie);
  CGIgs_delete(&cookie, TARN_COOKIE_MAGIC);
}

int main(void) {
  TarnHandle list = 0, copy = 0;
  CGIgs_new(&list, TARN_COOKIE_LIST_MAGIC);
  if (!list) return 1;
  add(&list, "depth");
  add(&list, "lake");

  /* The order is reversed: positive when the first sorts first. */
  TarnHandle depth = HTTPCookieList_getByIndex(&list, 0);
  TarnHandle lake = HTTPCookieList_getByIndex(&list, 1);
  printf("depth before lake: %s\n",
         HTTPCookie_compare(&depth, &lake) > 0 ? "yes" : "no");

  HTTPCookieList_clone(&list, &copy);
  HTTPCookieList_clear(&list);
  printf("%d in the list, %d in the copy\n",
         HTTPCookieList_getCount(&list),
         HTTPCookieList_getCount(&copy));

  HTTPCookieList_delete(&copy);
  HTTPCookieList_delete(&list);
  return 0;
}

/* Output:
$ ./cookie-list
depth before lake: yes
0 in the list, 2 in the copy
*/
