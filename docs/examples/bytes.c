/* Stores bytes, including a zero byte, and their count: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle buffer = 0;
  CGIgs_new(&buffer, TARN_BYTE_BUFFER_MAGIC);
  if (CGIfb_setData(&buffer, "la\0ke", 5) != TARN_OK) return 1;

  const unsigned char *bytes =
      (const unsigned char *)CGIgs_getFixed(&buffer,
                                            TARN_BYTE_BUFFER_MAGIC);
  uint32_t length = CGIgs_getInt(&buffer, TARN_BYTE_BUFFER_LENGTH,
                                 TARN_BYTE_BUFFER_MAGIC);
  for (uint32_t i = 0; i < length; ++i) printf("%02x\n", bytes[i]);

  CGIgs_delete(&buffer, TARN_BYTE_BUFFER_MAGIC);
  return 0;
}

/* Output:
$ ./bytes
6c
61
00
6b
65
*/
