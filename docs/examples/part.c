/* The header of one part of a form, as it would be sent: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle part = 0;
  CGIgs_new(&part, TARN_MULTIPART_HEADER_MAGIC);
  if (MultiPartHeader_init(&part, "form-data", "photo", "lake.png",
                           "image/png") != TARN_OK) {
    return 1;
  }

  printf("Content-Disposition: %s; name=\"%s\"; filename=\"%s\"\n",
         CGIgs_getString(&part, TARN_MULTIPART_HEADER_DISPOSITION,
                         TARN_MULTIPART_HEADER_MAGIC),
         CGIgs_getString(&part, TARN_MULTIPART_HEADER_NAME,
                         TARN_MULTIPART_HEADER_MAGIC),
         CGIgs_getString(&part, TARN_MULTIPART_HEADER_FILENAME,
                         TARN_MULTIPART_HEADER_MAGIC));
  printf("Content-Type: %s\n",
         CGIgs_getString(&part, TARN_MULTIPART_HEADER_CONTENT_TYPE,
                         TARN_MULTIPART_HEADER_MAGIC));

  CGIgs_delete(&part, TARN_MULTIPART_HEADER_MAGIC);
  return 0;
}

/* Output:
$ ./part
Content-Disposition: form-data; name="photo"; filename="lake.png"
Content-Type: image/png
*/
