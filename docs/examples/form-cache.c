/* Keeps a picture in a cache, which may be lost with the power: */

#include <stdio.h>
#include <string.h>
#include <tarn_form.h>

int main(void) {
  TarnForm *form = TarnForm_open();
  TarnForm_setDurable(form, 0);
  if (TarnForm_load(form)) {
    TarnFormField *photo = TarnForm_get(form, "photo", 0);
    const int error =
        TarnFormField_save(photo, "cache", "photo-21");
    if (error < 0) puts("no photo");
    if (error >= 0) puts(error > 0 ? strerror(error) : "cached");
  }
  TarnForm_close(form);
  return 0;
}

/* Output:
$ mkdir cache
$ export REQUEST_METHOD=GET QUERY_STRING='photo=%89PNG'
$ ./form-cache
cached
$ ./form-cache
File exists
$ wc -c <cache/photo-21
4
$ QUERY_STRING= ./form-cache
no photo
*/
