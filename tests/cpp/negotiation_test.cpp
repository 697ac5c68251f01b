// Choosing a type or a language that the visitor accepts.
#include <gtest/gtest.h>
#include <tarn/negotiation.hpp>

#include <string>
#include <utility>

#include "output.h"
#include "support/processor_time.h"
#include "support/script.h"

namespace {

using tarn::Response;
using tarn_test::Output;

constexpr char kHtml[] = "text/html";
constexpr char kJson[] = "application/json";

std::string type(const std::string &accept) {
  setenv("HTTP_ACCEPT", accept.c_str(), 1);
  Output out;
  Response response(out);
  const std::string_view chosen = tarn::choose_type(response, {kHtml, kJson, "text/csv"});
  unsetenv("HTTP_ACCEPT");
  return std::string(chosen);
}

std::string language(const std::string &accept) {
  setenv("HTTP_ACCEPT_LANGUAGE", accept.c_str(), 1);
  Output out;
  Response response(out);
  const std::string_view chosen = tarn::choose_language(response, {"en", "fr-CA", "de", "zh-Hant"});
  unsetenv("HTTP_ACCEPT_LANGUAGE");
  return std::string(chosen);
}

TEST(ChooseType, FollowsThePreferences) {
  const std::pair<std::string, std::string> kCases[] = {
      {"application/json", kJson},
      {"APPLICATION/JSON", kJson},
      {"text/html, application/json", kHtml},
      {"text/html;q=0.9, application/json", kJson},
      {"text/html;q=0.9,application/json;q=0.91", kJson},
      {"text/html ; q=0.9 , application/json\t;\tQ=1.000", kJson},
      {"text/html;q=0, */*", kJson},
      {"text/*;q=0.5, application/*", kJson},
      {"text/*;q=0.5, application/*;q=0.5", kHtml},
      {"*/*", kHtml},
      {"text/csv;q=0.001", "text/csv"},
      // A browser.
      {"text/html,application/xhtml+xml,application/xml;q=0.9,image/avif,*/*;q=0.8", kHtml},
      // The closest range counts, wherever it is.
      {"*/*, text/*;q=0.1, text/html;q=0.2, application/json;q=0", kHtml},
      {"application/json;q=0, */*;q=0.1, text/*;q=0.2, text/html;q=0.3", kHtml},
      {"text/html;q=0.1, text/html;q=0.7, application/json;q=0.5", kHtml},
  };
  for (const auto &[accept, chosen] : kCases) EXPECT_EQ(chosen, type(accept)) << accept;
}

TEST(ChooseType, IgnoresParametersUnlessTheTypeIsThereWithoutAny) {
  const std::pair<std::string, std::string> kCases[] = {
      {"application/json;charset=utf-8", kJson},
      {"text/html;q=0.1, application/json;charset=utf-8;q=0.5", kJson},
      {"application/json;charset=utf-8, application/json;q=0.1, text/html;q=0.5", kHtml},
      {"application/json;a=\"x,y;q=0\\\",\";q=0.5, text/html;q=0.4", kJson},
      {"application/json;q=0.5;a=b, text/html;q=0.4", kJson},
      {"application/json;;q=0.5, text/html;q=0.4", kJson},
  };
  for (const auto &[accept, chosen] : kCases) EXPECT_EQ(chosen, type(accept)) << accept;
}

TEST(ChooseType, FindsNothingIfTheVisitorExcludesAll) {
  for (const std::string accept : {"image/png", "*/*;q=0", "text/*;q=0, application/json;q=0.0",
                                   "text/htm", "text/html5", "application/jso*"}) {
    EXPECT_EQ("", type(accept)) << accept;
  }
}

TEST(ChooseType, UsesTheDefaultWithoutAHeaderOrWithAMalformedOne) {
  for (const std::string accept : {"",
                                   " ",
                                   ",",
                                   ", ,",
                                   "json",
                                   "*",
                                   "/",
                                   "/json",
                                   "text/",
                                   "a/b/c",
                                   "application/json;q=",
                                   "application/json;q=2",
                                   "application/json;q=1.001",
                                   "application/json;q=.5",
                                   "application/json;q=0.1234",
                                   "application/json;q=-1",
                                   "application/json;q=1x",
                                   "application/json;q",
                                   "application/json x",
                                   "application/json;a=\"",
                                   "application json",
                                   "\"application/json\"",
                                   "application/json;a=\"b\"c",
                                   "\xFF/\xFF",
                                   "(application/json)"}) {
    EXPECT_EQ(kHtml, type(accept)) << accept;
  }
  tarn_test::asScript({}, "", [] {
    Response response;
    EXPECT_EQ(kJson, tarn::choose_type(response, {kJson, kHtml}));
    EXPECT_EQ("", tarn::choose_type(response, {}));
    EXPECT_EQ("", tarn::choose_language(response, {}));
  });
}

TEST(ChooseType, SkipsMalformedElements) {
  EXPECT_EQ(kJson, type("text/html;q=5, application/json"));
  EXPECT_EQ(kJson, type("text/html x \"a,b\" y, application/json"));
  EXPECT_EQ(kJson, type("application/json;q=0.5, text/html;q=0.9999"));
}

TEST(ChooseLanguage, LooksUpTagsFromTheLongest) {
  const std::pair<std::string, std::string> kCases[] = {
      {"de", "de"},
      {"DE-at", "de"},
      {"de-CH-1996", "de"},
      {"fr-CA", "fr-CA"},
      {"fr-ca-x-lake", "fr-CA"},
      {"zh-Hant-TW", "zh-Hant"},
      {"zh-Hant-x-lake-TW", "zh-Hant"},
      // A language below the one that is asked for.
      {"fr", "fr-CA"},
      {"zh", "zh-Hant"},
      // None of these.
      {"fr-FR", "en"},
      {"zh-Hans", "en"},
      {"fr-C", "en"},
      {"d", "en"},
      {"deu", "en"},
      {"it", "en"},
  };
  for (const auto &[accept, chosen] : kCases) EXPECT_EQ(chosen, language(accept)) << accept;
}

TEST(ChooseLanguage, FollowsThePreferences) {
  const std::pair<std::string, std::string> kCases[] = {
      {"en, de", "en"},
      {"de, en", "de"},
      {"en;q=0.5, de;q=0.6", "de"},
      {"it, fr;q=0.9, en;q=0.8", "fr-CA"},
      {"de-CH, fr-CA;q=0.9, de;q=0.1", "de"},
      {"*", "en"},
      {"*, en;q=0.5", "fr-CA"},
      {"fr;q=0.9, *;q=0.1", "fr-CA"},
      {"en;q=0", "en"},
      {"en;q=0, *", "fr-CA"},
      {"en;q=0, fr-CA;q=0, *;q=0.1", "de"},
      {"en;q=0, en-US, de;q=0.1", "de"},
      {"de;q=0", "en"},
      {"*;q=0", "en"},
  };
  for (const auto &[accept, chosen] : kCases) EXPECT_EQ(chosen, language(accept)) << accept;
}

TEST(ChooseLanguage, UsesTheDefaultWithoutAHeaderOrWithAMalformedOne) {
  for (const std::string accept :
       {"", ",", "-", "de;q=2", "de;", "de_DE", "*-DE", "de-", "de de"}) {
    const std::string chosen = accept == "de;" || accept == "de-" ? "de" : "en";
    EXPECT_EQ(chosen, language(accept)) << accept;
  }
}

TEST(Negotiation, TellsCachesThatTheResponseDepends) {
  Output out;
  Response response(out);
  EXPECT_EQ(kHtml, tarn::choose_type(response, {kHtml}));
  EXPECT_EQ("en", tarn::choose_language(response, {"en"}));
  EXPECT_TRUE(response.send());
  EXPECT_NE(std::string::npos, out.written().find("Vary: Accept\r\nVary: Accept-Language\r\n"));
}

TEST(Negotiation, TakesTimeInProportionToTheHeader) {
  std::string types;
  std::string languages;
  std::string tag = "a";
  for (int i = 0; i < 20000; ++i) {
    types += "*/*;q=0.1,a/b;c=\"d\",";
    languages += "*,fr-x-y;q=0.5,";
    tag += "-a";
  }
  tarn_test::asScript({}, "", [&] {
    tarn_test::limitProcessorTime();
    EXPECT_EQ(kHtml, type(types));
    EXPECT_EQ("en", language(languages));
    EXPECT_EQ("en", language(tag));
  });
}

}  // namespace
