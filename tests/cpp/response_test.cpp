// Responses: the header, line by line, and the body.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>

#include "output.h"
#include "support/failing_memory.h"
#include "support/script.h"
#include "tarn.hpp"

namespace {

using namespace std::literals;

using tarn::Element;
using tarn::Response;
using tarn::SameSite;
using tarn::SetCookie;
using tarn_test::Output;

const std::string kFailure =
    "Status: 500 Internal Server Error\r\n"
    "Content-Type: text/plain; charset=utf-8\r\n"
    "Content-Length: 22\r\n"
    "\r\n"
    "Internal Server Error\n";

// The header lines between the content type and the length, which `say` adds to a response.
template <class Say>
std::string linesOf(Say say) {
  Output out;
  Response response(out);
  say(response);
  EXPECT_TRUE(response.send()) << response.problem();
  EXPECT_EQ(nullptr, response.problem());
  const std::string_view before = "Content-Type: text/plain; charset=utf-8\r\n";
  const std::string_view after = "Content-Length: 0\r\n\r\n";
  std::string answer = out.written();
  const size_t start = answer.find(before);
  const size_t end = answer.find(after);
  EXPECT_EQ(answer.size(), end + after.size());
  EXPECT_NE(std::string::npos, start);
  return answer.erase(end).erase(start, before.size());
}

// Why a response is refused. Expects that the visitor gets the plain failure page and nothing else.
template <class Say>
std::string problemOf(Say say) {
  Output out;
  Response response(out);
  response.header("X-Before", "1").cookie(SetCookie("before", "1"));
  say(response);
  response.header("X-After", "1");
  EXPECT_FALSE(response.send_text("text"));
  EXPECT_EQ(kFailure, out.written());
  return response.problem() ? response.problem() : "none";
}

std::string cookie(const SetCookie &cookie) {
  return linesOf([&](Response &response) { response.cookie(cookie); });
}

std::string problemOf(const SetCookie &cookie) {
  return problemOf([&](Response &response) { response.cookie(cookie); });
}

// ---- Bodies -------------------------------------------------------------------------------------

TEST(Response, SendsAPageAsHtmlInUtf8) {
  Output out;
  EXPECT_TRUE(Response(out).send(Element("html", Element("body", "1 < 2"))));
  EXPECT_EQ(
      "Content-Type: text/html; charset=utf-8\r\n"
      "Content-Length: 50\r\n"
      "\r\n"
      "<!DOCTYPE html>\n<html><body>1 &lt; 2</body></html>",
      out.written());
}

TEST(Response, SendsATextAsPlainTextInUtf8) {
  Output out;
  EXPECT_TRUE(Response(out).send_text("<b>\0é"sv));
  EXPECT_EQ(
      "Content-Type: text/plain; charset=utf-8\r\n"
      "Content-Length: 6\r\n"
      "\r\n"
      "<b>\0é"sv,
      out.written());
}

TEST(Response, SendsJson) {
  tarn::JsonWriter json;
  Output out;
  EXPECT_TRUE(Response(out).send_json(json.begin_array().value("é").end_array().take()));
  EXPECT_EQ("Content-Type: application/json\r\nContent-Length: 6\r\n\r\n[\"é\"]", out.written());
}

TEST(Response, RefusesWhatIsNotWholeJson) {
  tarn::JsonWriter json;
  Output out;
  Response response(out);
  EXPECT_FALSE(response.send_json(json.begin_array().take()));
  EXPECT_STREQ("JSON: the value is not complete", response.problem());
  EXPECT_EQ(kFailure, out.written());
}

TEST(Response, SendsBytesUnchanged) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  Output out;
  EXPECT_TRUE(Response(out).content_type("image/png").send_bytes(bytes));
  EXPECT_EQ("Content-Type: image/png\r\nContent-Length: 256\r\n\r\n" + bytes, out.written());
}

TEST(Response, SendsBytesAsOctetStream) {
  Output out;
  EXPECT_TRUE(Response(out).send_bytes("x"));
  EXPECT_EQ("Content-Type: application/octet-stream\r\nContent-Length: 1\r\n\r\nx", out.written());
}

TEST(Response, HasLength0WithoutContent) {
  Output out;
  EXPECT_TRUE(Response(out).send());
  EXPECT_EQ("Content-Type: text/plain; charset=utf-8\r\nContent-Length: 0\r\n\r\n", out.written());
}

TEST(Response, UsesTheLastContentType) {
  Output out;
  EXPECT_TRUE(Response(out).content_type("a/b").content_type("text/csv").send_text(""));
  EXPECT_EQ("Content-Type: text/csv\r\nContent-Length: 0\r\n\r\n", out.written());
}

TEST(Response, RefusesInvalidContentTypes) {
  for (const std::string_view type : {""sv, "a/b\r\nX: y"sv, "a/b\n"sv, "a\0b"sv, "a\x7F"sv}) {
    EXPECT_EQ("invalid content type",
              problemOf([&](Response &response) { response.content_type(type); }));
  }
}

TEST(Response, WritesHeadersInOneOrderWhateverTheOrderOfTheCalls) {
  Output out;
  EXPECT_TRUE(Response(out)
                  .cookie(SetCookie("a", "1"))
                  .header("X-A", "1")
                  .redirect("/done")
                  .cookie(SetCookie("b", "2"))
                  .content_type("text/plain")
                  .header("X-B", "2")
                  .send_text("done"));
  EXPECT_EQ(
      "Status: 303 See Other\r\n"
      "Content-Type: text/plain\r\n"
      "Location: /done\r\n"
      "X-A: 1\r\n"
      "X-B: 2\r\n"
      "Set-Cookie: a=1; Path=/; HttpOnly; SameSite=Lax\r\n"
      "Set-Cookie: b=2; Path=/; HttpOnly; SameSite=Lax\r\n"
      "Content-Length: 4\r\n"
      "\r\n"
      "done",
      out.written());
}

TEST(Response, WritesToStandardOutput) {
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  tarn_test::asScript({}, "", [&] {
    dup2(ends[1], STDOUT_FILENO);
    EXPECT_TRUE(Response().send_text("hi"));
    close(STDOUT_FILENO);
  });
  close(ends[1]);
  char text[200];
  const ssize_t length = read(ends[0], text, sizeof text);
  close(ends[0]);
  ASSERT_GT(length, 0);
  EXPECT_EQ("Content-Type: text/plain; charset=utf-8\r\nContent-Length: 2\r\n\r\nhi",
            std::string_view(text, static_cast<size_t>(length)));
}

TEST(Response, IsSentOnce) {
  Output out;
  Response response(out);
  response.header("X-First", "1").cookie(SetCookie("first", "1"));
  EXPECT_TRUE(response.send_text("first"));
  const std::string first = out.written();
  response.header("X-Late", "1").cookie(SetCookie("late", "1"));
  EXPECT_FALSE(response.send_text("second"));
  EXPECT_STREQ("response was already sent", response.problem());
  EXPECT_FALSE(response.send(Element("p")));
  EXPECT_EQ(first, out.written());
}

// ---- HEAD ---------------------------------------------------------------------------------------

TEST(Response, SendsOnlyTheHeaderForAHeadRequest) {
  tarn_test::asScript({{"REQUEST_METHOD", "HEAD"}}, "", [] {
    Output out;
    EXPECT_TRUE(Response(out).send_text("text"));
    EXPECT_EQ("Content-Type: text/plain; charset=utf-8\r\nContent-Length: 4\r\n\r\n",
              out.written());
  });
}

TEST(Response, SendsABodyForAnyOtherRequest) {
  for (const char *method : {"GET", "POST", "head", "HEADER", ""}) {
    tarn_test::asScript({{"REQUEST_METHOD", method}}, "", [] {
      Output out;
      EXPECT_TRUE(Response(out).send_text("text"));
      EXPECT_EQ("Content-Type: text/plain; charset=utf-8\r\nContent-Length: 4\r\n\r\ntext",
                out.written());
    });
  }
}

TEST(Response, SendsOnlyTheHeaderIfTheScriptAsksForIt) {
  Output alone;
  EXPECT_TRUE(Response(alone).head(true).send_text("text"));
  EXPECT_EQ("Content-Type: text/plain; charset=utf-8\r\nContent-Length: 4\r\n\r\n",
            alone.written());
  tarn_test::asScript({{"REQUEST_METHOD", "HEAD"}}, "", [] {
    Output whole;
    EXPECT_TRUE(Response(whole).head(false).send_text("text"));
    EXPECT_EQ("Content-Type: text/plain; charset=utf-8\r\nContent-Length: 4\r\n\r\ntext",
              whole.written());
  });
}

TEST(Response, SendsNoBodyForAHeadRequestIfRefused) {
  Output out;
  EXPECT_FALSE(Response(out).head(true).status(0).send_text("text"));
  EXPECT_EQ(kFailure.substr(0, kFailure.find("\r\n\r\n") + 4), out.written());
}

// ---- Status -------------------------------------------------------------------------------------

TEST(Response, WritesTheStatus) {
  const std::pair<int, std::string> kCases[] = {
      {200, ""},
      {201, "Status: 201 Created\r\n"},
      {299, "Status: 299 Other\r\n"},
      {403, "Status: 403 Forbidden\r\n"},
      {404, "Status: 404 Not Found\r\n"},
      {405, "Status: 405 Method Not Allowed\r\n"},
      {416, "Status: 416 Range Not Satisfiable\r\n"},
      {451, "Status: 451 Unavailable For Legal Reasons\r\n"},
      {503, "Status: 503 Service Unavailable\r\n"},
      {599, "Status: 599 Other\r\n"},
  };
  for (const auto &one : kCases) {
    EXPECT_EQ(one.second, linesOf([&](Response &response) { response.status(one.first); }));
  }
}

TEST(Response, UsesTheLastStatus) {
  EXPECT_EQ("", linesOf([](Response &response) { response.status(404).status(200); }));
}

TEST(Response, SendsNoContentIfTheStatusForbidsIt) {
  const std::pair<int, std::string> kCases[] = {{204, "Status: 204 No Content\r\nX: 1\r\n\r\n"},
                                                {205, "Status: 205 Reset Content\r\nX: 1\r\n\r\n"},
                                                {304, "Status: 304 Not Modified\r\nX: 1\r\n\r\n"}};
  for (const auto &[status, answer] : kCases) {
    Output out;
    EXPECT_TRUE(Response(out).header("X", "1").status(status).send_text("text"));
    EXPECT_EQ(answer, out.written());
  }
}

TEST(Response, RefusesStatusesBelow200AndAbove599) {
  for (const int status : {0, -1, 99, 100, 199, 600, 1000, std::numeric_limits<int>::max()}) {
    EXPECT_EQ("status must be 200 to 599",
              problemOf([&](Response &response) { response.status(status); }));
  }
}

// ---- Redirects ----------------------------------------------------------------------------------

std::string redirection(std::string_view path) {
  return linesOf([&](Response &response) { response.redirect(path); });
}

TEST(Response, RedirectsToAPathOfItsSite) {
  for (const std::string path : {"/", "/done", "/a/b?c=d&e=%20#f", "/.//x", "/x//y"}) {
    EXPECT_EQ("Status: 303 See Other\r\nLocation: " + path + "\r\n", redirection(path));
  }
}

TEST(Response, RefusesToRedirectToOtherSitesAndInvalidPaths) {
  for (const std::string_view path :
       {""sv, "done"sv, "//evil.example"sv, "\\\\evil.example"sv, "http://evil.example/"sv,
        "javascript:alert(1)"sv, "?a"sv, " /x"sv}) {
    EXPECT_EQ("redirect path must start with a single '/'",
              problemOf([&](Response &response) { response.redirect(path); }))
        << path;
  }
  for (const std::string_view path : {"/\\evil.example"sv, "/a b"sv, "/\t/evil"sv, "/\r\nX: y"sv,
                                      "/x\n"sv, "/\0"sv, "/é"sv, "/<"sv, "/\""sv, "/x\x7F"sv}) {
    EXPECT_EQ("redirect target contains a character that must be escaped",
              problemOf([&](Response &response) { response.redirect(path); }))
        << path;
  }
}

TEST(Response, RedirectsAwayToAnotherSite) {
  for (const std::string url : {"http://a.example", "https://a.example/b?c#d", "HTTPS://a/"}) {
    EXPECT_EQ("Status: 303 See Other\r\nLocation: " + url + "\r\n",
              linesOf([&](Response &response) { response.redirect_away(url); }));
  }
}

TEST(Response, RefusesToRedirectAwayToInvalidUrls) {
  for (const std::string_view url :
       {""sv, "/done"sv, "a.example"sv, "//a.example"sv, "http:"sv, "http:/a"sv, "http://"sv,
        "https:///a"sv, "http://?a"sv, "https://#"sv, "ftp://a/"sv, "javascript:alert(1)"sv}) {
    EXPECT_EQ("redirect URL must start with http:// or https:// and a host",
              problemOf([&](Response &response) { response.redirect_away(url); }))
        << url;
  }
  for (const std::string_view url : {"https://a/\r\nX: y"sv, "https://a /"sv, "https://é/"sv,
                                     "https://a\\b"sv, "https://a/\0"sv}) {
    EXPECT_EQ("redirect target contains a character that must be escaped",
              problemOf([&](Response &response) { response.redirect_away(url); }))
        << url;
  }
}

TEST(Response, RedirectsWithAnyRedirectStatus) {
  const std::pair<int, std::string> kCases[] = {{301, "301 Moved Permanently"},
                                                {302, "302 Found"},
                                                {303, "303 See Other"},
                                                {307, "307 Temporary Redirect"},
                                                {308, "308 Permanent Redirect"}};
  for (const auto &one : kCases) {
    const std::string lines = "Status: " + one.second + "\r\nLocation: /\r\n";
    EXPECT_EQ(lines, linesOf([&](Response &response) { response.redirect("/", one.first); }));
  }
}

TEST(Response, RefusesToRedirectWithAnyOtherStatus) {
  for (const int code : {0, 200, 300, 304, 305, 309, 404}) {
    EXPECT_EQ("redirect status must be 301, 302, 303, 307 or 308",
              problemOf([&](Response &response) { response.redirect("/", code); }));
    EXPECT_EQ("redirect status must be 301, 302, 303, 307 or 308",
              problemOf([&](Response &response) { response.redirect_away("http://a/", code); }));
  }
}

TEST(Response, UsesTheLastRedirect) {
  EXPECT_EQ("Status: 302 Found\r\nLocation: /b\r\n",
            linesOf([](Response &response) { response.redirect("/a").redirect("/b", 302); }));
}

// ---- Headers ------------------------------------------------------------------------------------

std::string header(std::string_view name, std::string_view value) {
  return linesOf([&](Response &response) { response.header(name, value); });
}

std::string problemOfHeader(std::string_view name, std::string_view value) {
  return problemOf([&](Response &response) { response.header(name, value); });
}

TEST(Response, AddsHeadersOfAnyName) {
  EXPECT_EQ("X-A: b\r\n", header("X-A", "b"));
  EXPECT_EQ("a!#$%&'*+-.^_`|~9: \r\n", header("a!#$%&'*+-.^_`|~9", ""));
  EXPECT_EQ("X: a\tb \"c\"; d=é\xFF\r\n", header("X", "a\tb \"c\"; d=é\xFF"));
}

TEST(Response, KeepsRepeatedHeadersInOrder) {
  EXPECT_EQ("Link: <a>\r\nX: 1\r\nLink: <b>\r\n", linesOf([](Response &response) {
              response.header("Link", "<a>").header("X", "1").header("Link", "<b>");
            }));
}

TEST(Response, RefusesInvalidHeaderNames) {
  for (const std::string_view name :
       {""sv, " "sv, "a b"sv, "a:"sv, ":"sv, "a\r\nb"sv, "a\n"sv, "a\0"sv, "a\t"sv, "é"sv, "a(b"sv,
        "a/b"sv, "a\"b"sv, "a\x7F"sv, " X"sv, "X "sv}) {
    EXPECT_EQ("invalid header name", problemOfHeader(name, "v")) << name;
  }
}

TEST(Response, RefusesControlCharactersOtherThanTabsInHeaderValues) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string value = std::string("a") + static_cast<char>(byte) + "b";
    if ((byte < ' ' && byte != '\t') || byte == 0x7F) {
      EXPECT_EQ("header value contains a control character", problemOfHeader("X", value)) << byte;
    } else {
      EXPECT_EQ("X: " + value + "\r\n", header("X", value)) << byte;
    }
  }
}

TEST(Response, RefusesLineEndsInHeaderValues) {
  for (const std::string_view value :
       {"a\r\nSet-Cookie: b=c"sv, "a\n\n<script>"sv, "a\r"sv, "\n"sv, "a\r\n b"sv}) {
    EXPECT_EQ("header value contains a control character", problemOfHeader("X", value));
  }
}

TEST(Response, RefusesHeadersThatResponseOrTheServerWrites) {
  for (const char *name : {"Status", "Content-Type", "Location", "Set-Cookie", "Content-Length",
                           "Connection", "Transfer-Encoding", "status", "SET-COOKIE", "ETag",
                           "last-modified", "Content-Disposition"}) {
    EXPECT_EQ("header() cannot add a header that Response or the server writes",
              problemOfHeader(name, "v"))
        << name;
  }
}

TEST(Response, HasFunctionsForCommonHeaders) {
  EXPECT_EQ(
      "Cache-Control: no-store\r\n"
      "X-Content-Type-Options: nosniff\r\n"
      "X-Frame-Options: DENY\r\n"
      "Referrer-Policy: no-referrer\r\n"
      "Content-Security-Policy: default-src 'self'\r\n"
      "Content-Language: en\r\n"
      "Allow: GET, POST\r\n"
      "ETag: \"v1\"\r\n",
      linesOf([](Response &response) {
        response.no_store()
            .nosniff()
            .deny_framing()
            .no_referrer()
            .content_security_policy("default-src 'self'")
            .content_language("en")
            .allow("GET, POST")
            .etag("v1");
      }));
}

TEST(Response, RefusesLineEndsInCommonHeadersToo) {
  const char *const kProblem = "header value contains a control character";
  EXPECT_EQ(kProblem, problemOf([](Response &r) { r.content_security_policy("a\r\nb"); }));
  EXPECT_EQ(kProblem, problemOf([](Response &r) { r.content_language("a\n"); }));
  EXPECT_EQ(kProblem, problemOf([](Response &r) { r.allow("\r"); }));
}

TEST(Response, AcceptsOnlyValidEtags) {
  EXPECT_EQ("ETag: \"\"\r\n", linesOf([](Response &response) { response.etag(""); }));
  EXPECT_EQ("ETag: \"!#'\\~\xFF\"\r\n",
            linesOf([](Response &response) { response.etag("!#'\\~\xFF"); }));
  for (const std::string_view tag : {"\""sv, "a b"sv, "a\r\nb"sv, "\0"sv, "\t"sv, "\x7F"sv}) {
    EXPECT_EQ("invalid etag", problemOf([&](Response &response) { response.etag(tag); }));
  }
}

TEST(Response, WritesTheTimeOfTheLastChange) {
  const std::pair<std::time_t, std::string> kCases[] = {
      {0, "Thu, 01 Jan 1970 00:00:00 GMT"},
      {784111777, "Sun, 06 Nov 1994 08:49:37 GMT"},
      {1709251199, "Thu, 29 Feb 2024 23:59:59 GMT"},
      {-1, "Wed, 31 Dec 1969 23:59:59 GMT"},
  };
  for (const auto &one : kCases) {
    EXPECT_EQ("Last-Modified: " + one.second + "\r\n",
              linesOf([&](Response &response) { response.last_modified(one.first); }));
  }
}

// With a 32-bit time_t there are no such years.
TEST(Response, RefusesYearsWithoutFourDigits) {
  if constexpr (sizeof(std::time_t) > 4) {
    constexpr auto kLastSecond = static_cast<std::time_t>(253402300799);
    EXPECT_EQ("Last-Modified: Fri, 31 Dec 9999 23:59:59 GMT\r\n",
              linesOf([&](Response &response) { response.last_modified(kLastSecond); }));
    for (const std::time_t when : {kLastSecond + 1, std::numeric_limits<std::time_t>::max(),
                                   std::numeric_limits<std::time_t>::min()}) {
      EXPECT_EQ("last_modified() takes the years 0 to 9999",
                problemOf([&](Response &response) { response.last_modified(when); }));
    }
  }
}

std::string attachment(std::string_view name) {
  return linesOf([&](Response &response) { response.attachment(name); });
}

TEST(Response, NamesAnAttachmentInAnyScript) {
  const std::string start = "Content-Disposition: attachment";
  EXPECT_EQ(start + "; filename=\"lake data.bin\"\r\n", attachment("lake data.bin"));
  EXPECT_EQ(start + "; filename=\"gr__e.txt\"; filename*=UTF-8''gr%C3%BC%C3%9Fe.txt\r\n",
            attachment("grüße.txt"));
  EXPECT_EQ(start + "; filename=\"__.txt\"; filename*=UTF-8''%E6%B9%96%F0%9F%A6%86.txt\r\n",
            attachment("湖🦆.txt"));
}

TEST(Response, QuotesTheNameOfAnAttachment) {
  const std::string start = "Content-Disposition: attachment; filename=";
  EXPECT_EQ(start + "\"_a_; x=1.txt\"; filename*=UTF-8''%22a%22%3B%20x%3D1.txt\r\n",
            attachment("\"a\"; x=1.txt"));
  EXPECT_EQ(start + "\"100_41.txt\"; filename*=UTF-8''100%2541.txt\r\n", attachment("100%41.txt"));
}

TEST(Response, NamesAnAttachmentWithoutFoldersAndControlCharacters) {
  const std::string start = "Content-Disposition: attachment";
  EXPECT_EQ(start + "; filename=\"passwd\"\r\n", attachment("../../etc/passwd"));
  EXPECT_EQ(start + "; filename=\"a.exe\"\r\n", attachment("C:\\Users\\a.exe"));
  EXPECT_EQ(start + "; filename=\"a__X_b_.txt\"\r\n", attachment("a\r\nX\0b\x7F.txt"sv));
  // Next line, right-to-left override, an isolate, a line separator.
  for (const std::string character : {"\u0085", "\u202E", "\u2066", "\u2028"}) {
    EXPECT_EQ(start + "; filename=\"a_txt.exe\"\r\n", attachment("a" + character + "txt.exe"));
  }
  EXPECT_EQ(start + "; filename=\"a_.txt\"; filename*=UTF-8''a%EF%BF%BD.txt\r\n",
            attachment("a\xFF.txt"));
  for (const std::string_view none : {"", "/", "a/", "a\\"}) {
    EXPECT_EQ(start + "\r\n", attachment(none));
  }
}

// ---- Errors -------------------------------------------------------------------------------------

TEST(Response, SendsAPageForAnError) {
  Output out;
  EXPECT_TRUE(Response(out).send_error(404));
  EXPECT_EQ(
      "Status: 404 Not Found\r\n"
      "Content-Type: text/html; charset=utf-8\r\n"
      "Cache-Control: no-store\r\n"
      "Content-Length: 111\r\n"
      "\r\n"
      "<!DOCTYPE html>\n<html lang=\"en\"><head><title>404 Not Found</title></head>"
      "<body><h1>Not Found</h1></body></html>",
      out.written());
}

TEST(Response, EscapesTheTextOfAnError) {
  Output out;
  EXPECT_TRUE(Response(out).send_error(422, "<script>&"));
  EXPECT_NE(std::string::npos, out.written().find("<h1>Unprocessable Content</h1><p>&lt;script&gt;"
                                                  "&amp;</p></body></html>"));
}

TEST(Response, SendsNothingWithAnErrorThatWasMeantForAnotherBody) {
  Output out;
  Response response(out);
  response.status(206).content_type("image/png").etag("1").last_modified(0).attachment("a.png");
  response.redirect("/a").header("Retry-After", "5").cookie(SetCookie("a", "1"));
  EXPECT_TRUE(response.send_error(503));
  EXPECT_EQ(0U, out.written().find("Status: 503 Service Unavailable\r\n"
                                   "Content-Type: text/html; charset=utf-8\r\n"
                                   "Retry-After: 5\r\n"
                                   "Cache-Control: no-store\r\n"
                                   "Set-Cookie: a=1; Path=/; HttpOnly; SameSite=Lax\r\n"
                                   "Content-Length: "));
}

TEST(Response, ForbidsCachesToStoreItOnce) {
  Output twice;
  EXPECT_TRUE(Response(twice).no_store().no_store().send_text(""));
  EXPECT_EQ(
      "Content-Type: text/plain; charset=utf-8\r\n"
      "Cache-Control: no-store\r\n"
      "Content-Length: 0\r\n\r\n",
      twice.written());
  Output out;
  Response response(out);
  response.no_store().header("Retry-After", "5");
  Response moved(std::move(response));
  EXPECT_TRUE(moved.send_error(503));
  EXPECT_EQ(0U, out.written().find("Status: 503 Service Unavailable\r\n"
                                   "Content-Type: text/html; charset=utf-8\r\n"
                                   "Cache-Control: no-store\r\n"
                                   "Retry-After: 5\r\n"
                                   "Content-Length: "));
}

TEST(Response, ForbidsToGuessTheTypeOnce) {
  Output out;
  EXPECT_TRUE(Response(out).nosniff().nosniff().send_text(""));
  EXPECT_EQ(
      "Content-Type: text/plain; charset=utf-8\r\n"
      "X-Content-Type-Options: nosniff\r\n"
      "Content-Length: 0\r\n\r\n",
      out.written());
}

TEST(Response, HasErrorsFrom400To599) {
  for (const int code : {400, 418, 599}) {
    Output out;
    EXPECT_TRUE(Response(out).send_error(code));
    EXPECT_EQ(0U, out.written().find("Status: " + std::to_string(code)));
  }
  for (const int code : {0, 200, 304, 399, 600}) {
    Output out;
    Response response(out);
    EXPECT_FALSE(response.send_error(code));
    EXPECT_EQ(kFailure, out.written());
  }
}

TEST(Response, SendsOnlyTheHeaderOfAnErrorIfTheScriptAsksForIt) {
  Output out;
  EXPECT_TRUE(Response(out).head(true).send_error(404));
  const std::string text = out.written();
  EXPECT_EQ(text.size() - 4, text.find("\r\n\r\n"));
}

// ---- Cookies ------------------------------------------------------------------------------------

TEST(Response, TakesBackARedirectWithAnotherStatus) {
  Output out;
  EXPECT_TRUE(Response(out).redirect("/a").status(200).send_text(""));
  EXPECT_EQ("Content-Type: text/plain; charset=utf-8\r\nContent-Length: 0\r\n\r\n", out.written());
  Output error;
  EXPECT_TRUE(Response(error).redirect("/a").status(500).send());
  EXPECT_EQ(std::string::npos, error.written().find("Location"));
  Output other;
  EXPECT_TRUE(Response(other).redirect("/a").status(307).send());
  EXPECT_NE(std::string::npos, other.written().find("Status: 307 Temporary Redirect\r\n"));
  EXPECT_NE(std::string::npos, other.written().find("Location: /a\r\n"));
  Output again;
  EXPECT_TRUE(Response(again).status(404).redirect("/b").send());
  EXPECT_NE(std::string::npos, again.written().find("Status: 303 See Other\r\n"));
}

TEST(Response, RedirectsToThePathOfATemporaryText) {
  Output out;
  EXPECT_TRUE(Response(out).redirect(tarn::escape_path("/my page").view()).send());
  EXPECT_NE(std::string::npos, out.written().find("Location: /my%20page\r\n"));
}

TEST(Response, SendsHeadersThatExistOnceOnce) {
  EXPECT_EQ("ETag: \"2\"\r\n", linesOf([](Response &response) { response.etag("1").etag("2"); }));
  EXPECT_EQ("ETag: W/\"2\"\r\n",
            linesOf([](Response &response) { response.etag("1").weak_etag("2"); }));
  EXPECT_EQ("ETag: \"1\"\r\n",
            linesOf([](Response &response) { response.weak_etag("2").etag("1"); }));
  EXPECT_EQ("Last-Modified: Thu, 01 Jan 1970 00:00:01 GMT\r\n",
            linesOf([](Response &response) { response.last_modified(0).last_modified(1); }));
  EXPECT_EQ("Content-Disposition: attachment; filename=\"b c\"\r\n",
            linesOf([](Response &response) { response.attachment("a").attachment("b c"); }));
}

TEST(Response, SendsEachHeaderOfAFunctionOnce) {
  EXPECT_EQ(
      "X-Frame-Options: DENY\r\n"
      "Referrer-Policy: no-referrer\r\n"
      "Content-Security-Policy: default-src 'self'\r\n"
      "Content-Language: de\r\n"
      "Allow: GET\r\n",
      linesOf([](Response &response) {
        response.deny_framing().no_referrer().deny_framing().no_referrer();
        response.content_security_policy("default-src 'none'").content_language("en");
        response.allow("POST").allow("GET").content_language("de");
        response.content_security_policy("default-src 'self'");
      }));
}

TEST(Response, KeepsItsHeadersWhenItIsMoved) {
  Output out;
  Response response(out);
  response.deny_framing().content_security_policy("a").content_language("en").allow("GET");
  Response moved(std::move(response));
  EXPECT_TRUE(moved.deny_framing().send());
  EXPECT_EQ(
      "Content-Type: text/plain; charset=utf-8\r\n"
      "X-Frame-Options: DENY\r\n"
      "Content-Security-Policy: a\r\n"
      "Content-Language: en\r\n"
      "Allow: GET\r\n"
      "Content-Length: 0\r\n"
      "\r\n",
      out.written());
}

TEST(Response, AddsWhatHeaderIsGivenBesideTheFunctions) {
  EXPECT_EQ(
      "Cache-Control: private\r\n"
      "Cache-Control: no-store\r\n"
      "Content-Security-Policy: sandbox\r\n"
      "Content-Security-Policy: default-src 'self'\r\n",
      linesOf([](Response &response) {
        response.content_security_policy("default-src 'self'");
        response.header("Cache-Control", "private").no_store();
        response.header("Content-Security-Policy", "sandbox");
      }));
}

TEST(Response, AcceptsOnlyValidWeakEtags) {
  EXPECT_EQ("invalid etag", problemOf([](Response &response) { response.weak_etag("a\"b"); }));
}

TEST(Response, IsReturnedByAFunction) {
  Output out;
  const auto begin = [&] {
    Response response(out);
    response.status(404).etag("1").cookie(SetCookie("a", "b"));
    return response;
  };
  Response response = begin();
  EXPECT_TRUE(response.header("X-After", "1").send());
  EXPECT_EQ(
      "Status: 404 Not Found\r\n"
      "Content-Type: text/plain; charset=utf-8\r\n"
      "X-After: 1\r\n"
      "ETag: \"1\"\r\n"
      "Set-Cookie: a=b; Path=/; HttpOnly; SameSite=Lax\r\n"
      "Content-Length: 0\r\n"
      "\r\n",
      out.written());
}

TEST(Response, IsReturnedByAFunctionAfterAChain) {
  Output chained;
  const auto begin = [&] {
    return Response(chained).status(403).no_store().redirect("/a").redirect_away("https://a.b/");
  };
  EXPECT_TRUE(begin().content_type("text/html").send_text("x"));
  EXPECT_EQ(
      "Status: 303 See Other\r\n"
      "Content-Type: text/html\r\n"
      "Location: https://a.b/\r\n"
      "Cache-Control: no-store\r\n"
      "Content-Length: 1\r\n"
      "\r\n"
      "x",
      chained.written());
}

TEST(Response, KeepsItsProblemAndItsStateInAMove) {
  Output out;
  Response response(out);
  response.status(99);
  Response moved = std::move(response);
  EXPECT_STREQ("status must be 200 to 599", moved.problem());
  EXPECT_FALSE(response.send()) << "it was moved from";
  EXPECT_EQ("", out.written());
  EXPECT_FALSE(moved.send());
  EXPECT_EQ(kFailure, out.written());
}

// Browsers drop what is larger.
TEST(SetCookie, HasAtMost4096BytesOfNameAndValue) {
  const std::string most(4096 - 3, 'x');
  EXPECT_NE("", cookie(SetCookie("sid", most)));
  EXPECT_EQ("cookie name and escaped value have more than 4,096 bytes together",
            problemOf(SetCookie("sid", most + "x")));
  EXPECT_EQ("cookie name and escaped value have more than 4,096 bytes together",
            problemOf(SetCookie("sid", std::string(1365, ' '))));
  EXPECT_NE("", cookie(SetCookie("s", std::string(1365, ' '))));
  EXPECT_NE("", cookie(SetCookie("s", "").path("/" + std::string(1023, 'x'))));
  EXPECT_EQ("cookie path or domain has more than 1,024 bytes",
            problemOf(SetCookie("s", "").path("/" + std::string(1024, 'x'))));
  EXPECT_EQ("cookie path or domain has more than 1,024 bytes",
            problemOf(SetCookie("s", "").domain(std::string(1025, 'x'))));
}

TEST(SetCookie, CopiesTemporaryStrings) {
  const auto make = [](char c) { return std::string(40, c); };
  SetCookie kept(make('n'), make('v'));
  kept.path("/" + make('p')).domain(make('d'));
  const std::string overwritten = make('-') + make('-');
  const SetCookie copy = kept;  // NOLINT(performance-unnecessary-copy-initialization)
  const std::string expected = "Set-Cookie: " + make('n') + "=" + make('v') +
                               "; Domain=" + make('d') + "; Path=/" + make('p') +
                               "; HttpOnly; SameSite=Lax\r\n";
  EXPECT_EQ(expected, cookie(kept));
  EXPECT_EQ(expected, cookie(copy));
  EXPECT_EQ("Set-Cookie: n=5; Path=/; HttpOnly; SameSite=Lax\r\n", cookie(SetCookie("n", 5)));
}

// As that of an unset variable is.
TEST(CppResponse, IsRefusedIfATextIsANullPointer) {
  const char *const unset = std::getenv("TARN_TEST_UNSET");
  ASSERT_EQ(nullptr, unset);
  using Use = void (*)(Response &, const char *);
  constexpr Use kUses[] = {
      [](Response &response, const char *text) { response.header("X-A", text); },
      [](Response &response, const char *text) { response.header(text, "a"); },
      [](Response &response, const char *text) { response.content_type(text); },
      [](Response &response, const char *text) { response.redirect(text); },
      [](Response &response, const char *text) { response.redirect_away(text); },
      [](Response &response, const char *text) { response.content_security_policy(text); },
      [](Response &response, const char *text) { response.content_language(text); },
      [](Response &response, const char *text) { response.allow(text); },
      [](Response &response, const char *text) { response.etag(text); },
      [](Response &response, const char *text) { response.weak_etag(text); },
      [](Response &response, const char *text) { response.attachment(text); },
      [](Response &response, const char *text) { EXPECT_FALSE(response.send_text(text)); },
      [](Response &response, const char *text) { EXPECT_FALSE(response.send_bytes(text)); },
      [](Response &response, const char *text) { EXPECT_FALSE(response.send_error(404, text)); }};
  for (const Use use : kUses) {
    Output out;
    Response response(out);
    use(response, unset);
    EXPECT_NE(nullptr, response.problem()) << &use - kUses;
  }
}

TEST(SetCookie, IsRefusedIfATextIsMissing) {
  const char *const unset = std::getenv("TARN_TEST_UNSET");
  const std::string problem = "cookie has a text that is a null pointer or could not be copied";
  EXPECT_EQ(problem, problemOf(SetCookie("a", unset)));
  EXPECT_EQ(problem, problemOf(SetCookie(unset, "a")));
  EXPECT_EQ(problem, problemOf(SetCookie("a", "b").path(unset)));
  EXPECT_EQ(problem, problemOf(SetCookie("a", "b").domain(unset)));
  Output out;
  Response response(out);
  std::string value(1000, 'x');
  tarn_test::withoutMemory([&] { response.cookie(SetCookie("a", std::move(value))); });
  EXPECT_EQ(problem, response.problem());
}

TEST(SetCookie, IsForTheWholeSiteAndHiddenFromScriptsByDefault) {
  EXPECT_EQ("Set-Cookie: a=b; Path=/; HttpOnly; SameSite=Lax\r\n", cookie(SetCookie("a", "b")));
  EXPECT_EQ("Set-Cookie: a=; Path=/; HttpOnly; SameSite=Lax\r\n", cookie(SetCookie("a", "")));
}

TEST(SetCookie, HasTheAttributesThatWereSet) {
  EXPECT_EQ(
      "Set-Cookie: a=b; Max-Age=60; Domain=a.example; Path=/b; Secure; HttpOnly; "
      "SameSite=Strict\r\n",
      cookie(SetCookie("a", "b")
                 .same_site(SameSite::strict)
                 .path("/b")
                 .domain("a.example")
                 .max_age(60)
                 .secure()));
  EXPECT_EQ("Set-Cookie: a=b; Path=/; SameSite=Lax\r\n",
            cookie(SetCookie("a", "b").readable_by_scripts()));
  EXPECT_EQ("Set-Cookie: a=b; Path=/; Secure; HttpOnly; SameSite=None\r\n",
            cookie(SetCookie("a", "b").secure().same_site(SameSite::none)));
}

TEST(SetCookie, IsKeptForEachSiteThatShowsThePage) {
  EXPECT_EQ("Set-Cookie: __Host-a=1; Path=/; Secure; HttpOnly; SameSite=None; Partitioned\r\n",
            cookie(SetCookie("__Host-a", "1").secure().same_site(SameSite::none).partitioned()));
  EXPECT_EQ("partitioned cookies must be secure", problemOf(SetCookie("a", "1").partitioned()));
}

TEST(SetCookie, AcceptsAnyMaxAge) {
  const std::pair<std::int64_t, std::string> kCases[] = {
      {0, "0"},
      {-1, "-1"},
      {std::numeric_limits<std::int64_t>::max(), "9223372036854775807"},
      {std::numeric_limits<std::int64_t>::min(), "-9223372036854775808"}};
  for (const auto &[seconds, number] : kCases) {
    EXPECT_EQ("Set-Cookie: a=b; Max-Age=" + number + "; Path=/; HttpOnly; SameSite=Lax\r\n",
              cookie(SetCookie("a", "b").max_age(seconds)));
  }
}

TEST(SetCookie, EscapesItsValue) {
  EXPECT_EQ(
      "Set-Cookie: a=b%3B%20Secure%2C%22%5C%0D%0A%C3%A9%2B%25; Path=/; HttpOnly; "
      "SameSite=Lax\r\n",
      cookie(SetCookie("a", "b; Secure,\"\\\r\né+%")));
}

TEST(SetCookie, IsReadBackUnchanged) {
  std::string value;
  for (int byte = 1; byte < 256; ++byte) value += static_cast<char>(byte);
  const std::string name = "aZ9!#$&'*-.^_`|~";
  const std::string line = cookie(SetCookie(name, value));
  const std::string_view start = "Set-Cookie: ";
  const std::string pair = line.substr(start.size(), line.find(';') - start.size());
  tarn_test::asScript({{"HTTP_COOKIE", "x=y; " + pair}}, "", [&] {
    TarnHandle environment = 0;
    ASSERT_EQ(TARN_OK, CgiEnv_new(&environment));
    TarnHandle list =
        CGIgs_getStruct(&environment, TARN_ENVIRONMENT_COOKIES, TARN_ENVIRONMENT_MAGIC);
    TarnHandle back = HTTPCookieList_getByIndex(&list, 1);
    EXPECT_EQ(name, CGIgs_getString(&back, TARN_COOKIE_NAME, TARN_COOKIE_MAGIC));
    EXPECT_EQ(value, CGIgs_getString(&back, TARN_COOKIE_VALUE, TARN_COOKIE_MAGIC));
    CgiEnv_delete(&environment);
  });
}

TEST(SetCookie, RefusesNamesThatAreInvalidOrWouldBeDecoded) {
  for (const std::string_view name : {""sv, "a b"sv, "a=b"sv, "a;b"sv, "a,b"sv, "a\r\nX: y"sv,
                                      "a\0"sv, "é"sv, "a%41"sv, "a+b"sv, "\"a\""sv, " a"sv}) {
    EXPECT_EQ("invalid cookie name", problemOf(SetCookie(name, "v"))) << name;
  }
}

TEST(SetCookie, RefusesAZeroByteInItsValue) {
  EXPECT_EQ("cookie value contains a zero byte", problemOf(SetCookie("a", "b\0c"sv)));
}

TEST(SetCookie, RefusesInvalidPaths) {
  for (const std::string_view path :
       {""sv, "a"sv, "/a;b"sv, "/\r\n"sv, "/a b"sv, "/é"sv, "/\0"sv}) {
    EXPECT_EQ("invalid cookie path", problemOf(SetCookie("a", "b").path(path)));
  }
}

TEST(SetCookie, RefusesInvalidDomains) {
  for (const std::string_view domain : {"a b"sv, "a;b"sv, "a\r\n"sv, "é"sv, "a/b"sv, "a:1"sv}) {
    EXPECT_EQ("invalid cookie domain", problemOf(SetCookie("a", "b").domain(domain)));
  }
}

TEST(SetCookie, RefusesCookiesThatBrowsersIgnore) {
  EXPECT_EQ("SameSite::none cookies must be secure",
            problemOf(SetCookie("a", "b").same_site(SameSite::none)));
  const char *const kNotSecure = "__Host- and __Secure- cookies must be secure";
  EXPECT_EQ(kNotSecure, problemOf(SetCookie("__Secure-a", "b")));
  EXPECT_EQ(kNotSecure, problemOf(SetCookie("__Host-a", "b")));
  EXPECT_EQ(kNotSecure, problemOf(SetCookie("__host-a", "b")));
  const char *const kNotHost = "__Host- cookies must have path '/' and no domain";
  EXPECT_EQ(kNotHost, problemOf(SetCookie("__Host-a", "b").secure().path("/x")));
  EXPECT_EQ(kNotHost, problemOf(SetCookie("__Host-a", "b").secure().domain("a.example")));
}

TEST(SetCookie, AcceptsProtectedPrefixes) {
  EXPECT_EQ("Set-Cookie: __Host-a=b; Path=/; Secure; HttpOnly; SameSite=Lax\r\n",
            cookie(SetCookie("__Host-a", "b").secure()));
  EXPECT_EQ("Set-Cookie: __Secure-a=b; Domain=x; Path=/y; Secure; HttpOnly; SameSite=Lax\r\n",
            cookie(SetCookie("__Secure-a", "b").secure().path("/y").domain("x")));
}

// ---- Failures -----------------------------------------------------------------------------------

TEST(Response, ReportsTheFirstOfSeveralProblems) {
  EXPECT_EQ("status must be 200 to 599",
            problemOf([](Response &response) { response.status(0).header("", "").redirect("x"); }));
}

TEST(Response, FailsIfThePageIsRefused) {
  Output out;
  Response response(out);
  response.header("X", "1");
  EXPECT_FALSE(response.send(Element("p", "text", tarn::Attribute("onclick", "x"))));
  EXPECT_STREQ("style, srcdoc and event attributes must be Raw", response.problem());
  EXPECT_EQ(kFailure, out.written());
}

TEST(Response, ReportsAFullDisk) {
  FILE *full = std::fopen("/dev/full", "w");
  ASSERT_NE(nullptr, full);
  Response response(full);
  EXPECT_FALSE(response.send_text("text"));
  EXPECT_STREQ("response could not be written", response.problem());
  std::fclose(full);
}

TEST(Response, ReportsAFullDiskForALargeBody) {
  FILE *full = std::fopen("/dev/full", "w");
  ASSERT_NE(nullptr, full);
  Response response(full);
  EXPECT_FALSE(response.send_text(std::string(1 << 20, 'x')));
  EXPECT_STREQ("response could not be written", response.problem());
  std::fclose(full);
}

TEST(Response, ReportsAClosedOutput) {
  tarn_test::asScript({}, "", [] {
    close(STDOUT_FILENO);
    Response response;
    EXPECT_FALSE(response.send_text("text"));
    EXPECT_STREQ("response could not be written", response.problem());
  });
}

TEST(Response, ReportsAFailureOfEarlierOutput) {
  tarn_test::asScript({}, "", [] {
    const int full = open("/dev/full", O_WRONLY);
    dup2(full, STDOUT_FILENO);
    std::puts("before");
    std::fflush(stdout);
    const int nothing = open("/dev/null", O_WRONLY);
    dup2(nothing, STDOUT_FILENO);
    EXPECT_FALSE(Response().send_text("text"));
  });
}

TEST(Response, ReportsARefusalBeforeAFailedOutput) {
  FILE *full = std::fopen("/dev/full", "w");
  ASSERT_NE(nullptr, full);
  Response response(full);
  EXPECT_FALSE(response.status(0).send_text("text"));
  EXPECT_STREQ("status must be 200 to 599", response.problem());
  std::fclose(full);
}

TEST(Response, IsCompleteOrFailsWhenAnAllocationFails) {
  const std::string longValue(300, 'x');
  const std::string path = "/" + longValue;
  const Element page("html", Element("body", longValue));
  const std::string body = "<!DOCTYPE html>\n<html><body>" + longValue + "</body></html>";
  const std::string whole =
      "Status: 303 See Other\r\nContent-Type: a/b\r\nLocation: /" + longValue +
      "\r\nX: " + longValue + "\r\nSet-Cookie: a=" + longValue +
      "; Path=/; HttpOnly; SameSite=Lax\r\nContent-Length: " + std::to_string(body.size()) +
      "\r\n\r\n" + body;
  tarn_test::forEachFailingAllocation([&](tarn_test::FailingMemory &memory) {
    char text[8192] = "";
    char buffer[sizeof text];
    FILE *out = fmemopen(text, sizeof text, "w");
    std::setvbuf(out, buffer, _IOFBF, sizeof buffer);
    const char *problem = nullptr;
    const bool sent = memory.call([&] {
      Response response(out);
      response.content_type("a/b").header("X", longValue).cookie(SetCookie("a", longValue));
      response.redirect(path);
      const bool done = response.send(page);
      problem = response.problem();
      return done;
    });
    std::fclose(out);
    EXPECT_EQ(!memory.failed(), sent);
    EXPECT_EQ(memory.failed() ? kFailure : whole, text);
    EXPECT_STREQ(memory.failed() ? "out of memory" : nullptr, problem);
  });
}

}  // namespace
