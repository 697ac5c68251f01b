#ifndef TARN_REQUEST_FORM_FILE_H
#define TARN_REQUEST_FORM_FILE_H

#include "core/node_list.h"

namespace tarn::internal {

using FormFiles = NodeList<TARN_FORM_FILE_LIST_MAGIC, TARN_FORM_FILE_MAGIC>;

// What makes a file; the block comes from newText() and its bytes are kept without a copy.
struct FileParts {
  OwnedText name;
  OwnedText fileName;
  OwnedText contentType;
  OwnedText data;
  uint32_t length;
};

// A file of these parts; an empty one when name or content type is missing.
Node *newFormFile(FileParts parts);

const char *nameOfFile(const Node &file);

}  // namespace tarn::internal

#endif
