#ifndef TARN_REQUEST_MULTIPART_H
#define TARN_REQUEST_MULTIPART_H

#include <string_view>

#include "request/form_lists.h"

namespace tarn::internal {

// Parses a body under its content type. Without "boundary=" there it has no parts.
void parseMultipart(const FormLists &lists, std::string_view body, const char *contentType);

// Parses what stands between two delimiters. Gives the end of the last header line; null when the
// part was dropped.
const char *parsePart(const FormLists &lists, std::string_view part);

}  // namespace tarn::internal

#endif
