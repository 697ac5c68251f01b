// Which requests of pages of other sites are allowed.
#include <gtest/gtest.h>
#include <tarn/cors.hpp>

#include <string>

#include "output.h"
#include "support/failing_memory.h"
#include "support/script.h"

namespace {

using tarn::Cors;
using tarn::Response;
using tarn_test::asScript;
using tarn_test::Output;
using tarn_test::Variables;

constexpr char kLake[] = "https://lake.example.org";

Variables from(const std::string &origin) {
  return {{"REQUEST_METHOD", "GET"}, {"HTTP_ORIGIN", origin}};
}

Variables preflight(const std::string &origin) {
  return {{"REQUEST_METHOD", "OPTIONS"},
          {"HTTP_ORIGIN", origin},
          {"HTTP_ACCESS_CONTROL_REQUEST_METHOD", "PUT"},
          {"HTTP_ACCESS_CONTROL_REQUEST_HEADERS", "content-type"}};
}

Cors policy() {
  Cors cors({"https://other.example", kLake, "http://localhost:8080"});
  cors.methods("PUT, DELETE").headers("Content-Type").expose("ETag").max_age(600).credentials();
  return cors;
}

// Expects that a response to this request has these lines.
template <class Make>
void expectLines(const Variables &request, Make make, const std::string &lines) {
  asScript(request, "", [&] {
    Output out;
    Response response(out);
    const Cors cors = make();
    cors.apply(response);
    EXPECT_TRUE(response.send()) << response.problem();
    const bool asked = request.at("REQUEST_METHOD") == "OPTIONS";
    EXPECT_EQ(asked, Cors::is_preflight());
    EXPECT_EQ(
        asked ? "Status: 204 No Content\r\n" + lines + "\r\n"
              : "Content-Type: text/plain; charset=utf-8\r\n" + lines + "Content-Length: 0\r\n\r\n",
        out.written());
  });
}

template <class Make>
void expectProblem(Make make, const std::string &problem) {
  asScript(from(kLake), "", [&] {
    Output out;
    Response response(out);
    make().apply(response);
    EXPECT_FALSE(response.send());
    EXPECT_EQ(problem, response.problem());
    EXPECT_EQ(std::string::npos, out.written().find("Access-Control"));
  });
}

const std::string kVary = "Vary: Origin\r\n";
const std::string kVaryOfPreflight =
    "Vary: Origin, Access-Control-Request-Method, Access-Control-Request-Headers\r\n";

TEST(Cors, LetsAllowedPagesReadTheResponse) {
  expectLines(from(kLake), policy,
              kVary + "Access-Control-Allow-Origin: " + kLake +
                  "\r\nAccess-Control-Allow-Credentials: true\r\n"
                  "Access-Control-Expose-Headers: ETag\r\n");
  expectLines(
      from("http://localhost:8080"), [] { return Cors({"http://localhost:8080"}); },
      kVary + "Access-Control-Allow-Origin: http://localhost:8080\r\n");
}

TEST(Cors, AllowsNoOtherOrigin) {
  for (const std::string origin :
       {"https://lake.example.org.evil.example", "https://lake.example.or",
        "https://evil.example/?https://lake.example.org", "http://lake.example.org",
        "https://lake.example.org:444", "https://LAKE.example.org", "https://lake.example.org ",
        "https://lake.example.org, https://evil.example", "null", "*", ""}) {
    expectLines(from(origin), policy, kVary);
    expectLines(preflight(origin), policy, kVaryOfPreflight);
    expectLines(
        from(origin), [] { return Cors({}); }, kVary);
  }
  expectLines({{"REQUEST_METHOD", "GET"}}, policy, kVary);
}

TEST(Cors, AnswersAPreflight) {
  const std::string allowed = kVaryOfPreflight + "Access-Control-Allow-Origin: " + kLake + "\r\n";
  expectLines(preflight(kLake), policy,
              allowed +
                  "Access-Control-Allow-Credentials: true\r\n"
                  "Access-Control-Allow-Methods: PUT, DELETE\r\n"
                  "Access-Control-Allow-Headers: Content-Type\r\n"
                  "Access-Control-Max-Age: 600\r\n");
  expectLines(
      preflight(kLake), [] { return Cors({kLake}); }, allowed);
}

TEST(Cors, KnowsAPreflight) {
  for (const std::string missing :
       {"REQUEST_METHOD", "HTTP_ORIGIN", "HTTP_ACCESS_CONTROL_REQUEST_METHOD"}) {
    Variables request = preflight(kLake);
    request.erase(missing);
    asScript(request, "", [] { EXPECT_FALSE(Cors::is_preflight()); });
  }
  Variables other = preflight(kLake);
  other["REQUEST_METHOD"] = "GET";
  asScript(other, "", [] { EXPECT_FALSE(Cors::is_preflight()); });
}

TEST(Cors, LetsEveryPageReadWhatIsPublic) {
  const auto any = [] { return Cors::any_origin(); };
  expectLines({{"REQUEST_METHOD", "GET"}}, any, "Access-Control-Allow-Origin: *\r\n");
  expectLines(from("https://evil.example"), any, "Access-Control-Allow-Origin: *\r\n");
  expectLines(
      preflight("null"), [] { return std::move(Cors::any_origin().methods("PUT")); },
      kVaryOfPreflight + "Access-Control-Allow-Origin: *\r\nAccess-Control-Allow-Methods: PUT\r\n");
}

TEST(Cors, RefusesCredentialsForAllSites) {
  expectProblem([] { return std::move(Cors::any_origin().credentials()); },
                "CORS: credentials need a list of origins");
}

TEST(Cors, RefusesWhatIsNoOrigin) {
  for (const std::string_view origin :
       {"*", "null", "", "lake.example.org", "https://", "://lake.example.org",
        "https://lake.example.org/", "https://Lake.example.org", "https://*.example.org",
        "https://a@lake.example.org", "https://lake.example.org\r\n", "HTTPS://lake.example.org"}) {
    expectProblem(
        [&] {
          return Cors({kLake, origin});
        },
        "CORS origin must be like https://example.org");
  }
  expectLines(
      from(kLake),
      [] {
        return Cors({"app://lake", "https://[::1]:80"});
      },
      kVary);
}

TEST(Cors, RefusesLineEnds) {
  asScript(preflight(kLake), "", [] {
    Response response(stderr);
    Cors({kLake}).methods("PUT\r\nX: y").apply(response);
    EXPECT_STREQ("header value contains a control character", response.problem());
  });
}

TEST(Cors, CopiesTemporaryTexts) {
  asScript(preflight(kLake), "", [] {
    Output out;
    Response response(out);
    const std::string longer(300, 'x');
    Cors cors({kLake});
    cors.methods(std::string("PUT, ") + longer).headers(longer + "y");
    EXPECT_TRUE(cors.apply(response).send());
    EXPECT_NE(std::string::npos, out.written().find("Methods: PUT, " + longer + "\r\n"));
    EXPECT_NE(std::string::npos, out.written().find("Headers: " + longer + "y\r\n"));
  });
  expectProblem([] { return std::move(Cors({kLake}).methods(static_cast<const char *>(nullptr))); },
                "CORS has a text that is a null pointer or could not be copied");
}

}  // namespace
