// A field of a form, and the list of fields.
#ifndef TARN_REQUEST_FORM_ENTRY_H
#define TARN_REQUEST_FORM_ENTRY_H

#include "core/typed_list.h"

namespace tarn::internal {

using FormEntries = NodeList<TARN_FORM_ENTRY_LIST_MAGIC, TARN_FORM_ENTRY_MAGIC>;

// An entry with a value that ends at its first zero byte and the length that was sent. If the name has
// null data, the entry has no name.
Node *newFormEntry(std::string_view name, std::string_view value, uint32_t length,
                   NodeArena *arena = nullptr);

// An entry from URL-encoded texts, with the length of the decoded value.
Node *newDecodedFormEntry(std::string_view name, std::string_view value,
                          NodeArena *arena = nullptr);

const char *nameOfEntry(const Node &entry);
const char *valueOfEntry(const Node &entry);

}  // namespace tarn::internal

#endif
