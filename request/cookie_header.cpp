#include "request/cookie_header.h"

#include "core/text.h"
#include "response/http_cookie.h"

namespace tarn::internal {
namespace {

OwnedText trimAndDecode(std::string_view text) { return unescape(trim(text)); }

// A token without "=" makes a cookie without name and value, which is still in the list. So
// does one without memory for both, which is lost.
Node *parseCookie(std::string_view token, bool &isLost) {
  std::string_view name;
  std::string_view value;
  if (!splitAtFirst(token, '=', name, value)) return newCookie(nullptr, nullptr);
  OwnedText cleanName = trimAndDecode(name);
  OwnedText cleanValue = trimAndDecode(value);
  isLost = !cleanName || !cleanValue;
  return newCookie(std::move(cleanName), std::move(cleanValue));
}

}  // namespace

// Every ";" ends a token and the end of the header ends the last one; empty tokens count.
Node *parseCookieHeader(std::string_view header, Node *environment) {
  Node *list = Cookies::create();
  for (bool more = true; more;) {
    std::string_view token;
    more = splitAtFirst(header, ';', token, header);
    bool isLost = false;
    const TarnStatus status = Cookies::adopt(list, parseCookie(token, isLost));
    if (isLost || status != TARN_OK) markIncomplete(environment);
  }
  return list;
}

}  // namespace tarn::internal
