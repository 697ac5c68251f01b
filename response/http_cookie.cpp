#include "response/http_cookie.h"

#include <array>

#include "core/text.h"

namespace tarn::internal {
namespace {

Node *cookieIn(const TarnHandle *handle) { return nodeIn(handle, TARN_COOKIE_MAGIC); }

const char *printable(const char *text) { return text ? text : "(null)"; }

}  // namespace

Node *newCookie(OwnedText name, OwnedText value) {
  Node *cookie = newNode(TARN_COOKIE_MAGIC);
  if (cookie && name && value) {
    setText(*cookie, TARN_COOKIE_NAME, std::move(name));
    setText(*cookie, TARN_COOKIE_VALUE, std::move(value));
  }
  return cookie;
}

}  // namespace tarn::internal

using namespace tarn::internal;

TarnStatus HTTPCookie_init(TarnHandle *cookie, const char *name, const char *value,
                           const char *comment, const char *domain, long maxAge, const char *path,
                           int secure) {
  // Name and value are tested before the type. Kept: quirk 50.
  if (!name || !value) return TARN_BAD_ARGUMENT;
  Node *node = cookieIn(cookie);
  if (!node) return TARN_WRONG_TYPE;
  // Copied before the node is emptied: the texts may belong to the cookie itself.
  std::array<OwnedText, kStringSlots> texts;
  texts[TARN_COOKIE_NAME] = copyText(name);
  texts[TARN_COOKIE_VALUE] = copyText(value);
  texts[TARN_COOKIE_COMMENT] = copyText(comment);
  texts[TARN_COOKIE_DOMAIN] = copyText(domain);
  texts[TARN_COOKIE_PATH] = copyText(path);
  emptyNode(*node);
  // This also empties the other slots, including the rendered text.
  for (uint32_t slot = 0; slot < kStringSlots; ++slot) setText(*node, slot, std::move(texts[slot]));
  setNumber(*node, TARN_COOKIE_MAX_AGE, static_cast<uint32_t>(maxAge));
  setNumber(*node, TARN_COOKIE_SECURE, static_cast<uint32_t>(secure));
  return TARN_OK;
}

// Compares the second cookie with the first. Kept: quirk 48.
int HTTPCookie_compare(TarnHandle *a, TarnHandle *b) {
  const Node *left = cookieIn(b);
  const Node *right = cookieIn(a);
  if (!left || !right) return 0;
  const int byName = orderTexts(wholeNode(*left).slots.strings[TARN_COOKIE_NAME],
                                wholeNode(*right).slots.strings[TARN_COOKIE_NAME]);
  return byName != 0 ? byName
                     : orderTexts(wholeNode(*left).slots.strings[TARN_COOKIE_VALUE],
                                  wholeNode(*right).slots.strings[TARN_COOKIE_VALUE]);
}

long HTTPCookie_getMaxAge(TarnHandle *cookie) {
  return static_cast<int32_t>(CGIgs_getInt(cookie, TARN_COOKIE_MAX_AGE, TARN_COOKIE_MAGIC));
}

TarnStatus HTTPCookie_setMaxAge(TarnHandle *cookie, long maxAge) {
  return CGIgs_setInt(cookie, TARN_COOKIE_MAX_AGE, static_cast<uint32_t>(maxAge),
                      TARN_COOKIE_MAGIC);
}

int HTTPCookie_isSecure(TarnHandle *cookie) {
  return static_cast<int>(CGIgs_getInt(cookie, TARN_COOKIE_SECURE, TARN_COOKIE_MAGIC));
}

TarnStatus HTTPCookie_setSecure(TarnHandle *cookie, int secure) {
  return CGIgs_setInt(cookie, TARN_COOKIE_SECURE, static_cast<uint32_t>(secure), TARN_COOKIE_MAGIC);
}

const char *HTTPCookie_toString(TarnHandle *cookie) {
  Node *node = cookieIn(cookie);
  if (!node) return CGIgs_empty_string;
  char *text = nullptr;
  // One comma, after the domain; scripts parse this text. Kept: quirk 49.
  tarn_asprintf(&text,
                "HTTPCookie{name=\"%s\";value=\"%s\";comment=\"%s\";domain=\"%s\",maxage=%ld;"
                "path=\"%s\";secure=\"%s\"}",
                printable(wholeNode(*node).slots.strings[TARN_COOKIE_NAME]),
                printable(wholeNode(*node).slots.strings[TARN_COOKIE_VALUE]),
                printable(wholeNode(*node).slots.strings[TARN_COOKIE_COMMENT]),
                printable(wholeNode(*node).slots.strings[TARN_COOKIE_DOMAIN]),
                HTTPCookie_getMaxAge(cookie),
                printable(wholeNode(*node).slots.strings[TARN_COOKIE_PATH]),
                HTTPCookie_isSecure(cookie) ? "yes" : "no");
  setText(*node, TARN_COOKIE_RENDERED, copyText(text));
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
