#include <gtest/gtest.h>
#include <tarn.h>

#include <climits>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/failing_memory.h"
#include "support/handles.h"

namespace {

using tarn_test::Node;
using tarn_test::withEveryOtherType;

struct Cookie : Node {
  explicit Cookie(const char *name) : Node(TARN_COOKIE_MAGIC) {
    HTTPCookie_init(*this, name, "value", nullptr, nullptr, 0, nullptr, 0);
  }
};

struct CookieList : Node {
  CookieList(std::initializer_list<const char *> names = {}) : Node(TARN_COOKIE_LIST_MAGIC) {
    for (const char *name : names) HTTPCookieList_addCookie(*this, Cookie(name));
  }
  ~CookieList() { HTTPCookieList_delete(*this); }
};

// A list that cannot be copied, because one of its elements is not a cookie.
struct SpoiltList : CookieList {
  SpoiltList() : CookieList{"a"} {
    TarnHandle inner = CGIgs_getList(*this, TARN_LIST_ELEMENTS, TARN_COOKIE_LIST_MAGIC);
    TARNGenericList_addDatum(&inner, 0);
  }
};

struct Header : Node {
  Header() : Node(TARN_HEADER_MAGIC) {}
  ~Header() { HTTPHeader_delete(*this); }
};

struct Response : Node {
  Response() : Node(TARN_RESPONSE_HEADER_MAGIC) {}
  // A header with both texts, the number, lines and cookies.
  static constexpr struct Full {
  } kFull{};
  explicit Response(Full) : Response() {
    HTTPResponseHeader_init(*this, "first", 7, "second");
    HTTPResponseHeader_addHeader(*this, "X-One: 1");
    HTTPResponseHeader_addHeader(*this, "X-Two: 2");
    HTTPResponseHeader_setCookieList(*this, CookieList{"a", "b"});
  }
  ~Response() { HTTPResponseHeader_delete(*this); }
};

struct Part : Node {
  Part() : Node(TARN_MULTIPART_HEADER_MAGIC) {}
};

using Texts = std::vector<std::string>;

TarnHandle cookieList(TarnHandle *header) {
  return CGIgs_getStruct(header, TARN_RESPONSE_HEADER_COOKIES, 0);
}

// Represents a missing text in lists of texts.
constexpr const char *kHole = "(none)";

const char *orHole(const char *text) { return text ? text : kHole; }

Texts cookieNames(TarnHandle *header) {
  TarnHandle list = cookieList(header);
  Texts names;
  for (uint32_t i = 0; i < static_cast<uint32_t>(HTTPCookieList_getCount(&list)); ++i) {
    TarnHandle cookie = HTTPCookieList_getByIndex(&list, i);
    names.emplace_back(orHole(CGIgs_getString(&cookie, TARN_COOKIE_NAME, TARN_COOKIE_MAGIC)));
  }
  return names;
}

const char *line(TarnHandle *response, uint32_t index) {
  TarnHandle list = HTTPResponseHeader_getHeaderList(response);
  return reinterpret_cast<const char *>(TARNGenericList_getByIndex(&list, index));
}

Texts lines(TarnHandle *response) {
  TarnHandle list = HTTPResponseHeader_getHeaderList(response);
  Texts texts;
  for (uint32_t i = 0; i < TARNGenericList_getCount(&list); ++i) {
    texts.emplace_back(orHole(line(response, i)));
  }
  return texts;
}

const char *contentType(TarnHandle *header) {
  return CGIgs_getString(header, TARN_HEADER_CONTENT_TYPE, TARN_HEADER_MAGIC);
}

const char *responseText(TarnHandle *response, TarnResponseHeaderSlot slot) {
  return CGIgs_getString(response, slot, TARN_RESPONSE_HEADER_MAGIC);
}

int number(TarnHandle *response) {
  return static_cast<int>(
      CGIgs_getInt(response, TARN_RESPONSE_HEADER_NUMBER, TARN_RESPONSE_HEADER_MAGIC));
}

void expectResponse(TarnHandle *response, const char *first, int itsNumber, const char *second,
                    const Texts &itsLines, const Texts &cookies) {
  EXPECT_STREQ(first, responseText(response, TARN_RESPONSE_HEADER_FIRST));
  EXPECT_EQ(itsNumber, number(response));
  EXPECT_STREQ(second, responseText(response, TARN_RESPONSE_HEADER_SECOND));
  EXPECT_EQ(itsLines, lines(response));
  EXPECT_EQ(cookies, cookieNames(response));
}

void expectFullResponse(TarnHandle *response) {
  expectResponse(response, "first", 7, "second", {"X-One: 1", "X-Two: 2"}, {"a", "b"});
}

const char *partText(TarnHandle *part, uint32_t slot) {
  return CGIgs_getString(part, slot, TARN_MULTIPART_HEADER_MAGIC);
}

void expectPart(TarnHandle *part, const char *disposition, const char *name, const char *fileName,
                const char *type) {
  EXPECT_STREQ(disposition, partText(part, TARN_MULTIPART_HEADER_DISPOSITION));
  EXPECT_STREQ(name, partText(part, TARN_MULTIPART_HEADER_NAME));
  EXPECT_STREQ(fileName, partText(part, TARN_MULTIPART_HEADER_FILENAME));
  EXPECT_STREQ(type, partText(part, TARN_MULTIPART_HEADER_CONTENT_TYPE));
}

// ---- Content header -----------------------------------------------------------------------------

TEST(HTTPHeader, StartsEmpty) {
  Header header;
  EXPECT_EQ(4979U, CGIgs_getMagic(header));
  EXPECT_EQ(nullptr, contentType(header));
  EXPECT_EQ(0U, cookieList(header));
}

TEST(HTTPHeader, InitKeepsCopiesOfContentTypeAndCookies) {
  Header header;
  char type[] = "text/html";
  CookieList cookies{"a", "b"};
  EXPECT_EQ(TARN_OK, HTTPHeader_init(header, type, cookies));
  type[0] = '?';
  EXPECT_NE(cookies.value(), cookieList(header));
  HTTPCookieList_delete(cookies);
  EXPECT_STREQ("text/html", contentType(header));
  EXPECT_EQ((Texts{"a", "b"}), cookieNames(header));
  EXPECT_EQ(75101U, CGIgs_getChildMagic(header, TARN_RESPONSE_HEADER_COOKIES, TARN_HEADER_MAGIC));
}

TEST(HTTPHeader, InitAcceptsAnEmptyCookieList) {
  Header header;
  CookieList empty;
  EXPECT_EQ(TARN_OK, HTTPHeader_init(header, "text/html", empty));
  EXPECT_NE(0U, cookieList(header));
  EXPECT_EQ(Texts{}, cookieNames(header));
}

TEST(HTTPHeader, InitAgainReplacesContentTypeAndCookies) {
  Header header;
  CookieList before{"a", "b"};
  CookieList after{"c"};
  EXPECT_EQ(TARN_OK, HTTPHeader_init(header, "text/html", before));
  EXPECT_EQ(TARN_OK, HTTPHeader_init(header, "text/css", after));
  EXPECT_STREQ("text/css", contentType(header));
  EXPECT_EQ(Texts{"c"}, cookieNames(header));
}

TEST(HTTPHeader, InitEmptiesTheOtherSlotsOfTheNode) {
  Header header;
  CookieList cookies{"a"};
  CGIgs_setString(header, 1, "more", TARN_HEADER_MAGIC);
  CGIgs_setInt(header, 0, 7, TARN_HEADER_MAGIC);
  EXPECT_EQ(TARN_OK, HTTPHeader_init(header, "text/html", cookies));
  EXPECT_EQ(nullptr, CGIgs_getString(header, 1, TARN_HEADER_MAGIC));
  EXPECT_EQ(0U, CGIgs_getInt(header, 0, TARN_HEADER_MAGIC));
}

TEST(HTTPHeader, InitWithoutACookieListStoresTheContentTypeAndReturnsBadArgument) {
  Header header;
  CookieList cookies{"a"};
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPHeader_init(header, "text/html", nullptr));
  EXPECT_STREQ("text/html", contentType(header));

  EXPECT_EQ(TARN_OK, HTTPHeader_init(header, "text/css", cookies));
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPHeader_init(header, "text/plain", nullptr));
  EXPECT_STREQ("text/plain", contentType(header));
  EXPECT_EQ(0U, cookieList(header));
  EXPECT_EQ(0U, CGIgs_getChildMagic(header, TARN_RESPONSE_HEADER_COOKIES, TARN_HEADER_MAGIC));
}

TEST(HTTPHeader, InitWithAnotherTypeAsTheCookieListChangesNothing) {
  Header header;
  CookieList cookies{"a"};
  ASSERT_EQ(TARN_OK, HTTPHeader_init(header, "text/html", cookies));
  withEveryOtherType([&](TarnHandle *stranger) {
    if (stranger == nullptr) return;
    EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPHeader_init(header, "text/css", stranger));
  });
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPHeader_init(header, "text/css", header));
  EXPECT_STREQ("text/html", contentType(header));
  EXPECT_EQ(Texts{"a"}, cookieNames(header));
}

TEST(HTTPHeader, InitWithoutAContentTypeChangesNothing) {
  Header header;
  CookieList cookies{"a"};
  ASSERT_EQ(TARN_OK, HTTPHeader_init(header, "text/html", cookies));
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPHeader_init(header, nullptr, cookies));
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPHeader_init(header, nullptr, nullptr));
  EXPECT_STREQ("text/html", contentType(header));
  EXPECT_EQ(Texts{"a"}, cookieNames(header));
}

TEST(HTTPHeader, InitOnAnotherTypeReturnsWrongTypeWhateverTheArguments) {
  CookieList cookies{"a"};
  Response response;
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPHeader_init(stranger, "text/html", cookies));
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPHeader_init(stranger, nullptr, nullptr));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPHeader_init(response, "text/html", cookies));
}

TEST(HTTPHeader, InitAcceptsTheHeadersOwnContentTypeAndCookies) {
  Header header;
  CookieList cookies{"a", "b"};
  ASSERT_EQ(TARN_OK, HTTPHeader_init(header, "text/html", cookies));
  TarnHandle own = cookieList(header);
  EXPECT_EQ(TARN_OK, HTTPHeader_init(header, contentType(header) + 5, &own));
  EXPECT_STREQ("html", contentType(header));
  EXPECT_EQ((Texts{"a", "b"}), cookieNames(header));
}

TEST(HTTPHeader, InitWithAListThatCannotBeCopiedStoresOnlyTheContentType) {
  Header header;
  CookieList cookies{"b"};
  SpoiltList spoilt;
  ASSERT_EQ(TARN_OK, HTTPHeader_init(header, "text/html", cookies));
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPHeader_init(header, "text/css", spoilt));
  EXPECT_STREQ("text/css", contentType(header));
  EXPECT_EQ(0U, cookieList(header));
}

TEST(HTTPHeader, SetCookieListReplacesOnlyTheCookies) {
  Header header;
  CookieList first{"a", "b"};
  CookieList second{"c"};
  ASSERT_EQ(TARN_OK, HTTPHeader_init(header, "text/html", first));
  EXPECT_EQ(TARN_OK, HTTPHeader_setCookieList(header, second));
  EXPECT_STREQ("text/html", contentType(header));
  EXPECT_EQ(Texts{"c"}, cookieNames(header));
  EXPECT_EQ(2, HTTPCookieList_getCount(first));
}

TEST(HTTPHeader, CookiesAreIndependentOfTheCallersList) {
  Header header;
  CookieList cookies{"a"};
  ASSERT_EQ(TARN_OK, HTTPHeader_setCookieList(header, cookies));
  HTTPCookieList_addCookie(cookies, Cookie("b"));
  EXPECT_EQ(Texts{"a"}, cookieNames(header));
  HTTPCookieList_delete(cookies);
  EXPECT_EQ(Texts{"a"}, cookieNames(header));
  EXPECT_EQ(75101U, CGIgs_getChildMagic(header, TARN_RESPONSE_HEADER_COOKIES, TARN_HEADER_MAGIC));
}

TEST(HTTPHeader, SetCookieListAcceptsTheHeadersOwnCookies) {
  Header header;
  CookieList cookies{"a", "b"};
  ASSERT_EQ(TARN_OK, HTTPHeader_setCookieList(header, cookies));
  TarnHandle own = cookieList(header);
  EXPECT_EQ(TARN_OK, HTTPHeader_setCookieList(header, &own));
  EXPECT_EQ((Texts{"a", "b"}), cookieNames(header));
}

TEST(HTTPHeader, SetCookieListWithoutAListReturnsBadArgumentAndKeepsTheCookies) {
  Header header;
  CookieList cookies{"a"};
  ASSERT_EQ(TARN_OK, HTTPHeader_setCookieList(header, cookies));
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPHeader_setCookieList(header, stranger));
  });
  EXPECT_EQ(Texts{"a"}, cookieNames(header));
}

TEST(HTTPHeader, SetCookieListOnAnotherTypeReturnsWrongTypeEvenWithoutAList) {
  CookieList cookies{"a"};
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPHeader_setCookieList(stranger, cookies));
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPHeader_setCookieList(stranger, nullptr));
  });
}

TEST(HTTPHeader, SetCookieListThatCannotBeCopiedReturnsBadArgumentAndLeavesNoCookies) {
  Header header;
  CookieList cookies{"b"};
  SpoiltList spoilt;
  ASSERT_EQ(TARN_OK, HTTPHeader_init(header, "text/html", cookies));
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPHeader_setCookieList(header, spoilt));
  EXPECT_EQ(0U, cookieList(header));
  EXPECT_EQ(0U, CGIgs_getChildMagic(header, TARN_RESPONSE_HEADER_COOKIES, TARN_HEADER_MAGIC));
  EXPECT_STREQ("text/html", contentType(header));
}

TEST(HTTPHeader, SetCookieListReplacesAnyObjectInTheSlot) {
  CookieList cookies{"a"};
  Header withChild;
  ASSERT_EQ(TARN_OK, CGIgs_setStruct(withChild, TARN_RESPONSE_HEADER_COOKIES, Cookie("lost"),
                                     TARN_HEADER_MAGIC, TARN_COOKIE_MAGIC));
  EXPECT_EQ(TARN_OK, HTTPHeader_setCookieList(withChild, cookies));
  EXPECT_EQ(Texts{"a"}, cookieNames(withChild));

  Header withParkedList;
  tarn_test::List parked{1, 2, 3};
  ASSERT_EQ(TARN_OK, CGIgs_setList(withParkedList, 2, parked, TARN_HEADER_MAGIC));
  parked.forget();
  EXPECT_EQ(TARN_OK, HTTPHeader_setCookieList(withParkedList, cookies));
  EXPECT_EQ(Texts{"a"}, cookieNames(withParkedList));
}

TEST(HTTPHeader, SetCookieListThatCannotBeCopiedKeepsAForeignNodeInTheSlot) {
  SpoiltList spoilt;
  Header header;
  Response response;
  for (auto [node, magic] : {std::pair<TarnHandle *, uint32_t>(header, TARN_HEADER_MAGIC),
                             {response, TARN_RESPONSE_HEADER_MAGIC}}) {
    SCOPED_TRACE(magic);
    ASSERT_EQ(TARN_OK, CGIgs_setStruct(node, TARN_RESPONSE_HEADER_COOKIES, Cookie("kept"), magic,
                                       TARN_COOKIE_MAGIC));
    const bool content = magic == TARN_HEADER_MAGIC;
    EXPECT_EQ(content ? TARN_BAD_ARGUMENT : TARN_WRONG_TYPE,
              content ? HTTPHeader_setCookieList(node, spoilt)
                      : HTTPResponseHeader_setCookieList(node, spoilt));
    TarnHandle kept = CGIgs_getStruct(node, TARN_RESPONSE_HEADER_COOKIES, magic);
    EXPECT_STREQ("kept", CGIgs_getString(&kept, TARN_COOKIE_NAME, TARN_COOKIE_MAGIC));
    EXPECT_EQ(TARN_COOKIE_MAGIC, CGIgs_getChildMagic(node, TARN_RESPONSE_HEADER_COOKIES, magic));
  }
}

TEST(HTTPHeader, ClearEmptiesTheHeaderWhichCanBeUsedAgain) {
  Header header;
  CookieList cookies{"a", "b"};
  ASSERT_EQ(TARN_OK, HTTPHeader_init(header, "text/html", cookies));
  const TarnHandle before = header.value();
  EXPECT_EQ(TARN_OK, HTTPHeader_clear(header));
  EXPECT_EQ(before, header.value());
  EXPECT_EQ(4979U, CGIgs_getMagic(header));
  EXPECT_EQ(nullptr, contentType(header));
  EXPECT_EQ(0U, cookieList(header));
  EXPECT_EQ(0U, CGIgs_getChildMagic(header, TARN_RESPONSE_HEADER_COOKIES, TARN_HEADER_MAGIC));

  EXPECT_EQ(TARN_OK, HTTPHeader_clear(header));
  EXPECT_EQ(TARN_OK, HTTPHeader_init(header, "text/css", cookies));
  EXPECT_EQ((Texts{"a", "b"}), cookieNames(header));
}

TEST(HTTPHeader, DeleteSetsTheHandleToZeroAndWorksOnce) {
  Header header;
  CookieList cookies{"a", "b"};
  ASSERT_EQ(TARN_OK, HTTPHeader_init(header, "text/html", cookies));
  EXPECT_EQ(TARN_OK, HTTPHeader_delete(header));
  EXPECT_EQ(0U, header.value());
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPHeader_delete(header));
}

TEST(HTTPHeader, ClearAndDeleteOfAnotherTypeReturnWrongType) {
  Response response;
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPHeader_clear(stranger));
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPHeader_delete(stranger));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPHeader_clear(response));
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPHeader_delete(response));
  EXPECT_NE(0U, response.value());
}

TEST(HTTPPlainHeader, IsAHeaderForPlainTextWithoutCookies) {
  TarnHandle header = 0;
  EXPECT_EQ(TARN_OK, HTTPPlainHeader_new(&header));
  EXPECT_EQ(4979U, CGIgs_getMagic(&header));
  EXPECT_STREQ("text/plain", contentType(&header));
  EXPECT_EQ(0U, cookieList(&header));

  CookieList cookies{"a"};
  EXPECT_EQ(TARN_OK, HTTPHeader_setCookieList(&header, cookies));
  EXPECT_STREQ("text/plain", contentType(&header));
  EXPECT_EQ(Texts{"a"}, cookieNames(&header));
  EXPECT_EQ(TARN_OK, HTTPHeader_delete(&header));
  EXPECT_EQ(0U, header);
}

TEST(HTTPPlainHeader, NewRefusesAHandleInUseAndANullAddress) {
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPPlainHeader_new(nullptr));
  Header header;
  Cookie cookie("held");
  tarn_test::List generic;
  for (TarnHandle *used : {static_cast<TarnHandle *>(header), static_cast<TarnHandle *>(cookie),
                           static_cast<TarnHandle *>(generic)}) {
    const TarnHandle before = *used;
    EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPPlainHeader_new(used));
    EXPECT_EQ(before, *used);
  }
  EXPECT_EQ(nullptr, contentType(header));
}

// ---- Response header ----------------------------------------------------------------------------

TEST(HTTPResponseHeader, StartsEmpty) {
  Response response;
  EXPECT_EQ(135456U, CGIgs_getMagic(response));
  expectResponse(response, nullptr, 0, nullptr, {}, {});
  EXPECT_EQ(0U, HTTPResponseHeader_getHeaderList(response));
  EXPECT_EQ(0U, cookieList(response));
}

TEST(HTTPResponseHeader, InitKeepsCopiesOfTheTextsAndTheNumber) {
  char first[] = "first";
  char second[] = "second";
  Response response;
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_init(response, first, -7, second));
  first[0] = second[0] = '?';
  expectResponse(response, "first", -7, "second", {}, {});
}

TEST(HTTPResponseHeader, InitKeepsEveryNumber) {
  Response response;
  for (int value : {0, 1, -1, INT_MAX, INT_MIN}) {
    SCOPED_TRACE(value);
    EXPECT_EQ(TARN_OK, HTTPResponseHeader_init(response, "", value, ""));
    EXPECT_EQ(value, number(response));
  }
}

TEST(HTTPResponseHeader, InitAgainDropsLinesAndCookies) {
  Response response(Response::kFull);
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_init(response, "other", 0, ""));
  expectResponse(response, "other", 0, "", {}, {});
  EXPECT_EQ(0U, HTTPResponseHeader_getHeaderList(response));
  EXPECT_EQ(0U, cookieList(response));
}

TEST(HTTPResponseHeader, InitEmptiesTheOtherSlotsOfTheNode) {
  Response response;
  CGIgs_setInt(response, 1, 7, TARN_RESPONSE_HEADER_MAGIC);
  CGIgs_setFixed(response, 7, TARN_RESPONSE_HEADER_MAGIC);
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_init(response, "first", 0, "second"));
  EXPECT_EQ(0U, CGIgs_getInt(response, 1, TARN_RESPONSE_HEADER_MAGIC));
  EXPECT_EQ(0U, CGIgs_getFixed(response, TARN_RESPONSE_HEADER_MAGIC));
}

TEST(HTTPResponseHeader, InitWithANullTextDoesNothingAndReturnsOk) {
  Response response(Response::kFull);
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_init(response, nullptr, 1, "x"));
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_init(response, "x", 1, nullptr));
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_init(response, nullptr, 1, nullptr));
  expectFullResponse(response);
}

TEST(HTTPResponseHeader, InitOnAnotherTypeReturnsWrongTypeWhateverTheTexts) {
  Header header;
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_init(stranger, "a", 1, "b"));
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_init(stranger, nullptr, 1, nullptr));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_init(header, "a", 1, "b"));
}

TEST(HTTPResponseHeader, InitAcceptsTheHeadersOwnTextsAndLines) {
  Response response(Response::kFull);
  EXPECT_EQ(TARN_OK,
            HTTPResponseHeader_init(response, responseText(response, TARN_RESPONSE_HEADER_FIRST), 7,
                                    responseText(response, TARN_RESPONSE_HEADER_SECOND)));
  expectResponse(response, "first", 7, "second", {}, {});
  EXPECT_EQ(TARN_OK,
            HTTPResponseHeader_init(response, responseText(response, TARN_RESPONSE_HEADER_SECOND),
                                    7, responseText(response, TARN_RESPONSE_HEADER_FIRST)));
  expectResponse(response, "second", 7, "first", {}, {});

  HTTPResponseHeader_addHeader(response, "X-One: 1");
  HTTPResponseHeader_addHeader(response, "X-Two: 2");
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_init(response, line(response, 1), 7, line(response, 0)));
  expectResponse(response, "X-Two: 2", 7, "X-One: 1", {}, {});
}

TEST(HTTPResponseHeader, ClearEmptiesTheHeaderWhichCanBeUsedAgain) {
  Response response(Response::kFull);
  const TarnHandle before = response.value();
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_clear(response));
  EXPECT_EQ(before, response.value());
  EXPECT_EQ(135456U, CGIgs_getMagic(response));
  expectResponse(response, nullptr, 0, nullptr, {}, {});
  EXPECT_EQ(0U, HTTPResponseHeader_getHeaderList(response));
  EXPECT_EQ(0U, cookieList(response));

  EXPECT_EQ(TARN_OK, HTTPResponseHeader_clear(response));
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_addHeader(response, "X-Three: 3"));
  EXPECT_EQ(Texts{"X-Three: 3"}, lines(response));
}

TEST(HTTPResponseHeader, ClearSkipsZerosAmongTheLines) {
  Response response;
  HTTPResponseHeader_addHeader(response, "X-One: 1");
  TarnHandle list = HTTPResponseHeader_getHeaderList(response);
  TARNGenericList_addDatum(&list, 0);
  HTTPResponseHeader_addHeader(response, "X-Two: 2");
  EXPECT_EQ((Texts{"X-One: 1", kHole, "X-Two: 2"}), lines(response));
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_clear(response));
  EXPECT_EQ(0U, HTTPResponseHeader_getHeaderList(response));
}

TEST(HTTPResponseHeader, DeleteSetsTheHandleToZeroAndWorksOnce) {
  Response response(Response::kFull);
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_delete(response));
  EXPECT_EQ(0U, response.value());
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_delete(response));
}

TEST(HTTPResponseHeader, ClearAndDeleteOfAnotherTypeReturnWrongType) {
  Header header;
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_clear(stranger));
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_delete(stranger));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_clear(header));
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_delete(header));
  EXPECT_NE(0U, header.value());
}

TEST(HTTPResponseHeader, AddHeaderStoresCopiesInOrderIncludingRepeatedLines) {
  char text[] = "X-One: 1";
  Response response;
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_addHeader(response, text));
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_addHeader(response, "X-Two: 2"));
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_addHeader(response, text));
  text[0] = '?';
  EXPECT_EQ((Texts{"X-One: 1", "X-Two: 2", "X-One: 1"}), lines(response));
  EXPECT_NE(line(response, 0), line(response, 2));
}

TEST(HTTPResponseHeader, AddHeaderStoresAnyLineUnchanged) {
  Response response;
  for (const char *odd : {"", "no colon", "A: b\r\nInjected: c\r\n", " folded", "%s%n"}) {
    SCOPED_TRACE(testing::PrintToString(odd));
    EXPECT_EQ(TARN_OK, HTTPResponseHeader_addHeader(response, odd));
  }
  EXPECT_EQ((Texts{"", "no colon", "A: b\r\nInjected: c\r\n", " folded", "%s%n"}), lines(response));
}

TEST(HTTPResponseHeader, AddHeaderAcceptsTheHeadersOwnLine) {
  Response response;
  HTTPResponseHeader_addHeader(response, "X-One: 1");
  for (int copies = 1; copies < 25; ++copies) {
    SCOPED_TRACE(copies);
    ASSERT_EQ(TARN_OK, HTTPResponseHeader_addHeader(response, line(response, 0)));
  }
  EXPECT_EQ(Texts(25, "X-One: 1"), lines(response));
}

TEST(HTTPResponseHeader, AddHeaderWithoutALineReturnsBadArgument) {
  Response response;
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPResponseHeader_addHeader(response, nullptr));
  EXPECT_EQ(0U, HTTPResponseHeader_getHeaderList(response));
}

TEST(HTTPResponseHeader, AddHeaderToAnotherTypeReturnsWrongTypeEvenWithoutALine) {
  Header header;
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_addHeader(stranger, "X-One: 1"));
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_addHeader(stranger, nullptr));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_addHeader(header, "X-One: 1"));
}

TEST(HTTPResponseHeader, HoldsThousandsOfLines) {
  Response response;
  Texts expected;
  for (int i = 0; i < 5001; ++i) {
    SCOPED_TRACE(i);
    expected.push_back("X-Line: " + std::to_string(i));
    ASSERT_EQ(TARN_OK, HTTPResponseHeader_addHeader(response, expected.back().c_str()));
  }
  EXPECT_EQ(expected, lines(response));
}

TEST(HTTPResponseHeader, GetHeaderListReturnsTheListNotACopy) {
  Response response(Response::kFull);
  TarnHandle list = HTTPResponseHeader_getHeaderList(response);
  EXPECT_EQ(1U, TARNGenericList_IsA(&list));
  EXPECT_EQ(list, CGIgs_getList(response, TARN_RESPONSE_HEADER_LINES, TARN_RESPONSE_HEADER_MAGIC));
  HTTPResponseHeader_addHeader(response, "X-Three: 3");
  EXPECT_EQ(list, HTTPResponseHeader_getHeaderList(response));
  EXPECT_EQ(3U, TARNGenericList_getCount(&list));
}

TEST(HTTPResponseHeader, GetHeaderListOfAnotherTypeReturnsZero) {
  Header header;
  tarn_test::List lent;
  CGIgs_setList(header, 0, lent, TARN_HEADER_MAGIC);
  lent.forget();
  EXPECT_EQ(0U, HTTPResponseHeader_getHeaderList(header));
  withEveryOtherType(
      [](TarnHandle *stranger) { EXPECT_EQ(0U, HTTPResponseHeader_getHeaderList(stranger)); });
}

// ---- Cookies of a response header ---------------------------------------------------------------

TEST(HTTPResponseHeader, SetCookieListReplacesOnlyTheCookies) {
  Response response(Response::kFull);
  CookieList cookies{"c"};
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_setCookieList(response, cookies));
  EXPECT_NE(cookies.value(), cookieList(response));
  HTTPCookieList_delete(cookies);
  expectResponse(response, "first", 7, "second", {"X-One: 1", "X-Two: 2"}, {"c"});
  EXPECT_EQ(75101U, CGIgs_getChildMagic(response, TARN_RESPONSE_HEADER_COOKIES,
                                        TARN_RESPONSE_HEADER_MAGIC));
}

TEST(HTTPResponseHeader, SetCookieListAcceptsAnEmptyList) {
  Response response(Response::kFull);
  CookieList empty;
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_setCookieList(response, empty));
  EXPECT_NE(0U, cookieList(response));
  EXPECT_EQ(Texts{}, cookieNames(response));
}

TEST(HTTPResponseHeader, SetCookieListAcceptsTheHeadersOwnCookies) {
  Response response(Response::kFull);
  TarnHandle own = cookieList(response);
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_setCookieList(response, &own));
  expectFullResponse(response);
}

TEST(HTTPResponseHeader, SetCookieListWithoutAListReturnsBadArgumentAndKeepsTheCookies) {
  Response response(Response::kFull);
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPResponseHeader_setCookieList(response, stranger));
  });
  expectFullResponse(response);
}

TEST(HTTPResponseHeader, SetCookieListOnAnotherTypeReturnsWrongTypeEvenWithoutAList) {
  Header header;
  CookieList cookies{"a"};
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_setCookieList(stranger, cookies));
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_setCookieList(stranger, nullptr));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_setCookieList(header, cookies));
}

TEST(HTTPResponseHeader, SetCookieListThatCannotBeCopiedReturnsTheReasonAndLeavesNoCookies) {
  Response response(Response::kFull);
  SpoiltList spoilt;
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_setCookieList(response, spoilt));
  EXPECT_EQ(0U, cookieList(response));
  EXPECT_EQ(
      0U, CGIgs_getChildMagic(response, TARN_RESPONSE_HEADER_COOKIES, TARN_RESPONSE_HEADER_MAGIC));
  expectResponse(response, "first", 7, "second", {"X-One: 1", "X-Two: 2"}, {});
}

TEST(HTTPResponseHeader, AddCookieLosesTheFirstCookieOfAHeaderWithoutAList) {
  Response response;
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_addCookie(response, Cookie("a")));
  TarnHandle list = cookieList(response);
  EXPECT_EQ(1U, CGIgs_IsA(&list, TARN_COOKIE_LIST_MAGIC));
  EXPECT_EQ(75101U, CGIgs_getChildMagic(response, TARN_RESPONSE_HEADER_COOKIES,
                                        TARN_RESPONSE_HEADER_MAGIC));
  EXPECT_EQ(Texts{}, cookieNames(response));

  EXPECT_EQ(TARN_OK, HTTPResponseHeader_addCookie(response, Cookie("b")));
  EXPECT_EQ(Texts{"b"}, cookieNames(response));
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_addCookie(response, Cookie("c")));
  EXPECT_EQ((Texts{"b", "c"}), cookieNames(response));
}

TEST(HTTPResponseHeader, AddCookieLosesTheFirstCookieAgainAfterAClear) {
  Response response(Response::kFull);
  HTTPResponseHeader_clear(response);
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_addCookie(response, Cookie("a")));
  EXPECT_EQ(Texts{}, cookieNames(response));
}

TEST(HTTPResponseHeader, AddCookieKeepsTheFirstCookieOnceAListWasSet) {
  Response response;
  CookieList empty;
  HTTPResponseHeader_setCookieList(response, empty);
  Cookie cookie("a");
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_addCookie(response, cookie));
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_addCookie(response, cookie));
  HTTPCookie_init(cookie, "changed", "", nullptr, nullptr, 0, nullptr, 0);
  EXPECT_EQ((Texts{"a", "a"}), cookieNames(response));
  EXPECT_EQ(0, HTTPCookieList_getCount(empty));
}

TEST(HTTPResponseHeader, AddCookieAcceptsTheHeadersOwnCookie) {
  Response response(Response::kFull);
  TarnHandle list = cookieList(response);
  TarnHandle own = HTTPCookieList_getByIndex(&list, 0);
  EXPECT_EQ(TARN_OK, HTTPResponseHeader_addCookie(response, &own));
  EXPECT_EQ((Texts{"a", "b", "a"}), cookieNames(response));
}

TEST(HTTPResponseHeader, AddCookieOfAnotherTypeReturnsBadArgumentAndCreatesNoList) {
  Response response;
  CookieList cookies{"a"};
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPResponseHeader_addCookie(response, stranger));
  });
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPResponseHeader_addCookie(response, cookies));
  EXPECT_EQ(0U, cookieList(response));
}

TEST(HTTPResponseHeader, AddCookieToAnotherTypeReturnsWrongTypeEvenWithoutACookie) {
  Header header;
  Cookie cookie("a");
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_addCookie(stranger, cookie));
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_addCookie(stranger, nullptr));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_addCookie(header, cookie));
}

// ---- Header of a part ---------------------------------------------------------------------------

TEST(MultiPartHeader, StartsEmpty) {
  Part part;
  EXPECT_EQ(19383U, CGIgs_getMagic(part));
  expectPart(part, nullptr, nullptr, nullptr, nullptr);
}

TEST(MultiPartHeader, InitKeepsCopiesOfTheFourTexts) {
  std::string texts[] = {"form-data", "photo", "cat.png", "image/png"};
  Part part;
  EXPECT_EQ(TARN_OK, MultiPartHeader_init(part, texts[0].data(), texts[1].data(), texts[2].data(),
                                          texts[3].data()));
  for (std::string &text : texts) text[0] = '?';
  expectPart(part, "form-data", "photo", "cat.png", "image/png");
}

TEST(MultiPartHeader, InitEmptiesTheSlotOfEachNullText) {
  Part part;
  MultiPartHeader_init(part, "form-data", "photo", "cat.png", "image/png");
  EXPECT_EQ(TARN_OK, MultiPartHeader_init(part, "form-data", nullptr, "", nullptr));
  expectPart(part, "form-data", nullptr, "", nullptr);
  EXPECT_EQ(TARN_OK, MultiPartHeader_init(part, nullptr, "note", nullptr, "text/plain"));
  expectPart(part, nullptr, "note", nullptr, "text/plain");
  EXPECT_EQ(TARN_OK, MultiPartHeader_init(part, nullptr, nullptr, nullptr, nullptr));
  expectPart(part, nullptr, nullptr, nullptr, nullptr);
}

TEST(MultiPartHeader, InitKeepsTheOtherSlotsOfTheNode) {
  Part part;
  CGIgs_setString(part, 4, "kept", TARN_MULTIPART_HEADER_MAGIC);
  CGIgs_setInt(part, 0, 7, TARN_MULTIPART_HEADER_MAGIC);
  EXPECT_EQ(TARN_OK, MultiPartHeader_init(part, "a", "b", "c", "d"));
  EXPECT_STREQ("kept", partText(part, 4));
  EXPECT_EQ(7U, CGIgs_getInt(part, 0, TARN_MULTIPART_HEADER_MAGIC));
}

TEST(MultiPartHeader, InitAcceptsTheHeadersOwnTexts) {
  Part part;
  MultiPartHeader_init(part, "form-data", "photo", "cat.png", "image/png");
  EXPECT_EQ(TARN_OK, MultiPartHeader_init(part, partText(part, TARN_MULTIPART_HEADER_DISPOSITION),
                                          partText(part, TARN_MULTIPART_HEADER_NAME),
                                          partText(part, TARN_MULTIPART_HEADER_FILENAME) + 4,
                                          partText(part, TARN_MULTIPART_HEADER_CONTENT_TYPE)));
  expectPart(part, "form-data", "photo", "png", "image/png");
}

TEST(MultiPartHeader, InitAcceptsTheHeadersOwnTextsInAnyOrder) {
  Part part;
  MultiPartHeader_init(part, "form-data", "photo", "cat.png", "image/png");
  EXPECT_EQ(TARN_OK, MultiPartHeader_init(part, partText(part, TARN_MULTIPART_HEADER_CONTENT_TYPE),
                                          partText(part, TARN_MULTIPART_HEADER_DISPOSITION),
                                          partText(part, TARN_MULTIPART_HEADER_NAME),
                                          partText(part, TARN_MULTIPART_HEADER_FILENAME)));
  expectPart(part, "image/png", "form-data", "photo", "cat.png");
}

TEST(MultiPartHeader, InitOnAnotherTypeReturnsWrongType) {
  Header header;
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, MultiPartHeader_init(stranger, "a", "b", "c", "d"));
    EXPECT_EQ(TARN_WRONG_TYPE, MultiPartHeader_init(stranger, nullptr, nullptr, nullptr, nullptr));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, MultiPartHeader_init(header, "a", "b", "c", "d"));
  EXPECT_EQ(nullptr, contentType(header));
}

// ---- Renderings ---------------------------------------------------------------------------------

TEST(HTTPHeader, RenderingsAreFixedTextsWithDifferentWordings) {
  Header header;
  EXPECT_STREQ("Not yet implemented", HTTPContentHeader_toString(header));
  EXPECT_STREQ("Not implemented.", HTTPRedirectHeader_toHTML(header));
  EXPECT_STREQ("Not implemented yet.", HTTPResponseHeader_toHTML(header));
  EXPECT_STREQ("Not yet implemented", HTTPStatusHeader_toHTML(header));
}

TEST(HTTPHeader, RenderingsReturnTheSameAddressForEveryHandle) {
  for (auto *render : {HTTPContentHeader_toString, HTTPRedirectHeader_toHTML,
                       HTTPResponseHeader_toHTML, HTTPStatusHeader_toHTML}) {
    Response response(Response::kFull);
    const char *text = render(nullptr);
    EXPECT_EQ(text, render(response));
    withEveryOtherType([&](TarnHandle *stranger) { EXPECT_EQ(text, render(stranger)); });
  }
}

// ---- Without memory -----------------------------------------------------------------------------

TEST(HTTPHeaderWithoutMemory, NewPlainHeaderReturnsWrongTypeAndLeavesTheHandleZero) {
  TarnHandle header = 0;
  TarnStatus status = TARN_OK;
  tarn_test::withoutMemory([&] { status = HTTPPlainHeader_new(&header); });
  EXPECT_EQ(TARN_WRONG_TYPE, status);
  EXPECT_EQ(0U, header);
}

TEST(HTTPHeaderWithoutMemory, CookieListThatCannotBeCopiedLeavesNoCookies) {
  Header header;
  Response response(Response::kFull);
  CookieList cookies{"a"};
  ASSERT_EQ(TARN_OK, HTTPHeader_setCookieList(header, cookies));
  TarnStatus ofHeader = TARN_OK;
  TarnStatus ofResponse = TARN_OK;
  tarn_test::withoutMemory([&] {
    ofHeader = HTTPHeader_setCookieList(header, cookies);
    ofResponse = HTTPResponseHeader_setCookieList(response, cookies);
  });
  EXPECT_EQ(TARN_BAD_ARGUMENT, ofHeader);
  EXPECT_EQ(0U, cookieList(header));
  EXPECT_EQ(TARN_OUT_OF_MEMORY, ofResponse);
  EXPECT_EQ(0U, cookieList(response));
}

TEST(HTTPHeaderWithoutMemory, AddHeaderReturnsOkAndStoresZeroForTheLine) {
  Response response;
  HTTPResponseHeader_addHeader(response, "X-One: 1");
  TarnStatus status = TARN_BAD_ARGUMENT;
  tarn_test::withoutMemory([&] { status = HTTPResponseHeader_addHeader(response, "X-Two: 2"); });
  EXPECT_EQ(TARN_OK, status);
  EXPECT_EQ((Texts{"X-One: 1", kHole}), lines(response));
}

TEST(HTTPHeaderWithoutMemory, AddHeaderReportsThatTheListCannotGrow) {
  Response response;
  const Texts ten(10, "X-One: 1");
  for (const std::string &text : ten) HTTPResponseHeader_addHeader(response, text.c_str());
  TarnStatus status = TARN_OK;
  tarn_test::withoutMemory([&] { status = HTTPResponseHeader_addHeader(response, "X-Two: 2"); });
  EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
  EXPECT_EQ(ten, lines(response));
}

TEST(HTTPHeaderWithoutMemory, AddCookieReportsItAndKeepsTheCookies) {
  Response response(Response::kFull);
  Cookie cookie("c");
  TarnStatus status = TARN_OK;
  tarn_test::withoutMemory([&] { status = HTTPResponseHeader_addCookie(response, cookie); });
  EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
  expectFullResponse(response);
}

TEST(HTTPHeaderWithoutMemory, FirstCookieOfAHeaderWithoutAListReturnsWrongType) {
  Response response;
  Cookie cookie("c");
  TarnStatus status = TARN_OK;
  tarn_test::withoutMemory([&] { status = HTTPResponseHeader_addCookie(response, cookie); });
  EXPECT_EQ(TARN_WRONG_TYPE, status);
  EXPECT_EQ(0U, cookieList(response));
}

TEST(HTTPHeaderWithoutMemory, InitOfAPartHeaderReturnsOkAndLeavesItsTextsUnset) {
  Part part;
  MultiPartHeader_init(part, "form-data", "photo", "cat.png", "image/png");
  TarnStatus status = TARN_BAD_ARGUMENT;
  tarn_test::withoutMemory([&] { status = MultiPartHeader_init(part, "a", "b", "c", "d"); });
  EXPECT_EQ(TARN_OK, status);
  expectPart(part, nullptr, nullptr, nullptr, nullptr);
}

TEST(HTTPHeaderWithoutMemory, InitOfAResponseHeaderReturnsOkAndLeavesItsTextsUnset) {
  Response response(Response::kFull);
  TarnStatus status = TARN_BAD_ARGUMENT;
  tarn_test::withoutMemory([&] { status = HTTPResponseHeader_init(response, "a", 5, "b"); });
  EXPECT_EQ(TARN_OK, status);
  expectResponse(response, nullptr, 5, nullptr, {}, {});
}

TEST(HTTPResponseHeader, AddingACookieToAForeignChildReturnsWrongType) {
  Response response;
  Cookie cookie("a");
  ASSERT_EQ(TARN_OK, CGIgs_setStruct(response, TARN_RESPONSE_HEADER_COOKIES, cookie,
                                     TARN_RESPONSE_HEADER_MAGIC, TARN_COOKIE_MAGIC));
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPResponseHeader_addCookie(response, cookie));
}

}  // namespace
