#include "response/http_cookie.h"

#include <array>

#include "core/text.h"

namespace tarn {
namespace {

// The path comes after the domain, although HTTPCookie_init() takes the max-age between them.
enum Text : uint32_t { kName, kValue, kComment, kDomain, kPath, kRendered };
enum Number : uint32_t { kMaxAge, kSecure };

Node *cookieIn(const TarnHandle *handle) { return nodeIn(handle, TARN_COOKIE_MAGIC); }

const char *shown(const char *text) { return text ? text : "(null)"; }

}  // namespace

Node *newCookie(OwnedText name, OwnedText value) {
  Node *cookie = newNode(TARN_COOKIE_MAGIC);
  if (cookie && name && value) {
    setText(*cookie, kName, std::move(name));
    setText(*cookie, kValue, std::move(value));
  }
  return cookie;
}

}  // namespace tarn

using namespace tarn;

TarnStatus HTTPCookie_init(TarnHandle *cookie, const char *name, const char *value,
                           const char *comment, const char *domain, long maxAge, const char *path,
                           int secure) {
  // Name and value are tested before the type: scripts see 1 for a missing name on any handle.
  if (!name || !value) return TARN_BAD_ARGUMENT;
  Node *node = cookieIn(cookie);
  if (!node) return TARN_WRONG_TYPE;
  // Copied before the node is emptied: the texts may be the cookie's own.
  std::array<OwnedText, kStringSlots> texts;
  texts[kName] = copyText(name);
  texts[kValue] = copyText(value);
  texts[kComment] = copyText(comment);
  texts[kDomain] = copyText(domain);
  texts[kPath] = copyText(path);
  emptyNode(*node);
  // The other slots, the rendered text among them, are emptied by this too.
  for (uint32_t slot = 0; slot < kStringSlots; ++slot) setText(*node, slot, std::move(texts[slot]));
  node->ints[kMaxAge] = static_cast<uint32_t>(maxAge);
  node->ints[kSecure] = static_cast<uint32_t>(secure);
  return TARN_OK;
}

// The second cookie is tested first and stands on the left: scripts sort names downward by it.
int HTTPCookie_compare(TarnHandle *a, TarnHandle *b) {
  const Node *left = cookieIn(b);
  const Node *right = cookieIn(a);
  if (!left || !right) return 0;
  const int byName = orderTexts(left->strings[kName], right->strings[kName]);
  return byName != 0 ? byName : orderTexts(left->strings[kValue], right->strings[kValue]);
}

long HTTPCookie_getMaxAge(TarnHandle *cookie) {
  return static_cast<int32_t>(CGIgs_getInt(cookie, kMaxAge, TARN_COOKIE_MAGIC));
}

TarnStatus HTTPCookie_setMaxAge(TarnHandle *cookie, long maxAge) {
  return CGIgs_setInt(cookie, kMaxAge, static_cast<uint32_t>(maxAge), TARN_COOKIE_MAGIC);
}

int HTTPCookie_isSecure(TarnHandle *cookie) {
  return static_cast<int>(CGIgs_getInt(cookie, kSecure, TARN_COOKIE_MAGIC));
}

TarnStatus HTTPCookie_setSecure(TarnHandle *cookie, int secure) {
  return CGIgs_setInt(cookie, kSecure, static_cast<uint32_t>(secure), TARN_COOKIE_MAGIC);
}

const char *HTTPCookie_toString(TarnHandle *cookie) {
  Node *node = cookieIn(cookie);
  if (!node) return CGIgs_empty_string;
  char *text = nullptr;
  // Scripts parse this text: the one comma, after the domain, belongs to it.
  tarn_asprintf(&text,
                "HTTPCookie{name=\"%s\";value=\"%s\";comment=\"%s\";domain=\"%s\",maxage=%ld;"
                "path=\"%s\";secure=\"%s\"}",
                shown(node->strings[kName]), shown(node->strings[kValue]),
                shown(node->strings[kComment]), shown(node->strings[kDomain]),
                HTTPCookie_getMaxAge(cookie), shown(node->strings[kPath]),
                HTTPCookie_isSecure(cookie) ? "yes" : "no");
  setText(*node, kRendered, copyText(text));
  return text ? text : CGIgs_empty_string;
}

TarnStatus HTTPCookieList_delete(TarnHandle *list) { return Cookies::remove(list); }

TarnStatus HTTPCookieList_clear(TarnHandle *list) { return Cookies::clear(list); }

TarnStatus HTTPCookieList_clone(TarnHandle *source, TarnHandle *destination) {
  return Cookies::clone(source, destination);
}

TarnStatus HTTPCookieList_addCookie(TarnHandle *list, TarnHandle *cookie) {
  return Cookies::add(list, cookie);
}

int HTTPCookieList_getCount(TarnHandle *list) {
  return static_cast<int>(Cookies::count(Cookies::in(list)));
}

TarnHandle HTTPCookieList_getByIndex(TarnHandle *list, uint32_t index) {
  return Cookies::handleAt(Cookies::in(list), index);
}

const char *HTTPCookieList_toHTML(TarnHandle *) { return "Not yet implemented."; }
