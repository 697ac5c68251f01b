/* A header with a content type and cookies: */

#include <stdio.h>
#include <tarn.h>

static void print(TarnHandle *header) {
  const char *type = CGIgs_getString(
      header, TARN_HEADER_CONTENT_TYPE, TARN_HEADER_MAGIC);
  TarnHandle cookies = CGIgs_getStruct(header, TARN_HEADER_COOKIES,
                                       TARN_HEADER_MAGIC);
  printf("%s, cookies: %d\n", type ? type : "no type",
         HTTPCookieList_getCount(&cookies));
}

int main(void) {
  TarnHandle header = 0, cookies = 0, cookie = 0;
  if (HTTPPlainHeader_new(&header) != TARN_OK) return 1;
  print(&header);

  CGIgs_new(&cookies, TARN_COOKIE_LIST_MAGIC);
  HTTPHeader_init(&header, "text/html", &cookies);
  print(&header);

  CGIgs_new(&cookie, TARN_COOKIE_MAGIC);
  HTTPCookie_init(&cookie, "lake", "Idwal", NULL, NULL, 0, NULL, 0);
  HTTPCookieList_addCookie(&cookies, &cookie);
  HTTPHeader_setCookieList(&header, &cookies);
  print(&header);

  HTTPHeader_clear(&header);
  print(&header);

  CGIgs_delete(&cookie, TARN_COOKIE_MAGIC);
  HTTPCookieList_delete(&cookies);
  HTTPHeader_delete(&header);
  return 0;
}

/* Output:
$ ./content
text/plain, cookies: 0
text/html, cookies: 0
text/html, cookies: 1
no type, cookies: 0
*/
