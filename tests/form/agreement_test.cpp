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

#include "support/failing_memory.h"
#include "support/form_model.h"
#include "support/pieces.h"
#include "support/processor_time.h"
#include "support/script.h"
#include "tarn_form.h"

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

// ---- Kept fields and texts of all sizes, however they are encoded ---------------------------------

std::string bytesOf(const char *text, uint64_t size) {
  return text ? std::string(text, static_cast<size_t>(size)) : "none";
}

ModelField fieldOf(TarnFormField *field) {
  ModelField made;
  made.name = bytesOf(TarnFormField_name(field), TarnFormField_nameSize(field));
  if (const char *name = TarnFormField_filename(field)) {
    made.filename = bytesOf(name, TarnFormField_filenameSize(field));
  }
  if (const char *type = TarnFormField_type(field)) made.content_type = type;
  const char *text = TarnFormField_text(field);
  made.value = bytesOf(text, TarnFormField_size(field));
  EXPECT_TRUE(!text || text[TarnFormField_size(field)] == '\0');
  EXPECT_EQ(TarnFormField_name(field)[TarnFormField_nameSize(field)], '\0');
  return made;
}

ModelResult endOf(TarnForm *form, ModelResult result) {
  result.problem = TarnForm_problemName(TarnForm_problem(form));
  TarnForm_close(form);
  return result;
}

// Reads each value as a text.
ModelResult readTexts(TarnForm *form) {
  TarnForm_setLimit(form, TARN_FORM_FIELDS, TARN_FORM_UNLIMITED);
  ModelResult result;
  while (TarnFormField *field = TarnForm_next(form)) result.fields.push_back(fieldOf(field));
  return endOf(form, result);
}

ModelResult load(TarnForm *form) {
  TarnForm_setLimit(form, TARN_FORM_FIELDS, TARN_FORM_UNLIMITED);
  ModelResult result;
  TarnForm_load(form);
  for (uint64_t i = 0; i < TarnForm_count(form, nullptr); ++i) {
    result.fields.push_back(fieldOf(TarnForm_get(form, nullptr, i)));
  }
  return endOf(form, result);
}

// Compares texts and kept fields with the model, at once and in pieces.
void compare(const char *type, const std::string &body) {
  const ModelResult expected = modelOfForm(type, body);
  ASSERT_EQ(expected.problem, "") << shown(body);
  const auto open = [&] { return TarnForm_openMemory(type, body.data(), body.size()); };
  const auto openPieces = [&] {
    return TarnForm_openDescriptor(type, Pieces::kDescriptor, body.size());
  };
  ASSERT_TRUE(readTexts(open()) == expected) << shown(body);
  ASSERT_TRUE(load(open()) == expected) << shown(body);
  for (const size_t size : {13, 70}) {
    const Pieces texts(body, {size, 1, 200});
    ASSERT_TRUE(readTexts(openPieces()) == expected) << shown(body);
    const Pieces kept(body, {size, 1, 200});
    ASSERT_TRUE(load(openPieces()) == expected) << shown(body);
  }
}

TEST(KeptFields, OfAnyUrlEncodedTextAreThoseOfTheModel) {
  std::mt19937 chance(21);
  const std::vector<std::string> pieces = {"&",  "=",  "%",   "+",   "%41",
                                           "%4", "%%", "%zz", "%26", "%3D"};
  for (int round = 0; round < 3000; ++round) {
    std::string body;
    const size_t size = chance() % 400;
    // From nearly plain texts to hardly any plain byte.
    const size_t rare = 1 + chance() % 20;
    while (body.size() < size) {
      if (chance() % rare == 0) {
        body += pieces[chance() % pieces.size()];
      } else {
        body += static_cast<char>('a' + chance() % 26);
      }
    }
    compare(kUrlEncoded, body);
    if (HasFatalFailure()) return;
  }
}

TEST(KeptFields, MayHaveNamesAndValuesOfAnySize) {
  for (const size_t size :
       {0,    1,    15,   16,   17,   63,    64,    65,    254,   255,   256,  958,
        960,  1018, 1020, 1022, 1023, 1024,  1025,  1088,  4078,  4079,  4080, 4081,
        4094, 4095, 4096, 4097, 5000, 65534, 65535, 65536, 65537, 200000}) {
    const std::string text(size, 'x');
    compare(kUrlEncoded, "a=1&" + text + "n=" + text + "&b=" + text + "%41&c=2");
    if (size < 16000) {
      compare(kMultipart, part("name=\"" + text + "\"", "1") +
                              part("name=\"" + text + "\"; filename=\"" + text + "\"", "2") +
                              part("name=\"%22" + text + "\"", "3") + "--b--");
    }
    compare(kMultipart, part("name=\"a\"", text) + part("name=\"b\"; filename=\"f\"", text) +
                            part("name=\"c\"\r\nContent-Type: text/plain", text) +
                            part("name=\"d\"", text) + "--b--");
    if (HasFatalFailure()) return;
  }
}

// Reads each value in another way.
ModelResult readInEachWay(TarnForm *form) {
  TarnForm_setLimit(form, TARN_FORM_FIELDS, TARN_FORM_UNLIMITED);
  ModelResult result;
  while (TarnFormField *field = TarnForm_next(form)) {
    ModelField read;
    read.name = bytesOf(TarnFormField_name(field), TarnFormField_nameSize(field));
    const size_t way = result.fields.size() % 6;
    if (way == 1) {
      EXPECT_EQ(TarnFormField_skip(field), 1);
    } else if (way == 2 || way == 3) {
      char first = '\0';
      if (way == 2 && TarnFormField_read(field, &first, 1) == 1) read.value += first;
      const void *block;
      for (int64_t size; (size = TarnFormField_block(field, &block)) > 0;) {
        read.value.append(static_cast<const char *>(block), static_cast<size_t>(size));
      }
      EXPECT_EQ(TarnFormField_text(field), nullptr);
    } else if (way != 5) {
      if (way == 4) TarnFormField_view(field);
      read = fieldOf(field);
    }
    read.value.resize(way == 5 ? 0 : static_cast<size_t>(TarnFormField_size(field)), '?');
    result.fields.push_back(read);
  }
  return endOf(form, result);
}

// The same of what the model says: of skipped values, at most the size is known.
ModelResult asReadInEachWay(ModelResult result) {
  for (size_t i = 0; i < result.fields.size(); ++i) {
    std::string &value = result.fields[i].value;
    if (i % 6 == 1) value.assign(value.size(), '?');
    if (i % 6 == 5) value.clear();
  }
  return result;
}

// Names and values are decoded in blocks of 64 bytes, if enough bytes follow.
TEST(UrlEncodedFields, AreThoseOfTheModelWhereverABlockEnds) {
  const std::vector<std::string> tokens = {"a", "&", "=", "%", "+", "41", "%26"};
  const std::string rest = "&next=" + std::string(90, 'r') + "&last=" + std::string(90, 's');
  for (size_t before = 0; before < 70; before += placesInTime()) {
    for (size_t number = 0; number < 7 * 7 * 7; ++number) {
      const std::string middle =
          tokens[number / 49] + tokens[number / 7 % 7] + tokens[number % 7] + "%4";
      for (const std::string start : {"", "n="}) {
        const std::string body = start + std::string(before, 'x') + middle + rest;
        const ModelResult expected = modelOfForm(kUrlEncoded, body);
        const auto open = [&] {
          return TarnForm_openMemory(kUrlEncoded, body.data(), body.size());
        };
        ASSERT_TRUE(readTexts(open()) == expected) << shown(body);
        ASSERT_TRUE(load(open()) == expected) << shown(body);
        ASSERT_TRUE(readInEachWay(open()) == asReadInEachWay(expected)) << shown(body);
      }
    }
  }
}

TEST(UrlEncodedFields, AreThoseOfTheModelHoweverTheyAreRead) {
  std::mt19937 chance(8);
  for (int round = 0; round < roundsInTime(200); ++round) {
    std::string body;
    for (size_t i = 0; i < 300; ++i) {
      body += std::string(chance() % 30, 'n') + "%3d+=";
      const size_t size = chance() % 50 == 0 ? 1000 + chance() % 60 : chance() % 60;
      const bool encoded = chance() % 2 == 0;
      body += std::string(size, 'v') + (encoded ? "+%C3%A9%" : "") + (chance() % 9 ? "&" : "&&");
    }
    const ModelResult expected = modelOfForm(kUrlEncoded, body);
    const auto open = [&] { return TarnForm_openMemory(kUrlEncoded, body.data(), body.size()); };
    ASSERT_TRUE(readTexts(open()) == expected) << shown(body);
    ASSERT_TRUE(load(open()) == expected) << shown(body);
    ASSERT_TRUE(readInEachWay(open()) == asReadInEachWay(expected)) << shown(body);
    const Pieces pieces(body, {1 + chance() % 5000});
    TarnForm *form = TarnForm_openDescriptor(kUrlEncoded, Pieces::kDescriptor, body.size());
    ASSERT_TRUE(readInEachWay(form) == asReadInEachWay(expected)) << shown(body);
  }
}

// What the headers of the fields are, by name and in the order of the form.
std::vector<std::string> headersOf(TarnForm *form, bool kept) {
  std::vector<std::string> values;
  if (kept) {
    EXPECT_EQ(TarnForm_load(form), 1);
  }
  for (uint64_t i = 0;; ++i) {
    TarnFormField *field = kept ? TarnForm_get(form, nullptr, i) : TarnForm_next(form);
    if (!field) break;
    for (const char *name : {"content-disposition", "Content-Type", "X", "Content-Disposition"}) {
      values.push_back(
          bytesOf(TarnFormField_header(field, name), TarnFormField_headerSize(field, name)));
    }
  }
  EXPECT_EQ(TarnForm_isWhole(form), 1);
  TarnForm_close(form);
  return values;
}

TEST(KeptFields, HaveTheHeadersThatWereSent) {
  const std::vector<std::string> dispositions = {"name=\"a\"",
                                                 "name=\"\"",
                                                 "name=\"a%22b\"",
                                                 "name=b",
                                                 " name=\"two spaces\"",
                                                 "name=\"" + std::string(3000, 'n') + "\"",
                                                 "name=\"" + std::string(5000, 'n') + "\"",
                                                 "name=\"f\"; filename=\"g\"",
                                                 "name=\"\xC3\xA9\"",
                                                 "name=\"a\""};
  std::string body;
  std::vector<std::string> expected;
  for (const std::string &disposition : dispositions) {
    for (const std::string line : {"", "X: y", "Content-Type: a/b"}) {
      body += part(disposition + (line.empty() ? "" : "\r\n" + line), std::string(100, 'v'));
      const std::string value = "form-data; " + disposition;
      expected.insert(expected.end(), {value, line.front() == 'C' ? "a/b" : "none",
                                       line.front() == 'X' ? "y" : "none", value});
    }
  }
  body += "--b--";
  const auto open = [&] { return TarnForm_openMemory(kMultipart, body.data(), body.size()); };
  EXPECT_EQ(headersOf(open(), false), expected);
  EXPECT_EQ(headersOf(open(), true), expected);
}

TEST(KeptFields, KeepTheirHeadersUntilTheFormIsClosed) {
  std::string body;
  for (size_t i = 0; i < 300; ++i) body += part("name=\"" + std::string(i, 'n') + "\"", "");
  body += "--b--";
  TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
  ASSERT_EQ(TarnForm_load(form), 1);
  std::vector<const char *> headers(300);
  for (const int step : {7, 1}) {
    for (size_t i = 0; i < 300; i += static_cast<size_t>(step)) {
      headers[i] = TarnFormField_header(TarnForm_get(form, nullptr, i), "Content-Disposition");
    }
  }
  for (size_t i = 0; i < 300; ++i) {
    EXPECT_EQ(headers[i], "form-data; name=\"" + std::string(i, 'n') + "\"");
  }
  TarnForm_close(form);
}

TEST(KeptFieldsWithoutMemory, HaveTheirHeadersIfTheFormCouldBeLoaded) {
  const std::string body = part("name=\"a\"", "1") + "--b--";
  forEachFailingAllocation([&](FailingMemory &memory) {
    TarnForm *form = TarnForm_openMemory(kMultipart, body.data(), body.size());
    const int loaded = memory.call([&] { return TarnForm_load(form); });
    if (loaded) {
      TarnFormField *field = TarnForm_get(form, "a", 0);
      EXPECT_STREQ(TarnFormField_header(field, "Content-Disposition"), "form-data; name=\"a\"");
    } else {
      EXPECT_EQ(TarnForm_problem(form), TARN_FORM_OUT_OF_MEMORY);
    }
    TarnForm_close(form);
  });
}

// Lookups go through all fields at first, and later through an index.
TEST(Lookups, FindTheSameHoweverManyThereAre) {
  TarnForm *form = TarnForm_openQuery("ab=1&Ab=2&a=3&ab=4&xb=5&=6");
  ASSERT_EQ(TarnForm_load(form), 1);
  const auto value = [](TarnFormField *field) {
    return field ? std::string(TarnFormField_text(field)) : "none";
  };
  for (int round = 0; round < 100; ++round) {
    EXPECT_EQ(TarnForm_count(form, "ab"), 2U);
    EXPECT_EQ(TarnForm_count(form, "AB"), 0U);
    EXPECT_EQ(TarnForm_count(form, ""), 1U);
    EXPECT_EQ(value(TarnForm_get(form, "ab", 1)), "4");
    EXPECT_EQ(value(TarnForm_get(form, "ab", 2)), "none");
    EXPECT_EQ(value(TarnForm_get(form, "b", 0)), "none");
    EXPECT_EQ(value(TarnForm_get(form, "", 0)), "6");
    EXPECT_EQ(value(TarnForm_getIgnoringCase(form, "AB", 1)), "2");
    EXPECT_EQ(value(TarnForm_getIgnoringCase(form, "aB", 2)), "4");
    EXPECT_EQ(value(TarnForm_getIgnoringCase(form, "ab", 3)), "none");
  }
  TarnForm_close(form);
}

// A text with most of a boundary in many places, some of them at the ends of pieces.
TEST(Preamble, MayHaveNearDelimitersOfAnyLength) {
  std::mt19937 chance(5);
  for (size_t size = 1; size <= 70; ++size) {
    for (const bool dashes : {false, true}) {
      std::string boundary;
      for (size_t i = 0; i < size; ++i) boundary += dashes || i % 7 == 3 ? '-' : 'b';
      const std::string type = "multipart/form-data; boundary=" + boundary;
      std::string preamble;
      for (int i = 0; i < 40; ++i) {
        const std::string near = "--" + boundary.substr(0, chance() % size) + ".";
        preamble += (chance() % 2 ? "\r\n" : "") + near;
      }
      std::string body = preamble + "\r\n" + part("name=\"a\"", "1", boundary);
      if (chance() % 4 == 0) body = preamble + "--" + boundary + body;  // inside a line: malformed
      body += "--" + boundary + "--";
      const ModelResult expected = modelOfForm(type, body);
      EXPECT_EQ(readFromMemory(type.c_str(), body), expected) << shown(body);
      for (const size_t piece : {1, 2, 50, 63, 71, 72, 73, 1000}) {
        EXPECT_EQ(readInPieces(type.c_str(), body, {piece}), expected) << piece << shown(body);
      }
    }
  }
}

}  // namespace
