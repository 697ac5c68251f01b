// An uploaded file, and the list of files.
#ifndef TARN_REQUEST_FORM_FILE_H
#define TARN_REQUEST_FORM_FILE_H

#include "core/typed_list.h"

namespace tarn::internal {

using FormFiles = NodeList<TARN_FORM_FILE_LIST_MAGIC, TARN_FORM_FILE_MAGIC>;

// What a file is made of. A zero byte follows the data; the file takes it over without a copy.
struct FileParts {
  OwnedText name;
  OwnedText fileName;
  OwnedText contentType;
  OwnedBytes data;
  uint32_t length;
};

// A file made of these parts; an empty one if the name or the content type is missing. Kept: quirk 9.
Node *newFormFile(FileParts parts);

const char *nameOfFile(const Node &file);

}  // namespace tarn::internal

#endif
