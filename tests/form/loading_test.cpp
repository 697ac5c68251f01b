// Fields that are kept and looked up.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "support/pieces.h"
#include "support/script.h"
#include "tarn_form.h"

namespace {

using namespace tarn_test;

std::string textOf(TarnFormField *field) {
  const char *text = TarnFormField_text(field);
  return text ? std::string(text, static_cast<size_t>(TarnFormField_size(field))) : "none";
}

TEST(Loading, FindsFieldsByNameInTheOrderInWhichTheyWereSent) {
  TarnForm *form = TarnForm_openQuery("b=1&a=2&B=3&b=4&a%00=5&=6");
  EXPECT_EQ(TarnForm_get(form, "a", 0), nullptr) << "not loaded";
  ASSERT_EQ(TarnForm_load(form), 1);
  EXPECT_EQ(TarnForm_load(form), 1);
  EXPECT_EQ(TarnForm_next(form), nullptr);
  EXPECT_EQ(TarnForm_count(form, nullptr), 6U);
  EXPECT_EQ(TarnForm_count(form, "b"), 2U);
  EXPECT_EQ(TarnForm_count(form, "c"), 0U);
  EXPECT_EQ(TarnForm_count(form, ""), 1U);
  EXPECT_EQ(textOf(TarnForm_get(form, "b", 0)), "1");
  EXPECT_EQ(textOf(TarnForm_get(form, "b", 1)), "4");
  EXPECT_EQ(TarnForm_get(form, "b", 2), nullptr);
  EXPECT_EQ(textOf(TarnForm_get(form, "a", 0)), "2");
  EXPECT_EQ(TarnForm_get(form, "a", 1), nullptr) << "a zero byte belongs to a name";
  EXPECT_EQ(textOf(TarnForm_get(form, "", 0)), "6");
  EXPECT_EQ(textOf(TarnForm_getIgnoringCase(form, "B", 0)), "1");
  EXPECT_EQ(textOf(TarnForm_getIgnoringCase(form, "b", 1)), "3");
  EXPECT_EQ(textOf(TarnForm_getIgnoringCase(form, "b", 2)), "4");
  EXPECT_EQ(TarnForm_getIgnoringCase(form, "b", 3), nullptr);
  for (uint64_t i = 0; i < 6; ++i) {
    EXPECT_EQ(textOf(TarnForm_get(form, nullptr, i)), std::to_string(i + 1));
  }
  EXPECT_EQ(TarnForm_get(form, nullptr, 6), nullptr);
  TarnForm_close(form);
}

TEST(Loading, KeepsWhatTheStreamSays) {
  const std::string body = part("name=\"t\"", "text\r\n") +
                           part("name=\"f\"; filename=\"x\"\r\nContent-Type: a/b", "file") +
                           "--b--";
  TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
  ASSERT_EQ(TarnForm_load(form), 1);
  TarnFormField *text = TarnForm_get(form, "t", 0);
  TarnFormField *file = TarnForm_get(form, "f", 0);
  EXPECT_EQ(TarnFormField_filename(text), nullptr);
  EXPECT_STREQ(TarnFormField_filename(file), "x");
  EXPECT_STREQ(TarnFormField_type(file), "a/b");
  EXPECT_EQ(TarnFormField_offset(file), part("name=\"t\"", "text\r\n").size());
  EXPECT_EQ(textOf(text), "text\r\n");
  EXPECT_EQ(textOf(file), "file");
  EXPECT_EQ(TarnFormField_skip(file), 1);
  // Each field is read from its start, as often as another was read in between.
  char bytes[8] = "";
  EXPECT_EQ(TarnFormField_read(file, bytes, 2), 2);
  EXPECT_STREQ(bytes, "fi");
  EXPECT_EQ(TarnFormField_read(file, bytes, 8), 2);
  EXPECT_EQ(TarnFormField_read(file, bytes, 8), 0);
  EXPECT_EQ(TarnFormField_read(text, bytes, 8), 6);
  EXPECT_EQ(TarnFormField_read(file, bytes, 8), 4);
  TarnForm_close(form);
}

TEST(Loading, PutsLargeFilesIntoATemporaryFile) {
  std::vector<std::string> values;
  std::string body;
  for (const size_t size : {65536, 65537, 4096, 200000, 0, 131072}) {
    values.emplace_back(size, static_cast<char>('a' + values.size()));
    body += part("name=\"f\"; filename=\"x\"", values.back());
  }
  body += "--b--";
  const Pieces pieces(body, {30000});
  TarnForm *form = TarnForm_openDescriptor(kMultipart, Pieces::kDescriptor, body.size());
  TarnForm_setLimit(form, TARN_FORM_TEXT_SIZE, 199999);
  ASSERT_EQ(TarnForm_load(form), 1);
  for (size_t i = 0; i < values.size(); ++i) {
    TarnFormField *field = TarnForm_get(form, "f", i);
    ASSERT_EQ(TarnFormField_size(field), values[i].size());
    std::string read;
    const void *block = nullptr;
    while (const int64_t size = TarnFormField_block(field, &block)) {
      ASSERT_GT(size, 0);
      read.append(static_cast<const char *>(block), static_cast<size_t>(size));
    }
    EXPECT_TRUE(read == values[i]) << i;
    const void *view = TarnFormField_view(field);
    ASSERT_NE(view, nullptr);
    EXPECT_TRUE(std::string(static_cast<const char *>(view), values[i].size()) == values[i]) << i;
    EXPECT_EQ(textOf(field) == values[i], values[i].size() < 199999U) << i;
  }
  TarnForm_close(form);
}

TEST(Loading, KeepsNothingOfAFormWithAProblem) {
  TarnForm *form = TarnForm_openMemory("application/x-www-form-urlencoded", "a=1&b=2", 7);
  TarnForm_setLimit(form, TARN_FORM_FIELDS, 1);
  EXPECT_EQ(TarnForm_load(form), 0);
  EXPECT_EQ(TarnForm_count(form, nullptr), 0U);
  EXPECT_EQ(TarnForm_get(form, "a", 0), nullptr);
  EXPECT_EQ(TarnForm_load(form), 0);
  TarnForm_close(form);
}

TEST(Loading, HasLimitsForTexts) {
  for (const uint64_t size : {2U, 3U}) {
    TarnForm *form = TarnForm_openQuery("a=123");
    TarnForm_setLimit(form, TARN_FORM_TEXT_SIZE, size);
    EXPECT_EQ(TarnForm_load(form), size == 3);
    TarnForm_close(form);
  }
  const std::string body = part("name=\"a\"", std::string(5000, 'x')) +
                           part("name=\"b\"; filename=\"x\"", std::string(9000, 'x')) + "--b--";
  for (const uint64_t size : {4000U, 8000U}) {
    TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
    TarnForm_setLimit(form, TARN_FORM_LOAD_SIZE, size);
    EXPECT_EQ(TarnForm_load(form), size == 8000) << "files do not count";
    TarnFormLimit limit = 0;
    EXPECT_EQ(TarnForm_limit(form, &limit, nullptr), size != 8000);
    EXPECT_EQ(limit, size == 8000 ? 0 : TARN_FORM_LOAD_SIZE);
    TarnForm_close(form);
  }
}

TEST(Loading, HasALimitForNamesAndHeadersToo) {
  const std::string body = part("name=\"" + std::string(5000, 'n') + "\"", "") + "--b--";
  TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
  TarnForm_setLimit(form, TARN_FORM_LOAD_SIZE, 5000);
  EXPECT_EQ(TarnForm_load(form), 0);
  TarnFormLimit limit = 0;
  EXPECT_EQ(TarnForm_limit(form, &limit, nullptr), 1);
  EXPECT_EQ(limit, TARN_FORM_LOAD_SIZE);
  TarnForm_close(form);
}

TEST(Loading, UsesTmpWithoutATemporaryFolder) {
  for (const Variables &variables : {Variables{}, Variables{{"TMPDIR", ""}}}) {
    asScript(variables, "", [] {
      const std::string body = part("name=\"f\"; filename=\"x\"", "value") + "--b--";
      TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
      TarnForm_setLimit(form, TARN_FORM_MEMORY_SIZE, 2);
      EXPECT_EQ(TarnForm_load(form), 1);
      EXPECT_STREQ(TarnFormField_text(TarnForm_get(form, "f", 0)), "value");
      EXPECT_EQ(TarnForm_body(form), nullptr);
      TarnForm_close(form);
    });
  }
}

TEST(Loading, CannotKeepFilesWithoutATemporaryFolder) {
  asScript({{"TMPDIR", "/missing"}}, "", [] {
    const std::string body = part("name=\"f\"; filename=\"x\"", std::string(100, 'x')) + "--b--";
    TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
    TarnForm_setLimit(form, TARN_FORM_MEMORY_SIZE, 99);
    EXPECT_EQ(TarnForm_load(form), 0);
    EXPECT_EQ(TarnForm_problem(form), TARN_FORM_OUT_OF_MEMORY);
    TarnForm_close(form);
  });
}

TEST(Loading, FindsEachOfManyFields) {
  std::mt19937 chance(5);
  std::string body;
  std::vector<std::vector<int>> values(500);
  for (int i = 0; i < 20000; ++i) {
    const size_t name = chance() % values.size();
    values[name].push_back(i);
    body.append(1, i % 2 ? 'n' : 'N').append(std::to_string(name)).append(1, '=');
    body.append(std::to_string(i)).append(1, '&');
  }
  TarnForm *form = TarnForm_openQuery(body.c_str());
  TarnForm_setLimit(form, TARN_FORM_FIELDS, TARN_FORM_UNLIMITED);
  ASSERT_EQ(TarnForm_load(form), 1);
  for (size_t name = 0; name < values.size(); ++name) {
    const std::string text = std::string("n").append(std::to_string(name));
    for (size_t i = 0; i < values[name].size(); ++i) {
      TarnFormField *field = TarnForm_getIgnoringCase(form, text.c_str(), i);
      ASSERT_EQ(textOf(field), std::to_string(values[name][i]));
    }
    EXPECT_EQ(TarnForm_getIgnoringCase(form, text.c_str(), values[name].size()), nullptr);
  }
  TarnForm_close(form);
}

// ---- Cookies and query ----------------------------------------------------------------------------

TEST(Cookies, AreFoundByTheirLiteralNames) {
  asScript({{"HTTP_COOKIE",
             "; a=1;;b = 2; A=3;a=4; c=\"x y\"; d; e=%41+%zz; __%48ost-s=bad; z=%00; =n; f="}},
           "", [] {
             TarnForm *form = TarnForm_openQuery("");
             EXPECT_STREQ(TarnForm_cookie(form, "a"), "1");
             EXPECT_STREQ(TarnForm_cookie(form, "A"), "3");
             EXPECT_STREQ(TarnForm_cookie(form, "b "), " 2");
             EXPECT_STREQ(TarnForm_cookie(form, "c"), "\"x y\"");
             EXPECT_EQ(TarnForm_cookie(form, "d"), nullptr);
             EXPECT_STREQ(TarnForm_cookie(form, "e"), "%41+%zz");
             EXPECT_STREQ(TarnForm_decodedCookie(form, "e"), "A+%zz");
             EXPECT_EQ(TarnForm_cookie(form, "__Host-s"), nullptr);
             EXPECT_STREQ(TarnForm_cookie(form, "z"), "%00");
             EXPECT_EQ(TarnForm_decodedCookie(form, "z"), nullptr);
             EXPECT_STREQ(TarnForm_cookie(form, "f"), "");
             EXPECT_EQ(TarnForm_cookie(form, "missing"), nullptr);
             EXPECT_EQ(TarnForm_cookie(form, nullptr), nullptr);
             TarnForm_close(form);
           });
  asScript({}, "", [] {
    TarnForm *form = TarnForm_open();
    EXPECT_EQ(TarnForm_cookie(form, "a"), nullptr);
    EXPECT_EQ(TarnForm_query(form, "a"), nullptr);
    TarnForm_close(form);
  });
}

TEST(Query, IsFoundBesideABody) {
  asScript({{"REQUEST_METHOD", "POST"},
            {"CONTENT_TYPE", "application/x-www-form-urlencoded"},
            {"CONTENT_LENGTH", "3"},
            {"QUERY_STRING", "&&id=7&q=a+b%21&flag&%69d=8&zero=%00"}},
           "a=1", [] {
             TarnForm *query = TarnForm_openQuery(nullptr);
             EXPECT_EQ(TarnForm_load(query), 1);
             EXPECT_STREQ(TarnFormField_text(TarnForm_get(query, "id", 1)), "8");
             TarnForm_close(query);
             TarnForm *form = TarnForm_open();
             EXPECT_STREQ(TarnForm_query(form, "id"), "7");
             EXPECT_STREQ(TarnForm_query(form, "q"), "a+b%21");
             EXPECT_STREQ(TarnForm_decodedQuery(form, "q"), "a b!");
             EXPECT_STREQ(TarnForm_query(form, "flag"), "");
             EXPECT_STREQ(TarnForm_query(form, "%69d"), "8");
             EXPECT_EQ(TarnForm_decodedQuery(form, "zero"), nullptr);
             EXPECT_EQ(TarnForm_query(form, "none"), nullptr);
             EXPECT_EQ(TarnForm_query(form, nullptr), nullptr);
             EXPECT_STREQ(TarnFormField_text(TarnForm_next(form)), "1");
             TarnForm_close(form);
           });
}

TEST(Utf8, IsToldFromOtherBytes) {
  for (const char *text : {"", "a", "\xC3\xA9", "\xE2\x82\xAC", "\xE0\xA0\x80", "\xED\x9F\xBF",
                           "\xEE\x80\x80", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "a\xC3\xA9z"}) {
    EXPECT_EQ(TarnForm_isUtf8(text, std::string(text).size()), 1) << shown(text);
  }
  for (const char *text : {"\x80", "\xC3", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80",
                           "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80",
                           "\xF5\x80\x80\x80", "\xFF", "\xE2\x82", "\xC3z", "a\xBF"}) {
    EXPECT_EQ(TarnForm_isUtf8(text, std::string(text).size()), 0) << shown(text);
  }
  EXPECT_EQ(TarnForm_isUtf8("a\0b", 3), 1);
  EXPECT_EQ(TarnForm_isUtf8(nullptr, 0), 1);
}

}  // namespace
