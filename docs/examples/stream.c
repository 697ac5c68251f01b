/* Writes a text and a number to a file and reads them back: */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tarn.h>

int main(void) {
  static const char name[] = "Llyn Idwal";
  FILE *stream = fopen("lake", "w+");
  if (!stream) return 1;

  writeLong(stream, (long)strlen(name) + 1);
  writeString(stream, name);
  writeLong(stream, 11);

  rewind(stream);
  char *text = readString(stream);
  long depth = readLong(stream);
  if (text) printf("%s is %ld m deep\n", text, depth);

  free(text);
  fclose(stream);
  return 0;
}

/* Output:
$ ./stream
Llyn Idwal is 11 m deep
$ cat lake && echo
 11  Llyn Idwal  11 
*/
