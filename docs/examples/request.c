/* A complete request: all fields of one name, a checkbox, and an
   uploaded file: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle request = 0;
  if (Tarn_new(&request) != TARN_OK) return 1;

  if (!Tarn_isComplete(&request)) {
    printf("Status: 400 Bad Request\r\n");
    printf("Content-Type: text/plain\r\n\r\n");
    printf("The form is incomplete.\n");
    Tarn_delete(&request);
    return 0;
  }
  printf("Content-Type: text/plain\r\n\r\n");

  TarnHandle tags = 0;
  CGIgs_new(&tags, TARN_FORM_ENTRY_LIST_MAGIC);
  Tarn_findEntries(&request, "tag", 0, &tags);
  for (int32_t i = 0; i < FormEntryList_getCount(&tags); ++i) {
    TarnHandle tag = FormEntryList_getByIndex(&tags, (uint32_t)i);
    printf("tag: %s\n", CGIgs_getString(&tag, TARN_ENTRY_VALUE,
                                        TARN_FORM_ENTRY_MAGIC));
  }
  FormEntryList_delete(&tags);

  printf("public: %s\n",
         Tarn_queryCheckbox(&request, "public") ? "yes" : "no");

  TarnHandle photo = Tarn_getFile(&request, "photo");
  if (photo) {
    printf("photo: %u bytes from %s\n",
           (unsigned)FormFile_getDataLength(&photo),
           CGIgs_getString(&photo, TARN_FILE_FILENAME,
                           TARN_FORM_FILE_MAGIC));
  }

  Tarn_delete(&request);
  return 0;
}

/* Output:
$ field='Content-Disposition: form-data; name='
$ printf '%s\r\n' --cut "$field\"tag\"" '' blue \
    --cut "$field\"tag\"" '' cold --cut "$field\"public\"" '' on \
    --cut "$field\"photo\"; filename=\"lake.txt\"" \
    'Content-Type: text/plain' '' 'A photo in words.' --cut-- >body
$ REQUEST_METHOD=POST CONTENT_LENGTH=$(wc -c <body) \
    CONTENT_TYPE='multipart/form-data; boundary=cut' \
    ./request <body
Content-Type: text/plain

tag: blue
tag: cold
public: yes
photo: 17 bytes from lake.txt
$ REQUEST_METHOD=POST CONTENT_LENGTH=1000 \
    CONTENT_TYPE='multipart/form-data; boundary=cut' \
    ./request <body
Status: 400 Bad Request
Content-Type: text/plain

The form is incomplete.
*/
