/* Copies a list of files. Clearing a file list deletes it: */

#include <stdio.h>
#include <tarn.h>

int main(void) {
  TarnHandle file = 0, list = 0, copy = 0;
  CGIgs_new(&file, TARN_FORM_FILE_MAGIC);
  CGIgs_new(&list, TARN_FORM_FILE_LIST_MAGIC);
  if (!file || !list) return 1;

  FormFile_init(&file, "note", "lake.txt", "text/plain", "cold", 4);
  FormFileList_addEntry(&list, &file);
  FormFileList_reserve(&list, 10); /* room for more */

  FormFileList_clone(&list, &copy);
  printf("%d file in the copy\n",
         (int)FormFileList_getCount(&copy));
  TarnHandle copied = FormFileList_getByIndex(&copy, 0);
  printf("the same: %s\n",
         FormFile_compare(&copied, &file) == 0 ? "yes" : "no");

  FormFileList_clear(&list);
  printf("the list is gone: %s\n", list ? "no" : "yes");

  FormFileList_delete(&copy);
  CGIgs_delete(&file, TARN_FORM_FILE_MAGIC);
  return 0;
}

/* Output:
$ ./file-list
1 file in the copy
the same: yes
the list is gone: yes
*/
