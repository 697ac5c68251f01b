// The parser of the Cookie header that a browser sends, HTTP_COOKIE.
#ifndef TARN_REQUEST_COOKIE_HEADER_H
#define TARN_REQUEST_COOKIE_HEADER_H

#include <string_view>

#include "core/cgigs.h"

namespace tarn::internal {

// Makes a cookie list of a header. If memory runs out, what was lost is missing from the list and
// the environment is marked as incomplete; null if there is no memory for the list.
Node *parseCookieHeader(std::string_view header, Node *environment);

}  // namespace tarn::internal

#endif
