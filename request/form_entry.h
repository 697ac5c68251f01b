#ifndef TARN_REQUEST_FORM_ENTRY_H
#define TARN_REQUEST_FORM_ENTRY_H

#include "core/node_list.h"

namespace tarn {

using FormEntries = NodeList<TARN_FORM_ENTRY_LIST_MAGIC, TARN_FORM_ENTRY_MAGIC>;

// An entry as a list keeps it: the value as far as it is text, the length as it came.
Node *newFormEntry(OwnedText name, OwnedText value, uint32_t length);

const char *nameOfEntry(const Node &entry);
const char *valueOfEntry(const Node &entry);

}  // namespace tarn

#endif
