#include "calls/player.h"

#include <cstdlib>

namespace tarn_fuzz {
namespace {

void changeCookie(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_COOKIE_MAGIC);
  TarnHandle *other = play.anyOf(TARN_COOKIE_MAGIC);
  const bool matches = CGIgs_IsA(handle, TARN_COOKIE_MAGIC);
  const char *name = play.text();
  const char *value = play.text();
  const char *comment = play.text();
  const char *domain = play.text();
  const char *path = play.text();
  EXPECT(HTTPCookie_init(handle, name, value, comment, domain, -1, path, 5) ==
         (!name || !value ? TARN_BAD_ARGUMENT
          : !matches      ? TARN_WRONG_TYPE
                          : TARN_OK));
  EXPECT(HTTPCookie_setMaxAge(handle, -7) == (matches ? TARN_OK : TARN_WRONG_TYPE));
  EXPECT(HTTPCookie_setSecure(handle, 9) == (matches ? TARN_OK : TARN_WRONG_TYPE));
  EXPECT(HTTPCookie_getMaxAge(handle) == (matches ? -7 : 0));
  EXPECT(HTTPCookie_isSecure(handle) == (matches ? 9 : 0));
  const char *shown = HTTPCookie_toString(handle);
  EXPECT((shown == CGIgs_empty_string) == !matches);
  if (matches) EXPECT(sameText(shown, CGIgs_getString(handle, TARN_COOKIE_RENDERED, 0)));
  if (shown != CGIgs_empty_string) std::free(const_cast<char *>(shown));
  EXPECT(HTTPCookie_compare(handle, handle) == 0);
  EXPECT((HTTPCookie_compare(handle, other) > 0) == (HTTPCookie_compare(other, handle) < 0));
}

void endHeader(Player &play) {
  TarnHandle *handle = play.input.below(2) == 0 ? play.variableOf(TARN_HEADER_MAGIC)
                                                : play.variableOf(TARN_RESPONSE_HEADER_MAGIC);
  if (!play.ownsElements(handle)) return;
  TarnStatus (*ends[])(TarnHandle *) = {HTTPHeader_clear, HTTPResponseHeader_clear,
                                        HTTPHeader_delete, HTTPResponseHeader_delete};
  const uint32_t end = play.input.below(4);
  const bool matches =
      CGIgs_IsA(handle, end % 2 == 0 ? TARN_HEADER_MAGIC : TARN_RESPONSE_HEADER_MAGIC);
  if (matches) play.expectElementsFreed(*handle);
  EXPECT(ends[end](handle) == (matches ? TARN_OK : TARN_WRONG_TYPE));
  EXPECT(!matches || (*handle == 0) == (end > 1));
}

void changeHeader(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_HEADER_MAGIC);
  if (!play.ownsElements(handle)) return;
  const bool matches = CGIgs_IsA(handle, TARN_HEADER_MAGIC);
  const char *text = play.text();
  TarnHandle *cookies = play.anyOf(TARN_COOKIE_LIST_MAGIC);
  const bool initialises = play.input.below(2) == 0;
  const bool isList = CGIgs_IsA(cookies, TARN_COOKIE_LIST_MAGIC);
  const bool isWhole = text && isList;
  const bool replaces = matches && (initialises ? text && (isList || !cookies) : isList);
  if (replaces) play.expectElementsFreed(*handle);
  if (initialises) {
    const TarnStatus status = HTTPHeader_init(handle, text, cookies);
    EXPECT(matches || status == TARN_WRONG_TYPE);
    EXPECT(!matches || isWhole || status == TARN_BAD_ARGUMENT);
  } else {
    const TarnStatus status = HTTPHeader_setCookieList(handle, cookies);
    EXPECT(matches || status == TARN_WRONG_TYPE);
  }
}

void plainHeader(Player &play) {
  TarnHandle *handle = play.variable();
  const bool isFree = handle && *handle == 0;
  EXPECT(HTTPPlainHeader_new(handle) == (isFree ? TARN_OK : TARN_BAD_ARGUMENT));
  EXPECT(!isFree || sameText(CGIgs_getString(handle, TARN_HEADER_CONTENT_TYPE, TARN_HEADER_MAGIC),
                             "text/plain"));
}

void changeResponse(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_RESPONSE_HEADER_MAGIC);
  if (!play.ownsElements(handle)) return;
  const bool matches = CGIgs_IsA(handle, TARN_RESPONSE_HEADER_MAGIC);
  const char *text = play.text();
  TarnHandle *other =
      play.input.below(2) == 0 ? play.anyOf(TARN_COOKIE_MAGIC) : play.anyOf(TARN_COOKIE_LIST_MAGIC);
  const TarnStatus expected = matches ? TARN_OK : TARN_WRONG_TYPE;
  switch (play.input.below(4)) {
    case 0:
      if (matches && text) play.expectElementsFreed(*handle);
      EXPECT(HTTPResponseHeader_init(handle, text, 200, "OK") == expected);
      break;
    case 1: {
      TarnHandle lines = HTTPResponseHeader_getHeaderList(handle);
      const uint32_t before = TARNGenericList_getCount(&lines);
      EXPECT(HTTPResponseHeader_addHeader(handle, "Name: value") == expected);
      lines = HTTPResponseHeader_getHeaderList(handle);
      EXPECT(TARNGenericList_getCount(&lines) == before + (matches ? 1 : 0));
      break;
    }
    case 2:
      if (matches && CGIgs_IsA(other, TARN_COOKIE_LIST_MAGIC)) {
        play.expectElementsFreed(kCookieLists,
                                 CGIgs_getStruct(handle, TARN_RESPONSE_HEADER_COOKIES, 0));
      }
      EXPECT(HTTPResponseHeader_setCookieList(handle, other) != TARN_OK || matches);
      break;
    default:
      EXPECT(HTTPResponseHeader_addCookie(handle, other) != TARN_OK || matches);
  }
}

void changePartHeader(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_MULTIPART_HEADER_MAGIC);
  // Read in separate statements: compilers differ in the order in which they evaluate arguments.
  const char *disposition = play.text();
  const char *name = play.text();
  const char *fileName = play.text();
  const char *type = play.text();
  EXPECT(MultiPartHeader_init(handle, disposition, name, fileName, type) ==
         (CGIgs_IsA(handle, TARN_MULTIPART_HEADER_MAGIC) ? TARN_OK : TARN_WRONG_TYPE));
}

void changeAttribute(Player &play) {
  TarnHandle *handle = play.anyOf(TARN_ATTRIBUTE_MAGIC);
  const char *name = play.text();
  const char *value = play.text();
  EXPECT(HTMLAttribute_init(handle, name, value) ==
         (CGIgs_IsA(handle, TARN_ATTRIBUTE_MAGIC) ? TARN_OK : TARN_WRONG_TYPE));
}

void growElement(Player &play) {
  using Change = TarnStatus (*)(TarnHandle *, TarnHandle *);
  const struct {
    Change change;
    uint32_t magic;
  } changes[] = {{HTMLElement_addAttribute, TARN_ATTRIBUTE_MAGIC},
                 {HTMLElement_addElement, TARN_ELEMENT_MAGIC},
                 {HTMLElement_setAttributes, TARN_ATTRIBUTE_LIST_MAGIC},
                 {HTMLElement_setEmbedded, TARN_ELEMENT_LIST_MAGIC}};
  const auto &[change, magic] = changes[play.input.below(4)];
  TarnHandle *handle = play.anyOf(TARN_ELEMENT_MAGIC);
  TarnHandle *other = play.anyOf(magic);
  if (!play.ownsElements(handle)) return;
  const bool matches = CGIgs_IsA(handle, TARN_ELEMENT_MAGIC);
  const bool isGood = CGIgs_IsA(other, magic);
  if (matches && isGood && change == HTMLElement_setAttributes) {
    play.expectElementsFreed(kAttributeLists, CGIgs_getStruct(handle, TARN_ELEMENT_ATTRIBUTES, 0));
  }
  if (matches && isGood && change == HTMLElement_setEmbedded) {
    play.expectElementsFreed(kElementLists, CGIgs_getStruct(handle, TARN_ELEMENT_EMBEDDED, 0));
  }
  const TarnStatus status = change(handle, other);
  EXPECT(matches || status == TARN_WRONG_TYPE);
  EXPECT(!matches || isGood || status == TARN_BAD_ARGUMENT);
  EXPECT(HTMLElement_compare(handle, handle) == (matches ? 0 : -1));
}

void cloneElement(Player &play) {
  TarnHandle *source = play.anyOf(TARN_ELEMENT_MAGIC);
  TarnHandle *destination = play.variable();
  const bool isFree = destination && *destination == 0;
  const TarnStatus status = HTMLElement_clone(source, destination);
  EXPECT(CGIgs_IsA(source, TARN_ELEMENT_MAGIC) || status == TARN_WRONG_TYPE);
  EXPECT(status != TARN_OK || (isFree && sameElements(*source, *destination)));
}

void endElement(Player &play) {
  const bool clears = play.input.below(2) == 0;
  TarnHandle *handle =
      clears ? play.anyOf(TARN_ELEMENT_MAGIC) : play.variableOf(TARN_ELEMENT_MAGIC);
  if (!play.ownsElements(handle)) return;
  const bool matches = CGIgs_IsA(handle, TARN_ELEMENT_MAGIC);
  if (matches) play.expectElementsFreed(*handle);
  EXPECT((clears ? HTMLElement_clear : HTMLElement_delete)(handle) ==
         (matches ? TARN_OK : TARN_WRONG_TYPE));
  EXPECT(!matches || clears || *handle == 0);
}

void constants(Player &play) {
  TarnHandle *handle = play.any();
  EXPECT(sameText(FormEntry_toString(handle), "Not yet implemented"));
  EXPECT(sameText(FormEntryList_toHTML(handle), "Not yet implemented."));
  EXPECT(sameText(FormFileList_toHTML(handle), "Not yet implemented."));
  EXPECT(sameText(HTTPCookieList_toHTML(handle), "Not yet implemented."));
  EXPECT(sameText(HTTPContentHeader_toString(handle), "Not yet implemented"));
  EXPECT(sameText(HTTPRedirectHeader_toHTML(handle), "Not implemented."));
  EXPECT(sameText(HTTPResponseHeader_toHTML(handle), "Not implemented yet."));
  EXPECT(sameText(HTTPStatusHeader_toHTML(handle), "Not yet implemented"));
  EXPECT(sameText(HTMLAttribute_toHTML(handle), "Not yet implemented."));
  EXPECT(sameText(HTMLAttributeList_toHTML(handle), "Not yet implemented."));
  EXPECT(sameText(HTMLElement_toHTML(handle), "Not yet implemented"));
  EXPECT(sameText(HTMLElementList_toHTML(handle), "Not yet implemented."));
  EXPECT(sameText(Tarn_getCompileDate(handle), "Jul 17 2007"));
  EXPECT(sameText(Tarn_getCompileTime(handle), "14:49:31"));
  EXPECT(sameText(Tarn_getVersion(handle), "1.0.0"));
  EXPECT(sameText(Tarn_getHost(handle), "Set this to the platform we compiled for"));
  Tarn_save(handle, nullptr);
  Tarn_restore(handle, nullptr);
}

}  // namespace

Calls responseCalls() {
  static constexpr Call kCalls[] = {changeCookie,   endHeader,        changeHeader,    plainHeader,
                                    changeResponse, changePartHeader, changeAttribute, growElement,
                                    cloneElement,   endElement,       constants};
  return kCalls;
}

}  // namespace tarn_fuzz
