#include <gtest/gtest.h>
#include <tarn.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "support/handles.h"

namespace {

using tarn_test::Node;

// The slots that a script reads with the node's getters.
enum Text : uint32_t { kName, kValue, kComment, kDomain, kPath, kRendered };
enum Number : uint32_t { kMaxAge, kSecure };
enum Elements : uint32_t { kCookies };

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

struct Entry : Node {
  Entry() : Node(TARN_FORM_ENTRY_MAGIC) { FormEntry_init(*this, "city", "Paris", 5); }
};

// What HTTPCookie_toString() makes for its caller.
using OwnText =
    std::unique_ptr<const char,
                    decltype([](const char *made) { std::free(const_cast<char *>(made)); })>;

const char *text(TarnHandle *cookie, uint32_t slot) {
  return CGIgs_getString(cookie, slot, TARN_COOKIE_MAGIC);
}

void expectTexts(TarnHandle *cookie, const char *name, const char *value, const char *comment,
                 const char *domain, const char *path) {
  EXPECT_STREQ(name, text(cookie, kName));
  EXPECT_STREQ(value, text(cookie, kValue));
  EXPECT_STREQ(comment, text(cookie, kComment));
  EXPECT_STREQ(domain, text(cookie, kDomain));
  EXPECT_STREQ(path, text(cookie, kPath));
}

void expectFullCookie(TarnHandle *cookie) {
  expectTexts(cookie, "name", "value", "comment", "domain", "/path");
  EXPECT_EQ(3600, HTTPCookie_getMaxAge(cookie));
  EXPECT_EQ(1, HTTPCookie_isSecure(cookie));
}

TarnHandle elements(TarnHandle *list) {
  return CGIgs_getList(list, kCookies, TARN_COOKIE_LIST_MAGIC);
}

void add(TarnHandle *list, const char *name, const char *value) {
  Cookie cookie(name, value);
  ASSERT_EQ(TARN_OK, HTTPCookieList_addCookie(list, cookie));
}

// Puts the address of a node into the generic list behind a cookie list, as a script can.
void addForeign(TarnHandle *list, TarnHandle node) {
  TarnHandle inner = elements(list);
  ASSERT_EQ(TARN_OK, TARNGenericList_addDatum(&inner, node));
}

void expectCookieAt(TarnHandle *list, uint32_t index, const char *name, const char *value) {
  TarnHandle cookie = HTTPCookieList_getByIndex(list, index);
  EXPECT_STREQ(name, text(&cookie, kName)) << "at " << index;
  EXPECT_STREQ(value, text(&cookie, kValue)) << "at " << index;
}

// Calls with handles that hold neither a cookie nor a list of cookies, and sees that they stay as
// they are: no address at all, nothing, a node of another type, a generic list, which is no node.
template <typename Call>
void withEveryStranger(Call call) {
  Node nothing;
  Entry entry;
  tarn_test::List generic;
  for (TarnHandle *stranger :
       {static_cast<TarnHandle *>(nullptr), static_cast<TarnHandle *>(nothing),
        static_cast<TarnHandle *>(entry), static_cast<TarnHandle *>(generic)}) {
    const TarnHandle before = stranger ? *stranger : 0;
    const uint32_t magic = CGIgs_getMagic(stranger);
    SCOPED_TRACE(stranger ? "a handle with tag " + std::to_string(magic) : "a null address");
    call(stranger);
    EXPECT_EQ(before, stranger ? *stranger : 0);
    EXPECT_EQ(magic, CGIgs_getMagic(stranger));
  }
}

// ---- Filling a cookie ---------------------------------------------------------------------------

TEST(HTTPCookie, IsBornEmptyForNoTimeAndNotSecure) {
  Cookie cookie;
  EXPECT_EQ(30211U, CGIgs_getMagic(cookie));
  expectTexts(cookie, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(nullptr, text(cookie, kRendered));
  EXPECT_EQ(0, HTTPCookie_getMaxAge(cookie));
  EXPECT_EQ(0, HTTPCookie_isSecure(cookie));
}

TEST(HTTPCookie, InitKeepsCopiesAndPutsThePathAfterTheDomain) {
  char texts[5][8] = {"name", "value", "comment", "domain", "/path"};
  Cookie cookie;
  EXPECT_EQ(TARN_OK,
            HTTPCookie_init(cookie, texts[0], texts[1], texts[2], texts[3], 3600, texts[4], 1));
  std::memset(texts, '?', sizeof(texts));
  expectFullCookie(cookie);
  EXPECT_EQ(3600U, CGIgs_getInt(cookie, kMaxAge, TARN_COOKIE_MAGIC));
  EXPECT_EQ(1U, CGIgs_getInt(cookie, kSecure, TARN_COOKIE_MAGIC));
}

TEST(HTTPCookie, InitWithoutCommentDomainAndPathLeavesThemUnset) {
  Cookie cookie;
  EXPECT_EQ(TARN_OK, HTTPCookie_init(cookie, "n", "v", nullptr, nullptr, 0, nullptr, 0));
  expectTexts(cookie, "n", "v", nullptr, nullptr, nullptr);
}

TEST(HTTPCookie, InitKeepsEmptyTextsApartFromUnsetOnes) {
  Cookie cookie;
  EXPECT_EQ(TARN_OK, HTTPCookie_init(cookie, "", "", "", "", 0, "", 0));
  expectTexts(cookie, "", "", "", "", "");
}

TEST(HTTPCookie, InitChecksAndEscapesNothing) {
  const char *odd = "a b;c=\"d\",\r\nSet-Cookie: x\x7f\xff";
  Cookie cookie;
  EXPECT_EQ(TARN_OK, HTTPCookie_init(cookie, odd, odd, odd, odd, 0, odd, 0));
  expectTexts(cookie, odd, odd, odd, odd, odd);
}

TEST(HTTPCookie, InitWithoutANameOrAValueIsABadArgumentAndLeavesTheCookieAsItIs) {
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

TEST(HTTPCookie, InitTestsNameAndValueBeforeTheType) {
  withEveryStranger([](TarnHandle *stranger) {
    EXPECT_EQ(TARN_BAD_ARGUMENT,
              HTTPCookie_init(stranger, nullptr, "v", nullptr, nullptr, 0, nullptr, 0));
    EXPECT_EQ(TARN_BAD_ARGUMENT,
              HTTPCookie_init(stranger, "n", nullptr, nullptr, nullptr, 0, nullptr, 0));
    EXPECT_EQ(TARN_WRONG_TYPE,
              HTTPCookie_init(stranger, "n", "v", nullptr, nullptr, 0, nullptr, 0));
  });
}

TEST(HTTPCookie, InitAgainEmptiesTheCookieFirstItsRenderedTextIncluded) {
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

TEST(HTTPCookie, ClearOfTheNodeLeavesCommentDomainPathAndRenderedTextBehind) {
  FullCookie cookie;
  OwnText rendered(HTTPCookie_toString(cookie));
  EXPECT_EQ(TARN_OK, CGIgs_clear(cookie, TARN_COOKIE_MAGIC));
  expectTexts(cookie, nullptr, nullptr, "comment", "domain", "/path");
  EXPECT_STREQ(rendered.get(), text(cookie, kRendered));
  EXPECT_EQ(0, HTTPCookie_getMaxAge(cookie));
  EXPECT_EQ(0, HTTPCookie_isSecure(cookie));
}

TEST(HTTPCookie, InitTakesTheCookiesOwnTextsInAnyPlace) {
  FullCookie cookie;
  EXPECT_EQ(TARN_OK, HTTPCookie_init(cookie, text(cookie, kName), text(cookie, kValue),
                                     text(cookie, kComment), text(cookie, kDomain),
                                     HTTPCookie_getMaxAge(cookie), text(cookie, kPath),
                                     HTTPCookie_isSecure(cookie)));
  expectFullCookie(cookie);

  EXPECT_EQ(TARN_OK, HTTPCookie_init(cookie, text(cookie, kValue), text(cookie, kName),
                                     text(cookie, kDomain), text(cookie, kPath) + 1, 0,
                                     text(cookie, kComment), 0));
  expectTexts(cookie, "value", "name", "domain", "path", "comment");

  OwnText rendered(HTTPCookie_toString(cookie));
  EXPECT_EQ(TARN_OK,
            HTTPCookie_init(cookie, "n", text(cookie, kRendered), nullptr, nullptr, 0, nullptr, 0));
  expectTexts(cookie, "n", rendered.get(), nullptr, nullptr, nullptr);
  EXPECT_EQ(nullptr, text(cookie, kRendered));
}

// ---- Max-age and secure flag --------------------------------------------------------------------

TEST(HTTPCookie, MaxAgeIsKeptAsGivenWithin32Bits) {
  Cookie cookie;
  for (int32_t seconds : {0, 1, -1, 3600, INT32_MAX, INT32_MIN}) {
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

TEST(HTTPCookie, SecureFlagIsKeptAsGivenAndNotMadeOne) {
  Cookie cookie;
  for (int secure : {5, 1, 0, -1, INT_MAX, INT_MIN}) {
    EXPECT_EQ(TARN_OK, HTTPCookie_setSecure(cookie, secure));
    EXPECT_EQ(secure, HTTPCookie_isSecure(cookie));
    HTTPCookie_init(cookie, "n", "v", nullptr, nullptr, 0, nullptr, secure);
    EXPECT_EQ(secure, HTTPCookie_isSecure(cookie));
  }
}

TEST(HTTPCookie, SettersChangeTheirFieldAlone) {
  FullCookie cookie;
  HTTPCookie_setMaxAge(cookie, -5);
  expectTexts(cookie, "name", "value", "comment", "domain", "/path");
  EXPECT_EQ(1, HTTPCookie_isSecure(cookie));
  HTTPCookie_setSecure(cookie, 0);
  EXPECT_EQ(-5, HTTPCookie_getMaxAge(cookie));
}

TEST(HTTPCookie, MaxAgeAndSecureFlagOfNoCookieAreWrongTypeAndRead0) {
  withEveryStranger([](TarnHandle *stranger) {
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

TEST(HTTPCookie, CompareOfEqualNamesOrdersValuesTheSameWayRound) {
  Cookie a("id", "a");
  Cookie b("id", "b");
  EXPECT_GT(HTTPCookie_compare(a, b), 0);
  EXPECT_LT(HTTPCookie_compare(b, a), 0);
}

TEST(HTTPCookie, CompareLooksAtNameAndValueAlone) {
  FullCookie full;
  Cookie bare("name", "value");
  EXPECT_EQ(0, HTTPCookie_compare(full, bare));
  EXPECT_EQ(0, HTTPCookie_compare(full, full));
}

TEST(HTTPCookie, CompareTellsTheCaseOfLettersAndTakesBytesAsUnsigned) {
  Cookie upper("ID", "x");
  Cookie lower("id", "x");
  Cookie high("\xff", "x");
  EXPECT_GT(HTTPCookie_compare(upper, lower), 0);
  EXPECT_LT(HTTPCookie_compare(lower, upper), 0);
  EXPECT_GT(HTTPCookie_compare(lower, high), 0);
  Cookie upperValue("id", "X");
  EXPECT_GT(HTTPCookie_compare(upperValue, lower), 0);
}

TEST(HTTPCookie, CompareWithAHandleThatHoldsNoCookieIsZeroAsForEqualOnes) {
  Cookie cookie("id", "x");
  withEveryStranger([&](TarnHandle *stranger) {
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
  CGIgs_setString(valueless, kName, "", TARN_COOKIE_MAGIC);
  EXPECT_GT(HTTPCookie_compare(valueless, empty), 0);
  EXPECT_LT(HTTPCookie_compare(empty, valueless), 0);
}

TEST(HTTPCookie, CompareTakesTwoMissingTextsForEqual) {
  Cookie unset;
  Cookie another;
  EXPECT_EQ(0, HTTPCookie_compare(unset, another));
  Cookie a;
  Cookie b;
  CGIgs_setString(a, kValue, "a", TARN_COOKIE_MAGIC);
  CGIgs_setString(b, kValue, "b", TARN_COOKIE_MAGIC);
  EXPECT_GT(HTTPCookie_compare(a, b), 0);
}

// ---- The debugging text -------------------------------------------------------------------------

TEST(HTTPCookie, ToStringNamesEveryFieldWithOneCommaAfterTheDomain) {
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
    HTTPCookie_setMaxAge(cookie, seconds);
    OwnText text(HTTPCookie_toString(cookie));
    EXPECT_NE(nullptr,
              std::strstr(text.get(), (",maxage=" + std::to_string(seconds) + ";").c_str()));
  }
  for (int secure : {5, -1, INT_MIN}) {
    HTTPCookie_setSecure(cookie, secure);
    OwnText text(HTTPCookie_toString(cookie));
    EXPECT_NE(nullptr, std::strstr(text.get(), ";secure=\"yes\"}"));
  }
}

TEST(HTTPCookie, ToStringTakesTextsOfAnyLength) {
  const std::string name(100000, 'n');
  const std::string value(200000, 'v');
  Cookie cookie(name.c_str(), value.c_str());
  OwnText text(HTTPCookie_toString(cookie));
  EXPECT_EQ("HTTPCookie{name=\"" + name + "\";value=\"" + value +
                "\";comment=\"(null)\";domain=\"(null)\",maxage=0;path=\"(null)\";secure=\"no\"}",
            text.get());
}

TEST(HTTPCookie, ToStringGivesTheCallerATextAndTheCookieACopy) {
  FullCookie cookie;
  OwnText first(HTTPCookie_toString(cookie));
  EXPECT_STREQ(first.get(), text(cookie, kRendered));
  EXPECT_NE(first.get(), text(cookie, kRendered));

  const std::string before = first.get();
  OwnText second(HTTPCookie_toString(cookie));
  OwnText third(HTTPCookie_toString(cookie));
  EXPECT_EQ(before, first.get());
  EXPECT_EQ(before, second.get());
  EXPECT_NE(second.get(), third.get());
}

TEST(HTTPCookie, RenderedTextIsRefreshedByTheNextToStringOnly) {
  FullCookie cookie;
  OwnText before(HTTPCookie_toString(cookie));
  HTTPCookie_setMaxAge(cookie, 7);
  CGIgs_setString(cookie, kName, "other", TARN_COOKIE_MAGIC);
  EXPECT_STREQ(before.get(), text(cookie, kRendered));
  OwnText after(HTTPCookie_toString(cookie));
  EXPECT_STRNE(before.get(), after.get());
  EXPECT_STREQ(after.get(), text(cookie, kRendered));
}

TEST(HTTPCookie, ToStringPrintsARenderedTextThatWasMadeItsName) {
  Cookie cookie("n", "v");
  OwnText first(HTTPCookie_toString(cookie));
  CGIgs_setString(cookie, kName, text(cookie, kRendered), TARN_COOKIE_MAGIC);
  OwnText second(HTTPCookie_toString(cookie));
  EXPECT_EQ("HTTPCookie{name=\"" + std::string(first.get()) +
                "\";value=\"v\";comment=\"(null)\";domain=\"(null)\",maxage=0;path=\"(null)\";"
                "secure=\"no\"}",
            second.get());
}

TEST(HTTPCookie, ToStringOfNoCookieIsTheSharedEmptyText) {
  withEveryStranger(
      [](TarnHandle *stranger) { EXPECT_EQ(CGIgs_empty_string, HTTPCookie_toString(stranger)); });
  EXPECT_STREQ("", CGIgs_empty_string);
}

// ---- Lists of cookies ---------------------------------------------------------------------------

TEST(HTTPCookieList, IsBornWithoutCookies) {
  CookieList list;
  EXPECT_EQ(75101U, CGIgs_getMagic(list));
  EXPECT_EQ(0, HTTPCookieList_getCount(list));
  EXPECT_EQ(0U, HTTPCookieList_getByIndex(list, 0));
  EXPECT_EQ(0U, elements(list));
}

TEST(HTTPCookieList, KeepsCookiesInOrderOfAppendingAndRepeatedNamesToo) {
  CookieList list;
  add(list, "b", "1");
  add(list, "a", "2");
  add(list, "b", "3");
  ASSERT_EQ(3, HTTPCookieList_getCount(list));
  expectCookieAt(list, 0, "b", "1");
  expectCookieAt(list, 1, "a", "2");
  expectCookieAt(list, 2, "b", "3");
}

TEST(HTTPCookieList, AppendingTwiceMakesTwoCopiesApartFromTheCallersCookie) {
  CookieList list;
  FullCookie cookie;
  EXPECT_EQ(TARN_OK, HTTPCookieList_addCookie(list, cookie));
  EXPECT_EQ(TARN_OK, HTTPCookieList_addCookie(list, cookie));
  ASSERT_EQ(2, HTTPCookieList_getCount(list));
  TarnHandle first = HTTPCookieList_getByIndex(list, 0);
  TarnHandle second = HTTPCookieList_getByIndex(list, 1);
  EXPECT_NE(first, second);

  HTTPCookie_init(cookie, "other", "changed", nullptr, nullptr, 0, nullptr, 0);
  expectFullCookie(&first);
  HTTPCookie_setMaxAge(&first, 1);
  expectFullCookie(&second);
}

TEST(HTTPCookieList, CopyInListHasTheRenderedText) {
  CookieList list;
  FullCookie cookie;
  OwnText rendered(HTTPCookie_toString(cookie));
  ASSERT_EQ(TARN_OK, HTTPCookieList_addCookie(list, cookie));
  TarnHandle copy = HTTPCookieList_getByIndex(list, 0);
  EXPECT_STREQ(rendered.get(), text(&copy, kRendered));
}

TEST(HTTPCookieList, AppendsAnEmptyCookieAndCookiesOfItsOwn) {
  CookieList list;
  ASSERT_EQ(TARN_OK, HTTPCookieList_addCookie(list, Cookie()));
  for (int copies = 1; copies < 25; ++copies) {
    TarnHandle lent = HTTPCookieList_getByIndex(list, 0);
    ASSERT_EQ(TARN_OK, HTTPCookieList_addCookie(list, &lent));
  }
  EXPECT_EQ(25, HTTPCookieList_getCount(list));
  expectCookieAt(list, 24, nullptr, nullptr);
}

TEST(HTTPCookieList, AddToNoListIsWrongTypeEvenWithoutACookie) {
  Cookie cookie("n", "v");
  withEveryStranger([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPCookieList_addCookie(stranger, cookie));
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPCookieList_addCookie(stranger, nullptr));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPCookieList_addCookie(cookie, cookie));
}

TEST(HTTPCookieList, AddOfNoCookieIsABadArgumentAndLeavesTheListAsItIs) {
  CookieList list;
  withEveryStranger([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPCookieList_addCookie(list, stranger));
  });
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTTPCookieList_addCookie(list, list));
  EXPECT_EQ(0U, elements(list));
}

TEST(HTTPCookieList, CountAndIndexOfNoListAreZero) {
  Cookie cookie("n", "v");
  withEveryStranger([](TarnHandle *stranger) {
    EXPECT_EQ(0, HTTPCookieList_getCount(stranger));
    EXPECT_EQ(0U, HTTPCookieList_getByIndex(stranger, 0));
  });
  EXPECT_EQ(0, HTTPCookieList_getCount(cookie));
  EXPECT_EQ(0U, HTTPCookieList_getByIndex(cookie, 0));
}

TEST(HTTPCookieList, IndexFromTheCountUpwardFindsNothing) {
  CookieList list;
  add(list, "n", "v");
  EXPECT_NE(0U, HTTPCookieList_getByIndex(list, 0));
  for (uint32_t index : {1U, 9U, 10U, 0x80000000U, static_cast<uint32_t>(-1)}) {
    EXPECT_EQ(0U, HTTPCookieList_getByIndex(list, index)) << index;
  }
}

TEST(HTTPCookieList, ClearEmptiesTheListAndKeepsItForMore) {
  CookieList list;
  add(list, "a", "1");
  add(list, "b", "2");
  CGIgs_setInt(list, 0, 7, TARN_COOKIE_LIST_MAGIC);
  const TarnHandle before = list.value();
  EXPECT_EQ(TARN_OK, HTTPCookieList_clear(list));
  EXPECT_EQ(before, list.value());
  EXPECT_EQ(75101U, CGIgs_getMagic(list));
  EXPECT_EQ(0, HTTPCookieList_getCount(list));
  EXPECT_EQ(0U, HTTPCookieList_getByIndex(list, 0));
  EXPECT_EQ(0U, elements(list));
  EXPECT_EQ(0U, CGIgs_getInt(list, 0, TARN_COOKIE_LIST_MAGIC));

  EXPECT_EQ(TARN_OK, HTTPCookieList_clear(list));
  add(list, "c", "3");
  EXPECT_EQ(1, HTTPCookieList_getCount(list));
  expectCookieAt(list, 0, "c", "3");
}

TEST(HTTPCookieList, DeleteSetsTheHandleToZeroAndWorksOnce) {
  CookieList list;
  add(list, "n", "v");
  EXPECT_EQ(TARN_OK, HTTPCookieList_delete(list));
  EXPECT_EQ(0U, list.value());
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPCookieList_delete(list));
}

TEST(HTTPCookieList, DeleteTakesAListThatNeverHadACookie) {
  CookieList list;
  EXPECT_EQ(TARN_OK, HTTPCookieList_delete(list));
  EXPECT_EQ(0U, list.value());
}

TEST(HTTPCookieList, ClearAndDeleteOfNoListAreWrongType) {
  Cookie cookie("n", "v");
  withEveryStranger([](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPCookieList_clear(stranger));
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPCookieList_delete(stranger));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPCookieList_clear(cookie));
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPCookieList_delete(cookie));
  EXPECT_STREQ("n", text(cookie, kName));
}

TEST(HTTPCookieList, CloneOwnsCopiesOfTheCookiesInOrder) {
  CookieList source;
  FullCookie cookie;
  OwnText rendered(HTTPCookie_toString(cookie));
  add(source, "a", "1");
  ASSERT_EQ(TARN_OK, HTTPCookieList_addCookie(source, cookie));
  TarnHandle copy = 0;
  ASSERT_EQ(TARN_OK, HTTPCookieList_clone(source, &copy));
  ASSERT_EQ(2, HTTPCookieList_getCount(&copy));
  EXPECT_NE(HTTPCookieList_getByIndex(source, 0), HTTPCookieList_getByIndex(&copy, 0));
  HTTPCookieList_delete(source);
  expectCookieAt(&copy, 0, "a", "1");
  TarnHandle second = HTTPCookieList_getByIndex(&copy, 1);
  expectFullCookie(&second);
  EXPECT_STREQ(rendered.get(), text(&second, kRendered));
  HTTPCookieList_delete(&copy);
}

TEST(HTTPCookieList, CloneOfAListThatNeverHadACookieIsANewEmptyList) {
  CookieList source;
  TarnHandle copy = 0;
  EXPECT_EQ(TARN_OK, HTTPCookieList_clone(source, &copy));
  EXPECT_EQ(1U, CGIgs_IsA(&copy, TARN_COOKIE_LIST_MAGIC));
  EXPECT_NE(source.value(), copy);
  EXPECT_EQ(0, HTTPCookieList_getCount(&copy));
  HTTPCookieList_delete(&copy);
}

TEST(HTTPCookieList, CloneOverwritesWhatTheDestinationHeldWithoutDeletingIt) {
  CookieList source;
  Cookie held("held", "still here");
  add(source, "n", "v");
  TarnHandle destination = held.value();
  ASSERT_EQ(TARN_OK, HTTPCookieList_clone(source, &destination));
  expectCookieAt(&destination, 0, "n", "v");
  EXPECT_STREQ("still here", text(held, kValue));
  HTTPCookieList_delete(&destination);
}

TEST(HTTPCookieList, CloneIntoItsOwnHandleLeavesTheSourceToWhoeverKnowsIt) {
  CookieList source;
  add(source, "n", "v");
  TarnHandle handle = source.value();
  ASSERT_EQ(TARN_OK, HTTPCookieList_clone(&handle, &handle));
  EXPECT_NE(source.value(), handle);
  expectCookieAt(&handle, 0, "n", "v");
  expectCookieAt(source, 0, "n", "v");
  HTTPCookieList_delete(&handle);
}

TEST(HTTPCookieList, CloneOfNoListIsWrongTypeAndLeavesTheDestinationAlone) {
  Cookie cookie("n", "v");
  TarnHandle destination = cookie.value();
  withEveryStranger([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPCookieList_clone(stranger, &destination));
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPCookieList_clone(stranger, nullptr));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPCookieList_clone(cookie, &destination));
  EXPECT_EQ(cookie.value(), destination);
}

TEST(HTTPCookieList, CloneToANullAddressReportsTheCopying) {
  Entry entry;
  CookieList list;
  add(list, "n", "v");
  EXPECT_EQ(TARN_OK, HTTPCookieList_clone(list, nullptr));
  expectCookieAt(list, 0, "n", "v");

  addForeign(list, entry.value());
  EXPECT_EQ(TARN_WRONG_TYPE, HTTPCookieList_clone(list, nullptr));
}

TEST(HTTPCookieList, CloneOfAListWithAnotherNodeOrAHoleInItIsWrongType) {
  Entry entry;
  for (TarnHandle foreign : {entry.value(), TarnHandle{0}}) {
    CookieList list;
    add(list, "n", "v");
    addForeign(list, foreign);
    EXPECT_EQ(2, HTTPCookieList_getCount(list));
    EXPECT_EQ(foreign, HTTPCookieList_getByIndex(list, 1));
    TarnHandle destination = entry.value();
    EXPECT_EQ(TARN_WRONG_TYPE, HTTPCookieList_clone(list, &destination));
    EXPECT_EQ(entry.value(), destination);
  }
}

TEST(HTTPCookieList, ClearAndDeleteLeaveAnotherNodeInTheListAlive) {
  for (auto *release : {HTTPCookieList_clear, HTTPCookieList_delete}) {
    Entry entry;
    CookieList list;
    add(list, "a", "1");
    addForeign(list, entry.value());
    add(list, "b", "2");
    EXPECT_EQ(TARN_OK, release(list));
    EXPECT_EQ(0, HTTPCookieList_getCount(list));
    EXPECT_EQ(0, FormEntry_compareValue(entry, "Paris"));
  }
}

TEST(HTTPCookieList, HoldsThousandsOfCookies) {
  constexpr uint32_t kMany = 5001;
  CookieList list;
  for (uint32_t i = 0; i < kMany; ++i) add(list, "n", std::to_string(i).c_str());
  ASSERT_EQ(static_cast<int>(kMany), HTTPCookieList_getCount(list));

  TarnHandle copy = 0;
  ASSERT_EQ(TARN_OK, HTTPCookieList_clone(list, &copy));
  EXPECT_EQ(TARN_OK, HTTPCookieList_clear(list));
  for (uint32_t i = 0; i < kMany; ++i) expectCookieAt(&copy, i, "n", std::to_string(i).c_str());
  EXPECT_EQ(TARN_OK, HTTPCookieList_delete(&copy));
}

TEST(HTTPCookieList, ToHtmlIsNotYetImplementedForAnyHandle) {
  CookieList list;
  EXPECT_STREQ("Not yet implemented.", HTTPCookieList_toHTML(list));
  EXPECT_EQ(HTTPCookieList_toHTML(list), HTTPCookieList_toHTML(nullptr));
}

// ---- Without memory -----------------------------------------------------------------------------

struct HTTPCookieWithoutMemory : tarn_test::WithoutMemory {};

TEST_F(HTTPCookieWithoutMemory, InitSucceedsAndTheTextsAreUnset) {
  FullCookie cookie;
  TarnStatus status = TARN_BAD_ARGUMENT;
  tarn_test::withoutMemory(
      [&] { status = HTTPCookie_init(cookie, "n", "v", "c", "d", 7, "p", 5); });
  EXPECT_EQ(TARN_OK, status);
  expectTexts(cookie, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(7, HTTPCookie_getMaxAge(cookie));
  EXPECT_EQ(5, HTTPCookie_isSecure(cookie));
}

TEST_F(HTTPCookieWithoutMemory, ToStringIsTheSharedEmptyTextAndTheRenderedOneIsGone) {
  FullCookie cookie;
  OwnText before(HTTPCookie_toString(cookie));
  const char *made = nullptr;
  tarn_test::withoutMemory([&] { made = HTTPCookie_toString(cookie); });
  EXPECT_EQ(CGIgs_empty_string, made);
  EXPECT_EQ(nullptr, text(cookie, kRendered));
}

TEST_F(HTTPCookieWithoutMemory, AddAndCloneReportIt) {
  CookieList list;
  Cookie cookie("n", "v");
  add(list, "n", "v");
  TarnHandle destination = cookie.value();
  TarnStatus added = TARN_OK;
  TarnStatus cloned = TARN_OK;
  tarn_test::withoutMemory([&] {
    added = HTTPCookieList_addCookie(list, cookie);
    cloned = HTTPCookieList_clone(list, &destination);
  });
  EXPECT_EQ(TARN_OUT_OF_MEMORY, added);
  EXPECT_EQ(1, HTTPCookieList_getCount(list));
  EXPECT_EQ(TARN_OUT_OF_MEMORY, cloned);
  EXPECT_EQ(cookie.value(), destination);
}

}  // namespace
