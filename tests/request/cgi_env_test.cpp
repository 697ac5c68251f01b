#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <string>

#include "support/failing_memory.h"
#include "support/form.h"
#include "support/handles.h"
#include "support/script.h"
#include "tarn.h"

namespace tarn_test {
namespace {

using namespace std::string_literals;

constexpr int32_t kLargest = std::numeric_limits<int32_t>::max();
constexpr int32_t kSmallest = std::numeric_limits<int32_t>::min();
constexpr size_t kMegabyte = 1 << 20;

struct TextGetter {
  const char *variable;
  const char *(*get)(TarnHandle *);
};

const TextGetter kTextGetters[] = {
    {"SERVER_SOFTWARE", CgiEnv_getServerSoftware},
    {"SERVER_NAME", CgiEnv_getServerName},
    {"GATEWAY_INTERFACE", CgiEnv_getGatewayInterface},
    {"SERVER_PROTOCOL", CgiEnv_getServerProtocol},
    {"HTTP_COOKIE", CgiEnv_getCookies},
    {"REQUEST_METHOD", CgiEnv_getRequestMethod},
    {"PATH_INFO", CgiEnv_getPathInfo},
    {"PATH_TRANSLATED", CgiEnv_getPathTranslated},
    {"SCRIPT_NAME", CgiEnv_getScriptName},
    {"QUERY_STRING", CgiEnv_getQueryString},
    {"CONTENT_TYPE", CgiEnv_getContentType},
    {"HTTP_REFERER", CgiEnv_getReferrer},
    {"REMOTE_HOST", CgiEnv_getRemoteHost},
    {"REMOTE_ADDR", CgiEnv_getRemoteAddr},
    {"AUTH_TYPE", CgiEnv_getAuthType},
    {"REMOTE_USER", CgiEnv_getRemoteUser},
    {"REMOTE_IDENT", CgiEnv_getRemoteIdent},
    {"HTTP_ACCEPT", CgiEnv_getAccept},
    {"HTTP_USER_AGENT", CgiEnv_getUserAgent},
    {"REDIRECT_REQUEST", CgiEnv_getRedirectRequest},
    {"REDIRECT_URL", CgiEnv_getRedirectURL},
    {"REDIRECT_STATUS", CgiEnv_getRedirectStatus},
};

struct NumberGetter {
  const char *variable;
  int32_t (*get)(TarnHandle *);
};

const NumberGetter kNumberGetters[] = {
    {"SERVER_PORT", CgiEnv_getServerPort},
    {"CONTENT_LENGTH", CgiEnv_getContentLength},
};

struct Number {
  const char *text;
  int32_t value;
};

// The value of every numeric variable.
const Number kNumbers[] = {
    {"", 0},
    {"0", 0},
    {"8080", 8080},
    {"007", 7},
    {" 12", 12},
    {"\t\n\v\f\r 12", 12},
    {"+5", 5},
    {"-5", -5},
    {"- 5", 0},
    {"+-5", 0},
    {"12abc", 12},
    {"12 ", 12},
    {"1,2", 1},
    {"1e3", 1},
    {"3.9", 3},
    {"0x10", 0},
    {"abc", 0},
    {"2147483647", kLargest},
    {"2147483648", kLargest},
    {"4294967295", kLargest},
    {"4294967299", kLargest},
    {"9223372036854775808", kLargest},
    {"99999999999999999999", kLargest},
    {"-2147483648", kSmallest},
    {"-2147483649", kSmallest},
    {"-4294967293", kSmallest},
    {"-99999999999999999999", kSmallest},
};

Variables postOfLength(const std::string &length) {
  return {{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", length}};
}

// ---- Creation -----------------------------------------------------------------------------------

TEST(CgiEnv, NewCreatesAnEnvironment) {
  asScript({}, "", [] {
    TarnHandle handle = 0;
    EXPECT_EQ(TARN_OK, CgiEnv_new(&handle));
    EXPECT_TRUE(CGIgs_IsA(&handle, TARN_ENVIRONMENT_MAGIC));
    EXPECT_EQ(18238U, CGIgs_getMagic(&handle));
    EXPECT_EQ(TARN_OK, CgiEnv_delete(&handle));
  });
}

TEST(CgiEnv, NewRefusesANullHandleAddress) {
  asScript(postOfLength("5"), "hello", [] {
    EXPECT_EQ(TARN_BAD_ARGUMENT, CgiEnv_new(nullptr));
    EXPECT_EQ("hello", restOfStandardInput());
  });
}

TEST(CgiEnv, NewRefusesAHandleInUseAndReadsNothing) {
  asScript(postOfLength("5"), "hello", [] {
    Node entry(TARN_FORM_ENTRY_MAGIC);
    const TarnHandle before = entry.value();
    EXPECT_EQ(TARN_BAD_ARGUMENT, CgiEnv_new(entry));
    EXPECT_EQ(before, entry.value());
    EXPECT_TRUE(CGIgs_IsA(entry, TARN_FORM_ENTRY_MAGIC));
    EXPECT_EQ("hello", restOfStandardInput());
  });
}

TEST(CgiEnv, WithoutVariablesEverythingIsZeroOrMissing) {
  asScript({}, "", [] {
    Environment environment;
    EXPECT_EQ(TARN_OK, environment.status);
    EXPECT_EQ(0, environment.contentLength());
    EXPECT_EQ(0U, environment.https());
    EXPECT_EQ(kNone, environment.body());
    EXPECT_EQ(std::nullopt, environment.cookies());
  });
}

TEST(CgiEnv, WithEveryVariableEmptyOnlyTheCookieListExists) {
  Variables variables{{"HTTPS", ""}, {"SERVER_PORT", ""}, {"CONTENT_LENGTH", ""}};
  for (const TextGetter &getter : kTextGetters) variables[getter.variable] = "";
  asScript(variables, "", [] {
    Environment environment;
    EXPECT_EQ(TARN_OK, environment.status);
    EXPECT_EQ(0, environment.contentLength());
    EXPECT_EQ(0U, environment.https());
    EXPECT_EQ(kNone, environment.body());
    EXPECT_EQ((Cookies{{kNone, kNone}}), environment.cookies());
  });
}

TEST(CgiEnv, HasLengthAndFlagAsNumbersBodyAndCookiesAsChildrenAndNothingElse) {
  Variables variables = postOfLength("5");
  variables["HTTPS"] = "on";
  variables["HTTP_COOKIE"] = "a=1";
  variables["CONTENT_TYPE"] = "text/plain";
  asScript(variables, "hello", [] {
    Environment environment;
    TarnHandle *const handle = &environment.handle;
    EXPECT_EQ(5U, CGIgs_getInt(handle, 0, 18238));
    EXPECT_EQ(1U, CGIgs_getInt(handle, 1, 18238));
    EXPECT_EQ(0U, CGIgs_getInt(handle, 2, 18238));
    EXPECT_EQ(22878U, CGIgs_getChildMagic(handle, 0, 18238));
    EXPECT_EQ(75101U, CGIgs_getChildMagic(handle, 1, 18238));
    EXPECT_EQ(0U, CGIgs_getChildMagic(handle, 2, 18238));
    EXPECT_EQ(0U, CGIgs_getStruct(handle, 2, 18238));
    EXPECT_EQ(0U, CGIgs_getList(handle, 0, 18238));
    EXPECT_EQ(0U, CGIgs_getList(handle, 1, 18238));
    EXPECT_EQ(0U, CGIgs_getFixed(handle, 18238));
    for (uint32_t i = 0; i < 8; ++i) EXPECT_EQ(nullptr, CGIgs_getString(handle, i, 18238)) << i;
  });
}

TEST(CgiEnv, HttpsFlagIsOneOnlyForOn) {
  asScript({}, "", [] {
    setenv("HTTPS", "on", 1);
    EXPECT_EQ(1U, Environment().https());
  });
}

TEST(CgiEnv, HttpsFlagIsZeroForAnythingElse) {
  asScript({}, "", [] {
    for (const char *value : {"ON", "On", "oN", "1", "yes", "on ", " on", "off", ""}) {
      setenv("HTTPS", value, 1);
      EXPECT_EQ(0U, Environment().https()) << value;
    }
  });
}

TEST(CgiEnv, ContentLengthIsADecimalNumberClampedTo32Bits) {
  asScript({{"REQUEST_METHOD", "GET"}}, "", [] {
    for (const auto &[text, value] : kNumbers) {
      setenv("CONTENT_LENGTH", text, 1);
      Environment environment;
      EXPECT_EQ(TARN_OK, environment.status) << text;
      EXPECT_EQ(value, environment.contentLength()) << text;
      EXPECT_EQ(kNone, environment.body()) << text;
    }
  });
}

// ---- Body ---------------------------------------------------------------------------------------

TEST(CgiEnvBody, OfAPostIsReadInAnyCaseOfTheMethod) {
  for (const char *method : {"POST", "post", "Post", "pOsT"}) {
    asScript({{"REQUEST_METHOD", method}, {"CONTENT_LENGTH", "5"}}, "hello", [=] {
      Environment environment;
      EXPECT_EQ(TARN_OK, environment.status) << method;
      EXPECT_EQ("hello", environment.body()) << method;
      EXPECT_EQ(5, environment.contentLength()) << method;
    });
  }
}

TEST(CgiEnvBody, OfAnyOtherMethodIsLeftOnStandardInput) {
  for (const char *method : {"GET", "PUT", "HEAD", "POSTS", "POS", " POST", "POST ", ""}) {
    asScript({{"REQUEST_METHOD", method}, {"CONTENT_LENGTH", "5"}}, "hello", [=] {
      Environment environment;
      EXPECT_EQ(TARN_OK, environment.status) << method;
      EXPECT_EQ(kNone, environment.body()) << method;
      EXPECT_EQ(5, environment.contentLength()) << method;
      EXPECT_EQ("hello", restOfStandardInput()) << method;
    });
  }
}

TEST(CgiEnvBody, WithoutARequestMethodIsLeftOnStandardInput) {
  asScript({{"CONTENT_LENGTH", "5"}}, "hello", [] {
    Environment environment;
    EXPECT_EQ(TARN_OK, environment.status);
    EXPECT_EQ(kNone, environment.body());
    EXPECT_EQ("hello", restOfStandardInput());
  });
}

TEST(CgiEnvBody, WithALengthOfZeroOrNoNumberIsNotRead) {
  for (const char *length : {"0", "-0", "abc", "", "0x10", "- 5"}) {
    asScript(postOfLength(length), "hello", [=] {
      Environment environment;
      EXPECT_EQ(TARN_OK, environment.status) << length;
      EXPECT_EQ(0, environment.contentLength()) << length;
      EXPECT_EQ(kNone, environment.body()) << length;
      EXPECT_EQ("hello", restOfStandardInput()) << length;
    });
  }
}

TEST(CgiEnvBody, WithoutAContentLengthIsNotRead) {
  asScript({{"REQUEST_METHOD", "POST"}}, "hello", [] {
    Environment environment;
    EXPECT_EQ(TARN_OK, environment.status);
    EXPECT_EQ(0, environment.contentLength());
    EXPECT_EQ(kNone, environment.body());
    EXPECT_EQ("hello", restOfStandardInput());
  });
}

TEST(CgiEnvBody, HasTheLengthAtTheStartOfContentLength) {
  const std::pair<const char *, size_t> cases[] = {{"12abc", 12}, {" 12", 12}, {"\t12", 12},
                                                   {"+5", 5},     {"1,2", 1},  {"007", 7},
                                                   {"1e3", 1},    {"3.9", 3}};
  const std::string sent = "hello, world! and more";
  for (const auto &[length, count] : cases) {
    asScript(postOfLength(length), sent, [&, text = length, size = count] {
      Environment environment;
      EXPECT_EQ(TARN_OK, environment.status) << text;
      EXPECT_EQ(sent.substr(0, size), environment.body()) << text;
      EXPECT_EQ(static_cast<int32_t>(size), environment.contentLength()) << text;
    });
  }
}

TEST(CgiEnvBody, MayHoldAnyBytes) {
  std::string sent;
  for (int i = 0; i < 1024; ++i) sent.push_back(static_cast<char>(i));
  asScript(postOfLength(std::to_string(sent.size())), sent, [&] {
    Environment environment;
    EXPECT_EQ(TARN_OK, environment.status);
    EXPECT_EQ(sent, environment.body());
  });
}

TEST(CgiEnvBody, OfZeroBytesKeepsItsLength) {
  asScript(postOfLength("3"), "\0\0\0"s, [] { EXPECT_EQ("\0\0\0"s, Environment().body()); });
}

TEST(CgiEnvBody, IsReadInFullAtSizesAroundBuffersAndPipes) {
  for (const size_t size : {1, 2, 3, 4095, 4096, 4097, 65535, 65536, 65537, 3000000}) {
    std::string sent(size, 'x');
    for (size_t i = 0; i < size; i += 7) sent[i] = static_cast<char>(i >> 3);
    asScript(postOfLength(std::to_string(size)), sent, [&] {
      Environment environment;
      EXPECT_EQ(TARN_OK, environment.status);
      EXPECT_TRUE(sent == environment.body()) << size;
    });
  }
}

TEST(CgiEnvBody, LeavesTheRestOfALongerInputToStdio) {
  asScript(postOfLength("5"), "hello and the rest", [] {
    EXPECT_EQ("hello", Environment().body());
    EXPECT_EQ(" and the rest", restOfStandardInput());
  });
}

TEST(CgiEnvBody, LeavesTheRestOfAMuchLongerInputToStdio) {
  const std::string sent = std::string(70000, 'a') + std::string(70000, 'b');
  asScript(postOfLength("70000"), sent, [&] {
    EXPECT_TRUE(sent.substr(0, 70000) == Environment().body());
    EXPECT_TRUE(sent.substr(70000) == restOfStandardInput());
  });
}

TEST(CgiEnvBody, StartsWhereTheScriptStoppedReading) {
  asScript(postOfLength("5"), "xhello", [] {
    EXPECT_EQ('x', std::getchar());
    EXPECT_EQ("hello", Environment().body());
  });
}

TEST(CgiEnvBody, ShorterThanDeclaredIsPaddedWithZeros) {
  asScript(postOfLength("10"), "hello", [] {
    Environment environment;
    EXPECT_EQ(TARN_OK, environment.status);
    EXPECT_EQ("hello\0\0\0\0\0"s, environment.body());
    EXPECT_EQ(10, environment.contentLength());
  });
}

TEST(CgiEnvBody, ShorterThanDeclaredNeverExposesOldHeapContents) {
  for (const size_t size : {24, 100, 1000, 5000, 60000, 200000}) {
    asScript(postOfLength(std::to_string(size)), "abc", [=] {
      void *blocks[20];
      for (void *&block : blocks) {
        block = std::malloc(size + 1);
        std::memset(block, 0xA5, size + 1);
      }
      for (void *block : blocks) std::free(block);
      EXPECT_TRUE("abc" + std::string(size - 3, '\0') == Environment().body()) << size;
    });
  }
}

TEST(CgiEnvBody, ThatNeverArrivesIsAllZeros) {
  asScript(postOfLength("4"), "", [] {
    Environment environment;
    EXPECT_EQ(TARN_OK, environment.status);
    EXPECT_EQ("\0\0\0\0"s, environment.body());
  });
}

TEST(CgiEnvBody, OfAClosedStandardInputIsAllZeros) {
  asScript(postOfLength("4"), "hello", [] {
    close(STDIN_FILENO);
    Environment environment;
    EXPECT_EQ(TARN_OK, environment.status);
    EXPECT_EQ("\0\0\0\0"s, environment.body());
  });
}

TEST(CgiEnvBody, IsReadWithoutWaitingForTheEndOfTheInput) {
  asScript(postOfLength("5"), "", [] {
    feedStandardInput("hello and more", After::kOpen);
    EXPECT_EQ("hello", Environment().body());
  });
}

// Starts a sender that writes two halves with a pause between them.
void feedSlowly(const std::string &first, const std::string &second) {
  int input[2];
  ASSERT_EQ(0, pipe(input));
  const pid_t sender = fork();
  ASSERT_GE(sender, 0);
  if (sender == 0) {
    bool whole = write(input[1], first.data(), first.size()) == static_cast<ssize_t>(first.size());
    usleep(50000);
    whole = write(input[1], second.data(), second.size()) == static_cast<ssize_t>(second.size()) &&
            whole;
    _exit(whole ? 0 : 1);
  }
  ASSERT_EQ(STDIN_FILENO, dup2(input[0], STDIN_FILENO));
  close(input[0]);
  close(input[1]);
}

TEST(CgiEnvBody, ThatArrivesInPiecesIsPutTogether) {
  asScript(postOfLength("10"), "", [] {
    feedSlowly("hello", "world");
    EXPECT_EQ("helloworld", Environment().body());
    wait(nullptr);
  });
}

void expectWholeBodyThroughSignals(int flags) {
  asScript(postOfLength("10"), "", [=] {
    const InputThroughSignals input("helloworld", flags);
    EXPECT_EQ("helloworld", Environment().body());
  });
}

TEST(CgiEnvBody, IsReadInFullThroughSignalsThatRestartReading) {
  expectWholeBodyThroughSignals(SA_RESTART);
}

TEST(CgiEnvBody, IsReadInFullThroughSignalsThatInterruptReading) {
  expectWholeBodyThroughSignals(0);
}

TEST(CgiEnvBody, OfASecondEnvironmentIsAllZerosBecauseTheInputIsConsumed) {
  asScript(postOfLength("5"), "hello", [] {
    Environment first;
    Environment second;
    EXPECT_EQ("hello", first.body());
    EXPECT_EQ(TARN_OK, second.status);
    EXPECT_EQ("\0\0\0\0\0"s, second.body());
  });
}

TEST(CgiEnvBody, WithANegativeLengthIsNotReadButTheEnvironmentIsKept) {
  const std::pair<const char *, int32_t> cases[] = {{"-1", -1},
                                                    {"-5", -5},
                                                    {" -5x", -5},
                                                    {"-2147483648", kSmallest},
                                                    {"-4294967293", kSmallest},
                                                    {"-99999999999999999999", kSmallest}};
  for (const auto &[length, number] : cases) {
    Variables variables = postOfLength(length);
    variables["HTTPS"] = "on";
    variables["HTTP_COOKIE"] = "a=1";
    asScript(variables, "hello", [text = length, value = number] {
      Environment environment;
      EXPECT_EQ(TARN_BAD_ARGUMENT, environment.status) << text;
      EXPECT_TRUE(CGIgs_IsA(&environment.handle, TARN_ENVIRONMENT_MAGIC)) << text;
      EXPECT_EQ(value, environment.contentLength()) << text;
      EXPECT_EQ(1U, environment.https()) << text;
      EXPECT_EQ(kNone, environment.body()) << text;
      EXPECT_EQ((Cookies{{"a", "1"}}), environment.cookies()) << text;
      EXPECT_EQ("hello", restOfStandardInput()) << text;
    });
  }
}

TEST(CgiEnvBodyMemory, TooLargeToAllocateIsNotReadButTheEnvironmentIsKept) {
  for (const char *length : {"2147483647", "4294967299", "99999999999999999999"}) {
    Variables variables = postOfLength(length);
    variables["HTTP_COOKIE"] = "a=1";
    asScript(variables, "hello", [=] {
      std::optional<Environment> made;
      withoutMemory([&] { made.emplace(); }, 512 * kMegabyte);
      Environment &environment = *made;
      EXPECT_EQ(TARN_BAD_ARGUMENT, environment.status) << length;
      EXPECT_EQ(kLargest, environment.contentLength()) << length;
      EXPECT_EQ(kNone, environment.body()) << length;
      EXPECT_EQ((Cookies{{"a", "1"}}), environment.cookies()) << length;
      EXPECT_EQ("hello", restOfStandardInput()) << length;
    });
  }
}

TEST(CgiEnvBodyGigabytes, FarShorterThanDeclaredCostsAddressSpaceButNoMemory) {
  static constexpr uint32_t kDeclared = 1 << 30;
  if (void *probe = std::malloc(kDeclared + 1UL)) {
    std::free(probe);
  } else {
    GTEST_SKIP() << "no room for the length that is declared";
  }
  asScript(postOfLength(std::to_string(kDeclared)), "hello", [] {
    // The process inherits the memory of the tests before it.
    rusage before{};
    ASSERT_EQ(0, getrusage(RUSAGE_SELF, &before));
    Environment environment;
    EXPECT_EQ(TARN_OK, environment.status);
    TarnHandle body =
        CGIgs_getStruct(&environment.handle, TARN_ENVIRONMENT_BODY, TARN_ENVIRONMENT_MAGIC);
    EXPECT_EQ(kDeclared, CGIgs_getInt(&body, TARN_BYTE_BUFFER_LENGTH, TARN_BYTE_BUFFER_MAGIC));
    const auto *bytes =
        reinterpret_cast<const char *>(CGIgs_getFixed(&body, TARN_BYTE_BUFFER_MAGIC));
    EXPECT_STREQ("hello", bytes);
    EXPECT_EQ('\0', bytes[kDeclared]);
    rusage usage{};
    ASSERT_EQ(0, getrusage(RUSAGE_SELF, &usage));
    // The address sanitizer's shadow memory takes one byte for eight.
    const long most = (kSanitized ? 300 : 64) * 1024;
    EXPECT_LT(usage.ru_maxrss - before.ru_maxrss, most) << "kilobytes";
  });
}

TEST(CgiEnvBody, StaysReadableAfterTheEnvironmentIsDeleted) {
  asScript(postOfLength("5"), "hello", [] {
    const char *bytes = nullptr;
    {
      Environment environment;
      TarnHandle body =
          CGIgs_getStruct(&environment.handle, TARN_ENVIRONMENT_BODY, TARN_ENVIRONMENT_MAGIC);
      bytes = reinterpret_cast<const char *>(CGIgs_getFixed(&body, TARN_BYTE_BUFFER_MAGIC));
    }
    EXPECT_STREQ("hello", bytes);
  });
}

// ---- Replacing the body -------------------------------------------------------------------------

TEST(CgiEnvSetPostData, AddsABodyToAnEnvironmentWithoutOne) {
  asScript({}, "", [] {
    Environment environment;
    EXPECT_EQ(TARN_OK, CgiEnv_setPostData(&environment.handle, "a\0b", 3));
    EXPECT_EQ("a\0b"s, environment.body());
    EXPECT_EQ(22878U, CGIgs_getChildMagic(&environment.handle, TARN_ENVIRONMENT_BODY,
                                          TARN_ENVIRONMENT_MAGIC));
    EXPECT_EQ(0, environment.contentLength()) << "the captured length is another matter";
  });
}

TEST(CgiEnvSetPostData, ReplacesTheBodyAndLeavesTheOldBytesReadable) {
  asScript(postOfLength("5"), "hello", [] {
    Environment environment;
    TarnHandle old =
        CGIgs_getStruct(&environment.handle, TARN_ENVIRONMENT_BODY, TARN_ENVIRONMENT_MAGIC);
    const auto *bytes =
        reinterpret_cast<const char *>(CGIgs_getFixed(&old, TARN_BYTE_BUFFER_MAGIC));
    EXPECT_EQ(TARN_OK, CgiEnv_setPostData(&environment.handle, "other", 4));
    EXPECT_EQ("othe", environment.body());
    EXPECT_EQ(5, environment.contentLength());
    EXPECT_STREQ("hello", bytes);
  });
}

TEST(CgiEnvSetPostData, StoresACopy) {
  asScript({}, "", [] {
    Environment environment;
    char data[] = "hello";
    EXPECT_EQ(TARN_OK, CgiEnv_setPostData(&environment.handle, data, 5));
    std::memset(data, 'x', 5);
    EXPECT_EQ("hello", environment.body());
  });
}

TEST(CgiEnvSetPostData, AcceptsTheBodyItAlreadyHolds) {
  asScript(postOfLength("5"), "hello", [] {
    Environment environment;
    TarnHandle body =
        CGIgs_getStruct(&environment.handle, TARN_ENVIRONMENT_BODY, TARN_ENVIRONMENT_MAGIC);
    const auto *bytes =
        reinterpret_cast<const char *>(CGIgs_getFixed(&body, TARN_BYTE_BUFFER_MAGIC));
    EXPECT_EQ(TARN_OK, CgiEnv_setPostData(&environment.handle, bytes + 1, 3));
    EXPECT_EQ("ell", environment.body());
  });
}

TEST(CgiEnvSetPostData, ReadsNoMoreThanItsLength) {
  asScript({}, "", [] {
    Environment environment;
    ExactBlock data("hello");
    EXPECT_EQ(TARN_OK, CgiEnv_setPostData(&environment.handle, data.bytes(), data.size()));
    EXPECT_EQ("hello", environment.body());
  });
}

TEST(CgiEnvSetPostData, RefusesNullDataAndLengthZeroAndKeepsTheBody) {
  asScript(postOfLength("5"), "hello", [] {
    Environment environment;
    EXPECT_EQ(TARN_BAD_ARGUMENT, CgiEnv_setPostData(&environment.handle, nullptr, 3));
    EXPECT_EQ("hello", environment.body());
    EXPECT_EQ(TARN_BAD_ARGUMENT, CgiEnv_setPostData(&environment.handle, "other", 0));
    EXPECT_EQ("hello", environment.body());
    EXPECT_EQ(TARN_BAD_ARGUMENT, CgiEnv_setPostData(&environment.handle, nullptr, 0));
    EXPECT_EQ("hello", environment.body());
  });
}

TEST(CgiEnvSetPostData, OnAnotherTypeReturnsWrongTypeWhateverTheData) {
  withEveryHandleExcept(TARN_ENVIRONMENT_MAGIC, [](TarnHandle *handle) {
    EXPECT_EQ(TARN_WRONG_TYPE, CgiEnv_setPostData(handle, "hello", 5));
    EXPECT_EQ(TARN_WRONG_TYPE, CgiEnv_setPostData(handle, nullptr, 0));
    EXPECT_EQ(0U, CGIgs_getStruct(handle, 0, 0));
  });
}

TEST(CgiEnvSetPostDataMemory, OutOfMemoryKeepsTheBody) {
  asScript(postOfLength("5"), "hello", [] {
    Environment environment;
    for (const uint32_t length : {0x7FFFFFFFU, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
      SCOPED_TRACE(length);
      TarnStatus status = TARN_OK;
      const auto set = [&] { status = CgiEnv_setPostData(&environment.handle, "x", length); };
      withoutMemory(set, 512 * kMegabyte);
      EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
      EXPECT_EQ("hello", environment.body());
    }
  });
}

TEST(CgiEnvWithoutMemory, NewReturnsBadArgumentAndLeavesTheHandleZero) {
  asScript({{"HTTP_COOKIE", "a=1"}}, "", [] {
    TarnHandle handle = 0;
    TarnStatus status = TARN_OK;
    withoutMemory([&] { status = CgiEnv_new(&handle); });
    EXPECT_EQ(TARN_BAD_ARGUMENT, status);
    EXPECT_EQ(0U, handle);
  });
}

TEST(CgiEnvWithoutMemory, SetPostDataReportsItAndKeepsTheBody) {
  asScript(postOfLength("5"), "hello", [] {
    Environment environment;
    const std::string data(100000, 'x');
    TarnStatus status = TARN_OK;
    withoutMemory(
        [&] {
          status = CgiEnv_setPostData(&environment.handle, data.data(),
                                      static_cast<uint32_t>(data.size()));
        },
        data.size());
    EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
    EXPECT_EQ("hello", environment.body());
  });
}

TEST(CgiEnvWithoutMemory, CookieWithoutRoomForItsNameOrValueHasNeither) {
  const std::string large(100000, 'x');
  for (const std::string &cookie : {"name=" + large, large + "=value"}) {
    SCOPED_TRACE(cookie.substr(0, 20));
    asScript({{"HTTP_COOKIE", "a=1; " + cookie + "; b=2"}}, "", [] {
      TarnHandle handle = 0;
      TarnStatus status = TARN_OUT_OF_MEMORY;
      withoutMemory([&] { status = CgiEnv_new(&handle); }, kLittleMemory);
      EXPECT_EQ(TARN_OK, status);
      EXPECT_EQ((Cookies{{"a", "1"}, {kNone, kNone}, {"b", "2"}}), cookiesOf(handle));
      EXPECT_EQ(TARN_OK, CgiEnv_delete(&handle));
    });
  }
}

TEST(CgiEnvWithoutMemory, EachAllocationFailingInTurnLeavesABodyOrReportsThatItIsMissing) {
  Variables variables = postOfLength("5");
  variables["HTTP_COOKIE"] = "a=1; x; b=2";
  asScript(variables, "", [] {
    const std::optional<Cookies> all = Cookies{{"a", "1"}, {kNone, kNone}, {"b", "2"}};
    std::optional<Cookies> cookies;
    int refused = 0;
    for (size_t spare = 0; cookies != all; spare += 8) {
      ASSERT_LT(spare, 100000U) << "with that much the environment is whole";
      feedStandardInput("hello");
      TarnHandle handle = 0;
      TarnStatus status = TARN_OUT_OF_MEMORY;
      withoutMemory([&] { status = CgiEnv_new(&handle); }, spare);
      ASSERT_EQ(status == TARN_OK ? Text("hello") : kNone, bodyOf(handle)) << spare;
      if (!handle) {
        ASSERT_EQ(TARN_BAD_ARGUMENT, status) << spare;
      }
      if (status != TARN_OK) ++refused;
      cookies = cookiesOf(handle);
      const TarnStatus expected = handle ? TARN_OK : TARN_WRONG_TYPE;
      ASSERT_EQ(expected, CgiEnv_delete(&handle)) << spare;
    }
    EXPECT_GT(refused, 2);
  });
}

// ---- Emptying and deleting ----------------------------------------------------------------------

TEST(CgiEnvClear, EmptiesTheNodeWhichRemainsAnEnvironment) {
  Variables variables = postOfLength("5");
  variables["HTTPS"] = "on";
  variables["HTTP_COOKIE"] = "a=1; b=2; x";
  asScript(variables, "hello", [] {
    Environment environment;
    const TarnHandle before = environment.handle;
    EXPECT_EQ(TARN_OK, CgiEnv_clear(&environment.handle));
    EXPECT_EQ(before, environment.handle);
    EXPECT_TRUE(CGIgs_IsA(&environment.handle, TARN_ENVIRONMENT_MAGIC));
    EXPECT_EQ(0, environment.contentLength());
    EXPECT_EQ(0U, environment.https());
    EXPECT_EQ(kNone, environment.body());
    EXPECT_EQ(std::nullopt, environment.cookies());
    EXPECT_EQ(0U, CGIgs_getChildMagic(&environment.handle, TARN_ENVIRONMENT_BODY,
                                      TARN_ENVIRONMENT_MAGIC));
    EXPECT_EQ(0U, CGIgs_getChildMagic(&environment.handle, TARN_ENVIRONMENT_COOKIES,
                                      TARN_ENVIRONMENT_MAGIC));
  });
}

TEST(CgiEnvClear, LeavesTheGettersWorkingAndAcceptsANewBody) {
  asScript(postOfLength("5"), "hello", [] {
    Environment environment;
    EXPECT_EQ(TARN_OK, CgiEnv_clear(&environment.handle));
    EXPECT_EQ(5, CgiEnv_getContentLength(&environment.handle));
    EXPECT_STREQ("POST", CgiEnv_getRequestMethod(&environment.handle));
    EXPECT_EQ(TARN_OK, CgiEnv_clear(&environment.handle)) << "twice";
    EXPECT_EQ(TARN_OK, CgiEnv_setPostData(&environment.handle, "new", 3));
    EXPECT_EQ("new", environment.body());
  });
}

TEST(CgiEnvClear, WithoutCookiesOrBodySucceeds) {
  asScript({}, "", [] {
    Environment environment;
    EXPECT_EQ(TARN_OK, CgiEnv_clear(&environment.handle));
    EXPECT_TRUE(CGIgs_IsA(&environment.handle, TARN_ENVIRONMENT_MAGIC));
  });
}

TEST(CgiEnvClear, OnAnotherTypeReturnsWrongType) {
  withEveryHandleExcept(TARN_ENVIRONMENT_MAGIC, [](TarnHandle *handle) {
    const bool filled = CGIgs_setInt(handle, 0, 7, 0) == TARN_OK;
    EXPECT_EQ(TARN_WRONG_TYPE, CgiEnv_clear(handle));
    EXPECT_EQ(filled ? 7U : 0U, CGIgs_getInt(handle, 0, 0));
  });
}

TEST(CgiEnvDelete, SetsTheHandleToZero) {
  Variables variables = postOfLength("5");
  variables["HTTP_COOKIE"] = "a=1; b=2";
  asScript(variables, "hello", [] {
    TarnHandle handle = 0;
    ASSERT_EQ(TARN_OK, CgiEnv_new(&handle));
    EXPECT_EQ(TARN_OK, CgiEnv_delete(&handle));
    EXPECT_EQ(0U, handle);
    EXPECT_EQ(TARN_WRONG_TYPE, CgiEnv_delete(&handle)) << "twice";
    EXPECT_EQ(TARN_OK, CgiEnv_new(&handle)) << "and again";
    EXPECT_EQ(TARN_OK, CgiEnv_delete(&handle));
  });
}

TEST(CgiEnvDelete, OnAnotherTypeReturnsWrongTypeAndReleasesNothing) {
  withEveryHandleExcept(TARN_ENVIRONMENT_MAGIC, [](TarnHandle *handle) {
    EXPECT_EQ(TARN_WRONG_TYPE, CgiEnv_delete(handle));
  });
}

TEST(CgiEnv, SaveAndRestoreDoNothing) {
  Variables variables = postOfLength("5");
  variables["HTTP_COOKIE"] = "a=1";
  asScript(variables, "hello", [] {
    Environment environment;
    std::FILE *const stream = std::tmpfile();
    ASSERT_NE(nullptr, stream);
    std::fputs("text", stream);
    std::rewind(stream);
    EXPECT_EQ(TARN_OK, CgiEnv_save(&environment.handle, stream));
    EXPECT_EQ(0, std::ftell(stream));
    EXPECT_EQ(TARN_OK, CgiEnv_restore(&environment.handle, stream));
    EXPECT_EQ(0, std::ftell(stream));
    char kept[8] = "";
    EXPECT_EQ(4U, std::fread(kept, 1, sizeof kept, stream));
    EXPECT_STREQ("text", kept);
    std::fclose(stream);
    EXPECT_EQ(TARN_OK, CgiEnv_save(nullptr, nullptr));
    EXPECT_EQ(TARN_OK, CgiEnv_restore(nullptr, nullptr));
    EXPECT_EQ("hello", environment.body());
    EXPECT_EQ((Cookies{{"a", "1"}}), environment.cookies());
  });
}

// ---- Getters ------------------------------------------------------------------------------------

TEST(CgiEnvGetters, ReturnTheTextInTheProcessEnvironmentNotACopy) {
  Variables variables;
  for (const TextGetter &getter : kTextGetters) {
    variables[getter.variable] = "value of "s + getter.variable + " \xFF\xC3";
  }
  asScript(variables, "", [&] {
    Environment environment;
    for (const auto &[variable, get] : kTextGetters) {
      EXPECT_EQ(variables.at(variable), get(&environment.handle)) << variable;
      EXPECT_EQ(std::getenv(variable), get(&environment.handle)) << variable;
    }
  });
}

TEST(CgiEnvGetters, ReturnAnEmptyTextForAnUnsetOrEmptyVariable) {
  asScript({}, "", [] {
    Environment environment;
    for (const auto &[variable, get] : kTextGetters) {
      ASSERT_NE(nullptr, get(&environment.handle)) << variable;
      EXPECT_STREQ("", get(&environment.handle)) << variable;
      setenv(variable, "", 1);
      EXPECT_STREQ("", get(&environment.handle)) << variable;
      EXPECT_EQ(std::getenv(variable), get(&environment.handle)) << variable;
    }
  });
}

TEST(CgiEnvGetters, ReadOnlyTheirOwnVariable) {
  asScript({}, "", [] {
    for (const TextGetter &set : kTextGetters) {
      setenv(set.variable, "x", 1);
      for (const TextGetter &read : kTextGetters) {
        EXPECT_STREQ(read.variable == set.variable ? "x" : "", read.get(nullptr))
            << read.variable << " with only " << set.variable << " set";
      }
      unsetenv(set.variable);
    }
  });
}

TEST(CgiEnvGetters, ReturnNumbersClampedTo32Bits) {
  asScript({}, "", [] {
    Environment environment;
    for (const auto &[variable, get] : kNumberGetters) {
      EXPECT_EQ(0, get(&environment.handle)) << variable << " unset";
      for (const auto &[text, value] : kNumbers) {
        setenv(variable, text, 1);
        EXPECT_EQ(value, get(&environment.handle)) << variable << " " << text;
      }
      unsetenv(variable);
    }
  });
}

TEST(CgiEnvGetters, IgnoreTheHandle) {
  Variables variables{{"SERVER_PORT", "8080"}, {"CONTENT_LENGTH", "5"}};
  for (const TextGetter &getter : kTextGetters) variables[getter.variable] = getter.variable;
  asScript(variables, "", [] {
    TarnHandle none = 0;
    TarnHandle nonsense = 1;
    for (TarnHandle *handle : {static_cast<TarnHandle *>(nullptr), &none, &nonsense}) {
      for (const auto &[variable, get] : kTextGetters) EXPECT_STREQ(variable, get(handle));
      EXPECT_EQ(8080, CgiEnv_getServerPort(handle));
      EXPECT_EQ(5, CgiEnv_getContentLength(handle));
    }
  });
}

TEST(CgiEnvGetters, ShowLaterChangesWhileTheStoredValuesStay) {
  Variables variables = postOfLength("5");
  variables["HTTPS"] = "on";
  variables["HTTP_COOKIE"] = "a=1";
  asScript(variables, "hello", [] {
    Environment environment;
    for (const auto &[variable, get] : kTextGetters) {
      setenv(variable, "changed", 1);
      EXPECT_STREQ("changed", get(&environment.handle)) << variable;
      unsetenv(variable);
      EXPECT_STREQ("", get(&environment.handle)) << variable;
    }
    for (const auto &[variable, get] : kNumberGetters) {
      setenv(variable, "77", 1);
      EXPECT_EQ(77, get(&environment.handle)) << variable;
    }
    setenv("HTTPS", "off", 1);
    EXPECT_EQ(5, environment.contentLength());
    EXPECT_EQ(1U, environment.https());
    EXPECT_EQ("hello", environment.body());
    EXPECT_EQ((Cookies{{"a", "1"}}), environment.cookies());
  });
}

TEST(CgiEnvGetters, ReturnALongVariableInFull) {
  const std::string longText(100000, 'x');
  asScript({{"CONTENT_TYPE", longText}}, "",
           [&] { EXPECT_EQ(longText, CgiEnv_getContentType(nullptr)); });
}

}  // namespace
}  // namespace tarn_test
