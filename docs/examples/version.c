/* Prints the version of Tarn: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle none = 0; /* no request is needed */
  printf("Tarn %s, %s, %s\n", Tarn_getVersion(&none),
         Tarn_getCompileDate(&none), Tarn_getCompileTime(&none));
  printf("platform: %s\n", Tarn_getHost(&none));
  return 0;
}

/* Output:
$ ./version
Tarn 1.0.0, Jul 17 2007, 14:49:31
platform: Set this to the platform we compiled for
*/
