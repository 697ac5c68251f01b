/* A cookie that the script sets. The object keeps what the header
 * line is made of: */

#include <stdio.h>
#include <stdlib.h>
#include <tarn.h>

int main(void) {
  TarnHandle cookie = 0;
  CGIgs_new(&cookie, TARN_COOKIE_MAGIC);
  if (HTTPCookie_init(&cookie, "visits", "8", NULL, NULL, 0, "/",
                      0) != TARN_OK) {
    return 1;
  }
  HTTPCookie_setMaxAge(&cookie, 7 * 24 * 60 * 60);
  HTTPCookie_setSecure(&cookie, 1);

  printf(
      "Set-Cookie: %s=%s; Path=%s; Max-Age=%ld%s\r\n",
      CGIgs_getString(&cookie, TARN_COOKIE_NAME, TARN_COOKIE_MAGIC),
      CGIgs_getString(&cookie, TARN_COOKIE_VALUE,
                      TARN_COOKIE_MAGIC),
      CGIgs_getString(&cookie, TARN_COOKIE_PATH, TARN_COOKIE_MAGIC),
      HTTPCookie_getMaxAge(&cookie),
      HTTPCookie_isSecure(&cookie) ? "; Secure" : "");
  printf("Content-Type: text/plain\r\n\r\n");

  /* For a log. The empty text is not to be freed. */
  char *text = (char *)HTTPCookie_toString(&cookie);
  puts(text);
  if (text != CGIgs_empty_string) free(text);

  CGIgs_delete(&cookie, TARN_COOKIE_MAGIC);
  return 0;
}

/* Output:
$ ./cookie | fold -w 68
Set-Cookie: visits=8; Path=/; Max-Age=604800; Secure
Content-Type: text/plain

HTTPCookie{name="visits";value="8";comment="(null)";domain="(null)",
maxage=604800;path="/";secure="yes"}
*/
