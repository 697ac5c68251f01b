// The method, the path and the headers of a request, and its query string.
#include <gtest/gtest.h>
#include <tarn.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/script.h"

namespace {

using tarn::Path;
using tarn_test::asScript;

std::vector<std::string> segmentsOf(const Path &path) { return {path.begin(), path.end()}; }

TEST(CppInput, ReadsTheMethodAsItIs) {
  asScript({}, "", [] { EXPECT_EQ("", tarn::request_method()); });
  for (const char *method : {"GET", "POST", "post", "PROPFIND"}) {
    asScript({{"REQUEST_METHOD", method}}, "",
             [method] { EXPECT_EQ(method, tarn::request_method()); });
  }
}

TEST(CppInput, SplitsThePathIntoSegments) {
  using Strings = std::vector<std::string>;
  EXPECT_EQ(Strings(), segmentsOf(Path("")));
  EXPECT_EQ(Strings(), segmentsOf(Path("/")));
  EXPECT_EQ((Strings{"lake"}), segmentsOf(Path("/lake")));
  EXPECT_EQ((Strings{"lake"}), segmentsOf(Path("/lake/")));
  EXPECT_EQ((Strings{"lake", "7", "..."}), segmentsOf(Path("/lake/7/...")));
  EXPECT_EQ((Strings{"%2F", ".x", "..x", "x..", " ", "\\"}),
            segmentsOf(Path("/%2F/.x/..x/x../ /\\")));
  for (const char *text : {"", "/", "/lake", "/lake/", "/lake/7"}) EXPECT_TRUE(Path(text)) << text;
}

TEST(CppInput, APathThatIsNotPlainHasNoSegments) {
  for (const char *text : {"lake", "lake/", ".", "..", "//", "///", "/lake//", "//lake", "/a//b",
                           "/.", "/..", "/./", "/a/..", "/a/../b", "/a/./b", "/../a", "/a/../"}) {
    const Path path(text);
    EXPECT_FALSE(path) << text;
    EXPECT_EQ(0U, path.size()) << text;
    EXPECT_TRUE(path.empty()) << text;
    EXPECT_EQ(path.begin(), path.end()) << text;
    EXPECT_EQ(std::nullopt, path[0]) << text;
    EXPECT_EQ(text, path.text());
  }
}

TEST(CppInput, FindsSegmentsByIndex) {
  const Path path("/lake/7/");
  EXPECT_EQ(2U, path.size());
  EXPECT_FALSE(path.empty());
  EXPECT_EQ("lake", path[0]);
  EXPECT_EQ("7", path[1]);
  EXPECT_EQ(std::nullopt, path[2]);
  EXPECT_EQ(std::nullopt, path[SIZE_MAX]);
  EXPECT_EQ("/lake/7/", path.text());
  EXPECT_EQ(4U, path.begin()->size());
  EXPECT_EQ("lake", *path.begin()++);
}

TEST(CppInput, ReadsThePathOfTheRequest) {
  asScript({}, "", [] { EXPECT_TRUE(tarn::request_path() && tarn::request_path().empty()); });
  asScript({{"PATH_INFO", "/lake/7"}}, "", [] { EXPECT_EQ("7", tarn::request_path()[1]); });
}

TEST(CppInput, FindsHeadersInAnyCase) {
  asScript({{"HTTP_ACCEPT_LANGUAGE", "de, en"}, {"HTTP_X_2", ""}}, "", [] {
    EXPECT_EQ("de, en", tarn::request_header("Accept-Language"));
    EXPECT_EQ("de, en", tarn::request_header("accept-LANGUAGE"));
    EXPECT_EQ("de, en", tarn::request_header(std::string_view("Accept-Languages", 15)));
    EXPECT_EQ("", tarn::request_header("X-2")) << "a header that is empty";
    EXPECT_EQ(std::nullopt, tarn::request_header("Accept"));
  });
}

TEST(CppInput, FindsTheTypeAndTheLengthOfTheBody) {
  asScript({{"CONTENT_TYPE", "text/plain"}, {"CONTENT_LENGTH", "3"}, {"HTTP_CONTENT_TYPE", "x"}},
           "abc", [] {
             EXPECT_EQ("text/plain", tarn::request_header("Content-Type"));
             EXPECT_EQ("3", tarn::request_header("content-length"));
           });
  asScript({{"CONTENT_TYPE", ""}, {"HTTP_CONTENT_TYPE", "x"}}, "", [] {
    EXPECT_EQ(std::nullopt, tarn::request_header("Content-Type"));
    EXPECT_EQ(std::nullopt, tarn::request_header("Content-Length"));
  });
}

TEST(CppInput, OtherNamesHaveNoHeader) {
  const std::string longest(100, 'x');
  const std::string longer(101, 'x');
  asScript({{"HTTP_PROXY", "http://proxy.example:3128"},
            {"HTTP_", "x"},
            {"HTTP_A_B", "1"},
            {"HTTP_A B", "x"},
            {"HTTP_\xC3\xA9", "x"},
            {"HTTP_" + std::string(100, 'X'), "1"},
            {"HTTP_" + std::string(101, 'X'), "x"},
            {"PATH", "/bin"}},
           "", [&longest, &longer] {
             for (const std::string_view name :
                  {std::string_view("Proxy"), std::string_view("PROXY"), std::string_view(""),
                   std::string_view("A_B"), std::string_view("A B"), std::string_view("a b"),
                   std::string_view("\u00E9"), std::string_view("a:b"), std::string_view("a\r\n"),
                   std::string_view("A-B\0", 4), std::string_view(longer)}) {
               EXPECT_EQ(std::nullopt, tarn::request_header(name)) << name;
             }
             EXPECT_EQ("1", tarn::request_header("A-B"));
             EXPECT_EQ("1", tarn::request_header(longest));
           });
}

TEST(CppQuery, IsApartFromTheForm) {
  tarn_test::Variables variables = tarn_test::post("application/x-www-form-urlencoded", "id=form");
  variables["QUERY_STRING"] = "id=7&tag=a+b&tag=%26&id=8";
  asScript(variables, "id=form", [] {
    const tarn::Query query;
    const tarn::Form form;
    EXPECT_TRUE(query);
    EXPECT_EQ("7", query["id"]);
    EXPECT_EQ(7, *tarn::integer(query["id"]));
    EXPECT_EQ(std::nullopt, query["ID"]);
    EXPECT_EQ(4U, query.size());
    std::string tags;
    for (const std::string_view tag : query.all("tag")) tags += std::string(tag) + ";";
    EXPECT_EQ("a b;&;", tags);
    EXPECT_EQ("form", form["id"]);
  });
}

TEST(CppQuery, HasLimits) {
  asScript({{"QUERY_STRING", "a&b&c"}, {"REQUEST_METHOD", "PUT"}}, "", [] {
    const tarn::Query query(tarn::FormLimits().fields(2));
    EXPECT_FALSE(query);
    EXPECT_EQ(413, query.problem().status());
    EXPECT_TRUE(query.empty());
  });
  asScript({}, "", [] {
    const tarn::Query query;
    EXPECT_TRUE(query);
    EXPECT_TRUE(query.empty());
  });
}

TEST(CppBody, IsReadWithAnyMethodUpToALimit) {
  const std::string body = "{\"cake\": 1}";
  for (const char *method : {"POST", "PUT", "PATCH", "DELETE", "REPORT"}) {
    tarn_test::Variables variables = tarn_test::post("application/json", body);
    variables["REQUEST_METHOD"] = method;
    asScript(variables, body, [&body] {
      tarn::FormReader form(tarn::FormLimits().body_size(body.size()).text_size(body.size()));
      EXPECT_EQ(body, form.body().text());
      EXPECT_TRUE(form.is_whole());
    });
    for (const auto &limits : {tarn::FormLimits().body_size(body.size() - 1),
                               tarn::FormLimits().text_size(body.size() - 1)}) {
      asScript(variables, body, [&limits] {
        tarn::FormReader form(limits);
        EXPECT_EQ(std::nullopt, form.body().text());
        EXPECT_EQ(413, form.problem().status());
      });
    }
  }
}

}  // namespace
