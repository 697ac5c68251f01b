// The reader and a plain model of its rules agree: on every short sequence of the pieces that matter,
// however the bytes arrive, and wherever a body is cut.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>
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

// Calls `visit` with every sequence of up to `most` tokens.
template <class Visit>
void forEachSequence(const std::vector<std::string> &tokens, unsigned most, const Visit &visit,
                     std::string &body) {
  visit();
  if (most == 0) return;
  for (const std::string &token : tokens) {
    body += token;
    forEachSequence(tokens, most - 1, visit, body);
    body.resize(body.size() - token.size());
  }
}

// How long the sequences are: an environment variable can ask for longer ones. Builds that are many
// times slower have shorter ones.
unsigned mostTokens(const char *variable, unsigned otherwise) {
  const char *text = std::getenv(variable);
  if (text) return static_cast<unsigned>(std::strtoul(text, nullptr, 10));
  return slowness() > 1 ? otherwise - 1 : otherwise;
}

// Stops at the first form that is read in another way than the model does, and shows it once.
void compareEverySequence(const char *type, const std::vector<std::string> &tokens, unsigned most,
                          const std::string &start = "") {
  std::string body = start;
  size_t count = 0;
  bool agrees = true;
  forEachSequence(
      tokens, most,
      [&] {
        if (!agrees) return;
        ++count;
        const ModelResult expected = modelOfForm(type, body);
        const ModelResult at_once = readFromMemory(type, body);
        const ModelResult byte_by_byte = readInPieces(type, body, {1});
        agrees = at_once == expected && byte_by_byte == expected;
        EXPECT_EQ(at_once, expected) << "of " << shown(body);
        EXPECT_EQ(byte_by_byte, expected) << "byte by byte, of " << shown(body);
      },
      body);
  std::printf("%zu forms\n", count);
}

const std::vector<std::string> kFraming = {
    "\r", "\n", "--", "bo", "b", ":", "\"", "x", "Content-Disposition: form-data; name=\"a\"\r\n"};

TEST(EveryShortForm, OfPiecesOfFramingIsReadAsTheModelReadsIt) {
  compareEverySequence(kType, kFraming, mostTokens("TARN_TEST_TOKENS", 5));
}

TEST(EveryShortForm, BehindTheHeadersOfAPartIsReadAsTheModelReadsIt) {
  compareEverySequence(kType, {"\r", "\n", "--", "-", "bo", "b", " ", "x"},
                       mostTokens("TARN_TEST_TOKENS", 5),
                       "--bo\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\n");
}

TEST(EveryShortForm, InAHeaderIsReadAsTheModelReadsIt) {
  compareEverySequence(
      kType, {"name=\"a\"", "filename=", "\"", "\\", ";", " ", "=", "%2", "2", "\r\n"},
      mostTokens("TARN_TEST_HEADER_TOKENS", 4), "--bo\r\nContent-Disposition: form-data; ");
}

TEST(EveryShortForm, OfUrlEncodedTextIsReadAsTheModelReadsIt) {
  compareEverySequence(kUrlEncoded, {"a", "&", "=", "%", "+", "4", "Z"},
                       mostTokens("TARN_TEST_URL_TOKENS", 6));
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
