// Choosing a function by method and path.
#include <gtest/gtest.h>
#include <tarn.hpp>

#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "output.h"
#include "support/failing_memory.h"
#include "support/script.h"

namespace {

using tarn::PathValues;
using tarn::Router;

// Which routes of a small site a request has.
std::string routed(std::string_view method, std::string_view path) {
  std::string called;
  testing::internal::CaptureStdout();
  Router router(method, path);
  router.route("GET", "/", [&called] { called += "home"; })
      .route("GET", "/item/new", [&called] { called += "new"; })
      .route("GET", "/item/{id}",
             [&called](const PathValues &values) { called.append("item ").append(*values["id"]); })
      .route("POST", "/item/{id}", [&called] { called += "change"; })
      .route("DELETE", "/item/{id}", [&called] { called += "delete"; })
      .route("GET", "/{folder}/{file}/", [&called](const PathValues &values) {
        called.append(*values["folder"]).append(" and ").append(*values["file"]);
      });
  EXPECT_EQ(0, router.finish());
  const std::string sent = testing::internal::GetCapturedStdout();
  EXPECT_EQ(called.empty(), !sent.empty());
  tarn_test::keepAnswer(sent);
  return called + sent.substr(0, sent.find("\r\nContent-Length"));
}

constexpr char kNotFound[] = "Status: 404 Not Found\r\nContent-Type: text/plain; charset=utf-8";

std::string notAllowed(const std::string &methods) {
  return "Status: 405 Method Not Allowed\r\nContent-Type: text/plain; charset=utf-8\r\nAllow: " +
         methods;
}

TEST(Router, CallsTheFirstRouteThatMatches) {
  EXPECT_EQ("home", routed("GET", "/"));
  EXPECT_EQ("home", routed("GET", ""));
  EXPECT_EQ("new", routed("GET", "/item/new"));
  EXPECT_EQ("item newer", routed("GET", "/item/newer"));
  EXPECT_EQ("change", routed("POST", "/item/new"));
  EXPECT_EQ("delete", routed("DELETE", "/item/7"));
  EXPECT_EQ("a and b", routed("GET", "/a/b/"));
  EXPECT_EQ("item and 7", routed("GET", "/item/7/"));
}

TEST(Router, TakesHeadForGet) { EXPECT_EQ("item 7", routed("HEAD", "/item/7")); }

TEST(Router, ComparesMethodsExactly) {
  EXPECT_EQ(notAllowed("GET, HEAD"), routed("get", "/"));
  EXPECT_EQ(notAllowed("GET, HEAD"), routed("", "/"));
}

TEST(Router, AnswersOtherMethodsWithThoseOfThePath) {
  EXPECT_EQ(notAllowed("GET, HEAD"), routed("POST", "/"));
  EXPECT_EQ(notAllowed("GET, HEAD, POST, DELETE"), routed("PUT", "/item/new"));
  EXPECT_EQ(notAllowed("GET, HEAD, POST, DELETE"), routed("OPTIONS", "/item/x"));
}

TEST(Router, AnswersOtherPathsWithNotFound) {
  for (const char *path : {"//", "/item", "/item/", "/item//", "/item/7/8", "/item/7//", "item/7",
                           "/Item/new/x", "/ /", "/{id}"}) {
    EXPECT_EQ(kNotFound, routed("GET", path)) << path;
    EXPECT_EQ(kNotFound, routed("POST", path)) << path;
  }
}

TEST(Router, PlaceholdersAreNeverDots) {
  for (const char *path : {"/item/.", "/item/..", "/../x/", "/x/../", "/./x/"}) {
    EXPECT_EQ(kNotFound, routed("GET", path)) << path;
  }
  EXPECT_EQ("item ...", routed("GET", "/item/..."));
  EXPECT_EQ("item .htaccess", routed("GET", "/item/.htaccess"));
  EXPECT_EQ("item ..\\x", routed("GET", "/item/..\\x"));
}

TEST(Router, ABraceWithoutANameIsText) {
  int called = 0;
  const auto count = [&called] { ++called; };
  for (const char *path : {"/{}", "/{", "/}", "/{a", "/a}", "/x{a}"}) {
    EXPECT_EQ(0, Router("GET", path).route("GET", path, count).finish()) << path;
  }
  EXPECT_EQ(6, called);
  testing::internal::CaptureStdout();
  EXPECT_EQ(0, Router("GET", "/xb").route("GET", "/x{a}", count).finish());
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(6, called);
}

TEST(Router, ValuesHaveTheNamesOfThePattern) {
  const PathValues values("/{a}/b/{long name}", "/1/b/2");
  EXPECT_EQ("1", values["a"]);
  EXPECT_EQ("2", values["long name"]);
  for (const char *name : {"b", "", "{a}", "long", "c"}) EXPECT_EQ(std::nullopt, values[name]);
}

TEST(Router, ReturnsTheStatusOfTheFunction) {
  const auto three = [] { return 3; };
  const auto by_value = [](const PathValues &values) { return values["n"] == "4" ? 4 : 0; };
  EXPECT_EQ(3, Router("GET", "/").route("GET", "/", three).finish());
  EXPECT_EQ(4, Router("GET", "/4").route("GET", "/{n}", by_value).finish());
  Router twice("GET", "/");
  twice.route("GET", "/", three);
  EXPECT_EQ(3, twice.finish());
  EXPECT_EQ(3, twice.finish());
}

TEST(Router, AnswersOnce) {
  testing::internal::CaptureStdout();
  Router router("GET", "/nowhere");
  EXPECT_EQ(0, router.finish());
  EXPECT_EQ(0, router.finish());
  router.route("GET", "/nowhere", [] { ADD_FAILURE(); });
  const std::string sent = testing::internal::GetCapturedStdout();
  EXPECT_EQ(sent.find("Status"), sent.rfind("Status"));
}

TEST(Router, ReadsTheRequestOfTheProcess) {
  setenv("REQUEST_METHOD", "GET", 1);
  setenv("PATH_INFO", "/item/7", 1);
  std::string id;
  const auto keep = [&id](const PathValues &values) { id = *values["id"]; };
  EXPECT_EQ(0, Router().route("GET", "/item/{id}", keep).finish());
  EXPECT_EQ("7", id);
  unsetenv("PATH_INFO");
  EXPECT_EQ(5, Router().route("GET", "/", [] { return 5; }).finish());
  unsetenv("REQUEST_METHOD");
}

// What the free function answers to the request of the process.
std::string routedFreely(const char *method, const char *path) {
  setenv("REQUEST_METHOD", method, 1);
  setenv("PATH_INFO", path, 1);
  std::string called;
  testing::internal::CaptureStdout();
  const auto item = [&called](const PathValues &values) { called.append(*values["id"]); };
  const int status = tarn::route("GET", "/", [&called] { called = "list"; })
                         .route("GET", "/item/{id}", item)
                         .route("POST", "/item/{id}", [] { return 3; })
                         .finish();
  const std::string sent = testing::internal::GetCapturedStdout();
  unsetenv("REQUEST_METHOD");
  unsetenv("PATH_INFO");
  EXPECT_EQ(status == 3, called.empty() && sent.empty());
  return called + sent.substr(0, sent.find("\r\nContent-Length"));
}

TEST(Router, BeginsWithAFunction) {
  EXPECT_EQ("list", routedFreely("GET", "/"));
  EXPECT_EQ("list", routedFreely("HEAD", ""));
  EXPECT_EQ("7", routedFreely("GET", "/item/7"));
  EXPECT_EQ("7", routedFreely("HEAD", "/item/7"));
  EXPECT_EQ("", routedFreely("POST", "/item/7"));
  EXPECT_EQ(kNotFound, routedFreely("GET", "/item/7/8"));
  EXPECT_EQ(notAllowed("GET, HEAD"), routedFreely("POST", "/"));
  EXPECT_EQ(notAllowed("GET, HEAD, POST"), routedFreely("PUT", "/item/7"));
}

TEST(Router, OfTheFunctionCanHaveAName) {
  setenv("REQUEST_METHOD", "GET", 1);
  setenv("PATH_INFO", "/b", 1);
  Router router = tarn::route("GET", "/a", [] { return 1; });
  router.route("GET", "/b", [] { return 2; });
  EXPECT_EQ(2, router.finish());
  unsetenv("REQUEST_METHOD");
  unsetenv("PATH_INFO");
}

TEST(Router, DoesNothingAfterItWasMovedFrom) {
  testing::internal::CaptureStdout();
  Router router("GET", "/b");
  router.route("PUT", "/b", [] {});
  Router moved = std::move(router);
  router.route("GET", "/b", [] { return 2; });
  EXPECT_EQ(1, router.finish());
  EXPECT_EQ("", testing::internal::GetCapturedStdout());
  testing::internal::CaptureStdout();
  EXPECT_EQ(0, moved.finish());
  EXPECT_EQ(0U, testing::internal::GetCapturedStdout().find(notAllowed("PUT")));
}

TEST(RouterAtEachFailure, AnswersWithStatus500) {
  tarn_test::forEachFailingAllocation([](tarn_test::FailingMemory &memory) {
    testing::internal::CaptureStdout();
    Router router("PUT", "/");
    const int status = memory.call([&router] {
      router.route("GET", "/", [] {});
      return router.finish();
    });
    const std::string sent = testing::internal::GetCapturedStdout();
    EXPECT_EQ(memory.failed() ? 1 : 0, status);
    EXPECT_EQ(0U, sent.find(memory.failed() ? "Status: 500 " : "Status: 405 ")) << sent;
  });
}

}  // namespace
