// Each allocation fails in turn: the reader reports it, or returns what it would have returned.
#include <gtest/gtest.h>

#include <string>

#include "support/failing_memory.h"
#include "support/pieces.h"
#include "tarn_form.h"

namespace {

using namespace tarn_test;

const std::string kText(3000, 't');
const std::string kFile(300000, 'f');

std::string body() {
  return "--b\r\nContent-Disposition: form-data; name=\"text\"\r\n\r\n" + kText +
         "\r\n--b\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a\\\"b\"\r\n"
         "Content-Type: image/png\r\n\r\n" +
         kFile + "\r\n--b--";
}

// A form that is not read to its end says that memory ran out.
void closeOutOfMemory(TarnForm *form) {
  EXPECT_EQ(TarnForm_problem(form), TARN_FORM_OUT_OF_MEMORY);
  EXPECT_EQ(TarnForm_isWhole(form), 0);
  TarnForm_close(form);
}

TEST(FormReaderAtEachFailure, ReadsFieldsOrReportsIt) {
  const std::string sent = body();
  forEachFailingAllocation([&](FailingMemory &memory) {
    const Pieces pieces(sent, {50000});
    TarnForm *form = memory.call([&] {
      return TarnForm_openDescriptor("multipart/form-data; boundary=\"b\"", Pieces::kDescriptor,
                                     sent.size());
    });
    EXPECT_EQ(form == nullptr, memory.failed());
    TarnFormField *field = memory.call([&] { return TarnForm_next(form); });
    if (!field) return closeOutOfMemory(form);
    EXPECT_STREQ(TarnFormField_name(field), "text");
    const char *text = memory.call([&] { return TarnFormField_text(field); });
    if (!text) return closeOutOfMemory(form);
    EXPECT_TRUE(text == kText);
    field = memory.call([&] { return TarnForm_next(form); });
    if (!field) return closeOutOfMemory(form);
    EXPECT_STREQ(TarnFormField_filename(field), "a\"b");
    EXPECT_EQ(TarnFormField_skip(field), 1);
    EXPECT_EQ(TarnForm_next(form), nullptr);
    EXPECT_EQ(TarnForm_isWhole(form), 1);
    TarnForm_close(form);
  });
}

TEST(FormReaderAtEachFailure, LoadsAllFieldsOrNone) {
  const std::string sent = body();
  forEachFailingAllocation([&](FailingMemory &memory) {
    const Pieces pieces(sent, {50000});
    TarnForm *form = TarnForm_openDescriptor("multipart/form-data; boundary=b", Pieces::kDescriptor,
                                             sent.size());
    const int loaded = memory.call([&] { return TarnForm_load(form); });
    if (!loaded) {
      EXPECT_EQ(TarnForm_count(form, nullptr), 0U);
      return closeOutOfMemory(form);
    }
    EXPECT_EQ(TarnForm_count(form, nullptr), 2U);
    EXPECT_TRUE(TarnFormField_text(TarnForm_get(form, "file", 0)) == kFile);
    EXPECT_TRUE(TarnFormField_text(TarnForm_get(form, nullptr, 0)) == kText);
    TarnForm_close(form);
  });
}

TEST(FormReaderAtEachFailure, FindsFieldsWithoutAllocating) {
  TarnForm *form = TarnForm_openQuery("b=1&A=2&a=3");
  EXPECT_EQ(TarnForm_load(form), 1);
  const TarnFormField *exact = nullptr;
  const TarnFormField *second = nullptr;
  uint64_t count = 0;
  withoutMemory([&] {
    exact = TarnForm_get(form, "a", 0);
    second = TarnForm_getIgnoringCase(form, "a", 1);
    count = TarnForm_count(form, "a");
  });
  EXPECT_NE(exact, nullptr);
  EXPECT_EQ(second, exact);
  EXPECT_EQ(count, 1U);
  TarnForm_close(form);
}

TEST(FormReaderAtEachFailure, FindsACookieOrNone) {
  setenv("HTTP_COOKIE", "a=1", 1);
  forEachFailingAllocation([](FailingMemory &memory) {
    TarnForm *form = TarnForm_openQuery("x=1");
    const char *cookie = memory.call([&] { return TarnForm_cookie(form, "a"); });
    EXPECT_STREQ(cookie, memory.failed() ? nullptr : "1");
    TarnForm_close(form);
  });
  unsetenv("HTTP_COOKIE");
}

}  // namespace
