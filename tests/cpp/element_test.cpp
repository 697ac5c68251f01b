#include <gtest/gtest.h>
#include <sys/resource.h>
#include <tarn.hpp>

#include <cstdlib>
#include <string>
#include <utility>

#include "support/failing_memory.h"

namespace {

// An element as a line: (name attribute=value "text" (child)), raw text between angles.
std::string lineOf(tarn::ElementView element) {
  if (!element.name()) {
    return (element.is_raw() ? "<" : "\"") + std::string(*element.text()) +
           (element.is_raw() ? ">" : "\"");
  }
  std::string line = "(" + std::string(*element.name());
  for (const tarn::AttributeView attribute : element.attributes()) {
    line.append(" ").append(*attribute.name());
    if (attribute.value()) line.append(attribute.is_raw() ? ":=" : "=").append(*attribute.value());
  }
  if (element.text()) line.append(" \"").append(*element.text()).append("\"");
  for (const tarn::ElementView child : element.children()) line.append(" ").append(lineOf(child));
  return line + ")";
}

TEST(CppElement, IsBuiltFromPieces) {
  const std::string_view name("Ada, and more", 3);
  const tarn::Element element("p", tarn::Attribute("class", "x"), "Hello, ", name,
                              tarn::Element("b", "!"), tarn::Raw("<br>"));
  EXPECT_EQ("(p class=x \"Hello, \" \"Ada\" (b \"!\") <<br>>)", lineOf(element.view()));
}

TEST(CppElement, AcceptsEveryKindOfText) {
  const std::string string = "string";
  const tarn::String own("own");
  const std::optional<std::string_view> maybe = "maybe";
  const tarn::Element element("p", string, own.view(), std::string_view("viewed", 4),
                              maybe.value_or(""), std::string_view("a\0b", 3), "");
  EXPECT_EQ("(p \"string\" \"own\" \"view\" \"maybe\" \"a\" \"\")", lineOf(element.view()));
}

TEST(CppElement, WritesWholeNumbersInDecimal) {
  tarn::Element element("p", 5, -7L, std::uint64_t{18446744073709551615U}, INT64_MIN);
  element.add(0).add(tarn::Attribute("maxlength", 40)).add(tarn::Attribute("min", 0));
  element.add(tarn::Attribute("small", std::int8_t{-128}));
  EXPECT_EQ(
      "(p maxlength=40 min=0 small=-128 \"5\" \"-7\" \"18446744073709551615\" "
      "\"-9223372036854775808\" \"0\")",
      lineOf(element.view()));
}

// As if memory had run out.
TEST(CppElement, IsEmptyIfATextIsANullPointer) {
  const char *const unset = std::getenv("TARN_TEST_UNSET");
  ASSERT_EQ(nullptr, unset);
  EXPECT_FALSE(tarn::Element("p", unset));
  EXPECT_FALSE(tarn::Element(unset));
  EXPECT_FALSE(tarn::Element("p", tarn::Raw(unset)));
  EXPECT_FALSE(tarn::Element("p", tarn::Attribute("title", unset)));
  EXPECT_FALSE(tarn::Attribute("title", unset));
  EXPECT_FALSE(tarn::Attribute(unset, "x"));
  EXPECT_FALSE(tarn::Attribute(unset));
  EXPECT_FALSE(tarn::Attribute("onclick", tarn::Raw(unset)));
  EXPECT_FALSE(tarn::ElementList().add(unset));
  EXPECT_FALSE(tarn::Raw(unset));
  EXPECT_EQ("", tarn::Raw(unset).text());
  tarn::Element parent("main", "text");
  parent.add(tarn::Element("p", unset));
  EXPECT_FALSE(parent);
}

TEST(CppElement, IsStoredAfterAChainOfAdds) {
  tarn::Element list = tarn::Element("ul").add("text").add(tarn::Element("li", 1));
  list.add(tarn::Element("li", 2));
  EXPECT_EQ("(ul \"text\" (li \"1\") (li \"2\"))", lineOf(list.view()));
  const auto make = [] { return tarn::Element("b").add(tarn::Attribute("id", "x")); };
  const tarn::Element made = make();
  EXPECT_EQ("(b id=x)", lineOf(made.view()));
  const tarn::ElementList elements =
      tarn::ElementList().add("a").add(tarn::Raw("b")).add(tarn::Element("c"));
  EXPECT_EQ(3U, elements.size());
  const tarn::AttributeList attributes =
      tarn::AttributeList().add(tarn::Attribute("a")).add(tarn::Attribute("b"));
  EXPECT_EQ(2U, attributes.size());
}

TEST(CppRaw, CopiesTemporariesAndViewsOthers) {
  const auto make = [] { return "<p>" + std::string(100, 'x') + "</p>"; };
  const tarn::Raw copy(make());
  const std::string overwritten(200, '-');
  EXPECT_EQ(make(), copy.text());
  const tarn::Raw another = copy;  // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_EQ(make(), another.text());
  EXPECT_NE(copy.text().data(), another.text().data());
  const std::string named = make();
  EXPECT_EQ(named.data(), tarn::Raw(named).text().data());
  const char *const literal = "<br>";
  EXPECT_EQ(literal, tarn::Raw(literal).text().data());
  EXPECT_EQ("7", tarn::Raw(7).text());
  const tarn::Raw page(tarn::html(tarn::Element("br")).view());
  const tarn::Raw pointed(make().c_str());
  EXPECT_EQ("<br>", page.text());
  EXPECT_EQ(make(), pointed.text());
}

TEST(CppRaw, IsEmptyIfItCannotBeCopied) {
  std::string text(1000, 'x');
  bool has = true;
  bool made = true;
  tarn_test::withoutMemory([&] {
    const tarn::Raw raw(std::move(text));
    has = static_cast<bool>(raw);
    made = static_cast<bool>(tarn::Element("p", raw));
  });
  EXPECT_FALSE(has);
  EXPECT_FALSE(made);
}

TEST(CppElement, MayBeEmpty) {
  const tarn::Element element("br");
  EXPECT_TRUE(element);
  EXPECT_EQ("br", element.view().name());
  EXPECT_EQ(std::nullopt, element.view().text());
  EXPECT_FALSE(element.view().is_raw());
  EXPECT_TRUE(element.view().attributes().empty());
  EXPECT_TRUE(element.view().children().empty());
}

TEST(CppElement, AcceptsPiecesOneByOne) {
  tarn::Element list("ul");
  list.add(tarn::Attribute("id", "x")).add("text").add(tarn::Raw("<!-- -->"));
  list.add(tarn::Element("li", "one")).add(tarn::Attribute("hidden"));
  EXPECT_EQ("(ul id=x hidden \"text\" <<!-- -->> (li \"one\"))", lineOf(list.view()));
}

TEST(CppElement, MovesAChildWithoutACopy) {
  tarn::Element child("b", "x");
  const char *name = child.view().name()->data();
  tarn::Attribute attribute("id", "y");
  const char *value = attribute.view().value()->data();
  const tarn::Element element("p", std::move(child), std::move(attribute));
  EXPECT_FALSE(child);
  EXPECT_FALSE(attribute);
  EXPECT_EQ(name, element.view().children()[0].name()->data());
  EXPECT_EQ(value, element.view().attributes()[0].value()->data());
}

TEST(CppElement, MovesWholeLists) {
  tarn::ElementList elements;
  elements.add(tarn::Element("a")).add("b").add(tarn::Raw("c"));
  tarn::AttributeList attributes;
  attributes.add(tarn::Attribute("d", "1")).add(tarn::Attribute("d", "2"));
  tarn::Element element("p", "first", std::move(elements), std::move(attributes), "last");
  EXPECT_EQ("(p d=1 d=2 \"first\" (a) \"b\" <c> \"last\")", lineOf(element.view()));
  EXPECT_TRUE(elements);
  EXPECT_TRUE(elements.empty());
  EXPECT_TRUE(attributes.empty());
  element.add(std::move(elements));
  EXPECT_EQ(5U, element.view().children().size()) << "an empty list adds nothing";
  elements.add("again");
  EXPECT_EQ(1U, elements.size());
}

TEST(CppElement, IsEmptyWhenAPieceIsEmpty) {
  tarn::Element child("b");
  const tarn::Element parent("p", std::move(child));
  EXPECT_TRUE(parent);
  tarn::Element other("p", std::move(child), "text");
  EXPECT_FALSE(other);
  other.add("more").add(tarn::Attribute("id"));
  EXPECT_FALSE(other);
  EXPECT_EQ(std::nullopt, other.view().name());
  EXPECT_TRUE(other.view().children().empty());
}

TEST(CppElement, CannotContainItself) {
  tarn::Element element("p");
  element.add(std::move(element));
  EXPECT_FALSE(element);
}

TEST(CppElement, ShowsTextsAtTheirPlaceInTheTree) {
  TarnHandle made = 0;
  ASSERT_EQ(TARN_OK, CGIgs_new(&made, TARN_ELEMENT_MAGIC));
  CGIgs_setString(&made, TARN_ELEMENT_NAME, "p", TARN_ELEMENT_MAGIC);
  CGIgs_setString(&made, TARN_ELEMENT_TEXT, "own", TARN_ELEMENT_MAGIC);
  tarn::Element element(tarn::adopt, made);
  element.add("child");
  EXPECT_EQ("(p \"own\" \"child\")", lineOf(element.view()));
}

TEST(CppElement, IsReadAndChangedByFunctionsOfTarnH) {
  tarn::Element element("p", tarn::Attribute("id", "x"), "text");
  TarnHandle attributes =
      CGIgs_getStruct(element.handle(), TARN_ELEMENT_ATTRIBUTES, TARN_ELEMENT_MAGIC);
  EXPECT_EQ(1, HTMLAttributeList_getCount(&attributes));
  tarn::Element child("b");
  EXPECT_EQ(TARN_OK, HTMLElement_addElement(element.handle(), child.handle()));
  tarn::Attribute attribute("id", "y");
  EXPECT_EQ(TARN_OK, HTMLElement_addAttribute(element.handle(), attribute.handle()));
  element.add("end");
  EXPECT_EQ("(p id=x id=y \"text\" (b) \"end\")", lineOf(element.view()));
  tarn::ElementView view = element.view();
  EXPECT_EQ(0, HTMLElement_compare(view.handle(), element.handle()));
}

TEST(CppElement, KeepsTheRawMarkInAClone) {
  const tarn::Element element("p", tarn::Attribute("onclick", tarn::Raw("f()")), tarn::Raw("<i>"));
  const tarn::Element copy = element.clone();
  EXPECT_EQ("(p onclick:=f() <<i>>)", lineOf(copy.view()));
  tarn::ElementView raw = copy.view().children()[0];
  EXPECT_EQ(tarn::raw_mark, CGIgs_getInt(raw.handle(), TARN_ELEMENT_NUMBER, TARN_ELEMENT_MAGIC));
  EXPECT_FALSE(copy.view().is_raw());
}

// The tree is built from the inside out, so copying children would copy it at every level. It is
// deleted on a stack that is too small for a call a level.
TEST(CppElement, MayHaveAnyDepth) {
  tarn::Element tree("innermost");
  for (int i = 0; i < 200000; ++i) tree = tarn::Element("div", std::move(tree));
  ASSERT_TRUE(tree);
  int depth = 0;
  tarn::ElementView at = tree.view();
  for (; !at.children().empty(); at = at.children()[0]) ++depth;
  EXPECT_EQ(200000, depth);
  EXPECT_EQ("innermost", at.name());
}

TEST(CppElement, TakesLinearTimeForManyChildren) {
  tarn::Element list("ul");
  for (int i = 0; i < 200000; ++i) list.add(tarn::Element("li"));
  EXPECT_EQ(200000U, list.view().children().size());
}

TEST(CppAttribute, HasANameAndMayHaveAValue) {
  const tarn::Attribute attribute("name", "value");
  EXPECT_EQ("name", attribute.view().name());
  EXPECT_EQ("value", attribute.view().value());
  EXPECT_FALSE(attribute.view().is_raw());
  const tarn::Attribute required("required");
  EXPECT_EQ(std::nullopt, required.view().value());
  const tarn::Attribute empty("value", "");
  EXPECT_EQ("", empty.view().value());
  const tarn::Attribute raw("onclick", tarn::Raw("f()"));
  EXPECT_EQ("f()", raw.view().value());
  EXPECT_TRUE(raw.view().is_raw());
}

TEST(CppElementList, ShowsItsElements) {
  tarn::ElementList list;
  list.add(tarn::Element("a")).add(tarn::Element("b"));
  ASSERT_EQ(2U, list.size());
  EXPECT_FALSE(list.empty());
  EXPECT_EQ("b", list[1].name());
  EXPECT_FALSE(list[2]);
  std::string names;
  for (const tarn::ElementView element : list) names += *element.name();
  EXPECT_EQ("ab", names);
  EXPECT_EQ(1, HTMLElementList_getCount(list.handle()) - 1);
}

TEST(CppAttributeList, ShowsItsAttributes) {
  tarn::AttributeList list;
  list.add(tarn::Attribute("a", "1")).add(tarn::Attribute("b"));
  ASSERT_EQ(2U, list.size());
  EXPECT_EQ("1", list[0].value());
  EXPECT_EQ(std::nullopt, list[1].value());
  std::string names;
  for (const tarn::AttributeView attribute : list) names += *attribute.name();
  EXPECT_EQ("ab", names);
}

}  // namespace
