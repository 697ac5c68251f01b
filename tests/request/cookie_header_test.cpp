#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/form.h"
#include "support/processor_time.h"
#include "support/rules.h"
#include "support/script.h"
#include "tarn.h"

namespace tarn_test {
namespace {

// The cookies of a request with this header.
std::optional<Cookies> cookiesFrom(const std::string &header) {
  setenv("HTTP_COOKIE", header.c_str(), 1);
  return Environment().cookies();
}

struct CookieHeader {
  const char *header;
  Cookies cookies;
};

void expectCookies(const std::vector<CookieHeader> &cases) {
  asScript({}, "", [&] {
    for (const auto &[header, cookies] : cases) EXPECT_EQ(cookies, cookiesFrom(header)) << header;
  });
}

TEST(CgiEnvCookies, AreSplitAtSemicolonsAndTheFirstEqualsSign) {
  expectCookies({
      {"a=1", {{"a", "1"}}},
      {"a=1; b=2", {{"a", "1"}, {"b", "2"}}},
      {"a=1;b=2;c=3", {{"a", "1"}, {"b", "2"}, {"c", "3"}}},
      {"a=b=c", {{"a", "b=c"}}},
      {"a==", {{"a", "="}}},
      {"a=1,b=2", {{"a", "1,b=2"}}},
      {"a=1&b=2", {{"a", "1&b=2"}}},
  });
}

TEST(CgiEnvCookies, OfAnUnsetHeaderHaveNoList) {
  asScript({}, "", [] { EXPECT_EQ(std::nullopt, Environment().cookies()); });
}

TEST(CgiEnvCookies, OfAnEmptyHeaderAreOneCookieWithoutNameOrValue) {
  expectCookies({{"", {{kNone, kNone}}}});
}

TEST(CgiEnvCookies, WithoutAnEqualsSignHaveNeitherNameNorValue) {
  const Cookie blank{kNone, kNone};
  expectCookies({
      {"x", {blank}},
      {"x;y", {blank, blank}},
      {"a=1;", {{"a", "1"}, blank}},
      {"a=1; ", {{"a", "1"}, blank}},
      {";a=1", {blank, {"a", "1"}}},
      {"a=1;;b=2", {{"a", "1"}, blank, {"b", "2"}}},
      {"a=1; session; b=2", {{"a", "1"}, blank, {"b", "2"}}},
      {"%3D", {blank}},
      {";", {blank, blank}},
      {";;;", {blank, blank, blank, blank}},
  });
}

TEST(CgiEnvCookies, WithNothingBesideTheEqualsSignHaveAnEmptyText) {
  expectCookies({
      {"=v", {{"", "v"}}},
      {"k=", {{"k", ""}}},
      {"=", {{"", ""}}},
      {" = ", {{"", ""}}},
      {"= ; =", {{"", ""}, {"", ""}}},
  });
}

TEST(CgiEnvCookies, AreTrimmedOnBothSidesOfTheEqualsSign) {
  expectCookies({
      {" a = 1 ", {{"a", "1"}}},
      {"\t\r\n a\t\r\n =\t\r\n 1\t\r\n ;b=2", {{"a", "1"}, {"b", "2"}}},
      {"a b = c d", {{"a b", "c d"}}},
      {"a=\v1\f", {{"a", "\v1\f"}}},
  });
}

TEST(CgiEnvCookies, AreDecodedLikeFormData) {
  expectCookies({
      {"k=%41", {{"k", "A"}}},
      {"k=a+b", {{"k", "a b"}}},
      {"%41+%42=%43", {{"A B", "C"}}},
      {"k=%e4%E4", {{"k", "\xE4\xE4"}}},
      {"k=\xFF\x80", {{"k", "\xFF\x80"}}},
      {"k=\"quoted\"", {{"k", "\"quoted\""}}},
      {"$Version=1", {{"$Version", "1"}}},
  });
}

TEST(CgiEnvCookies, AreTrimmedBeforeDecodingSoEncodedBlanksStay) {
  expectCookies({
      {"k=+a+", {{"k", " a "}}},
      {"k=%20a%20", {{"k", " a "}}},
      {"+k+=%0D%0A", {{" k ", "\r\n"}}},
      {"k= %09 ", {{"k", "\t"}}},
  });
}

TEST(CgiEnvCookies, AreSplitBeforeDecodingSoNamesMayContainSeparators) {
  expectCookies({
      {"a%3Db=1", {{"a=b", "1"}}},
      {"a%3Bb=1%3B2", {{"a;b", "1;2"}}},
      {"%5F%5FHost-id=1", {{"__Host-id", "1"}}},
  });
}

TEST(CgiEnvCookies, EndAtADecodedZeroByte) {
  expectCookies({
      {"k=%00z", {{"k", ""}}},
      {"k=a%00z", {{"k", "a"}}},
      {"a%00b=1", {{"a", "1"}}},
      {"%00=1", {{"", "1"}}},
  });
}

TEST(CgiEnvCookies, ReadMissingHexadecimalDigitsAsZeroBytes) {
  expectCookies({
      {"k=%", {{"k", "\xD0"}}},
      {"k=%; b=2", {{"k", "\xD0"}, {"b", "2"}}},
      {"k=%2", {{"k", "\xF0"}}},
      {"k=%2; b=2", {{"k", "\xF0"}, {"b", "2"}}},
      {"k%=v", {{"k\xD0", "v"}}},
      {"k%2=v", {{"k\xF0", "v"}}},
      {"%=%", {{"\xD0", "\xD0"}}},
      {"k=%%", {{"k", " "}}},
      {"k=% ;b=2", {{"k", "\xD0"}, {"b", "2"}}},
  });
}

TEST(CgiEnvCookies, DecodeCharactersThatAreNotDigits) {
  expectCookies({
      {"k=%zz", {{"k", "S"}}},
      {"k=%u0041", {{"k", "\xE0\x30\x34\x31"}}},
      {"k=%%%", {{"k", "E"}}},
  });
}

TEST(CgiEnvCookies, WithTheSameNameAreAllKeptInOrder) {
  expectCookies({{"k=2; K=1; k=3; k=2", {{"k", "2"}, {"K", "1"}, {"k", "3"}, {"k", "2"}}}});
}

TEST(CgiEnvCookies, HaveOnlyNameAndValue) {
  asScript({{"HTTP_COOKIE", "a=1; Path=/; Secure; Max-Age=5"}}, "", [] {
    Environment environment;
    EXPECT_EQ((Cookies{{"a", "1"}, {"Path", "/"}, {kNone, kNone}, {"Max-Age", "5"}}),
              environment.cookies());
    TarnHandle list =
        CGIgs_getStruct(&environment.handle, TARN_ENVIRONMENT_COOKIES, TARN_ENVIRONMENT_MAGIC);
    EXPECT_EQ(0U, HTTPCookieList_getByIndex(&list, 4));
    for (uint32_t i = 0; i < 4; ++i) {
      TarnHandle cookie = HTTPCookieList_getByIndex(&list, i);
      EXPECT_EQ(0, HTTPCookie_getMaxAge(&cookie));
      EXPECT_EQ(0, HTTPCookie_isSecure(&cookie));
      for (uint32_t slot = 2; slot < 8; ++slot) {
        EXPECT_EQ(nullptr, CGIgs_getString(&cookie, slot, TARN_COOKIE_MAGIC)) << slot;
      }
    }
  });
}

TEST(CgiEnvCookies, DoNotChangeTheHeader) {
  asScript({{"HTTP_COOKIE", "a=1; b=%41"}}, "", [] {
    Environment environment;
    EXPECT_STREQ("a=1; b=%41", CgiEnv_getCookies(&environment.handle));
  });
}

TEST(CgiEnvCookies, OfALongHeaderAreComplete) {
  const std::string name(65536, 'n');
  const std::string value(65536, 'v');
  asScript({{"HTTP_COOKIE", "a=1; " + name + "=" + value}}, "", [&] {
    EXPECT_EQ((Cookies{{"a", "1"}, {name, value}}), Environment().cookies());
  });
}

TEST(CgiEnvCookiesLarge, OfAHeaderFullOfSeparatorsAreCountedWithoutDelay) {
  static constexpr int kSeparators = 1000000;
  asScript({{"HTTP_COOKIE", std::string(kSeparators, ';')}}, "", [] {
    limitProcessorTime();
    Environment environment;
    TarnHandle list =
        CGIgs_getStruct(&environment.handle, TARN_ENVIRONMENT_COOKIES, TARN_ENVIRONMENT_MAGIC);
    EXPECT_EQ(kSeparators + 1, HTTPCookieList_getCount(&list));
  });
}

TEST(CgiEnvCookies, FollowTheRulesInRandomHeaders) {
  asScript({}, "", [] {
    const std::string pieces[] = {"a",  "B", "=",  ";",   "; ",  " ",
                                  "\t", "%", "%4", "%00", "%2B", "+"};
    std::mt19937 random(20070717);
    for (int round = 0; round < roundsInTime(5000); ++round) {
      std::string header;
      for (auto length = random() % 12; length > 0; --length) {
        header += pieces[random() % std::size(pieces)];
      }
      ASSERT_EQ(modelCookies(header), cookiesFrom(header)) << testing::PrintToString(header);
    }
  });
}

}  // namespace
}  // namespace tarn_test
