/* A response header with two texts, a number and cookies: */

#include <stdio.h>
#include <tarn.h>

static int cookie_count(TarnHandle *header) {
  TarnHandle cookies =
      CGIgs_getStruct(header, TARN_RESPONSE_HEADER_COOKIES,
                      TARN_RESPONSE_HEADER_MAGIC);
  return HTTPCookieList_getCount(&cookies);
}

int main(void) {
  TarnHandle header = 0, cookies = 0, cookie = 0;
  CGIgs_new(&header, TARN_RESPONSE_HEADER_MAGIC);
  CGIgs_new(&cookies, TARN_COOKIE_LIST_MAGIC);
  CGIgs_new(&cookie, TARN_COOKIE_MAGIC);
  if (!header || !cookies || !cookie) return 1;

  HTTPResponseHeader_init(&header, "HTTP/1.1", 404, "Not Found");
  printf(
      "%s %u %s\n",
      CGIgs_getString(&header, TARN_RESPONSE_HEADER_FIRST,
                      TARN_RESPONSE_HEADER_MAGIC),
      (unsigned)CGIgs_getInt(&header, TARN_RESPONSE_HEADER_NUMBER,
                             TARN_RESPONSE_HEADER_MAGIC),
      CGIgs_getString(&header, TARN_RESPONSE_HEADER_SECOND,
                      TARN_RESPONSE_HEADER_MAGIC));

  HTTPCookie_init(&cookie, "lake", "Idwal", NULL, NULL, 0, NULL, 0);
  HTTPResponseHeader_setCookieList(&header, &cookies);
  HTTPResponseHeader_addCookie(&header, &cookie);
  printf("cookies: %d\n", cookie_count(&header));

  HTTPResponseHeader_clear(&header);
  printf("cookies: %d\n", cookie_count(&header));

  CGIgs_delete(&cookie, TARN_COOKIE_MAGIC);
  HTTPCookieList_delete(&cookies);
  HTTPResponseHeader_delete(&header);
  return 0;
}

/* Output:
$ ./response
HTTP/1.1 404 Not Found
cookies: 1
cookies: 0
*/
