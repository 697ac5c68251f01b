// A script may define functions with the same names as a library's. The library must not call them.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "support/script.h"
#include "tarn.h"
#include "tarn_form.h"

namespace {

int captured = 0;
size_t compared = 0;

}  // namespace

extern "C" {

char *safeGetenv(const char *) {
  ++captured;
  return nullptr;
}

int stringsAreEqual(const char *, const char *) { return ++captured; }

int nStringsAreEqual(const char *, const char *, uint32_t) { return ++captured; }

char *unescapeString(const char *) {
  ++captured;
  return nullptr;
}

char *stripString(const char *) {
  ++captured;
  return nullptr;
}

void *memfind(const void *, uint32_t, const void *, uint32_t) {
  ++captured;
  return nullptr;
}

int tarn_asprintf(char **, const char *, ...) { return ++captured; }

int tarn_vasprintf(char **, const char *, va_list) { return ++captured; }

TarnStatus CGIgs_new(TarnHandle *, uint32_t) { return static_cast<TarnStatus>(++captured); }

TarnStatus CGIgs_delete(TarnHandle *, uint32_t) { return static_cast<TarnStatus>(++captured); }

TarnStatus CGIgs_setString(TarnHandle *, uint32_t, const char *, uint32_t) {
  return static_cast<TarnStatus>(++captured);
}

TarnStatus CGIgs_setInt(TarnHandle *, uint32_t, uint32_t, uint32_t) {
  return static_cast<TarnStatus>(++captured);
}

uint32_t CGIgs_getInt(TarnHandle *, uint32_t, uint32_t) {
  return static_cast<uint32_t>(++captured);
}

TarnStatus TARNGenericList_delete(TarnHandle *) { return static_cast<TarnStatus>(++captured); }

TarnStatus TARNGenericList_reserve(TarnHandle *, uint32_t) {
  return static_cast<TarnStatus>(++captured);
}

TarnStatus CgiEnv_delete(TarnHandle *) { return static_cast<TarnStatus>(++captured); }

TarnStatus FormEntryList_delete(TarnHandle *) { return static_cast<TarnStatus>(++captured); }

TarnStatus FormFileList_delete(TarnHandle *) { return static_cast<TarnStatus>(++captured); }

TarnHandle Tarn_getElementByName(TarnHandle *, const char *) {
  return static_cast<TarnHandle>(++captured);
}

TarnStatus HTTPCookie_setSecure(TarnHandle *, int) { return static_cast<TarnStatus>(++captured); }

int32_t FormEntry_compareName(TarnHandle *, const char *) { return ++captured; }

TarnFormProblem TarnForm_problem(const TarnForm *) {
  return static_cast<TarnFormProblem>(++captured);
}

int TarnForm_isWhole(const TarnForm *) {
  ++captured;
  return 0;
}

const char *TarnForm_problemName(TarnFormProblem) {
  ++captured;
  return "";
}

int TarnForm_isUtf8(const void *, uint64_t) { return ++captured; }

const char *TarnForm_cookie(TarnForm *, const char *) {
  ++captured;
  return nullptr;
}

const char *TarnForm_query(TarnForm *, const char *) {
  ++captured;
  return nullptr;
}

const char *TarnFormField_header(const TarnFormField *, const char *) {
  ++captured;
  return nullptr;
}

const char *TarnFormField_name(const TarnFormField *) {
  ++captured;
  return nullptr;
}

uint64_t TarnFormField_size(const TarnFormField *) { return static_cast<uint64_t>(++captured); }

int64_t TarnFormField_block(TarnFormField *, const void **) { return ++captured; }

int64_t TarnFormField_read(TarnFormField *, void *, uint64_t) { return ++captured; }

int TarnFormField_skip(TarnFormField *) { return ++captured; }

// Counts the bytes that the library compares in its searches.
int memcmp(const void *left, const void *right, size_t count) noexcept {
  const auto *a = static_cast<const unsigned char *>(left);
  const auto *b = static_cast<const unsigned char *>(right);
  for (size_t i = 0; i < count; ++i) {
    ++compared;
    if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
  }
  return 0;
}

// Compilers call this if they need only equality.
int bcmp(const void *left, const void *right, size_t count) noexcept {
  return memcmp(left, right, count);
}
}

namespace {

TEST(ScriptFunctionNamedLikeALibraryFunction, IsNotCalledByTheLibrary) {
  const std::string body =
      "--XYZ\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\non\r\n"
      "--XYZ\r\nContent-Disposition: form-data; name=\"f\"; filename=\"f+1\"\r\n"
      "Content-Type: text/plain\r\n\r\nbytes\r\n--XYZ--\r\n";
  tarn_test::Variables variables = tarn_test::post("multipart/form-data; boundary=XYZ", body);
  variables["HTTP_COOKIE"] = "a=1; b=2";
  tarn_test::asScript(variables, body, [] {
    TarnHandle request = 0;
    EXPECT_EQ(TARN_OK, Tarn_new(&request));
    EXPECT_EQ(1U, Tarn_queryCheckbox(&request, "A"));
    EXPECT_NE(0U, Tarn_getElementByValue(&request, "a"));
    TarnHandle file = Tarn_getFile(&request, "f");
    EXPECT_EQ(5U, FormFile_getDataLength(&file));
    TarnHandle entries = CGIgs_getStruct(&request, TARN_REQUEST_ENTRIES, TARN_REQUEST_MAGIC);
    TarnHandle entry = FormEntryList_getByIndex(&entries, 0);
    EXPECT_EQ(0, FormEntry_compare(&entry, &entry));
    FormEntryList_reserve(&entries, 40);
    TarnHandle environment =
        CGIgs_getStruct(&request, TARN_REQUEST_ENVIRONMENT, TARN_REQUEST_MAGIC);
    TarnHandle cookies =
        CGIgs_getStruct(&environment, TARN_ENVIRONMENT_COOKIES, TARN_ENVIRONMENT_MAGIC);
    TarnHandle cookie = HTTPCookieList_getByIndex(&cookies, 0);
    EXPECT_EQ(TARN_OK, HTTPCookie_init(&cookie, "n", "v", nullptr, nullptr, 1, nullptr, 1));
    free(const_cast<char *>(HTTPCookie_toString(&cookie)));
    EXPECT_EQ(TARN_OK, Tarn_delete(&request));
    EXPECT_EQ(0, captured);
  });
}

TEST(ScriptFunctionNamedLikeALibraryFunction, IsNotCalledByTheFormReader) {
  const std::string body =
      "--XYZ\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\none\r\n"
      "--XYZ\r\nContent-Disposition: form-data; name=\"f\"; filename=\"f\"\r\n"
      "Content-Type: text/plain\r\n\r\nbytes\r\n--XYZ--\r\n";
  tarn_test::Variables variables = tarn_test::post("multipart/form-data; boundary=XYZ", body);
  variables["HTTP_COOKIE"] = "a=1%41";
  variables["QUERY_STRING"] = "a=1%41";
  tarn_test::asScript(variables, body, [] {
    TarnForm *form = TarnForm_open();
    EXPECT_EQ(1, TarnForm_load(form));
    EXPECT_EQ(200, TarnForm_status(form));
    EXPECT_STREQ("", TarnForm_message(form));
    TarnFormField *text = TarnForm_getIgnoringCase(form, "A", 0);
    EXPECT_STREQ("one", TarnFormField_text(text));
    TarnFormField *file = TarnForm_get(form, "f", 0);
    EXPECT_STREQ("text/plain", TarnFormField_type(file));
    EXPECT_EQ(EINVAL, TarnFormField_save(file, "/", ".."));
    EXPECT_STREQ("1A", TarnForm_decodedCookie(form, "a"));
    EXPECT_STREQ("1A", TarnForm_decodedQuery(form, "a"));
    TarnForm_close(form);
    EXPECT_EQ(0, captured);
  });
}

// The search finds the needle's last byte and compares the bytes before it. Once that has cost as
// much as the scan so far, the C library's linear memmem() takes over.
TEST(ByteSearch, ComparesNoMoreBytesThanItHasScanned) {
#ifdef __s390x__
  GTEST_SKIP() << "memcmp() is an instruction here, and no call";
#endif
  std::string needle(1 << 16, 'a');
  needle[needle.size() / 2] = 'b';
  const std::string body(1 << 18, 'a');
  compared = 0;
  TarnHandle buffer =
      extractBetween(body.data(), static_cast<uint32_t>(body.size()), needle.c_str(), "b");
  EXPECT_GT(compared, needle.size() / 2) << "the search must call the counting memcmp()";
  EXPECT_LT(compared, body.size() + needle.size() + 4096);
  EXPECT_EQ(0U, CGIgs_getFixed(&buffer, TARN_BYTE_BUFFER_MAGIC)) << "it is not there";
  const auto release = reinterpret_cast<decltype(&CGIgs_delete)>(dlsym(RTLD_NEXT, "CGIgs_delete"));
  EXPECT_EQ(TARN_OK, release(&buffer, TARN_BYTE_BUFFER_MAGIC));
}

}  // namespace
