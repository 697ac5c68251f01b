// Writing JSON. json_test.py holds it against a parser.
#include <gtest/gtest.h>
#include <tarn.hpp>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "support/failing_memory.h"

namespace {

using tarn::JsonWriter;
using tarn_test::FailingMemory;
using tarn_test::forEachFailingAllocation;

std::string taken(JsonWriter &json) {
  const tarn::Text text = json.take();
  EXPECT_STREQ(nullptr, text.problem());
  return std::string(text.view());
}

template <class Value>
std::string written(const Value &value) {
  JsonWriter json;
  return taken(json.value(value));
}

std::string refusal(JsonWriter &json) {
  const tarn::Text text = json.take();
  EXPECT_FALSE(text);
  EXPECT_EQ("", text.view());
  return text.problem() != nullptr ? text.problem() : "";
}

TEST(CppJson, WritesEveryKindOfValue) {
  EXPECT_EQ("\"text\"", written("text"));
  EXPECT_EQ("\"text\"", written(std::string("text")));
  EXPECT_EQ("\"te\"", written(std::string_view("text", 2)));
  EXPECT_EQ("\"\"", written(""));
  EXPECT_EQ("null", written(static_cast<const char *>(nullptr)));
  EXPECT_EQ("null", written(nullptr));
  EXPECT_EQ("true", written(true));
  EXPECT_EQ("false", written(false));
  EXPECT_EQ("null", written(std::optional<std::string_view>()));
  EXPECT_EQ("\"x\"", written(std::optional<std::string_view>("x")));
  EXPECT_EQ("7", written(std::optional<int>(7)));
}

TEST(CppJson, EscapesTextsAndKeysForHtmlToo) {
  EXPECT_EQ("\"\\u003c/script\\u003e\\u000a\\u0022\\u005c\"", written("</script>\n\"\\"));
  EXPECT_EQ("\"\\ufffd\"", written("\xFF"));
  EXPECT_EQ("\"a\\u0000b\"", written(std::string_view("a\0b", 3)));
  JsonWriter json;
  EXPECT_EQ("{\"\\u0026\":1}", taken(json.begin_object().member("&", 1).end_object()));
}

TEST(CppJson, WritesIntegersOfAllWidths) {
  EXPECT_EQ("0", written(0));
  EXPECT_EQ("-1", written(static_cast<short>(-1)));
  EXPECT_EQ("200", written(static_cast<unsigned char>(200)));
  EXPECT_EQ("-9223372036854775808", written(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ("18446744073709551615", written(std::numeric_limits<std::uint64_t>::max()));
}

TEST(CppJson, WritesAsManyDigitsAsANumberNeeds) {
  EXPECT_EQ("0.1", written(0.1));
  EXPECT_EQ("-0", written(-0.0));
  EXPECT_EQ("1e+300", written(1e300));
  EXPECT_EQ("2.5", written(2.5F));
  EXPECT_EQ("0.30000000000000004", written(0.1 + 0.2));
}

TEST(CppJson, SeparatesMembersAndItemsAtEachDepth) {
  JsonWriter json;
  json.begin_object().member("a", 1).key("b").begin_array().value(1).value("2");
  json.begin_array().end_array().begin_object().end_object().end_array();
  json.key("c").begin_object().member("d", nullptr).end_object().member("e", true).end_object();
  EXPECT_EQ(R"({"a":1,"b":[1,"2",[],{}],"c":{"d":null},"e":true})", taken(json));
}

TEST(CppJson, NestsAsDeepAsYouLike) {
  constexpr int kDepth = 100000;
  JsonWriter json;
  for (int i = 0; i < kDepth; ++i) json.begin_array();
  for (int i = 0; i < kDepth; ++i) json.end_array();
  EXPECT_EQ(std::string(kDepth, '[') + std::string(kDepth, ']'), taken(json));
}

TEST(CppJson, RefusesWhatIsNotJson) {
  struct {
    const char *problem;
    void (*write)(JsonWriter &);
  } const cases[] = {
      {"JSON: the value is not complete", [](JsonWriter &) {}},
      {"JSON: the value is not complete", [](JsonWriter &json) { json.begin_object(); }},
      {"JSON: the value is not complete",
       [](JsonWriter &json) { json.begin_array().value(1).begin_array().end_array(); }},
      {"JSON: the value is not complete", [](JsonWriter &json) { json.begin_object().key("a"); }},
      {"JSON: a key needs a value",
       [](JsonWriter &json) { json.begin_object().key("a").end_object(); }},
      {"JSON: a key needs a value",
       [](JsonWriter &json) { json.begin_object().key("a").key("b").value(1).end_object(); }},
      {"JSON: a value in an object needs a key",
       [](JsonWriter &json) { json.begin_object().value(1).end_object(); }},
      {"JSON: a value in an object needs a key",
       [](JsonWriter &json) { json.begin_object().begin_array().end_array().end_object(); }},
      {"JSON: only objects have keys", [](JsonWriter &json) { json.key("a").value(1); }},
      {"JSON: only objects have keys",
       [](JsonWriter &json) { json.begin_array().member("a", 1).end_array(); }},
      {"JSON: there is no such object or array to end",
       [](JsonWriter &json) { json.begin_array().end_object(); }},
      {"JSON: there is no such object or array to end",
       [](JsonWriter &json) { json.value(1).end_array(); }},
      {"JSON: there can be only one value outside of objects and arrays",
       [](JsonWriter &json) { json.value(1).value(2); }},
      {"JSON: there can be only one value outside of objects and arrays",
       [](JsonWriter &json) { json.begin_array().end_array().begin_object().end_object(); }},
      {"JSON: a number must be finite", [](JsonWriter &json) { json.value(std::nan("")); }},
      {"JSON: a number must be finite",
       [](JsonWriter &json) { json.begin_array().value(HUGE_VAL).value(1).end_array(); }},
  };
  for (const auto &one : cases) {
    JsonWriter json;
    one.write(json);
    EXPECT_EQ(one.problem, refusal(json));
  }
}

TEST(CppJson, TellsTheFirstProblem) {
  JsonWriter json;
  json.end_array().value(std::nan("")).value(1).value(2);
  EXPECT_EQ("JSON: there is no such object or array to end", refusal(json));
}

TEST(CppJson, CanBeTakenOnce) {
  JsonWriter json;
  EXPECT_EQ("1", taken(json.value(1)));
  EXPECT_EQ("JSON: the value is not complete", refusal(json));
}

TEST(CppJsonAtEachFailure, IsWholeOrOutOfMemory) {
  std::string whole;
  forEachFailingAllocation([&whole](FailingMemory &memory) {
    const tarn::Text text = memory.call([] {
      JsonWriter json;
      for (int i = 0; i < 100; ++i) json.begin_array().value("a text of some length");
      for (int i = 0; i < 100; ++i) json.end_array();
      return json.take();
    });
    if (memory.failed()) {
      EXPECT_STREQ("out of memory", text.problem());
      EXPECT_EQ("", text.view());
    } else {
      EXPECT_STREQ(nullptr, text.problem());
      whole = text.view();
    }
  });
  EXPECT_EQ(100U * 25 + 99, whole.size());
}

}  // namespace
