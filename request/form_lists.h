// The lists of entries and files that both form parsers fill.
#ifndef TARN_REQUEST_FORM_LISTS_H
#define TARN_REQUEST_FORM_LISTS_H

#include "request/body.h"
#include "request/form_entry.h"

namespace tarn::internal {

// Where both parsers put the fields of a form. A field is dropped if its list is missing or memory
// runs out; the request is then marked as incomplete. Each may be null. `body` is null if the bytes
// that are parsed belong to the script.
struct FormLists {
  Node *request;
  Node *entries;
  Node *files;
  const Body *body;
  NodeArena *arena = nullptr;  // for the entries
};

// Appends an entry. If there is no entry (null) or no memory for it, marks the request.
inline void appendEntry(const FormLists &lists, Node *entry) {
  if (FormEntries::adopt(lists.entries, entry) != TARN_OK) markIncomplete(lists.request);
}

}  // namespace tarn::internal

#endif
