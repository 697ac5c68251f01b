#include "request/cookie_header.h"

#include "core/text.h"
#include "response/http_cookie.h"

namespace tarn::internal {
namespace {

OwnedText trimAndDecode(std::string_view text) { return unescape(trim(text)); }

// A token without "=" makes a cookie without a name and value (kept: quirk 29). So does one whose name
// or value cannot be allocated; `isLost` tells the two apart.
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

// Every ";" ends a token, and so does the end of the header; empty tokens count.
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
