// What the calls that read a form return.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <string>

#include "support/handles.h"
#include "support/pieces.h"
#include "support/processor_time.h"
#include "support/script.h"
#include "tarn_form.h"

namespace {

using namespace tarn_test;

// The body must outlive the form, so a temporary is refused.
TarnForm *open(const char *type, std::string &&body) = delete;
TarnForm *open(const char *type, const std::string &body) {
  return TarnForm_openMemory(type, body.data(), body.size());
}

std::string valueOf(TarnFormField *field) {
  const void *bytes = TarnFormField_view(field);
  return bytes ? std::string(static_cast<const char *>(bytes),
                             static_cast<size_t>(TarnFormField_size(field)))
               : "none";
}

// ---- The request ----------------------------------------------------------------------------------

std::string namesOfRequest() {
  std::string names;
  TarnForm *form = TarnForm_open();
  while (TarnFormField *field = TarnForm_next(form)) {
    names += TarnFormField_name(field) + std::string("=") + TarnFormField_text(field) + ";";
  }
  names += TarnForm_problemName(TarnForm_problem(form));
  TarnForm_close(form);
  return names;
}

TEST(FormOfRequest, IsTheBodyForMethodsThatHaveOne) {
  for (const char *method : {"POST", "PUT", "PATCH", "DELETE", "post"}) {
    asScript({{"REQUEST_METHOD", method},
              {"QUERY_STRING", "query=1"},
              {"CONTENT_TYPE", kUrlEncoded},
              {"CONTENT_LENGTH", "6"}},
             "body=2 and more", [] { EXPECT_EQ(namesOfRequest(), "body=2;"); });
  }
}

TEST(FormOfRequest, IsTheQueryForGetAndHead) {
  for (const char *method : {"GET", "HEAD", ""}) {
    asScript({{"REQUEST_METHOD", method},
              {"QUERY_STRING", "query=1"},
              {"CONTENT_TYPE", kMultipart},
              {"CONTENT_LENGTH", "6"}},
             "body=2", [] { EXPECT_EQ(namesOfRequest(), "query=1;"); });
  }
  asScript({}, "", [] { EXPECT_EQ(namesOfRequest(), ""); });
}

TEST(FormOfRequest, LeavesWhatFollowsTheBody) {
  asScript({{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", kUrlEncoded}, {"CONTENT_LENGTH", "3"}},
           "a=1&b=2", [] {
             EXPECT_EQ(namesOfRequest(), "a=1;");
             char rest[8] = "";
             EXPECT_EQ(read(0, rest, sizeof rest), 4);
             EXPECT_STREQ(rest, "&b=2");
           });
}

TEST(FormOfRequest, WithoutALengthHasNoBody) {
  asScript({{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", kUrlEncoded}}, "a=1",
           [] { EXPECT_EQ(namesOfRequest(), ""); });
  asScript({{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", kMultipart}}, "--b--",
           [] { EXPECT_EQ(namesOfRequest(), "cut_short"); });
}

TEST(FormOfRequest, WithoutALengthIsReadToItsEndIfTheCallerSaysSo) {
  asScript({{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", kUrlEncoded}}, "a=1&b=2", [] {
    TarnForm *form = TarnForm_open();
    TarnForm_readToEnd(form);
    EXPECT_EQ(TarnForm_load(form), 1);
    EXPECT_EQ(TarnForm_count(form, nullptr), 2U);
    TarnForm_close(form);
  });
  asScript({{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", kUrlEncoded}, {"CONTENT_LENGTH", "3"}},
           "a=1&b=2", [] {
             TarnForm *form = TarnForm_open();
             TarnForm_readToEnd(form);
             EXPECT_EQ(TarnForm_load(form), 1);
             EXPECT_EQ(TarnForm_count(form, nullptr), 1U);
             TarnForm_close(form);
           });
}

TEST(FormOfRequest, RefusesLengthsThatAreNoNumbers) {
  for (const char *length :
       {"-1", "+5", " 5", "5 ", "0x5", "5,5", "9223372036854775808", "99999999999999999999999"}) {
    asScript(
        {{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", kUrlEncoded}, {"CONTENT_LENGTH", length}},
        "a=123", [] {
          TarnForm *form = TarnForm_open();
          EXPECT_EQ(TarnForm_next(form), nullptr);
          EXPECT_EQ(TarnForm_problem(form), TARN_FORM_BAD_LENGTH);
          EXPECT_EQ(TarnForm_status(form), 400);
          TarnForm_close(form);
        });
  }
}

TEST(FormOfRequest, ReportsAClosedStandardInput) {
  asScript({{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", kUrlEncoded}, {"CONTENT_LENGTH", "3"}}, "",
           [] {
             close(0);
             EXPECT_EQ(namesOfRequest(), "read_error");
           });
}

TEST(FormInMemory, CopiesItsType) {
  const std::string body = part("name=\"a\"", "1") + "--b--";
  for (const int descriptor : {-1, memfd_create("body", 0)}) {
    std::string type = kMultipart;
    TarnForm *form = nullptr;
    if (descriptor < 0) {
      form = TarnForm_openMemory(type.c_str(), body.data(), body.size());
    } else {
      EXPECT_EQ(pwrite(descriptor, body.data(), body.size(), 0), static_cast<ssize_t>(body.size()));
      form = TarnForm_openDescriptor(type.c_str(), descriptor, body.size());
    }
    type.assign(type.size(), 'x');
    EXPECT_EQ(TarnForm_load(form), 1) << TarnForm_message(form);
    EXPECT_EQ(TarnForm_count(form, "a"), 1U);
    TarnForm_close(form);
    if (descriptor >= 0) close(descriptor);
  }
}

// ---- Fields ---------------------------------------------------------------------------------------

TEST(Field, HasNamesTypeHeadersAndPlace) {
  const std::string first = part("name=\"a\"", "1");
  const std::string body = first +
                           part(
                               "filename=\"x.png\"; name=\"b\"\r\nX-Thing:  some thing \r\n"
                               "content-type:image/png; q=1",
                               "2") +
                           part("name=\"c\"; filename=\"\"; filename*=UTF-8''x", "") + "--b--";
  TarnForm *form = open(kMultipart, body);
  TarnFormField *field = TarnForm_next(form);
  EXPECT_STREQ(TarnFormField_name(field), "a");
  EXPECT_EQ(TarnFormField_nameSize(field), 1U);
  EXPECT_EQ(TarnFormField_filename(field), nullptr);
  EXPECT_EQ(TarnFormField_filenameSize(field), 0U);
  EXPECT_EQ(TarnFormField_type(field), nullptr);
  EXPECT_EQ(TarnFormField_offset(field), 0U);
  field = TarnForm_next(form);
  EXPECT_STREQ(TarnFormField_name(field), "b");
  EXPECT_STREQ(TarnFormField_filename(field), "x.png");
  EXPECT_EQ(TarnFormField_filenameSize(field), 5U);
  EXPECT_STREQ(TarnFormField_type(field), "image/png; q=1");
  EXPECT_STREQ(TarnFormField_header(field, "x-thing"), "some thing");
  EXPECT_EQ(TarnFormField_headerSize(field, "X-THING"), 10U);
  EXPECT_EQ(TarnFormField_header(field, "X-Other"), nullptr);
  EXPECT_EQ(TarnFormField_header(field, nullptr), nullptr);
  EXPECT_EQ(TarnFormField_offset(field), first.size());
  field = TarnForm_next(form);
  EXPECT_STREQ(TarnFormField_filename(field), "");
  EXPECT_STREQ(TarnFormField_header(field, "Content-Disposition"),
               "form-data; name=\"c\"; filename=\"\"; filename*=UTF-8''x");
  EXPECT_EQ(TarnForm_isWhole(form), 0);
  EXPECT_EQ(TarnForm_next(form), nullptr);
  EXPECT_EQ(TarnForm_isWhole(form), 1);
  EXPECT_EQ(TarnForm_status(form), 200);
  EXPECT_STREQ(TarnForm_message(form), "");
  EXPECT_EQ(TarnForm_next(form), nullptr);
  TarnForm_close(form);
}

TEST(Field, CanBeReadInEachWay) {
  const std::string value("one\r\n\0two", 9);
  const std::string body = part("name=\"a\"", value) + "--b--";
  TarnForm *form = open(kMultipart, body);
  TarnFormField *field = TarnForm_next(form);
  EXPECT_EQ(TarnFormField_size(field), 0U);
  const char *text = TarnFormField_text(field);
  EXPECT_EQ(std::string(text, static_cast<size_t>(TarnFormField_size(field))), value);
  EXPECT_EQ(text[value.size()], '\0');
  EXPECT_EQ(TarnFormField_text(field), text);
  EXPECT_EQ(TarnFormField_view(field), nullptr);
  TarnForm_close(form);

  form = open(kMultipart, body);
  field = TarnForm_next(form);
  EXPECT_EQ(valueOf(field), value);
  EXPECT_GE(static_cast<const char *>(TarnFormField_view(field)), body.data());
  EXPECT_LT(static_cast<const char *>(TarnFormField_view(field)), body.data() + body.size());
  EXPECT_EQ(std::string(TarnFormField_text(field), static_cast<size_t>(TarnFormField_size(field))),
            value);
  TarnForm_close(form);

  form = open(kMultipart, body);
  field = TarnForm_next(form);
  char bytes[16] = "";
  EXPECT_EQ(TarnFormField_read(field, bytes, 2), 2);
  EXPECT_STREQ(bytes, "on");
  EXPECT_EQ(TarnFormField_size(field), 2U);
  EXPECT_EQ(TarnFormField_text(field), nullptr);
  EXPECT_EQ(TarnFormField_view(field), nullptr);
  const void *block = nullptr;
  EXPECT_EQ(TarnFormField_block(field, &block), 7);
  EXPECT_EQ(std::memcmp(block, "e\r\n\0two", 7), 0);
  EXPECT_EQ(TarnFormField_block(field, &block), 0);
  EXPECT_EQ(TarnFormField_read(field, bytes, sizeof bytes), 0);
  EXPECT_EQ(TarnFormField_size(field), value.size());
  EXPECT_EQ(TarnForm_problem(form), TARN_FORM_NO_PROBLEM);
  EXPECT_EQ(TarnForm_next(form), nullptr);
  EXPECT_EQ(TarnForm_isWhole(form), 1);
  TarnForm_close(form);
}

TEST(Field, ReadFillsWhatItIsGiven) {
  const std::string value(5000, 'v');
  const std::string body = part("name=\"a\"", value) + part("name=\"b\"", "next") + "--b--";
  const Pieces pieces(body, {7, 300, 1});
  TarnForm *form = TarnForm_openDescriptor(kMultipart, Pieces::kDescriptor, body.size());
  TarnFormField *field = TarnForm_next(form);
  std::string read(5000, '.');
  EXPECT_EQ(TarnFormField_read(field, read.data(), 1234), 1234);
  EXPECT_EQ(TarnFormField_read(field, read.data() + 1234, 100000), 5000 - 1234);
  EXPECT_EQ(read, value);
  EXPECT_EQ(valueOf(TarnForm_next(form)), "none") << "not in memory";
  TarnForm_close(form);
}

TEST(Field, LeftUnreadIsSkipped) {
  const std::string body =
      part("name=\"a\"", std::string(300000, '\r')) + part("name=\"b\"", "next") + "--b--";
  const Pieces pieces(body, {5000});
  TarnForm *form = TarnForm_openDescriptor(kMultipart, Pieces::kDescriptor, body.size());
  TarnFormField *field = TarnForm_next(form);
  char byte = 0;
  EXPECT_EQ(TarnFormField_read(field, &byte, 1), 1);
  field = TarnForm_next(form);
  EXPECT_STREQ(TarnFormField_text(field), "next");
  EXPECT_EQ(TarnFormField_skip(field), 1);
  EXPECT_EQ(TarnForm_next(form), nullptr);
  EXPECT_EQ(TarnForm_isWhole(form), 1);
  EXPECT_EQ(pieces.taken(), body.size());
  TarnForm_close(form);
}

TEST(Field, IsViewedOnlyWhereNothingIsEncoded) {
  const std::string body = "a=plain&b=one+two&c&d=%41";
  TarnForm *form = open(kUrlEncoded, body);
  TarnFormField *plain = TarnForm_next(form);
  EXPECT_EQ(TarnFormField_view(plain), body.data() + 2) << "not copied";
  EXPECT_EQ(valueOf(plain), "plain");
  TarnFormField *field = TarnForm_next(form);
  EXPECT_EQ(TarnFormField_view(field), nullptr);
  EXPECT_STREQ(TarnFormField_text(field), "one two");
  EXPECT_EQ(valueOf(TarnForm_next(form)), "");
  EXPECT_EQ(valueOf(TarnForm_next(form)), "none");
  EXPECT_EQ(TarnForm_next(form), nullptr);
  EXPECT_EQ(TarnForm_isWhole(form), 1);
  TarnForm_close(form);
}

// Reads a value in one of six ways; returns whether the reader said that it is not whole.
bool isRefused(TarnForm *form, TarnFormField *field, int way) {
  char bytes[100];
  const void *block = nullptr;
  switch (way) {
    case 0:
      return TarnFormField_text(field) == nullptr;
    case 1:
      return TarnFormField_view(field) == nullptr;
    case 2:
      return TarnFormField_read(field, bytes, sizeof bytes) == -1;
    case 3:
      return TarnFormField_skip(field) == 0;
    case 4:
      return TarnForm_next(form) == nullptr;
    default:
      while (TarnFormField_block(field, &block) > 0) continue;
      return TarnFormField_block(field, &block) == -1;
  }
}

TEST(Field, CutShortIsNotReturnedInAnyWay) {
  const std::string body = part("name=\"a\"", "value");
  for (const char *end : {"", "--", "--b", "--b-", "--bx\r\n"}) {
    const std::string cut = body + end;
    for (int way = 0; way < 6; ++way) {
      TarnForm *form = open(kMultipart, cut);
      TarnFormField *field = TarnForm_next(form);
      ASSERT_NE(field, nullptr) << shown(cut);
      EXPECT_TRUE(isRefused(form, field, way)) << "way " << way << " of " << shown(cut);
      EXPECT_NE(TarnForm_problem(form), TARN_FORM_NO_PROBLEM) << shown(cut);
      EXPECT_EQ(TarnFormField_text(field), nullptr) << shown(cut);
      EXPECT_EQ(TarnForm_next(form), nullptr);
      EXPECT_EQ(TarnForm_isWhole(form), 0);
      TarnForm_close(form);
    }
  }
}

TEST(Field, IsRefusedWithoutAPlaceForItsBytes) {
  const std::string body = part("name=\"a\"", "value") + "--b--";
  TarnForm *form = open(kMultipart, body);
  TarnFormField *field = TarnForm_next(form);
  EXPECT_EQ(TarnFormField_block(field, nullptr), -1);
  EXPECT_EQ(TarnFormField_read(field, nullptr, 1), -1);
  EXPECT_EQ(TarnFormField_read(field, nullptr, 0), 0);
  EXPECT_EQ(TarnFormField_headerSize(field, nullptr), 0U);
  EXPECT_STREQ(TarnFormField_text(field), "value");
  const void *block = nullptr;
  EXPECT_EQ(TarnFormField_block(field, &block), 5);
  EXPECT_EQ(TarnFormField_block(field, &block), 0);
  TarnForm_close(form);
}

TEST(Field, IsNotViewedWhereItArrivesInPieces) {
  const Pieces pieces("a=plain", {100});
  TarnForm *form = TarnForm_openDescriptor(kUrlEncoded, Pieces::kDescriptor, 7);
  TarnFormField *field = TarnForm_next(form);
  EXPECT_EQ(TarnFormField_view(field), nullptr);
  EXPECT_STREQ(TarnFormField_text(field), "plain");
  TarnForm_close(form);
}

TEST(Field, HasNoViewAfterAProblem) {
  const std::string cut = part("name=\"a\"", "value");
  TarnForm *form = open(kMultipart, cut);
  TarnFormField *field = TarnForm_next(form);
  EXPECT_EQ(TarnFormField_skip(field), 0);
  EXPECT_EQ(TarnFormField_view(field), nullptr);
  EXPECT_EQ(TarnFormField_write(field, 1), -1);
  EXPECT_EQ(TarnFormField_save(field, "/tmp", "never"), -1);
  TarnForm_close(form);
}

// ---- The whole body -------------------------------------------------------------------------------

TEST(Body, OfAnyTypeIsOneFieldWithoutAName) {
  const std::string body = "{\"a\": [1]}";
  TarnForm *form = open("application/json; x=1", body);
  TarnFormField *field = TarnForm_body(form);
  EXPECT_STREQ(TarnFormField_name(field), "");
  EXPECT_STREQ(TarnFormField_type(field), "application/json; x=1");
  EXPECT_STREQ(TarnFormField_text(field), "{\"a\": [1]}");
  EXPECT_EQ(TarnForm_isWhole(form), 1);
  EXPECT_EQ(TarnForm_next(form), nullptr);
  EXPECT_EQ(TarnForm_body(form), nullptr);
  TarnForm_close(form);
}

TEST(Body, HasNoTypeIfTheTypeHasALineEnd) {
  for (const char *type : {"\n", "\na/b", "a/b\n", "a/b\r\nX: y"}) {
    const std::string body = "1";
    TarnForm *form = open(type, body);
    TarnFormField *field = TarnForm_body(form);
    EXPECT_EQ(TarnFormField_type(field), nullptr);
    EXPECT_EQ(TarnFormField_headerSize(field, "Content-Type"), 0U);
    EXPECT_STREQ(TarnFormField_text(field), "1");
    TarnForm_close(form);
  }
}

TEST(Body, ShorterThanItsLengthIsCutShort) {
  const Pieces pieces("{\"a\"", {3});
  TarnForm *form = TarnForm_openDescriptor("application/json", Pieces::kDescriptor, 100);
  EXPECT_EQ(TarnFormField_text(TarnForm_body(form)), nullptr);
  EXPECT_EQ(TarnForm_problem(form), TARN_FORM_CUT_SHORT);
  EXPECT_EQ(TarnForm_problemOffset(form), 4U);
  TarnForm_close(form);
}

TEST(Body, MayHaveNoBytesAndNoType) {
  TarnForm *form = TarnForm_openMemory(nullptr, nullptr, 5);
  EXPECT_EQ(TarnForm_next(form), nullptr);
  EXPECT_EQ(TarnForm_isWhole(form), 1) << TarnForm_message(form);
  TarnForm_close(form);
  form = TarnForm_openMemory(nullptr, "", 0);
  TarnFormField *field = TarnForm_body(form);
  EXPECT_EQ(TarnFormField_type(field), nullptr);
  EXPECT_STREQ(TarnFormField_text(field), "");
  TarnForm_readToEnd(form);
  EXPECT_EQ(TarnForm_isWhole(form), 1);
  TarnForm_close(form);
}

TEST(Body, WithoutALengthAndATypeIsAFormOnlyIfItIsEmpty) {
  for (const char *bytes : {"", "a"}) {
    const Pieces pieces(bytes, {1});
    TarnForm *form = TarnForm_openDescriptor(nullptr, Pieces::kDescriptor, TARN_FORM_UNLIMITED);
    EXPECT_EQ(TarnForm_next(form), nullptr);
    EXPECT_EQ(TarnForm_isWhole(form), *bytes == '\0');
    EXPECT_EQ(TarnForm_problem(form),
              *bytes == '\0' ? TARN_FORM_NO_PROBLEM : TARN_FORM_UNSUPPORTED_TYPE);
    TarnForm_close(form);
  }
  const Pieces pieces("", {1}, EIO);
  TarnForm *form = TarnForm_openDescriptor(nullptr, Pieces::kDescriptor, TARN_FORM_UNLIMITED);
  EXPECT_EQ(TarnForm_next(form), nullptr);
  EXPECT_EQ(TarnForm_problem(form), TARN_FORM_READ_ERROR);
  TarnForm_close(form);
}

TEST(Body, CannotBeReadWithoutADescriptor) {
  TarnForm *form = TarnForm_openDescriptor("text/plain", -1, 5);
  EXPECT_EQ(TarnForm_body(form), nullptr);
  EXPECT_EQ(TarnForm_problem(form), TARN_FORM_READ_ERROR);
  TarnForm_close(form);
}

// ---- Problems -------------------------------------------------------------------------------------

TEST(Problem, HasACodeAPlaceAStatusAndASentence) {
  const struct {
    const char *type;
    std::string body;
    const char *name;
    uint64_t offset;
    int status;
  } cases[] = {
      {"multipart/form-data", "", "no_boundary", 0, 400},
      {"multipart/form-data; boundary=a; boundary=b", "", "two_boundaries", 0, 400},
      {"text/plain", "a=1", "unsupported_type", 0, 415},
      {nullptr, "a=1", "unsupported_type", 0, 415},
      {kMultipart, "x--b--", "malformed", 1, 400},
      {kMultipart, part("name=\"a\"", "1\r\n--bx"), "malformed", 55, 400},
      {kMultipart, part("name=\"a\"; x", "1"), "malformed_header", 5, 400},
      {kMultipart, part("x=y", "1"), "part_without_name", 5, 400},
      {kMultipart, part("name=\"a\"", "1"), "cut_short", 52, 400},
      {kMultipart,
       "--b\r\nContent-Disposition: form-data; name=\"a\"\r\n"
       "Content-Transfer-Encoding: base64\r\n\r\n\r\n--b--",
       "unsupported_type", 47, 415},
  };
  for (const auto &each : cases) {
    TarnForm *form = open(each.type, each.body);
    while (TarnForm_next(form) != nullptr) continue;
    EXPECT_STREQ(TarnForm_problemName(TarnForm_problem(form)), each.name) << shown(each.body);
    EXPECT_EQ(TarnForm_problemOffset(form), each.offset) << shown(each.body);
    EXPECT_EQ(TarnForm_status(form), each.status) << shown(each.body);
    EXPECT_STRNE(TarnForm_message(form), "") << shown(each.body);
    TarnForm_close(form);
  }
}

TEST(Problem, OfReadingIsReported) {
  const Pieces pieces("a=1&b=", {4}, EIO);
  TarnForm *form = TarnForm_openDescriptor(kUrlEncoded, Pieces::kDescriptor, 100);
  EXPECT_STREQ(TarnFormField_text(TarnForm_next(form)), "1");
  EXPECT_EQ(TarnFormField_text(TarnForm_next(form)), nullptr);
  EXPECT_EQ(TarnForm_problem(form), TARN_FORM_READ_ERROR);
  EXPECT_EQ(TarnForm_problemOffset(form), 6U);
  EXPECT_EQ(TarnForm_status(form), 400);
  TarnForm_close(form);
}

TEST(Problem, IsNamedByEachCode) {
  for (TarnFormProblem code = 1; code <= TARN_FORM_OUT_OF_MEMORY; ++code) {
    EXPECT_STRNE(TarnForm_problemName(code), "") << code;
  }
  EXPECT_STREQ(TarnForm_problemName(TARN_FORM_NO_PROBLEM), "");
  EXPECT_STREQ(TarnForm_problemName(TARN_FORM_OUT_OF_MEMORY + 1), "");
}

TEST(NullForm, CountsAsOneWithoutMemory) {
  EXPECT_EQ(TarnForm_next(nullptr), nullptr);
  EXPECT_EQ(TarnForm_body(nullptr), nullptr);
  EXPECT_EQ(TarnForm_problem(nullptr), TARN_FORM_OUT_OF_MEMORY);
  EXPECT_EQ(TarnForm_status(nullptr), 500);
  EXPECT_STREQ(TarnForm_message(nullptr), "out of memory");
  EXPECT_EQ(TarnForm_problemOffset(nullptr), 0U);
  EXPECT_EQ(TarnForm_isWhole(nullptr), 0);
  EXPECT_EQ(TarnForm_load(nullptr), 0);
  EXPECT_EQ(TarnForm_count(nullptr, "a"), 0U);
  EXPECT_EQ(TarnForm_get(nullptr, "a", 0), nullptr);
  EXPECT_EQ(TarnForm_getIgnoringCase(nullptr, "a", 0), nullptr);
  EXPECT_EQ(TarnForm_limit(nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(TarnForm_cookie(nullptr, "a"), nullptr);
  EXPECT_EQ(TarnForm_decodedQuery(nullptr, "a"), nullptr);
  TarnForm_setLimit(nullptr, TARN_FORM_FIELDS, 1);
  TarnForm_setDurable(nullptr, 1);
  TarnForm_readToEnd(nullptr);
  TarnForm_close(nullptr);
  EXPECT_STREQ(TarnFormField_name(nullptr), "");
  EXPECT_EQ(TarnFormField_nameSize(nullptr), 0U);
  EXPECT_EQ(TarnFormField_filename(nullptr), nullptr);
  EXPECT_EQ(TarnFormField_filenameSize(nullptr), 0U);
  EXPECT_EQ(TarnFormField_type(nullptr), nullptr);
  EXPECT_EQ(TarnFormField_headerSize(nullptr, "a"), 0U);
  EXPECT_EQ(TarnFormField_offset(nullptr), 0U);
  EXPECT_EQ(TarnFormField_size(nullptr), 0U);
  EXPECT_EQ(TarnFormField_text(nullptr), nullptr);
  EXPECT_EQ(TarnFormField_view(nullptr), nullptr);
  const void *block = nullptr;
  EXPECT_EQ(TarnFormField_block(nullptr, &block), -1);
  EXPECT_EQ(TarnFormField_read(nullptr, nullptr, 0), -1);
  EXPECT_EQ(TarnFormField_write(nullptr, 1), -1);
  EXPECT_EQ(TarnFormField_save(nullptr, "/tmp", "x"), -1);
  EXPECT_EQ(TarnFormField_skip(nullptr), 0);
}

// ---- Large bodies ---------------------------------------------------------------------------------

std::string repeated(const std::string &piece, size_t size) {
  std::string text;
  text.reserve(size + piece.size());
  while (text.size() < size) text += piece;
  return text;
}

void readInProportion(const char *type, const std::string &body) {
  limitProcessorTime();
  const Pieces pieces(body, {65536});
  TarnForm *form = TarnForm_openDescriptor(type, Pieces::kDescriptor, body.size());
  TarnForm_setLimit(form, TARN_FORM_FIELDS, TARN_FORM_UNLIMITED);
  TarnForm_setLimit(form, TARN_FORM_HEADER_SIZE, TARN_FORM_UNLIMITED);
  TarnForm_setLimit(form, TARN_FORM_TEXT_SIZE, TARN_FORM_UNLIMITED);
  TarnForm_setLimit(form, TARN_FORM_LOAD_SIZE, TARN_FORM_UNLIMITED);
  EXPECT_EQ(TarnForm_load(form), 1) << TarnForm_message(form);
  TarnForm_get(form, "b", 0);
  TarnForm_getIgnoringCase(form, "B", 0);
  TarnForm_close(form);
}

// In quadratic time, each of these would take longer than the limit of processor time.
TEST(HostileFormLarge, IsReadInTimeInProportionToItsSize) {
  constexpr size_t size = size_t{1} << 20;
  const std::string dashes(70, '-');
  const std::string type_of_dashes = "multipart/form-data; boundary=" + dashes;
  const std::string end = "--b--";
  for (const char *piece : {"\r\n--", "\r\n--a", "\r", "\r\n", "-", "\r\n-\r\n--"}) {
    readInProportion(kMultipart, part("name=a", repeated(piece, size) + " ") + end);
    const std::string value = repeated(piece, size) + " ";
    readInProportion(type_of_dashes.c_str(), part("name=a", value, dashes) + "--" + dashes + "--");
  }
  readInProportion(kMultipart, repeated("\r\n--", size) + "\r\n" + part("name=a", "1") + end);
  readInProportion(kMultipart, part("name=a\r\nX: " + std::string(size, 'x'), "1") + end);
  readInProportion(kMultipart, part("name=a" + repeated("\r\nX: y", size), "1") + end);
  readInProportion(kMultipart, part("name=\"" + repeated("%22\\", size) + "\"", "1") + end);
  readInProportion(kMultipart, repeated(part("name=a", ""), size) + end);
  for (const char *piece : {"a=1&", "&", "%", "%4", "a&", "=", "+", "a"}) {
    readInProportion(kUrlEncoded, repeated(piece, size));
    readInProportion(kUrlEncoded, "a=" + repeated(piece, size));
  }
}

// The memory that is resident now, in bytes.
size_t residentMemory() {
  std::ifstream statistics("/proc/self/statm");
  size_t pages = 0;
  size_t resident = 0;
  statistics >> pages >> resident;
  EXPECT_GT(resident, 0U);
  return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

// The body is a hole in a file, which takes no memory itself.
TEST(FormBodyGigabytes, IsReadInTwoMebibytes) {
  if (kSanitized) GTEST_SKIP() << "the address sanitizer has memory of its own";
  const std::string head = "--b\r\nContent-Disposition: form-data; name=a; filename=f\r\n\r\n";
  const std::string tail = "\r\n--b--";
  constexpr uint64_t size = uint64_t{1} << 30;
  const uint64_t length = head.size() + size + tail.size();
  const int file = memfd_create("body", 0);
  ASSERT_EQ(pwrite(file, head.data(), head.size(), 0), static_cast<ssize_t>(head.size()));
  ASSERT_EQ(pwrite(file, tail.data(), tail.size(), static_cast<off_t>(head.size() + size)),
            static_cast<ssize_t>(tail.size()));
  const size_t before = residentMemory();
  size_t most = before;
  TarnForm *form = TarnForm_openDescriptor(kMultipart, file, length);
  TarnFormField *field = TarnForm_next(form);
  const void *block = nullptr;
  for (int i = 0; TarnFormField_block(field, &block) > 0; ++i) {
    if (i % 1000 == 0) most = std::max(most, residentMemory());
  }
  most = std::max(most, residentMemory());
  EXPECT_EQ(TarnFormField_size(field), size);
  EXPECT_EQ(TarnForm_next(form), nullptr);
  EXPECT_EQ(TarnForm_isWhole(form), 1);
  TarnForm_close(form);
  close(file);
  EXPECT_LE(most - before, size_t{2} << 20);
}

}  // namespace
