/* Parses forms that did not come from the server: */

#include <stdio.h>
#include <tarn.h>

static void print(TarnHandle *request, const char *name) {
  TarnHandle field = Tarn_getElementByName(request, name);
  printf("%s: %s\n", name,
         CGIgs_getString(&field, TARN_ENTRY_VALUE,
                         TARN_FORM_ENTRY_MAGIC));
}

int main(void) {
  TarnHandle request = 0;
  if (Tarn_new(&request) != TARN_OK) return 1;

  char form[] = "lake=Llyn+Idwal&depth=11";
  Tarn_parseFormInput(&request, form, sizeof form - 1);

  char pair[] = "tag=cold";
  Tarn_parsePair(&request, pair);

  uint8_t part[] =
      "\r\nContent-Disposition: form-data; name=\"note\"\r\n\r\n"
      "Bring a towel.\r\n";
  Tarn_parseMime(&request, part, sizeof part - 1);

  print(&request, "lake");
  print(&request, "depth");
  print(&request, "tag");
  print(&request, "note");

  /* Despite its name, this looks up a field by name. */
  TarnHandle tag = Tarn_getElementByValue(&request, "tag");
  printf("found: %s\n", tag ? "yes" : "no");

  Tarn_delete(&request);
  return 0;
}

/* Output:
$ ./parse
lake: Llyn Idwal
depth: 11
tag: cold
note: Bring a towel.
found: yes
*/
