#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/failing_memory.h"
#include "support/form.h"
#include "support/handles.h"
#include "support/script.h"
#include "tarn.h"

namespace tarn_test {
namespace {

using namespace std::string_literals;

constexpr const char *kUrlEncoded = "application/x-www-form-urlencoded";
constexpr const char *kMultipart = "multipart/form-data; boundary=XYZ";

// Pieces of a multipart body with the boundary XYZ.
std::string field(const std::string &name, const std::string &value) {
  return "--XYZ\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value + "\r\n";
}

std::string file(const std::string &name, const std::string &fileName, const std::string &data) {
  return "--XYZ\r\nContent-Disposition: form-data; name=\"" + name + "\"; filename=\"" + fileName +
         "\"\r\nContent-Type: text/plain\r\n\r\n" + data + "\r\n";
}

constexpr const char *kEnd = "--XYZ--\r\n";

File textFile(const std::string &name, const std::string &fileName, const std::string &data) {
  return {name, fileName, "text/plain", data};
}

void asScriptOfMultipart(const std::string &body, const std::function<void(Request &)> &script) {
  asScript(post(kMultipart, body), body, [&] {
    Request request;
    ASSERT_EQ(TARN_OK, request.status);
    script(request);
  });
}

// The value of an entry that was looked up, or kNone if nothing was found.
Text valueOf(TarnHandle entry) { return entry ? entryOf(entry).value : kNone; }

// ---- Creation -----------------------------------------------------------------------------------

TEST(Tarn, NewCreatesARequestWithEnvironmentEntryListAndFileList) {
  asScript({}, "", [] {
    TarnHandle handle = 0;
    EXPECT_EQ(TARN_OK, Tarn_new(&handle));
    EXPECT_EQ(28658U, CGIgs_getMagic(&handle));
    EXPECT_EQ(18238U, CGIgs_getChildMagic(&handle, 0, 28658));
    EXPECT_EQ(206173U, CGIgs_getChildMagic(&handle, 1, 28658));
    EXPECT_EQ(206173U, CGIgs_getChildMagic(&handle, 2, 28658));
    TarnHandle environment = CGIgs_getStruct(&handle, 0, 28658);
    TarnHandle entries = CGIgs_getStruct(&handle, 1, 28658);
    TarnHandle files = CGIgs_getStruct(&handle, 2, 28658);
    EXPECT_TRUE(CGIgs_IsA(&environment, 18238));
    EXPECT_TRUE(CGIgs_IsA(&entries, 206173));
    EXPECT_TRUE(CGIgs_IsA(&files, 206173));
    EXPECT_NE(entries, files);
    EXPECT_EQ(0, FormEntryList_getCount(&entries));
    EXPECT_EQ(0, FormFileList_getCount(&files));
    EXPECT_EQ(TARN_OK, Tarn_delete(&handle));
  });
}

TEST(Tarn, NewRefusesANullHandleAddressAndReadsNothing) {
  asScript(post(kUrlEncoded, "a=1"), "a=1", [] {
    EXPECT_EQ(TARN_BAD_ARGUMENT, Tarn_new(nullptr));
    EXPECT_EQ("a=1", restOfStandardInput());
  });
}

TEST(Tarn, NewRefusesAHandleInUseAndReadsNothing) {
  asScript(post(kUrlEncoded, "a=1"), "a=1", [] {
    Node entry(TARN_FORM_ENTRY_MAGIC);
    const TarnHandle before = entry.value();
    EXPECT_EQ(TARN_BAD_ARGUMENT, Tarn_new(entry));
    EXPECT_EQ(before, entry.value());
    EXPECT_TRUE(CGIgs_IsA(entry, TARN_FORM_ENTRY_MAGIC));
    EXPECT_EQ("a=1", restOfStandardInput());
  });
}

TEST(Tarn, NewOnARequestIsRefusedAndKeepsItsEntries) {
  asScriptOf("a=1", [](Request &request) {
    setenv("QUERY_STRING", "b=2", 1);
    EXPECT_EQ(TARN_BAD_ARGUMENT, Tarn_new(&request.handle));
    EXPECT_EQ((Entries{{"a", "1"}}), request.entries());
  });
}

TEST(Tarn, HasTheEnvironmentWithItsBodyAndCookies) {
  Variables variables = post(kUrlEncoded, "a=1&b=2");
  variables["HTTPS"] = "on";
  variables["HTTP_COOKIE"] = "id=7; x";
  asScript(variables, "a=1&b=2", [] {
    Request request;
    TarnHandle environment = request.environment();
    EXPECT_EQ(7U,
              CGIgs_getInt(&environment, TARN_ENVIRONMENT_CONTENT_LENGTH, TARN_ENVIRONMENT_MAGIC));
    EXPECT_EQ(1U, CGIgs_getInt(&environment, TARN_ENVIRONMENT_HTTPS, TARN_ENVIRONMENT_MAGIC));
    EXPECT_EQ("a=1&b=2", bodyOf(environment));
    EXPECT_EQ((Cookies{{"id", "7"}, {kNone, kNone}}), cookiesOf(environment));
    EXPECT_STREQ("POST", CgiEnv_getRequestMethod(&environment));
  });
}

TEST(Tarn, ReservesNoRoomBeforeTheFirstEntryOrFile) {
  asScriptOf("", [](Request &request) {
    TarnHandle entries = request.entryList();
    TarnHandle files = request.fileList();
    EXPECT_EQ(0U, CGIgs_getList(&entries, TARN_LIST_ELEMENTS, TARN_FORM_ENTRY_LIST_MAGIC));
    EXPECT_EQ(0U, CGIgs_getList(&files, TARN_LIST_ELEMENTS, TARN_FORM_FILE_LIST_MAGIC));
  });
}

TEST(Tarn, ReservesRoomForTenWithTheFirstEntryOrFile) {
  asScriptOfMultipart(field("a", "1") + file("f", "f.txt", "x") + kEnd, [](Request &request) {
    TarnHandle entries = request.entryList();
    TarnHandle files = request.fileList();
    TarnHandle entryWords = CGIgs_getList(&entries, TARN_LIST_ELEMENTS, TARN_FORM_ENTRY_LIST_MAGIC);
    TarnHandle fileWords = CGIgs_getList(&files, TARN_LIST_ELEMENTS, TARN_FORM_FILE_LIST_MAGIC);
    EXPECT_EQ(10U, TARNGenericList_getCapacity(&entryWords));
    EXPECT_EQ(10U, TARNGenericList_getCapacity(&fileWords));
  });
}

TEST(Tarn, PrintsNothing) {
  const std::string body = field("a", "1") + "--XYZ\r\nbroken\r\n" + kEnd;
  asScript(post(kMultipart, body), body, [] {
    std::FILE *const printed = std::tmpfile();
    ASSERT_NE(nullptr, printed);
    std::fflush(nullptr);
    const int out = dup(STDOUT_FILENO);
    const int error = dup(STDERR_FILENO);
    dup2(fileno(printed), STDOUT_FILENO);
    dup2(fileno(printed), STDERR_FILENO);
    TarnHandle handle = 0;
    Tarn_new(&handle);
    Tarn_new(&handle);
    Tarn_delete(&handle);
    std::fflush(nullptr);
    dup2(out, STDOUT_FILENO);
    dup2(error, STDERR_FILENO);
    struct stat state {};
    ASSERT_EQ(0, fstat(fileno(printed), &state));
    EXPECT_EQ(0, state.st_size);
    std::fclose(printed);
  });
}

// ---- Which input is parsed ----------------------------------------------------------------------

TEST(Tarn, ParsesTheQueryStringOfAGetAndDoesNotReadItsBody) {
  Variables variables = get("a=1");
  variables["CONTENT_LENGTH"] = "3";
  asScript(variables, "b=2", [] {
    Request request;
    EXPECT_EQ(TARN_OK, request.status);
    EXPECT_EQ((Entries{{"a", "1"}}), request.entries());
    EXPECT_EQ(kNone, bodyOf(request.environment()));
    EXPECT_EQ("b=2", restOfStandardInput());
  });
}

TEST(Tarn, ParsesTheBodyOfAPostAndNotItsQueryString) {
  for (const char *method : {"POST", "post", "Post"}) {
    SCOPED_TRACE(method);
    Variables variables = post(kUrlEncoded, "b=2");
    variables["REQUEST_METHOD"] = method;
    variables["QUERY_STRING"] = "a=1";
    expectForm(variables, "b=2", {{{"b", "2"}}, {}});
  }
}

TEST(Tarn, ParsesTheQueryStringOfEveryMethodExceptPost) {
  for (const char *method : {"", "GET", "get", "PUT", "HEAD", "DELETE", "POSTS", " POST"}) {
    SCOPED_TRACE(method);
    Variables variables = get("a=1");
    variables["REQUEST_METHOD"] = method;
    expectForm(variables, "", {{{"a", "1"}}, {}});
  }
}

TEST(Tarn, ParsesTheQueryStringWithoutARequestMethod) {
  expectForm({{"QUERY_STRING", "a=1"}}, "", {{{"a", "1"}}, {}});
}

TEST(Tarn, WithoutAQueryStringHasNoEntries) {
  expectForm({{"REQUEST_METHOD", "GET"}}, "", {});
  expectForm({}, "", {});
  expectForm(get(""), "", {});
}

TEST(Tarn, ParsesNothingOfAPostWithoutALength) {
  expectForm({{"REQUEST_METHOD", "POST"}, {"QUERY_STRING", "a=1"}}, "b=2", {});
  for (const char *length : {"0", "abc", ""}) {
    SCOPED_TRACE(length);
    expectForm({{"REQUEST_METHOD", "POST"}, {"QUERY_STRING", "a=1"}, {"CONTENT_LENGTH", length}},
               "b=2", {});
  }
}

TEST(Tarn, ParsesNothingOfAPostWithANegativeLengthAndReturnsOk) {
  for (const char *length : {"-1", "-99999999999999999999"}) {
    SCOPED_TRACE(length);
    asScript({{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", length}}, "b=2", [] {
      Request request;
      EXPECT_EQ(TARN_OK, request.status);
      EXPECT_EQ(Form{}, request.form());
      TarnHandle environment = request.environment();
      EXPECT_TRUE(CGIgs_IsA(&environment, TARN_ENVIRONMENT_MAGIC));
      EXPECT_EQ("b=2", restOfStandardInput());
    });
  }
}

TEST(Tarn, ParsesWhatArrivedOfAPostShorterThanDeclared) {
  Variables variables = post(kUrlEncoded, "");
  variables["CONTENT_LENGTH"] = "100";
  expectForm(variables, "a=1&b=2", {{{"a", "1"}, {"b", "2"}}, {}});
  expectForm(variables, "", {});
}

TEST(Tarn, ParsesTheDeclaredLengthOfALongerPost) {
  Variables variables = post(kUrlEncoded, "");
  variables["CONTENT_LENGTH"] = "7 bytes";
  expectForm(variables, "a=1&b=23&c=4", {{{"a", "1"}, {"b", "2"}}, {}});
}

TEST(Tarn, ParsesAUrlEncodedPostUpToTheFirstZeroByte) {
  const std::string body = "a=1&b=2\0x&c=3"s;
  asScript(post(kUrlEncoded, body), body, [&] {
    Request request;
    EXPECT_EQ(TARN_OK, request.status);
    EXPECT_EQ((Entries{{"a", "1"}, {"b", "2"}}), request.entries());
    EXPECT_EQ(body, bodyOf(request.environment()));
  });
}

TEST(Tarn, DoesNotChangeTheBytesOfTheBody) {
  const std::pair<const char *, std::string> cases[] = {
      {kUrlEncoded, "a=1&b=%41+x&=&flag"},
      {kMultipart, field("a", "1") + file("f", "a+b%41", "x\0y"s) + kEnd}};
  for (const auto &[contentType, body] : cases) {
    SCOPED_TRACE(contentType);
    asScript(post(contentType, body), body, [&sent = body] {
      Request request;
      EXPECT_EQ(sent, bodyOf(request.environment()));
    });
  }
}

TEST(Tarn, KeepsTheBodysBytesReadableAfterTheRequestIsDeleted) {
  asScript(post(kUrlEncoded, "a=1"), "a=1", [] {
    const char *bytes = nullptr;
    {
      Request request;
      TarnHandle environment = request.environment();
      TarnHandle body =
          CGIgs_getStruct(&environment, TARN_ENVIRONMENT_BODY, TARN_ENVIRONMENT_MAGIC);
      bytes = reinterpret_cast<const char *>(CGIgs_getFixed(&body, TARN_BYTE_BUFFER_MAGIC));
    }
    EXPECT_STREQ("a=1", bytes);
  });
}

TEST(Tarn, KeepsAFilesBytesReadableAfterTheRequestIsDeleted) {
  asScript(
      post(kMultipart, file("f", "f.txt", "data") + kEnd), file("f", "f.txt", "data") + kEnd, [] {
        const char *bytes = nullptr;
        {
          Request request;
          TarnHandle found = Tarn_getFile(&request.handle, "f");
          TarnHandle buffer = CGIgs_getStruct(&found, TARN_FILE_BYTES, TARN_FORM_FILE_MAGIC);
          bytes = reinterpret_cast<const char *>(CGIgs_getFixed(&buffer, TARN_BYTE_BUFFER_MAGIC));
        }
        EXPECT_STREQ("data", bytes);
      });
}

// ---- Multipart or not ---------------------------------------------------------------------------

TEST(TarnDispatch, ParsesContentTypesThatStartWithMultipartFormDataAsMultipart) {
  const std::string body = field("a", "1") + kEnd;
  for (const char *contentType :
       {"multipart/form-data; boundary=XYZ", "MULTIPART/FORM-DATA; boundary=XYZ",
        "Multipart/Form-Data; boundary=XYZ", "multipart/form-data;boundary=XYZ",
        "multipart/form-dataset; boundary=XYZ", "multipart/form-data boundary=XYZ"}) {
    SCOPED_TRACE(contentType);
    expectForm(post(contentType, body), body, {{{"a", "1"}}, {}});
  }
}

TEST(TarnDispatch, ParsesEveryOtherContentTypeAsUrlEncoded) {
  for (const char *contentType :
       {"", "application/x-www-form-urlencoded", "text/plain", "multipart/form-dat",
        "multipart/mixed; boundary=XYZ", " multipart/form-data; boundary=XYZ",
        "x; multipart/form-data; boundary=XYZ"}) {
    SCOPED_TRACE(contentType);
    expectForm(post(contentType, "a=1"), "a=1", {{{"a", "1"}}, {}});
  }
}

TEST(TarnDispatch, ParsesABodyWithoutAContentTypeAsUrlEncoded) {
  expectForm({{"REQUEST_METHOD", "POST"}, {"CONTENT_LENGTH", "3"}}, "a=1", {{{"a", "1"}}, {}});
}

TEST(TarnDispatch, ParsesTheQueryStringOfAGetAsMultipartIfTheContentTypeIsMultipart) {
  Variables variables = get(field("a", "1") + file("f", "f.txt", "x") + kEnd);
  variables["CONTENT_TYPE"] = "MULTIPART/FORM-DATA; boundary=XYZ";
  expectForm(variables, "", {{{"a", "1"}}, {textFile("f", "f.txt", "x")}});
}

TEST(TarnDispatch, FindsNothingInAUrlEncodedQueryStringIfTheContentTypeIsMultipart) {
  Variables variables = get("a=1&b=2");
  variables["CONTENT_TYPE"] = kMultipart;
  expectForm(variables, "", {});
}

TEST(TarnParseFormInput, ChecksForANullInputBeforeTheEnvironment) {
  asScriptOf("", [](Request &request) {
    EXPECT_EQ(TARN_BAD_ARGUMENT, Tarn_parseFormInput(&request.handle, nullptr, 0));
    EXPECT_EQ(TARN_BAD_ARGUMENT, Tarn_parseFormInput(&request.handle, nullptr, 5));
    withEveryHandleExcept(0, [](TarnHandle *handle) {
      EXPECT_EQ(TARN_BAD_ARGUMENT, Tarn_parseFormInput(handle, nullptr, 0));
    });
  });
}

TEST(TarnParseFormInput, OnAnythingWithoutAnEnvironmentReturnsNoEnvironment) {
  char input[] = "a=1";
  withEveryHandleExcept(0, [&](TarnHandle *handle) {
    EXPECT_EQ(TARN_NO_ENVIRONMENT, Tarn_parseFormInput(handle, input, 3));
    EXPECT_STREQ("a=1", input);
  });
}

TEST(TarnParseFormInput, OnARequestWithoutListsReturnsOkAndLosesTheFields) {
  asScript({}, "", [] {
    Environment environment;
    Node request(TARN_REQUEST_MAGIC);
    ASSERT_EQ(TARN_OK, CGIgs_setStruct(request, TARN_REQUEST_ENVIRONMENT, &environment.handle,
                                       TARN_REQUEST_MAGIC, TARN_ENVIRONMENT_MAGIC));
    char pairs[] = "a=1&b=2";
    EXPECT_EQ(TARN_OK, Tarn_parseFormInput(request, pairs, 7));
    setenv("CONTENT_TYPE", kMultipart, 1);
    ExactBlock parts(field("a", "1") + file("f", "f.txt", "x") + kEnd);
    EXPECT_EQ(TARN_OK, Tarn_parseFormInput(request, parts.text(), parts.size()));
    EXPECT_EQ(0U, CGIgs_getStruct(request, TARN_REQUEST_ENTRIES, TARN_REQUEST_MAGIC));
    EXPECT_EQ(0U, CGIgs_getStruct(request, TARN_REQUEST_FILES, TARN_REQUEST_MAGIC));
    EXPECT_EQ(0U, Tarn_getElementByName(request, "a"));
    EXPECT_EQ(0U, Tarn_getFile(request, "f"));
  });
}

TEST(TarnParseFormInput, AppendsToTheRequest) {
  asScriptOf("a=1", [](Request &request) {
    char pairs[] = "b=2&a=3";
    EXPECT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, pairs, 7));
    setenv("CONTENT_TYPE", kMultipart, 1);
    ExactBlock parts(field("c", "4") + file("f", "f.txt", "x") + kEnd);
    EXPECT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, parts.text(), parts.size()));
    EXPECT_EQ(
        (Form{{{"a", "1"}, {"b", "2"}, {"a", "3"}, {"c", "4"}}, {textFile("f", "f.txt", "x")}}),
        request.form());
  });
}

TEST(TarnParseFormInput, IgnoresTheLengthOfUrlEncodedText) {
  asScriptOf("", [](Request &request) {
    for (const uint32_t length : {0U, 1U, 7U, 1000U, 0xFFFFFFFFU}) {
      ExactBlock pairs("a=1&b=2\0"s);
      EXPECT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, pairs.text(), length));
      EXPECT_EQ((Entries{{"a", "1"}, {"b", "2"}}), request.entries()) << length;
      TarnHandle list = request.entryList();
      FormEntryList_clear(&list);
    }
  });
}

TEST(TarnParseFormInput, ReadsAMultipartBodyOnlyUpToItsLength) {
  Variables variables = get("");
  variables["CONTENT_TYPE"] = kMultipart;
  asScript(variables, "", [] {
    Request request;
    const std::string first = field("a", "1");
    ExactBlock body(first + field("b", "2") + kEnd);
    EXPECT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, body.text(), 0));
    EXPECT_EQ(Form{}, request.form());
    const auto length = static_cast<uint32_t>(first.size());
    EXPECT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, body.text(), length));
    EXPECT_EQ((Entries{{"a", "1"}}), request.entries());
  });
}

TEST(TarnParseFormInput, DoesNotChangeItsInput) {
  asScriptOf("", [](Request &request) {
    const std::string pairs = "a=1&b=%41+&flag&=\0"s;
    ExactBlock urlEncoded(pairs);
    EXPECT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, urlEncoded.text(), 0));
    EXPECT_EQ(pairs, urlEncoded.str());
    setenv("CONTENT_TYPE", kMultipart, 1);
    const std::string parts = field("a", "1") + file("f", "f.txt", "x") + kEnd;
    ExactBlock multipart(parts);
    EXPECT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, multipart.text(), multipart.size()));
    EXPECT_EQ(parts, multipart.str());
  });
}

TEST(TarnParseFormInput, UsesTheContentTypeAtTheTimeOfTheCall) {
  const std::string body = field("a", "1") + kEnd;
  asScript(post(kMultipart, body), body, [&] {
    Request request;
    setenv("CONTENT_TYPE", kUrlEncoded, 1);
    char pairs[] = "b=2";
    EXPECT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, pairs, 3));
    unsetenv("CONTENT_TYPE");
    EXPECT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, pairs, 3));
    setenv("CONTENT_TYPE", "multipart/form-data; boundary=ABC", 1);
    EXPECT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, pairs, 3));
    EXPECT_EQ((Form{{{"a", "1"}, {"b", "2"}, {"b", "2"}}, {}}), request.form());
  });
}

// ---- Lookups ------------------------------------------------------------------------------------

TEST(TarnLookup, FindsTheFirstEntryOfAName) {
  asScriptOf("x=0&k=1&k=2", [](Request &request) {
    TarnHandle list = request.entryList();
    const TarnHandle found = Tarn_getElementByName(&request.handle, "k");
    EXPECT_EQ("1", valueOf(found));
    EXPECT_EQ(FormEntryList_getByIndex(&list, 1), found) << "the result is the request's own entry";
  });
}

TEST(TarnLookup, IgnoresTheCaseOfNames) {
  asScriptOf("Email=1&email=2", [](Request &request) {
    for (const char *name : {"Email", "email", "EMAIL"}) {
      EXPECT_EQ("1", valueOf(Tarn_getElementByName(&request.handle, name))) << name;
    }
  });
}

TEST(TarnLookup, ComparesWholeNames) {
  asScriptOf("name=1", [](Request &request) {
    for (const char *name : {"nam", "names", "", " name", "1"}) {
      EXPECT_EQ(0U, Tarn_getElementByName(&request.handle, name)) << name;
    }
  });
}

TEST(TarnLookup, ByAnEmptyNameFindsAnEmptyName) {
  asScriptOf("a=1&=2", [](Request &request) {
    EXPECT_EQ("2", valueOf(Tarn_getElementByName(&request.handle, "")));
  });
}

TEST(TarnLookup, ByANullNameFindsTheFirstEntryWithoutANameAndNotAnEmptyOne) {
  asScriptOf("=0&a=1", [](Request &request) {
    EXPECT_EQ(0U, Tarn_getElementByName(&request.handle, nullptr));
    setenv("CONTENT_TYPE", kMultipart, 1);
    ExactBlock parts(field("", "2") + field("", "3") + kEnd);
    ASSERT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, parts.text(), parts.size()));
    EXPECT_EQ("2", valueOf(Tarn_getElementByName(&request.handle, nullptr)));
    EXPECT_EQ("0", valueOf(Tarn_getElementByName(&request.handle, "")));
    EXPECT_EQ("2", valueOf(Tarn_getElementByValue(&request.handle, nullptr)));
  });
}

TEST(TarnLookup, ByValueComparesNames) {
  asScriptOf("a=x&x=1&X=2", [](Request &request) {
    const TarnHandle found = Tarn_getElementByValue(&request.handle, "x");
    EXPECT_EQ((Entry{"x", "1"}), entryOf(found));
    EXPECT_EQ(Tarn_getElementByName(&request.handle, "x"), found);
    EXPECT_EQ(0U, Tarn_getElementByValue(&request.handle, "1"));
  });
}

TEST(TarnLookup, OfAMissingNameFindsNothing) {
  asScriptOf("", [](Request &request) {
    for (const char *name : {static_cast<const char *>(nullptr), "", "a"}) {
      SCOPED_TRACE(testing::PrintToString(name));
      EXPECT_EQ(0U, Tarn_getElementByName(&request.handle, name));
      EXPECT_EQ(0U, Tarn_getElementByValue(&request.handle, name));
      EXPECT_EQ(0U, Tarn_getFile(&request.handle, name));
      EXPECT_EQ(0U, Tarn_queryCheckbox(&request.handle, name));
    }
  });
}

// One of the handles is an empty request, which has no lists.
TEST(TarnLookup, OnAnythingButAFilledRequestFindsNothing) {
  withEveryHandleExcept(0, [](TarnHandle *handle) {
    for (const char *name : {static_cast<const char *>(nullptr), "", "a"}) {
      SCOPED_TRACE(testing::PrintToString(name));
      EXPECT_EQ(0U, Tarn_getElementByName(handle, name));
      EXPECT_EQ(0U, Tarn_getElementByValue(handle, name));
      EXPECT_EQ(0U, Tarn_getFile(handle, name));
      EXPECT_EQ(0U, Tarn_queryCheckbox(handle, name));
    }
  });
}

TEST(TarnLookup, FindsTheFirstFileOfAFieldInAnyCase) {
  asScriptOfMultipart(
      file("a", "0.txt", "zero") + file("Doc", "1.txt", "one") + file("doc", "2.txt", "two") + kEnd,
      [](Request &request) {
        TarnHandle list = request.fileList();
        const TarnHandle found = Tarn_getFile(&request.handle, "DOC");
        EXPECT_EQ(textFile("Doc", "1.txt", "one"), fileOf(found));
        EXPECT_EQ(FormFileList_getByIndex(&list, 1), found);
        EXPECT_EQ(0U, Tarn_getFile(&request.handle, "1.txt")) << "no lookup by file name";
        EXPECT_EQ(0U, Tarn_getFile(&request.handle, "Do"));
      });
}

TEST(TarnLookup, KeepsEntriesAndFilesOfOneNameApart) {
  asScriptOfMultipart(field("x", "1") + file("x", "x.txt", "data") + field("y", "2") +
                          file("z", "z.txt", "data") + kEnd,
                      [](Request &request) {
                        EXPECT_EQ("1", valueOf(Tarn_getElementByName(&request.handle, "x")));
                        EXPECT_EQ("x.txt", fileOf(Tarn_getFile(&request.handle, "x")).fileName);
                        EXPECT_EQ(0U, Tarn_getFile(&request.handle, "y"));
                        EXPECT_EQ(0U, Tarn_getElementByName(&request.handle, "z"));
                      });
}

TEST(TarnLookup, OfAFileByANullNameFindsTheFirstWithoutAFieldName) {
  const std::string noType =
      "--XYZ\r\nContent-Disposition: form-data; name=\"f\"; filename=\"f.txt\"\r\n\r\ndata\r\n";
  asScriptOfMultipart(file("a", "a.txt", "data") + noType + kEnd, [](Request &request) {
    TarnHandle list = request.fileList();
    const TarnHandle found = Tarn_getFile(&request.handle, nullptr);
    EXPECT_EQ(FormFileList_getByIndex(&list, 1), found);
    EXPECT_EQ(File{}, fileOf(found));
  });
}

// Entry lists and file lists accept each other's elements.
TEST(TarnLookup, SkipsAFileAmongTheEntriesAndAnEntryAmongTheFiles) {
  asScriptOf("", [](Request &request) {
    TarnHandle entries = request.entryList();
    TarnHandle files = request.fileList();
    Node upload(TARN_FORM_FILE_MAGIC);
    Node entry(TARN_FORM_ENTRY_MAGIC);
    ASSERT_EQ(TARN_OK, FormFile_init(upload, "k", "f.txt", "text/plain", "x", 1));
    ASSERT_EQ(TARN_OK, FormEntry_init(entry, "k", "1", 1));
    ASSERT_EQ(TARN_OK, FormFileList_addEntry(&entries, upload));
    ASSERT_EQ(TARN_OK, FormEntryList_addEntry(&entries, entry));
    ASSERT_EQ(TARN_OK, FormEntryList_addEntry(&files, entry));
    ASSERT_EQ(TARN_OK, FormFileList_addEntry(&files, upload));
    EXPECT_EQ((Entry{"k", "1"}), entryOf(Tarn_getElementByName(&request.handle, "k")));
    EXPECT_EQ(textFile("k", "f.txt", "x"), fileOf(Tarn_getFile(&request.handle, "k")));
    Node destination(TARN_FORM_ENTRY_LIST_MAGIC);
    EXPECT_EQ(0U, Tarn_findEntries(&request.handle, "k", 0, destination));
    EXPECT_EQ((Entries{{"k", "1"}}), entriesOf(destination.value()));
    FormEntryList_clear(destination);
  });
}

TEST(TarnLookup, ReturnsAFileThatCanBeWrittenToAStream) {
  asScriptOfMultipart(file("f", "f.txt", "a\0b\n"s) + kEnd, [](Request &request) {
    TarnHandle found = Tarn_getFile(&request.handle, "f");
    EXPECT_EQ(4U, FormFile_getDataLength(&found));
    std::FILE *const stream = std::tmpfile();
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ(0U, FormFile_writeToStream(&found, stream));
    std::rewind(stream);
    char written[8] = "";
    EXPECT_EQ(4U, std::fread(written, 1, sizeof written, stream));
    EXPECT_EQ("a\0b\n"s, std::string(written, 4));
    std::fclose(stream);
  });
}

TEST(TarnLookup, ReturnsEntriesThatReadAsNumbersAndStrippedText) {
  asScriptOf("n=+42+&x=3.9&big=99999999999", [](Request &request) {
    TarnHandle number = Tarn_getElementByName(&request.handle, "n");
    EXPECT_EQ(42, FormEntry_getIntegerValue(&number));
    const char *stripped = FormEntry_getStrippedValue(&number);
    EXPECT_STREQ("42", stripped);
    std::free(const_cast<char *>(stripped));
    TarnHandle real = Tarn_getElementByName(&request.handle, "x");
    EXPECT_EQ(3.9, FormEntry_getDoubleValue(&real));
    TarnHandle big = Tarn_getElementByName(&request.handle, "big");
    EXPECT_EQ(2147483647, FormEntry_getIntegerValue(&big));
  });
}

// ---- Checkboxes ---------------------------------------------------------------------------------

TEST(TarnCheckbox, IsCheckedWhenItsValueIsOnInAnyCase) {
  asScriptOf("a=on&b=ON&c=On&d=%6Fn", [](Request &request) {
    for (const char *name : {"a", "b", "c", "d", "A"}) {
      EXPECT_EQ(1U, Tarn_queryCheckbox(&request.handle, name)) << name;
    }
  });
}

TEST(TarnCheckbox, IsNotCheckedByAnyOtherValueOrWhenMissing) {
  asScriptOf("a=1&b=yes&c=&d=on+&e=+on&f=only&g=o", [](Request &request) {
    for (const char *name : {"a", "b", "c", "d", "e", "f", "g", "on", "absent"}) {
      EXPECT_EQ(0U, Tarn_queryCheckbox(&request.handle, name)) << name;
    }
  });
}

TEST(TarnCheckbox, UsesTheFirstEntryOfTheName) {
  asScriptOf("a=off&a=on&b=on&b=off", [](Request &request) {
    EXPECT_EQ(0U, Tarn_queryCheckbox(&request.handle, "a"));
    EXPECT_EQ(1U, Tarn_queryCheckbox(&request.handle, "b"));
  });
}

TEST(TarnCheckbox, WithoutANameIsFoundByANullName) {
  asScriptOfMultipart(field("", "on") + kEnd, [](Request &request) {
    EXPECT_EQ(1U, Tarn_queryCheckbox(&request.handle, nullptr));
    EXPECT_EQ(0U, Tarn_queryCheckbox(&request.handle, ""));
  });
}

TEST(TarnCheckbox, IsCheckedByAValueThatIsOnUpToAZeroByte) {
  asScriptOfMultipart(field("a", "on\0x"s) + kEnd, [](Request &request) {
    EXPECT_EQ(1U, Tarn_queryCheckbox(&request.handle, "a"));
  });
}

// ---- Finding all entries of a name --------------------------------------------------------------

TEST(TarnFindEntries, CopiesEveryEntryWithTheNameInOrder) {
  asScriptOf("k=1&x=0&K=2&k=3", [](Request &request) {
    Node destination(TARN_FORM_ENTRY_LIST_MAGIC);
    EXPECT_EQ(0U, Tarn_findEntries(&request.handle, "k", 0, destination));
    EXPECT_EQ((Entries{{"k", "1"}, {"K", "2"}, {"k", "3"}}), entriesOf(destination.value()));
    FormEntryList_clear(destination);
  });
}

TEST(TarnFindEntries, AppendsToTheDestination) {
  asScriptOf("k=1&x=0", [](Request &request) {
    Node destination(TARN_FORM_ENTRY_LIST_MAGIC);
    EXPECT_EQ(0U, Tarn_findEntries(&request.handle, "x", 0, destination));
    EXPECT_EQ(0U, Tarn_findEntries(&request.handle, "k", 0, destination));
    EXPECT_EQ(0U, Tarn_findEntries(&request.handle, "k", 0, destination));
    EXPECT_EQ((Entries{{"x", "0"}, {"k", "1"}, {"k", "1"}}), entriesOf(destination.value()));
    FormEntryList_clear(destination);
  });
}

TEST(TarnFindEntries, CopiesStayValidAfterTheRequestIsDeleted) {
  asScript(get("k=1"), "", [] {
    Node destination(TARN_FORM_ENTRY_LIST_MAGIC);
    {
      Request request;
      EXPECT_EQ(0U, Tarn_findEntries(&request.handle, "k", 0, destination));
    }
    EXPECT_EQ((Entries{{"k", "1"}}), entriesOf(destination.value()));
    FormEntryList_clear(destination);
  });
}

TEST(TarnFindEntries, IgnoresItsThirdArgument) {
  asScriptOf("k=1&k=2", [](Request &request) {
    for (const uint32_t ignored : {0U, 1U, 2U, 0xFFFFFFFFU}) {
      SCOPED_TRACE(ignored);
      Node destination(TARN_FORM_ENTRY_LIST_MAGIC);
      EXPECT_EQ(0U, Tarn_findEntries(&request.handle, "k", ignored, destination));
      EXPECT_EQ((Entries{{"k", "1"}, {"k", "2"}}), entriesOf(destination.value()));
      FormEntryList_clear(destination);
    }
  });
}

TEST(TarnFindEntries, ByANullNameCopiesTheEntriesWithoutAName) {
  asScriptOfMultipart(
      field("", "1") + field("a", "2") + field("", "3") + kEnd, [](Request &request) {
        Node destination(TARN_FORM_ENTRY_LIST_MAGIC);
        EXPECT_EQ(0U, Tarn_findEntries(&request.handle, nullptr, 0, destination));
        EXPECT_EQ((Entries{{kNone, "1"}, {kNone, "3"}}), entriesOf(destination.value()));
        FormEntryList_clear(destination);
      });
}

TEST(TarnFindEntries, ReturnsOneWhenTheDestinationRefusesAnEntry) {
  asScriptOf("k=1&k=2", [](Request &request) {
    withEveryHandleExcept(TARN_FORM_ENTRY_LIST_MAGIC, [&](TarnHandle *handle) {
      EXPECT_EQ(1U, Tarn_findEntries(&request.handle, "k", 0, handle));
    });
    EXPECT_EQ((Entries{{"k", "1"}, {"k", "2"}}), request.entries());
  });
}

TEST(TarnFindEntries, ReturnsZeroWithoutAMatchEvenForAnUnusableDestination) {
  asScriptOf("k=1", [](Request &request) {
    withEveryHandleExcept(0, [&](TarnHandle *handle) {
      EXPECT_EQ(0U, Tarn_findEntries(&request.handle, "absent", 0, handle));
      EXPECT_EQ(0, FormEntryList_getCount(handle));
    });
  });
}

TEST(TarnFindEntries, OnAnythingButAFilledRequestReturnsZeroAndDoesNothing) {
  Node destination(TARN_FORM_ENTRY_LIST_MAGIC);
  withEveryHandleExcept(0, [&](TarnHandle *handle) {
    EXPECT_EQ(0U, Tarn_findEntries(handle, "k", 0, destination));
    EXPECT_EQ(0U, Tarn_findEntries(handle, nullptr, 0, destination));
    EXPECT_EQ(0U, Tarn_findEntries(handle, "k", 0, nullptr));
  });
  EXPECT_EQ(0, FormEntryList_getCount(destination));
}

TEST(TarnFindEntries, StopsWhenTheDestinationIsTheRequestsOwnList) {
  asScriptOf("k=1&x=0&k=2", [](Request &request) {
    TarnHandle own = request.entryList();
    EXPECT_EQ(0U, Tarn_findEntries(&request.handle, "k", 0, &own));
    EXPECT_EQ((Entries{{"k", "1"}, {"x", "0"}, {"k", "2"}, {"k", "1"}, {"k", "2"}}),
              request.entries());
  });
}

// ---- Deleting, and fixed results ----------------------------------------------------------------

TEST(Tarn, DeleteSetsTheHandleToZero) {
  const std::string body = field("a", "1") + file("f", "f.txt", "x") + kEnd;
  Variables variables = post(kMultipart, body);
  variables["HTTP_COOKIE"] = "a=1; b=2";
  asScript(variables, body, [] {
    TarnHandle handle = 0;
    ASSERT_EQ(TARN_OK, Tarn_new(&handle));
    EXPECT_EQ(TARN_OK, Tarn_delete(&handle));
    EXPECT_EQ(0U, handle);
    EXPECT_EQ(TARN_WRONG_TYPE, Tarn_delete(&handle)) << "twice";
  });
}

TEST(Tarn, DeleteOfARequestWithoutChildrenReturnsOk) {
  TarnHandle handle = 0;
  ASSERT_EQ(TARN_OK, CGIgs_new(&handle, TARN_REQUEST_MAGIC));
  EXPECT_EQ(TARN_OK, Tarn_delete(&handle));
  EXPECT_EQ(0U, handle);
}

TEST(Tarn, DeleteOfARequestWithEmptiedChildrenReturnsOk) {
  asScript(get("a=1"), "", [] {
    TarnHandle handle = 0;
    ASSERT_EQ(TARN_OK, Tarn_new(&handle));
    TarnHandle environment = CGIgs_getStruct(&handle, TARN_REQUEST_ENVIRONMENT, TARN_REQUEST_MAGIC);
    TarnHandle entries = CGIgs_getStruct(&handle, TARN_REQUEST_ENTRIES, TARN_REQUEST_MAGIC);
    EXPECT_EQ(TARN_OK, CgiEnv_clear(&environment));
    EXPECT_EQ(TARN_OK, FormEntryList_clear(&entries));
    EXPECT_EQ(TARN_OK, Tarn_delete(&handle));
    EXPECT_EQ(0U, handle);
  });
}

TEST(Tarn, DeleteOnAnotherTypeReturnsWrongTypeAndReleasesNothing) {
  withEveryHandleExcept(TARN_REQUEST_MAGIC, [](TarnHandle *handle) {
    EXPECT_EQ(TARN_WRONG_TYPE, Tarn_delete(handle));
  });
}

TEST(Tarn, TwoRequestsInOneScriptAreIndependent) {
  asScriptOf("a=1", [](Request &first) {
    setenv("QUERY_STRING", "b=2", 1);
    Request second;
    EXPECT_EQ((Entries{{"a", "1"}}), first.entries());
    EXPECT_EQ((Entries{{"b", "2"}}), second.entries());
  });
}

TEST(Tarn, ClearReturnsNotImplementedAndDoesNothing) {
  asScriptOf("a=1", [](Request &request) {
    EXPECT_EQ(TARN_NOT_IMPLEMENTED, Tarn_clear(&request.handle));
    EXPECT_EQ((Entries{{"a", "1"}}), request.entries());
    withEveryHandleExcept(
        0, [](TarnHandle *handle) { EXPECT_EQ(TARN_NOT_IMPLEMENTED, Tarn_clear(handle)); });
  });
}

TEST(Tarn, SaveAndRestoreDoNothing) {
  asScriptOf("a=1", [](Request &request) {
    std::FILE *const stream = std::tmpfile();
    ASSERT_NE(nullptr, stream);
    std::fputs("text", stream);
    std::rewind(stream);
    Tarn_save(&request.handle, stream);
    EXPECT_EQ(0, std::ftell(stream));
    Tarn_restore(&request.handle, stream);
    EXPECT_EQ(0, std::ftell(stream));
    char kept[8] = "";
    EXPECT_EQ(4U, std::fread(kept, 1, sizeof kept, stream));
    EXPECT_STREQ("text", kept);
    std::fclose(stream);
    Tarn_save(nullptr, nullptr);
    Tarn_restore(nullptr, nullptr);
    EXPECT_EQ((Entries{{"a", "1"}}), request.entries());
  });
}

TEST(Tarn, ReturnsItsVersionWhateverTheHandle) {
  withEveryHandleExcept(0, [](TarnHandle *handle) {
    EXPECT_STREQ("Jul 17 2007", Tarn_getCompileDate(handle));
    EXPECT_STREQ("14:49:31", Tarn_getCompileTime(handle));
    EXPECT_STREQ("1.0.0", Tarn_getVersion(handle));
    EXPECT_STREQ("Set this to the platform we compiled for", Tarn_getHost(handle));
  });
}

TEST(TarnDelete, ReleasesAListParkedAsTheFirstChildButNotTheEnvironmentItReplaced) {
  asScriptOf("a=1", [](Request &request) {
    TarnHandle environment = request.environment();
    TarnHandle list = 0;
    ASSERT_EQ(TARN_OK, TARNGenericList_new(&list));
    ASSERT_EQ(TARN_OK, TARNGenericList_addDatum(&list, 7));
    ASSERT_EQ(TARN_OK, CGIgs_setList(&request.handle, 2, &list, TARN_REQUEST_MAGIC));
    EXPECT_EQ(TARN_OK, Tarn_delete(&request.handle));
    EXPECT_EQ(0U, request.handle);
    EXPECT_EQ(TARN_ENVIRONMENT_MAGIC, CGIgs_getMagic(&environment));
  });
}

// ---- Without memory -----------------------------------------------------------------------------

TEST(TarnWithoutMemory, NewOfAGetReturnsNoEnvironmentAndLeavesTheHandleZero) {
  asScript(get("a=1"), "", [] {
    TarnHandle handle = 0;
    TarnStatus status = TARN_OK;
    withoutMemory([&] { status = Tarn_new(&handle); });
    EXPECT_EQ(TARN_NO_ENVIRONMENT, status);
    EXPECT_EQ(0U, handle);
  });
}

TEST(TarnWithoutMemory, NewOfAPostParsesNothingAndLeavesTheHandleZero) {
  asScript(post(kUrlEncoded, "a=1"), "a=1", [] {
    TarnHandle handle = 0;
    TarnStatus status = TARN_OUT_OF_MEMORY;
    withoutMemory([&] { status = Tarn_new(&handle); });
    EXPECT_EQ(TARN_OK, status);
    EXPECT_EQ(0U, handle);
  });
}

TEST(TarnWithoutMemory, ParsingReturnsOkAndLosesTheFields) {
  asScriptOf("a=1", [](Request &request) {
    TarnStatus urlEncoded = TARN_OUT_OF_MEMORY;
    TarnStatus multipart = TARN_OUT_OF_MEMORY;
    ExactBlock pairs("b=2&c=3\0"s);
    ExactBlock pair("d=4\0"s);
    ExactBlock parts(field("e", "5") + file("f", "f.txt", "x") + kEnd);
    ExactBlock part("name=\"g\"\r\n\r\n6\r\n");
    withoutMemory([&] {
      urlEncoded = Tarn_parseFormInput(&request.handle, pairs.text(), pairs.size());
      Tarn_parsePair(&request.handle, pair.text());
      Tarn_parseMime(&request.handle, part.bytes(), part.size());
    });
    setenv("CONTENT_TYPE", kMultipart, 1);
    withoutMemory(
        [&] { multipart = Tarn_parseFormInput(&request.handle, parts.text(), parts.size()); });
    EXPECT_EQ(TARN_OK, urlEncoded);
    EXPECT_EQ(TARN_OK, multipart);
    EXPECT_EQ((Form{{{"a", "1"}}, {}}), request.form());
    EXPECT_EQ("d\0"s + "4\0"s, pair.str());
  });
}

TEST(TarnWithoutMemory, EachAllocationFailingInTurnLeavesARequestThatCanBeReadAndDeleted) {
  Variables urlEncoded = get("a=1&b=%41&=&k=long+enough+for+a+block+of+its+own");
  urlEncoded["HTTP_COOKIE"] = "a=1; x; b=2";
  Variables multipart = get(field("a", "1") + file("f", "f+1.txt", "data") + field("", "2") + kEnd);
  multipart["CONTENT_TYPE"] = kMultipart;
  for (const Variables &variables : {urlEncoded, multipart}) {
    asScript(variables, "", [] {
      const Form whole = Request().form();
      Form form;
      size_t incomplete = 0;
      for (size_t spare = 0; form != whole; spare += 8) {
        ASSERT_LT(spare, 100000U) << "with that much the form is whole";
        TarnHandle handle = 0;
        TarnStatus status = TARN_OUT_OF_MEMORY;
        withoutMemory([&] { status = Tarn_new(&handle); }, spare);
        TarnHandle environment =
            CGIgs_getStruct(&handle, TARN_REQUEST_ENVIRONMENT, TARN_REQUEST_MAGIC);
        ASSERT_EQ(environment ? TARN_OK : TARN_NO_ENVIRONMENT, status) << spare;
        form = {entriesOf(CGIgs_getStruct(&handle, TARN_REQUEST_ENTRIES, TARN_REQUEST_MAGIC)),
                filesOf(CGIgs_getStruct(&handle, TARN_REQUEST_FILES, TARN_REQUEST_MAGIC))};
        Tarn_getElementByName(&handle, "k");
        Tarn_queryCheckbox(&handle, "a");
        Tarn_getFile(&handle, "f");
        const TarnStatus expected = handle ? TARN_OK : TARN_WRONG_TYPE;
        ASSERT_EQ(expected, Tarn_delete(&handle)) << spare;
        if (form != whole) ++incomplete;
      }
      EXPECT_GT(incomplete, 10U);
    });
  }
}

}  // namespace
}  // namespace tarn_test
