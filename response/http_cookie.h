#ifndef TARN_RESPONSE_HTTP_COOKIE_H
#define TARN_RESPONSE_HTTP_COOKIE_H

#include "core/node_list.h"

namespace tarn {

using Cookies = NodeList<TARN_COOKIE_LIST_MAGIC, TARN_COOKIE_MAGIC>;

// A cookie as a browser sends it: a name and a value, either of which may be missing.
Node *newCookie(OwnedText name, OwnedText value);

}  // namespace tarn

#endif
