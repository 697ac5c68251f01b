// The parser of multipart/form-data bodies.
#ifndef TARN_REQUEST_MULTIPART_H
#define TARN_REQUEST_MULTIPART_H

#include <string_view>

#include "request/form_lists.h"

namespace tarn::internal {

// Parses a body. If the content type has no "boundary=", the body has no parts.
void parseMultipart(const FormLists &lists, std::string_view body, const char *contentType);

// Parses the bytes between two delimiters. Returns the end of the last header line, or null if the part
// was dropped.
const char *parsePart(const FormLists &lists, std::string_view part);

}  // namespace tarn::internal

#endif
