#ifndef TARN_REQUEST_MULTIPART_H
#define TARN_REQUEST_MULTIPART_H

#include <string_view>

#include "core/cgigs.h"

namespace tarn {

// Where a form's fields go. Either may be null: what would have gone there is dropped.
struct FormLists {
  Node *entries;
  Node *files;
};

// Parses a body under its content type. Without "boundary=" there it has no parts.
void parseMultipart(FormLists lists, std::string_view body, const char *contentType);

// Parses what stands between two delimiters. Gives the end of the last header line; null when the
// part was dropped.
const char *parsePart(FormLists lists, std::string_view part);

}  // namespace tarn

#endif
