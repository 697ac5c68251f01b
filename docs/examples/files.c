/* Creates a file, as the parser does, and writes it to a stream: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  static const char bytes[] = "Deep and cold.\n";
  TarnHandle file = 0;
  if (CGIgs_new(&file, TARN_FORM_FILE_MAGIC) != TARN_OK) return 1;
  FormFile_init(&file, "note", "lake.txt", "text/plain", bytes,
                sizeof bytes - 1);

  TarnHandle list = 0;
  CGIgs_new(&list, TARN_FORM_FILE_LIST_MAGIC);
  FormFileList_addEntry(&list, &file);
  CGIgs_delete(&file,
               TARN_FORM_FILE_MAGIC); /* the list has a copy */

  TarnHandle borrowed = FormFileList_getByIndex(&list, 0);
  if (FormFile_compareName(&borrowed, "NOTE") == 0) {
    printf("%s (%s), %u bytes:\n",
           CGIgs_getString(&borrowed, TARN_FILE_FILENAME,
                           TARN_FORM_FILE_MAGIC),
           CGIgs_getString(&borrowed, TARN_FILE_CONTENT_TYPE,
                           TARN_FORM_FILE_MAGIC),
           (unsigned)FormFile_getDataLength(&borrowed));
    FormFile_writeToStream(&borrowed, stdout);
  }

  FormFileList_delete(&list);
  return 0;
}

/* Output:
$ ./files
lake.txt (text/plain), 15 bytes:
Deep and cold.
*/
