/* A script that uses Tarn. It prints the number of entries and files in the request, and the first,
 * middle and last of each. peer.pl and peer.py print exactly the same. */
#include <stdio.h>
#include <tarn.h>

static void showEntry(TarnHandle entry) {
  printf("%s=%.16s (%u bytes)\n", CGIgs_getString(&entry, TARN_ENTRY_NAME, TARN_FORM_ENTRY_MAGIC),
         CGIgs_getString(&entry, TARN_ENTRY_VALUE, TARN_FORM_ENTRY_MAGIC),
         CGIgs_getInt(&entry, TARN_ENTRY_LENGTH, TARN_FORM_ENTRY_MAGIC));
}

static void showFile(TarnHandle file) {
  const uint32_t length = FormFile_getDataLength(&file);
  TarnHandle buffer = CGIgs_getStruct(&file, TARN_FILE_BYTES, TARN_FORM_FILE_MAGIC);
  const unsigned char *bytes =
      (const unsigned char *)CGIgs_getFixed(&buffer, TARN_BYTE_BUFFER_MAGIC);
  printf("%s: %s, %s, %u bytes, ",
         CGIgs_getString(&file, TARN_FILE_FIELD_NAME, TARN_FORM_FILE_MAGIC),
         CGIgs_getString(&file, TARN_FILE_FILENAME, TARN_FORM_FILE_MAGIC),
         CGIgs_getString(&file, TARN_FILE_CONTENT_TYPE, TARN_FORM_FILE_MAGIC), length);
  for (uint32_t i = length > 8 ? length - 8 : 0; i < length; i++) {
    printf("%02x", bytes[i]);
  }
  putchar('\n');
}

static void show(TarnHandle list, int count, TarnHandle (*at)(TarnHandle *, uint32_t),
                 void (*showOne)(TarnHandle)) {
  if (count == 0) return;
  showOne(at(&list, 0));
  showOne(at(&list, (uint32_t)count / 2));
  showOne(at(&list, (uint32_t)count - 1));
}

int main(void) {
  TarnHandle request = 0;
  if (Tarn_new(&request) != TARN_OK) return 1;
  TarnHandle entries = CGIgs_getStruct(&request, TARN_REQUEST_ENTRIES, TARN_REQUEST_MAGIC);
  TarnHandle files = CGIgs_getStruct(&request, TARN_REQUEST_FILES, TARN_REQUEST_MAGIC);
  const int entryCount = FormEntryList_getCount(&entries);
  const int fileCount = FormFileList_getCount(&files);
  printf("Content-Type: text/plain\n\n%d entries, %d files\n", entryCount, fileCount);
  show(entries, entryCount, FormEntryList_getByIndex, showEntry);
  show(files, fileCount, FormFileList_getByIndex, showFile);
  Tarn_delete(&request);
  return fflush(stdout) == 0 ? 0 : 1;
}
