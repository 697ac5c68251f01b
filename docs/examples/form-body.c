/* Takes a body of any type as it is, such as JSON: */

#include <stdio.h>
#include <string.h>
#include <tarn_form.h>

int main(void) {
  TarnForm *form = TarnForm_open();
  TarnForm_readToEnd(form); /* if this server allows it */
  TarnForm_setLimit(form, TARN_FORM_TEXT_SIZE, 1000);

  TarnFormField *body = TarnForm_body(form);
  const char *type = TarnFormField_type(body);
  const char *text = TarnFormField_text(body);
  if (!text) {
    printf("Status: %d\n%s\n", TarnForm_status(form),
           TarnForm_message(form));
  } else if (!type || strcmp(type, "application/json") != 0) {
    puts("Status: 415\nPlease send JSON.");
  } else {
    printf("%llu bytes: %s\n",
           (unsigned long long)TarnFormField_size(body), text);
  }
  TarnForm_close(form);
  return 0;
}

/* Output:
$ export REQUEST_METHOD=PUT CONTENT_TYPE=application/json
$ printf '{"depth": 21}' | CONTENT_LENGTH=13 ./form-body
13 bytes: {"depth": 21}
$ printf '{"depth": 21}' | CONTENT_LENGTH=14 ./form-body
Status: 400
cut short: the body is shorter than its length
$ printf '{"depth": 21}' | ./form-body
13 bytes: {"depth": 21}
$ printf '%1001d' 21 | ./form-body
Status: 413
a name or text is longer than 1000 bytes
$ printf 21 | CONTENT_TYPE=text/plain ./form-body
Status: 415
Please send JSON.
*/
