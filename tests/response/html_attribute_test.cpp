#include <gtest/gtest.h>
#include <tarn.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "support/failing_memory.h"
#include "support/handles.h"

namespace {

using tarn_test::Node;
using tarn_test::withEveryOtherType;

// The slots that a script reads with the node's getters.

struct Attribute : Node {
  Attribute() : Node(TARN_ATTRIBUTE_MAGIC) {}
  Attribute(const char *name, const char *value) : Attribute() {
    EXPECT_EQ(TARN_OK, HTMLAttribute_init(*this, name, value));
  }
};

struct AttributeList : Node {
  AttributeList() : Node(TARN_ATTRIBUTE_LIST_MAGIC) {}
  ~AttributeList() { HTMLAttributeList_delete(*this); }
};

const char *text(TarnHandle *attribute, uint32_t slot) {
  return CGIgs_getString(attribute, slot, TARN_ATTRIBUTE_MAGIC);
}

void expectAttribute(TarnHandle *attribute, const char *name, const char *value) {
  EXPECT_STREQ(name, text(attribute, TARN_ATTRIBUTE_NAME));
  EXPECT_STREQ(value, text(attribute, TARN_ATTRIBUTE_VALUE));
}

// ---- One attribute ------------------------------------------------------------------------------

TEST(HTMLAttribute, StartsWithoutANameOrAValue) {
  Attribute attribute;
  EXPECT_EQ(32001U, CGIgs_getMagic(attribute));
  expectAttribute(attribute, nullptr, nullptr);
}

TEST(HTMLAttribute, InitKeepsCopiesOfNameAndValue) {
  char texts[2][8] = {"href", "/a?b=c"};
  Attribute attribute;
  EXPECT_EQ(TARN_OK, HTMLAttribute_init(attribute, texts[0], texts[1]));
  std::memset(texts, '?', sizeof(texts));
  expectAttribute(attribute, "href", "/a?b=c");
}

TEST(HTMLAttribute, InitAgainReplacesNameAndValue) {
  Attribute attribute("href", "/a");
  EXPECT_EQ(TARN_OK, HTMLAttribute_init(attribute, "id", "x"));
  expectAttribute(attribute, "id", "x");
}

TEST(HTMLAttribute, InitWithANullNameOrValueEmptiesThatSlot) {
  Attribute attribute("checked", "checked");
  EXPECT_EQ(TARN_OK, HTMLAttribute_init(attribute, "checked", nullptr));
  expectAttribute(attribute, "checked", nullptr);
  EXPECT_EQ(TARN_OK, HTMLAttribute_init(attribute, nullptr, "x"));
  expectAttribute(attribute, nullptr, "x");
  EXPECT_EQ(TARN_OK, HTMLAttribute_init(attribute, nullptr, nullptr));
  expectAttribute(attribute, nullptr, nullptr);
}

TEST(HTMLAttribute, InitDistinguishesEmptyTextsFromMissingOnes) {
  Attribute attribute("", "");
  expectAttribute(attribute, "", "");
}

TEST(HTMLAttribute, InitValidatesAndEscapesNothing) {
  const char *odd = "a b=\"c\" 'd' <e>&amp;/>\r\n\x7f\xff";
  Attribute attribute(odd, odd);
  expectAttribute(attribute, odd, odd);
}

TEST(HTMLAttribute, InitAcceptsTextsOfAnyLength) {
  const std::string name(100000, 'n');
  const std::string value(1 << 20, 'v');
  Attribute attribute(name.c_str(), value.c_str());
  expectAttribute(attribute, name.c_str(), value.c_str());
}

TEST(HTMLAttribute, InitKeepsTheOtherSlotsOfTheNode) {
  Attribute attribute("a", "1");
  CGIgs_setString(attribute, 2, "kept", TARN_ATTRIBUTE_MAGIC);
  CGIgs_setInt(attribute, 0, 7, TARN_ATTRIBUTE_MAGIC);
  EXPECT_EQ(TARN_OK, HTMLAttribute_init(attribute, "b", "2"));
  EXPECT_STREQ("kept", text(attribute, 2));
  EXPECT_EQ(7U, CGIgs_getInt(attribute, 0, TARN_ATTRIBUTE_MAGIC));
}

TEST(HTMLAttribute, InitAcceptsTheAttributesOwnTextsInAnyOrder) {
  Attribute attribute("data-id", "x-17");
  EXPECT_EQ(TARN_OK, HTMLAttribute_init(attribute, text(attribute, TARN_ATTRIBUTE_NAME),
                                        text(attribute, TARN_ATTRIBUTE_VALUE)));
  expectAttribute(attribute, "data-id", "x-17");
  EXPECT_EQ(TARN_OK, HTMLAttribute_init(attribute, text(attribute, TARN_ATTRIBUTE_VALUE),
                                        text(attribute, TARN_ATTRIBUTE_NAME)));
  expectAttribute(attribute, "x-17", "data-id");
  EXPECT_EQ(TARN_OK, HTMLAttribute_init(attribute, text(attribute, TARN_ATTRIBUTE_VALUE) + 5,
                                        text(attribute, TARN_ATTRIBUTE_NAME) + 2));
  expectAttribute(attribute, "id", "17");
}

TEST(HTMLAttribute, InitOnAnotherTypeReturnsWrongTypeWhateverTheArguments) {
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLAttribute_init(stranger, "n", "v"));
    EXPECT_EQ(TARN_WRONG_TYPE, HTMLAttribute_init(stranger, nullptr, nullptr));
  });
  AttributeList list;
  EXPECT_EQ(TARN_WRONG_TYPE, HTMLAttribute_init(list, "n", "v"));
}

TEST(HTMLAttribute, ToHtmlReturnsNotYetImplementedForAnyHandle) {
  Attribute attribute("n", "v");
  const char *answer = HTMLAttribute_toHTML(attribute);
  EXPECT_STREQ("Not yet implemented.", answer);
  withEveryOtherType(
      [&](TarnHandle *stranger) { EXPECT_EQ(answer, HTMLAttribute_toHTML(stranger)); });
}

// ---- Lists of attributes ------------------------------------------------------------------------

TEST(HTMLAttributeList, CopiesEverySlotOfTheAttribute) {
  Attribute attribute("n", nullptr);
  CGIgs_setString(attribute, 7, "seven", TARN_ATTRIBUTE_MAGIC);
  CGIgs_setInt(attribute, 2, 7, TARN_ATTRIBUTE_MAGIC);
  AttributeList list;
  ASSERT_EQ(TARN_OK, HTMLAttributeList_addAttribute(list, attribute));
  TarnHandle clone = 0;
  ASSERT_EQ(TARN_OK, HTMLAttributeList_clone(list, &clone));
  HTMLAttribute_init(attribute, "other", "changed");
  for (TarnHandle *holder : {static_cast<TarnHandle *>(list), &clone}) {
    SCOPED_TRACE(holder == &clone ? "clone" : "list");
    TarnHandle copy = HTMLAttributeList_getByIndex(holder, 0);
    expectAttribute(&copy, "n", nullptr);
    EXPECT_STREQ("seven", text(&copy, 7));
    EXPECT_EQ(7U, CGIgs_getInt(&copy, 2, TARN_ATTRIBUTE_MAGIC));
  }
  HTMLAttributeList_delete(&clone);
}

TEST(HTMLAttributeList, BorrowedAttributeCanBeChangedInTheList) {
  AttributeList list;
  Attribute attribute("n", "v");
  ASSERT_EQ(TARN_OK, HTMLAttributeList_addAttribute(list, attribute));
  TarnHandle lent = HTMLAttributeList_getByIndex(list, 0);
  EXPECT_EQ(TARN_OK, HTMLAttribute_init(&lent, "m", "w"));
  EXPECT_EQ(lent, HTMLAttributeList_getByIndex(list, 0));
  expectAttribute(&lent, "m", "w");
  expectAttribute(attribute, "n", "v");
}

// ---- Without memory -----------------------------------------------------------------------------

TEST(HTMLAttributeWithoutMemory, InitReturnsOkAndLeavesNoTexts) {
  Attribute attribute("n", "v");
  TarnStatus status = TARN_BAD_ARGUMENT;
  tarn_test::withoutMemory([&] { status = HTMLAttribute_init(attribute, "m", "w"); });
  EXPECT_EQ(TARN_OK, status);
  expectAttribute(attribute, nullptr, nullptr);
}

}  // namespace
