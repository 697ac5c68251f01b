// URL-encoded text, cookies and variables from strangers.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "support/form.h"
#include "support/guarded.h"
#include "support/handles.h"
#include "support/rules.h"
#include "support/script.h"
#include "tarn.h"

namespace tarn_test {
namespace {

using namespace std::string_literals;

constexpr const char *kUrlEncoded = "application/x-www-form-urlencoded";

// ---- Escapes ------------------------------------------------------------------------------------

// Escapes that are invalid, truncated, or decode to a zero byte.
std::vector<std::string> oddEscapes() {
  std::vector<std::string> escapes = {
      "%",    "%2", "%zz", "%%",  "%00",       "%u0041",    "%%%",  "%0", "%0%", "%4%", "+%",
      "%25%", "%G", "%+",  "%2B", "%\xC3\xA9", "%\xFF\xFF", "%7F%", "%=", "%&",  "%;"};
  for (int byte = 1; byte < 256; ++byte) escapes.push_back("%"s + static_cast<char>(byte));
  return escapes;
}

TEST(HostileEscape, AtTheEndOfATextIsDecodedWithoutReadingBeyondIt) {
  for (const std::string &escape : oddEscapes()) {
    for (const std::string &text : {escape, "a" + escape, escape + escape}) {
      GuardedText input(text);
      EXPECT_EQ(decoded(text), copyAndRelease(unescapeString(input.text()))) << text;
    }
  }
}

// Longer texts are decoded eight bytes at a time.
TEST(HostileEscape, AnywhereInATextIsDecodedWithoutReadingBeyondIt) {
  const std::string letters = "abcdefghijklmnopqrstuvwxyz";
  for (const std::string &escape : {"+"s, "%"s, "%4"s, "%41"s, "%2B%25"s, "+%00+"s}) {
    for (size_t before = 0; before <= 20; ++before) {
      for (size_t after = 0; after <= 20; ++after) {
        const std::string text = letters.substr(0, before) + escape + letters.substr(0, after);
        GuardedText input(text);
        EXPECT_EQ(decoded(text), copyAndRelease(unescapeString(input.text()))) << text;
      }
    }
  }
}

TEST(HostileEscape, AtTheEndOfAPairIsDecodedWithoutReadingBeyondIt) {
  asScript({}, "", [] {
    Request request;
    for (const std::string &escape : oddEscapes()) {
      for (const std::string &pair : {"k=" + escape, escape + "=", escape + "=41" + escape}) {
        const Entries expected = modelEntries(pair);
        if (escape.find('&') == std::string::npos) {
          GuardedText alone(pair);
          Tarn_parsePair(&request.handle, alone.text());
          EXPECT_EQ((Form{expected, {}}), request.takeForm()) << pair;
        }
        GuardedText last("a=1&" + pair);
        EXPECT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, last.text(), 0));
        Entries both = expected;
        both.insert(both.begin(), {"a", "1"});
        EXPECT_EQ((Form{both, {}}), request.takeForm()) << pair;
      }
    }
  });
}

TEST(HostileEscape, AtTheEndOfAFileNameIsDecodedWithoutReadingBeyondIt) {
  const std::string contentType = "multipart/form-data; boundary=XYZ";
  asScript({{"CONTENT_TYPE", contentType}}, "", [&] {
    Request request;
    for (const std::string &escape : oddEscapes()) {
      // Closed by its quote, and truncated with the body.
      const std::string start =
          "--XYZ\r\nContent-Type: t\r\n\r\nx\r\nname=\"f\"; filename=\"" + escape;
      for (const std::string &body : {start, start + "\"", start + "\"\r\n--XYZ--\r\n"}) {
        Guarded input(body);
        EXPECT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, input.text(), input.size()));
        EXPECT_EQ(modelForm(contentType, body), request.takeForm()) << testing::PrintToString(body);
      }
    }
  });
}

TEST(HostileEscape, AtTheEndOfACookieHeaderOrAQueryStringFollowsTheRules) {
  asScript({}, "", [] {
    for (const std::string &escape : oddEscapes()) {
      const std::string text = "a=1;b=2&" + escape + "=" + escape;
      setenv("HTTP_COOKIE", text.c_str(), 1);
      setenv("QUERY_STRING", text.c_str(), 1);
      Request request;
      EXPECT_EQ(modelCookies(text), cookiesOf(request.environment())) << text;
      EXPECT_EQ((Form{modelEntries(text), {}}), request.form()) << text;
    }
  });
}

// ---- Repeated names -----------------------------------------------------------------------------

TEST(HostileNamesLarge, RepeatedAHundredThousandTimesAreAllKeptAndTheFirstIsFound) {
  static constexpr int kTimes = 100000;
  std::string body = "first=0";
  for (int i = 0; i < kTimes; ++i) body += (i % 2 == 0 ? "&k=" : "&K=") + std::to_string(i);
  asScript(post(kUrlEncoded, body), body, [] {
    limitProcessorTime();
    Request request;
    TarnHandle first = Tarn_getElementByName(&request.handle, "K");
    EXPECT_EQ((Entry{"k", "0"}), entryOf(first));
    TarnHandle found = 0;
    ASSERT_EQ(TARN_OK, CGIgs_new(&found, TARN_FORM_ENTRY_LIST_MAGIC));
    EXPECT_EQ(0U, Tarn_findEntries(&request.handle, "k", 0, &found));
    EXPECT_EQ(kTimes, FormEntryList_getCount(&found));
    EXPECT_EQ((Entry{"K", std::to_string(kTimes - 1)}),
              entryOf(FormEntryList_getByIndex(&found, kTimes - 1)));
    EXPECT_EQ(TARN_OK, FormEntryList_delete(&found));
  });
}

TEST(HostileNamesLarge, OfCookiesRepeatedAHundredThousandTimesAreAllKeptInOrder) {
  static constexpr int kTimes = 100000;
  std::string header = "k=0";
  for (int i = 1; i < kTimes; ++i) header += "; k=" + std::to_string(i);
  asScript({{"HTTP_COOKIE", header}}, "", [] {
    limitProcessorTime();
    Request request;
    const std::optional<Cookies> cookies = cookiesOf(request.environment());
    ASSERT_TRUE(cookies);
    ASSERT_EQ(size_t{kTimes}, cookies->size());
    for (int i = 0; i < kTimes; ++i) {
      ASSERT_EQ((Cookie{"k", std::to_string(i)}), (*cookies)[static_cast<size_t>(i)]);
    }
  });
}

TEST(HostileCookies, OfOne64KilobyteTokenAreOneCookieWithoutNameOrValue) {
  for (const std::string &token :
       {std::string(65536, 'x'), std::string(65536, ' '), std::string(65536, '%'), "session"s}) {
    SCOPED_TRACE(token.substr(0, 20));
    asScript({{"HTTP_COOKIE", token}}, "", [] {
      Request request;
      EXPECT_EQ((Cookies{{kNone, kNone}}), cookiesOf(request.environment()));
    });
  }
}

// ---- Variables ----------------------------------------------------------------------------------

TEST(HostileVariables, HttpProxyFromTheRequestChangesNothing) {
  Variables variables = post(kUrlEncoded, "a=1");
  variables["HTTP_COOKIE"] = "k=v";
  variables["HTTP_PROXY"] = "http://attacker.example:8080/";
  asScript(variables, "a=1", [] {
    Request request;
    EXPECT_EQ((Form{{{"a", "1"}}, {}}), request.form());
    EXPECT_EQ((Cookies{{"k", "v"}}), cookiesOf(request.environment()));
    EXPECT_STREQ("http://attacker.example:8080/", safeGetenv("HTTP_PROXY"));
    EXPECT_EQ(nullptr, std::getenv("http_proxy"));
  });
}

TEST(HostileVariables, OfAnyLengthAndAnyBytesAreReadInFull) {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) bytes.push_back(static_cast<char>(byte));
  for (const std::string &text : {bytes, std::string(1025, 'x'), std::string(100000, '\xFF'),
                                  "\xC3"s, "\xED\xA0\x80"s, "\xF8\x88\x80\x80\x80"s}) {
    SCOPED_TRACE(testing::PrintToString(text.substr(0, 80)));
    asScript({{"QUERY_STRING", "k=" + text},
              {"CONTENT_TYPE", text},
              {"REQUEST_METHOD", text},
              {"HTTPS", text},
              {"CONTENT_LENGTH", text},
              {"HTTP_COOKIE", text}},
             "", [&] {
               Request request;
               TarnHandle environment = request.environment();
               EXPECT_EQ((Form{modelEntries("k=" + text), {}}), request.form());
               EXPECT_EQ(modelCookies(text), cookiesOf(environment));
               EXPECT_EQ(text, CgiEnv_getContentType(&environment));
               EXPECT_EQ(text, CgiEnv_getRequestMethod(&environment));
               EXPECT_EQ(text, CgiEnv_getCookies(&environment));
               EXPECT_EQ(0, CgiEnv_getContentLength(&environment));
               EXPECT_EQ(
                   0U, CGIgs_getInt(&environment, TARN_ENVIRONMENT_HTTPS, TARN_ENVIRONMENT_MAGIC));
             });
  }
}

}  // namespace
}  // namespace tarn_test
