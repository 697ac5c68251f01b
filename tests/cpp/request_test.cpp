#include <gtest/gtest.h>
#include <tarn.hpp>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "support/failing_memory.h"
#include "support/script.h"

using tarn_test::asScript;
using tarn_test::get;
using tarn_test::post;
using tarn_test::Variables;

namespace {

using Strings = std::vector<std::string>;

constexpr const char *kUrlEncoded = "application/x-www-form-urlencoded";

void withQuery(const std::string &query, const std::function<void(const tarn::Request &)> &look) {
  asScript(get(query), "", [&look] { look(tarn::Request()); });
}

std::optional<std::int64_t> integerOf(const std::string &value, std::int64_t least = INT64_MIN,
                                      std::int64_t most = INT64_MAX) {
  std::optional<std::int64_t> number;
  TarnHandle entry = 0;
  EXPECT_EQ(TARN_OK, CGIgs_new(&entry, TARN_FORM_ENTRY_MAGIC));
  EXPECT_EQ(TARN_OK, FormEntry_setValue(&entry, value.data(), static_cast<uint32_t>(value.size())));
  number = tarn::Entry(entry).integer(least, most);
  CGIgs_delete(&entry, TARN_FORM_ENTRY_MAGIC);
  return number;
}

TEST(CppRequest, ReadsTheRequest) {
  withQuery("name=Ada", [](const tarn::Request &request) {
    EXPECT_TRUE(request);
    EXPECT_EQ(TARN_OK, request.status());
  });
}

TEST(CppRequest, ReportsABodyOfNegativeLength) {
  asScript({{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "-1"}}, "", [] {
    const tarn::Request request;
    EXPECT_EQ(TARN_OK, request.status());
    EXPECT_TRUE(request.entries().empty());
    EXPECT_EQ(std::nullopt, request.environment().body());
  });
}

TEST(CppRequest, IsEmptyIfItCannotBeAllocated) {
  asScript(post(kUrlEncoded, "a=1"), "a=1", [] {
    std::optional<tarn::Request> request;
    tarn_test::withoutMemory([&request] { request.emplace(); });
    EXPECT_EQ(TARN_OK, request->status()) << "nothing was parsed";
    EXPECT_FALSE(*request) << "but there is no request";
  });
}

TEST(CppRequest, IsEmptyIfItsEnvironmentCannotBeAllocated) {
  asScript(get("a=1"), "", [] {
    size_t without = 0;
    for (size_t spare = 0; spare < 10000; spare += 8) {
      std::optional<tarn::Request> request;
      tarn_test::withoutMemory([&request] { request.emplace(); }, spare);
      const bool here = *request->handle() != 0;
      if (here && request->status() == TARN_NO_ENVIRONMENT) ++without;
      ASSERT_EQ(here && request->status() == TARN_OK, static_cast<bool>(*request)) << spare;
    }
    EXPECT_GT(without, 0U) << "no request was without its environment";
  });
}

TEST(CppRequest, IsEmptyAfterAMove) {
  asScript(get("a=1"), "", [] {
    tarn::Request request;
    const tarn::Request other = std::move(request);
    EXPECT_TRUE(other);
    EXPECT_FALSE(request);
  });
}

TEST(CppRequest, FindsTheFirstValueByName) {
  withQuery("name=Ada&NAME=Grace", [](const tarn::Request &request) {
    EXPECT_EQ("Ada", request["name"]);
    EXPECT_EQ("Ada", request["Name"]);
  });
}

TEST(CppRequest, DistinguishesAnEmptyFieldFromAMissingOne) {
  withQuery("empty=", [](const tarn::Request &request) {
    EXPECT_EQ("", request["empty"]);
    EXPECT_EQ(std::nullopt, request["missing"]);
  });
}

TEST(CppRequest, EndsAValueAtItsFirstZeroByte) {
  const std::string body = "--b\r\nContent-Disposition: form-data; name=\"x\"\r\n\r\nab" +
                           std::string(1, '\0') + "cd\r\n--b--\r\n";
  asScript(post("multipart/form-data; boundary=b", body), body, [] {
    const tarn::Request request;
    ASSERT_EQ(1U, request.entries().size());
    EXPECT_EQ("ab", request["x"]);
    EXPECT_EQ("ab", request.entries()[0].value());
  });
}

TEST(CppRequest, FindsAFieldByName) {
  withQuery("x=12ab", [](const tarn::Request &request) {
    const std::optional<tarn::Entry> entry = request.entry("x");
    ASSERT_TRUE(entry);
    EXPECT_EQ("x", entry->name());
    EXPECT_EQ("12ab", entry->value());
    EXPECT_FALSE(request.entry("y"));
  });
}

TEST(CppRequest, FindsAllValuesOfOneName) {
  withQuery("tag=a&other=b&TAG=c&tag=", [](const tarn::Request &request) {
    const tarn::Values tags = request.all("tag");
    EXPECT_EQ((Strings{"a", "c", ""}), Strings(tags.begin(), tags.end()));
    EXPECT_FALSE(tags.empty());
    EXPECT_TRUE(request.all("none").empty());
    EXPECT_EQ(3, std::distance(tags.begin(), tags.end()));
    EXPECT_EQ(1U, tags.begin()->size());
    auto at = tags.begin();
    EXPECT_EQ("a", *at++);
    EXPECT_EQ("c", *at);
    EXPECT_NE(at, tags.end());
  });
}

TEST(CppRequest, RecognizesATickedCheckbox) {
  withQuery("agree=ON&other=yes", [](const tarn::Request &request) {
    EXPECT_TRUE(request.checked("agree"));
    EXPECT_FALSE(request.checked("other"));
    EXPECT_FALSE(request.checked("missing"));
  });
}

TEST(CppRequest, ReadsAWholeNumberInARange) {
  withQuery("age=42&name=Ada", [](const tarn::Request &request) {
    EXPECT_EQ(42, request.integer("age"));
    EXPECT_EQ(42, request.integer("age", 42, 42));
    EXPECT_EQ(std::nullopt, request.integer("age", 0, 41));
    EXPECT_EQ(std::nullopt, request.integer("age", 43, 99));
    EXPECT_EQ(std::nullopt, request.integer("name"));
    EXPECT_EQ(std::nullopt, request.integer("missing"));
  });
}

TEST(CppRequest, AlsoReadsANumberLeniently) {
  withQuery("age=42+years&name=Ada&huge=99999999999", [](const tarn::Request &request) {
    EXPECT_EQ(42, request.number("age"));
    EXPECT_EQ(0, request.number("name"));
    EXPECT_EQ(0, request.number("missing"));
    EXPECT_EQ(INT32_MAX, request.number("huge"));
  });
}

TEST(CppRequest, ShowsItsFieldsInOrder) {
  withQuery("a=1&b=2&a=3", [](const tarn::Request &request) {
    std::string seen;
    for (const tarn::Entry entry : request.entries()) {
      seen.append(*entry.name()).append("=").append(entry.value()).append(" ");
    }
    EXPECT_EQ("a=1 b=2 a=3 ", seen);
  });
}

TEST(CppRequest, HasEmptyRangesIfNothingWasSent) {
  asScript({}, "", [] {
    const tarn::Request request;
    EXPECT_TRUE(request);
    EXPECT_TRUE(request.entries().empty());
    EXPECT_TRUE(request.files().empty());
    EXPECT_TRUE(request.cookies().empty());
    EXPECT_EQ(request.entries().begin(), request.entries().end());
    EXPECT_EQ(std::nullopt, request.environment().body());
  });
}

TEST(CppRequest, MovesWithItsContents) {
  asScript(get("a=1"), "", [] {
    tarn::Request first;
    const std::optional<std::string_view> value = first["a"];
    tarn::Request second(std::move(first));
    EXPECT_FALSE(first);
    EXPECT_EQ(std::nullopt, first["a"]);
    EXPECT_TRUE(second);
    EXPECT_EQ(value->data(), second["a"]->data());
    static_assert(!std::is_copy_constructible_v<tarn::Request>);
    static_assert(!std::is_copy_assignable_v<tarn::Request>);
  });
}

TEST(CppRequest, WorksWithFunctionsOfTarnH) {
  asScript(get("a=1"), "", [] {
    tarn::Request request;
    EXPECT_NE(0U, Tarn_getElementByName(request.handle(), "a"));
    TarnHandle given = request.release();
    EXPECT_FALSE(request);
    const tarn::Request again(tarn::adopt, given);
    EXPECT_EQ(0U, given);
    EXPECT_TRUE(again);
    EXPECT_EQ("1", again["a"]);
  });
}

TEST(CppRequest, KeepsNoNameThatItWasAskedFor) {
  withQuery("tag=a&TAG=b&none", [](const tarn::Request &request) {
    const tarn::Values tags = request.all((std::string("t") + "ag").c_str());
    const tarn::Values missing = request.all(std::string(100, 'x'));
    const std::string overwritten(100, '-');
    EXPECT_EQ((Strings{"a", "b"}), Strings(tags.begin(), tags.end()));
    EXPECT_TRUE(missing.empty());
  });
}

TEST(CppRequest, AcceptsEveryKindOfName) {
  const std::string longest(200, 'n');
  withQuery("name=Ada&age=36&on=on&" + longest + "=x", [&](const tarn::Request &request) {
    const std::string name = "name";
    const std::string_view part("name and more", 4);
    EXPECT_EQ("Ada", request[name]);
    EXPECT_EQ("Ada", request[part]);
    EXPECT_EQ("Ada", request[std::string("NAME")]);
    EXPECT_EQ("x", request[longest]);
    EXPECT_EQ(std::nullopt, request[std::string_view()]);
    EXPECT_EQ("Ada", request.entry(name)->value());
    EXPECT_TRUE(request.entry(name)->is_named(part));
    EXPECT_EQ(36, request.integer(std::string("age")));
    EXPECT_EQ(36, request.number(std::string("age")));
    EXPECT_TRUE(request.checked(std::string_view("on")));
    EXPECT_FALSE(request.file(name));
    EXPECT_EQ(std::nullopt, request.cookie(name));
    const char *const null = std::getenv("TARN_TEST_UNSET");
    EXPECT_EQ(std::nullopt, request[null]);
    EXPECT_EQ(std::nullopt, request.cookie(null));
    EXPECT_TRUE(request.all(null).empty());
  });
}

TEST(CppRequest, FindsNothingIfANameCannotBeCopied) {
  const std::string name(200, 'n');
  withQuery(name + "=x", [&](const tarn::Request &request) {
    bool found = true;
    tarn_test::withoutMemory([&] { found = request[name].has_value() || request.cookie(name); });
    EXPECT_FALSE(found);
    EXPECT_EQ("x", request[name]);
  });
}

TEST(CppRequest, ReturnsAValueOrADefault) {
  withQuery("a=1&b=", [](const tarn::Request &request) {
    EXPECT_EQ("1", request.get("a", "none"));
    EXPECT_EQ("", request.get("b", "none"));
    EXPECT_EQ("none", request.get(std::string("c"), "none"));
  });
}

TEST(CppEntry, HasANameAndAValueToBind) {
  withQuery("a=1&b=2", [](const tarn::Request &request) {
    std::string found;
    for (const auto [name, value] : request.entries()) {
      found.append(name.value_or("?")).append(value);
    }
    EXPECT_EQ("a1b2", found);
  });
}

TEST(CppRange, HasNothingBeyond32Bits) {
  withQuery("a=1&b=2", [](const tarn::Request &request) {
    const tarn::Entries entries = request.entries();
    constexpr size_t kBits = 8 * sizeof(size_t);
    for (const size_t index : {size_t{1} << kBits / 2, (size_t{1} << kBits / 2) + 1, SIZE_MAX,
                               size_t{UINT32_MAX}, size_t{1} << (kBits - 1)}) {
      EXPECT_FALSE(entries[index]) << index;
      EXPECT_FALSE(entries.begin()[static_cast<std::ptrdiff_t>(index)]) << index;
    }
  });
}

TEST(CppEntry, HasNoObjectBeyondTheEnd) {
  withQuery("a=1", [](const tarn::Request &request) {
    const tarn::Entry entry = request.entries()[7];
    EXPECT_FALSE(entry);
    EXPECT_EQ(std::nullopt, entry.name());
    EXPECT_EQ("", entry.value());
    EXPECT_EQ(std::nullopt, entry.integer());
    EXPECT_TRUE(request.entries()[0]);
  });
}

TEST(CppEntry, MayHaveNoName) {
  const std::string body = "--b\r\nContent-Disposition: form-data\r\n\r\nvalue\r\n--b--\r\n";
  asScript(post("multipart/form-data; boundary=b", body), body, [] {
    const tarn::Request request;
    ASSERT_EQ(1U, request.entries().size());
    EXPECT_EQ(std::nullopt, request.entries()[0].name());
    EXPECT_EQ("value", request.entries()[0].value());
    EXPECT_FALSE(request.entries()[0].is_named(""));
  });
}

TEST(CppEntry, ReadsItsValueLikeTarnH) {
  withQuery("x=1.5e1x", [](const tarn::Request &request) {
    tarn::Entry entry = request.entries()[0];
    EXPECT_EQ(1, entry.number());
    EXPECT_EQ(15.0, entry.real());
    EXPECT_TRUE(entry.is_named("X"));
    EXPECT_EQ(0, FormEntry_compareValue(entry.handle(), "1.5e1x"));
  });
}

TEST(CppEntry, ReadsOnlyWholeDecimalNumbersAsIntegers) {
  EXPECT_EQ(0, integerOf("0"));
  EXPECT_EQ(-7, integerOf("-7"));
  EXPECT_EQ(7, integerOf("+7"));
  EXPECT_EQ(7, integerOf("007"));
  EXPECT_EQ(7, integerOf(" \t7\r\n"));
  for (const char *value : {"", " ", "+", "-", "--7", "+-7", "-+7", "++7", "7x", "x7", "7 7", "7.0",
                            "0x7", "7e1", "1,000", "- 7", "\v7",
                            "\xC2\xA0"
                            "7"}) {
    EXPECT_EQ(std::nullopt, integerOf(value)) << '"' << value << '"';
  }
  EXPECT_EQ(7, integerOf(std::string("7\0x", 3))) << "the value ends at its zero byte";
}

TEST(CppEntry, ReadsIntegersUpToTheirLimits) {
  EXPECT_EQ(INT64_MAX, integerOf("9223372036854775807"));
  EXPECT_EQ(INT64_MIN, integerOf("-9223372036854775808"));
  EXPECT_EQ(std::nullopt, integerOf("9223372036854775808"));
  EXPECT_EQ(std::nullopt, integerOf("-9223372036854775809"));
  EXPECT_EQ(std::nullopt, integerOf("99999999999999999999999999"));
  EXPECT_EQ(5, integerOf("5", 5, 5));
  EXPECT_EQ(std::nullopt, integerOf("4", 5, 5));
  EXPECT_EQ(std::nullopt, integerOf("6", 5, 5));
}

TEST(CppRange, WorksWithStandardAlgorithms) {
  withQuery("a=3&b=1&c=2", [](const tarn::Request &request) {
    const tarn::Entries entries = request.entries();
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [](tarn::Entry entry) { return entry.value() == "1"; });
    ASSERT_NE(entries.end(), found);
    EXPECT_EQ("b", found->name());
    EXPECT_EQ(1, found - entries.begin());
    EXPECT_EQ(1, std::count_if(entries.begin(), entries.end(),
                               [](tarn::Entry entry) { return entry.name() == "c"; }));
    EXPECT_EQ(3, std::distance(entries.begin(), entries.end()));
    Strings backwards;
    std::transform(std::make_reverse_iterator(entries.end()),
                   std::make_reverse_iterator(entries.begin()), std::back_inserter(backwards),
                   [](tarn::Entry entry) { return std::string(entry.value()); });
    EXPECT_EQ((Strings{"2", "1", "3"}), backwards);
  });
}

TEST(CppRange, HasRandomAccessIterators) {
  withQuery("a=0&b=1&c=2", [](const tarn::Request &request) {
    const tarn::Entries entries = request.entries();
    auto at = entries.begin();
    EXPECT_EQ("0", (at++)->value());
    EXPECT_EQ("2", (++at)->value());
    EXPECT_EQ("2", (at--)->value());
    EXPECT_EQ("0", (--at)->value());
    at += 2;
    EXPECT_EQ("2", at->value());
    at -= 1;
    EXPECT_EQ("1", (*at).value());
    EXPECT_EQ("2", at[1].value());
    EXPECT_EQ("0", at[-1].value());
    EXPECT_EQ("2", (at + 1)->value());
    EXPECT_EQ("2", (1 + at)->value());
    EXPECT_EQ("0", (at - 1)->value());
    EXPECT_TRUE(entries.begin() < at && at > entries.begin());
    EXPECT_TRUE(entries.begin() <= at && at >= entries.begin() && at <= at && at >= at);
    EXPECT_FALSE(at < at || at > at || at != at);
    EXPECT_FALSE(at < entries.begin() || at <= entries.begin());
    EXPECT_FALSE(entries.begin() > at || entries.begin() >= at);
  });
}

TEST(CppRequestCookie, IsFoundByItsExactName) {
  asScript({{"HTTP_COOKIE", "guest=Ada%20L; Guest=Grace; guest=late; empty="}}, "", [] {
    const tarn::Request request;
    EXPECT_EQ("Ada L", request.cookie("guest"));
    EXPECT_EQ("Grace", request.cookie("Guest"));
    EXPECT_EQ("", request.cookie("empty"));
    EXPECT_EQ(std::nullopt, request.cookie("GUEST"));
  });
}

// Browsers protect only the literal name. Anyone who can set a cookie can set the other spellings.
TEST(CppRequestCookie, WithAProtectedPrefixIsFoundByItsLiteralNameOnly) {
  struct {
    const char *header;
    const char *name;
    std::optional<std::string_view> expected;
  } const cases[] = {
      {"__Host-id=mine", "__Host-id", "mine"},
      {"__Secure-id=mine", "__Secure-id", "mine"},
      {"__%48ost-id=evil", "__Host-id", std::nullopt},
      {"__%48ost-id=evil; __Host-id=mine", "__Host-id", "mine"},
      {"__Host-id=mine; __%48ost-id=evil", "__Host-id", "mine"},
      {"__Host%2Did=evil", "__Host-id", std::nullopt},
      {"__Host-%69d=evil", "__Host-id", std::nullopt},
      {"%5f_Secure-id=evil", "__Secure-id", std::nullopt},
      {"__Host-+id=evil", "__Host- id", std::nullopt},
      {"__%48ost-id=evil", "__%48ost-id", std::nullopt},
      {"a=1;; x ;__Host-id = %6Dine ;=;", "__Host-id", "mine"},
      {";__%48ost-id=evil; __Host-id=mine", "__Host-id", "mine"},
      {"x=__Host-id; y==__Host-id=evil", "__Host-id", std::nullopt},
      {"__host-id=other; __%68ost-id=evil", "__host-id", "other"},
      {"__%68ost-id=evil", "__host-id", std::nullopt},
      {"__Hos%74=1; __Host=2", "__Host", "1"},
      {"gue%73t=Ada", "guest", "Ada"},
      {"", "__Host-id", std::nullopt},
  };
  for (const auto &each : cases) {
    asScript({{"HTTP_COOKIE", each.header}}, "", [&] {
      const tarn::Request request;
      EXPECT_EQ(each.expected, request.cookie(each.name)) << each.header;
    });
  }
}

// With a cookie missing from the list, another name of the header would be matched with its value.
TEST(CppRequestCookie, WithAProtectedPrefixIsNotFoundIfTheListLacksCookies) {
  asScript({{"HTTP_COOKIE", "__Host-id=mine"}}, "", [] {
    const tarn::Request request;
    EXPECT_EQ("mine", request.cookie("__Host-id"));
    setenv("HTTP_COOKIE", "a=1; __Host-id=mine", 1);
    EXPECT_EQ(std::nullopt, request.cookie("__Host-id"));
    unsetenv("HTTP_COOKIE");
    EXPECT_EQ(std::nullopt, request.cookie("__Host-id"));
  });
}

TEST(CppRequest, IsCompleteIfEverythingArrived) {
  asScript(post("text/plain", "a=1"), "a=1", [] { EXPECT_TRUE(tarn::Request().complete()); });
  asScript(post("text/plain", "a=12"), "a=1", [] {
    tarn::Request request;
    EXPECT_FALSE(request.complete());
    EXPECT_TRUE(request);
    const tarn::Request moved = std::move(request);
    EXPECT_FALSE(moved.complete());
    EXPECT_FALSE(request.complete());  // NOLINT(bugprone-use-after-move)
  });
}

TEST(CppRequestCookie, IsListedWithPiecesThatHaveNoName) {
  asScript({{"HTTP_COOKIE", "a=1; nothing; b=2"}}, "", [] {
    const tarn::Request request;
    const tarn::Cookies cookies = request.cookies();
    ASSERT_EQ(3U, cookies.size());
    EXPECT_EQ("a", cookies[0].name());
    EXPECT_EQ("1", cookies[0].value());
    EXPECT_EQ(std::nullopt, cookies[1].name());
    EXPECT_EQ(std::nullopt, cookies[1].value());
    EXPECT_EQ("b", cookies[2].name());
    EXPECT_EQ(std::nullopt, request.cookie("nothing"));
  });
}

TEST(CppEnvironment, ReadsEveryVariable) {
  using tarn::Environment;
  struct Variable {
    const char *name;
    std::string_view (Environment::*read)() const noexcept;
  };
  const std::vector<Variable> all = {
      {"SERVER_SOFTWARE", &Environment::server_software},
      {"SERVER_NAME", &Environment::server_name},
      {"GATEWAY_INTERFACE", &Environment::gateway_interface},
      {"SERVER_PROTOCOL", &Environment::server_protocol},
      {"HTTP_COOKIE", &Environment::http_cookie},
      {"REQUEST_METHOD", &Environment::request_method},
      {"PATH_INFO", &Environment::path_info},
      {"PATH_TRANSLATED", &Environment::path_translated},
      {"SCRIPT_NAME", &Environment::script_name},
      {"QUERY_STRING", &Environment::query_string},
      {"CONTENT_TYPE", &Environment::content_type},
      {"HTTP_REFERER", &Environment::http_referer},
      {"REMOTE_HOST", &Environment::remote_host},
      {"REMOTE_ADDR", &Environment::remote_addr},
      {"AUTH_TYPE", &Environment::auth_type},
      {"REMOTE_USER", &Environment::remote_user},
      {"REMOTE_IDENT", &Environment::remote_ident},
      {"HTTP_ACCEPT", &Environment::http_accept},
      {"HTTP_USER_AGENT", &Environment::http_user_agent},
      {"REDIRECT_REQUEST", &Environment::redirect_request},
      {"REDIRECT_URL", &Environment::redirect_url},
      {"REDIRECT_STATUS", &Environment::redirect_status},
  };
  Variables variables;
  for (const Variable &variable : all)
    variables[variable.name] = std::string("is ") + variable.name;
  asScript(variables, "", [&all] {
    const tarn::Request request;
    const Environment environment = request.environment();
    for (const Variable &variable : all) {
      EXPECT_EQ(std::string("is ") + variable.name, (environment.*variable.read)());
      unsetenv(variable.name);
      EXPECT_EQ("", (environment.*variable.read)()) << variable.name;
    }
  });
}

TEST(CppEnvironment, ReadsNumbers) {
  asScript({{"SERVER_PORT", "8080"}, {"CONTENT_LENGTH", "12"}}, "", [] {
    const tarn::Request request;
    EXPECT_EQ(8080, request.environment().server_port());
    EXPECT_EQ(12, request.environment().content_length());
    unsetenv("SERVER_PORT");
    EXPECT_EQ(0, request.environment().server_port());
  });
}

TEST(CppEnvironment, DistinguishesAnEmptyVariableFromAnUnsetOne) {
  asScript({{"EMPTY", ""}, {"FULL", "x"}}, "", [] {
    EXPECT_EQ("", tarn::Environment::variable("EMPTY"));
    EXPECT_EQ("x", tarn::Environment::variable("FULL"));
    EXPECT_EQ(std::nullopt, tarn::Environment::variable("UNSET"));
  });
}

TEST(CppEnvironment, RecognizesHttps) {
  asScript({{"HTTPS", "on"}}, "", [] { EXPECT_TRUE(tarn::Request().status() == TARN_OK); });
  for (const auto &[value, expected] :
       std::map<std::string, bool>{{"on", true}, {"ON", false}, {"off", false}, {"", false}}) {
    asScript({{"HTTPS", value}}, "", [expected = expected] {
      const tarn::Request request;
      EXPECT_EQ(expected, request.environment().https());
    });
  }
}

TEST(CppEnvironment, KeepsTheBody) {
  const std::string body = "a=1&b=" + std::string(1, '\0') + "2";
  asScript(post(kUrlEncoded, body), body, [&body] {
    const tarn::Request request;
    EXPECT_EQ(body, request.environment().body());
    EXPECT_EQ("1", request["a"]);
  });
}

}  // namespace
