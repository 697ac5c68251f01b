/* Reads a whole form, then looks up its fields by name: */

#include <stdio.h>
#include <string.h>
#include <tarn_form.h>

static void show(const char *title, TarnFormField *field) {
  const char *text = TarnFormField_text(field);
  printf("%s: %s\n", title, text ? text : "(not sent)");
}

int main(void) {
  TarnForm *form = TarnForm_open();
  if (!TarnForm_load(form)) {
    printf("Status: %d\n", TarnForm_status(form));
    fprintf(stderr, "%s\n", TarnForm_message(form));
    TarnForm_close(form);
    return 1;
  }
  show("lake", TarnForm_get(form, "lake", 0));
  show("depth", TarnForm_get(form, "depth", 0));
  show("DEPTH", TarnForm_getIgnoringCase(form, "DEPTH", 0));

  const uint64_t tags = TarnForm_count(form, "tag");
  for (uint64_t i = 0; i < tags; ++i) {
    TarnFormField *tag = TarnForm_get(form, "tag", i);
    const char *text = TarnFormField_text(tag);
    const uint64_t size = TarnFormField_size(tag);
    if (!text || strlen(text) != size ||
        !TarnForm_isUtf8(text, size)) {
      puts("tag: not a text");
      continue;
    }
    printf("tag: %s\n", text);
  }
  printf("%u fields\n", (unsigned)TarnForm_count(form, NULL));
  TarnForm_close(form);
  return 0;
}

/* Output:
$ printf %s 'lake=Llyn+Idwal&Depth=11&tag=cold&tag=%FF&tag=%00' \
    '&tag=bl%C3%A5' >body
$ export REQUEST_METHOD=POST CONTENT_LENGTH=$(wc -c <body) \
    CONTENT_TYPE=application/x-www-form-urlencoded
$ ./form-lookup <body
lake: Llyn Idwal
depth: (not sent)
DEPTH: 11
tag: cold
tag: not a text
tag: not a text
tag: blå
6 fields
$ head -c 20 body | ./form-lookup || :
Status: 400
*/
