/* A script that answers with a number from the form: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle request = 0;
  if (Tarn_new(&request) != TARN_OK) return 1;

  TarnHandle field = Tarn_getElementByName(&request, "depth");
  int depth = FormEntry_getIntegerValue(&field);

  printf("Content-Type: text/plain\r\n\r\n");
  printf("The lake is %d m deep.\n", depth);

  Tarn_delete(&request);
  return 0;
}

/* Output:
$ QUERY_STRING='lake=Llyn+y+Fan+Fach&depth=18' ./depth
Content-Type: text/plain

The lake is 18 m deep.
*/
