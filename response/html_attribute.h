#ifndef TARN_RESPONSE_HTML_ATTRIBUTE_H
#define TARN_RESPONSE_HTML_ATTRIBUTE_H

#include "core/typed_list.h"

namespace tarn::internal {

using Attributes =
    NodeList<TARN_ATTRIBUTE_LIST_MAGIC, TARN_ATTRIBUTE_MAGIC, ElementsMade::kAfterCopying>;

}  // namespace tarn::internal

#endif
