#include <gtest/gtest.h>
#include <tarn.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "support/failing_memory.h"
#include "support/handles.h"

namespace {

using tarn_test::Node;
using tarn_test::withEveryOtherType;

// The slots that a script reads with the node's getters.

struct Cookie : Node {
  Cookie() : Node(TARN_COOKIE_MAGIC) {}
  Cookie(const char *name, const char *value) : Cookie() {
    HTTPCookie_init(*this, name, value, nullptr, nullptr, 0, nullptr, 0);
  }
};

// A cookie with every field set.
struct FullCookie : Cookie {
  FullCookie() { HTTPCookie_init(*this, "name", "value", "comment", "domain", 3600, "/path", 1); }
};

struct CookieList : Node {
  CookieList() : Node(TARN_COOKIE_LIST_MAGIC) {}
  ~CookieList() { HTTPCookieList_delete(*this); }
};

// The text from HTTPCookie_toString(), which the caller owns.
using OwnText =
    std::unique_ptr<const char,
                    decltype([](const char *made) { std::free(const_cast<char *>(made)); })>;

const char *text(TarnHandle *cookie, uint32_t slot) {
  return CGIgs_getString(cookie, slot, TARN_COOKIE_MAGIC);
}

void expectTexts(TarnHandle *cookie, const char *name, const char *value, const char *comment,
                 const char *domain, const char *path) {
  EXPECT_STREQ(name, text(cookie, TARN_COOKIE_NAME));
  EXPECT_STREQ(value, text(cookie, TARN_COOKIE_VALUE));
  EXPECT_STREQ(comment, text(cookie, TARN_COOKIE_COMMENT));
  EXPECT_STREQ(domain, text(cookie, TARN_COOKIE_DOMAIN));
  EXPECT_STREQ(path, text(cookie, TARN_COOKIE_PATH));
}

void expectFullCookie(TarnHandle *cookie) {
  expectTexts(cookie, "name", "value", "comment", "domain", "/path");
  EXPECT_EQ(3600, HTTPCookie_getMaxAge(cookie));
  EXPECT_EQ(1, HTTPCookie_isSecure(cookie));
}

// ---- Filling a cookie ---------------------------------------------------------------------------

TEST(HTTPCookie, StartsEmptyWithMaxAgeZeroAndNotSecure) {
  Cookie cookie;
  EXPECT_EQ(30211U, CGIgs_getMagic(cookie));
  expectTexts(cookie, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(nullptr, text(cookie, TARN_COOKIE_RENDERED));
  EXPECT_EQ(0, HTTPCookie_getMaxAge(cookie));
  EXPECT_EQ(0, HTTPCookie_isSecure(cookie));
}

TEST(HTTPCookie, InitStoresCopiesWithThePathAfterTheDomain) {
  char texts[5][8] = {"name", "value", "comment", "domain", "/path"};
  Cookie cookie;
  EXPECT_EQ(TARN_OK,
            HTTPCookie_init(cookie, texts[0], texts[1], texts[2], texts[3], 3600, texts[4], 1));
  std::memset(texts, '?', sizeof(texts));
  expectFullCookie(cookie);
  EXPECT_EQ(3600U, CGIgs_getInt(cookie, TARN_COOKIE_MAX_AGE, TARN_COOKIE_MAGIC));
  EXPECT_EQ(1U, CGIgs_getInt(cookie, TARN_COOKIE_SECURE, TARN_COOKIE_MAGIC));
}

TEST(HTTPCookie, InitWithoutCommentDomainAndPathLeavesThemUnset) {
  Cookie cookie;
  EXPECT_EQ(TARN_OK, HTTPCookie_init(cookie, "n", "v", nullptr, nullptr, 0, nullptr, 0));
  expectTexts(cookie, "n", "v", nullptr, nullptr, nullptr);
}

TEST(HTTPCookie, InitDistinguishesEmptyTextsFromUnsetOnes) {
  Cookie cookie;
  EXPECT_EQ(TARN_OK, HTTPCookie_init(cookie, "", "", "", "", 0, "", 0));
  expectTexts(cookie, "", "", "", "", "");
}

TEST(HTTPCookie, InitValidatesAndEscapesNothing) {
  const char *odd = "a b;c=\"d\",\r\nSet-Cookie: x\x7f\xff";
  Cookie cookie;
  EXPECT_EQ(TARN_OK, HTTPCookie_init(cookie, odd, odd, odd, odd, 0, odd, 0));
  expectTexts(cookie, odd, odd, odd, odd, odd);
}

TEST(HTTPCookie, InitWithoutANameOrAValueReturnsBadArgumentAndChangesNothing) {
  Cookie fresh;
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPCookie_init(fresh, "n", nullptr, "c", "d", 1, "p", 1));
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPCookie_init(fresh, nullptr, "v", "c", "d", 1, "p", 1));
  expectTexts(fresh, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(0, HTTPCookie_getMaxAge(fresh));
  EXPECT_EQ(0, HTTPCookie_isSecure(fresh));

  FullCookie full;
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPCookie_init(full, "n", nullptr, "c", "d", 1, "p", 0));
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPCookie_init(full, nullptr, "v", "c", "d", 1, "p", 0));
  expectFullCookie(full);
}

TEST(HTTPCookie, InitChecksNameAndValueBeforeTheType) {
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(TARN_BAD_ARGUMENT,
              HTTPCookie_init(stranger, nullptr, "v", nullptr, nullptr, 0, nullptr, 0));
    EXPECT_EQ(TARN_BAD_ARGUMENT,
              HTTPCookie_init(stranger, "n", nullptr, nullptr, nullptr, 0, nullptr, 0));
    EXPECT_EQ(TARN_WRONG_TYPE,
              HTTPCookie_init(stranger, "n", "v", nullptr, nullptr, 0, nullptr, 0));
  });
}

TEST(HTTPCookie, InitAgainEmptiesTheCookieIncludingItsRenderedText) {
  FullCookie cookie;
  OwnText rendered(HTTPCookie_toString(cookie));
  CGIgs_setString(cookie, 6, "six", TARN_COOKIE_MAGIC);
  CGIgs_setString(cookie, 7, "seven", TARN_COOKIE_MAGIC);
  CGIgs_setInt(cookie, 2, 7, TARN_COOKIE_MAGIC);
  EXPECT_EQ(TARN_OK, HTTPCookie_init(cookie, "n", "v", nullptr, nullptr, 0, nullptr, 0));
  expectTexts(cookie, "n", "v", nullptr, nullptr, nullptr);
  for (uint32_t slot : {5U, 6U, 7U}) EXPECT_EQ(nullptr, text(cookie, slot)) << slot;
  EXPECT_EQ(0, HTTPCookie_getMaxAge(cookie));
  EXPECT_EQ(0, HTTPCookie_isSecure(cookie));
  EXPECT_EQ(0U, CGIgs_getInt(cookie, 2, TARN_COOKIE_MAGIC));
}

TEST(HTTPCookie, NodeClearKeepsCommentDomainPathAndRenderedText) {
  FullCookie cookie;
  OwnText rendered(HTTPCookie_toString(cookie));
  EXPECT_EQ(TARN_OK, CGIgs_clear(cookie, TARN_COOKIE_MAGIC));
  expectTexts(cookie, nullptr, nullptr, "comment", "domain", "/path");
  EXPECT_STREQ(rendered.get(), text(cookie, TARN_COOKIE_RENDERED));
  EXPECT_EQ(0, HTTPCookie_getMaxAge(cookie));
  EXPECT_EQ(0, HTTPCookie_isSecure(cookie));
}

TEST(HTTPCookie, InitAcceptsTheCookiesOwnTextsInAnyOrder) {
  FullCookie cookie;
  EXPECT_EQ(TARN_OK,
            HTTPCookie_init(cookie, text(cookie, TARN_COOKIE_NAME), text(cookie, TARN_COOKIE_VALUE),
                            text(cookie, TARN_COOKIE_COMMENT), text(cookie, TARN_COOKIE_DOMAIN),
                            HTTPCookie_getMaxAge(cookie), text(cookie, TARN_COOKIE_PATH),
                            HTTPCookie_isSecure(cookie)));
  expectFullCookie(cookie);

  EXPECT_EQ(TARN_OK,
            HTTPCookie_init(cookie, text(cookie, TARN_COOKIE_VALUE), text(cookie, TARN_COOKIE_NAME),
                            text(cookie, TARN_COOKIE_DOMAIN), text(cookie, TARN_COOKIE_PATH) + 1, 0,
                            text(cookie, TARN_COOKIE_COMMENT), 0));
  expectTexts(cookie, "value", "name", "domain", "path", "comment");

  OwnText rendered(HTTPCookie_toString(cookie));
  EXPECT_EQ(TARN_OK, HTTPCookie_init(cookie, "n", text(cookie, TARN_COOKIE_RENDERED), nullptr,
                                     nullptr, 0, nullptr, 0));
  expectTexts(cookie, "n", rendered.get(), nullptr, nullptr, nullptr);
  EXPECT_EQ(nullptr, text(cookie, TARN_COOKIE_RENDERED));
}

// ---- Max-age and secure flag --------------------------------------------------------------------

TEST(HTTPCookie, MaxAgeWithin32BitsIsStoredUnchanged) {
  Cookie cookie;
  for (int32_t seconds : {0, 1, -1, 3600, INT32_MAX, INT32_MIN}) {
    SCOPED_TRACE(seconds);
    EXPECT_EQ(TARN_OK, HTTPCookie_setMaxAge(cookie, seconds));
    EXPECT_EQ(seconds, HTTPCookie_getMaxAge(cookie));
    EXPECT_EQ(TARN_OK, HTTPCookie_init(cookie, "n", "v", nullptr, nullptr, seconds, nullptr, 0));
    EXPECT_EQ(seconds, HTTPCookie_getMaxAge(cookie));
  }
}

TEST(HTTPCookie, WiderMaxAgeKeepsItsLow32BitsReadAsSigned) {
  if (sizeof(long) == sizeof(int32_t)) GTEST_SKIP() << "a long is no wider here";
  const struct {
    int64_t given;
    int32_t kept;
  } cases[] = {{2147483648, INT32_MIN},  {4294967295, -1}, {4294967296, 0}, {4294967303, 7},
               {-2147483649, INT32_MAX}, {INT64_MAX, -1},  {INT64_MIN, 0}};
  for (const auto &[given, kept] : cases) {
    Cookie cookie;
    EXPECT_EQ(TARN_OK, HTTPCookie_setMaxAge(cookie, static_cast<long>(given)));
    EXPECT_EQ(kept, HTTPCookie_getMaxAge(cookie)) << given;
    HTTPCookie_init(cookie, "n", "v", nullptr, nullptr, static_cast<long>(given), nullptr, 0);
    EXPECT_EQ(kept, HTTPCookie_getMaxAge(cookie)) << given;
  }
}

TEST(HTTPCookie, SecureFlagIsStoredUnchangedAndNotNormalised) {
  Cookie cookie;
  for (int secure : {5, 1, 0, -1, INT_MAX, INT_MIN}) {
    SCOPED_TRACE(secure);
    EXPECT_EQ(TARN_OK, HTTPCookie_setSecure(cookie, secure));
    EXPECT_EQ(secure, HTTPCookie_isSecure(cookie));
    HTTPCookie_init(cookie, "n", "v", nullptr, nullptr, 0, nullptr, secure);
    EXPECT_EQ(secure, HTTPCookie_isSecure(cookie));
  }
}

TEST(HTTPCookie, SettersChangeOnlyTheirOwnField) {
  FullCookie cookie;
  HTTPCookie_setMaxAge(cookie, -5);
  expectTexts(cookie, "name", "value", "comment", "domain", "/path");
  EXPECT_EQ(1, HTTPCookie_isSecure(cookie));
  HTTPCookie_setSecure(cookie, 0);
  EXPECT_EQ(-5, HTTPCookie_getMaxAge(cookie));
}

TEST(HTTPCookie, MaxAgeAndSecureFlagOfAnotherTypeReturnWrongTypeAndRead0) {
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPCookie_setMaxAge(stranger, 1));
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPCookie_setSecure(stranger, 1));
    EXPECT_EQ(0, HTTPCookie_getMaxAge(stranger));
    EXPECT_EQ(0, HTTPCookie_isSecure(stranger));
  });
}

// ---- Comparing cookies --------------------------------------------------------------------------

TEST(HTTPCookie, CompareIsPositiveWhenTheFirstNameSortsFirst) {
  Cookie a("a", "2");
  Cookie b("b", "1");
  EXPECT_GT(HTTPCookie_compare(a, b), 0);
  EXPECT_LT(HTTPCookie_compare(b, a), 0);
}

TEST(HTTPCookie, CompareOfEqualNamesOrdersByValueWithTheSameSign) {
  Cookie a("id", "a");
  Cookie b("id", "b");
  EXPECT_GT(HTTPCookie_compare(a, b), 0);
  EXPECT_LT(HTTPCookie_compare(b, a), 0);
}

TEST(HTTPCookie, CompareIgnoresEverythingExceptNameAndValue) {
  FullCookie full;
  Cookie bare("name", "value");
  EXPECT_EQ(0, HTTPCookie_compare(full, bare));
  EXPECT_EQ(0, HTTPCookie_compare(full, full));
}

TEST(HTTPCookie, CompareIsCaseSensitiveAndComparesUnsignedBytes) {
  Cookie upper("ID", "x");
  Cookie lower("id", "x");
  Cookie high("\xff", "x");
  EXPECT_GT(HTTPCookie_compare(upper, lower), 0);
  EXPECT_LT(HTTPCookie_compare(lower, upper), 0);
  EXPECT_GT(HTTPCookie_compare(lower, high), 0);
  Cookie upperValue("id", "X");
  EXPECT_GT(HTTPCookie_compare(upperValue, lower), 0);
}

TEST(HTTPCookie, CompareReturnsZeroWhenEitherHandleIsNotACookie) {
  Cookie cookie("id", "x");
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(0, HTTPCookie_compare(cookie, stranger));
    EXPECT_EQ(0, HTTPCookie_compare(stranger, cookie));
    EXPECT_EQ(0, HTTPCookie_compare(stranger, stranger));
  });
}

TEST(HTTPCookie, CompareOrdersAMissingNameOrValueBeforeAnyText) {
  Cookie empty("", "");
  Cookie unset;
  EXPECT_GT(HTTPCookie_compare(unset, empty), 0);
  EXPECT_LT(HTTPCookie_compare(empty, unset), 0);

  Cookie valueless;
  CGIgs_setString(valueless, TARN_COOKIE_NAME, "", TARN_COOKIE_MAGIC);
  EXPECT_GT(HTTPCookie_compare(valueless, empty), 0);
  EXPECT_LT(HTTPCookie_compare(empty, valueless), 0);
}

TEST(HTTPCookie, CompareTreatsTwoMissingTextsAsEqual) {
  Cookie unset;
  Cookie another;
  EXPECT_EQ(0, HTTPCookie_compare(unset, another));
  Cookie a;
  Cookie b;
  CGIgs_setString(a, TARN_COOKIE_VALUE, "a", TARN_COOKIE_MAGIC);
  CGIgs_setString(b, TARN_COOKIE_VALUE, "b", TARN_COOKIE_MAGIC);
  EXPECT_GT(HTTPCookie_compare(a, b), 0);
}

// ---- The debugging text -------------------------------------------------------------------------

TEST(HTTPCookie, ToStringPrintsEveryFieldAndOneCommaAfterTheDomain) {
  Cookie cookie;
  HTTPCookie_init(cookie, "id", "42", "c", "d", -1, "/", 1);
  OwnText text(HTTPCookie_toString(cookie));
  EXPECT_STREQ(
      R"(HTTPCookie{name="id";value="42";comment="c";domain="d",maxage=-1;path="/";secure="yes"})",
      text.get());
}

TEST(HTTPCookie, ToStringPrintsUnsetTextsAsNull) {
  Cookie named("id", "42");
  OwnText text(HTTPCookie_toString(named));
  EXPECT_STREQ(
      "HTTPCookie{name=\"id\";value=\"42\";comment=\"(null)\";domain=\"(null)\",maxage=0;"
      "path=\"(null)\";secure=\"no\"}",
      text.get());
  Cookie fresh;
  OwnText bare(HTTPCookie_toString(fresh));
  EXPECT_STREQ(
      "HTTPCookie{name=\"(null)\";value=\"(null)\";comment=\"(null)\";domain=\"(null)\","
      "maxage=0;path=\"(null)\";secure=\"no\"}",
      bare.get());
}

TEST(HTTPCookie, ToStringEscapesNothingAndFormatsNoFieldTwice) {
  Cookie cookie;
  HTTPCookie_init(cookie, "\"%s\"", "%n%d;\r\n", "", "\xff", 0, "\\", 0);
  OwnText text(HTTPCookie_toString(cookie));
  EXPECT_STREQ(
      "HTTPCookie{name=\"\"%s\"\";value=\"%n%d;\r\n\";comment=\"\";domain=\"\xff\",maxage=0;"
      "path=\"\\\";secure=\"no\"}",
      text.get());
}

TEST(HTTPCookie, ToStringPrintsMaxAgeAsSignedAndAnySecureFlagAsYes) {
  Cookie cookie("n", "v");
  for (int32_t seconds : {INT32_MIN, INT32_MAX}) {
    SCOPED_TRACE(seconds);
    HTTPCookie_setMaxAge(cookie, seconds);
    OwnText text(HTTPCookie_toString(cookie));
    EXPECT_NE(nullptr,
              std::strstr(text.get(), (",maxage=" + std::to_string(seconds) + ";").c_str()));
  }
  for (int secure : {5, -1, INT_MIN}) {
    SCOPED_TRACE(secure);
    HTTPCookie_setSecure(cookie, secure);
    OwnText text(HTTPCookie_toString(cookie));
    EXPECT_NE(nullptr, std::strstr(text.get(), ";secure=\"yes\"}"));
  }
}

TEST(HTTPCookie, ToStringAcceptsTextsOfAnyLength) {
  const std::string name(100000, 'n');
  const std::string value(200000, 'v');
  Cookie cookie(name.c_str(), value.c_str());
  OwnText text(HTTPCookie_toString(cookie));
  EXPECT_EQ("HTTPCookie{name=\"" + name + "\";value=\"" + value +
                "\";comment=\"(null)\";domain=\"(null)\",maxage=0;path=\"(null)\";secure=\"no\"}",
            text.get());
}

TEST(HTTPCookie, ToStringReturnsATextOwnedByTheCallerAndKeepsACopy) {
  FullCookie cookie;
  OwnText first(HTTPCookie_toString(cookie));
  EXPECT_STREQ(first.get(), text(cookie, TARN_COOKIE_RENDERED));
  EXPECT_NE(first.get(), text(cookie, TARN_COOKIE_RENDERED));

  const std::string before = first.get();
  OwnText second(HTTPCookie_toString(cookie));
  OwnText third(HTTPCookie_toString(cookie));
  EXPECT_EQ(before, first.get());
  EXPECT_EQ(before, second.get());
  EXPECT_NE(second.get(), third.get());
}

TEST(HTTPCookie, RenderedTextIsUpdatedOnlyByToString) {
  FullCookie cookie;
  OwnText before(HTTPCookie_toString(cookie));
  HTTPCookie_setMaxAge(cookie, 7);
  CGIgs_setString(cookie, TARN_COOKIE_NAME, "other", TARN_COOKIE_MAGIC);
  EXPECT_STREQ(before.get(), text(cookie, TARN_COOKIE_RENDERED));
  OwnText after(HTTPCookie_toString(cookie));
  EXPECT_STRNE(before.get(), after.get());
  EXPECT_STREQ(after.get(), text(cookie, TARN_COOKIE_RENDERED));
}

TEST(HTTPCookie, ToStringAcceptsItsOwnRenderedTextAsTheName) {
  Cookie cookie("n", "v");
  OwnText first(HTTPCookie_toString(cookie));
  CGIgs_setString(cookie, TARN_COOKIE_NAME, text(cookie, TARN_COOKIE_RENDERED), TARN_COOKIE_MAGIC);
  OwnText second(HTTPCookie_toString(cookie));
  EXPECT_EQ("HTTPCookie{name=\"" + std::string(first.get()) +
                "\";value=\"v\";comment=\"(null)\";domain=\"(null)\",maxage=0;path=\"(null)\";"
                "secure=\"no\"}",
            second.get());
}

TEST(HTTPCookie, ToStringOfAnotherTypeReturnsTheSharedEmptyText) {
  withEveryOtherType(
      [](TarnHandle *stranger) { EXPECT_EQ(CGIgs_empty_string, HTTPCookie_toString(stranger)); });
  EXPECT_STREQ("", CGIgs_empty_string);
}

// ---- Lists of cookies ---------------------------------------------------------------------------

TEST(HTTPCookieList, CopiesEveryFieldAndTheRenderedText) {
  CookieList list;
  FullCookie cookie;
  OwnText rendered(HTTPCookie_toString(cookie));
  ASSERT_EQ(TARN_OK, HTTPCookieList_addCookie(list, cookie));
  TarnHandle clone = 0;
  ASSERT_EQ(TARN_OK, HTTPCookieList_clone(list, &clone));
  HTTPCookie_init(cookie, "other", "changed", nullptr, nullptr, 0, nullptr, 0);
  for (TarnHandle *holder : {static_cast<TarnHandle *>(list), &clone}) {
    SCOPED_TRACE(holder == &clone ? "clone" : "list");
    TarnHandle copy = HTTPCookieList_getByIndex(holder, 0);
    expectFullCookie(&copy);
    EXPECT_STREQ(rendered.get(), text(&copy, TARN_COOKIE_RENDERED));
  }
  HTTPCookieList_delete(&clone);
}

// ---- Without memory -----------------------------------------------------------------------------

TEST(HTTPCookieWithoutMemory, InitReturnsOkAndLeavesTheTextsUnset) {
  FullCookie cookie;
  TarnStatus status = TARN_BAD_ARGUMENT;
  tarn_test::withoutMemory(
      [&] { status = HTTPCookie_init(cookie, "n", "v", "c", "d", 7, "p", 5); });
  EXPECT_EQ(TARN_OK, status);
  expectTexts(cookie, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(7, HTTPCookie_getMaxAge(cookie));
  EXPECT_EQ(5, HTTPCookie_isSecure(cookie));
}

TEST(HTTPCookieWithoutMemory, ToStringReturnsTheSharedEmptyTextAndLosesTheRenderedText) {
  FullCookie cookie;
  OwnText before(HTTPCookie_toString(cookie));
  const char *made = nullptr;
  tarn_test::withoutMemory([&] { made = HTTPCookie_toString(cookie); });
  EXPECT_EQ(CGIgs_empty_string, made);
  EXPECT_EQ(nullptr, text(cookie, TARN_COOKIE_RENDERED));
}

}  // namespace
