// A cookie, and the list of cookies.
#ifndef TARN_RESPONSE_HTTP_COOKIE_H
#define TARN_RESPONSE_HTTP_COOKIE_H

#include "core/typed_list.h"

namespace tarn::internal {

using Cookies = NodeList<TARN_COOKIE_LIST_MAGIC, TARN_COOKIE_MAGIC, ElementsMade::kAfterCopying>;

// A cookie as a browser sends it: with a name and a value, or with neither if one of them is null.
Node *newCookie(OwnedText name, OwnedText value);

}  // namespace tarn::internal

#endif
