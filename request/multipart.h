#ifndef TARN_REQUEST_MULTIPART_H
#define TARN_REQUEST_MULTIPART_H

#include <string_view>

#include "core/cgigs.h"

namespace tarn {

// The request whose form is parsed, and where the fields go. What has no list to go to is dropped,
// like what cannot be allocated, and the request is marked as incomplete. All may be null.
struct FormLists {
  Node *request;
  Node *entries;
  Node *files;
};

// Appends an entry, or marks the request when there is none or no memory for it.
void keepEntry(const FormLists &lists, Node *entry);

// Parses a body under its content type. Without "boundary=" there it has no parts.
void parseMultipart(const FormLists &lists, std::string_view body, const char *contentType);

// Parses what stands between two delimiters. Gives the end of the last header line; null when the
// part was dropped.
const char *parsePart(const FormLists &lists, std::string_view part);

}  // namespace tarn

#endif
