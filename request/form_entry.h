#ifndef TARN_REQUEST_FORM_ENTRY_H
#define TARN_REQUEST_FORM_ENTRY_H

#include "core/node_list.h"

namespace tarn::internal {

using FormEntries = NodeList<TARN_FORM_ENTRY_LIST_MAGIC, TARN_FORM_ENTRY_MAGIC>;

// An entry as a list keeps it: the value as far as it is text, the length as it came. A name that
// is no text at all (null data) is none.
Node *newFormEntry(std::string_view name, std::string_view value, uint32_t length);

// The same of URL-encoded texts, with the length of the decoded text.
Node *newDecodedFormEntry(std::string_view name, std::string_view value);

const char *nameOfEntry(const Node &entry);
const char *valueOfEntry(const Node &entry);

}  // namespace tarn::internal

#endif
