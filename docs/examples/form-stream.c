/* Reads large values piece by piece: the first bytes of a file tell
 * its type, and the rest is counted or written: */

#include <stdio.h>
#include <string.h>
#include <tarn_form.h>
#include <unistd.h>

int main(void) {
  TarnForm *form = TarnForm_open();
  TarnFormField *field;
  while ((field = TarnForm_next(form)) != NULL) {
    char start[4];
    const int64_t size =
        TarnFormField_read(field, start, sizeof start);
    if (size < 0) break;
    if (size == 4 && memcmp(start, "\x89PNG", 4) == 0) {
      const void *block;
      int64_t length, ends = 0;
      while ((length = TarnFormField_block(field, &block)) > 0) {
        const char *bytes = block;
        for (int64_t i = 0; i < length; ++i)
          ends += bytes[i] == '\n';
      }
      if (length < 0) break;
      printf("a PNG of %llu bytes, %d of them LF\n",
             (unsigned long long)TarnFormField_size(field),
             (int)ends);
    } else {
      printf("another file: %.*s", (int)size, start);
      fflush(stdout);
      if (TarnFormField_write(field, STDOUT_FILENO) != 0) break;
      puts("");
    }
  }
  if (!TarnForm_isWhole(form)) puts(TarnForm_message(form));
  TarnForm_close(form);
  return 0;
}

/* Output:
$ file='Content-Disposition: form-data; name="photo"; filename='
$ printf '%s\r\n' --cut "$file\"a.png\"" '' \
    "$(printf '\211PNG\r\n\032\n+')" --cut "$file\"b.txt\"" '' \
    'A text' --cut-- >body
$ export REQUEST_METHOD=POST CONTENT_LENGTH=$(wc -c <body) \
    CONTENT_TYPE='multipart/form-data; boundary=cut'
$ ./form-stream <body
a PNG of 9 bytes, 2 of them LF
another file: A text
$ head -c 75 body | ./form-stream
cut short: the body is shorter than its length
*/
