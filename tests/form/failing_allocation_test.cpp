// Each allocation fails in turn: the reader reports it, or returns what it would have returned.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "support/failing_memory.h"
#include "support/pieces.h"
#include "support/script.h"
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

TEST(FormReaderAtEachFailure, ReadsUrlEncodedFieldsOrReportsIt) {
  const std::string name(5000, 'n');
  std::string encoded;
  for (int i = 0; i < 3000; ++i) encoded += "%41";
  const std::string sent = name + "=1&two=" + encoded + "+b&three=" + kText;
  const std::string expected =
      name + "=1;two=" + std::string(3000, 'A') + " b;three=" + kText + ";";
  for (const size_t size : {7, 100000}) {
    forEachFailingAllocation([&](FailingMemory &memory) {
      const Pieces pieces(sent, {size});
      TarnForm *form = TarnForm_openDescriptor(kUrlEncoded, Pieces::kDescriptor, sent.size());
      // The test's own string is allocated before.
      std::string read;
      read.reserve(20000);
      bool whole = true;
      memory.call([&] {
        while (TarnFormField *field = TarnForm_next(form)) {
          const char *text = TarnFormField_text(field);
          whole = text != nullptr;
          if (!whole) break;
          read.append(TarnFormField_name(field)).append(1, '=').append(text).append(1, ';');
        }
      });
      if (!whole || !TarnForm_isWhole(form)) return closeOutOfMemory(form);
      EXPECT_TRUE(read == expected) << shown(read);
      TarnForm_close(form);
    });
  }
}

TEST(FormReaderAtEachFailure, OpensAFormOrReturnsNull) {
  forEachFailingAllocation([](FailingMemory &memory) {
    TarnForm *form = memory.call([] { return TarnForm_open(); });
    EXPECT_EQ(form == nullptr, memory.failed());
    TarnForm_close(form);
    form = memory.call([] { return TarnForm_openMemory(kUrlEncoded, "a=1", 3); });
    EXPECT_EQ(form == nullptr, memory.failed());
    TarnForm_close(form);
    form = memory.call([] { return TarnForm_openQuery("a=1"); });
    EXPECT_EQ(form == nullptr, memory.failed());
    TarnForm_close(form);
  });
}

TEST(FormReaderAtEachFailure, ReadsABodyOrReportsIt) {
  forEachFailingAllocation([](FailingMemory &memory) {
    TarnForm *form = TarnForm_openMemory("text/plain; a=b", kText.data(), kText.size());
    TarnFormField *field = memory.call([&] { return TarnForm_body(form); });
    if (!field) return closeOutOfMemory(form);
    EXPECT_STREQ(TarnFormField_type(field), "text/plain; a=b");
    EXPECT_NE(TarnFormField_view(field), nullptr);
    const char *text = memory.call([&] { return TarnFormField_text(field); });
    if (!text) return closeOutOfMemory(form);
    EXPECT_TRUE(text == kText);
    TarnForm_close(form);
  });
}

TEST(FormReaderAtEachFailure, KeepsEachSmallFieldOrNone) {
  std::string sent;
  for (int i = 0; i < 40; ++i) {
    const std::string number = std::to_string(i);
    sent += part("name=" + number + (i % 3 == 0 ? "; filename=\"\\\\f\"" : ""), kText);
  }
  sent += "--b--";
  forEachFailingAllocation([&](FailingMemory &memory) {
    TarnForm *form = TarnForm_openMemory(kMultipart, sent.data(), sent.size());
    TarnForm_setLimit(form, TARN_FORM_MEMORY_SIZE, 100);
    if (!memory.call([&] { return TarnForm_load(form); })) return closeOutOfMemory(form);
    EXPECT_EQ(TarnForm_count(form, nullptr), 40U);
    TarnFormField *file = TarnForm_get(form, "3", 0);
    const void *block = nullptr;
    const int64_t size = memory.call([&] { return TarnFormField_block(file, &block); });
    EXPECT_TRUE(size == static_cast<int64_t>(kText.size()) || (size == -1 && memory.failed()));
    TarnForm_close(form);
  });
}

TEST(FormReaderAtEachFailure, UnescapesTheBoundaryOrReportsIt) {
  const std::string value(70, 'x');
  std::string escaped;
  for (const char c : value) escaped.append(1, '\\').append(1, c);
  const std::string type = "multipart/form-data; boundary=\"" + escaped + "\"";
  const std::string sent = "--" + value + "--";
  forEachFailingAllocation([&](FailingMemory &memory) {
    TarnForm *form = TarnForm_openMemory(type.c_str(), sent.data(), sent.size());
    const int loaded = memory.call([&] { return TarnForm_load(form); });
    if (!loaded) return closeOutOfMemory(form);
    TarnForm_close(form);
  });
}

// Reads a body of any type. `read` makes the calls.
void readBody(const std::function<bool(FailingMemory &, TarnFormField *)> &read) {
  forEachFailingAllocation([&](FailingMemory &memory) {
    const Pieces pieces(kFile, {50000});
    TarnForm *form = TarnForm_openDescriptor("text/plain", Pieces::kDescriptor, kFile.size());
    TarnFormField *field = memory.call([&] { return TarnForm_body(form); });
    if (!field || !read(memory, field)) return closeOutOfMemory(form);
    EXPECT_STREQ(TarnFormField_type(field), "text/plain");
    TarnForm_close(form);
  });
}

TEST(FormReaderAtEachFailure, ReadsABodyInEachWayOrReportsIt) {
  readBody([](FailingMemory &memory, TarnFormField *field) {
    const void *block = nullptr;
    const int64_t size = memory.call([&] { return TarnFormField_block(field, &block); });
    EXPECT_EQ(size, memory.failed() ? -1 : 50000);
    return size > 0;
  });
  readBody([](FailingMemory &memory, TarnFormField *field) {
    char bytes[100];
    const int64_t size = memory.call([&] { return TarnFormField_read(field, bytes, 100); });
    EXPECT_EQ(size, memory.failed() ? -1 : 100);
    return size > 0;
  });
  readBody([](FailingMemory &memory, TarnFormField *field) {
    const int whole = memory.call([&] { return TarnFormField_skip(field); });
    EXPECT_EQ(whole, !memory.failed());
    return whole == 1;
  });
  const int nowhere = open("/dev/null", O_WRONLY);
  readBody([=](FailingMemory &memory, TarnFormField *field) {
    const int result = memory.call([&] { return TarnFormField_write(field, nowhere); });
    EXPECT_EQ(result, memory.failed() ? -1 : 0);
    return result == 0;
  });
  close(nowhere);
}

TEST(FormReaderAtEachFailure, SavesABodyOrNothingOfIt) {
  char folder[] = "/tmp/tarn-form-test-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string path = std::string(folder) + "/saved";
  readBody([&](FailingMemory &memory, TarnFormField *field) {
    const int result = memory.call([&] { return TarnFormField_save(field, folder, "saved"); });
    EXPECT_EQ(result, memory.failed() ? -1 : 0);
    EXPECT_EQ(unlink(path.c_str()), result);
    return result == 0;
  });
  EXPECT_EQ(rmdir(folder), 0) << "nothing else is left";
}

TEST(FormReaderAtEachFailure, NeedsNoMemoryForAView) {
  const std::string sent = body();
  TarnForm *form = TarnForm_openMemory(kMultipart, sent.data(), sent.size());
  TarnFormField *field = TarnForm_next(form);
  const void *view = nullptr;
  withoutMemory([&] { view = TarnFormField_view(field); });
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(TarnFormField_size(field), kText.size());
  EXPECT_EQ(std::memcmp(view, kText.data(), kText.size()), 0);
  TarnForm_close(form);
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

TEST(FormReaderAtEachFailure, FindsCookiesAndFieldsOfTheQueryOrNone) {
  setenv("HTTP_COOKIE", "a=%31", 1);
  setenv("QUERY_STRING", "b=%32", 1);
  forEachFailingAllocation([](FailingMemory &memory) {
    TarnForm *form = TarnForm_openMemory("", nullptr, 0);
    const char *text = memory.call([&] { return TarnForm_cookie(form, "a"); });
    EXPECT_STREQ(text, memory.failed() ? nullptr : "%31");
    text = memory.call([&] { return TarnForm_decodedCookie(form, "a"); });
    EXPECT_STREQ(text, memory.failed() ? nullptr : "1");
    text = memory.call([&] { return TarnForm_query(form, "b"); });
    EXPECT_STREQ(text, memory.failed() ? nullptr : "%32");
    text = memory.call([&] { return TarnForm_decodedQuery(form, "b"); });
    EXPECT_STREQ(text, memory.failed() ? nullptr : "2");
    TarnForm_close(form);
  });
  unsetenv("HTTP_COOKIE");
  unsetenv("QUERY_STRING");
}

}  // namespace
