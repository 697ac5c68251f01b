/* Functions that are there for scripts that name them. Each answers
 * with a constant, or does nothing: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle none = 0;
  puts(FormEntry_toString(&none));
  puts(FormEntryList_toHTML(&none));
  puts(FormFileList_toHTML(&none));
  puts(HTTPCookieList_toHTML(&none));
  puts(HTTPContentHeader_toString(&none));
  puts(HTTPRedirectHeader_toHTML(&none));
  puts(HTTPResponseHeader_toHTML(&none));
  puts(HTTPStatusHeader_toHTML(&none));
  puts(HTMLAttribute_toHTML(&none));
  puts(HTMLAttributeList_toHTML(&none));
  puts(HTMLElement_toHTML(&none));
  puts(HTMLElementList_toHTML(&none));

  Tarn_save(&none, stdout);
  Tarn_restore(&none, stdin);
  printf("%u %u %u\n", (unsigned)Tarn_clear(&none),
         (unsigned)CgiEnv_save(&none, stdout),
         (unsigned)CgiEnv_restore(&none, stdin));
  return 0;
}

/* Output:
$ ./idle
Not yet implemented
Not yet implemented.
Not yet implemented.
Not yet implemented.
Not yet implemented
Not implemented.
Not implemented yet.
Not yet implemented
Not yet implemented.
Not yet implemented.
Not yet implemented
Not yet implemented.
5 0 0
*/
