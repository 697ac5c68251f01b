#include <gtest/gtest.h>
#include <sys/resource.h>
#include <tarn.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <utility>

#include "support/failing_memory.h"
#include "support/handles.h"
#include "support/script.h"

namespace {

using tarn_test::Node;
using tarn_test::withEveryOtherType;

struct Attribute : Node {
  explicit Attribute(const char *name, const char *value = nullptr) : Node(TARN_ATTRIBUTE_MAGIC) {
    HTMLAttribute_init(*this, name, value);
  }
};

struct Element : Node {
  Element() : Node(TARN_ELEMENT_MAGIC) {}
  explicit Element(const char *name) : Element() { setName(name); }
  Element(const char *name, std::initializer_list<const char *> children) : Element(name) {
    for (const char *child : children) add(Element(child));
  }
  ~Element() { HTMLElement_delete(*this); }

  void setName(const char *name) {
    CGIgs_setString(*this, TARN_ELEMENT_NAME, name, TARN_ELEMENT_MAGIC);
  }
  void add(TarnHandle *child) { ASSERT_EQ(TARN_OK, HTMLElement_addElement(*this, child)); }
  void addAttribute(const char *name, const char *value = nullptr) {
    Attribute attribute(name, value);
    ASSERT_EQ(TARN_OK, HTMLElement_addAttribute(*this, attribute));
  }
};

// An empty handle; deletes the element that it holds at the end.
struct Destination : Node {
  ~Destination() { HTMLElement_delete(*this); }
};

struct AttributeList : Node {
  AttributeList(std::initializer_list<const char *> names = {}) : Node(TARN_ATTRIBUTE_LIST_MAGIC) {
    for (const char *name : names) {
      Attribute attribute(name);
      EXPECT_EQ(TARN_OK, HTMLAttributeList_addAttribute(*this, attribute));
    }
  }
  ~AttributeList() { HTMLAttributeList_delete(*this); }
};

struct ElementList : Node {
  ElementList(std::initializer_list<const char *> names = {}) : Node(TARN_ELEMENT_LIST_MAGIC) {
    for (const char *name : names) add(Element(name));
  }
  ~ElementList() { HTMLElementList_delete(*this); }

  void add(TarnHandle *element) { ASSERT_EQ(TARN_OK, HTMLElementList_addElement(*this, element)); }
};

TarnHandle attributesOf(TarnHandle *element) {
  return CGIgs_getStruct(element, TARN_ELEMENT_ATTRIBUTES, TARN_ELEMENT_MAGIC);
}

TarnHandle embeddedOf(TarnHandle *element) {
  return CGIgs_getStruct(element, TARN_ELEMENT_EMBEDDED, TARN_ELEMENT_MAGIC);
}

uint32_t attributeCount(TarnHandle *element) {
  TarnHandle list = attributesOf(element);
  return static_cast<uint32_t>(HTMLAttributeList_getCount(&list));
}

uint32_t childCount(TarnHandle *element) {
  TarnHandle list = embeddedOf(element);
  return static_cast<uint32_t>(HTMLElementList_getCount(&list));
}

// Borrowed from the element.
TarnHandle childOf(TarnHandle *element, uint32_t index) {
  TarnHandle list = embeddedOf(element);
  return HTMLElementList_getByIndex(&list, index);
}

TarnHandle attributeOf(TarnHandle *element, uint32_t index) {
  TarnHandle list = attributesOf(element);
  return HTMLAttributeList_getByIndex(&list, index);
}

std::string text(TarnHandle node, uint32_t slot) {
  const char *found = CGIgs_getString(&node, slot, 0);
  return found ? found : "-";
}

// A tree as text: ul"second"#7[class=x id=-]{li{} li}. Brackets and braces are printed only if
// there is a list; a missing text is "-"; a missing second text and a number of 0 are omitted.
std::string toText(TarnHandle element) {
  EXPECT_EQ(TARN_ELEMENT_MAGIC, CGIgs_getMagic(&element));
  std::string all = text(element, TARN_ELEMENT_NAME);
  if (CGIgs_getString(&element, TARN_ELEMENT_TEXT, 0))
    all += '"' + text(element, TARN_ELEMENT_TEXT) + '"';
  const auto number = static_cast<int32_t>(CGIgs_getInt(&element, TARN_ELEMENT_NUMBER, 0));
  if (number) all += "#" + std::to_string(number);
  if (attributesOf(&element)) {
    all += "[";
    for (uint32_t i = 0; i < attributeCount(&element); ++i) {
      const TarnHandle attribute = attributeOf(&element, i);
      all += (i ? " " : "") + text(attribute, TARN_ATTRIBUTE_NAME) + "=" +
             text(attribute, TARN_ATTRIBUTE_VALUE);
    }
    all += "]";
  }
  if (embeddedOf(&element)) {
    all += "{";
    for (uint32_t i = 0; i < childCount(&element); ++i) {
      all += (i ? " " : "") + toText(childOf(&element, i));
    }
    all += "}";
  }
  return all;
}

std::string toText(TarnHandle *element) { return toText(*element); }

std::string listToText(TarnHandle *list) {
  std::string all;
  for (uint32_t i = 0; i < static_cast<uint32_t>(HTMLElementList_getCount(list)); ++i) {
    all += (i ? " " : "") + toText(HTMLElementList_getByIndex(list, i));
  }
  return all;
}

// Two levels with everything that an element can have.
struct Page : Element {
  Page() : Element("ul") {
    CGIgs_setString(*this, TARN_ELEMENT_TEXT, "menu", TARN_ELEMENT_MAGIC);
    CGIgs_setInt(*this, TARN_ELEMENT_NUMBER, static_cast<uint32_t>(-7), TARN_ELEMENT_MAGIC);
    addAttribute("class", "x");
    addAttribute("hidden");
    Element first("li", {"a"});
    first.addAttribute("id", "1");
    add(first);
    add(Element("li", {"b"}));
  }
};
constexpr const char *kPage = "ul\"menu\"#-7[class=x hidden=-]{li[id=1]{a} li{b}}";

// A script can add any address to the generic list inside a borrowed list.
void addForeign(TarnHandle list, TarnHandle address) {
  TarnHandle inner = CGIgs_getList(&list, TARN_LIST_ELEMENTS, TARN_ELEMENT_LIST_MAGIC);
  ASSERT_EQ(TARN_OK, TARNGenericList_addDatum(&inner, address));
}

// ---- One element --------------------------------------------------------------------------------

TEST(HTMLElement, StartsEmpty) {
  Element element;
  EXPECT_EQ(58413U, CGIgs_getMagic(element));
  EXPECT_EQ("-", toText(element));
}

TEST(HTMLElement, ToHtmlReturnsNotYetImplementedWithoutAFullStopForAnyHandle) {
  Page page;
  const char *answer = HTMLElement_toHTML(page);
  EXPECT_STREQ("Not yet implemented", answer);
  withEveryOtherType(
      [&](TarnHandle *stranger) { EXPECT_EQ(answer, HTMLElement_toHTML(stranger)); });
  EXPECT_EQ(kPage, toText(page));
}

// ---- Comparing elements -------------------------------------------------------------------------

TEST(HTMLElement, CompareOrdersByNameAscending) {
  Element a("a");
  Element b("b");
  Element longer("aa");
  EXPECT_LT(HTMLElement_compare(a, b), 0);
  EXPECT_GT(HTMLElement_compare(b, a), 0);
  EXPECT_LT(HTMLElement_compare(a, longer), 0);
  EXPECT_GT(HTMLElement_compare(b, longer), 0);
}

TEST(HTMLElement, CompareHasTheOppositeSignOfCookieCompare) {
  Element a("a");
  Element b("b");
  Node cookieA(TARN_COOKIE_MAGIC);
  Node cookieB(TARN_COOKIE_MAGIC);
  HTTPCookie_init(cookieA, "a", "", nullptr, nullptr, 0, nullptr, 0);
  HTTPCookie_init(cookieB, "b", "", nullptr, nullptr, 0, nullptr, 0);
  EXPECT_LT(HTMLElement_compare(a, b), 0);
  EXPECT_GT(HTTPCookie_compare(cookieA, cookieB), 0);
}

TEST(HTMLElement, CompareIsCaseSensitiveAndComparesUnsignedBytes) {
  Element upper("B");
  Element lower("a");
  Element high("\xff");
  EXPECT_LT(HTMLElement_compare(upper, lower), 0);
  EXPECT_GT(HTMLElement_compare(lower, upper), 0);
  EXPECT_GT(HTMLElement_compare(high, lower), 0);
  EXPECT_LT(HTMLElement_compare(lower, high), 0);
}

TEST(HTMLElement, CompareIgnoresEverythingExceptTheName) {
  Page page;
  Element bare("ul");
  EXPECT_EQ(0, HTMLElement_compare(page, bare));
  EXPECT_EQ(0, HTMLElement_compare(bare, page));
  EXPECT_EQ(0, HTMLElement_compare(page, page));
}

TEST(HTMLElement, CompareReturnsMinusOneWhenEitherHandleIsNotAnElement) {
  Element element("a");
  Attribute attribute("a");
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(-1, HTMLElement_compare(stranger, element));
    EXPECT_EQ(-1, HTMLElement_compare(element, stranger));
    EXPECT_EQ(-1, HTMLElement_compare(stranger, stranger));
  });
  EXPECT_EQ(-1, HTMLElement_compare(attribute, element));
  EXPECT_EQ(-1, HTMLElement_compare(element, attribute));
}

TEST(HTMLElement, CompareOrdersAMissingNameFirstAndTwoMissingNamesAsEqual) {
  Element nameless;
  Element another;
  Element empty("");
  EXPECT_LT(HTMLElement_compare(nameless, empty), 0);
  EXPECT_GT(HTMLElement_compare(empty, nameless), 0);
  EXPECT_EQ(0, HTMLElement_compare(nameless, another));
}

// ---- Attributes of an element -------------------------------------------------------------------

TEST(HTMLElement, FirstAttributeCreatesTheListAndEachIsCopied) {
  Element element("a");
  Attribute attribute("href", "/");
  EXPECT_EQ(TARN_OK, HTMLElement_addAttribute(element, attribute));
  EXPECT_EQ(140637U, CGIgs_getChildMagic(element, TARN_ELEMENT_ATTRIBUTES, TARN_ELEMENT_MAGIC));
  HTMLAttribute_init(attribute, "id", "x");
  EXPECT_EQ(TARN_OK, HTMLElement_addAttribute(element, attribute));
  CGIgs_delete(attribute, TARN_ATTRIBUTE_MAGIC);
  EXPECT_EQ("a[href=/ id=x]", toText(element));
}

TEST(HTMLElement, SameAttributeAddedTwiceIsKeptTwice) {
  Element element("a");
  Attribute attribute("id", "x");
  EXPECT_EQ(TARN_OK, HTMLElement_addAttribute(element, attribute));
  EXPECT_EQ(TARN_OK, HTMLElement_addAttribute(element, attribute));
  EXPECT_EQ("a[id=x id=x]", toText(element));
  EXPECT_NE(attributeOf(element, 0), attributeOf(element, 1));
}

TEST(HTMLElement, AddAttributeAcceptsTheElementsOwnAttribute) {
  Element element("a");
  element.addAttribute("id", "x");
  for (int copies = 1; copies < 25; ++copies) {
    SCOPED_TRACE(copies);
    TarnHandle lent = attributeOf(element, 0);
    ASSERT_EQ(TARN_OK, HTMLElement_addAttribute(element, &lent));
  }
  EXPECT_EQ(25U, attributeCount(element));
  EXPECT_EQ("x", text(attributeOf(element, 24), 1));
}

TEST(HTMLElement, BorrowedListsShowWhatIsAddedLater) {
  Element element("a");
  element.addAttribute("id", "x");
  element.add(Element("b"));
  TarnHandle attributes = attributesOf(element);
  TarnHandle embedded = embeddedOf(element);
  element.addAttribute("class");
  element.add(Element("c"));
  EXPECT_EQ(2, HTMLAttributeList_getCount(&attributes));
  EXPECT_EQ("b c", listToText(&embedded));
  EXPECT_EQ(TARN_OK, HTMLAttributeList_addAttribute(&attributes, Attribute("lang", "en")));
  EXPECT_EQ(TARN_OK, HTMLElementList_addElement(&embedded, Element("d")));
  EXPECT_EQ("a[id=x class=- lang=en]{b c d}", toText(element));
}

TEST(HTMLElement, AddAttributeToAnotherTypeReturnsWrongTypeEvenWithoutAnAttribute) {
  Attribute attribute("id", "x");
  AttributeList list;
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addAttribute(stranger, attribute));
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addAttribute(stranger, nullptr));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addAttribute(list, attribute));
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addAttribute(attribute, attribute));
}

TEST(HTMLElement, AddAttributeOfAnotherTypeReturnsBadArgumentAndCreatesNoList) {
  Element element("a");
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_addAttribute(element, stranger));
  });
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_addAttribute(element, element));
  EXPECT_EQ("a", toText(element));
}

TEST(HTMLElement, SetAttributesStoresACopyOfTheList) {
  Element element("a");
  AttributeList list{"id", "class"};
  EXPECT_EQ(TARN_OK, HTMLElement_setAttributes(element, list));
  EXPECT_NE(list.value(), attributesOf(element));
  EXPECT_EQ(140637U, CGIgs_getChildMagic(element, TARN_ELEMENT_ATTRIBUTES, TARN_ELEMENT_MAGIC));
  HTMLAttributeList_addAttribute(list, Attribute("later"));
  EXPECT_EQ("a[id=- class=-]", toText(element));
  element.addAttribute("own");
  EXPECT_EQ(3, HTMLAttributeList_getCount(list));
  HTMLAttributeList_delete(list);
  EXPECT_EQ("a[id=- class=- own=-]", toText(element));
}

TEST(HTMLElement, SetAttributesReplacesTheOldOnes) {
  Element element("a");
  element.addAttribute("old");
  EXPECT_EQ(TARN_OK, HTMLElement_setAttributes(element, AttributeList{"new"}));
  EXPECT_EQ("a[new=-]", toText(element));
  EXPECT_EQ(TARN_OK, HTMLElement_setAttributes(element, AttributeList()));
  EXPECT_EQ("a[]", toText(element));
  element.addAttribute("again");
  EXPECT_EQ("a[again=-]", toText(element));
}

TEST(HTMLElement, SetAttributesAcceptsTheElementsOwnList) {
  Element element("a");
  element.addAttribute("id", "x");
  element.addAttribute("class", "y");
  TarnHandle lent = attributesOf(element);
  EXPECT_EQ(TARN_OK, HTMLElement_setAttributes(element, &lent));
  EXPECT_EQ("a[id=x class=y]", toText(element));
}

TEST(HTMLElement, SetAttributesOnAnotherTypeReturnsWrongTypeEvenWithoutAList) {
  AttributeList list{"id"};
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_setAttributes(stranger, list));
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_setAttributes(stranger, nullptr));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_setAttributes(list, list));
}

TEST(HTMLElement, SetAttributesWithoutAListReturnsBadArgumentAndKeepsTheOldOnes) {
  Element element("a");
  Attribute attribute("id");
  element.addAttribute("old");
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_setAttributes(element, stranger));
  });
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_setAttributes(element, attribute));
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_setAttributes(element, element));
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_setAttributes(element, Node(TARN_COOKIE_LIST_MAGIC)));
  EXPECT_EQ(TARN_BAD_ARGUMENT,
            HTMLElement_setAttributes(element, Node(TARN_FORM_ENTRY_LIST_MAGIC)));
  EXPECT_EQ("a[old=-]", toText(element));
}

TEST(HTMLElement, SetAttributesToAnEmptyElementListLeavesNoAttributes) {
  Element element("a");
  EXPECT_EQ(TARN_OK, HTMLElement_setAttributes(element, ElementList()));
  EXPECT_EQ("a[]", toText(element));
  element.addAttribute("id", "x");
  EXPECT_EQ("a[id=x]", toText(element));
}

TEST(HTMLElement, SetAttributesToAListWithAnElementReturnsWrongTypeAndStoresNothing) {
  Element element("a");
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_setAttributes(element, ElementList{"b"}));
  EXPECT_EQ("a", toText(element));
  element.addAttribute("id", "x");
  EXPECT_EQ("a[id=x]", toText(element));
}

TEST(HTMLElement, SetAttributesLosesTheOldOnesWhenItFails) {
  Element element("a");
  element.addAttribute("old");
  AttributeList mixed{"id"};
  HTMLElementList_addElement(mixed, Element("b"));
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_setAttributes(element, mixed));
  EXPECT_EQ("a", toText(element));
  EXPECT_EQ(2, HTMLAttributeList_getCount(mixed));
  element.addAttribute("new");
  EXPECT_EQ("a[new=-]", toText(element));
}

TEST(HTMLElement, SetAttributesToItsOwnChildListReturnsWrongTypeAndKeepsTheChildren) {
  Element element("a", {"b"});
  element.addAttribute("id");
  TarnHandle embedded = embeddedOf(element);
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_setAttributes(element, &embedded));
  EXPECT_EQ("a{b}", toText(element));
}

// ---- Embedded elements --------------------------------------------------------------------------

TEST(HTMLElement, FirstChildCreatesTheListAndIsItsFirstElement) {
  Element element("p");
  Element child("b");
  EXPECT_EQ(TARN_OK, HTMLElement_addElement(element, child));
  EXPECT_EQ(140637U, CGIgs_getChildMagic(element, TARN_ELEMENT_EMBEDDED, TARN_ELEMENT_MAGIC));
  EXPECT_NE(child.value(), childOf(element, 0));
  EXPECT_EQ("p{b}", toText(element));
}

TEST(HTMLElement, ChildrenKeepTheOrderAddedIncludingEqualNames) {
  Element element("p", {"b", "a", "b"});
  EXPECT_EQ("p{b a b}", toText(element));
}

TEST(HTMLElement, ChildInTheTreeIsIndependentOfTheCallersChild) {
  Element element("p");
  Page child;
  element.add(child);
  const std::string before = "p{" + std::string(kPage) + "}";
  EXPECT_EQ(before, toText(element));

  child.setName("changed");
  child.addAttribute("later");
  child.add(Element("later"));
  TarnHandle grandchild = childOf(child, 0);
  CGIgs_setString(&grandchild, TARN_ELEMENT_NAME, "changed", TARN_ELEMENT_MAGIC);
  EXPECT_EQ(before, toText(element));
  HTMLElement_delete(child);
  EXPECT_EQ(before, toText(element));

  Page other;
  element.add(other);
  TarnHandle inTree = childOf(element, 1);
  HTMLElement_clear(&inTree);
  EXPECT_EQ(kPage, toText(other));
  EXPECT_EQ("p{" + std::string(kPage) + " -}", toText(element));
}

TEST(HTMLElement, TreeCanBeBuiltFromTheTopThroughBorrowedChildren) {
  Element table("table", {"tr", "tr"});
  for (uint32_t row = 0; row < 2; ++row) {
    SCOPED_TRACE(row);
    TarnHandle lent = childOf(table, row);
    EXPECT_EQ(TARN_OK, HTMLElement_addElement(&lent, Element("td")));
    EXPECT_EQ(TARN_OK, HTMLElement_addAttribute(&lent, Attribute("id", row ? "b" : "a")));
  }
  EXPECT_EQ("table{tr[id=a]{td} tr[id=b]{td}}", toText(table));
}

// The empty list is created before the element is copied into it.
TEST(HTMLElement, AddedToItselfIsCopiedAsItWas) {
  Element element("a");
  element.addAttribute("id", "x");
  EXPECT_EQ(TARN_OK, HTMLElement_addElement(element, element));
  EXPECT_EQ("a[id=x]{a[id=x]{}}", toText(element));
  EXPECT_EQ(TARN_OK, HTMLElement_addElement(element, element));
  EXPECT_EQ("a[id=x]{a[id=x]{} a[id=x]{a[id=x]{}}}", toText(element));
}

TEST(HTMLElement, AddedToItsDescendantIsCopiedAsItWas) {
  Element element("a", {"b"});
  TarnHandle child = childOf(element, 0);
  EXPECT_EQ(TARN_OK, HTMLElement_addElement(&child, element));
  EXPECT_EQ("a{b{a{b{}}}}", toText(element));
  TarnHandle list = embeddedOf(element);
  EXPECT_EQ(TARN_OK, HTMLElementList_addElement(&list, element));
  EXPECT_EQ("a{b{a{b{}}} a{b{a{b{}}}}}", toText(element));
}

TEST(HTMLElement, AddElementAcceptsTheElementsOwnChild) {
  Element element("a");
  element.add(Page());
  for (int copies = 1; copies < 25; ++copies) {
    SCOPED_TRACE(copies);
    TarnHandle lent = childOf(element, 0);
    ASSERT_EQ(TARN_OK, HTMLElement_addElement(element, &lent));
  }
  EXPECT_EQ(25U, childCount(element));
  EXPECT_EQ(kPage, toText(childOf(element, 24)));
}

TEST(HTMLElement, AddElementToAnotherTypeReturnsWrongTypeEvenWithoutAChild) {
  Element element("a");
  ElementList list;
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addElement(stranger, element));
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addElement(stranger, nullptr));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addElement(list, element));
}

TEST(HTMLElement, AddElementOfAnotherTypeReturnsBadArgumentAndCreatesNoList) {
  Element element("a");
  ElementList list;
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_addElement(element, stranger));
  });
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_addElement(element, list));
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_addElement(element, Attribute("id")));
  EXPECT_EQ("a", toText(element));
}

TEST(HTMLElement, AddElementThatCannotBeCopiedReturnsWrongTypeAndLeavesAnEmptyList) {
  Attribute foreign("id");
  Element child("b", {"c"});
  addForeign(embeddedOf(child), foreign.value());
  Element element("a");
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addElement(element, child));
  EXPECT_EQ("a{}", toText(element));
  element.add(Element("d"));
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addElement(element, child));
  EXPECT_EQ("a{d}", toText(element));
}

TEST(HTMLElement, SetEmbeddedStoresACopyOfTheListWithTheSubtrees) {
  Element element("div");
  ElementList list{"p"};
  list.add(Page());
  EXPECT_EQ(TARN_OK, HTMLElement_setEmbedded(element, list));
  EXPECT_NE(list.value(), embeddedOf(element));
  EXPECT_EQ(140637U, CGIgs_getChildMagic(element, TARN_ELEMENT_EMBEDDED, TARN_ELEMENT_MAGIC));
  const std::string before = "div{p " + std::string(kPage) + "}";
  list.add(Element("later"));
  TarnHandle page = HTMLElementList_getByIndex(list, 1);
  HTMLElement_clear(&page);
  EXPECT_EQ(before, toText(element));
  TarnHandle first = childOf(element, 0);
  CGIgs_setString(&first, TARN_ELEMENT_NAME, "q", TARN_ELEMENT_MAGIC);
  EXPECT_EQ("p - later", listToText(list));
  HTMLElementList_delete(list);
  EXPECT_EQ("div{q " + std::string(kPage) + "}", toText(element));
}

TEST(HTMLElement, SetEmbeddedReplacesTheOldElements) {
  Element element("p", {"old"});
  EXPECT_EQ(TARN_OK, HTMLElement_setEmbedded(element, ElementList{"new", "newer"}));
  EXPECT_EQ("p{new newer}", toText(element));
  EXPECT_EQ(TARN_OK, HTMLElement_setEmbedded(element, ElementList()));
  EXPECT_EQ("p{}", toText(element));
  element.add(Element("again"));
  EXPECT_EQ("p{again}", toText(element));
}

TEST(HTMLElement, SetEmbeddedAcceptsTheElementsOwnList) {
  Page page;
  TarnHandle lent = embeddedOf(page);
  EXPECT_EQ(TARN_OK, HTMLElement_setEmbedded(page, &lent));
  EXPECT_EQ(kPage, toText(page));
}

TEST(HTMLElement, SetEmbeddedAcceptsAListOfADescendantAndOfAnAncestor) {
  Element element("a");
  element.add(Element("b", {"c", "d"}));
  TarnHandle child = childOf(element, 0);
  TarnHandle below = embeddedOf(&child);
  EXPECT_EQ(TARN_OK, HTMLElement_setEmbedded(element, &below));
  EXPECT_EQ("a{c d}", toText(element));

  child = childOf(element, 1);
  TarnHandle above = embeddedOf(element);
  EXPECT_EQ(TARN_OK, HTMLElement_setEmbedded(&child, &above));
  EXPECT_EQ("a{c d{c d}}", toText(element));
}

TEST(HTMLElement, SetEmbeddedOnAnotherTypeReturnsWrongTypeEvenWithoutAList) {
  ElementList list{"a"};
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_setEmbedded(stranger, list));
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_setEmbedded(stranger, nullptr));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_setEmbedded(list, list));
}

TEST(HTMLElement, SetEmbeddedWithoutAListReturnsBadArgumentAndKeepsTheOldElements) {
  Element element("p", {"old"});
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_setEmbedded(element, stranger));
  });
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_setEmbedded(element, element));
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_setEmbedded(element, Attribute("id")));
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_setEmbedded(element, Node(TARN_FORM_FILE_LIST_MAGIC)));
  EXPECT_EQ("p{old}", toText(element));
}

TEST(HTMLElement, SetEmbeddedToAnEmptyAttributeListLeavesNoElements) {
  Element element("p");
  EXPECT_EQ(TARN_OK, HTMLElement_setEmbedded(element, AttributeList()));
  EXPECT_EQ("p{}", toText(element));
  element.add(Element("b"));
  EXPECT_EQ("p{b}", toText(element));
}

TEST(HTMLElement, SetEmbeddedToAListWithAnAttributeReturnsWrongTypeAndStoresNothing) {
  Element element("p");
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_setEmbedded(element, AttributeList{"id"}));
  EXPECT_EQ("p", toText(element));
  element.add(Element("b"));
  EXPECT_EQ("p{b}", toText(element));
}

TEST(HTMLElement, SetEmbeddedLosesTheOldElementsWhenItFails) {
  Element element("p", {"old"});
  element.addAttribute("id");
  ElementList mixed{"a"};
  HTMLAttributeList_addAttribute(mixed, Attribute("id"));
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_setEmbedded(element, mixed));
  EXPECT_EQ("p[id=-]", toText(element));
  element.add(Element("new"));
  EXPECT_EQ("p[id=-]{new}", toText(element));
}

TEST(HTMLElement, SetEmbeddedToItsOwnListLosesItWhenItCannotBeCopied) {
  Attribute foreign("id");
  Element element("p", {"b"});
  TarnHandle lent = embeddedOf(element);
  addForeign(lent, foreign.value());
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_setEmbedded(element, &lent));
  EXPECT_EQ("p", toText(element));
  EXPECT_EQ("id", text(foreign.value(), TARN_ELEMENT_NAME));
}

// ---- Copying an element -------------------------------------------------------------------------

TEST(HTMLElement, CloneCopiesNameSecondTextNumberAttributesAndChildren) {
  Page page;
  Destination copy;
  EXPECT_EQ(TARN_OK, HTMLElement_clone(page, copy));
  EXPECT_EQ(kPage, toText(copy));
  EXPECT_EQ(140637U, CGIgs_getChildMagic(copy, TARN_ELEMENT_ATTRIBUTES, TARN_ELEMENT_MAGIC));
  EXPECT_EQ(140637U, CGIgs_getChildMagic(copy, TARN_ELEMENT_EMBEDDED, TARN_ELEMENT_MAGIC));
  EXPECT_NE(attributesOf(page), attributesOf(copy));
  EXPECT_NE(attributeOf(page, 0), attributeOf(copy, 0));
  EXPECT_NE(embeddedOf(page), embeddedOf(copy));
  EXPECT_NE(childOf(page, 0), childOf(copy, 0));
}

TEST(HTMLElement, CloneAndSourceCanBeDeletedInEitherOrder) {
  Page page;
  Destination copy;
  ASSERT_EQ(TARN_OK, HTMLElement_clone(page, copy));
  EXPECT_EQ(TARN_OK, HTMLElement_delete(page));
  EXPECT_EQ(kPage, toText(copy));

  Destination another;
  ASSERT_EQ(TARN_OK, HTMLElement_clone(copy, another));
  EXPECT_EQ(TARN_OK, HTMLElement_delete(another));
  EXPECT_EQ(kPage, toText(copy));
}

TEST(HTMLElement, CloneAndSourceAreIndependentAtEveryLevel) {
  Page page;
  Destination copy;
  ASSERT_EQ(TARN_OK, HTMLElement_clone(page, copy));
  TarnHandle item = childOf(copy, 1);
  HTMLElement_addElement(&item, Element("c"));
  TarnHandle attribute = attributeOf(copy, 0);
  HTMLAttribute_init(&attribute, "class", "y");
  EXPECT_EQ(kPage, toText(page));
  item = childOf(page, 0);
  HTMLElement_clear(&item);
  EXPECT_EQ("ul\"menu\"#-7[class=y hidden=-]{li[id=1]{a} li{b c}}", toText(copy));
}

TEST(HTMLElement, CloneDistinguishesMissingFromEmptyTextsAndLists) {
  Element bare;
  Element empty("");
  CGIgs_setString(empty, TARN_ELEMENT_TEXT, "", TARN_ELEMENT_MAGIC);
  HTMLElement_setAttributes(empty, AttributeList());
  HTMLElement_setEmbedded(empty, ElementList());
  for (const auto &[source, expected] :
       {std::pair{static_cast<TarnHandle *>(bare), "-"}, {empty, "\"\"[]{}"}}) {
    SCOPED_TRACE(expected);
    TarnHandle copy = 0;
    EXPECT_EQ(TARN_OK, HTMLElement_clone(source, &copy));
    EXPECT_EQ(expected, toText(copy));
    HTMLElement_delete(&copy);
  }
}

TEST(HTMLElement, CloneAndAddedCopyOmitEveryOtherSlot) {
  Element source("a");
  tarn_test::List list{1, 2, 3};
  for (uint32_t slot = 2; slot < 8; ++slot) {
    CGIgs_setString(source, slot, "text", TARN_ELEMENT_MAGIC);
  }
  CGIgs_setInt(source, 1, 1, TARN_ELEMENT_MAGIC);
  CGIgs_setInt(source, 2, 2, TARN_ELEMENT_MAGIC);
  CGIgs_setDouble(source, 0, 0.5, TARN_ELEMENT_MAGIC);
  CGIgs_setFixed(source, 4711, TARN_ELEMENT_MAGIC);
  CGIgs_setList(source, 0, list, TARN_ELEMENT_MAGIC);
  list.forget();
  CGIgs_setStruct(source, 2, Attribute("id"), TARN_ELEMENT_MAGIC, TARN_ATTRIBUTE_MAGIC);

  Destination copy;
  ASSERT_EQ(TARN_OK, HTMLElement_clone(source, copy));
  Element parent("p");
  parent.add(source);
  for (TarnHandle made : {copy.value(), childOf(parent, 0)}) {
    EXPECT_EQ("a", toText(made));
    for (uint32_t slot = 2; slot < 8; ++slot) EXPECT_EQ("-", text(made, slot)) << slot;
    EXPECT_EQ(0U, CGIgs_getInt(&made, 1, TARN_ELEMENT_MAGIC));
    EXPECT_EQ(0U, CGIgs_getInt(&made, 2, TARN_ELEMENT_MAGIC));
    EXPECT_EQ(0.0, CGIgs_getDouble(&made, 0, TARN_ELEMENT_MAGIC));
    EXPECT_EQ(0U, CGIgs_getFixed(&made, TARN_ELEMENT_MAGIC));
    EXPECT_EQ(0U, CGIgs_getList(&made, 0, TARN_ELEMENT_MAGIC));
    EXPECT_EQ(0U, CGIgs_getStruct(&made, 2, TARN_ELEMENT_MAGIC));
  }
  EXPECT_EQ(4711U, CGIgs_getFixed(source, TARN_ELEMENT_MAGIC));
}

TEST(HTMLElement, CloneChecksTheSourceThenTheDestination) {
  Page page;
  Element used("used");
  const TarnHandle before = used.value();
  TarnHandle empty = 0;
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_clone(stranger, &empty));
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_clone(stranger, used));
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_clone(stranger, nullptr));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_clone(Attribute("id"), &empty));
  EXPECT_EQ(0U, empty);
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_clone(page, nullptr));
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_clone(page, used));
  EXPECT_EQ(TARN_BAD_ARGUMENT, HTMLElement_clone(page, page));
  EXPECT_EQ(before, used.value());
  EXPECT_EQ("used", toText(used));
  EXPECT_EQ(kPage, toText(page));
}

TEST(HTMLElement, CloneWithAForeignAttributeCopiesOnlyTheTextsAndTheNumber) {
  Element foreign("b");
  Page page;
  addForeign(attributesOf(page), foreign.value());
  TarnHandle copy = 0;
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_clone(page, &copy));
  EXPECT_EQ("ul\"menu\"#-7", toText(copy));
  HTMLElement_delete(&copy);
}

TEST(HTMLElement, CloneWithAForeignDescendantCopiesEverythingExceptTheChildren) {
  Attribute foreign("id");
  for (const bool deep : {false, true}) {
    SCOPED_TRACE(deep);
    for (const TarnHandle address : {foreign.value(), TarnHandle{0}}) {
      SCOPED_TRACE(address);
      Page page;
      TarnHandle item = childOf(page, 0);
      addForeign(deep ? embeddedOf(&item) : embeddedOf(page), address);
      TarnHandle copy = 0;
      EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_clone(page, &copy));
      EXPECT_EQ("ul\"menu\"#-7[class=x hidden=-]", toText(copy));
      EXPECT_EQ(TARN_OK, HTMLElement_addElement(&copy, Element("li")));
      EXPECT_EQ("ul\"menu\"#-7[class=x hidden=-]{li}", toText(copy));
      HTMLElement_delete(&copy);
    }
  }
}

TEST(HTMLElement, CloneWithAForeignAttributeOnADescendantCopiesEverythingExceptTheChildren) {
  Element foreign("b");
  Page page;
  TarnHandle item = childOf(page, 0);
  addForeign(attributesOf(&item), foreign.value());
  TarnHandle copy = 0;
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_clone(page, &copy));
  EXPECT_EQ("ul\"menu\"#-7[class=x hidden=-]", toText(copy));
  HTMLElement_delete(&copy);
}

// ---- Clearing and deleting ----------------------------------------------------------------------

TEST(HTMLElement, ClearEmptiesTheElementWhichCanBeUsedAgain) {
  Page page;
  const TarnHandle before = page.value();
  EXPECT_EQ(TARN_OK, HTMLElement_clear(page));
  EXPECT_EQ(before, page.value());
  EXPECT_EQ("-", toText(page));
  EXPECT_EQ(0U, CGIgs_getChildMagic(page, TARN_ELEMENT_ATTRIBUTES, TARN_ELEMENT_MAGIC));
  EXPECT_EQ(0U, CGIgs_getChildMagic(page, TARN_ELEMENT_EMBEDDED, TARN_ELEMENT_MAGIC));
  EXPECT_EQ(TARN_OK, HTMLElement_clear(page));

  page.setName("p");
  page.addAttribute("id", "x");
  page.add(Element("b"));
  EXPECT_EQ("p[id=x]{b}", toText(page));
}

TEST(HTMLElement, ClearEmptiesTheOtherSlotsExceptStringsTwoToSeven) {
  Element element("a");
  CGIgs_setString(element, 2, "kept", TARN_ELEMENT_MAGIC);
  CGIgs_setInt(element, 2, 7, TARN_ELEMENT_MAGIC);
  CGIgs_setFixed(element, 4711, TARN_ELEMENT_MAGIC);
  CGIgs_setStruct(element, 2, Attribute("id"), TARN_ELEMENT_MAGIC, TARN_ATTRIBUTE_MAGIC);
  EXPECT_EQ(TARN_OK, HTMLElement_clear(element));
  EXPECT_EQ("kept", text(element.value(), 2));
  EXPECT_EQ(0U, CGIgs_getInt(element, 2, TARN_ELEMENT_MAGIC));
  EXPECT_EQ(0U, CGIgs_getFixed(element, TARN_ELEMENT_MAGIC));
  EXPECT_EQ(0U, CGIgs_getStruct(element, 2, TARN_ELEMENT_MAGIC));
}

TEST(HTMLElement, ClearOfABorrowedChildKeepsItInTheList) {
  Page page;
  TarnHandle item = childOf(page, 0);
  EXPECT_EQ(TARN_OK, HTMLElement_clear(&item));
  EXPECT_EQ("ul\"menu\"#-7[class=x hidden=-]{- li{b}}", toText(page));
}

TEST(HTMLElement, DeleteSetsTheHandleToZeroAndWorksOnce) {
  Page page;
  Element bare;
  for (TarnHandle *element : {static_cast<TarnHandle *>(page), static_cast<TarnHandle *>(bare)}) {
    EXPECT_EQ(TARN_OK, HTMLElement_delete(element));
    EXPECT_EQ(0U, *element);
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_delete(element));
  }
}

TEST(HTMLElement, ClearAndDeleteOfAnotherTypeReturnWrongType) {
  ElementList list{"a"};
  Attribute attribute("id");
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_clear(stranger));
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_delete(stranger));
  });
  for (TarnHandle *other :
       {static_cast<TarnHandle *>(list), static_cast<TarnHandle *>(attribute)}) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_clear(other));
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_delete(other));
  }
  EXPECT_EQ("a", listToText(list));
  EXPECT_EQ("id", text(attribute.value(), TARN_ELEMENT_NAME));
}

TEST(HTMLElement, ClearAndDeleteDoNotReleaseForeignNodesInTheLists) {
  for (auto *release : {HTMLElement_clear, HTMLElement_delete}) {
    SCOPED_TRACE(release == HTMLElement_clear ? "clear" : "delete");
    Page page;
    Attribute attribute("mine");
    Element element("mine");
    TarnHandle item = childOf(page, 0);
    addForeign(embeddedOf(page), attribute.value());
    addForeign(embeddedOf(&item), attribute.value());
    addForeign(attributesOf(page), element.value());
    addForeign(attributesOf(&item), 0);
    EXPECT_EQ(TARN_OK, release(page));
    EXPECT_EQ("mine", text(attribute.value(), TARN_ELEMENT_NAME));
    EXPECT_EQ("mine", toText(element));
  }
}

// ---- Something else in the place of a list ------------------------------------------------------

TEST(HTMLElement, NodeInPlaceOfAListReturnsWrongTypeUntilItIsReplaced) {
  for (const uint32_t slot : {TARN_ELEMENT_ATTRIBUTES + 0U, TARN_ELEMENT_EMBEDDED + 0U}) {
    SCOPED_TRACE(slot);
    Element element("a");
    CGIgs_setStruct(element, slot, Attribute("id"), TARN_ELEMENT_MAGIC, TARN_ATTRIBUTE_MAGIC);
    TarnHandle copy = 0;
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_clone(element, &copy));
    EXPECT_EQ("a", toText(copy));
    HTMLElement_delete(&copy);
    Element holder("p");
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addElement(holder, element));

    if (slot == TARN_ELEMENT_ATTRIBUTES) {
      EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addAttribute(element, Attribute("class")));
      EXPECT_EQ(TARN_OK, HTMLElement_setAttributes(element, AttributeList{"id"}));
      EXPECT_EQ("a[id=-]", toText(element));
    } else {
      EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addElement(element, Element("b")));
      EXPECT_EQ(TARN_OK, HTMLElement_setEmbedded(element, ElementList{"b"}));
      EXPECT_EQ("a{b}", toText(element));
    }
  }
}

TEST(HTMLElement, NodeInPlaceOfAListStaysWhenTheNewListCannotBeCopied) {
  Element element("a");
  for (const uint32_t slot : {TARN_ELEMENT_ATTRIBUTES + 0U, TARN_ELEMENT_EMBEDDED + 0U}) {
    CGIgs_setStruct(element, slot, Attribute("id"), TARN_ELEMENT_MAGIC, TARN_ATTRIBUTE_MAGIC);
  }
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_setAttributes(element, ElementList{"b"}));
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_setEmbedded(element, AttributeList{"class"}));
  for (const uint32_t slot : {TARN_ELEMENT_ATTRIBUTES + 0U, TARN_ELEMENT_EMBEDDED + 0U}) {
    SCOPED_TRACE(slot);
    EXPECT_EQ("id", text(CGIgs_getStruct(element, slot, TARN_ELEMENT_MAGIC), TARN_ELEMENT_NAME));
    EXPECT_EQ(TARN_ATTRIBUTE_MAGIC, CGIgs_getChildMagic(element, slot, TARN_ELEMENT_MAGIC));
  }
}

TEST(HTMLElement, ListParkedInPlaceOfTheAttributesReturnsWrongTypeUntilItIsReplaced) {
  Element element("a", {"b"});
  tarn_test::List parked{1, 2, 3};
  ASSERT_EQ(TARN_OK, CGIgs_setList(element, 2, parked, TARN_ELEMENT_MAGIC));
  parked.forget();
  TarnHandle copy = 0;
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addAttribute(element, Attribute("id")));
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_clone(element, &copy));
  EXPECT_EQ("a", toText(copy));
  HTMLElement_delete(&copy);
  EXPECT_EQ(TARN_OK, HTMLElement_setAttributes(element, AttributeList{"id"}));
  EXPECT_EQ("a[id=-]{b}", toText(element));
}

TEST(HTMLElement, ClearAndDeleteReleaseAnotherObjectInPlaceOfAList) {
  for (auto *release : {HTMLElement_clear, HTMLElement_delete}) {
    SCOPED_TRACE(release == HTMLElement_clear ? "clear" : "delete");
    Element element("a");
    Element parked("b");
    CGIgs_setStruct(element, TARN_ELEMENT_EMBEDDED, Attribute("id"), TARN_ELEMENT_MAGIC,
                    TARN_ATTRIBUTE_MAGIC);
    for (Element *one : {&element, &parked}) {
      tarn_test::List list{1, 2, 3};
      ASSERT_EQ(TARN_OK, CGIgs_setList(*one, 2, list, TARN_ELEMENT_MAGIC));
      list.forget();
      EXPECT_EQ(TARN_OK, release(*one));
      EXPECT_TRUE(!one->value() || toText(*one) == "-");
    }
  }
}

// ---- Lists of elements --------------------------------------------------------------------------

TEST(HTMLElementList, CopiesIncludeTheSubtreesAndNoOtherSlot) {
  Page page;
  CGIgs_setString(page, 2, "left out", TARN_ELEMENT_MAGIC);
  ElementList list;
  list.add(page);
  TarnHandle clone = 0;
  ASSERT_EQ(TARN_OK, HTMLElementList_clone(list, &clone));
  HTMLElement_delete(page);
  for (TarnHandle *holder : {static_cast<TarnHandle *>(list), &clone}) {
    SCOPED_TRACE(holder == &clone ? "clone" : "list");
    EXPECT_EQ(kPage, listToText(holder));
    EXPECT_EQ("-", text(HTMLElementList_getByIndex(holder, 0), 2));
  }
  TarnHandle inList = HTMLElementList_getByIndex(list, 0);
  HTMLElement_addElement(&inList, Element("later"));
  EXPECT_EQ(kPage, listToText(&clone));
  HTMLElementList_delete(list);
  EXPECT_EQ(kPage, listToText(&clone));
  HTMLElementList_delete(&clone);
}

TEST(HTMLElementList, ElementThatCannotBeCopiedReturnsWrongTypeAndIsNotAdded) {
  Attribute foreign("id");
  Element broken("b", {"c"});
  addForeign(embeddedOf(broken), foreign.value());
  ElementList list{"a"};
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElementList_addElement(list, broken));
  EXPECT_EQ("a", listToText(list));
}

TEST(HTMLElementList, CloneWithAForeignNodeInASubtreeReturnsWrongTypeAndKeepsTheDestination) {
  Attribute foreign("id");
  ElementList list{"a"};
  list.add(Element("b", {"c"}));
  TarnHandle second = HTMLElementList_getByIndex(list, 1);
  addForeign(embeddedOf(&second), foreign.value());
  TarnHandle destination = foreign.value();
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElementList_clone(list, &destination));
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElementList_clone(list, nullptr));
  EXPECT_EQ(foreign.value(), destination);
  EXPECT_EQ(2, HTMLElementList_getCount(list));
}

TEST(HTMLElementList, ClearDeletesTheListUnlikeClearOfAnAttributeList) {
  ElementList cleared{"a"};
  EXPECT_EQ(TARN_OK, HTMLElementList_clear(cleared));
  EXPECT_EQ(0U, cleared.value());
  AttributeList kept{"id"};
  EXPECT_EQ(TARN_OK, HTMLAttributeList_clear(kept));
  EXPECT_NE(0U, kept.value());
  EXPECT_EQ(0, HTMLAttributeList_getCount(kept));
  EXPECT_EQ(TARN_OK, HTMLElementList_clear(kept));
  EXPECT_EQ(0U, kept.value());
}

// ---- Trees --------------------------------------------------------------------------------------

constexpr uint32_t kLevels = 100000;
constexpr uint32_t kChildren = 100000;

// Runs `script` on a mebibyte of stack, ten bytes for each level of the trees below.
void onASmallStack(const std::function<void()> &script) {
  tarn_test::asScript({}, "", [&] {
    rlimit small{};
    ASSERT_EQ(0, getrlimit(RLIMIT_STACK, &small));
    small.rlim_cur = 1 << 20;
    ASSERT_EQ(0, setrlimit(RLIMIT_STACK, &small));
    script();
  });
}

// Each level has its number; every hundredth also has an attribute.
void growChain(TarnHandle *root) {
  TarnHandle level = *root;
  for (uint32_t depth = 1; depth <= kLevels; ++depth) {
    Element child("div");
    CGIgs_setInt(child, TARN_ELEMENT_NUMBER, depth, TARN_ELEMENT_MAGIC);
    if (depth % 100 == 0) child.addAttribute("id", "x");
    ASSERT_EQ(TARN_OK, HTMLElement_addElement(&level, child));
    level = childOf(&level, 0);
  }
}

// Checks the chain and returns its last element.
TarnHandle expectChain(TarnHandle root) {
  TarnHandle level = root;
  for (uint32_t depth = 1; depth <= kLevels; ++depth) {
    EXPECT_EQ(1U, childCount(&level));
    level = childOf(&level, 0);
    EXPECT_EQ("div", text(level, TARN_ELEMENT_NAME));
    EXPECT_EQ(depth % 100 == 0 ? 1U : 0U, attributeCount(&level));
    if (depth != CGIgs_getInt(&level, TARN_ELEMENT_NUMBER, TARN_ELEMENT_MAGIC)) {
      ADD_FAILURE() << "at level " << depth;
      return 0;
    }
  }
  EXPECT_EQ(0U, childCount(&level));
  return level;
}

TEST(HTMLElementTreeLarge, AHundredThousandLevelsCanBeBuiltClonedAndDeleted) {
  onASmallStack([] {
    Element root("html");
    growChain(root);
    expectChain(root.value());
    TarnHandle copy = 0;
    EXPECT_EQ(TARN_OK, HTMLElement_clone(root, &copy));
    EXPECT_EQ(TARN_OK, HTMLElement_delete(root));
    expectChain(copy);
    EXPECT_EQ(TARN_OK, HTMLElement_delete(&copy));
  });
}

TEST(HTMLElementTreeLarge, AHundredThousandLevelsCanBeAddedSetAndCleared) {
  onASmallStack([] {
    Element root("html");
    growChain(root);
    Element holder("p");
    EXPECT_EQ(TARN_OK, HTMLElement_addElement(holder, root));
    expectChain(childOf(holder, 0));
    TarnHandle own = embeddedOf(holder);
    EXPECT_EQ(TARN_OK, HTMLElement_setEmbedded(holder, &own));
    expectChain(childOf(holder, 0));
    EXPECT_EQ(TARN_OK, HTMLElement_setEmbedded(holder, ElementList{"b"}));
    EXPECT_EQ("p{b}", toText(holder));
    EXPECT_EQ(TARN_OK, HTMLElement_clear(root));
    EXPECT_EQ("-", toText(root));
  });
}

TEST(HTMLElementTreeLarge, AHundredThousandLevelsCanBeListed) {
  onASmallStack([] {
    Element root("html");
    growChain(root);
    ElementList list;
    list.add(root);
    TarnHandle copy = 0;
    EXPECT_EQ(TARN_OK, HTMLElementList_clone(list, &copy));
    EXPECT_EQ(TARN_OK, HTMLElementList_clear(list));
    expectChain(HTMLElementList_getByIndex(&copy, 0));
    EXPECT_EQ(TARN_OK, HTMLElementList_delete(&copy));
  });
}

TEST(HTMLElementTreeLarge, ForeignNodeBelowAHundredThousandLevelsStopsACopyCleanly) {
  onASmallStack([] {
    Attribute foreign("mine");
    Element root("html");
    growChain(root);
    TarnHandle last = expectChain(root.value());
    ASSERT_EQ(TARN_OK, HTMLElement_addElement(&last, Element("b")));
    addForeign(embeddedOf(&last), foreign.value());
    TarnHandle copy = 0;
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_clone(root, &copy));
    EXPECT_EQ("html", toText(copy));
    HTMLElement_delete(&copy);
    Element holder("p", {"a"});
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addElement(holder, root));
    EXPECT_EQ("p{a}", toText(holder));
    TarnHandle chain = embeddedOf(root);
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_setEmbedded(holder, &chain));
    EXPECT_EQ("p", toText(holder));
    EXPECT_EQ(TARN_OK, HTMLElement_delete(root));
    EXPECT_EQ("mine", text(foreign.value(), TARN_ELEMENT_NAME));
  });
}

TEST(HTMLElementTreeLarge, AHundredThousandChildrenAreKeptCopiedAndDeletedInOrder) {
  Element root("ul");
  Element item("li");
  item.addAttribute("class", "x");
  for (uint32_t i = 0; i < kChildren; ++i) {
    CGIgs_setInt(item, TARN_ELEMENT_NUMBER, i, TARN_ELEMENT_MAGIC);
    ASSERT_EQ(TARN_OK, HTMLElement_addElement(root, item));
  }
  TarnHandle copy = 0;
  EXPECT_EQ(TARN_OK, HTMLElement_clone(root, &copy));
  EXPECT_EQ(TARN_OK, HTMLElement_clear(root));
  ASSERT_EQ(kChildren, childCount(&copy));
  for (uint32_t i = 0; i < kChildren; ++i) {
    TarnHandle child = childOf(&copy, i);
    ASSERT_EQ(i, CGIgs_getInt(&child, TARN_ELEMENT_NUMBER, TARN_ELEMENT_MAGIC));
    ASSERT_EQ(1U, attributeCount(&child));
  }
  EXPECT_EQ(TARN_OK, HTMLElement_delete(&copy));
}

void growTree(TarnHandle *element, int levels) {
  if (levels == 0) return;
  for (uint32_t i = 0; i < 4; ++i) {
    Element child(("e" + std::to_string(i)).c_str());
    if (i % 2) child.addAttribute("level", std::to_string(levels).c_str());
    ASSERT_EQ(TARN_OK, HTMLElement_addElement(element, child));
    TarnHandle lent = childOf(element, i);
    growTree(&lent, levels - 1);
  }
}

TEST(HTMLElementTree, BranchingTreeIsCopiedInOrder) {
  Element root("root");
  growTree(root, 6);
  const std::string before = toText(root);
  EXPECT_LT(20000U, before.size());
  TarnHandle copy = 0;
  EXPECT_EQ(TARN_OK, HTMLElement_clone(root, &copy));
  HTMLElement_delete(root);
  EXPECT_EQ(before, toText(copy));
  HTMLElement_delete(&copy);
}

// ---- Without memory -----------------------------------------------------------------------------

TEST(HTMLElementWithoutMemory, CloneWithoutANodeReturnsOkAndLeavesTheDestinationZero) {
  Page page;
  TarnHandle copy = 0;
  TarnStatus status = TARN_BAD_ARGUMENT;
  tarn_test::withoutMemory([&] { status = HTMLElement_clone(page, &copy); });
  EXPECT_EQ(TARN_OK, status);
  EXPECT_EQ(0U, copy);
}

TEST(HTMLElementWithoutMemory, CloneThatRunsOutHalfwayCopiesEverythingExceptTheChildren) {
  Page page;
  for (int i = 0; i < 1000; ++i) page.add(Element("li"));
  TarnHandle copy = 0;
  TarnStatus status = TARN_OK;
  tarn_test::withoutMemory([&] { status = HTMLElement_clone(page, &copy); },
                           tarn_test::kLittleMemory);
  EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
  EXPECT_EQ("ul\"menu\"#-7[class=x hidden=-]", toText(copy));
  HTMLElement_delete(&copy);
}

TEST(HTMLElementWithoutMemory, CloneOmitsATextThatIsTooLarge) {
  Page page;
  page.setName(std::string(tarn_test::kLittleMemory, 'x').c_str());
  TarnHandle copy = 0;
  TarnStatus status = TARN_OUT_OF_MEMORY;
  tarn_test::withoutMemory([&] { status = HTMLElement_clone(page, &copy); },
                           tarn_test::kLittleMemory);
  EXPECT_EQ(TARN_OK, status);
  EXPECT_EQ("-\"menu\"#-7[class=x hidden=-]{li[id=1]{a} li{b}}", toText(copy));
  HTMLElement_delete(&copy);
}

TEST(HTMLElementWithoutMemory, FirstAttributeReturnsBadArgumentAndFirstChildWrongType) {
  Element element("a");
  Attribute attribute("id");
  Element child("b");
  TarnStatus attributeAdded = TARN_OK;
  TarnStatus childAdded = TARN_OK;
  tarn_test::withoutMemory([&] {
    attributeAdded = HTMLElement_addAttribute(element, attribute);
    childAdded = HTMLElement_addElement(element, child);
  });
  EXPECT_EQ(TARN_BAD_ARGUMENT, attributeAdded);
  EXPECT_EQ(TARN_WRONG_TYPE, childAdded);
  EXPECT_EQ("a", toText(element));
}

TEST(HTMLElementWithoutMemory, LaterAttributeOrChildReportsItAndIsNotAdded) {
  Page page;
  Attribute attribute("id");
  Element child("b");
  TarnStatus attributeAdded = TARN_OK;
  TarnStatus childAdded = TARN_OK;
  tarn_test::withoutMemory([&] {
    attributeAdded = HTMLElement_addAttribute(page, attribute);
    childAdded = HTMLElement_addElement(page, child);
  });
  EXPECT_EQ(TARN_OUT_OF_MEMORY, attributeAdded);
  EXPECT_EQ(TARN_OUT_OF_MEMORY, childAdded);
  EXPECT_EQ(kPage, toText(page));
}

TEST(HTMLElementWithoutMemory, SettingListsReportsItAndLosesTheOldOnes) {
  Page page;
  AttributeList attributes{"id"};
  ElementList embedded{"b"};
  TarnStatus attributesSet = TARN_OK;
  TarnStatus embeddedSet = TARN_OK;
  tarn_test::withoutMemory([&] {
    attributesSet = HTMLElement_setAttributes(page, attributes);
    embeddedSet = HTMLElement_setEmbedded(page, embedded);
  });
  EXPECT_EQ(TARN_OUT_OF_MEMORY, attributesSet);
  EXPECT_EQ(TARN_OUT_OF_MEMORY, embeddedSet);
  EXPECT_EQ("ul\"menu\"#-7", toText(page));
}

TEST(HTMLElementWithoutMemory, ReleasingTreesNeedsNone) {
  Page deleted;
  Page cleared;
  ElementList list;
  list.add(Page());
  TarnStatus statuses[3] = {TARN_OUT_OF_MEMORY, TARN_OUT_OF_MEMORY, TARN_OUT_OF_MEMORY};
  tarn_test::withoutMemory([&] {
    statuses[0] = HTMLElement_delete(deleted);
    statuses[1] = HTMLElement_clear(cleared);
    statuses[2] = HTMLElementList_clear(list);
  });
  for (const TarnStatus status : statuses) EXPECT_EQ(TARN_OK, status);
  EXPECT_EQ(0U, deleted.value());
  EXPECT_EQ("-", toText(cleared));
  EXPECT_EQ(0U, list.value());
}

TEST(HTMLElement, AddingToAForeignObjectInPlaceOfAListReturnsWrongType) {
  Element element("ul");
  const Element child("li");
  TarnHandle given = child.value();
  Attribute attribute("id");
  for (const uint32_t slot : {TARN_ELEMENT_ATTRIBUTES, TARN_ELEMENT_EMBEDDED}) {
    SCOPED_TRACE(slot);
    ASSERT_EQ(TARN_OK, CGIgs_setStruct(element, slot, attribute, TARN_ELEMENT_MAGIC, 0x7D01));
  }
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addAttribute(element, attribute));
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addElement(element, &given));
}

TEST(HTMLElement, AddingASubtreeWithAForeignNodeReturnsWrongType) {
  Element element("ul");
  Element child("li", {"b"});
  addForeign(embeddedOf(child), 0);
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLElement_addElement(element, child));
}

}  // namespace
