#include "core/cgigs.h"
#include "response/http_cookie.h"

namespace tarn::internal {
namespace {

// Both types of header keep their cookies in the same slot.
static_assert(uint32_t{TARN_HEADER_COOKIES} == uint32_t{TARN_RESPONSE_HEADER_COOKIES});

Node *headerIn(const TarnHandle *handle) { return nodeIn(handle, TARN_HEADER_MAGIC); }

Node *responseIn(const TarnHandle *handle) { return nodeIn(handle, TARN_RESPONSE_HEADER_MAGIC); }

void clear(Node &header) {
  Cookies::store(header, TARN_RESPONSE_HEADER_COOKIES, nullptr);
  emptyNode(header);
}

void clearResponse(Node &header) {
  if (const GenericList *lines = listAt(header.list(TARN_RESPONSE_HEADER_LINES))) {
    for (uint32_t i = 0; i < lines->count; ++i) std::free(blockAt<char>(elementAt(*lines, i)));
  }
  clear(header);
}

}  // namespace
}  // namespace tarn::internal

using namespace tarn::internal;

TarnStatus HTTPHeader_delete(TarnHandle *header) {
  if (TarnStatus status = HTTPHeader_clear(header)) return status;
  return CGIgs_delete(header, TARN_HEADER_MAGIC);
}

TarnStatus HTTPHeader_clear(TarnHandle *header) {
  Node *node = headerIn(header);
  if (!node) return TARN_WRONG_TYPE;
  clear(*node);
  return TARN_OK;
}

TarnStatus HTTPHeader_init(TarnHandle *header, const char *contentType, TarnHandle *cookies) {
  Node *node = headerIn(header);
  if (!node) return TARN_WRONG_TYPE;
  const Node *list = Cookies::in(cookies);
  if (!contentType || (cookies && !list)) return TARN_BAD_ARGUMENT;
  // Copied before the node is emptied: the text and the list may belong to the header itself.
  OwnedText type = copyText(contentType);
  Node *copy = nullptr;
  if (list) Cookies::copy(*list, copy);
  clear(*node);
  setText(*node, TARN_HEADER_CONTENT_TYPE, std::move(type));
  setChild(*node, TARN_RESPONSE_HEADER_COOKIES, copy);
  // Without a cookie list the content type is stored anyway. Kept: quirk 52.
  return copy ? TARN_OK : TARN_BAD_ARGUMENT;
}

TarnStatus HTTPHeader_setCookieList(TarnHandle *header, TarnHandle *cookies) {
  Node *node = headerIn(header);
  if (!node) return TARN_WRONG_TYPE;
  const Node *list = Cookies::in(cookies);
  if (!list) return TARN_BAD_ARGUMENT;
  // Copied before the old list is released: they may be the same list.
  Node *copy = nullptr;
  Cookies::copy(*list, copy);
  Cookies::store(*node, TARN_RESPONSE_HEADER_COOKIES, copy);
  // The status is that of storing the copy, not of making it. Kept: quirk 55.
  return copy ? TARN_OK : TARN_BAD_ARGUMENT;
}

TarnStatus HTTPPlainHeader_new(TarnHandle *handle) {
  if (TarnStatus status = CGIgs_new(handle, TARN_HEADER_MAGIC)) return status;
  return CGIgs_setString(handle, TARN_HEADER_CONTENT_TYPE, "text/plain", TARN_HEADER_MAGIC);
}

TarnStatus HTTPResponseHeader_delete(TarnHandle *header) {
  if (TarnStatus status = HTTPResponseHeader_clear(header)) return status;
  return CGIgs_delete(header, TARN_RESPONSE_HEADER_MAGIC);
}

TarnStatus HTTPResponseHeader_clear(TarnHandle *header) {
  Node *node = responseIn(header);
  if (!node) return TARN_WRONG_TYPE;
  clearResponse(*node);
  return TARN_OK;
}

TarnStatus HTTPResponseHeader_init(TarnHandle *header, const char *first, int number,
                                   const char *second) {
  Node *node = responseIn(header);
  if (!node) return TARN_WRONG_TYPE;
  // Without a text, nothing is done and that succeeds. Kept: quirk 53.
  if (!first || !second) return TARN_OK;
  // Copied before the node is emptied: the texts may belong to the header itself.
  OwnedText firstCopy = copyText(first);
  OwnedText secondCopy = copyText(second);
  clearResponse(*node);
  setText(*node, TARN_RESPONSE_HEADER_FIRST, std::move(firstCopy));
  setNumber(*node, TARN_RESPONSE_HEADER_NUMBER, static_cast<uint32_t>(number));
  setText(*node, TARN_RESPONSE_HEADER_SECOND, std::move(secondCopy));
  return TARN_OK;
}

TarnHandle HTTPResponseHeader_getHeaderList(TarnHandle *header) {
  return CGIgs_getList(header, TARN_RESPONSE_HEADER_LINES, TARN_RESPONSE_HEADER_MAGIC);
}

TarnStatus HTTPResponseHeader_addHeader(TarnHandle *header, const char *line) {
  Node *node = responseIn(header);
  if (!node) return TARN_WRONG_TYPE;
  if (!line) return TARN_BAD_ARGUMENT;
  TarnHandle &lines = wholeNode(*node).slots.lists[TARN_RESPONSE_HEADER_LINES];
  if (!lines) lines = handleOf(newList());
  OwnedText copy = copyText(line);
  const TarnStatus status = append(listAt(lines), handleOf(copy.get()));
  if (status == TARN_OK) (void)copy.release();
  return status;
}

// Returns the status of copying, where HTTPHeader_setCookieList() returns that of storing. Kept:
// quirk 55.
TarnStatus HTTPResponseHeader_setCookieList(TarnHandle *header, TarnHandle *cookies) {
  Node *node = responseIn(header);
  if (!node) return TARN_WRONG_TYPE;
  const Node *list = Cookies::in(cookies);
  if (!list) return TARN_BAD_ARGUMENT;
  Node *copy = nullptr;
  const TarnStatus status = Cookies::copy(*list, copy);
  Cookies::store(*node, TARN_RESPONSE_HEADER_COOKIES, copy);
  return status;
}

TarnStatus HTTPResponseHeader_addCookie(TarnHandle *header, TarnHandle *cookie) {
  Node *node = responseIn(header);
  if (!node) return TARN_WRONG_TYPE;
  if (!nodeIn(cookie, TARN_COOKIE_MAGIC)) return TARN_BAD_ARGUMENT;
  TarnHandle &list = wholeNode(*node).slots.structs[TARN_RESPONSE_HEADER_COOKIES];
  if (list) return Cookies::add(&list, cookie);
  // A header without a list gets an empty one, and the cookie is lost. Kept: quirk 54.
  setChild(*node, TARN_RESPONSE_HEADER_COOKIES, Cookies::create());
  return list ? TARN_OK : TARN_WRONG_TYPE;
}

TarnStatus MultiPartHeader_init(TarnHandle *header, const char *disposition, const char *name,
                                const char *fileName, const char *contentType) {
  Node *node = nodeIn(header, TARN_MULTIPART_HEADER_MAGIC);
  if (!node) return TARN_WRONG_TYPE;
  // All are copied before the first slot is set: the texts may belong to the header itself.
  OwnedText texts[] = {copyText(disposition), copyText(name), copyText(fileName),
                       copyText(contentType)};
  uint32_t slot = TARN_MULTIPART_HEADER_DISPOSITION;
  for (OwnedText &text : texts) setText(*node, slot++, std::move(text));
  return TARN_OK;
}

const char *HTTPContentHeader_toString(TarnHandle *) { return "Not yet implemented"; }

const char *HTTPRedirectHeader_toHTML(TarnHandle *) { return "Not implemented."; }

const char *HTTPResponseHeader_toHTML(TarnHandle *) { return "Not implemented yet."; }

const char *HTTPStatusHeader_toHTML(TarnHandle *) { return "Not yet implemented"; }
