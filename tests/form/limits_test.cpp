// Limits, and waiting for bytes that do not come.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <string>

#include "support/pieces.h"
#include "tarn_form.h"

namespace {

using namespace tarn_test;

void expectLimit(TarnForm *form, TarnFormLimit limit, uint64_t value, int status = 413) {
  TarnFormLimit found = 99;
  uint64_t allowed = 0;
  EXPECT_EQ(TarnForm_limit(form, &found, &allowed), 1) << TarnForm_message(form);
  EXPECT_EQ(found, limit);
  EXPECT_EQ(allowed, value);
  EXPECT_EQ(TarnForm_status(form), status);
  EXPECT_NE(std::strstr(TarnForm_message(form), std::to_string(value).c_str()), nullptr)
      << TarnForm_message(form);
  EXPECT_EQ(TarnForm_isWhole(form), 0);
}

uint64_t countFields(TarnForm *form) {
  uint64_t count = 0;
  while (TarnForm_next(form)) ++count;
  return count;
}

class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe(ends_), 0); }
  ~Pipe() {
    close(ends_[0]);
    close(ends_[1]);
  }
  int out() const { return ends_[0]; }
  void send(const char *text) const {
    EXPECT_EQ(write(ends_[1], text, std::strlen(text)), static_cast<ssize_t>(std::strlen(text)));
  }

 private:
  int ends_[2] = {-1, -1};
};

TEST(Limit, OfFieldsIsAThousand) {
  std::string parts, pairs;
  for (int i = 0; i < 1000; ++i) {
    parts += part("name=\"a\"", "1");
    pairs += "a=1&&";
  }
  for (const bool more : {false, true}) {
    const std::string body = parts + (more ? part("name=\"b\"", "2") : "") + "--b--";
    TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
    EXPECT_EQ(countFields(form), 1000U);
    if (more) expectLimit(form, TARN_FORM_FIELDS, 1000);
    EXPECT_EQ(TarnForm_isWhole(form), !more);
    TarnForm_close(form);

    const std::string text = pairs + (more ? "b" : "");
    form = TarnForm_openQuery(text.c_str());
    EXPECT_EQ(countFields(form), 1000U);
    if (more) expectLimit(form, TARN_FORM_FIELDS, 1000);
    EXPECT_EQ(TarnForm_isWhole(form), !more);
    TarnForm_close(form);
  }
}

TEST(Limit, CanBeChangedBeforeReading) {
  TarnForm *form = TarnForm_openQuery("a&b&c&d");
  TarnForm_setLimit(form, TARN_FORM_FIELDS, 3);
  TarnForm_setLimit(form, 99, 0);
  EXPECT_NE(TarnForm_next(form), nullptr);
  TarnForm_setLimit(form, TARN_FORM_FIELDS, 100);
  EXPECT_EQ(countFields(form), 2U);
  expectLimit(form, TARN_FORM_FIELDS, 3);
  TarnForm_close(form);
}

TEST(Limit, OfHeadersCountsTheEmptyLine) {
  for (const uint64_t size : {44U, 45U}) {
    const std::string body = part("name=\"a\"", "1") + "--b--";  // 42 bytes and an empty line
    TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
    TarnForm_setLimit(form, TARN_FORM_HEADER_SIZE, size - 1);
    const bool fits = size == 45;
    EXPECT_EQ(countFields(form), fits ? 1U : 0U);
    if (!fits) expectLimit(form, TARN_FORM_HEADER_SIZE, size - 1);
    TarnForm_close(form);
  }
  const std::string endless = "--b\r\nX: " + std::string(1 << 20, 'x');
  const Pieces pieces(endless, {4096});
  TarnForm *form = TarnForm_openDescriptor(kMultipart, Pieces::kDescriptor, endless.size());
  EXPECT_EQ(countFields(form), 0U);
  expectLimit(form, TARN_FORM_HEADER_SIZE, 16384);
  EXPECT_EQ(TarnForm_problemOffset(form), 5U + 16384U);
  EXPECT_LT(pieces.taken(), 200000U) << "reading ends at the limit";
  TarnForm_close(form);
}

TEST(Limit, OfTextAppliesOnlyToTexts) {
  const std::string value(100, 'v');
  const std::string body = part("name=\"a\"", value) + part("name=\"b\"", value) + "--b--";
  TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
  TarnForm_setLimit(form, TARN_FORM_TEXT_SIZE, 100);
  EXPECT_EQ(TarnFormField_text(TarnForm_next(form)), value);
  EXPECT_EQ(TarnFormField_text(TarnForm_next(form)), value);
  TarnForm_close(form);

  form = TarnForm_openMemory(kMultipart, body.data(), body.size());
  TarnForm_setLimit(form, TARN_FORM_TEXT_SIZE, 99);
  EXPECT_EQ(TarnFormField_skip(TarnForm_next(form)), 1);
  EXPECT_EQ(TarnFormField_text(TarnForm_next(form)), nullptr);
  expectLimit(form, TARN_FORM_TEXT_SIZE, 99);
  TarnForm_close(form);

  form = TarnForm_openQuery("name=1");
  TarnForm_setLimit(form, TARN_FORM_TEXT_SIZE, 3);
  EXPECT_EQ(TarnForm_next(form), nullptr);
  expectLimit(form, TARN_FORM_TEXT_SIZE, 3);
  EXPECT_EQ(TarnForm_problemOffset(form), 3U);
  TarnForm_close(form);
}

TEST(Limit, OfTextAppliesToTheCopyOfAView) {
  const std::string body = part("name=\"a\"", std::string(100, 'v')) + "--b--";
  TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
  TarnForm_setLimit(form, TARN_FORM_TEXT_SIZE, 99);
  TarnFormField *field = TarnForm_next(form);
  EXPECT_NE(TarnFormField_view(field), nullptr);
  EXPECT_EQ(TarnFormField_text(field), nullptr);
  expectLimit(form, TARN_FORM_TEXT_SIZE, 99);
  EXPECT_EQ(TarnForm_limit(form, nullptr, nullptr), 1);
  TarnForm_close(form);
}

TEST(Limit, OfSecondsMayBeAsLongAsItWants) {
  const Pipe pipe;
  pipe.send("a=1&b=2");
  TarnForm *form = TarnForm_openDescriptor(kUrlEncoded, pipe.out(), 7);
  TarnForm_setLimit(form, TARN_FORM_WAIT_SECONDS, TARN_FORM_UNLIMITED - 1);
  TarnForm_setLimit(form, TARN_FORM_TOTAL_SECONDS, TARN_FORM_UNLIMITED - 1);
  EXPECT_EQ(TarnForm_limit(form, nullptr, nullptr), 0);
  EXPECT_EQ(TarnForm_load(form), 1) << TarnForm_message(form);
  TarnForm_close(form);
}

TEST(Limit, OfTheBodyIsTestedBeforeReading) {
  const Pieces pieces("a=1&b=2", {3});
  TarnForm *form = TarnForm_openDescriptor(kUrlEncoded, Pieces::kDescriptor, 7);
  TarnForm_setLimit(form, TARN_FORM_BODY_SIZE, 6);
  EXPECT_EQ(TarnForm_next(form), nullptr);
  expectLimit(form, TARN_FORM_BODY_SIZE, 6);
  EXPECT_EQ(pieces.taken(), 0U);
  TarnForm_close(form);
  form = TarnForm_openMemory("application/json", "1234567", 7);
  TarnForm_setLimit(form, TARN_FORM_BODY_SIZE, 6);
  EXPECT_EQ(TarnForm_body(form), nullptr);
  expectLimit(form, TARN_FORM_BODY_SIZE, 6);
  TarnForm_close(form);
}

TEST(Limit, OfABodyWithoutALengthIsTestedWhileItIsRead) {
  const Pieces pieces("a=1&b=2", {3});
  TarnForm *form = TarnForm_openDescriptor(kUrlEncoded, Pieces::kDescriptor, TARN_FORM_UNLIMITED);
  TarnForm_setLimit(form, TARN_FORM_BODY_SIZE, 6);
  EXPECT_EQ(TarnForm_load(form), 0);
  expectLimit(form, TARN_FORM_BODY_SIZE, 6);
  TarnForm_close(form);
}

TEST(SlowSender, IsWaitedForOnlySoLong) {
  const Pipe pipe;
  pipe.send("a=1&b=");
  TarnForm *form = TarnForm_openDescriptor(kUrlEncoded, pipe.out(), 100);
  TarnForm_setLimit(form, TARN_FORM_WAIT_SECONDS, 0);
  EXPECT_STREQ(TarnFormField_text(TarnForm_next(form)), "1");
  EXPECT_EQ(TarnFormField_text(TarnForm_next(form)), nullptr);
  EXPECT_EQ(TarnForm_problem(form), TARN_FORM_TIMED_OUT);
  expectLimit(form, TARN_FORM_WAIT_SECONDS, 0, 408);
  EXPECT_EQ(TarnForm_problemOffset(form), 6U);
  TarnForm_close(form);
}

TEST(SlowSender, HasToFinishInTime) {
  const Pipe pipe;
  pipe.send("a=1&b=");
  TarnForm *form = TarnForm_openDescriptor(kUrlEncoded, pipe.out(), 100);
  TarnForm_setLimit(form, TARN_FORM_WAIT_SECONDS, TARN_FORM_UNLIMITED);
  TarnForm_setLimit(form, TARN_FORM_TOTAL_SECONDS, 0);
  EXPECT_EQ(TarnForm_load(form), 0);
  expectLimit(form, TARN_FORM_TOTAL_SECONDS, 0, 408);
  TarnForm_close(form);
}

TEST(SlowSender, HasToFinishInTimeEvenIfBytesKeepArriving) {
  const Pipe pipe;
  pipe.send("a=1&b=");
  TarnForm *form = TarnForm_openDescriptor(kUrlEncoded, pipe.out(), TARN_FORM_UNLIMITED);
  TarnForm_setLimit(form, TARN_FORM_TOTAL_SECONDS, 1);
  // On a busy machine, the time may be over before the first field.
  const bool in_time = TarnForm_next(form) != nullptr;
  sleep(1);
  pipe.send("2&c=3");
  if (in_time) {
    EXPECT_STREQ(TarnFormField_text(TarnForm_next(form)), nullptr);
  }
  expectLimit(form, TARN_FORM_TOTAL_SECONDS, 1, 408);
  TarnForm_close(form);
}

}  // namespace
