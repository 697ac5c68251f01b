#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <string>

#include "support/failing_memory.h"
#include "support/form.h"
#include "support/handles.h"
#include "support/processor_time.h"
#include "support/rules.h"
#include "support/script.h"
#include "tarn.h"

namespace tarn_test {
namespace {

using namespace std::string_literals;

// Most bodies here have the boundary XYZ.
constexpr const char *kContentType = "multipart/form-data; boundary=XYZ";
const std::string kDelimiter = "--XYZ\r\n";
const std::string kEnd = "--XYZ--\r\n";
const std::string kType = "Content-Type: text/plain\r\n";

// A part with this header, which includes the line end of each line.
std::string part(const std::string &header, const std::string &value) {
  return kDelimiter + header + "\r\n" + value + "\r\n";
}

std::string disposition(const std::string &parameters) {
  return "Content-Disposition: form-data; " + parameters + "\r\n";
}

std::string field(const std::string &name, const std::string &value) {
  return part(disposition("name=\"" + name + "\""), value);
}

std::string file(const std::string &name, const std::string &fileName, const std::string &data) {
  return part(disposition("name=\"" + name + "\"; filename=\"" + fileName + "\"") + kType, data);
}

File textFile(const Text &name, const std::string &fileName, const std::string &data) {
  return {name, fileName, "text/plain", data};
}

void expectBody(const std::string &body, const Form &expected,
                std::source_location where = std::source_location::current()) {
  expectForm(post(kContentType, body), body, expected, where);
}

struct Body {
  std::string body;
  Form form;
};

// Runs `script` with an empty request to parse into.
void asMultipartScript(const std::function<void(Request &)> &script) {
  asScript({{"CONTENT_TYPE", kContentType}}, "", [&] {
    Request request;
    ASSERT_EQ(Form{}, request.form());
    script(request);
  });
}

// Parses bytes in a block of exactly their size.
Form parsed(Request &request, const std::string &body) {
  ExactBlock input(body);
  EXPECT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, input.text(), input.size()));
  EXPECT_EQ(body, input.str()) << "the input is not written to";
  return request.takeForm();
}

void expectBodies(const std::vector<Body> &cases) {
  asMultipartScript([&](Request &request) {
    limitProcessorTime();
    for (const auto &[body, form] : cases) {
      EXPECT_EQ(form, parsed(request, body)) << testing::PrintToString(body);
    }
  });
}

// ---- The model of the rules, for any body -------------------------------------------------------

// A body with every kind of part.
const std::string kVaried =
    "preamble\r\n" + field("a", "1") + file("f", "my+file%21.txt", "data\nmore\r\nlost") +
    part(disposition("name=\"\""), "nameless") + part(disposition("filename=\"g.txt\""), "x") +
    part(kType + disposition("name=\"h\"; filename=\"h%"s + "\""), "a\0b"s) +
    field("zero", "ab\0cd"s) + part(disposition("name=\"e\"; filename=\"\"") + kType, "none") +
    "--XYZ\r\nno blank line\r\n" + kDelimiter + "--XYZ \r\n--XYZZ\r\n" +
    part("\r\n", "two\r\nlines") + file("last", "l.bin", "\r\n") + kEnd + "epilogue";

TEST(MultipartForm, FollowsTheRulesInABodyWithEverything) {
  // The comparisons below expect this form, so check it first.
  EXPECT_EQ(
      (Form{{{"a", "1"}, {kNone, "nameless"}, {"zero", "ab", 5}, {"e", "none"}, {kNone, "two"}},
            {{"f", "my file!.txt", "text/plain", "data\nmore"},
             {},
             {"h", "h\xD0",
              "text/plain\r\nContent-Disposition: form-data; name=\"h\"; filename=\"h%\"", "a\0b"s},
             textFile("last", "l.bin", "")}}),
      modelForm(kContentType, kVaried));
  expectBody(kVaried, modelForm(kContentType, kVaried));
}

// ---- Fields and files ---------------------------------------------------------------------------

TEST(MultipartForm, StoresAFieldAsAnEntry) {
  expectBody("--XYZ\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\n1\r\n--XYZ--\r\n",
             {{{"a", "1"}}, {}});
}

TEST(MultipartForm, StoresAPartWithAFileNameAsAFile) {
  expectBody(
      "--XYZ\r\nContent-Disposition: form-data; name=\"f\"; filename=\"f.txt\"\r\n"
      "Content-Type: text/plain\r\n\r\ndata\r\n--XYZ--\r\n",
      {{}, {{"f", "f.txt", "text/plain", "data"}}});
}

TEST(MultipartForm, KeepsEntriesAndFilesInOrder) {
  expectBody(field("b", "1") + file("f", "1.txt", "one") + field("a", "2") +
                 file("f", "2.txt", "two") + field("b", "3") + kEnd,
             {{{"b", "1"}, {"a", "2"}, {"b", "3"}},
              {textFile("f", "1.txt", "one"), textFile("f", "2.txt", "two")}});
}

TEST(MultipartForm, KeepsOnlyTheFirstLineOfAField) {
  expectBodies({
      {field("a", "line1\r\nline2") + kEnd, {{{"a", "line1"}}, {}}},
      {field("a", "\r\nline2") + kEnd, {{{"a", ""}}, {}}},
      {field("a", "line1\r\n\r\nline3") + kEnd, {{{"a", "line1"}}, {}}},
  });
}

TEST(MultipartForm, TruncatesAFileAtItsFirstLineEnd) {
  expectBodies({
      {file("f", "f.txt", "line1\r\nline2") + kEnd, {{}, {textFile("f", "f.txt", "line1")}}},
      {file("f", "f.txt", "\r\nline2") + kEnd, {{}, {textFile("f", "f.txt", "")}}},
  });
}

TEST(MultipartForm, KeepsBareCarriageReturnsAndLineFeeds) {
  expectBodies({
      {field("a", "x\ny\rz\n\r") + kEnd, {{{"a", "x\ny\rz\n\r"}}, {}}},
      {field("a", "\nx") + kEnd, {{{"a", "\nx"}}, {}}},
      {field("a", "\rx") + kEnd, {{{"a", "\rx"}}, {}}},
      {file("f", "f", "\n\r\n") + kEnd, {{}, {textFile("f", "f", "\n")}}},
  });
}

TEST(MultipartForm, KeepsAFileWithoutLineEndsInFull) {
  std::string data;
  for (int i = 0; i < 100000; ++i) {
    const auto byte = static_cast<char>((i * 7) >> 2);
    data.push_back(byte == '\n' ? '\r' : byte);
  }
  expectBody(file("f", "f.bin", data) + kEnd, {{}, {textFile("f", "f.bin", data)}});
}

TEST(MultipartForm, DoesNotDecodeValuesOrFieldNames) {
  expectBodies({
      {field("a+b%41", "c+d%42") + kEnd, {{{"a+b%41", "c+d%42"}}, {}}},
      {file("a+b%41", "f", "c+d%42") + kEnd, {{}, {textFile("a+b%41", "f", "c+d%42")}}},
  });
}

TEST(MultipartForm, IgnoresAPartsOwnLengthAndTransferEncoding) {
  expectBodies({
      {part(disposition("name=\"a\"") + "Content-Length: 999999\r\n", "1") + kEnd,
       {{{"a", "1"}}, {}}},
      {part(disposition("name=\"a\"") + "Content-Length: -1\r\n", "1") + kEnd, {{{"a", "1"}}, {}}},
      {part(disposition("name=\"a\"") + "Content-Transfer-Encoding: base64\r\n", "QQ==") + kEnd,
       {{{"a", "QQ=="}}, {}}},
  });
}

TEST(MultipartForm, ReadsANestedMultipartAsTheFirstLineOfAValue) {
  expectBody(
      part(disposition("name=\"files\"") + "Content-Type: multipart/mixed; boundary=inner\r\n",
           "--inner\r\nContent-Disposition: file; filename=\"f.txt\"\r\n\r\nx\r\n--inner--") +
          kEnd,
      {{}, {{"files", "f.txt", "multipart/mixed; boundary=inner", "--inner"}}});
}

TEST(MultipartForm, KeepsValuesOfSizesAroundBuffers) {
  std::string body;
  Form form;
  for (const size_t size : {0, 1, 2, 3, 1023, 4095, 4096, 4097, 65535, 65536, 65537}) {
    body += field("a", std::string(size, 'v')) + file("f", "f", std::string(size, 'd'));
    form.entries.emplace_back("a", std::string(size, 'v'));
    form.files.push_back(textFile("f", "f", std::string(size, 'd')));
  }
  expectBody(body + kEnd, form);
}

// ---- Parts that are dropped or truncated --------------------------------------------------------

TEST(MultipartForm, DropsAPartWithoutABlankLine) {
  expectBodies({
      {kDelimiter + disposition("name=\"a\"") + "1\r\n" + field("b", "2") + kEnd,
       {{{"b", "2"}}, {}}},
      {kDelimiter + "\r\nvalue\r\n" + kEnd, {}},
      {kDelimiter + "Content-Disposition: form-data; name=\"a\"\n\n1\n" + kEnd, {}},
      {kDelimiter + "Content-Disposition: form-data; name=\"a\"\r\r1\r" + kEnd, {}},
      {kDelimiter + disposition("name=\"a\"") + " \r\n1\r\n" + kEnd, {}},
  });
}

TEST(MultipartForm, IgnoresAdjacentDelimiters) {
  expectBodies({
      {kDelimiter + kDelimiter, {}},
      {kDelimiter + kDelimiter + kDelimiter + field("a", "1") + kDelimiter + kDelimiter + kEnd,
       {{{"a", "1"}}, {}}},
  });
}

TEST(MultipartForm, StoresAPartWithoutAHeaderAsANamelessEntry) {
  expectBody(kDelimiter + "\r\n\r\nvalue\r\n" + kEnd, {{{kNone, "value"}}, {}});
}

TEST(MultipartForm, StoresAnEmptyValueWhenNoLineEndFollowsIt) {
  expectBodies({
      {kDelimiter + disposition("name=\"a\"") + "\r\nvalue" + kDelimiter + kEnd, {{{"a", ""}}, {}}},
      {kDelimiter + disposition("name=\"a\"") + "\r\nvalue", {{{"a", ""}}, {}}},
      {kDelimiter + disposition("name=\"a\"") + "\r\nvalue\r", {{{"a", ""}}, {}}},
      {kDelimiter + disposition("name=\"a\"") + "\r\nvalue\n", {{{"a", ""}}, {}}},
      {kDelimiter + disposition("name=\"a\"") + "\r\n", {{{"a", ""}}, {}}},
      {kDelimiter + disposition("name=\"f\"; filename=\"f\"") + kType + "\r\ndata",
       {{}, {textFile("f", "f", "")}}},
  });
}

TEST(MultipartForm, IncludesAClosingDelimiterRightAfterAValueInTheValue) {
  expectBody(kDelimiter + disposition("name=\"a\"") + "\r\nvalue" + kEnd,
             {{{"a", "value--XYZ--"}}, {}});
}

TEST(MultipartForm, TruncatesAFieldsValueAtAZeroByteButKeepsItsLength) {
  expectBodies({
      {field("a", "ab\0cd"s) + kEnd, {{{"a", "ab", 5}}, {}}},
      {field("a", "\0"s) + kEnd, {{{"a", "", 1}}, {}}},
      {field("a", "ab\0\r\ncd"s) + kEnd, {{{"a", "ab", 3}}, {}}},
  });
}

TEST(MultipartForm, KeepsTheZeroBytesOfAFile) {
  expectBodies({
      {file("f", "f", "ab\0cd"s) + kEnd, {{}, {textFile("f", "f", "ab\0cd"s)}}},
      {file("f", "f", "\0\0"s) + kEnd, {{}, {textFile("f", "f", "\0\0"s)}}},
  });
}

TEST(MultipartForm, KeepsAnEmptyFileWithItsNames) {
  expectBody(file("f", "f.txt", "") + kEnd, {{}, {{"f", "f.txt", "text/plain", ""}}});
}

// ---- Part headers -------------------------------------------------------------------------------

TEST(MultipartHeader, WithAnEmptyNameCreatesANamelessEntry) {
  expectBody(field("", "1") + kEnd, {{{kNone, "1"}}, {}});
}

TEST(MultipartHeader, WithoutANameCreatesANamelessEntry) {
  expectBodies({
      {part("Content-Disposition: form-data\r\n", "1") + kEnd, {{{kNone, "1"}}, {}}},
      {part(kType, "1") + kEnd, {{{kNone, "1"}}, {}}},
      {part(disposition("name=a"), "1") + kEnd, {{{kNone, "1"}}, {}}},
      {part(disposition("name='a'"), "1") + kEnd, {{{kNone, "1"}}, {}}},
      {part(disposition("name =\"a\""), "1") + kEnd, {{{kNone, "1"}}, {}}},
      {part(disposition("name*=\"a\""), "1") + kEnd, {{{kNone, "1"}}, {}}},
  });
}

TEST(MultipartHeader, IsMatchedInExactCase) {
  expectBodies({
      {part(disposition("NAME=\"a\""), "1") + kEnd, {{{kNone, "1"}}, {}}},
      {part(disposition("name=\"f\"; FileName=\"f\"") + kType, "1") + kEnd, {{{"f", "1"}}, {}}},
      {part("content-disposition: form-data; name=\"a\"\r\n", "1") + kEnd, {{{"a", "1"}}, {}}},
      {part("anything name=\"a\"\r\n", "1") + kEnd, {{{"a", "1"}}, {}}},
  });
}

TEST(MultipartHeader, WithAnEmptyFileNameCreatesAnEntry) {
  expectBodies({
      {file("f", "", "") + kEnd, {{{"f", ""}}, {}}},
      {file("f", "", "data") + kEnd, {{{"f", "data"}}, {}}},
  });
}

TEST(MultipartHeader, WithAFileNameThatDecodesToNothingCreatesAnEntry) {
  expectBody(file("f", "%00", "data") + file("g", "%00.txt", "data") + kEnd,
             {{{"f", "data"}, {"g", "data"}}, {}});
}

TEST(MultipartHeader, HasItsFileNameDecoded) {
  const std::pair<std::string, std::string> cases[] = {
      {"my+file%21.txt", "my file!.txt"},
      {"f.txt", "f.txt"},
      {"a;b.txt", "a;b.txt"},
      {"a%22b", "a\"b"},
      {"a%0d%0Ab", "a\r\nb"},
      {"../../etc/passwd", "../../etc/passwd"},
      {"C:\\x\\y.txt", "C:\\x\\y.txt"},
      {"a%00b", "a"},
      {"\xC3\xA9.txt", "\xC3\xA9.txt"},
      {"a\nb", "a\nb"},
      {" ", " "},
      {"+", " "},
      {"%zz", "S"},
      {"%u0041", "\xE0\x30\x34\x31"},
      {"%25", "%"},
  };
  std::vector<Body> bodies;
  for (const auto &[sent, kept] : cases) {
    bodies.push_back({file("f", sent, "x") + kEnd, {{}, {textFile("f", kept, "x")}}});
  }
  expectBodies(bodies);
}

TEST(MultipartHeader, WithAFileNameThatEndsInAnEscapeReadsMissingDigitsAsZeroBytes) {
  expectBodies({
      {file("f", "a%", "x") + kEnd, {{}, {textFile("f", "a\xD0", "x")}}},
      {file("f", "a%2", "x") + kEnd, {{}, {textFile("f", "a\xF0", "x")}}},
      {file("f", "%", "x") + kEnd, {{}, {textFile("f", "\xD0", "x")}}},
      {file("f", "a%%", "x") + kEnd, {{}, {textFile("f", "a ", "x")}}},
  });
}

TEST(MultipartHeader, EndsANameAtTheFirstQuoteEvenAfterABackslash) {
  expectBodies({
      {field("a\\\"b", "1") + kEnd, {{{"a\\", "1"}}, {}}},
      {file("f", "a\\\"b.txt", "x") + kEnd, {{}, {textFile("f", "a\\", "x")}}},
      {file("f", "a.jpg\".html", "x") + kEnd, {{}, {textFile("f", "a.jpg", "x")}}},
      {file("f", "a\\", "x") + kEnd, {{}, {textFile("f", "a\\", "x")}}},
  });
}

TEST(MultipartHeader, WithTheFileNameFirstUsesItAsTheFieldNameToo) {
  expectBodies({
      {part(disposition("filename=\"my+f.txt\"; name=\"f\"") + kType, "x") + kEnd,
       {{}, {textFile("my+f.txt", "my f.txt", "x")}}},
      {part(disposition("filename=\"\"; name=\"f\""), "x") + kEnd, {{{kNone, "x"}}, {}}},
  });
}

TEST(MultipartHeader, WithAFileNameAndNoNameUsesTheFileNameAsTheFieldNameToo) {
  expectBody(part(disposition("filename=\"f.txt\"") + kType, "x") + kEnd,
             {{}, {textFile("f.txt", "f.txt", "x")}});
}

TEST(MultipartHeader, WithAnEmptyNameBeforeAFileNameCreatesAnEmptyFile) {
  expectBody(file("", "f.txt", "x") + kEnd, {{}, {File{}}});
}

TEST(MultipartHeader, WithoutAContentTypeCreatesAnEmptyFile) {
  expectBodies({
      {part(disposition("name=\"f\"; filename=\"f.txt\""), "x") + kEnd, {{}, {File{}}}},
      {part(disposition("name=\"f\"; filename=\"f.txt\"") + "content-type: text/plain\r\n", "x") +
           kEnd,
       {{}, {File{}}}},
      {part(disposition("name=\"f\"; filename=\"f.txt\"") + "Content-Type:text/plain\r\n", "x") +
           kEnd,
       {{}, {File{}}}},
  });
}

TEST(MultipartHeader, WithAnEmptyContentTypeCreatesAnEmptyFile) {
  expectBody(part(disposition("name=\"f\"; filename=\"f.txt\"") + "Content-Type: \r\n", "x") + kEnd,
             {{}, {File{}}});
}

TEST(MultipartHeader, WithoutAContentTypeUsesOneFoundInTheBody) {
  const std::string header = disposition("name=\"f\"; filename=\"f.txt\"");
  expectBodies({
      {part(header, "x Content-Type: y") + field("a", "1") + kEnd,
       {{{"a", "1"}}, {{"f", "f.txt", "y\r\n", "x Content-Type: y"}}}},
      {part(header, "x Content-Type: y") + kEnd,
       {{}, {{"f", "f.txt", "y\r\n--XYZ--\r\n", "x Content-Type: y"}}}},
      {part(header, "x") + kEnd + "Content-Type: z\r\n\r\nend", {{}, {{"f", "f.txt", "z", "x"}}}},
      {part(header, "x\r\n\r\nContent-Type: y\r\n\r\nz") + kEnd, {{}, {{"f", "f.txt", "y", "x"}}}},
  });
}

TEST(MultipartHeader, IncludesTheLinesAfterTheContentTypeInIt) {
  const std::string header = disposition("name=\"f\"; filename=\"f.txt\"");
  expectBodies({
      {part(header + kType + "X-Other: 1\r\nX-More: 2\r\n", "x") + kEnd,
       {{}, {{"f", "f.txt", "text/plain\r\nX-Other: 1\r\nX-More: 2", "x"}}}},
      {part("X-Other: 1\r\n" + header + kType, "x") + kEnd, {{}, {textFile("f", "f.txt", "x")}}},
      {part(kType + header, "x") + kEnd,
       {{},
        {{"f", "f.txt",
          "text/plain\r\nContent-Disposition: form-data; name=\"f\"; filename=\"f.txt\"", "x"}}}},
      {part(header + "Content-Type: text/html; charset=utf-8\r\n", "x") + kEnd,
       {{}, {{"f", "f.txt", "text/html; charset=utf-8", "x"}}}},
  });
}

TEST(MultipartHeader, UsesTheFirstOfRepeatedParametersAndLines) {
  expectBodies({
      {part(disposition("name=\"a\"; name=\"b\""), "1") + kEnd, {{{"a", "1"}}, {}}},
      {part(disposition("name=\"a\"") + disposition("name=\"b\""), "1") + kEnd, {{{"a", "1"}}, {}}},
      {part(disposition("name=\"f\"; filename=\"1\"; filename=\"2\"") + kType, "x") + kEnd,
       {{}, {textFile("f", "1", "x")}}},
      {part(disposition("name=\"f\"; filename=\"\"; filename=\"2\"") + kType, "x") + kEnd,
       {{{"f", "x"}}, {}}},
      {part(disposition("name=\"f\"; filename=\"1\"") + kType + "Content-Type: b\r\n", "x") + kEnd,
       {{}, {{"f", "1", "text/plain\r\nContent-Type: b", "x"}}}},
  });
}

TEST(MultipartHeader, IgnoresTheEncodedFileNameParameter) {
  expectBodies({
      {part(disposition("name=\"f\"; filename*=UTF-8''f.txt") + kType, "x") + kEnd,
       {{{"f", "x"}}, {}}},
      {part(disposition("name=\"f\"; filename*=UTF-8''e.txt; filename=\"f.txt\"") + kType, "x") +
           kEnd,
       {{}, {textFile("f", "f.txt", "x")}}},
  });
}

TEST(MultipartHeader, TurnsAFieldIntoAnEmptyFileWhenItsValueMentionsAFileName) {
  expectBody(field("a", "see filename=\"x.txt\"") + kEnd, {{}, {File{}}});
}

TEST(MultipartHeader, TurnsAFieldIntoAFileWhenItsValueHasFileNameAndContentType) {
  expectBody(field("a", "filename=\"x.txt\" Content-Type: t") + field("b", "2") + kEnd,
             {{{"b", "2"}}, {{"a", "x.txt", "t\r\n", "filename=\"x.txt\" Content-Type: t"}}});
}

TEST(MultipartHeader, WithoutANameUsesOneFoundInTheBody) {
  expectBody(part(kType, "name=\"z\"") + kEnd, {{{"z", "name=\"z\""}}, {}});
}

TEST(MultipartHeader, FindsAFileNameInsideAnotherValue) {
  expectBodies({
      {part(disposition("name=\"q filename=\"; x=\"y\"") + kType, "v") + kEnd,
       {{}, {textFile("q filename=", "; x=", "v")}}},
      {part(disposition("name=\"filename=\"") + kType, "v") + kEnd,
       {{}, {textFile("filename=", "\r\n" + kType + "\r\nv\r\n" + kEnd, "v")}}},
  });
}

TEST(MultipartHeader, WithAnUnclosedNameReadsToTheNextQuoteOrTheEndOfThePart) {
  const std::string unclosed = part(disposition("name=\"a"), "1");
  expectBodies({
      {unclosed + field("b", "2") + kEnd, {{{"a\r\n\r\n1\r\n", "1"}, {"b", "2"}}, {}}},
      {unclosed + kEnd, {{{"a\r\n\r\n1\r\n--XYZ--\r\n", "1"}}, {}}},
      {part(disposition("name=\"a"), "say \"1\"") + kEnd, {{{"a\r\n\r\nsay ", "say \"1\""}}, {}}},
  });
}

TEST(MultipartHeader, WithAParameterNameAtTheEndOfThePartHasAnEmptyTextNotNull) {
  const std::string unnamed = kDelimiter + kType + "\r\n";
  const std::string untyped =
      kDelimiter + disposition("name=\"f\"; filename=\"f.txt\"") + "\r\nx\r\n";
  expectBodies({
      {unnamed + "x\r\nname=\"" + field("b", "2") + kEnd, {{{"", "x"}, {"b", "2"}}, {}}},
      {unnamed + "x\r\nname=\"", {{{"", "x"}}, {}}},
      {unnamed + "x\r\nname=\"\"", {{{kNone, "x"}}, {}}},
      {unnamed + "x\r\nname=\"\0"s, {{{"", "x"}}, {}}},
      {unnamed + "x\r\nname=\"\0name=\"z\""s, {{{"", "x"}}, {}}},
      {untyped + "Content-Type: " + field("b", "2") + kEnd,
       {{{"b", "2"}}, {{"f", "f.txt", "", "x"}}}},
      {untyped + "Content-Type: ", {{}, {{"f", "f.txt", "", "x"}}}},
      {kDelimiter + disposition("name=\"f\"") + "\r\nx\r\nfilename=\"", {{{"f", "x"}}, {}}},
  });
}

TEST(MultipartHeader, IsReadUpToTheFirstZeroByteOfThePart) {
  expectBodies({
      {part(disposition("name=\"a\0b\""s), "1") + kEnd, {{{"a", "1"}}, {}}},
      {part("\0"s + disposition("name=\"a\""), "1") + kEnd, {{{kNone, "1"}}, {}}},
      {part(disposition("name=\"f\"; \0filename=\"f\""s) + kType, "x") + kEnd, {{{"f", "x"}}, {}}},
      {part(disposition("name=\"f\"; filename=\"f\0.txt\""s) + kType, "x") + kEnd, {{}, {File{}}}},
      {part(disposition("name=\"f\"; filename=\"f\"") + "\0"s + kType, "x") + kEnd, {{}, {File{}}}},
      {part(disposition("name=\"f\"; filename=\"f\"") + "Content-Type: a\0b\r\n"s, "x") + kEnd,
       {{}, {{"f", "f", "a", "x"}}}},
      {part(disposition("name=\"f\"; filename=\"f\""), "x\0Content-Type: y"s) + kEnd,
       {{}, {File{}}}},
      {part(disposition("name=\"a\0"s), "1") + kEnd, {{{"a", "1"}}, {}}},
      {part(disposition("name=\"\0\""s), "1") + kEnd, {{{"", "1"}}, {}}},
  });
}

TEST(MultipartHeader, MayStartWithABlankOrBeFolded) {
  expectBodies({
      {part(" " + disposition("name=\"a\""), "1") + kEnd, {{{"a", "1"}}, {}}},
      {part("\t" + disposition("name=\"a\""), "1") + kEnd, {{{"a", "1"}}, {}}},
      {part("Content-Disposition: form-data;\r\n\tname=\"a\"\r\n", "1") + kEnd, {{{"a", "1"}}, {}}},
      {part(disposition("name=\"a\r\n b\""), "1") + kEnd, {{{"a\r\n b", "1"}}, {}}},
      {part(": \r\n=\r\n" + disposition("name=\"a\""), "1") + kEnd, {{{"a", "1"}}, {}}},
  });
}

TEST(MultipartHeader, MayBeLong) {
  const std::string longText(80000, 'x');
  std::string lines;
  for (int i = 0; i < 5000; ++i) lines += "X-Header-" + std::to_string(i) + ": y\r\n";
  expectBodies({
      {part("X: " + longText + "\r\n" + disposition("name=\"a\""), "1") + kEnd, {{{"a", "1"}}, {}}},
      {field(longText, "1") + kEnd, {{{longText, "1"}}, {}}},
      {file("f", longText, "x") + kEnd, {{}, {textFile("f", longText, "x")}}},
      {part(lines + disposition("name=\"a\""), "1") + kEnd, {{{"a", "1"}}, {}}},
      {kDelimiter + disposition("name=\"a\"") + longText, {}},
  });
}

TEST(MultipartHeader, FollowsTheRulesInEveryOrderOfItsLines) {
  std::vector<std::string> lines = {disposition("name=\"n\"; filename=\"f+1\""), kType,
                                    "X-Other: name=\"other\"\r\n", "Content-Length: 5\r\n"};
  std::sort(lines.begin(), lines.end());
  asMultipartScript([&](Request &request) {
    int orders = 0;
    do {
      const std::string body = part(lines[0] + lines[1] + lines[2] + lines[3], "value") + kEnd;
      const Form form = parsed(request, body);
      EXPECT_EQ(modelForm(kContentType, body), form) << body;
      ASSERT_EQ(1U, form.files.size());
      EXPECT_EQ("f 1", form.files[0].fileName);
      EXPECT_EQ("value", form.files[0].data);
      ++orders;
    } while (std::next_permutation(lines.begin(), lines.end()));
    EXPECT_EQ(24, orders);
  });
}

TEST(MultipartHeader, FollowsTheRulesInEveryOrderOfItsParameters) {
  std::vector<std::string> parameters = {"name=\"n\"", "filename=\"f\"", "filename*=x",
                                         "size=\"name=\""};
  std::sort(parameters.begin(), parameters.end());
  asMultipartScript([&](Request &request) {
    do {
      std::string all;
      for (const std::string &parameter : parameters) all += "; " + parameter;
      const std::string body =
          part("Content-Disposition: form-data" + all + "\r\n" + kType, "value") + kEnd;
      EXPECT_EQ(modelForm(kContentType, body), parsed(request, body)) << body;
    } while (std::next_permutation(parameters.begin(), parameters.end()));
  });
}

// ---- Boundaries and delimiters ------------------------------------------------------------------

struct Boundary {
  std::string contentType;
  std::string delimiter;
};

// Expects that the delimiter splits a body into parts under this content type.
void expectDelimiters(const std::vector<Boundary> &cases) {
  asMultipartScript([&](Request &request) {
    for (const auto &[contentType, delimiter] : cases) {
      setenv("CONTENT_TYPE", contentType.c_str(), 1);
      const std::string parts = delimiter + "\r\nname=\"a\"\r\n\r\n1\r\n" + delimiter +
                                "\r\nname=\"b\"\r\n\r\n2\r\n" + delimiter + "--\r\n";
      EXPECT_EQ((Form{{{"a", "1"}, {"b", "2"}}, {}}), parsed(request, parts)) << contentType;
    }
  });
}

TEST(MultipartBoundary, IsTheUnchangedRestOfTheContentType) {
  expectDelimiters({
      {"multipart/form-data; boundary=XYZ", "--XYZ"},
      {"multipart/form-data; charset=utf-8; boundary=XYZ", "--XYZ"},
      {"multipart/form-data; boundary=XYZ; charset=utf-8", "--XYZ; charset=utf-8"},
      {"multipart/form-data; boundary=XYZ ", "--XYZ "},
      {"multipart/form-data; boundary= XYZ", "-- XYZ"},
      {"multipart/form-data; boundary=X Y;Z", "--X Y;Z"},
      {"multipart/form-data; boundary=\"XYZ\"", "--\"XYZ\""},
      {"multipart/form-data; boundary='XYZ'", "--'XYZ'"},
      {"multipart/form-data; boundary=\"XYZ", "--\"XYZ"},
      {"multipart/form-data; boundary=A; boundary=B", "--A; boundary=B"},
      {"multipart/form-data; boundary=boundary=B", "--boundary=B"},
      {"multipart/form-data; xboundary=XYZ", "--XYZ"},
      {"multipart/form-databoundary=XYZ", "--XYZ"},
      {"multipart/form-data; boundary=%58%59", "--%58%59"},
      {"multipart/form-data; boundary=%s%n%d", "--%s%n%d"},
      {"multipart/form-data; boundary=----", "------"},
      {"multipart/form-data; boundary=\xFF\xC3", "--\xFF\xC3"},
  });
}

TEST(MultipartBoundary, MayBeEmpty) {
  expectDelimiters({{"multipart/form-data; boundary=", "--"}});
}

TEST(MultipartBoundary, MayHaveAnyLength) {
  std::vector<Boundary> cases;
  for (const size_t size : {1, 69, 70, 71, 255, 256, 4091, 4096, 8192, 100000}) {
    const std::string text(size, 'b');
    cases.push_back({"multipart/form-data; boundary=" + text, "--" + text});
  }
  expectDelimiters(cases);
}

TEST(MultipartBoundary, IsFoundOnlyByItsLowerCaseName) {
  const std::string body = field("a", "1") + kEnd;
  for (const char *contentType :
       {"multipart/form-data; Boundary=XYZ", "multipart/form-data; BOUNDARY=XYZ",
        "multipart/form-data; boundary =XYZ"}) {
    SCOPED_TRACE(contentType);
    expectForm(post(contentType, body), body, {});
  }
}

TEST(MultipartBoundary, ThatIsMissingLeavesABodyWithoutParts) {
  const std::string body = field("a", "1") + "--\r\nname=\"b\"\r\n\r\n2\r\n" + kEnd;
  for (const char *contentType :
       {"multipart/form-data", "multipart/form-data;", "multipart/form-data; boundary",
        "multipart/form-data; boundary XYZ", "multipart/form-data; charset=utf-8"}) {
    SCOPED_TRACE(contentType);
    expectForm(post(contentType, body), body, {});
  }
}

TEST(MultipartBoundary, InQuotesDoesNotMatchAnUnquotedDelimiter) {
  const std::string body = field("a", "1") + kEnd;
  expectForm(post("multipart/form-data; boundary=\"XYZ\"", body), body, {});
}

TEST(MultipartBoundary, WithParametersAfterItDoesNotMatchThePlainDelimiter) {
  const std::string body = field("a", "1") + kEnd;
  expectForm(post("multipart/form-data; boundary=XYZ; charset=utf-8", body), body, {});
  expectForm(post("multipart/form-data; boundary=XYZ;", body), body, {});
}

TEST(MultipartDelimiter, MustMatchExactly) {
  for (const char *nearMiss :
       {"--XYZ \r\n", "--XYZ\t\r\n", "--XYZ\n", "--XYZ\r", "--XYZ\n\r", "--XYZZ\r\n", "--XY\r\n",
        "--xyz\r\n", "-XYZ\r\n", "- -XYZ\r\n", "XYZ\r\n", "--XYZ--\r\n", "--XYZ-\r\n"}) {
    SCOPED_TRACE(testing::PrintToString(nearMiss));
    const std::string missed = nearMiss + "name=\"b\"\r\n\r\n2\r\n"s;
    expectBodies({
        {missed + kEnd, {}},
        {field("a", "1") + missed + field("c", "3") + kEnd, {{{"a", "1"}, {"c", "3"}}, {}}},
    });
  }
}

TEST(MultipartDelimiter, WithAZeroByteInItIsNotADelimiter) {
  const std::string rest = "name=\"b\"\r\n\r\n2\r\n" + kEnd;
  expectBodies({
      {"--X\0YZ\r\n"s + rest, {}},
      {"--XYZ\0\r\n"s + rest, {}},
      {"--XYZ\r\0\n"s + rest, {}},
      {"\0--XYZ\r\n"s + rest, {{{"b", "2"}}, {}}},
      {"--XYZ\r\n\0"s + rest, {{{kNone, "2"}}, {}}},
  });
}

TEST(MultipartDelimiter, SplitsDataWhereverItAppears) {
  expectBodies({
      {"text" + field("a", "1") + kEnd, {{{"a", "1"}}, {}}},
      {kDelimiter + disposition("name=\"a\"") + "\r\nx--XYZ\r\ny\r\n" + kEnd, {{{"a", ""}}, {}}},
      {field("a", "x\r\n--XYZ\r\nname=\"b\"\r\n\r\ny") + kEnd, {{{"a", "x"}, {"b", "y"}}, {}}},
      {"-" + field("a", "1") + kEnd, {{{"a", "1"}}, {}}},
      {"-----" + field("a", "1") + kEnd, {{{"a", "1"}}, {}}},
      {"--XY" + field("a", "1") + kEnd, {{{"a", "1"}}, {}}},
      {"--XYZ" + field("a", "1") + kEnd, {{{"a", "1"}}, {}}},
  });
}

TEST(MultipartDelimiter, ThatClosesDoesNotEndTheForm) {
  expectBodies({
      {kEnd + field("a", "1") + kEnd, {{{"a", "1"}}, {}}},
      {field("a", "1") + kEnd + field("b", "2") + kEnd, {{{"a", "1"}, {"b", "2"}}, {}}},
      {field("a", "1") + kEnd + kEnd + "rubbish\r\n" + field("b", "2"),
       {{{"a", "1"}, {"b", "2"}}, {}}},
  });
}

TEST(MultipartDelimiter, ThatClosesMayBeMissing) {
  expectBodies({
      {field("a", "1") + field("b", "2"), {{{"a", "1"}, {"b", "2"}}, {}}},
      {field("a", "1") + kDelimiter, {{{"a", "1"}}, {}}},
      {field("a", "1") + "--XYZ--", {{{"a", "1"}}, {}}},
  });
}

TEST(MultipartForm, SkipsAPreambleAndAnEpilogue) {
  expectBodies({
      {"A preamble\r\nname=\"p\"\r\n\r\n0\r\n" + field("a", "1") + kEnd, {{{"a", "1"}}, {}}},
      {"\r\n" + field("a", "1") + kEnd, {{{"a", "1"}}, {}}},
      {field("a", "1") + kEnd + "An epilogue\r\n\r\nname=\"e\"\r\n\r\n2\r\n", {{{"a", "1"}}, {}}},
  });
}

TEST(MultipartForm, WithoutAnyDelimiterIsEmpty) {
  expectBodies({
      {"", {}},
      {"\0"s, {}},
      {"-", {}},
      {"--", {}},
      {"--X", {}},
      {"a=1&b=2", {}},
      {kEnd, {}},
      {std::string(1000, '-'), {}},
      {"\r\n\r\n\r\n\r\n", {}},
  });
}

TEST(MultipartForm, WithOneDelimiterIsEmpty) {
  expectBodies({{kDelimiter, {}}, {kDelimiter + kEnd, {}}, {"\r\n" + kDelimiter + "\0"s, {}}});
}

// ---- Cut and random bodies ----------------------------------------------------------------------

TEST(MultipartForm, TruncatedAnywhereFollowsTheRulesAndIsNotReadBeyondItsEnd) {
  asMultipartScript([](Request &request) {
    for (size_t cut = 0; cut <= kVaried.size(); ++cut) {
      const std::string body = kVaried.substr(0, cut);
      ASSERT_EQ(modelForm(kContentType, body), parsed(request, body)) << "cut at " << cut;
    }
  });
}

TEST(MultipartForm, IgnoresTheBytesAfterItsLength) {
  asMultipartScript([](Request &request) {
    ExactBlock whole(kVaried);
    for (uint32_t cut = 0; cut <= whole.size(); cut += static_cast<uint32_t>(placesInTime())) {
      ASSERT_EQ(TARN_OK, Tarn_parseFormInput(&request.handle, whole.text(), cut));
      ASSERT_EQ(modelForm(kContentType, kVaried.substr(0, cut)), request.form())
          << "cut at " << cut;
      request.empty();
    }
  });
}

TEST(MultipartForm, PostedAndTruncatedAnywhereFollowsTheRules) {
  asScript(post(kContentType, ""), "", [] {
    for (size_t cut = 0; cut <= kVaried.size(); ++cut) {
      const std::string body = kVaried.substr(0, cut);
      setenv("CONTENT_LENGTH", std::to_string(cut).c_str(), 1);
      feedStandardInput(body);
      Request request;
      ASSERT_EQ(TARN_OK, request.status);
      ASSERT_EQ(modelForm(kContentType, body), request.form()) << "cut at " << cut;
    }
  });
}

TEST(MultipartForm, PostedWithLessThanDeclaredIsParsedWithZerosAtItsEnd) {
  asScript(post(kContentType, kVaried), "", [] {
    for (size_t cut = 0; cut <= kVaried.size(); ++cut) {
      std::string body = kVaried.substr(0, cut);
      feedStandardInput(body);
      Request request;
      ASSERT_EQ(TARN_OK, request.status);
      body.resize(kVaried.size());
      ASSERT_EQ(modelForm(kContentType, body), request.form()) << "cut at " << cut;
      ASSERT_EQ(body, bodyOf(request.environment())) << "cut at " << cut;
    }
  });
}

TEST(MultipartForm, FollowsTheRulesInRandomBodies) {
  const std::string pieces[] = {
      kDelimiter, kDelimiter,    kEnd, "--XYZ", "\r\n",    "\r\n",         "\r\n\r\n",
      "\r",       "\n",          "\"", ";",     "name=\"", "filename=\"",  "Content-Type: ",
      "a",        "b+c",         "%",  "%41",   "\0"s,     "name=\"n\"; ", "filename=\"f\"\r\n",
      kType,      "name=\"\"; ", "-",  "X",     "%00",     "boundary=",    "Content-Disposition: "};
  asMultipartScript([&](Request &request) {
    std::mt19937 random(20070717);
    size_t entries = 0;
    size_t files = 0;
    const int rounds = roundsInTime(20000);
    for (int round = 0; round < rounds; ++round) {
      std::string body;
      for (auto length = random() % 40; length > 0; --length) {
        body += pieces[random() % std::size(pieces)];
      }
      const Form expected = modelForm(kContentType, body);
      ASSERT_EQ(expected, parsed(request, body)) << testing::PrintToString(body);
      entries += expected.entries.size();
      files += expected.files.size();
    }
    const auto some = static_cast<size_t>(rounds / 20);
    EXPECT_GT(entries, some) << "the bodies had something in them";
    EXPECT_GT(files, some);
  });
}

// ---- One part -----------------------------------------------------------------------------------

// The bytes of a part after parsing: the first byte of its blank line is overwritten.
std::string withBlankLineOverwritten(std::string bytes) {
  const size_t blankLine = bytes.find("\r\n\r\n");
  if (blankLine != std::string::npos) bytes[blankLine] = '\0';
  return bytes;
}

TEST(TarnParseMime, AppendsAnEntryOrAFile) {
  asMultipartScript([](Request &request) {
    ExactBlock entry(disposition("name=\"a\"") + "\r\n1\r\n");
    ExactBlock upload(disposition("name=\"f\"; filename=\"f+1\"") + kType + "\r\nx\r\n");
    Tarn_parseMime(&request.handle, entry.bytes(), entry.size());
    Tarn_parseMime(&request.handle, upload.bytes(), upload.size());
    EXPECT_EQ((Form{{{"a", "1"}}, {textFile("f", "f 1", "x")}}), request.form());
  });
}

TEST(TarnParseMime, IgnoresContentTypeAndBoundary) {
  asMultipartScript([](Request &request) {
    unsetenv("CONTENT_TYPE");
    ExactBlock bytes("name=\"a\"\r\n\r\n1\r\n--XYZ\r\nname=\"b\"\r\n\r\n2\r\n");
    Tarn_parseMime(&request.handle, bytes.bytes(), bytes.size());
    EXPECT_EQ((Form{{{"a", "1"}}, {}}), request.form());
  });
}

TEST(TarnParseMime, WritesAZeroByteOverTheBlankLineOfItsPart) {
  asMultipartScript([](Request &request) {
    ExactBlock bytes("name=\"a\"\r\n\r\n1\r\n\r\n2\r\n");
    Tarn_parseMime(&request.handle, bytes.bytes(), bytes.size());
    EXPECT_EQ("name=\"a\"\0\n\r\n1\r\n\r\n2\r\n"s, bytes.str());
    EXPECT_STREQ("name=\"a\"", bytes.text());
    EXPECT_EQ((Form{{{"a", "1"}}, {}}), request.form());
  });
}

TEST(TarnParseMimeMemory, WithoutMemoryAddsNothingAndWritesNothing) {
  asMultipartScript([](Request &request) {
    for (const std::string &text :
         {"name=\"a\"\r\n\r\n1\r\n"s, "name=\"a\"; filename=\"f\"\r\n\r\n1\r\n"s}) {
      SCOPED_TRACE(testing::PrintToString(text));
      ExactBlock bytes(text);
      withoutMemory([&] { Tarn_parseMime(&request.handle, bytes.bytes(), bytes.size()); });
      EXPECT_EQ(text, bytes.str());
    }
    EXPECT_EQ(Form{}, request.form());
  });
}

// The blank line is overwritten once the value is allocated, even if a later allocation fails.
TEST(TarnParseMimeMemory, WithoutRoomForTheValueOfAFileAddsNothingAndWritesNothing) {
  asMultipartScript([](Request &request) {
    const std::string value(100000, 'x');
    const std::string text =
        disposition("name=\"f\"; filename=\"f\"") + kType + "\r\n" + value + "\r\n";
    ExactBlock bytes(text);
    for (const size_t spare : {kLittleMemory, value.size()}) {
      withoutMemory([&] { Tarn_parseMime(&request.handle, bytes.bytes(), bytes.size()); }, spare);
      EXPECT_TRUE(text == bytes.str()) << spare;
    }
    EXPECT_EQ(Form{}, request.form());
    // Memory for the texts and the value, but not for the entry.
    const size_t texts = sizeof "f" + sizeof "f" + sizeof "text/plain" + value.size() + 1;
    withoutMemory([&] { Tarn_parseMime(&request.handle, bytes.bytes(), bytes.size()); }, texts);
    EXPECT_TRUE(withBlankLineOverwritten(text) == bytes.str());
    EXPECT_EQ(Form{}, request.form());
  });
}

TEST(TarnParseMime, OfAPartWithoutABlankLineAddsNothingAndWritesNothing) {
  asMultipartScript([](Request &request) {
    for (const std::string &text : {""s, "\0"s, "\r\n\r"s, "name=\"a\"\r\n1\r\n"s, "x\n\ny"s}) {
      SCOPED_TRACE(testing::PrintToString(text));
      ExactBlock bytes(text);
      Tarn_parseMime(&request.handle, bytes.bytes(), bytes.size());
      EXPECT_EQ(text, bytes.str());
    }
    EXPECT_EQ(Form{}, request.form());
  });
}

TEST(TarnParseMime, OfANullPartAddsNothing) {
  asMultipartScript([](Request &request) {
    Tarn_parseMime(&request.handle, nullptr, 0);
    Tarn_parseMime(&request.handle, nullptr, 100);
    Tarn_parseMime(nullptr, nullptr, 100);
    EXPECT_EQ(Form{}, request.form());
  });
}

TEST(TarnParseMime, TruncatedAnywhereFollowsTheRulesAndIsNotReadBeyondItsEnd) {
  const std::string parts[] = {
      disposition("name=\"a\"") + "\r\nline1\r\nline2\r\n",
      disposition("name=\"f\"; filename=\"f%\"") + kType + "X: y\r\n\r\nda\0ta\r\nmore\r\n"s,
      kType + disposition("filename=\"f\"; name=\"\"") + "\r\n\r\n",
      "\r\n\r\nname=\"z\" filename=\"x\" Content-Type: \r\n",
      "\0name=\"a\"\r\n\r\nvalue\r\n"s,
  };
  asMultipartScript([&](Request &request) {
    for (const std::string &whole : parts) {
      for (size_t cut = 0; cut <= whole.size(); cut += placesInTime()) {
        const std::string text = whole.substr(0, cut);
        ExactBlock bytes(text);
        Tarn_parseMime(&request.handle, bytes.bytes(), bytes.size());
        Form expected;
        modelPart(expected, text);
        ASSERT_EQ(expected, request.form()) << testing::PrintToString(text);
        ASSERT_EQ(withBlankLineOverwritten(text), bytes.str());
        request.empty();
      }
    }
  });
}

TEST(TarnParseMime, DoesNotReadBeyondItsLength) {
  asMultipartScript([](Request &request) {
    const std::string whole = disposition("name=\"f\"; filename=\"f\"") + kType + "\r\ndata\r\n";
    for (uint32_t length = 0; length <= whole.size(); ++length) {
      ExactBlock bytes(whole);
      Tarn_parseMime(&request.handle, bytes.bytes(), length);
      Form expected;
      modelPart(expected, whole.substr(0, length));
      ASSERT_EQ(expected, request.form()) << length;
      ASSERT_EQ(withBlankLineOverwritten(whole.substr(0, length)) + whole.substr(length),
                bytes.str());
      request.empty();
    }
  });
}

TEST(TarnParseMime, OnAnotherTypeStillWritesItsZeroByte) {
  withEveryHandleExcept(0, [](TarnHandle *handle) {
    for (const std::string &header :
         {disposition("name=\"a\""), disposition("name=\"f\"; filename=\"f\"") + kType}) {
      SCOPED_TRACE(testing::PrintToString(header));
      ExactBlock bytes(header + "\r\nx\r\n");
      Tarn_parseMime(handle, bytes.bytes(), bytes.size());
      EXPECT_EQ(withBlankLineOverwritten(header + "\r\nx\r\n"), bytes.str());
    }
    EXPECT_EQ(0, FormEntryList_getCount(handle));
  });
}

// ---- Large bodies -------------------------------------------------------------------------------

TEST(MultipartFormLarge, OfThousandsOfPartsIsParsedWithoutDelay) {
  static constexpr int kParts = 30000;
  std::string body;
  for (int i = 0; i < kParts; ++i) body += field("n", std::to_string(i)) + file("f", "f", "x");
  body += kEnd;
  asScript(post(kContentType, body), body, [] {
    limitProcessorTime();
    Request request;
    TarnHandle entries = request.entryList();
    TarnHandle files = request.fileList();
    EXPECT_EQ(kParts, FormEntryList_getCount(&entries));
    EXPECT_EQ(kParts, FormFileList_getCount(&files));
    EXPECT_EQ((Entry{"n", "29999"}), entryOf(FormEntryList_getByIndex(&entries, kParts - 1)));
  });
}

TEST(MultipartFormLarge, OfDelimitersOnlyIsEmptyWithoutDelay) {
  std::string body;
  for (int i = 0; i < 500000; ++i) body += kDelimiter;
  expectBody(body + field("a", "1") + kEnd, {{{"a", "1"}}, {}});
}

TEST(MultipartFormLarge, OfNearMatchesOnlyIsEmptyWithoutDelay) {
  std::string body;
  for (int i = 0; i < 500000; ++i) body += "\r\n--XYZ\r";
  expectBody(body + field("a", "1") + kEnd, {{{"a", "1"}}, {}});
}

TEST(MultipartFormLarge, WithABoundaryOfDashesInABodyOfDashesIsParsedWithoutDelay) {
  const std::string dashes(8192, '-');
  const std::string body = std::string(2000000, '-') + "\r\nname=\"a\"\r\n\r\n1\r\n" + dashes;
  expectForm(post("multipart/form-data; boundary=" + dashes, body), body, {{{"a", "1"}}, {}});
}

TEST(MultipartFormLarge, WithMegabytesAroundThePartsIsParsedWithoutDelay) {
  const std::string much(4000000, 'x');
  expectBody(much + field("a", "1") + kEnd + much, {{{"a", "1"}}, {}});
  expectBody(much, {});
}

TEST(MultipartFormLarge, WithMegabytesOfIncompleteLineEndsIsParsedWithoutDelay) {
  std::string almost;
  for (int i = 0; i < 1000000; ++i) almost += "\r\n\r";
  const std::string header = kDelimiter + disposition("name=\"a\"");
  expectBodies({
      {header + "\r\n" + std::string(3000000, '\r') + "\r\n" + kEnd,
       {{{"a", std::string(3000000, '\r')}}, {}}},
      {kDelimiter + almost + kEnd, {}},
      {header + std::string(3000000, '\n'), {}},
  });
}

TEST(MultipartFormLarge, WithUnterminatedHeadersIsParsedWithoutDelay) {
  std::string body = kDelimiter;
  for (int i = 0; i < 200000; ++i) body += "name=\"; filename=\"\r\n";
  expectBody(body, {});
}

}  // namespace
}  // namespace tarn_test
