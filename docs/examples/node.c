/* An object of the script's own type: */

#include <stdio.h>
#include <tarn.h>

enum { kLakeMagic = 4711, kName = 0, kDepth = 0 };

int main(void) {
  TarnHandle lake = 0;
  CGIgs_new(&lake, kLakeMagic);
  if (!lake) return 1;
  CGIgs_setString(&lake, kName, "Llyn Idwal", kLakeMagic);
  CGIgs_setInt(&lake, kDepth, 11, kLakeMagic);

  TarnHandle copy = 0;
  CGIgs_clone(&lake, &copy, kLakeMagic);
  CGIgs_setString(&lake, kName, "Llyn Ogwen", kLakeMagic);
  CGIgs_setInt(&lake, kDepth, 3, kLakeMagic);

  printf("%s: %u m\n", CGIgs_getString(&lake, kName, kLakeMagic),
         (unsigned)CGIgs_getInt(&lake, kDepth, kLakeMagic));
  printf("%s: %u m\n", CGIgs_getString(&copy, kName, kLakeMagic),
         (unsigned)CGIgs_getInt(&copy, kDepth, kLakeMagic));
  printf("a cookie: %s\n",
         CGIgs_IsA(&lake, TARN_COOKIE_MAGIC) ? "yes" : "no");

  CGIgs_delete(&copy, kLakeMagic);
  CGIgs_delete(&lake, kLakeMagic);
  return 0;
}

/* Output:
$ ./node
Llyn Ogwen: 3 m
Llyn Idwal: 11 m
a cookie: no
*/
