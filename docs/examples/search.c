/* Finds bytes in a line of text: */

#include <stdio.h>
#include <string.h>
#include <tarn.h>

static void print(TarnHandle *buffer) {
  printf(
      "%.*s\n",
      (int)CGIgs_getInt(buffer, TARN_BYTE_BUFFER_LENGTH,
                        TARN_BYTE_BUFFER_MAGIC),
      (const char *)CGIgs_getFixed(buffer, TARN_BYTE_BUFFER_MAGIC));
  CGIgs_delete(buffer, TARN_BYTE_BUFFER_MAGIC);
}

int main(void) {
  static const char line[] = "<li>Llyn 'Idwal', depth %31%31 m";
  uint32_t length = (uint32_t)strlen(line);

  if (nStringsAreEqual(line, "<LI>", 4) == 0) printf("an item\n");

  TarnHandle name = extractBetween(line, length, "<li>", ",");
  print(&name);
  TarnHandle quoted = extractBetween1(line, length, "'");
  print(&quoted);

  const char *digits = memfind(line, length, "%", 1);
  if (digits) {
    printf("%c%c m\n", hexToChar(digits[1], digits[2]),
           hexToChar(digits[4], digits[5]));
  }
  return 0;
}

/* Output:
$ ./search
an item
Llyn 'Idwal'
Idwal
11 m
*/
