/* Reads a form that is in memory, without copying its values, and a
 * text like a query string: */

#include <stdio.h>
#include <string.h>
#include <tarn_form.h>

int main(void) {
  const char body[] =
      "--cut\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\n"
      "one\r\ntwo\r\n--cut--\r\n";
  TarnForm *form = TarnForm_openMemory(
      "multipart/form-data; boundary=cut", body, strlen(body));
  TarnFormField *field = TarnForm_next(form);
  const char *value = TarnFormField_view(field);
  if (value) {
    printf("%d bytes, from byte %d of the body\n",
           (int)TarnFormField_size(field), (int)(value - body));
  }
  printf("whole: %s\n",
         !TarnForm_next(form) && TarnForm_isWhole(form) ? "yes"
                                                        : "no");
  TarnForm_close(form);

  form = TarnForm_openQuery("lake=Llyn+Idwal&%00=zero");
  while ((field = TarnForm_next(form)) != NULL) {
    const char *text = TarnFormField_text(field);
    if (!text) break;
    printf("%s (size of the name: %d)\n", text,
           (int)TarnFormField_nameSize(field));
  }
  TarnForm_close(form);
  return 0;
}

/* Output:
$ ./form-memory
8 bytes, from byte 51 of the body
whole: yes
Llyn Idwal (size of the name: 4)
zero (size of the name: 1)
*/
