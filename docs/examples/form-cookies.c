/* Finds cookies and fields of the query, without reading the body: */

#include <stdio.h>
#include <tarn_form.h>

static const char *or_none(const char *text) {
  return text ? text : "(none)";
}

int main(void) {
  TarnForm *form = TarnForm_open();
  printf("guest: %s, decoded %s\n",
         or_none(TarnForm_cookie(form, "guest")),
         or_none(TarnForm_decodedCookie(form, "guest")));
  printf("lake: %s, decoded %s\n",
         or_none(TarnForm_query(form, "lake")),
         or_none(TarnForm_decodedQuery(form, "lake")));
  printf("LAKE: %s\n", or_none(TarnForm_query(form, "LAKE")));
  TarnForm_close(form);
  return 0;
}

/* Output:
$ export REQUEST_METHOD=POST
$ HTTP_COOKIE='theme=dark; guest=Ada%20L.' \
    QUERY_STRING='page=2&lake=Crummock+Water&lake=2' ./form-cookies
guest: Ada%20L., decoded Ada L.
lake: Crummock+Water, decoded Crummock Water
LAKE: (none)
$ QUERY_STRING='lake=a%00b' ./form-cookies
guest: (none), decoded (none)
lake: a%00b, decoded (none)
LAKE: (none)
*/
