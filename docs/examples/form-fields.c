/* Prints what a form sends, in the order in which it arrives: */

#include <stdio.h>
#include <tarn_form.h>

int main(void) {
  TarnForm *form = TarnForm_open();
  TarnFormField *field;

  while ((field = TarnForm_next(form)) != NULL) {
    const char *filename = TarnFormField_filename(field);
    if (filename) {
      if (!TarnFormField_skip(field)) break;
      printf("%s: %s, %llu bytes\n", TarnFormField_name(field),
             filename,
             (unsigned long long)TarnFormField_size(field));
    } else {
      const char *text = TarnFormField_text(field);
      if (!text) break;
      printf("%s: %s\n", TarnFormField_name(field), text);
    }
  }
  if (!TarnForm_isWhole(form)) {
    printf("Status %d, %s\n", TarnForm_status(form),
           TarnForm_message(form));
  }
  TarnForm_close(form);
  return 0;
}

/* Output:
$ field='Content-Disposition: form-data; name='
$ printf '%s\r\n' --cut "$field\"notes\"" '' 'Depth: 21 m' \
    'Water: clear' --cut "$field\"photo\"; filename=\"lake.png\"" \
    'Content-Type: image/png' '' "$(printf '\211PNG\r\n\032\n+')" \
    --cut-- >body
$ export REQUEST_METHOD=POST CONTENT_LENGTH=$(wc -c <body) \
    CONTENT_TYPE='multipart/form-data; boundary=cut'
$ ./form-fields <body | tr -d '\r'
notes: Depth: 21 m
Water: clear
photo: lake.png, 9 bytes
$ head -c 80 body | ./form-fields
Status 400, cut short: the body is shorter than its length
$ QUERY_STRING='lake=Crummock+Water' REQUEST_METHOD=GET ./form-fields
lake: Crummock Water
*/
