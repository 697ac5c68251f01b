// The reader and a plain model of its rules agree: on every short sequence of the pieces that matter,
// however the bytes arrive, and wherever a body is cut.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/form_model.h"
#include "support/pieces.h"
#include "support/processor_time.h"
#include "support/script.h"

namespace tarn_test {

// GoogleTest finds it beside the type.
static std::ostream &operator<<(std::ostream &out, const ModelResult &result) {
  for (const ModelField &field : result.fields) {
    out << "\n  name " << shown(field.name) << ", file name "
        << (field.filename ? shown(*field.filename) : "none") << ", type "
        << (field.content_type ? shown(*field.content_type) : "none") << ", value "
        << shown(field.value);
  }
  return out << "\n  " << (result.problem.empty() ? "whole" : result.problem);
}

}  // namespace tarn_test

namespace {

using namespace tarn_test;

constexpr char kType[] = "multipart/form-data; boundary=bo";

unsigned numberIn(const char *variable, unsigned otherwise) {
  const char *text = std::getenv(variable);
  return text ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

// How long the sequences are. Builds that are many times slower have shorter ones; an environment
// variable can ask for longer ones, with hours of processor time.
unsigned mostTokens(const char *variable, unsigned usual, unsigned when_slow) {
  if (std::getenv(variable)) limitProcessorTime(24 * 60 * 60);
  return numberIn(variable, slowness() > 1 ? when_slow : usual);
}

// Reads every sequence of tokens behind a start, and compares it with the model. Stops at the first
// form that is read in another way than the model does, and shows it once.
class Sequences {
 public:
  Sequences(const char *type, std::vector<std::string> tokens, std::string start = "")
      : type_(type), tokens_(std::move(tokens)), start_(std::move(start)) {}

  void compare(unsigned most) {
    const unsigned threads = std::max(1U, numberIn("TARN_TEST_THREADS", 1));
    std::vector<std::thread> running;
    for (unsigned i = 1; i < threads; ++i) {
      running.emplace_back([this, most, threads, i] { compareShare(most, threads, i); });
    }
    compareShare(most, threads, 0);
    for (std::thread &thread : running) thread.join();
    size_t all = 1;
    for (unsigned length = 0; length < most; ++length) all = all * tokens_.size() + 1;
    EXPECT_TRUE(!agrees_ || count_ == all) << count_ << " of " << all;
    std::printf("%zu forms\n", count_.load());
  }

 private:
  // A thread has the sequences that begin with certain pairs; the first one has the shorter ones.
  void compareShare(unsigned most, unsigned threads, unsigned thread) {
    std::string body = start_;
    if (thread == 0) compareFrom(body, std::min(most, 1U));
    if (most < 2) return;
    unsigned pair = 0;
    for (const std::string &first : tokens_) {
      for (const std::string &second : tokens_) {
        body = start_ + first + second;
        if (pair++ % threads == thread) compareFrom(body, most - 2);
      }
    }
  }

  void compareFrom(std::string &body, unsigned most) {
    if (!agrees_) return;
    compareOne(body);
    if (most == 0) return;
    for (const std::string &token : tokens_) {
      body += token;
      compareFrom(body, most - 1);
      body.resize(body.size() - token.size());
    }
  }

  void compareOne(const std::string &body) {
    ++count_;
    const ModelResult expected = modelOfForm(type_, body);
    const ModelResult at_once = readFromMemory(type_, body);
    const ModelResult byte_by_byte = readInPieces(type_, body, {1});
    if (at_once == expected && byte_by_byte == expected) return;
    if (!agrees_.exchange(false)) return;
    EXPECT_EQ(at_once, expected) << "of " << shown(body);
    EXPECT_EQ(byte_by_byte, expected) << "byte by byte, of " << shown(body);
  }

  const char *type_;
  std::vector<std::string> tokens_;
  std::string start_;
  std::atomic<size_t> count_ = 0;
  std::atomic<bool> agrees_ = true;
};

const std::vector<std::string> kFraming = {
    "\r", "\n", "--", "bo", "b", ":", "\"", "x", "Content-Disposition: form-data; name=\"a\"\r\n"};

TEST(EveryShortForm, OfPiecesOfFramingIsReadAsTheModelReadsIt) {
  Sequences(kType, kFraming).compare(mostTokens("TARN_TEST_TOKENS", 6, 4));
}

TEST(EveryShortForm, BehindTheHeadersOfAPartIsReadAsTheModelReadsIt) {
  Sequences(kType, {"\r", "\n", "--", "-", "bo", "b", " ", "x"},
            "--bo\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\n")
      .compare(mostTokens("TARN_TEST_TOKENS", 5, 4));
}

TEST(EveryShortForm, InAHeaderIsReadAsTheModelReadsIt) {
  Sequences(kType, {"name=\"a\"", "filename=", "\"", "\\", ";", " ", "=", "%2", "2", "\r\n"},
            "--bo\r\nContent-Disposition: form-data; ")
      .compare(mostTokens("TARN_TEST_HEADER_TOKENS", 5, 3));
}

TEST(EveryShortForm, OfUrlEncodedTextIsReadAsTheModelReadsIt) {
  Sequences(kUrlEncoded, {"a", "&", "=", "%", "+", "4", "Z"})
      .compare(mostTokens("TARN_TEST_URL_TOKENS", 6, 5));
}

std::string largeValue(size_t size) {
  std::mt19937 chance(14);
  std::string value;
  while (value.size() < size) {
    const char *const pieces[] = {"\r", "\n", "\r\n", "\r\n--", "\r\n--b", "--bo", "\0x", "photo"};
    value += pieces[chance() % 8];
    value += static_cast<char>(chance());
  }
  // No delimiter.
  for (size_t at = 0; (at = value.find("\r\n--bo", at)) != std::string::npos;) value[at + 5] = 'p';
  return value;
}

const std::string kForm =
    "preamble\r\n" + part("name=\"text\"", "one\r\ntwo\r\n--b\r\n", "bo") +
    part("name=\"photo\"; filename=\"C:\\p\\\"; x=y\r\nContent-Type: image/png", "\r\n\r\n--",
         "bo") +
    part("name=\"empty\"", "", "bo") + "--bo--\r\nepilogue";

TEST(HowBytesArrive, DoesNotChangeWhatIsRead) {
  const ModelResult expected = modelOfForm(kType, kForm);
  ASSERT_EQ(expected.problem, "");
  ASSERT_EQ(expected.fields.size(), 3U);
  for (size_t size = 1; size <= kForm.size(); ++size) {
    EXPECT_EQ(readInPieces(kType, kForm, {size}), expected) << "pieces of " << size;
    EXPECT_EQ(readInPieces(kType, kForm, {size, 1, 2, 100000}), expected)
        << "a piece of " << size << ", then 1, 2 and the rest";
  }
}

TEST(HowBytesArrive, DoesNotChangeLargeValues) {
  const std::string body = part("name=\"a\"", largeValue(400000), "bo") +
                           part("name=\"b\"; filename=\"f\"", largeValue(131072), "bo") + "--bo--";
  const ModelResult expected = modelOfForm(kType, body);
  ASSERT_EQ(expected.problem, "");
  ASSERT_EQ(expected.fields.size(), 2U);
  std::mt19937 chance(7);
  for (const size_t size : {size_t{1}, size_t{2}, size_t{3}, size_t{7}, size_t{4095}, size_t{4096},
                            size_t{4097}, size_t{65535}, size_t{65536}, size_t{65537},
                            size_t{131071}, size_t{131072}, size_t{131073}, size_t{1} << 20}) {
    EXPECT_TRUE(readInPieces(kType, body, {size}) == expected) << "pieces of " << size;
  }
  for (int round = 0; round < 20; ++round) {
    std::vector<size_t> sizes;
    for (int i = 0; i < 50; ++i) sizes.push_back(1 + chance() % 9000);
    EXPECT_TRUE(readInPieces(kType, body, sizes) == expected) << "round " << round;
  }
}

TEST(HowBytesArrive, DoesNotChangeUrlEncodedValues) {
  std::string body;
  std::mt19937 chance(3);
  for (int i = 0; i < 60000; ++i) body += "ab%&=+4Zxyzw"[chance() % (i % 1000 < 500 ? 12 : 2)];
  const ModelResult expected = modelOfForm(kUrlEncoded, body);
  ASSERT_GT(expected.fields.size(), 500U);
  for (const size_t size : {1, 2, 3, 5, 64, 4096, 100000}) {
    EXPECT_TRUE(readInPieces(kUrlEncoded, body, {size}) == expected) << "pieces of " << size;
  }
}

TEST(CutBody, IsNeverWhole) {
  const std::string form = kForm.substr(0, kForm.find("epilogue"));
  for (size_t size = 0; size < form.size(); ++size) {
    const std::string cut = form.substr(0, size);
    // With the length of what is left, as if it had been sent like this.
    EXPECT_EQ(readFromMemory(kType, cut), modelOfForm(kType, cut)) << shown(cut);
    // With the length of the whole.
    const Pieces pieces(cut, {1000});
    const ModelResult read =
        readAll(TarnForm_openDescriptor(kType, Pieces::kDescriptor, form.size()));
    EXPECT_EQ(read.problem, "cut_short") << shown(cut);
  }
}

}  // namespace
