// Multipart bodies from strangers, compared with the rules, with the body at the edge of memory.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "support/form.h"
#include "support/guarded.h"
#include "support/handles.h"
#include "support/processor_time.h"
#include "support/rules.h"
#include "support/script.h"
#include "tarn.h"

namespace tarn_test {
namespace {

using namespace std::string_literals;

const std::string kContentType = "multipart/form-data; boundary=XYZ";
const std::string kDelimiter = "--XYZ\r\n";
const std::string kEnd = "--XYZ--\r\n";

std::string field(const std::string &name, const std::string &value) {
  return kDelimiter + "Content-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value +
         "\r\n";
}

std::string file(const std::string &name, const std::string &fileName, const std::string &data) {
  return kDelimiter + "Content-Disposition: form-data; name=\"" + name + "\"; filename=\"" +
         fileName + "\"\r\nContent-Type: text/plain\r\n\r\n" + data + "\r\n";
}

// Runs `script` with an empty request to parse into; each test sets the content type it needs.
void asEmptyScript(const std::function<void(Request &)> &script) {
  asScript({{"CONTENT_TYPE", kContentType}}, "", [&] {
    limitProcessorTime();
    Request request;
    ASSERT_EQ(Form{}, request.form());
    script(request);
  });
}

Form parsed(Request &request, const std::string &body) {
  Guarded input(body);
  EXPECT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, input.text(), input.size()));
  EXPECT_EQ(body, input.str()) << "the input is not written to";
  return request.takeForm();
}

int failuresSoFar() {
  return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

// Expects the form both from a posted body and from one at the edge of memory. A body that fails
// when posted is reported only once.
void expectEitherWay(const std::string &body, const Form &expected,
                     std::source_location where = std::source_location::current()) {
  const int before = failuresSoFar();
  expectForm(post(kContentType, body), body, expected, where);
  if (failuresSoFar() > before) return;
  const testing::ScopedTrace trace(where.file_name(), static_cast<int>(where.line()), "");
  asEmptyScript([&](Request &request) {
    EXPECT_EQ(expected, parsed(request, body)) << "the body is " << shown(body);
  });
}

// A body with every case that the parser distinguishes.
const std::string kMixture =
    "\r\n--XY\r\n" + field("a", "1\r\n2") + file("f", "a%2Fb+%", "da\0ta"s) + kDelimiter +
    "\tContent-Disposition: form-data;\r\n name=\"\"; filename=\"\"\r\n\r\n\r\n" + kDelimiter +
    kDelimiter + "--XYZ \r\n--XYZ\n" + field("z", "a\0b"s) + kDelimiter +
    "Content-Type: a\r\nContent-Disposition: x; filename=\"g\0\"; name=\"g\"\r\n\r\ng\n\r\n"s +
    kDelimiter + "name=\"open\r\n\r\nvalue\r" + kEnd + field("b", "--XYZ") + kEnd + "\r\n\r\nend";

TEST(HostileBody, OfEverythingAtOnceFollowsTheRules) {
  // The comparisons below expect this form, so check it first.
  const Form expected{{{"a", "1"},
                       {kNone, ""},
                       {"z", "a", 3},
                       {"open\r\n\r\nvalue\r--XYZ--\r\n", "value\r--XYZ--"},
                       {"b", ""},
                       {kNone, ""}},
                      {{"f", "a/b \xD0", "text/plain", "da\0ta"s},
                       {"g", "g", "a\r\nContent-Disposition: x; filename=\"g", "g\n"}}};
  EXPECT_EQ(expected, modelForm(kContentType, kMixture));
  expectEitherWay(kMixture, expected);
}

// ---- Bodies that end too soon -------------------------------------------------------------------

TEST(HostileBody, TruncatedAtAnyByteFollowsTheRulesAndIsNotReadBeyondItsEnd) {
  asEmptyScript([](Request &request) {
    for (size_t cut = 0; cut <= kMixture.size(); ++cut) {
      const std::string body = kMixture.substr(0, cut);
      const Form expected = modelForm(kContentType, body);
      ASSERT_EQ(expected, parsed(request, body)) << "cut at " << cut;
    }
  });
}

TEST(HostileBody, TruncatedAtAnyByteAndPostedFollowsTheRules) {
  asScript({{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", kContentType}}, "", [] {
    for (size_t cut = 0; cut <= kMixture.size(); ++cut) {
      const std::string body = kMixture.substr(0, cut);
      setenv("CONTENT_LENGTH", std::to_string(cut).c_str(), 1);
      feedStandardInput(body);
      Request request;
      ASSERT_EQ(TARN_OK, request.status);
      ASSERT_EQ(modelForm(kContentType, body), request.form()) << "cut at " << cut;
    }
  });
}

TEST(HostileBody, WithAPartTruncatedAtAnyByteFollowsTheRulesAndIsNotReadBeyondItsEnd) {
  asEmptyScript([](Request &request) {
    for (size_t start = kMixture.find(kDelimiter); start != std::string::npos;) {
      start += kDelimiter.size();
      const size_t next = kMixture.find(kDelimiter, start);
      const std::string whole = kMixture.substr(start, next - start);
      for (size_t cut = 0; cut <= whole.size(); cut += placesInTime()) {
        const std::string part = whole.substr(0, cut);
        Guarded bytes(part);
        Tarn_parseMime(&request.handle, bytes.bytes(), bytes.size());
        Form expected;
        modelPart(expected, part);
        ASSERT_EQ(expected, request.takeForm()) << testing::PrintToString(part);
      }
      start = next;
    }
  });
}

TEST(HostileBody, OfUpToThreeBytesFollowsTheRulesAndIsNotReadBeyondItsEnd) {
  const std::string alphabet = "-\r\nX\"=%&\0a"s;
  std::vector<std::string> bodies = {""};
  for (size_t length = 0, first = 0; length < 3; ++length) {
    const size_t last = bodies.size();
    for (; first < last; ++first) {
      for (const char byte : alphabet) bodies.push_back(bodies[first] + byte);
    }
  }
  ASSERT_EQ(1111U, bodies.size());
  asEmptyScript([&](Request &request) {
    for (const char *contentType :
         {"multipart/form-data; boundary=XYZ", "multipart/form-data; boundary=X",
          "multipart/form-data; boundary="}) {
      setenv("CONTENT_TYPE", contentType, 1);
      for (const std::string &body : bodies) {
        ASSERT_EQ(Form{}, parsed(request, body)) << testing::PrintToString(body);
      }
    }
    unsetenv("CONTENT_TYPE");
    for (const std::string &body : bodies) {
      const std::string text(asText(body));
      GuardedText input(text);
      ASSERT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, input.text(), 0));
      ASSERT_EQ((Form{modelEntries(text), {}}), request.takeForm()) << testing::PrintToString(text);
    }
  });
}

// ---- Boundaries ---------------------------------------------------------------------------------

TEST(HostileBoundary, ThatOverlapsItselfIsFoundWhereTheRulesSay) {
  const std::string boundaries[] = {"aa",   "aba",  "abab",  "aabaa",           "-",
                                    "----", "-a-a", "XYZ--", "a\r\n--a\r\n--a", ""};
  asEmptyScript([&](Request &request) {
    std::mt19937 random(20070717);
    size_t entries = 0;
    for (const std::string &boundary : boundaries) {
      const std::string contentType = "multipart/form-data; boundary=" + boundary;
      setenv("CONTENT_TYPE", contentType.c_str(), 1);
      const std::string delimiter = "--" + boundary + "\r\n";
      for (int round = 0; round < 500; ++round) {
        std::string body;
        for (auto pieces = random() % 30; pieces > 0; --pieces) {
          // A delimiter, or text that starts or ends like one, and sometimes a field.
          const size_t at = random() % delimiter.size();
          switch (random() % 4) {
            case 0:
              body += delimiter;
              break;
            case 1:
              body += delimiter.substr(0, at);
              break;
            case 2:
              body += delimiter.substr(at);
              break;
            default:
              body += "name=\"n\"\r\n\r\nv\r\n";
          }
        }
        const Form expected = modelForm(contentType, body);
        ASSERT_EQ(expected, parsed(request, body)) << testing::PrintToString(body);
        entries += expected.entries.size();
      }
    }
    EXPECT_GT(entries, 1000U) << "the bodies had something in them";
  });
}

TEST(HostileBoundary, OfAnyLengthMayBeTruncatedAnywhere) {
  asEmptyScript([](Request &request) {
    for (const size_t length : {0, 1, 2, 69, 70, 71, 255, 256, 257, 4091, 8192}) {
      const std::string contentType = "multipart/form-data; boundary=" + std::string(length, 'b');
      setenv("CONTENT_TYPE", contentType.c_str(), 1);
      const std::string delimiter = "--" + std::string(length, 'b') + "\r\n";
      const std::string whole = delimiter + "name=\"a\"\r\n\r\n1\r\n" + delimiter;
      const size_t step = length > 1000 ? 97 : 1;
      for (size_t missing = 0; missing <= delimiter.size() * 2; missing += step * placesInTime()) {
        if (missing > whole.size()) break;
        const std::string body = whole.substr(0, whole.size() - missing);
        ASSERT_EQ(modelForm(contentType, body), parsed(request, body))
            << length << ", " << missing << " missing";
      }
      const Form form = parsed(request, whole);
      EXPECT_EQ((Form{{{"a", "1"}}, {}}), form) << length;
    }
  });
}

TEST(HostileBoundaryLarge, OfMegabytesIsParsedWithoutDelay) {
  const std::string boundary(2000000, 'b');
  const std::string delimiter = "--" + boundary + "\r\n";
  const std::string body = delimiter + "name=\"a\"\r\n\r\n1\r\n" + std::string(4000000, 'b');
  asEmptyScript([&](Request &request) {
    setenv("CONTENT_TYPE", ("multipart/form-data; boundary=" + boundary).c_str(), 1);
    const Form form = parsed(request, body);
    EXPECT_EQ((Form{{{"a", "1"}}, {}}), form);
  });
}

TEST(HostileBoundaryLarge, ThatAlmostMatchesAtEveryByteIsParsedWithoutDelay) {
  asEmptyScript([](Request &request) {
    for (const size_t length : {16, 100, 250, 256, 1000, 100000}) {
      for (const size_t at : {size_t{0}, length / 2, length - 1}) {
        std::string boundary(length, '-');
        boundary[at] = 'b';
        setenv("CONTENT_TYPE", ("multipart/form-data; boundary=" + boundary).c_str(), 1);
        const std::string delimiter = "--" + boundary + "\r\n";
        const std::string body =
            std::string(1000000, '-') + delimiter + "name=\"a\"\r\n\r\n1\r\n" + delimiter;
        const Form form = parsed(request, body);
        EXPECT_EQ((Form{{{"a", "1"}}, {}}), form) << length << " at " << at;
      }
    }
  });
}

// ---- Bodies that are expensive to parse ---------------------------------------------------------

TEST(HostileBodyLarge, WithMegabytesOfNeitherAfterALoneLineEndIsParsedWithoutDelay) {
  const std::string much(4000000, 'x');
  for (const char *start : {"\r", "\n", "\r\r", "\n\r", "\n\n", "\r\n\r", "\r\n", "\r\nx\r\n"}) {
    SCOPED_TRACE(testing::PrintToString(start));
    expectEitherWay(kDelimiter + start + much, {});
    expectEitherWay(kDelimiter + start + much + "\r\n" + field("a", "1") + kEnd,
                    {{{"a", "1"}}, {}});
  }
  expectEitherWay(kDelimiter + "\r\n\r\n" + much + "\r\n" + kEnd, {{{kNone, much}}, {}});
}

TEST(HostileBodyLarge, OfOneSearchedForMarkOverAndOverIsParsedWithoutDelay) {
  for (const char *mark : {"\r\n--", "\r\n\r", "--XYZ\r", "--XYZ--\r\n", "name=", "filename=\"",
                           "Content-Type:", "Content-Type: ", "\"", "\r\n"}) {
    std::string much;
    while (much.size() < 3000000) much += mark;
    asEmptyScript([&](Request &request) {
      const std::string body = kDelimiter + much + kDelimiter + "\r\n\r\n" + much + kDelimiter;
      EXPECT_EQ(modelForm(kContentType, body), parsed(request, body))
          << "the body is " << shown(body);
    });
  }
}

// Reading zero pages that were never written takes no memory.
TEST(HostileBodyGigabytes, OfMoreThanTwoGigabytesIsSearchedToItsEnd) {
  if (sizeof(void *) == 4) GTEST_SKIP() << "no address space for such a body";
  asEmptyScript([](Request &request) {
    const std::string last = field("a", "1") + file("f", "f", "x") + kEnd;
    constexpr size_t kSize = (size_t{1} << 31) + 5000000;
    void *const map = mmap(nullptr, kSize, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(MAP_FAILED, map);
    auto *const input = static_cast<char *>(map);
    std::memcpy(input + kSize - last.size(), last.data(), last.size());
    EXPECT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, input, kSize));
    EXPECT_EQ((Form{{{"a", "1"}}, {{"f", "f", "text/plain", "x"}}}), request.form());
    munmap(map, kSize);
  });
}

// ---- Parts --------------------------------------------------------------------------------------

TEST(HostilePartLarge, WithAHeaderLineOfMegabytesIsReadInFull) {
  const std::string much(5000000, 'y');
  expectEitherWay(kDelimiter + "X: " + much + "\r\nname=\"a\"\r\n\r\n1\r\n" + kEnd,
                  {{{"a", "1"}}, {}});
  expectEitherWay(field(much, "1") + kEnd, {{{much, "1"}}, {}});
  expectEitherWay(file("f", much, "1") + kEnd, {{}, {{"f", much, "text/plain", "1"}}});
  expectEitherWay(kDelimiter + much, {});
}

TEST(HostilePart, WithThousandsOfHeadersHasTheFirstNameAndAllLinesAfterTheContentType) {
  std::string lines;
  for (int i = 0; i < 100000; ++i) lines += "X-" + std::to_string(i) + ": name=\"n\"\r\n";
  expectEitherWay(kDelimiter + "name=\"a\"\r\n" + lines + "\r\n1\r\n" + kEnd, {{{"a", "1"}}, {}});
  const std::string type = "t\r\n" + lines.substr(0, lines.size() - 2);
  expectEitherWay(
      kDelimiter + "name=\"a\"; filename=\"f\"\r\nContent-Type: t\r\n" + lines + "\r\n1\r\n" + kEnd,
      {{}, {{"a", "f", type, "1"}}});
}

TEST(HostilePart, WithAnotherDispositionIsAFieldOrAFileLikeAnyOther) {
  for (const char *disposition :
       {"attachment", "inline", "", "FORM-DATA", "form-data;;;", "%s%n"}) {
    SCOPED_TRACE(disposition);
    const std::string header = kDelimiter + "Content-Disposition: "s + disposition;
    expectEitherWay(header + "; name=\"a\"\r\n\r\n1\r\n" + kEnd, {{{"a", "1"}}, {}});
    expectEitherWay(
        header + "; name=\"f\"; filename=\"%s%n\"\r\nContent-Type: %s%n\r\n\r\n1\r\n" + kEnd,
        {{}, {{"f", decoded("%s%n"), "%s%n", "1"}}});
  }
}

// Each inner form is the first line of the outer one's value; its parts are dropped.
TEST(HostilePart, NestedThousandsOfLevelsDeepIsOneFileOfOneLine) {
  std::string inner;
  for (int depth = 0; depth < 5000; ++depth) {
    const std::string boundary = "n" + std::to_string(depth);
    inner += "Content-Type: multipart/mixed; boundary=" + boundary + "\r\n\r\n--" + boundary +
             "\r\nContent-Disposition: file; filename=\"" + boundary + "\"\r\n";
  }
  const std::string body = kDelimiter + "Content-Disposition: form-data; name=\"files\"\r\n" +
                           inner + "\r\nx\r\n" + kEnd;
  expectEitherWay(body, {{}, {{"files", "n0", "multipart/mixed; boundary=n0", "--n0"}}});
}

TEST(HostilePart, OfASizeAroundAPageKeepsEveryByteWhereverAZeroIs) {
  asEmptyScript([](Request &request) {
    for (const size_t size : {1, 2, 3, 255, 256, 4092, 4093, 4094, 4095, 4096, 4097, 8191, 8193}) {
      for (const size_t zero : {size_t{0}, size / 2, size - 1, size}) {
        std::string value(size, 'v');
        if (zero < size) value[zero] = '\0';
        const std::string body = field("a", value) + file("f", "f", value);
        const Form form = parsed(request, body);
        const auto length = static_cast<uint32_t>(size);
        EXPECT_TRUE((Form{{{"a", value.substr(0, zero), length}},
                          {{"f", "f", "text/plain", value}}}) == form)
            << size << " bytes, zero at " << zero;
      }
    }
  });
}

}  // namespace
}  // namespace tarn_test
