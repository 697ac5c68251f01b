// Forms that are checked and shown again.
#include <gtest/gtest.h>
#include <tarn.hpp>

#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/failing_memory.h"
#include "support/script.h"

namespace {

using tarn::Attribute;
using tarn::CheckedForm;
using tarn::Choice;
using tarn::Element;
using tarn::Form;
using tarn::Reason;

constexpr Choice kSizes[] = {{"s", "Small"}, {"l", "L & XL"}};

Form sentForm(std::string_view fields) { return Form(tarn::FormReader::from_query(fields)); }

std::string written(const Element &element) {
  const tarn::Text text = tarn::html(element);
  EXPECT_STREQ(nullptr, text.problem());
  return std::string(text.view());
}

TEST(CppCheckedForm, HoldsIfEveryCheckFoundAValue) {
  const Form sent = sentForm("name=+Ada+&age=36&size=l&born=&born=1815-12-10");
  CheckedForm form(sent, true);
  const auto name = form.check("name", tarn::line(form["name"], 3), "Name?");
  const auto age = form.check("age", tarn::integer(form["age"], 0, 150), "Age?");
  const auto size = form.check("size", tarn::one_of(form["size"], kSizes), "Size?");
  const auto born = form.check_optional("born", tarn::date(form["born"]), "Day?");
  EXPECT_TRUE(form);
  EXPECT_EQ(200, form.status());
  EXPECT_EQ(0U, form.wrong());
  EXPECT_EQ("Ada", *name);
  EXPECT_EQ(36, *age);
  EXPECT_EQ("l", *size);
  EXPECT_EQ(Reason::missing, born.reason());
  EXPECT_EQ(std::nullopt, form.sentence("name"));
}

TEST(CppCheckedForm, KeepsASentenceForEachWrongField) {
  const Form sent = sentForm("name=+&age=abc&born=2024-02-30");
  CheckedForm form(sent, true);
  EXPECT_FALSE(form.check("name", tarn::line(form["name"], 3), "Name?"));
  EXPECT_EQ(Reason::malformed, form.check("age", tarn::integer(form["age"]), "Age?").reason());
  form.check_optional("born", tarn::date(form["born"]), "Day?");
  EXPECT_FALSE(form.check("all", tarn::boolean(form["all"]), "All?").has_value());
  EXPECT_FALSE(form);
  EXPECT_EQ(422, form.status());
  EXPECT_EQ(4U, form.wrong());
  EXPECT_EQ("Name?", form.sentence("name"));
  EXPECT_EQ("Age?", form.sentence("age"));
  EXPECT_EQ("Day?", form.sentence("born"));
  EXPECT_EQ("All?", form.sentence("all"));
  EXPECT_EQ(std::nullopt, form.sentence("nam"));
  EXPECT_EQ(std::nullopt, form.sentence(""));
}

TEST(CppCheckedForm, ALaterSentenceReplacesAnEarlierOne) {
  const Form sent = sentForm("name=Ada");
  CheckedForm form(sent, true);
  form.check("name", tarn::line(form["name"], 9), "Name?");
  EXPECT_TRUE(form);
  form.refuse("name", "Taken.");
  EXPECT_EQ("Taken.", form.sentence("name"));
  form.refuse(std::string("name").c_str(), "Too late.");
  EXPECT_EQ("Too late.", form.sentence("name"));
  EXPECT_EQ(1U, form.wrong());
  EXPECT_FALSE(form);
  form.refuse("name", static_cast<const char *>(nullptr));
  EXPECT_EQ("", form.sentence("name"));
  form.refuse(nullptr, "Nobody.");
  EXPECT_EQ(1U, form.wrong());
}

TEST(CppCheckedForm, IsNotCheckedBeforeItIsSubmitted) {
  const Form sent = sentForm("name=Ada");
  CheckedForm form(sent, false);
  EXPECT_EQ(std::nullopt, form["name"]);
  EXPECT_EQ(Reason::missing, form.check("name", tarn::line(form["name"], 9), "Name?").reason());
  form.refuse("name", "Taken.");
  EXPECT_FALSE(form);
  EXPECT_EQ(0U, form.wrong());
  EXPECT_EQ(200, form.status());
  EXPECT_EQ("", form.typed("name"));
}

TEST(CppCheckedForm, IsSubmittedByPost) {
  const std::string body = "name=Ada";
  tarn_test::Variables variables = tarn_test::post("application/x-www-form-urlencoded", body);
  tarn_test::asScript(variables, body, [] {
    const Form sent;
    EXPECT_TRUE(CheckedForm(sent));
    EXPECT_EQ("Ada", CheckedForm(sent)["name"]);
  });
  for (const char *method : {"GET", "PUT", "post", ""}) {
    variables["REQUEST_METHOD"] = method;
    tarn_test::asScript(variables, body, [] {
      const Form sent;
      EXPECT_FALSE(CheckedForm(sent));
    });
  }
}

TEST(CppCheckedForm, AFormThatIsNotWholeDoesNotHold) {
  const Form sent(tarn::FormReader::from_query("a=1&b=2", tarn::FormLimits().fields(1)));
  CheckedForm form(sent, true);
  EXPECT_FALSE(form);
  EXPECT_EQ(413, form.status());
  form.check("a", tarn::line(form["a"], 9), "A?");
  EXPECT_EQ(0U, form.wrong()) << "the visitor typed it";
}

TEST(CppCheckedForm, ShowsWhatTheVisitorTyped) {
  const Form sent = sentForm("name=+%22%3Cb%3E+");
  CheckedForm form(sent, true);
  EXPECT_EQ("\"<b>", form["name"]);
  EXPECT_EQ(" \"<b> ", form.typed("name"));
  EXPECT_EQ(
      "<p><label for=\"name\">Your name</label> <input id=\"name\" name=\"name\" "
      "value=\" &quot;&lt;b&gt; \"></p>",
      written(form.input("name", "Your name")));
  EXPECT_EQ(
      "<p><label for=\"name\">Your name</label> <textarea id=\"name\" name=\"name\" rows=\"5\">\n"
      " &quot;&lt;b&gt; </textarea></p>",
      written(form.textarea("name", "Your name", Attribute("rows", 5))));
}

TEST(CppCheckedForm, ShowsTheSentenceBesideTheField) {
  const Form sent = sentForm("name=%00x");
  CheckedForm form(sent, true);
  form.refuse("name", "No <zero> bytes.");
  EXPECT_EQ(
      "<p><label for=\"name\">Name</label> <input id=\"name\" name=\"name\" maxlength=\"9\" "
      "aria-invalid=\"true\" aria-describedby=\"name-problem\" value=\"\"> "
      "<strong id=\"name-problem\">No &lt;zero&gt; bytes.</strong></p>",
      written(form.input("name", "Name", Attribute("maxlength", 9))));
  EXPECT_EQ(
      "<p><label for=\"name\">Name</label> <textarea id=\"name\" name=\"name\" "
      "aria-invalid=\"true\" "
      "aria-describedby=\"name-problem\">\n</textarea> <strong id=\"name-problem\">"
      "No &lt;zero&gt; bytes.</strong></p>",
      written(form.textarea("name", "Name")));
}

TEST(CppCheckedForm, NeverShowsAPasswordOrAFileAgain) {
  const Form sent = sentForm("key=hidden");
  const CheckedForm form(sent, true);
  for (const char *type : {"password", "PASSWORD", "file", "File"}) {
    const std::string shown = written(form.input("key", "Key", Attribute("type", type)));
    EXPECT_EQ(std::string::npos, shown.find("hidden")) << shown;
    EXPECT_EQ(std::string::npos, shown.find("value")) << shown;
  }
  tarn::AttributeList attributes;
  attributes.add(Attribute("required")).add(Attribute("TYPE", tarn::Raw("password")));
  const std::string shown = written(form.input("key", "Key", std::move(attributes)));
  EXPECT_EQ(std::string::npos, shown.find("hidden")) << shown;
  EXPECT_NE(std::string::npos,
            written(form.input("key", "Key", Attribute("type", "text"))).find("hidden"));
}

TEST(CppCheckedForm, SelectsWhatWasChosen) {
  const Form sent = sentForm("size=l");
  CheckedForm form(sent, true);
  EXPECT_EQ(
      "<p><label for=\"size\">Size</label> <select id=\"size\" name=\"size\" required>"
      "<option value=\"s\">Small</option><option value=\"l\" selected>L &amp; "
      "XL</option></select></p>",
      written(form.select("size", "Size", kSizes, Attribute("required"))));
  form.refuse("size", "Sold out.");
  EXPECT_EQ(
      "<fieldset id=\"size\" role=\"radiogroup\" aria-invalid=\"true\" "
      "aria-describedby=\"size-problem\"><legend>Size</legend> "
      "<label><input type=\"radio\" name=\"size\" value=\"s\"> Small</label> "
      "<label><input type=\"radio\" name=\"size\" value=\"l\" checked> L &amp; XL</label> "
      "<strong id=\"size-problem\">Sold out.</strong></fieldset>",
      written(form.radios("size", "Size", kSizes)));
}

TEST(CppCheckedForm, SelectsSeveral) {
  const Form sent = sentForm("size=l&size=s");
  const CheckedForm form(sent, true);
  const std::vector<Choice> sizes = {{"s", "S"}, {"m", "M"}, {"l", "L"}};
  EXPECT_EQ(
      "<p><label for=\"size\">Size</label> <select id=\"size\" name=\"size\" multiple>"
      "<option value=\"s\" selected>S</option><option value=\"m\">M</option>"
      "<option value=\"l\" selected>L</option></select></p>",
      written(form.select("size", "Size", sizes, Attribute("multiple"))));
}

TEST(CppCheckedForm, TicksCheckboxes) {
  const auto box = [](std::string_view fields, bool is_submitted, bool initially) {
    const Form sent = sentForm(fields);
    CheckedForm form(sent, is_submitted);
    if (initially) form.initially("all", "on");
    return written(form.checkbox("all", "All of it"));
  };
  const std::string plain =
      "<p><label><input id=\"all\" name=\"all\" type=\"checkbox\"> All of it</label></p>";
  const std::string ticked =
      "<p><label><input id=\"all\" name=\"all\" type=\"checkbox\" checked> All of it</label></p>";
  EXPECT_EQ(ticked, box("all=on", true, false));
  EXPECT_EQ(plain, box("all=off", true, false));
  EXPECT_EQ(plain, box("", true, true)) << "the visitor removed the tick";
  EXPECT_EQ(ticked, box("", false, true));
  EXPECT_EQ(plain, box("all=on", false, false));
}

TEST(CppCheckedForm, ShowsInitialValuesUntilItIsSubmitted) {
  const Form sent = sentForm("name=&size=s");
  CheckedForm before(sent, false);
  before.initially("name", "Eve").initially("size", "l").initially("name", "Ada");
  EXPECT_EQ("Ada", before.typed("name"));
  EXPECT_EQ("", before.typed("nam"));
  EXPECT_NE(std::string::npos, written(before.input("name", "Name")).find("value=\"Ada\""));
  EXPECT_NE(std::string::npos,
            written(before.select("size", "Size", kSizes)).find("\"l\" selected"));
  EXPECT_FALSE(before);
  CheckedForm after(sent, true);
  after.initially("name", "Ada").initially("size", "l");
  EXPECT_EQ("", after.typed("name")) << "the visitor removed it";
  EXPECT_NE(std::string::npos,
            written(after.select("size", "Size", kSizes)).find("\"s\" selected"));
}

TEST(CppCheckedForm, CopiesNamesAndTexts) {
  const Form sent = sentForm("name=Ada");
  CheckedForm form(sent, true);
  CheckedForm before(sent, false);
  char name[] = "name";
  char text[] = "Please choose another name.";
  form.refuse(name, text);
  before.initially(name, text);
  for (char &c : name) c = 'x';
  for (char &c : text) c = 'x';
  EXPECT_EQ("Please choose another name.", form.sentence("name"));
  EXPECT_EQ("Please choose another name.", before.typed("name"));
  form.refuse("name", form.sentence("name")->data());
  EXPECT_EQ("Please choose another name.", form.sentence("name"));
  form.refuse("name", std::string("The name Ada") + " is taken, Ada L. is not.");
  EXPECT_EQ("The name Ada is taken, Ada L. is not.", form.sentence("name"));
  EXPECT_EQ(1U, form.wrong());
}

TEST(CppCheckedForm, ANullPointerMakesAFieldEmpty) {
  const Form sent = sentForm("");
  const CheckedForm form(sent, true);
  const char *const none = nullptr;
  EXPECT_FALSE(form.input(none, "Name"));
  EXPECT_FALSE(form.input("name", none));
  EXPECT_FALSE(form.textarea(none, "Name"));
  EXPECT_FALSE(form.select(none, "Size", kSizes));
  EXPECT_FALSE(form.radios(none, "Size", kSizes));
  EXPECT_FALSE(form.checkbox(none, "All"));
}

TEST(CppCheckedFormAtEachFailure, DoesNotHold) {
  const Form sent = sentForm("name=Ada");
  tarn_test::forEachFailingAllocation([&sent](tarn_test::FailingMemory &memory) {
    CheckedForm form(sent, true);
    memory.call([&form] { form.refuse("name", "Taken."); });
    EXPECT_FALSE(form);
    EXPECT_EQ(memory.failed() ? 500 : 422, form.status());
    EXPECT_EQ(memory.failed() ? 0U : 1U, form.wrong());
  });
}

TEST(CppCheckedFormAtEachFailure, MakesWholeFieldsOrNone) {
  const Form sent = sentForm("name=Ada&size=l&all=on");
  CheckedForm form(sent, true);
  for (const char *name : {"name", "size", "all"}) form.refuse(name, "No.");
  const auto all = [&form] {
    return Element("form", form.input("name", "Name", Attribute("maxlength", 9)),
                   form.textarea("name", "Name"), form.select("size", "Size", kSizes),
                   form.radios("size", "Size", kSizes), form.checkbox("all", "All"));
  };
  const std::string expected = written(all());
  tarn_test::forEachFailingAllocation([&](tarn_test::FailingMemory &memory) {
    const Element made = memory.call(all);
    if (memory.failed()) {
      EXPECT_FALSE(made);
    } else {
      EXPECT_EQ(expected, written(made));
    }
  });
}

}  // namespace
