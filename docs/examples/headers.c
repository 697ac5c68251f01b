/* Fills a response header; the script prints it itself: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle header = 0;
  if (CGIgs_new(&header, TARN_RESPONSE_HEADER_MAGIC) != TARN_OK) {
    return 1;
  }
  HTTPResponseHeader_addHeader(&header, "Status: 404 Not Found");
  HTTPResponseHeader_addHeader(&header, "Content-Type: text/plain");

  TarnHandle lines = HTTPResponseHeader_getHeaderList(&header);
  for (uint32_t i = 0; i < TARNGenericList_getCount(&lines); ++i) {
    printf("%s\r\n",
           (const char *)TARNGenericList_getByIndex(&lines, i));
  }
  printf("\r\nNo such lake.\n");

  HTTPResponseHeader_delete(&header);
  return 0;
}

/* Output:
$ ./headers
Status: 404 Not Found
Content-Type: text/plain

No such lake.
*/
