#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "support/form.h"
#include "support/handles.h"
#include "support/processor_time.h"
#include "support/rules.h"
#include "support/script.h"
#include "tarn.h"

namespace tarn_test {
namespace {

using namespace std::string_literals;

constexpr const char *kUrlEncoded = "application/x-www-form-urlencoded";

// The value of an entry that was looked up, or kNone if nothing was found.
Text valueOf(TarnHandle entry) { return entry ? entryOf(entry).value : kNone; }

struct Query {
  std::string text;
  Entries entries;
};

void expectQueries(const std::vector<Query> &cases) {
  asScript({}, "", [&] {
    for (const auto &[text, entries] : cases) {
      setenv("QUERY_STRING", text.c_str(), 1);
      Request request;
      EXPECT_EQ(TARN_OK, request.status) << text;
      EXPECT_EQ((Form{entries, {}}), request.form()) << text;
    }
  });
}

TEST(UrlEncodedForm, KeepsEntriesInTheOrderOfTheText) {
  expectQueries({
      {"a=1&b=x+y&c=%41", {{"a", "1"}, {"b", "x y"}, {"c", "A"}}},
      {"b=1&a=2", {{"b", "1"}, {"a", "2"}}},
      {"a=1", {{"a", "1"}}},
  });
}

TEST(UrlEncodedForm, SkipsEmptyPieces) {
  expectQueries({
      {"", {}},
      {"&", {}},
      {"&&&&", {}},
      {"a=1&&b=2&", {{"a", "1"}, {"b", "2"}}},
      {"&a=1", {{"a", "1"}}},
  });
}

TEST(UrlEncodedForm, SkipsEmptyPiecesHoweverMany) {
  std::vector<Query> cases;
  for (size_t before = 0; before < 40; ++before) {
    for (const size_t after : {0, 1, 7, 8, 9, 17}) {
      cases.push_back({std::string(before, '&') + "a=1" + std::string(after, '&') + "&%26=&", {}});
      cases.back().entries = {{"a", "1"}, {"&", ""}};
    }
    cases.push_back({std::string(before, '&'), {}});
  }
  expectQueries(cases);
}

TEST(UrlEncodedForm, DropsPiecesWithoutAnEqualsSign) {
  expectQueries({
      {"flag", {}},
      {"flag&x=1", {{"x", "1"}}},
      {"x=1&flag", {{"x", "1"}}},
      {"flag%3D1", {}},
  });
}

TEST(UrlEncodedForm, KeepsEmptyNamesAndEmptyValuesAsEmptyTexts) {
  expectQueries({
      {"=v", {{"", "v"}}},
      {"k=", {{"k", ""}}},
      {"=", {{"", ""}}},
      {"=&=", {{"", ""}, {"", ""}}},
  });
}

TEST(UrlEncodedForm, SplitsAtTheFirstEqualsSignOnly) {
  expectQueries({
      {"k=a=b", {{"k", "a=b"}}},
      {"k==", {{"k", "="}}},
      {"==v", {{"", "=v"}}},
  });
}

TEST(UrlEncodedForm, SplitsAtAmpersandsOnly) {
  expectQueries({
      {"a=1;b=2", {{"a", "1;b=2"}}},
      {"a=1&amp;b=2", {{"a", "1"}, {"amp;b", "2"}}},
      {"a=1, b=2 \r\n", {{"a", "1, b=2 \r\n"}}},
      {"a=\xC3\xA9\xFF", {{"a", "\xC3\xA9\xFF"}}},
  });
}

TEST(UrlEncodedForm, SplitsBeforeDecoding) {
  expectQueries({
      {"a%26b=1%262", {{"a&b", "1&2"}}},
      {"a%3Db=1%3D2", {{"a=b", "1=2"}}},
      {"a%2Bb=1%2B2", {{"a+b", "1+2"}}},
      {"a=%2541", {{"a", "%41"}}},
  });
}

TEST(UrlEncodedForm, DecodesNamesAndValues) {
  expectQueries({
      {"+a+=+1+", {{" a ", " 1 "}}},
      {"%61%62=%63", {{"ab", "c"}}},
      {"k=%2f%2F%e4%E4", {{"k", "//\xE4\xE4"}}},
      {"k=%0D%0A", {{"k", "\r\n"}}},
      {"k=%FF", {{"k", "\xFF"}}},
  });
}

TEST(UrlEncodedForm, TruncatesNamesAndValuesAtADecodedZeroByte) {
  expectQueries({
      {"k=%00z", {{"k", "", 0}}},
      {"k=ab%00z&l=1", {{"k", "ab", 2}, {"l", "1"}}},
      {"a%00b=1", {{"a", "1"}}},
      {"%00=1", {{"", "1"}}},
  });
}

TEST(UrlEncodedForm, ReadsMissingHexadecimalDigitsAsZeroBytes) {
  expectQueries({
      {"k=%", {{"k", "\xD0"}}},
      {"k=%&l=1", {{"k", "\xD0"}, {"l", "1"}}},
      {"k=%2", {{"k", "\xF0"}}},
      {"k=%2&l=1", {{"k", "\xF0"}, {"l", "1"}}},
      {"k=%%", {{"k", " "}}},
      {"k=a%&41=1", {{"k", "a\xD0"}, {"41", "1"}}},
  });
}

TEST(UrlEncodedForm, NeverReadsTheValueAsDigitsOfTheName) {
  expectQueries({
      {"k%=v", {{"k\xD0", "v"}}},
      {"k%=41", {{"k\xD0", "41"}}},
      {"k%4=1", {{"k\x10", "1"}}},
      {"%=", {{"\xD0", ""}}},
  });
}

TEST(UrlEncodedForm, DecodesCharactersThatAreNotDigits) {
  expectQueries({
      {"k=%zz", {{"k", "S"}}},
      {"k=%%%", {{"k", "E"}}},
      {"k=%u0041", {{"k", "\xE0\x30\x34\x31"}}},
      {"k=%\xC3\xA9", {{"k", "\x12"}}},
      {"k=%+1", {{"k", "\xB1"}}},
      {"k=%@@", {{"k", "\x10"}}},
  });
}

TEST(UrlEncodedForm, KeepsEveryEntryOfARepeatedName) {
  expectQueries({{"k=1&K=2&k=1&k=", {{"k", "1"}, {"K", "2"}, {"k", "1"}, {"k", ""}}}});
}

TEST(UrlEncodedForm, FollowsTheRulesInRandomTexts) {
  asScriptOf("", [](Request &request) {
    const std::string pieces[] = {"a", "B7", "=", "&", "%", "%4", "%00", "%3d", "+", "\xFF"};
    std::mt19937 random(20070717);
    for (int round = 0; round < roundsInTime(10000); ++round) {
      std::string text;
      for (auto length = random() % 12; length > 0; --length) {
        text += pieces[random() % std::size(pieces)];
      }
      ExactBlock input(text + '\0');
      ASSERT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, input.text(), 0));
      ASSERT_EQ(modelEntries(text), request.entries()) << testing::PrintToString(text);
      TarnHandle list = request.entryList();
      FormEntryList_clear(&list);
    }
  });
}

TEST(UrlEncodedFormLarge, OfAMillionPairsIsParsedWithoutDelay) {
  static constexpr uint32_t kPairs = 1000000;
  std::string body;
  for (uint32_t i = 0; i < kPairs; ++i) body += "k=" + std::to_string(i) + "&";
  asScript(post(kUrlEncoded, body), body, [] {
    limitProcessorTime();
    Request request;
    TarnHandle list = request.entryList();
    EXPECT_EQ(static_cast<int32_t>(kPairs), FormEntryList_getCount(&list));
    EXPECT_EQ("0", valueOf(Tarn_getElementByName(&request.handle, "k")));
    EXPECT_EQ(std::to_string(kPairs - 1), valueOf(FormEntryList_getByIndex(&list, kPairs - 1)));
  });
}

TEST(UrlEncodedFormLarge, OfMillionsOfEmptyPiecesIsParsedWithoutDelay) {
  const std::string body = std::string(8000000, '&') + "a=1";
  expectForm(post(kUrlEncoded, body), body, {{{"a", "1"}}, {}});
}

TEST(UrlEncodedForm, OfOneLongValueIsReadInFull) {
  const std::string value(3000000, 'v');
  expectForm(post(kUrlEncoded, "k=" + value), "k=" + value, {{{"k", value}}, {}});
}

// ---- One pair -----------------------------------------------------------------------------------

TEST(TarnParsePair, AppendsOneEntryAndWritesAZeroByteOverTheEqualsSign) {
  asScriptOf("a=1", [](Request &request) {
    ExactBlock pair("b+=%41=x\0"s);
    Tarn_parsePair(&request.handle, pair.text());
    EXPECT_EQ("b+\0%41=x\0"s, pair.str());
    EXPECT_EQ((Entries{{"a", "1"}, {"b ", "A=x"}}), request.entries());
  });
}

TEST(TarnParsePair, TreatsAmpersandsAsPartOfThePair) {
  asScriptOf("", [](Request &request) {
    ExactBlock pair("a=1&b=2\0"s);
    Tarn_parsePair(&request.handle, pair.text());
    EXPECT_EQ((Entries{{"a", "1&b=2"}}), request.entries());
  });
}

TEST(TarnParsePair, IgnoresATextWithoutAnEqualsSignAndDoesNotChangeIt) {
  asScriptOf("", [](Request &request) {
    for (const std::string &text : {"flag\0"s, "\0"s, "%3D\0"s, "a&b\0"s}) {
      SCOPED_TRACE(testing::PrintToString(text));
      ExactBlock pair(text);
      Tarn_parsePair(&request.handle, pair.text());
      EXPECT_EQ(text, pair.str());
    }
    EXPECT_EQ(Form{}, request.form());
  });
}

TEST(TarnParsePair, KeepsEmptySidesAsEmptyTexts) {
  asScriptOf("", [](Request &request) {
    for (const char *text : {"=v", "k=", "="}) {
      ExactBlock pair(text + "\0"s);
      Tarn_parsePair(&request.handle, pair.text());
    }
    EXPECT_EQ((Entries{{"", "v"}, {"k", ""}, {"", ""}}), request.entries());
  });
}

TEST(TarnParsePair, NeverReadsTheValueAsDigitsOfTheName) {
  asScriptOf("", [](Request &request) {
    ExactBlock pair("k%=41\0"s);
    Tarn_parsePair(&request.handle, pair.text());
    EXPECT_EQ("k%\0"s + "41\0"s, pair.str());
    EXPECT_EQ((Entries{{"k\xD0", "41"}}), request.entries());
  });
}

TEST(TarnParsePair, StopsAtTheZeroByteAfterAPercentSign) {
  asScriptOf("", [](Request &request) {
    ExactBlock pair("k=%\0"s);
    Tarn_parsePair(&request.handle, pair.text());
    EXPECT_EQ((Entries{{"k", "\xD0"}}), request.entries());
  });
}

TEST(TarnParsePair, TruncatesTheTextEvenForAnotherType) {
  withEveryHandleExcept(0, [](TarnHandle *handle) {
    ExactBlock pair("a=1=2\0"s);
    Tarn_parsePair(handle, pair.text());
    EXPECT_EQ("a\0"s + "1=2\0"s, pair.str());
    EXPECT_EQ(0, FormEntryList_getCount(handle));
  });
}

TEST(TarnParsePair, OfANullTextDoesNothing) {
  asScriptOf("a=1", [](Request &request) {
    Tarn_parsePair(&request.handle, nullptr);
    Tarn_parsePair(nullptr, nullptr);
    EXPECT_EQ((Entries{{"a", "1"}}), request.entries());
  });
}

TEST(TarnParsePair, IgnoresTheContentType) {
  asScriptOf("", [](Request &request) {
    setenv("CONTENT_TYPE", "multipart/form-data; boundary=XYZ", 1);
    ExactBlock pair("a=1\0"s);
    Tarn_parsePair(&request.handle, pair.text());
    EXPECT_EQ((Entries{{"a", "1"}}), request.entries());
  });
}

}  // namespace
}  // namespace tarn_test
