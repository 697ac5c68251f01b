// Escaping for HTML, attributes, URLs and scripts.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "support/failing_memory.h"
#include "tarn.hpp"

namespace {

using namespace std::literals;

using Escape = tarn::Text (*)(std::string_view) noexcept;

std::string made(Escape escape, std::string_view text) {
  const tarn::Text escaped = escape(text);
  EXPECT_TRUE(escaped);
  EXPECT_EQ(nullptr, escaped.problem());
  EXPECT_EQ(escaped.view().size(), std::string_view(escaped.c_str()).size());
  return std::string(escaped.view());
}

std::string inHtml(std::string_view text) { return made(tarn::escape_html, text); }
std::string inAttribute(std::string_view text) { return made(tarn::escape_attribute, text); }
std::string inUrl(std::string_view text) { return made(tarn::escape_url, text); }
std::string inPath(std::string_view text) { return made(tarn::escape_path, text); }
std::string inJson(std::string_view text) { return made(tarn::escape_json, text); }

std::string everyByte() {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  return all;
}

// ---- HTML ---------------------------------------------------------------------------------------

TEST(EscapeHtml, LeavesNoMarkup) {
  EXPECT_EQ("&lt;b title=&quot;a&quot; id=&#39;b&#39;&gt;Q&amp;A",
            inHtml("<b title=\"a\" id='b'>Q&A"));
}

TEST(EscapeHtml, EscapesEscapedTextAgain) { EXPECT_EQ("&amp;lt;", inHtml("&lt;")); }

TEST(EscapeHtml, KeepsOtherText) {
  const std::string plain = "Grüße, 東京, 🦆: `a=b` ~!#$%()*+,-./:;?@[\\]^_{|}";
  EXPECT_EQ(plain, inHtml(plain));
  EXPECT_EQ("", inHtml(""));
}

TEST(EscapeHtml, KeepsTabsAndLineEnds) { EXPECT_EQ("a\tb\nc&#13;\nd", inHtml("a\tb\nc\r\nd")); }

TEST(EscapeHtml, ReplacesOtherControlCharacters) {
  EXPECT_EQ("a\uFFFDb\uFFFDc\uFFFDd\uFFFD", inHtml("a\0b\x1B"
                                                   "c\fd\x7F"sv));
  EXPECT_EQ("\uFFFD\uFFFD\u00A0", inHtml("\u0080\u009F\u00A0"));
}

TEST(EscapeHtml, ReplacesInvalidUtf8) {
  const std::pair<std::string_view, std::string_view> kCases[] = {
      {"caf\xE9", "caf\uFFFD"},                // Latin-1
      {"caf\xE9!", "caf\uFFFD!"},              // cut off by what follows
      {"\x80", "\uFFFD"},                      // nothing before it
      {"\xC0\xBC", "\uFFFD\uFFFD"},            // "<", longer than needed
      {"\xC1\xBF", "\uFFFD\uFFFD"},            //
      {"\xE0\x80\xBC", "\uFFFD\uFFFD\uFFFD"},  //
      {"\xE0\x9F\xBF", "\uFFFD\uFFFD\uFFFD"},  //
      {"\xF0\x8F\xBF\xBF", "\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},            // a surrogate
      {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},  // beyond the last character
      {"\xF5\x80\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"\xE2\x82", "\uFFFD\uFFFD"},  // cut off
      {"\xF0\x9F\xA6", "\uFFFD\uFFFD\uFFFD"},
      {"\xE2\x82<", "\uFFFD\uFFFD&lt;"},  // what follows keeps its meaning
      {"\xFF\xFE", "\uFFFD\uFFFD"},
  };
  for (const auto &[text, expected] : kCases) EXPECT_EQ(expected, inHtml(text));
}

TEST(EscapeHtml, KeepsTheFirstAndLastCharacterOfEveryLength) {
  const std::string_view kCharacters[] = {" ",      "~",      "\u00A0", "\u07FF",     "\u0800",
                                          "\uD7FF", "\uE000", "\uFFFD", "\U00010000", "\U0010FFFF"};
  for (const std::string_view character : kCharacters) EXPECT_EQ(character, inHtml(character));
}

TEST(EscapeAttribute, IsSafeWithoutQuotationMarks) {
  EXPECT_EQ("a&#32;onclick&#61;b&#96;&gt;&#9;&#10;&#13;&quot;&#39;&lt;&amp;\uFFFD\uFFFD",
            inAttribute("a onclick=b`>\t\n\r\"'<&\f\xFF"));
}

// ---- URLs ---------------------------------------------------------------------------------------

TEST(EscapeUrl, KeepsOnlyLettersDigitsAndFourMarks) {
  const std::string plain = "ABCXYZabcxyz0189-._~";
  EXPECT_EQ(plain, inUrl(plain));
  EXPECT_EQ("%2F%3Fa%3Db%26c%3Dd%23e%20%2B%25", inUrl("/?a=b&c=d#e +%"));
  EXPECT_EQ("%00%0D%0A%7F%80%FF", inUrl("\0\r\n\x7F\x80\xFF"sv));
  EXPECT_EQ("%C3%A9", inUrl("é"));
}

TEST(EscapePath, EscapesLikeUrlButKeepsSlashes) {
  const std::string all = everyByte();
  std::string expected = inUrl(all);
  expected.replace(expected.find("%2F"), 3, "/");
  EXPECT_EQ(expected, inPath(all));
  EXPECT_EQ("/cgi-bin/g%C3%A4ste%20buch%3F//", inPath("/cgi-bin/gäste buch?//"));
}

TEST(EscapePath, MakesARedirectPathFromAScriptName) {
  const tarn::Text here = tarn::escape_path("/a b?\"<>\\^`{|}\r\nSet-Cookie: x=ä");
  tarn::Response response;
  EXPECT_EQ(nullptr, response.redirect(here.view()).problem());
}

TEST(EscapeUrl, EscapesEachByteOfALongText) {
  std::string text;
  std::string expected;
  for (int i = 0; i < 20000; ++i) {
    const int byte = i * 7 % 256;
    const char c = static_cast<char>(byte);
    text += c;
    const bool kept = std::strchr("-._~", c) != nullptr || std::isalnum(byte) != 0;
    char piece[8];
    std::snprintf(piece, sizeof piece, "%%%02X", byte);
    expected += kept && c != '\0' && byte < 128 ? std::string(1, c) : piece;
  }
  EXPECT_EQ(expected, tarn::escape_url(text).view());
}

TEST(EscapeUrl, IsReversedByUnescapeString) {
  const std::string all = everyByte().substr(1);
  char *undone = unescapeString(inUrl(all).c_str());
  EXPECT_EQ(all, undone);
  std::free(undone);
}

// ---- JSON ---------------------------------------------------------------------------------------

TEST(EscapeJson, AddsQuotationMarks) {
  EXPECT_EQ("\"\"", inJson(""));
  EXPECT_EQ("\"Grüße, 🦆 / ok\"", inJson("Grüße, 🦆 / ok"));
}

TEST(EscapeJson, EscapesTheEndsOfStringsAndLines) {
  EXPECT_EQ("\"\\u0022\\u005c\\u0000\\u0009\\u000a\\u000d\\u001f\\u007f\"",
            inJson("\"\\\0\t\n\r\x1F\x7F"sv));
  EXPECT_EQ("\"\\u0080\\u009f\u00A0\"", inJson("\u0080\u009F\u00A0"));
  EXPECT_EQ("\"a\\u2028b\\u2029c\u2027\u202A\"", inJson("a\u2028b\u2029c\u2027\u202A"));
}

TEST(EscapeJson, ContainsNothingThatHtmlInterprets) {
  EXPECT_EQ("\"\\u003c/script\\u003e\\u003c!--\\u0026amp;\\u0027\"", inJson("</script><!--&amp;'"));
}

TEST(EscapeJson, ReplacesInvalidUtf8) {
  EXPECT_EQ("\"a\\ufffdb\"", inJson("a\xE9"
                                    "b"));
}

// ---- Every byte, every escape -------------------------------------------------------------------

TEST(Escape, LeavesNoDangerousByteForItsPlace) {
  const std::string all = everyByte();
  EXPECT_EQ(std::string::npos, inHtml(all).find_first_of("<>\"'\r\f\0\x7F"sv));
  EXPECT_EQ(std::string::npos, inAttribute(all).find_first_of("<>\"'`= \t\n\r\f\0\x7F"sv));
  EXPECT_EQ(std::string::npos, inUrl(all).find_first_of("<>\"'`&=+?#/ \t\n\r\f\0\x7F"sv));
  const std::string json = inJson(all);
  EXPECT_EQ(json.size() - 1, json.find('"', 1));
  EXPECT_EQ(std::string::npos, json.find_first_of("<>&'\n\r\0\x7F"sv));
}

// ---- Texts --------------------------------------------------------------------------------------

TEST(Text, MovesItsBlock) {
  tarn::Text first = tarn::escape_html("first");
  tarn::Text second(std::move(first));
  EXPECT_EQ("first", second.view());
  second = tarn::escape_html("second");
  EXPECT_STREQ("second", second.c_str());
}

TEST(Text, IsNoTextAfterAMove) {
  tarn::Text text = tarn::escape_html("text");
  tarn::Text other = std::move(text);
  EXPECT_FALSE(text);
  EXPECT_STREQ("text was moved from", text.problem());
  EXPECT_EQ("", text.view());
  EXPECT_STREQ("", text.c_str());
  text = std::move(other);
  EXPECT_TRUE(text);
  EXPECT_EQ(nullptr, text.problem());
  EXPECT_EQ("text", text.view());
  EXPECT_FALSE(other);
  other = tarn::escape_html("other");
  EXPECT_TRUE(other);
  tarn::Text &same = other;
  other = std::move(same);
  EXPECT_EQ("other", other.view());
}

TEST(Text, CanBePassedOnAsATemporary) {
  char written[16];
  std::snprintf(written, sizeof written, "%s", tarn::escape_html("<").c_str());
  EXPECT_STREQ("&lt;", written);
  EXPECT_EQ("%3C", std::string(tarn::escape_url("<").view()));
}

TEST(Text, IsEmptyAndTellsTheProblemIfRefused) {
  const tarn::Text refused = tarn::Text::refused("because");
  EXPECT_FALSE(refused);
  EXPECT_EQ("", refused.view());
  EXPECT_STREQ("", refused.c_str());
  EXPECT_STREQ("because", refused.problem());
}

// As that of an unset variable is.
TEST(Text, IsRefusedIfItIsMadeFromANullPointer) {
  const char *const unset = std::getenv("TARN_TEST_UNSET");
  ASSERT_EQ(nullptr, unset);
  EXPECT_FALSE(tarn::escape_html(unset));
  EXPECT_FALSE(tarn::escape_attribute(unset));
  EXPECT_FALSE(tarn::escape_url(unset));
  EXPECT_FALSE(tarn::escape_path(unset));
  EXPECT_STREQ("text is a null pointer", tarn::escape_json(unset).problem());
  EXPECT_TRUE(tarn::escape_html(std::string_view()));
}

TEST(Text, IsCompleteOrAbsentWhenAnAllocationFails) {
  const std::string text(1000, '<');
  const std::string whole = inHtml(text);
  tarn_test::forEachFailingAllocation([&](tarn_test::FailingMemory &memory) {
    const tarn::Text escaped = memory.call([&] { return tarn::escape_html(text); });
    EXPECT_EQ(memory.failed() ? "" : whole, escaped.view());
    EXPECT_STREQ(memory.failed() ? "out of memory" : nullptr, escaped.problem());
  });
}

}  // namespace
