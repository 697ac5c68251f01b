/* The cookies that came with a request: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle request = 0;
  if (Tarn_new(&request) != TARN_OK) return 1;

  TarnHandle env = CGIgs_getStruct(
      &request, TARN_REQUEST_ENVIRONMENT, TARN_REQUEST_MAGIC);
  TarnHandle cookies = CGIgs_getStruct(
      &env, TARN_ENVIRONMENT_COOKIES, TARN_ENVIRONMENT_MAGIC);

  printf("Content-Type: text/plain\r\n\r\n");
  for (int i = 0; i < HTTPCookieList_getCount(&cookies); ++i) {
    TarnHandle cookie =
        HTTPCookieList_getByIndex(&cookies, (uint32_t)i);
    const char *name = CGIgs_getString(&cookie, TARN_COOKIE_NAME,
                                       TARN_COOKIE_MAGIC);
    const char *value = CGIgs_getString(&cookie, TARN_COOKIE_VALUE,
                                        TARN_COOKIE_MAGIC);
    if (name && value) printf("%s is %s\n", name, value);
  }

  Tarn_delete(&request);
  return 0;
}

/* Output:
$ HTTP_COOKIE='lake=Llyn%20Idwal; visits=7;' ./cookies
Content-Type: text/plain

lake is Llyn Idwal
visits is 7
*/
