#include <gtest/gtest.h>
#include <sys/wait.h>
#include <tarn.h>
#include <unistd.h>

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/failing_memory.h"
#include "support/handles.h"
#include "support/processor_time.h"
#include "support/script.h"

namespace {

using tarn_test::asScript;
using tarn_test::copyAndRelease;
using tarn_test::limitProcessorTime;
using tarn_test::Node;

// ---- Formatted allocation -----------------------------------------------------------------------

TEST(Asprintf, FormatsIntoANewBlockAndReturnsTheLength) {
  char *out = nullptr;
  EXPECT_EQ(3, tarn_asprintf(&out, "%d-%s", 7, "x"));
  EXPECT_EQ("7-x", copyAndRelease(out));
}

TEST(Asprintf, EmptyResultIsAllocatedToo) {
  char before[] = "before";
  char *out = before;
  EXPECT_EQ(0, tarn_asprintf(&out, "%s", ""));
  EXPECT_NE(before, out);
  EXPECT_EQ("", copyAndRelease(out));
}

TEST(Asprintf, AcceptsTextOfAnyLength) {
  const std::string text(1 << 20, 'a');
  char *out = nullptr;
  EXPECT_EQ((1 << 20) + 2, tarn_asprintf(&out, "<%s>", text.c_str()));
  EXPECT_EQ('<' + text + '>', copyAndRelease(out));
}

TEST(Asprintf, SupportsEveryConversionOfPrintf) {
  char *out = nullptr;
  EXPECT_EQ(35, tarn_asprintf(&out, "%5d|%-4s|%08.3f|%x|%c|%ld|%%", 42, "ab", 3.14159, 255, 'z',
                              -1234567L));
  EXPECT_EQ("   42|ab  |0003.142|ff|z|-1234567|%", std::string(out));
  std::free(out);
}

// The C library's hardened functions would abort the script.
TEST(Asprintf, SupportsEveryConversionInAWritableFormat) {
  const std::string tells = "ab%n%s", skips = "%2$s";
  char *out = nullptr;
  int position = 0;
  EXPECT_EQ(3, tarn_asprintf(&out, tells.c_str(), &position, "c"));
  EXPECT_EQ("abc", copyAndRelease(out));
  EXPECT_EQ(2, position);
  EXPECT_EQ(6, tarn_asprintf(&out, skips.c_str(), 1, "second"));
  EXPECT_EQ("second", copyAndRelease(out));
}

TEST(Asprintf, CountsAFormattedZeroByte) {
  char *out = nullptr;
  ASSERT_EQ(3, tarn_asprintf(&out, "a%cb", 0));
  EXPECT_EQ(0, std::memcmp("a\0b", out, 4));
  std::free(out);
}

TEST(Asprintf, ReturnsNoTextForANullFormat) {
  const char *format = nullptr;
  char before[] = "before";
  char *out = before;
  EXPECT_EQ(0, tarn_asprintf(&out, format, 1));
  EXPECT_EQ(nullptr, out);
}

TEST(Asprintf, ReturnsNoTextForAFormattingError) {
  // The C locale cannot represent this character.
  const wchar_t euro[] = L"\x20ac";
  char before[] = "before";
  char *out = before;
  EXPECT_EQ(0, tarn_asprintf(&out, "%ls", euro));
  EXPECT_EQ(nullptr, out);
}

TEST(Asprintf, ReturnsTheLengthWithoutADestination) {
  const char *format = nullptr;
  EXPECT_EQ(4, tarn_asprintf(nullptr, "%d-%s", 42, "x"));
  EXPECT_EQ(0, tarn_asprintf(nullptr, format, 1));
}

[[gnu::format(printf, 2, 3)]] int throughVasprintf(char **out, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int length = tarn_vasprintf(out, format, args);
  va_end(args);
  return length;
}

TEST(Vasprintf, FormatsAnArgumentList) {
  char *out = nullptr;
  EXPECT_EQ(14, throughVasprintf(&out, "%s=%d;%.2f;%c", "name", 12, 0.125, 'c'));
  EXPECT_STREQ("name=12;0.12;c", out);
  std::free(out);
}

TEST(Vasprintf, ReturnsNoTextForANullFormat) {
  const char *format = nullptr;
  char before[] = "before";
  char *out = before;
  EXPECT_EQ(0, throughVasprintf(&out, format, 1));
  EXPECT_EQ(nullptr, out);
}

// ---- The environment ----------------------------------------------------------------------------

TEST(SafeGetenv, ReturnsTheValueInTheEnvironmentNotACopy) {
  asScript({{"TARN_COLOUR", "green"}}, "", [] {
    EXPECT_STREQ("green", safeGetenv("TARN_COLOUR"));
    EXPECT_EQ(std::getenv("TARN_COLOUR"), safeGetenv("TARN_COLOUR"));
  });
}

TEST(SafeGetenv, ReturnsAnEmptyTextForAnUnsetVariable) {
  asScript({{"TARN_COLOUR", "green"}, {"TARN_EMPTY", ""}}, "", [] {
    EXPECT_STREQ("", safeGetenv("TARN_COLOR"));
    EXPECT_STREQ("", safeGetenv("tarn_colour"));
    EXPECT_STREQ("", safeGetenv("TARN_EMPTY"));
    EXPECT_STREQ("", safeGetenv(""));
  });
}

TEST(SafeGetenv, ReturnsAnEmptyTextForANullName) { EXPECT_STREQ("", safeGetenv(nullptr)); }

// ---- Comparing ----------------------------------------------------------------------------------

TEST(StringsAreEqual, ReturnsZeroForEqualTextsIgnoringCase) {
  EXPECT_EQ(0, stringsAreEqual("Abc", "aBC"));
  EXPECT_EQ(0, stringsAreEqual("", ""));
  EXPECT_NE(0, stringsAreEqual("Abc", "Abd"));
}

TEST(StringsAreEqual, SignGivesTheOrder) {
  EXPECT_LT(stringsAreEqual("a", "B"), 0);
  EXPECT_GT(stringsAreEqual("b", "A"), 0);
  EXPECT_LT(stringsAreEqual("ab", "abc"), 0);
  EXPECT_GT(stringsAreEqual("abc", "AB"), 0);
  EXPECT_LT(stringsAreEqual("", "a"), 0);
  // Letters are compared in lower case, so "_" sorts before "A"; bytes are unsigned.
  EXPECT_GT(stringsAreEqual("A", "_"), 0);
  EXPECT_GT(stringsAreEqual("\xe4", "z"), 0);
}

TEST(StringsAreEqual, IgnoresCaseOfAsciiLettersOnly) {
  EXPECT_NE(0, stringsAreEqual("\xc4", "\xe4"));
  EXPECT_NE(0, stringsAreEqual("[", "{"));
  EXPECT_NE(0, stringsAreEqual("@", "`"));
}

TEST(StringsAreEqual, NullSortsBeforeAnyText) {
  EXPECT_EQ(0, stringsAreEqual(nullptr, nullptr));
  EXPECT_EQ(-1, stringsAreEqual(nullptr, "text"));
  EXPECT_EQ(-1, stringsAreEqual(nullptr, ""));
  EXPECT_EQ(1, stringsAreEqual("text", nullptr));
  EXPECT_EQ(1, stringsAreEqual("", nullptr));
}

TEST(NStringsAreEqual, ComparesAtMostNBytes) {
  EXPECT_EQ(0, nStringsAreEqual("Multipart/x", "multipart/Y", 10));
  EXPECT_GT(0, nStringsAreEqual("Multipart/x", "multipart/Y", 11));
  EXPECT_LT(0, nStringsAreEqual("multipart/Y", "Multipart/x", 11));
  EXPECT_EQ(0, nStringsAreEqual("a", "b", 0));
  const char unended[] = {'a', 'b', 'c'};
  EXPECT_EQ(0, nStringsAreEqual(unended, "ABCD", 3));
}

TEST(NStringsAreEqual, StopsAtTheEndOfTheTexts) {
  EXPECT_EQ(0, nStringsAreEqual("Abc", "aBC", UINT32_MAX));
  EXPECT_LT(nStringsAreEqual("ab", "abc", UINT32_MAX), 0);
  EXPECT_GT(nStringsAreEqual("abc", "ab", 3), 0);
}

TEST(NStringsAreEqual, NullSortsBeforeAnyTextWhateverN) {
  for (const uint32_t n : {0u, 1u, UINT32_MAX}) {
    SCOPED_TRACE(n);
    EXPECT_EQ(0, nStringsAreEqual(nullptr, nullptr, n));
    EXPECT_EQ(-1, nStringsAreEqual(nullptr, "text", n));
    EXPECT_EQ(1, nStringsAreEqual("text", nullptr, n));
  }
}

// ---- URL decoding -------------------------------------------------------------------------------

TEST(HexToChar, ReadsTwoDigitsInEitherCase) {
  EXPECT_EQ(65, hexToChar('4', '1'));
  EXPECT_EQ(255, hexToChar('f', 'F'));
  EXPECT_EQ(0, hexToChar('0', '0'));
  EXPECT_EQ(0xa9, hexToChar('A', '9'));
}

TEST(HexToChar, ReadsAnyPairOfBytesByTheSameArithmetic) {
  // Bytes from "A" up are treated as letters; lower case is 32 above upper case.
  const auto digit = [](int byte) {
    if (byte < 'A') return byte - '0';
    const bool small = byte / 32 % 2 == 1;
    return (small ? byte - 32 : byte) - 'A' + 10;
  };
  for (int high = 0; high < 256; ++high) {
    for (int low = 0; low < 256; ++low) {
      const int expected = ((digit(high) * 16 + digit(low)) % 256 + 256) % 256;
      ASSERT_EQ(expected, hexToChar(static_cast<char>(high), static_cast<char>(low)))
          << high << ' ' << low;
    }
  }
}

TEST(Unescape, DecodesPlusAndPercent) {
  EXPECT_EQ("a b/cA", copyAndRelease(unescapeString("a+b%2Fc%41")));
  EXPECT_EQ(" +%", copyAndRelease(unescapeString("+%2b%25")));
  EXPECT_EQ("", copyAndRelease(unescapeString("")));
}

TEST(Unescape, CopiesAllOtherBytes) {
  std::string text;
  for (int byte = 1; byte < 256; ++byte) {
    if (byte != '+' && byte != '%') text += static_cast<char>(byte);
  }
  EXPECT_EQ(text, copyAndRelease(unescapeString(text.c_str())));
}

TEST(Unescape, DecodesEveryByteValue) {
  std::string escaped;
  std::string expected;
  for (int byte = 1; byte < 256; ++byte) {
    char digits[4];
    std::snprintf(digits, sizeof digits, byte % 2 == 0 ? "%%%02x" : "%%%02X",
                  static_cast<unsigned>(byte));
    escaped += digits;
    expected += static_cast<char>(byte);
  }
  EXPECT_EQ(expected, copyAndRelease(unescapeString(escaped.c_str())));
}

TEST(Unescape, ReturnsNullForNull) { EXPECT_EQ(nullptr, unescapeString(nullptr)); }

TEST(Unescape, DoesNotChangeItsInput) {
  char text[] = "a+b%41";
  char *const decoded = unescapeString(text);
  EXPECT_NE(text, decoded);
  EXPECT_STREQ("a+b%41", text);
  std::free(decoded);
}

TEST(Unescape, DecodedZeroByteEndsTheText) {
  EXPECT_EQ("a", copyAndRelease(unescapeString("a%00b")));
  EXPECT_EQ("", copyAndRelease(unescapeString("%00")));
}

TEST(Unescape, AcceptsCharactersThatAreNotDigits) {
  EXPECT_EQ("S", copyAndRelease(unescapeString("%zz")));
  EXPECT_EQ("T1", copyAndRelease(unescapeString("%%41")));
  EXPECT_EQ("\xb1", copyAndRelease(unescapeString("%+1")));
}

TEST(Unescape, DigitsMissingAtTheEndReadAsZeroBytes) {
  // Each text is at the end of its block, so that reading beyond it is detected.
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"%", "\xd0"},  {"ab%", "ab\xd0"}, {"%4", "\x10"},   {"ab%4", "ab\x10"},
      {"ab%3", "ab"}, {"%a", "p"},       {"%41%", "A\xd0"}};
  for (const auto &[text, expected] : cases) {
    const auto block = std::make_unique<char[]>(text.size() + 1);
    std::memcpy(block.get(), text.c_str(), text.size() + 1);
    EXPECT_EQ(expected, copyAndRelease(unescapeString(block.get()))) << text;
  }
}

TEST(Unescape, NothingAfterTheEndIsReadAsDigits) {
  EXPECT_EQ("k\xd0", copyAndRelease(unescapeString("k%\0004141")));
  EXPECT_EQ("k\x10", copyAndRelease(unescapeString("k%4\0004141")));
}

TEST(Unescape, AcceptsLongText) {
  std::string escaped;
  for (int i = 0; i < 100000; ++i) escaped += "%41+";
  const std::string decoded = copyAndRelease(unescapeString(escaped.c_str()));
  ASSERT_EQ(200000u, decoded.size());
  for (size_t i = 0; i < decoded.size(); ++i) ASSERT_EQ(i % 2 == 0 ? 'A' : ' ', decoded[i]) << i;
}

// ---- The shell ----------------------------------------------------------------------------------

// Runs `action` and returns what it, and any shell it starts, wrote to standard output.
std::string outputOf(const std::function<void()> &action) {
  std::FILE *const file = std::tmpfile();
  const int terminal = dup(STDOUT_FILENO);
  dup2(fileno(file), STDOUT_FILENO);
  action();
  dup2(terminal, STDOUT_FILENO);
  close(terminal);
  std::rewind(file);
  std::string output;
  for (int c = std::getc(file); c != EOF; c = std::getc(file)) output += static_cast<char>(c);
  std::fclose(file);
  return output;
}

const tarn_test::Variables kShell = {{"PATH", "/usr/local/bin:/usr/bin:/bin"}};

// The command line that the shell received for `text`: a command prints the shell's own argument,
// and `text` follows in a comment.
std::string seenByTheShell(const std::string &text) {
  const std::string command = "cat /proc/$$/cmdline && true #";
  std::string arguments = outputOf([&] { saferSystem((command + text).c_str()); });
  if (!arguments.empty()) arguments.pop_back();
  const size_t start = arguments.rfind('\0') + 1;
  EXPECT_EQ(command, arguments.substr(start, command.size()));
  return arguments.substr(start + command.size());
}

TEST(SaferSystem, PutsABackslashBeforeEachSeparator) {
  asScript(kShell, "", [] {
    EXPECT_EQ("ls\\;rm x\\|y", seenByTheShell("ls;rm x|y"));
    EXPECT_EQ("a \\<b \\>c \\;\\|\\<\\>", seenByTheShell("a <b >c ;|<>"));
    EXPECT_EQ("\\;", seenByTheShell(";"));
  });
}

TEST(SaferSystem, EscapesNothingElse) {
  const std::string text = "'a' \"b\" & $c `d` (e) \\ * ? [f] {g} ~ ! # \t %h \x80\xff";
  asScript(kShell, "", [&] { EXPECT_EQ(text, seenByTheShell(text)); });
}

TEST(SaferSystem, EscapesAnEscapedSeparatorAgain) {
  asScript(kShell, "", [] {
    EXPECT_EQ("a\\\\;b", seenByTheShell("a\\;b"));
    // The shell now sees an escaped backslash, and then an unescaped separator.
    EXPECT_EQ("a\\b", outputOf([] { saferSystem("printf '%s' a\\;printf b"); }));
  });
}

TEST(SaferSystem, EscapesThousandsOfSeparators) {
  std::string text;
  std::string expected;
  for (int i = 0; i < 10000; ++i) {
    text += ";<x";
    expected += "\\;\\<x";
  }
  asScript(kShell, "", [&] { EXPECT_EQ(expected, seenByTheShell(text)); });
}

TEST(SaferSystem, SeparatorsReachTheCommandAsText) {
  asScript(kShell, "", [] {
    EXPECT_EQ("[a;echo][b][|][c]", outputOf([] { saferSystem("printf '[%s]' a;echo b | c"); }));
    EXPECT_EQ("[x][>][/dev/null]", outputOf([] { saferSystem("printf '[%s]' x > /dev/null"); }));
    EXPECT_EQ("[x][<][/dev/null]", outputOf([] { saferSystem("printf '[%s]' x < /dev/null"); }));
  });
}

TEST(SaferSystem, BackslashesAreVisibleInsideQuotes) {
  asScript(kShell, "",
           [] { EXPECT_EQ("a\\;b", outputOf([] { saferSystem("printf '%s' 'a;b'"); })); });
}

TEST(SaferSystem, DoesNotEscapeAmpersandsVariablesBackquotesOrNewlines) {
  asScript({{"PATH", "/usr/bin:/bin"}, {"TARN_NAME", "value"}}, "", [] {
    EXPECT_EQ("1value23", outputOf([] {
                saferSystem("printf 1 && printf $TARN_NAME\nprintf `printf 2`\nprintf \"3\"");
              }));
  });
}

TEST(SaferSystem, RunsCommandsInSubstitutionsAndOnFurtherLines) {
  asScript({{"PATH", "/usr/bin:/bin"}, {"TARN_NAME", "a b"}}, "", [] {
    const std::pair<const char *, const char *> cases[] = {
        {"printf a\nprintf b", "ab"},
        {"printf $(printf a)", "a"},
        {"printf '%s' '$(printf a)`'", "$(printf a)`"},
        {"printf '[%s]' \"$TARN_NAME\" $TARN_NAME", "[a b][a][b]"},
        {"printf a & wait", "a"},
        {"printf '%s' \\'\\\"", "'\""},
        {"printf '[%s]' $(printf a;printf b)", "[a;printf]"},
    };
    for (const auto &[command, output] : cases) {
      EXPECT_EQ(output, outputOf([text = command] { saferSystem(text); })) << command;
    }
  });
}

TEST(SaferSystem, TreatsALeadingDashLikeSystem) {
  asScript(kShell, "", [] {
    // The shell reports an error.
    dup2(fileno(std::tmpfile()), STDERR_FILENO);
    for (const char *text : {"-", "--", "-c true", "-x", "--help"}) {
      EXPECT_EQ(std::system(text), saferSystem(text)) << text;
    }
  });
}

TEST(SaferSystem, StopsAtAZeroByte) {
  asScript(kShell, "",
           [] { EXPECT_EQ("a", outputOf([] { saferSystem("printf a\0; printf b"); })); });
}

TEST(SaferSystem, ReturnsWhatSystemReturns) {
  asScript(kShell, "", [] {
    EXPECT_EQ(0, saferSystem("true"));
    EXPECT_EQ(0, saferSystem(""));
    const int status = saferSystem("exit 3");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(3, WEXITSTATUS(status));
  });
}

TEST(SaferSystem, RefusesNull) { EXPECT_EQ(-1, saferSystem(nullptr)); }

// ---- Searching bytes ----------------------------------------------------------------------------

TEST(Memfind, ReturnsTheAddressOfTheFirstOccurrence) {
  const char text[] = "abcdabcd";
  EXPECT_EQ(text + 2, memfind(text, 4, "cd", 2));
  EXPECT_EQ(text + 2, memfind(text, 8, "cd", 2));
  EXPECT_EQ(text, memfind(text, 8, "abcd", 4));
  EXPECT_EQ(text, memfind(text, 8, text, 8));
  EXPECT_EQ(text + 7, memfind(text + 4, 4, "d", 1));
}

TEST(Memfind, ReturnsNullWhenTheBytesAreNotFound) {
  EXPECT_EQ(nullptr, memfind("abcd", 4, "abcde", 5));
  EXPECT_EQ(nullptr, memfind("abcd", 4, "ce", 2));
  EXPECT_EQ(nullptr, memfind("abcd", 3, "cd", 2));
  EXPECT_EQ(nullptr, memfind("abcd", 4, "CD", 2));
  EXPECT_EQ(nullptr, memfind("abcd", 0, "a", 1));
}

TEST(Memfind, FindsAnEmptyNeedleAtTheStart) {
  const char text[] = "abcd";
  EXPECT_EQ(text, memfind(text, 4, "", 0));
  EXPECT_EQ(text, memfind(text, 0, "x", 0));
}

TEST(Memfind, ReturnsNullForNull) {
  EXPECT_EQ(nullptr, memfind(nullptr, 4, "a", 1));
  EXPECT_EQ(nullptr, memfind("abcd", 4, nullptr, 1));
  EXPECT_EQ(nullptr, memfind("abcd", 4, nullptr, 0));
  EXPECT_EQ(nullptr, memfind(nullptr, 0, nullptr, 0));
}

TEST(Memfind, FindsAMatchThatOverlapsAPartialOne) {
  const char text[] = "aaabaaab\r\n\r\r\nx";
  EXPECT_EQ(text + 1, memfind(text, 14, "aab", 3));
  EXPECT_EQ(text + 10, memfind(text, 14, "\r\r\nx", 4));
}

TEST(Memfind, FindsZerosAndBytesAbove127) {
  const char data[] = {'a', '\0', '\xff', '\0', '\xfe', '\0', '\xff', '\x01'};
  EXPECT_EQ(data + 1, memfind(data, 8, "\0\xff", 2));
  EXPECT_EQ(data + 3, memfind(data, 8, "\0\xfe\0", 3));
  EXPECT_EQ(data + 5, memfind(data, 8, "\0\xff\x01", 3));
  EXPECT_EQ(nullptr, memfind(data, 8, "\xfe\xff", 2));
}

TEST(Memfind, AgreesWithANaiveSearch) {
  // Every needle of up to five bytes from a two-letter alphabet, in a text of the same letters.
  std::string text;
  for (uint32_t i = 0; i < 64; ++i) text += (i * i / 3 + i / 5) % 2 == 0 ? 'a' : 'b';
  for (uint32_t length = 1; length <= 5; ++length) {
    for (uint32_t bits = 0; bits < 1u << length; ++bits) {
      std::string needle;
      for (uint32_t i = 0; i < length; ++i) needle += (bits >> i) % 2 == 0 ? 'a' : 'b';
      const size_t at = text.find(needle);
      const char *const expected = at == std::string::npos ? nullptr : text.data() + at;
      EXPECT_EQ(expected, memfind(text.data(), 64, needle.data(), length)) << needle;
    }
  }
}

TEST(Memfind, RepeatedBytesDoNotMakeTheSearchQuadratic) {
  const std::string text(2 << 20, 'a');
  std::string needle(1 << 20, 'a');
  needle += 'b';
  asScript({}, "", [&] {
    limitProcessorTime();
    EXPECT_EQ(nullptr, memfind(text.data(), 2 << 20, needle.data(), (1 << 20) + 1));
  });
}

// The needle's last byte matches everywhere, and half the needle must be compared to find a
// mismatch.
TEST(Memfind, CommonLastByteDoesNotMakeTheSearchQuadratic) {
  const std::string text(4 << 20, 'a');
  std::string needle(1 << 20, 'a');
  needle[needle.size() / 2] = 'b';
  asScript({}, "", [&] {
    limitProcessorTime();
    EXPECT_EQ(nullptr, memfind(text.data(), 4 << 20, needle.data(), 1 << 20));
  });
}

// ---- Cutting out between delimiters -------------------------------------------------------------

// The buffer's bytes; also checks the zero byte after them.
std::string bytesOf(TarnHandle *buffer) {
  EXPECT_EQ(1u, CGIgs_IsA(buffer, TARN_BYTE_BUFFER_MAGIC));
  const uint32_t length = CGIgs_getInt(buffer, TARN_BYTE_BUFFER_LENGTH, TARN_BYTE_BUFFER_MAGIC);
  const auto *data = reinterpret_cast<const char *>(CGIgs_getFixed(buffer, TARN_BYTE_BUFFER_MAGIC));
  EXPECT_EQ(length == 0, data == nullptr);
  if (data == nullptr) return {};
  EXPECT_EQ('\0', data[length]);
  return {data, length};
}

// The bytes of a new buffer, which is then deleted.
std::string copyAndRelease(TarnHandle made) {
  Node buffer;
  buffer.adopt(made);
  return bytesOf(buffer);
}

// The data is in a larger block: `close` is also searched after the data.
std::string between(std::string data, uint32_t length, const char *open, const char *close) {
  data.resize(data.size() + length);
  return copyAndRelease(extractBetween(data.data(), length, open, close));
}

std::string between(std::string data, uint32_t length, const char *delimiter) {
  data.resize(data.size() + length);
  return copyAndRelease(extractBetween1(data.data(), length, delimiter));
}

TEST(ExtractBetween, ReturnsTheBytesBetweenTheDelimitersInABuffer) {
  EXPECT_EQ("x", between("[x]", 3, "[", "]"));
  EXPECT_EQ("x", between("ab[x]cd]", 8, "[", "]"));
  EXPECT_EQ("value", between("name=\"value\"; more=\"other\"", 26, "name=\"", "\""));
}

TEST(ExtractBetween, ReturnsABufferOwnedByTheCaller) {
  TarnHandle first = extractBetween("[x]", 3, "[", "]");
  TarnHandle second = extractBetween("[x]", 3, "[", "]");
  EXPECT_NE(first, second);
  EXPECT_EQ(22878u, CGIgs_getMagic(&first));
  EXPECT_EQ(TARN_OK, CGIgs_delete(&first, 22878));
  EXPECT_EQ(TARN_OK, CGIgs_delete(&second, 22878));
}

TEST(ExtractBetween, UsesTheFirstOpenAndTheFirstCloseAfterIt) {
  EXPECT_EQ("a[b", between("][a[b]c]", 8, "[", "]"));
}

TEST(ExtractBetween, KeepsZeroBytes) {
  EXPECT_EQ(std::string("a\0b", 3), between(std::string("[a\0b]", 5), 5, "[", "]"));
}

TEST(ExtractBetween, ReturnsAnEmptyBufferWithoutOpenOrAnythingBetween) {
  EXPECT_EQ("", between("x]", 2, "[", "]"));
  EXPECT_EQ("", between("[]", 2, "[", "]"));
  EXPECT_EQ("", between("", 0, "[", "]"));
  EXPECT_EQ("", between("[", 1, "[[", "]"));
}

TEST(ExtractBetween, ReturnsAnEmptyBufferForAnyNull) {
  EXPECT_EQ("", copyAndRelease(extractBetween(nullptr, 3, "[", "]")));
  EXPECT_EQ("", copyAndRelease(extractBetween("[x]", 3, nullptr, "]")));
  EXPECT_EQ("", copyAndRelease(extractBetween("[x]", 3, "[", nullptr)));
}

TEST(ExtractBetween, WithoutCloseReturnsOneByteBeyondTheData) {
  EXPECT_EQ(std::string("xy\0", 3), between("[xy", 3, "[", "]"));
  EXPECT_EQ("xyz", between("[xyz]", 3, "[", "]"));
  EXPECT_EQ(std::string("\0", 1), between("[", 1, "[", "]"));
}

TEST(ExtractBetween, SearchesForCloseAsFarBeyondTheDataAsOpenIsFromItsStart) {
  // Five bytes of data, three of them before `open`: `close` may start up to three bytes beyond.
  EXPECT_EQ("xyz", between("abc[xyz]w", 5, "[", "]"));
  EXPECT_EQ("xy", between("abc[xyzw]", 5, "[", "]"));
  // With `open` at the start, `close` is searched only in the data.
  EXPECT_EQ("xy", between("[xy]", 2, "[", "]"));
  EXPECT_EQ("xyz", between("[xyz]", 3, "[", "]"));
}

TEST(ExtractBetween, WithOpenAtTheStartReadsAtMostOneByteBeyondTheData) {
  // The block ends there, so that reading beyond it is detected.
  const auto block = std::make_unique<char[]>(4);
  std::memcpy(block.get(), "[xy", 4);
  EXPECT_EQ(std::string("xy\0", 3), copyAndRelease(extractBetween(block.get(), 3, "[", "]")));
  EXPECT_EQ("", copyAndRelease(extractBetween(block.get(), 3, "(", "]")));
}

TEST(ExtractBetween, EmptyDelimitersAreFoundWhereTheSearchStarts) {
  EXPECT_EQ("ab", between("ab]c", 4, "", "]"));
  EXPECT_EQ("", between("[ab]", 4, "[", ""));
}

TEST(ExtractBetween, AcceptsDelimitersOfAnyLength) {
  EXPECT_EQ(" body ", between("<!-- body --> <!-- -->", 22, "<!--", "-->"));
}

TEST(ExtractBetween1, UsesOneDelimiterOnBothSides) {
  EXPECT_EQ("x", between("|x|", 3, "|"));
  EXPECT_EQ("b", between("a--b--c--d", 10, "--"));
  EXPECT_EQ("", between("||", 2, "|"));
  EXPECT_EQ("", between("ab", 2, "|"));
}

TEST(ExtractBetween1, WithoutASecondDelimiterReturnsOneByteBeyondTheData) {
  EXPECT_EQ(std::string("xy\0", 3), between("|xy", 3, "|"));
}

TEST(ExtractBetween1, ReturnsAnEmptyBufferForNull) {
  EXPECT_EQ("", copyAndRelease(extractBetween1(nullptr, 3, "|")));
  EXPECT_EQ("", copyAndRelease(extractBetween1("|x|", 3, nullptr)));
}

// ---- Trimming -----------------------------------------------------------------------------------

TEST(StripString, RemovesWhiteSpaceAtBothEndsOnly) {
  EXPECT_EQ("a b", copyAndRelease(stripString(" \t a b \r\n")));
  EXPECT_EQ("a \t\r\n b", copyAndRelease(stripString("\r\n\t a \t\r\n b")));
  EXPECT_EQ("a", copyAndRelease(stripString("a \t\r\n ")));
  EXPECT_EQ("a", copyAndRelease(stripString("a")));
}

TEST(StripString, ReturnsAnEmptyTextForWhiteSpaceAlone) {
  for (const char *text : {"", " ", "\t", "\n", "\r", " \t\r\n \t\r\n"}) {
    SCOPED_TRACE(testing::PrintToString(text));
    EXPECT_EQ("", copyAndRelease(stripString(text)));
  }
}

TEST(StripString, RemovesOnlySpaceTabLineFeedAndCarriageReturn) {
  for (const char *text : {"\v", "\f", "\x1f", "\xa0", "\x80", "\x85"}) {
    SCOPED_TRACE(testing::PrintToString(text));
    EXPECT_EQ(text, copyAndRelease(stripString((std::string(" ") + text + " ").c_str())));
  }
}

TEST(StripString, DoesNotChangeItsInput) {
  char text[] = " a ";
  char *const stripped = stripString(text);
  EXPECT_STREQ(" a ", text);
  EXPECT_EQ("a", copyAndRelease(stripped));
}

TEST(StripString, ReturnsNullForNull) { EXPECT_EQ(nullptr, stripString(nullptr)); }

// ---- Numbers and texts on a stream --------------------------------------------------------------

class Stream {
 public:
  explicit Stream(const std::string &text = "") : file_(std::tmpfile()) {
    std::fwrite(text.data(), 1, text.size(), file_);
    std::rewind(file_);
  }
  ~Stream() { std::fclose(file_); }
  Stream(const Stream &) = delete;
  Stream &operator=(const Stream &) = delete;

  operator std::FILE *() { return file_; }
  // The rest, from the current position.
  std::string rest() {
    std::string text;
    for (int c = std::getc(file_); c != EOF; c = std::getc(file_)) text += static_cast<char>(c);
    return text;
  }
  std::string all() {
    std::rewind(file_);
    return rest();
  }

 private:
  std::FILE *file_;
};

TEST(WriteLong, WritesASpaceOnBothSides) {
  Stream stream;
  writeLong(stream, 42);
  writeLong(stream, -7);
  writeLong(stream, 0);
  EXPECT_EQ(" 42  -7  0 ", stream.all());
}

TEST(WriteString, WritesASpaceOnBothSidesAndEscapesNothing) {
  Stream stream;
  writeString(stream, "hi");
  writeString(stream, "");
  writeString(stream, "100% %s\n\\\xff");
  EXPECT_EQ(" hi    100% %s\n\\\xff ", stream.all());
}

TEST(WriteString, WritesNothingForNull) {
  Stream stream;
  writeString(stream, nullptr);
  EXPECT_EQ("", stream.all());
  writeString(nullptr, "text");
  writeString(nullptr, nullptr);
  writeLong(nullptr, 1);
}

TEST(ReadLong, SkipsWhiteSpaceOnBothSides) {
  Stream stream(" \t\n 42 \r\n\v\f x");
  EXPECT_EQ(42, readLong(stream));
  EXPECT_EQ("x", stream.rest());
}

TEST(ReadLong, ReadsWhatWriteLongWrote) {
  Stream stream;
  for (const long value : {0L, -1L, LONG_MAX, LONG_MIN, 1234567890L}) writeLong(stream, value);
  std::rewind(stream);
  for (const long value : {0L, -1L, LONG_MAX, LONG_MIN, 1234567890L}) {
    SCOPED_TRACE(value);
    EXPECT_EQ(value, readLong(stream));
  }
  EXPECT_EQ(0, readLong(stream));
}

TEST(ReadLong, StopsAtTheFirstNonDigit) {
  Stream stream("+12abc");
  EXPECT_EQ(12, readLong(stream));
  EXPECT_EQ("abc", stream.rest());
}

TEST(ReadLong, ReadsDecimalOnly) {
  Stream stream("010 0x1F");
  EXPECT_EQ(10, readLong(stream));
  EXPECT_EQ(0, readLong(stream));
  EXPECT_EQ("x1F", stream.rest());
}

TEST(ReadLong, ReturnsZeroWithoutANumber) {
  Stream stream("abc");
  EXPECT_EQ(0, readLong(stream));
  EXPECT_EQ("abc", stream.rest());
  Stream empty;
  EXPECT_EQ(0, readLong(empty));
  EXPECT_EQ(0, readLong(nullptr));
}

TEST(ReadString, ReadsBackALengthPlusOneAndAText) {
  const std::vector<std::string> texts = {"hi", "two words", "x", std::string(100000, 'y'),
                                          "\x80\xff"};
  Stream stream;
  for (const std::string &text : texts) {
    writeLong(stream, static_cast<long>(text.size()) + 1);
    writeString(stream, text.c_str());
  }
  std::rewind(stream);
  for (const std::string &text : texts) EXPECT_EQ(text, copyAndRelease(readString(stream)));
}

TEST(ReadString, ReadsOneByteLessThanTheCount) {
  Stream stream(" 4  abcdef");
  EXPECT_EQ("abc", copyAndRelease(readString(stream)));
  EXPECT_EQ("def", stream.rest());
}

TEST(ReadString, StopsAfterANewline) {
  Stream stream(" 20  one\ntwo");
  EXPECT_EQ("one\n", copyAndRelease(readString(stream)));
  EXPECT_EQ("two", stream.rest());
}

TEST(ReadString, SkipsWhiteSpaceBeforeTheText) {
  Stream stream;
  writeLong(stream, 5);
  writeString(stream, " \nab");
  std::rewind(stream);
  EXPECT_EQ("ab ", copyAndRelease(readString(stream)));
}

TEST(ReadString, ReturnsWhatWasReadWhenTheStreamEnds) {
  Stream shorter(" 1000 abc");
  EXPECT_EQ("abc", copyAndRelease(readString(shorter)));
  Stream none(" 1000 ");
  EXPECT_EQ("", copyAndRelease(readString(none)));
  Stream empty;
  EXPECT_EQ("", copyAndRelease(readString(empty)));
}

TEST(ReadString, CountBelowTwoReturnsAnEmptyTextAndLeavesTheRest) {
  for (const char *text : {"1 abc", "0 abc", "-1 abc", "-2147483648 abc", "abc"}) {
    SCOPED_TRACE(text);
    Stream stream(text);
    EXPECT_EQ("", copyAndRelease(readString(stream)));
    EXPECT_EQ("abc", stream.rest());
  }
  Stream lowest(std::to_string(LONG_MIN));
  EXPECT_EQ("", copyAndRelease(readString(lowest)));
}

TEST(ReadString, ReturnsNullForNull) { EXPECT_EQ(nullptr, readString(nullptr)); }

TEST(ReadString, ReturnsNullForACountThatCannotBeAllocated) {
  Stream stream(std::to_string(LONG_MAX) + " abc");
  EXPECT_EQ(nullptr, readString(stream));
}

// ---- Out of memory ------------------------------------------------------------------------------

TEST(TextWithoutMemory, AsprintfReturnsZeroAndNull) {
  const std::string text(5000, 'x');
  char before[] = "before";
  char *out = before;
  int length = -1;
  tarn_test::withoutMemory([&] { length = tarn_asprintf(&out, "%s", text.c_str()); });
  EXPECT_EQ(0, length);
  EXPECT_EQ(nullptr, out);
}

TEST(TextWithoutMemory, FunctionsThatAllocateATextReturnNull) {
  const std::string text(5000, 'x');
  char *decoded = nullptr;
  char *stripped = nullptr;
  TarnHandle buffer = 1;
  tarn_test::withoutMemory([&] {
    decoded = unescapeString(text.c_str());
    stripped = stripString(text.c_str());
    buffer = extractBetween("[x]", 3, "[", "]");
  });
  EXPECT_EQ(nullptr, decoded);
  EXPECT_EQ(nullptr, stripped);
  EXPECT_EQ(0u, buffer);
}

TEST(TextWithoutMemory, ReadStringReturnsNull) {
  Stream stream("9 5000 abc");
  ASSERT_EQ(9, readLong(stream));
  char *text = nullptr;
  tarn_test::withoutMemory([&] { text = readString(stream); });
  EXPECT_EQ(nullptr, text);
}

TEST(TextWithoutMemory, ExtractBetweenWithoutRoomForTheBytesReturnsAnEmptyBuffer) {
  const std::string data = '[' + std::string(100000, 'x') + ']';
  TarnHandle buffer = 0;
  tarn_test::withoutMemory([&] { buffer = extractBetween(data.data(), 100002, "[", "]"); },
                           tarn_test::kLittleMemory);
  EXPECT_NE(0u, buffer);
  EXPECT_EQ("", copyAndRelease(buffer));
}

}  // namespace
