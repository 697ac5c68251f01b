/* The README's script on tarn.h, for installed_test.sh. */
#include <stdio.h>
#include <string.h>
#include <tarn.h>

/* Everything a visitor sent must be escaped before it goes into a page. */
static void put_escaped(const char *text) {
  for (; *text; text++) printf(strchr("&<>\"'", *text) ? "&#%d;" : "%c", *text);
}

int main(void) {
  TarnHandle request = 0;
  if (Tarn_new(&request) != TARN_OK) return 1;

  TarnHandle field = Tarn_getElementByName(&request, "name");
  const char *name = CGIgs_getString(&field, TARN_ENTRY_VALUE, TARN_FORM_ENTRY_MAGIC);

  puts("Content-Type: text/html; charset=utf-8\n");
  fputs("<!DOCTYPE html>\n<title>Greeting</title>\n<p>Hello, ", stdout);
  put_escaped(name ? name : "stranger");
  puts(Tarn_queryCheckbox(&request, "polite") ? ", how do you do?</p>" : "!</p>");

  Tarn_delete(&request); /* `name` points into the request: do not use it after this. */
  return 0;
}
