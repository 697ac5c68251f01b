// tarn::FormReader and tarn::Form.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>
#include <tarn.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/failing_memory.h"
#include "support/script.h"

using tarn_test::asScript;
using tarn_test::get;
using tarn_test::post;

namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

constexpr const char *kMultipart = "multipart/form-data; boundary=b";

std::string part(const std::string &parameters, const std::string &value) {
  return "--b\r\nContent-Disposition: form-data; " + parameters + "\r\n\r\n" + value + "\r\n";
}

// A text of two lines, a PNG image, a file field without a file, and a second text.
const std::string kPng("\x89PNG\r\n\x1A\n\0IHDR", 13);
const std::string kBody = part("name=\"comment\"", "two\r\nlines") +
                          part(
                              "name=\"photo\"; filename=\"../lake 1.png\"\r\nContent-Type: "
                              "image/png; q=1\r\nX-Thing: a b",
                              kPng) +
                          part("name=\"more\"; filename=\"\"", "") +
                          part("name=\"comment\"", "again") + "--b--\r\n";

tarn::FormReader reader(const std::string &body, const tarn::FormLimits &limits = {}) {
  return tarn::FormReader::from_memory(kMultipart, body, limits);
}
tarn::FormReader reader(std::string &&body, const tarn::FormLimits &limits = {}) = delete;

// An unnamed file that can be read from its beginning.
int fileWith(const std::string &bytes) {
  const int file = memfd_create("body", MFD_CLOEXEC);
  EXPECT_EQ(static_cast<ssize_t>(bytes.size()), pwrite(file, bytes.data(), bytes.size(), 0));
  return file;
}

std::string joined(tarn::Blocks blocks) {
  std::string all;
  for (const std::string_view block : blocks) all += block;
  return all;
}

std::string namesOf(const tarn::FormTexts &texts) {
  std::string all;
  for (const std::string_view text : texts) all.append(text) += ';';
  return all;
}

// ---- The stream -----------------------------------------------------------------------------------

TEST(CppFormReader, VisitsTheFieldsInOrder) {
  tarn::FormReader form = reader(kBody);
  Strings names;
  for (tarn::Field &field : form) {
    EXPECT_TRUE(field);
    EXPECT_EQ(kBody.find("--b\r\n", static_cast<std::size_t>(field.offset())), field.offset());
    names.emplace_back(field.name());
  }
  EXPECT_EQ((Strings{"comment", "photo", "more", "comment"}), names);
  EXPECT_TRUE(form.is_whole());
  EXPECT_FALSE(form.problem());
}

TEST(CppFormReader, TellsTextsFilesAndMissingFilesApart) {
  tarn::FormReader form = reader(kBody);
  const tarn::Field *field = form.next();
  EXPECT_EQ(std::nullopt, field->filename());
  EXPECT_FALSE(field->is_file());
  EXPECT_EQ(std::nullopt, field->type());
  form.next();
  EXPECT_EQ("../lake 1.png", field->filename());
  EXPECT_TRUE(field->is_file());
  EXPECT_EQ("image/png; q=1", field->type());
  EXPECT_EQ("a b", field->header("x-thing"));
  EXPECT_EQ(std::nullopt, field->header("x-other"));
  const tarn::FileName name = field->safe_name();
  EXPECT_EQ("lake_1.png", name.view());
  form.next();
  EXPECT_EQ("", field->filename());
  EXPECT_FALSE(field->is_file());
}

TEST(CppFormReader, ReadsAValueInEachWay) {
  const int copy = fileWith("");
  for (int way = 0; way < 6; ++way) {
    tarn::FormReader form = reader(kBody);
    form.next();
    tarn::Field &field = *form.next();
    switch (way) {
      case 0:
        EXPECT_EQ(kPng, field.text());
        EXPECT_EQ(kPng, field.text()) << "a second time";
        break;
      case 1:
        EXPECT_EQ(kPng, field.view());
        break;
      case 2:
        EXPECT_EQ(kPng, joined(field.blocks()));
        EXPECT_EQ("", joined(field.blocks())) << "nothing is left";
        break;
      case 3: {
        char bytes[20];
        EXPECT_EQ(4U, field.read(bytes, 4));
        EXPECT_EQ(kPng.substr(0, 4), std::string(bytes, 4));
        EXPECT_EQ(std::nullopt, field.text()) << "some of it is gone";
        EXPECT_EQ(kPng.size() - 4, field.read(bytes, sizeof bytes));
        EXPECT_EQ(0U, field.read(bytes, sizeof bytes));
        EXPECT_EQ(std::nullopt, field.read(nullptr, 1));
        break;
      }
      case 4: {
        EXPECT_EQ(0, field.write(copy));
        std::string bytes(kPng.size(), '\0');
        EXPECT_EQ(static_cast<ssize_t>(kPng.size()), pread(copy, bytes.data(), bytes.size(), 0));
        EXPECT_EQ(kPng, bytes);
        break;
      }
      default:
        EXPECT_TRUE(field.skip());
    }
    EXPECT_EQ(kPng.size(), field.size());
    EXPECT_EQ("more", form.next()->name());
  }
  close(copy);
}

TEST(CppFormReader, SkipsWhatALoopLeavesOfAValue) {
  tarn::FormReader form = reader(kBody);
  std::string begun;
  for (tarn::Field &field : form) {
    for (const std::string_view block : field.blocks()) {
      begun += block[0];
      break;
    }
  }
  EXPECT_EQ(
      "t\x89"
      "a",
      begun);
  EXPECT_TRUE(form.is_whole());
}

TEST(CppFormReader, GoesOnWhereALoopStopped) {
  tarn::FormReader form = reader(kBody);
  Strings names;
  for (tarn::Field &field : form) {
    names.emplace_back(field.name());
    if (field.is_file()) break;
  }
  EXPECT_FALSE(form.is_whole());
  for (tarn::Field &field : form) names.emplace_back(field.name());
  EXPECT_EQ((Strings{"comment", "photo", "more", "comment"}), names);
  EXPECT_TRUE(form.is_whole());
  for (tarn::Field &field : form) names.emplace_back(field.name());
  EXPECT_EQ(4U, names.size()) << "there is nothing left";
  EXPECT_EQ(nullptr, form.next());
}

TEST(CppFormReader, StepsOnceForEachOfTwoNestedLoops) {
  tarn::FormReader form = reader(kBody);
  size_t outer = 0;
  size_t inner = 0;
  for (tarn::Field &field : form) {
    ++outer;
    EXPECT_EQ("comment", field.name());
    for (tarn::Field &same : form) {
      EXPECT_EQ(&field, &same);
      ++inner;
    }
    EXPECT_FALSE(field) << "the inner loop went to the end";
    EXPECT_EQ("", field.name());
    EXPECT_EQ(std::nullopt, field.text());
  }
  EXPECT_EQ(1U, outer);
  EXPECT_EQ(3U, inner);
}

TEST(CppFormReader, WorksWithAlgorithms) {
  tarn::FormReader form = reader(kBody);
  const auto photo = std::find_if(form.begin(), form.end(),
                                  [](const tarn::Field &field) { return field.is_file(); });
  ASSERT_NE(photo, form.end());
  EXPECT_EQ("photo", photo->name());
  EXPECT_EQ(tarn::FormReader::Iterator(), form.end());
}

TEST(CppFormReader, StopsAtAProblem) {
  const std::string cut = kBody.substr(0, kBody.find("IHDR"));
  tarn::FormReader form = reader(cut);
  Strings names;
  tarn::Field *last = nullptr;
  for (tarn::Field &field : form) {
    last = &field;
    names.emplace_back(field.name());
    if (!field.is_file()) continue;
    EXPECT_EQ(std::nullopt, field.text());
    EXPECT_EQ(std::nullopt, field.view());
    EXPECT_EQ("", joined(field.blocks()));
    EXPECT_EQ(-1, field.write(1));
    EXPECT_FALSE(field.skip());
  }
  EXPECT_EQ((Strings{"comment", "photo"}), names);
  EXPECT_FALSE(*last);
  EXPECT_FALSE(form.is_whole());
  const tarn::Problem problem = form.problem();
  EXPECT_TRUE(problem);
  EXPECT_TRUE(problem == tarn::FormProblem::cut_short);
  EXPECT_TRUE(problem != tarn::FormProblem::limit);
  EXPECT_EQ(tarn::FormProblem::cut_short, problem.code());
  EXPECT_EQ(400, problem.status());
  EXPECT_STREQ("cut_short", problem.name());
  EXPECT_EQ(cut.size(), problem.offset());
  EXPECT_NE(nullptr, std::strstr(problem.message(), "cut short"));
  EXPECT_EQ(std::nullopt, problem.limit());
  EXPECT_EQ(0U, problem.limit_value());
}

TEST(CppFormReader, HasNoProblemWhileItReads) {
  tarn::FormReader form = reader(kBody);
  form.next();
  EXPECT_FALSE(form.is_whole());
  EXPECT_FALSE(form.problem());
  EXPECT_EQ(200, form.problem().status());
  EXPECT_STREQ("", form.problem().message());
  EXPECT_STREQ("", form.problem().name());
}

TEST(CppFormReader, NamesEachProblemAsTheCInterfaceDoes) {
  const std::vector<std::pair<tarn::FormProblem, const char *>> all = {
      {tarn::FormProblem::none, ""},
      {tarn::FormProblem::no_boundary, "no_boundary"},
      {tarn::FormProblem::two_boundaries, "two_boundaries"},
      {tarn::FormProblem::cut_short, "cut_short"},
      {tarn::FormProblem::malformed, "malformed"},
      {tarn::FormProblem::malformed_header, "malformed_header"},
      {tarn::FormProblem::part_without_name, "part_without_name"},
      {tarn::FormProblem::limit, "limit"},
      {tarn::FormProblem::unsupported_type, "unsupported_type"},
      {tarn::FormProblem::bad_length, "bad_length"},
      {tarn::FormProblem::read_error, "read_error"},
      {tarn::FormProblem::timed_out, "timed_out"},
      {tarn::FormProblem::out_of_memory, "out_of_memory"}};
  for (const auto &[code, name] : all) {
    EXPECT_STREQ(name, TarnForm_problemName(static_cast<TarnFormProblem>(code)));
  }
  EXPECT_STREQ("", TarnForm_problemName(static_cast<TarnFormProblem>(all.size())));
}

TEST(CppFormReader, EnforcesEachLimit) {
  using tarn::FormLimit;
  using tarn::FormLimits;
  const std::string query = "abc=defgh&i=j";
  const std::string file = part("name=\"a\"; filename=\"f\"", "12345678") + "--b--";
  const auto exceeded = [](tarn::FormReader form) {
    const tarn::Form whole(std::move(form));
    EXPECT_TRUE(whole.problem() == tarn::FormProblem::limit) << whole.problem().message();
    EXPECT_EQ(413, whole.problem().status());
    return whole.problem().limit_value() * 10 +
           static_cast<uint64_t>(whole.problem().limit().value_or(FormLimit::memory_size));
  };
  const auto of = [](FormLimit limit, uint64_t value) {
    return value * 10 + static_cast<uint64_t>(limit);
  };
  using tarn::FormReader;
  EXPECT_EQ(of(FormLimit::fields, 1),
            exceeded(FormReader::from_query(query, FormLimits().fields(1))));
  EXPECT_EQ(of(FormLimit::text_size, 4),
            exceeded(FormReader::from_query(query, FormLimits().text_size(4))));
  EXPECT_EQ(of(FormLimit::body_size, 12),
            exceeded(FormReader::from_query(query, FormLimits().body_size(12))));
  EXPECT_EQ(of(FormLimit::load_size, 20),
            exceeded(FormReader::from_query(query, FormLimits().load_size(20))));
  EXPECT_EQ(of(FormLimit::header_size, 30), exceeded(reader(file, FormLimits().header_size(30))));
  // A file that may not be kept in memory goes into a temporary file.
  const tarn::Form form(reader(file, FormLimits().memory_size(7).fields(tarn::unlimited)));
  EXPECT_TRUE(form);
  EXPECT_EQ("12345678", form.file("a")->text());
}

TEST(CppFormReader, EnforcesTheLimitsOfTime) {
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  for (const tarn::FormLimits &limits :
       {tarn::FormLimits().wait_seconds(0), tarn::FormLimits().total_seconds(0)}) {
    auto form = tarn::FormReader::from_descriptor(kMultipart, ends[0], 100, limits);
    EXPECT_EQ(nullptr, form.next());
    EXPECT_TRUE(form.problem() == tarn::FormProblem::timed_out) << form.problem().message();
    EXPECT_EQ(408, form.problem().status());
    EXPECT_TRUE(form.problem().limit());
  }
  close(ends[0]);
  close(ends[1]);
}

TEST(CppFormReader, LimitsCanBeConstants) {
  constexpr tarn::FormLimits one = tarn::FormLimits().fields(1);
  constexpr tarn::FormLimits both = one.body_size(3);
  EXPECT_FALSE(tarn::Form(tarn::FormReader::from_query("a&b", one)));
  EXPECT_TRUE(tarn::Form(tarn::FormReader::from_query("abcd", one)));
  EXPECT_FALSE(tarn::Form(tarn::FormReader::from_query("abcd", both)));
}

// ---- Owners ---------------------------------------------------------------------------------------

TEST(CppFormReader, GoesOnAfterAMove) {
  tarn::FormReader first = reader(kBody);
  tarn::Field &old = *first.next();
  tarn::FormReader second = std::move(first);
  EXPECT_FALSE(old) << "the field of a reader without a form";
  EXPECT_EQ("", old.name());
  EXPECT_EQ(std::nullopt, old.text());
  EXPECT_EQ(-1, old.save("/tmp").error());
  EXPECT_TRUE(first.problem() == tarn::FormProblem::out_of_memory);
  EXPECT_EQ(nullptr, first.next());
  for (tarn::Field &field : first) ADD_FAILURE() << field.name();
  EXPECT_EQ("photo", second.next()->name());
  tarn::FormReader third = tarn::FormReader::from_query("a=1");
  EXPECT_EQ("a", third.next()->name());
  third = std::move(second);
  tarn::FormReader &itself = third;
  third = std::move(itself);
  EXPECT_EQ("more", third.next()->name());
}

TEST(CppFormReader, KeepsTheCurrentFieldInAMove) {
  tarn::FormReader first = reader(kBody);
  first.next();
  const tarn::Field &photo = *first.next();
  const tarn::Blocks blocks = photo.blocks();
  tarn::FormReader second = std::move(first);
  EXPECT_EQ("", joined(blocks));
  EXPECT_EQ("more", second.next()->name());
}

TEST(CppFormReader, TakesAndGivesUpOwnership) {
  TarnForm *form = TarnForm_openQuery("a=1&b=2");
  tarn::FormReader owner(tarn::adopt, form);
  EXPECT_EQ(nullptr, form);
  const tarn::Field *field = owner.next();
  EXPECT_STREQ("a", TarnFormField_name(field->handle()));
  form = owner.release();
  EXPECT_FALSE(*field);
  EXPECT_EQ(nullptr, owner.handle());
  EXPECT_STREQ("b", TarnFormField_name(TarnForm_next(form)));
  TarnForm_close(form);
  tarn::FormReader empty(tarn::adopt, form = nullptr);
  EXPECT_TRUE(empty.problem() == tarn::FormProblem::out_of_memory);
  EXPECT_EQ(500, empty.problem().status());
}

TEST(CppFormReader, ReportsThatMemoryRanOut) {
  std::optional<tarn::FormReader> form;
  std::optional<tarn::Form> whole;
  tarn_test::withoutMemory([&] {
    form.emplace();
    whole.emplace();
  });
  for (tarn::Field &field : *form) ADD_FAILURE() << field.name();
  EXPECT_FALSE(form->is_whole());
  EXPECT_FALSE(form->body());
  EXPECT_FALSE(*whole);
  EXPECT_EQ(0U, whole->size());
  EXPECT_EQ(std::nullopt, (*whole)["a"]);
  EXPECT_EQ(whole->begin(), whole->end());
  EXPECT_TRUE(form->problem() == tarn::FormProblem::out_of_memory);
  EXPECT_EQ(500, whole->problem().status());
  EXPECT_EQ(std::nullopt, whole->cookie("a"));
}

// ---- Sources --------------------------------------------------------------------------------------

TEST(CppFormReader, ReadsTheRequest) {
  asScript(get("a=1&b=two+words"), "", [] {
    tarn::FormReader form;
    EXPECT_EQ("a", form.next()->name());
    EXPECT_EQ("two words", form.next()->text());
    EXPECT_EQ(nullptr, form.next());
    EXPECT_TRUE(form.is_whole());
  });
  asScript(post(kMultipart, kBody), kBody, [] {
    const tarn::Form form;
    EXPECT_TRUE(form);
    EXPECT_EQ("two\r\nlines", form["comment"]);
    EXPECT_EQ(kPng, form.file("photo")->view());
  });
}

TEST(CppFormReader, ReadsToTheEndWithoutALength) {
  asScript({{"REQUEST_METHOD", "POST"}, {"CONTENT_TYPE", kMultipart}}, kBody, [] {
    tarn::FormReader stream;
    stream.read_to_end();
    const tarn::Form form(std::move(stream));
    EXPECT_EQ(4U, form.size());
  });
}

TEST(CppFormReader, ReadsADescriptor) {
  const int file = fileWith(kBody);
  for (const uint64_t length : {uint64_t{kBody.size()}, tarn::unlimited}) {
    lseek(file, 0, SEEK_SET);
    const tarn::Form form(tarn::FormReader::from_descriptor(kMultipart, file, length));
    EXPECT_TRUE(form) << form.problem().message();
    EXPECT_EQ(kPng, form.file("photo")->text());
  }
  close(file);
  auto closed = tarn::FormReader::from_descriptor(kMultipart, -1, 1);
  EXPECT_EQ(nullptr, closed.next());
  EXPECT_TRUE(closed.problem() == tarn::FormProblem::read_error);
}

TEST(CppFormReader, ReadsTextThatIsNotNullTerminated) {
  const std::string_view all = "a=1&b=2&c=3";
  EXPECT_EQ(2U, tarn::Form(tarn::FormReader::from_query({all.data(), 7})).size());
}

TEST(CppFormReader, ReadsTheBodyOfAnyType) {
  const std::string json = "{\"cake\": 1}";
  asScript(post("application/json", json), json, [&json] {
    tarn::FormReader form;
    tarn::Field &body = form.body();
    EXPECT_TRUE(body);
    EXPECT_EQ("", body.name());
    EXPECT_EQ("application/json", body.type());
    EXPECT_EQ(json, body.text());
    EXPECT_EQ(nullptr, form.next());
    EXPECT_TRUE(form.is_whole());
    EXPECT_FALSE(form.body()) << "it was read";
  });
  asScript(post("application/json", json), json.substr(1), [] {
    tarn::FormReader form;
    EXPECT_EQ(std::nullopt, form.body().text());
    EXPECT_TRUE(form.problem() == tarn::FormProblem::cut_short);
  });
}

TEST(CppFormReader, FindsCookiesAndTheQuery) {
  tarn_test::Variables variables = post(kMultipart, kBody);
  variables["HTTP_COOKIE"] = "guest=Ada%20L.; id=7";
  variables["QUERY_STRING"] = "page=two+three";
  asScript(variables, kBody, [] {
    const tarn::Form form;
    EXPECT_EQ("Ada%20L.", form.cookie("guest"));
    EXPECT_EQ("Ada L.", form.decoded_cookie("guest"));
    EXPECT_EQ("two+three", form.query("page"));
    EXPECT_EQ("two three", form.decoded_query("page"));
    for (const char *name : {"Guest", "page", static_cast<const char *>(nullptr)}) {
      EXPECT_EQ(std::nullopt, form.cookie(name));
      EXPECT_EQ(std::nullopt, form.decoded_cookie(name));
    }
    EXPECT_EQ(std::nullopt, form.query("guest"));
    EXPECT_EQ(std::nullopt, form.decoded_query(nullptr));
    EXPECT_EQ(4U, form.size());
  });
}

// ---- Whole forms ----------------------------------------------------------------------------------

TEST(CppForm, FindsTextsByName) {
  const tarn::Form form(reader(kBody));
  ASSERT_TRUE(form);
  EXPECT_EQ("two\r\nlines", form["comment"]);
  EXPECT_EQ(std::nullopt, form["Comment"]);
  EXPECT_EQ(std::nullopt, form["photo"]) << "a file";
  EXPECT_EQ("two\r\nlines", form.get("comment", "otherwise"));
  EXPECT_EQ("otherwise", form.get("photo", "otherwise"));
  EXPECT_EQ("two\r\nlines;again;", namesOf(form.all("comment")));
  EXPECT_TRUE(form.all("photo").empty());
  EXPECT_EQ(2U, form.count("comment"));
  EXPECT_EQ(1U, form.count("photo"));
  EXPECT_EQ(0U, form.count("none"));
  EXPECT_EQ(4U, form.size());
  EXPECT_FALSE(form.empty());
}

TEST(CppForm, AcceptsEveryKindOfName) {
  const tarn::Form form(reader(kBody));
  ASSERT_TRUE(form);
  const std::string name = "comment";
  const std::string_view part("comment and more", 7);
  EXPECT_EQ("two\r\nlines", form[name]);
  EXPECT_EQ("two\r\nlines", form[part]);
  EXPECT_EQ("two\r\nlines", form.get(std::string("comment"), ""));
  EXPECT_EQ("two\r\nlines;again;", namesOf(form.all(std::string("comment"))));
  EXPECT_EQ(2U, form.count(part));
  EXPECT_TRUE(form.file(std::string("photo")));
  EXPECT_EQ(std::nullopt, form[std::string(100, 'x')]);
  const char *const null = std::getenv("TARN_TEST_UNSET");
  EXPECT_EQ(std::nullopt, form[null]);
  EXPECT_FALSE(form.field(null));
  EXPECT_EQ(0U, form.count(null));
}

TEST(CppForm, FindsFilesByName) {
  const std::string body = part("name=\"f\"; filename=\"\"", "") + part("name=\"f\"", "text") +
                           part("name=\"f\"; filename=\"1\"", "one") +
                           part("name=\"g\"; filename=\"2\"", "two") +
                           part("name=\"f\"; filename=\"3\"", "three") + "--b--";
  const tarn::Form form(reader(body));
  ASSERT_TRUE(form);
  EXPECT_EQ("one", form.file("f")->text());
  EXPECT_EQ("text", form["f"]);
  EXPECT_FALSE(form.file("h"));
  std::string names;
  for (const tarn::KeptField file : form.files("f")) names.append(*file.filename());
  EXPECT_EQ("13", names);
  names.clear();
  for (const tarn::KeptField file : form.files()) names.append(*file.filename());
  EXPECT_EQ("123", names);
  EXPECT_EQ(4U, form.count("f"));
  EXPECT_EQ("", form.field("f")->filename());
  EXPECT_EQ("3", form.field("f", 3)->filename());
  EXPECT_FALSE(form.field("f", 4));
}

TEST(CppForm, IgnoresCaseOnRequest) {
  const tarn::Form form(tarn::FormReader::from_query("Name=1&NAME=2"));
  EXPECT_FALSE(form.field("name"));
  EXPECT_EQ("1", form.field_ignoring_case("name")->text());
  EXPECT_EQ("2", form.field_ignoring_case("name", 1)->text());
  EXPECT_FALSE(form.field_ignoring_case("name", 2));
}

TEST(CppForm, ReadsWholeNumbers) {
  const tarn::Form form(tarn::FormReader::from_query("age=42&name=Ada&low=-1"));
  EXPECT_EQ(42, form.integer("age"));
  EXPECT_EQ(std::nullopt, form.integer("age", 0, 41));
  EXPECT_EQ(-1, form.integer("low"));
  EXPECT_EQ(std::nullopt, form.integer("name"));
  EXPECT_EQ(std::nullopt, form.integer("none"));
}

TEST(CppForm, IsARangeOfItsFields) {
  const tarn::Form form(reader(kBody));
  std::string names;
  for (const tarn::KeptField field : form) names.append(field.name()) += ';';
  EXPECT_EQ("comment;photo;more;comment;", names);
  EXPECT_EQ(4, std::distance(form.begin(), form.end()));
  EXPECT_EQ(1, std::count_if(form.begin(), form.end(),
                             [](const tarn::KeptField field) { return field.is_file(); }));
  auto at = form.begin();
  EXPECT_EQ("comment", (*at++).name());
  EXPECT_EQ("photo", at->name());
  EXPECT_NE(at, form.begin());
}

TEST(CppForm, WithAProblemHasNoFields) {
  const std::string cut = kBody.substr(0, kBody.size() - 6);
  const tarn::Form form(reader(cut));
  EXPECT_FALSE(form);
  EXPECT_FALSE(form.is_whole());
  EXPECT_TRUE(form.problem() == tarn::FormProblem::cut_short);
  EXPECT_EQ(std::nullopt, form["comment"]);
  EXPECT_EQ("otherwise", form.get("comment", "otherwise"));
  EXPECT_TRUE(form.all("comment").empty());
  EXPECT_TRUE(form.files().empty());
  EXPECT_FALSE(form.file("photo"));
  EXPECT_FALSE(form.field("comment"));
  EXPECT_TRUE(form.empty());
  EXPECT_EQ(form.begin(), form.end());
}

TEST(CppForm, FindsNothingUnderANullName) {
  const tarn::Form form(reader(kBody));
  const char *const none = nullptr;
  EXPECT_EQ(std::nullopt, form[none]);
  EXPECT_TRUE(form.all(none).empty());
  EXPECT_TRUE(form.files(none).empty());
  EXPECT_FALSE(form.field(none));
  EXPECT_FALSE(form.field_ignoring_case(none));
  EXPECT_EQ(0U, form.count(none));
}

TEST(CppForm, RangesOutliveTheNameTheyWereAskedFor) {
  const tarn::Form form(reader(kBody));
  auto name = std::make_unique<std::string>("comment");
  const tarn::FormTexts texts = form.all(name->c_str());
  name.reset();
  EXPECT_EQ("two\r\nlines;again;", namesOf(texts));
}

TEST(CppForm, ViewsOutliveAMove) {
  tarn::Form form(reader(kBody));
  const std::optional<std::string_view> comment = form["comment"];
  const std::optional<tarn::KeptField> photo = form.file("photo");
  const tarn::Form moved = std::move(form);
  EXPECT_EQ("two\r\nlines", comment);
  EXPECT_EQ(kPng, photo->view());
  EXPECT_EQ(4U, moved.size());
  EXPECT_FALSE(form);
  EXPECT_EQ(0U, form.size());
  EXPECT_TRUE(form.problem() == tarn::FormProblem::out_of_memory);
}

TEST(CppForm, TakesWhatIsLeftOfAReader) {
  tarn::FormReader stream = reader(kBody);
  tarn::Field &token = *stream.next();
  EXPECT_EQ("two\r\nlines", token.text());
  const tarn::Form form(std::move(stream));
  EXPECT_TRUE(form);
  EXPECT_EQ(3U, form.size());
  EXPECT_EQ("again", form["comment"]);
  EXPECT_FALSE(token) << "its reader has no form any more";
}

TEST(CppKeptField, CanBeCopiedAndReadAgain) {
  const tarn::Form form(reader(kBody));
  tarn::KeptField copy = *form.file("photo");
  const tarn::KeptField other = copy;
  copy = *form.begin();
  EXPECT_EQ("comment", copy.name());
  EXPECT_EQ(kPng, other.text());
  EXPECT_EQ(kPng, joined(other.blocks()));
  EXPECT_EQ(kPng, joined(form.file("photo")->blocks()));
  const tarn::Field &as_field = other;
  EXPECT_EQ("photo", as_field.name());
  EXPECT_EQ(kPng.size(), as_field.size());
}

TEST(CppKeptField, BlocksOfTwoFieldsDoNotDisturbEachOther) {
  const std::string large(300000, 'x');
  const std::string body = part("name=\"a\"; filename=\"a\"", large) +
                           part("name=\"b\"; filename=\"b\"", large + "y") +
                           part("name=\"c\"", "z") + "--b--";
  const tarn::Form form(reader(body));
  std::string all;
  size_t rounds = 0;
  for (const tarn::KeptField outer : form) {
    for (const std::string_view block : outer.blocks()) {
      all += block;
      ++rounds;
      for (const tarn::KeptField inner : form) all += joined(inner.blocks()).back();
    }
  }
  EXPECT_EQ(3U, rounds);
  EXPECT_EQ(large + "xyz" + large + "yxyz" + "z" + "xyz", all);
}

// ---- Saving ---------------------------------------------------------------------------------------

class CppFieldSave : public testing::Test {
 protected:
  CppFieldSave() {
    std::string name = testing::TempDir() + "tarn-XXXXXX";
    EXPECT_NE(nullptr, mkdtemp(name.data()));
    directory_ = name;
  }
  ~CppFieldSave() override { fs::remove_all(directory_); }

  std::string directory() const { return directory_.native(); }
  std::string saved(const std::string &name) const {
    std::ostringstream bytes;
    bytes << std::ifstream(directory_ / name).rdbuf();
    return bytes.str();
  }
  auto count() const {
    return std::distance(fs::directory_iterator(directory_), fs::directory_iterator());
  }

 private:
  fs::path directory_;
};

TEST_F(CppFieldSave, WritesEveryByteUnderTheSafeName) {
  tarn::FormReader form = reader(kBody);
  for (tarn::Field &field : form) {
    if (!field.is_file()) continue;
    const tarn::Saved done = field.save(directory() + "/");
    EXPECT_TRUE(done) << done.message();
    EXPECT_STREQ("", done.message());
    EXPECT_EQ("lake_1.png", done.name().view());
  }
  EXPECT_EQ(kPng, saved("lake_1.png"));
  EXPECT_EQ(1, count());
}

TEST_F(CppFieldSave, CanBeTriedAgainUnderAnotherName) {
  std::ofstream(directory() + "/lake_1.png") << "old";
  tarn::FormReader form = reader(kBody);
  form.next();
  tarn::Field &photo = *form.next();
  EXPECT_EQ(EEXIST, photo.save(directory()).error());
  for (const std::string &name : {std::string(), std::string("a/b"), std::string(".."),
                                  std::string(256, 'x'), std::string("a\0b", 3)}) {
    EXPECT_EQ(EINVAL, photo.save(directory(), name).error()) << name;
  }
  EXPECT_EQ(ENOENT, photo.save(directory() + "/none", "x").error());
  EXPECT_TRUE(photo.save(directory(), std::string_view("newest", 3)));
  EXPECT_EQ("old", saved("lake_1.png"));
  EXPECT_EQ(kPng, saved("new"));
  EXPECT_EQ(2, count());
}

// fsync() is counted in tests/form/failing_calls_test.cpp.
TEST_F(CppFieldSave, NeedNotWaitForTheDisk) {
  tarn::FormReader form = reader(kBody);
  form.durable(false);
  EXPECT_TRUE(form.next()->save(directory(), "a"));
  tarn::Form rest(std::move(form));
  const auto photo = rest.file("photo");
  EXPECT_TRUE(photo->save(directory(), "b"));
  rest.durable(true);
  EXPECT_TRUE(photo->save(directory(), "c"));
  EXPECT_EQ(kPng, saved("b"));
  EXPECT_EQ(kPng, saved("c"));
  EXPECT_EQ(3, count());
  form.durable(true);  // has no form any more
}

TEST_F(CppFieldSave, LeavesNothingOfAFileThatIsCutShort) {
  const std::string cut = kBody.substr(0, kBody.find("IHDR"));
  tarn::FormReader form = reader(cut);
  form.next();
  const tarn::Saved done = form.next()->save(directory());
  EXPECT_FALSE(done);
  EXPECT_EQ(-1, done.error());
  EXPECT_NE(nullptr, std::strstr(done.message(), "problem"));
  EXPECT_EQ("lake_1.png", done.name().view());
  EXPECT_EQ(0, count());
}

TEST_F(CppFieldSave, SavesAKeptFieldAnyNumberOfTimes) {
  const tarn::Form form(reader(kBody));
  EXPECT_TRUE(form.file("photo")->save(directory()));
  EXPECT_TRUE(form.file("photo")->save(directory(), "again"));
  EXPECT_TRUE(form.field("comment")->save(directory(), "text"));
  EXPECT_EQ(kPng, saved("lake_1.png"));
  EXPECT_EQ(kPng, saved("again"));
  EXPECT_EQ("two\r\nlines", saved("text"));
}

// ---- Failing allocations --------------------------------------------------------------------------

TEST(CppForm, IsWholeOrOutOfMemoryWhicheverAllocationFails) {
  size_t whole = 0;
  size_t failed = 0;
  tarn_test::forEachFailingAllocation([&](tarn_test::FailingMemory &memory) {
    const auto form = memory.call([&] { return tarn::Form(reader(kBody)); });
    if (form) {
      ++whole;
      EXPECT_EQ("two\r\nlines", form["comment"]);
      EXPECT_EQ(kPng, form.file("photo")->text());
      return;
    }
    ++failed;
    EXPECT_TRUE(memory.failed());
    EXPECT_TRUE(form.problem() == tarn::FormProblem::out_of_memory);
    EXPECT_TRUE(form.empty());
  });
  EXPECT_GT(whole, 0U);
  EXPECT_GT(failed, 5U);
}

// ---- UTF-8 ----------------------------------------------------------------------------------------

TEST(CppIsUtf8, AcceptsTextAndRefusesOtherBytes) {
  EXPECT_TRUE(tarn::is_utf8(""));
  EXPECT_TRUE(tarn::is_utf8({}));
  EXPECT_TRUE(tarn::is_utf8("na\u00EFve \u65E5\u672C \U0001F600"));
  EXPECT_TRUE(tarn::is_utf8({"a\0b", 3}));
  EXPECT_FALSE(tarn::is_utf8("na\xEFve"));
  EXPECT_FALSE(tarn::is_utf8("\xED\xA0\x80"));
  EXPECT_FALSE(tarn::is_utf8("\xC0\xAF"));
}

// What a compiler refuses is in refused.toml; these are the promises behind it.
static_assert(!std::is_copy_constructible_v<tarn::FormReader>);
static_assert(!std::is_copy_constructible_v<tarn::Form>);
static_assert(!std::is_move_constructible_v<tarn::Field>);
static_assert(!std::is_constructible_v<tarn::Field, const tarn::KeptField &>);
static_assert(std::is_nothrow_move_constructible_v<tarn::FormReader>);
static_assert(std::is_nothrow_move_assignable_v<tarn::Form>);
static_assert(sizeof(tarn::KeptField) == sizeof(void *));

}  // namespace
