/* Reads a page once, and answers each request with it: */

#include <stdio.h>
#include <tarn_serve.h>

static char page[4096];

static int prepare(void) {
  FILE *file = fopen("page.html", "rb");
  size_t size;
  if (!file) {
    perror("page.html");
    return 1;
  }
  size = fread(page, 1, sizeof page - 1, file);
  page[size] = '\0';
  fclose(file);
  return 0;
}

static int script(void) {
  puts("Content-Type: text/html; charset=utf-8\r\n\r");
  fputs(page, stdout);
  return 0;
}

int main(void) {
  tarn_serve_prepare(prepare);
  return tarn_serve(script);
}

/* Output:
$ echo '<!DOCTYPE html><title>Idwal</title><p>A lake' >page.html
$ ./serve-prepare
Content-Type: text/html; charset=utf-8

<!DOCTYPE html><title>Idwal</title><p>A lake
$ rm page.html
$ ./serve-prepare 2>&1 || echo "exit status $?"
page.html: No such file or directory
exit status 1
*/
