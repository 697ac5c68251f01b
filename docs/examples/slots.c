/* One node with a slot of each kind filled, read and emptied: */

#include <stdio.h>
#include <tarn.h>

enum { kLakeMagic = 4711, kOutletMagic = 4712 };
enum { kName = 0, kColour = 1 }; /* string slots */
enum { kOutlet = 0 };            /* struct slots */

int main(void) {
  TarnHandle lake = 0, river = 0;
  CGIgs_new(&lake, kLakeMagic);
  CGIgs_new(&river, kOutletMagic);
  if (!lake || !river) return 1;

  CGIgs_setString(&river, kName, "Afon Idwal", kOutletMagic);
  CGIgs_setStruct(&lake, kOutlet, &river, kLakeMagic,
                  kOutletMagic); /* a copy */
  CGIgs_delete(&river, kOutletMagic);
  CGIgs_setNString(&lake, kColour, "blue-green", 4, kLakeMagic);
  CGIgs_setDouble(&lake, 0, 0.28, kLakeMagic);
  CGIgs_setFixed(&lake, 1885, kLakeMagic);

  TarnHandle outlet = CGIgs_getStruct(&lake, kOutlet, kLakeMagic);
  printf("tags: %u, %u, %u\n", (unsigned)CGIgs_getMagic(&lake),
         (unsigned)CGIgs_getMagic(&outlet),
         (unsigned)CGIgs_getChildMagic(&lake, kOutlet, kLakeMagic));
  printf("%s flows from %.2f square kilometres of %s\n",
         CGIgs_getString(&outlet, kName, kOutletMagic),
         CGIgs_getDouble(&lake, 0, kLakeMagic),
         CGIgs_getString(&lake, kColour, kLakeMagic));
  printf("first measured in %u\n",
         (unsigned)CGIgs_getFixed(&lake, kLakeMagic));

  CGIgs_clear(&lake, kLakeMagic);
  printf(
      "cleared: %s\n",
      CGIgs_getStruct(&lake, kOutlet, kLakeMagic) ? "no" : "yes");

  CGIgs_delete(&lake, kLakeMagic);
  return 0;
}

/* Output:
$ ./slots
tags: 4711, 4712, 4712
Afon Idwal flows from 0.28 square kilometres of blue
first measured in 1885
cleared: yes
*/
