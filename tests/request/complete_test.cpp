// Tarn_isComplete() for requests that are complete, truncated or too large.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <tarn.h>

#include <string>

#include "support/form.h"
#include "support/handles.h"

namespace tarn_test {
namespace {

constexpr const char *kUrlEncoded = "application/x-www-form-urlencoded";
constexpr const char *kMultipart = "multipart/form-data; boundary=b";

void expectComplete(uint32_t expected, const Variables &variables, std::string_view body) {
  asScript(variables, body, [&] {
    Request request;
    EXPECT_EQ(expected, Tarn_isComplete(&request.handle));
  });
}

Variables withLength(Variables variables, const std::string &length) {
  variables["CONTENT_LENGTH"] = length;
  return variables;
}

TEST(RequestComplete, WhenEverythingArrived) {
  expectComplete(1, {}, "");
  expectComplete(1, get(""), "");
  expectComplete(1, get("a=1&&b&=c"), "");
  expectComplete(1, post(kUrlEncoded, ""), "");
  expectComplete(1, post(kUrlEncoded, "a=1"), "a=1");
  expectComplete(1, post(kUrlEncoded, "a=1"), "a=1&more=than+was+declared");
  Variables variables = get("a=1");
  variables["HTTP_COOKIE"] = "a=1; b; ;=";
  expectComplete(1, variables, "");
}

// What the parser drops by its rules does not make a request incomplete.
TEST(RequestComplete, WhenTheParserDropsPartsOfTheBody) {
  const std::string body =
      "preamble\r\n--b\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\nfirst\r\nsecond\r\n"
      "--b\r\nno blank line\r\n--b\r\nContent-Disposition: form-data; filename=\"f\"\r\n\r\n1";
  expectComplete(1, post(kMultipart, body), body);
  expectComplete(1, post("multipart/form-data", body), body);
  Variables variables = post(kUrlEncoded, "a=1");
  variables["REQUEST_METHOD"] = "PUT";
  expectComplete(1, variables, "a=1");
}

TEST(RequestComplete, NotWhenTheBodyIsTruncated) {
  for (const std::string type : {kUrlEncoded, kMultipart, "text/plain"}) {
    SCOPED_TRACE(type);
    for (size_t length = 0; length < 5; ++length) {
      SCOPED_TRACE(length);
      expectComplete(0, post(type, "a=123"), std::string_view("a=123").substr(0, length));
    }
    expectComplete(1, post(type, "a=123"), "a=123");
  }
  expectComplete(0, withLength(post(kUrlEncoded, ""), "300000000"), "a=1&b=2&c=34");
}

TEST(RequestComplete, NotWhenTheLengthIsNegative) {
  expectComplete(0, withLength(post(kUrlEncoded, ""), "-1"), "a=1");
  expectComplete(0, withLength(post(kUrlEncoded, ""), "-99999999999999999999"), "a=1");
}

// A length beyond 32 bits is clamped. The test does not send such a body: without room for it in
// the process, the request is incomplete anyway.
TEST(RequestCompleteAddressSpace, NotWhenTheBodyIsLongerThanCanBeRead) {
  for (const char *length : {"2147483648", "4294967299", "99999999999999999999"}) {
    asScript(withLength(post(kUrlEncoded, ""), length), "a=1", [] {
      if (!kSanitized) {
        const rlimit limit{1 << 26, 1 << 26};
        ASSERT_EQ(0, setrlimit(RLIMIT_AS, &limit));
      }
      Request request;
      EXPECT_EQ(0U, Tarn_isComplete(&request.handle));
    });
  }
}

TEST(RequestCompleteAddressSpace, NotWhenFieldsFindNoMemory) {
  if (kSanitized) GTEST_SKIP() << "the sanitizers need more address space than the limit leaves";
  std::string body;
  for (int i = 0; i < 1000000; ++i) body += "&a=";
  asScript(post(kUrlEncoded, body), body, [] {
    const rlimit limit{1 << 26, 1 << 26};
    ASSERT_EQ(0, setrlimit(RLIMIT_AS, &limit));
    Request request;
    EXPECT_EQ(TARN_OK, request.status);
    TarnHandle entries = request.entryList();
    EXPECT_LT(FormEntryList_getCount(&entries), 1000000);
    EXPECT_EQ(0U, Tarn_isComplete(&request.handle));
  });
}

TEST(RequestComplete, NotForAnotherType) {
  EXPECT_EQ(0U, Tarn_isComplete(nullptr));
  TarnHandle empty = 0;
  EXPECT_EQ(0U, Tarn_isComplete(&empty));
  withEveryOtherType([](TarnHandle *handle) { EXPECT_EQ(0U, Tarn_isComplete(handle)); });
  Node withoutEnvironment(TARN_REQUEST_MAGIC);
  EXPECT_EQ(0U, Tarn_isComplete(withoutEnvironment));
}

TEST(RequestComplete, IsReportedByACopyAndNotWithoutTheEnvironment) {
  asScript(post(kUrlEncoded, "a=123"), "a=1", [] {
    Request request;
    Node copy;
    ASSERT_EQ(TARN_OK, CGIgs_clone(&request.handle, copy, TARN_REQUEST_MAGIC));
    EXPECT_EQ(0U, Tarn_isComplete(copy));
  });
  asScript(post(kUrlEncoded, "a=1"), "a=1", [] {
    Request request;
    TarnHandle environment = request.environment();
    EXPECT_EQ(1U, Tarn_isComplete(&request.handle));
    EXPECT_EQ(TARN_OK, CgiEnv_clear(&environment));
    EXPECT_EQ(1U, Tarn_isComplete(&request.handle));
    EXPECT_EQ(TARN_OK, CGIgs_setStruct(&request.handle, TARN_REQUEST_ENVIRONMENT, &environment,
                                       TARN_REQUEST_MAGIC, 0));
    EXPECT_EQ(0U, Tarn_isComplete(&request.handle));
  });
}

}  // namespace
}  // namespace tarn_test
