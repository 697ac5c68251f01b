/* Saves each uploaded file under a name that the script chooses: */

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <tarn_form.h>

/* Returns 0, an errno value, or -1 if the form has a problem. */
static int save(TarnFormField *field) {
  char name[32];
  for (unsigned number = 1; number < 1000; ++number) {
    snprintf(name, sizeof name, "photo-%u", number);
    const int error = TarnFormField_save(field, "photos", name);
    if (error == EEXIST) continue;
    if (error == 0) {
      printf("%s: %llu bytes\n", name,
             (unsigned long long)TarnFormField_size(field));
    }
    return error;
  }
  return EEXIST;
}

int main(void) {
  TarnForm *form = TarnForm_open();
  TarnFormField *field;
  int error = 0;
  while (!error && (field = TarnForm_next(form)) != NULL) {
    if (TarnFormField_filenameSize(field) == 0) continue;
    const char *type = TarnFormField_type(field);
    const char *about = TarnFormField_header(field, "X-About");
    printf("%s from byte %llu, type %s, about %s (%d)\n",
           TarnFormField_filename(field),
           (unsigned long long)TarnFormField_offset(field),
           type ? type : "(none)", about ? about : "(nothing)",
           (int)TarnFormField_headerSize(field, "X-About"));
    error = save(field);
  }
  if (error > 0) printf("not saved: %s\n", strerror(error));
  if (!TarnForm_isWhole(form)) puts(TarnForm_message(form));
  TarnForm_close(form);
  return 0;
}

/* Output:
$ mkdir photos
$ file='Content-Disposition: form-data; name="photo"; filename='
$ printf '%s\r\n' --cut "$file\"../lake.png\"" \
    'Content-Type: image/png' 'X-About: a lake' '' \
    "$(printf '\211PNG\r\n\032\n+')" --cut "$file\"\"" '' '' \
    --cut "$file\"b.png\"" '' two lines --cut-- >body
$ export REQUEST_METHOD=POST CONTENT_LENGTH=$(wc -c <body) \
    CONTENT_TYPE='multipart/form-data; boundary=cut'
$ ./form-save <body
../lake.png from byte 0, type image/png, about a lake (6)
photo-1: 9 bytes
b.png from byte 202, type (none), about (nothing) (0)
photo-2: 10 bytes
$ head -c 260 body | ./form-save
../lake.png from byte 0, type image/png, about a lake (6)
photo-3: 9 bytes
cut short: the body is shorter than its length
$ ls photos
photo-1
photo-2
photo-3
*/
