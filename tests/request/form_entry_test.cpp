#include <gtest/gtest.h>
#include <tarn.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "support/failing_memory.h"
#include "support/handles.h"

namespace {

using tarn_test::Node;
using tarn_test::withEveryOtherType;

// The slots that a script reads with the node's getters.

struct Entry : Node {
  Entry() : Node(TARN_FORM_ENTRY_MAGIC) {}
  Entry(const char *name, std::string_view value) : Entry() {
    FormEntry_init(*this, name, value.data(), static_cast<uint32_t>(value.size()));
  }
};

struct EntryList : Node {
  EntryList() : Node(TARN_FORM_ENTRY_LIST_MAGIC) {}
  ~EntryList() { FormEntryList_delete(*this); }
};

// Texts allocated by the library and owned by the caller.
using OwnText =
    std::unique_ptr<const char,
                    decltype([](const char *text) { std::free(const_cast<char *>(text)); })>;

const char *name(TarnHandle *entry) {
  return CGIgs_getString(entry, TARN_ENTRY_NAME, TARN_FORM_ENTRY_MAGIC);
}

const char *value(TarnHandle *entry) {
  return CGIgs_getString(entry, TARN_ENTRY_VALUE, TARN_FORM_ENTRY_MAGIC);
}

const char *strippedCopy(TarnHandle *entry) {
  return CGIgs_getString(entry, TARN_ENTRY_STRIPPED_VALUE, TARN_FORM_ENTRY_MAGIC);
}

uint32_t length(TarnHandle *entry) {
  return CGIgs_getInt(entry, TARN_ENTRY_LENGTH, TARN_FORM_ENTRY_MAGIC);
}

// ---- One entry ----------------------------------------------------------------------------------

TEST(FormEntry, StartsWithoutANameOrAValue) {
  Entry entry;
  EXPECT_EQ(5471U, CGIgs_getMagic(entry));
  EXPECT_EQ(nullptr, name(entry));
  EXPECT_EQ(nullptr, value(entry));
  EXPECT_EQ(nullptr, strippedCopy(entry));
  EXPECT_EQ(0U, length(entry));
}

TEST(FormEntry, InitKeepsCopiesOfNameAndValue) {
  char nameText[] = "city";
  char valueText[] = "Paris";
  Entry entry;
  EXPECT_EQ(TARN_OK, FormEntry_init(entry, nameText, valueText, 5));
  nameText[0] = valueText[0] = '?';
  EXPECT_STREQ("city", name(entry));
  EXPECT_STREQ("Paris", value(entry));
  EXPECT_EQ(5U, length(entry));
}

TEST(FormEntry, InitAgainReplacesNameAndValue) {
  Entry entry("city", "Paris");
  EXPECT_EQ(TARN_OK, FormEntry_init(entry, "country", "Peru", 4));
  EXPECT_STREQ("country", name(entry));
  EXPECT_STREQ("Peru", value(entry));
  EXPECT_EQ(4U, length(entry));
}

TEST(FormEntry, InitWithoutANameLeavesTheEntryNameless) {
  Entry entry("city", "Paris");
  EXPECT_EQ(TARN_OK, FormEntry_init(entry, nullptr, "Lima", 4));
  EXPECT_EQ(nullptr, name(entry));
  EXPECT_STREQ("Lima", value(entry));
}

TEST(FormEntry, InitDistinguishesAnEmptyNameFromAMissingOne) {
  Entry entry("", "x");
  EXPECT_STREQ("", name(entry));
}

TEST(FormEntry, InitWithNullDataAndALengthSetsTheNameAndReturnsBadArgument) {
  Entry entry("city", "Paris");
  EXPECT_EQ(TARN_BAD_ARGUMENT, FormEntry_init(entry, "country", nullptr, 4));
  EXPECT_STREQ("country", name(entry));
  EXPECT_STREQ("Paris", value(entry));
  EXPECT_EQ(5U, length(entry));
}

TEST(FormEntry, InitOnAnotherTypeReturnsWrongTypeWhateverTheArguments) {
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, FormEntry_init(stranger, "name", "value", 5));
    EXPECT_EQ(TARN_WRONG_TYPE, FormEntry_init(stranger, nullptr, nullptr, 5));
  });
}

TEST(FormEntry, InitAcceptsTheEntrysOwnNameAndValue) {
  Entry entry("city", "Paris");
  EXPECT_EQ(TARN_OK, FormEntry_init(entry, name(entry), value(entry), 5));
  EXPECT_STREQ("city", name(entry));
  EXPECT_STREQ("Paris", value(entry));
}

TEST(FormEntry, InitCanSwapTheEntrysOwnNameAndValue) {
  Entry entry("city", "Paris");
  EXPECT_EQ(TARN_OK, FormEntry_init(entry, value(entry), name(entry), 4));
  EXPECT_STREQ("Paris", name(entry));
  EXPECT_STREQ("city", value(entry));
  EXPECT_EQ(4U, length(entry));
}

TEST(FormEntry, InitAcceptsTheTailsOfTheEntrysOwnTexts) {
  Entry entry("the-city", "in-Paris");
  EXPECT_EQ(TARN_OK, FormEntry_init(entry, name(entry) + 4, value(entry) + 3, 5));
  EXPECT_STREQ("city", name(entry));
  EXPECT_STREQ("Paris", value(entry));
}

TEST(FormEntry, SetValueReplacesTheValueAndKeepsTheName) {
  Entry entry("city", "Paris");
  EXPECT_EQ(TARN_OK, FormEntry_setValue(entry, "Oslo", 4));
  EXPECT_STREQ("city", name(entry));
  EXPECT_STREQ("Oslo", value(entry));
  EXPECT_EQ(4U, length(entry));
}

TEST(FormEntry, SetValueCopiesLengthBytesAndTerminatesThem) {
  Entry entry;
  EXPECT_EQ(TARN_OK, FormEntry_setValue(entry, "abcdef", 3));
  EXPECT_STREQ("abc", value(entry));
  EXPECT_EQ(3U, length(entry));
}

TEST(FormEntry, SetValueOfLengthZeroStoresAnEmptyText) {
  for (const char *data : {"", "abc", static_cast<const char *>(nullptr)}) {
    SCOPED_TRACE(testing::PrintToString(data));
    Entry entry("n", "before");
    EXPECT_EQ(TARN_OK, FormEntry_setValue(entry, data, 0));
    EXPECT_STREQ("", value(entry));
    EXPECT_EQ(0U, length(entry));
    EXPECT_EQ(0, FormEntry_getIntegerValue(entry));
  }
}

TEST(FormEntry, ValueMayContainAnyBytesAndIsFollowedByAZeroByte) {
  const std::string_view bytes("\0a\0\xff\r\n\0", 7);
  Entry entry("raw", bytes);
  ASSERT_EQ(7U, length(entry));
  EXPECT_EQ(bytes, std::string_view(value(entry), 7));
  EXPECT_EQ('\0', value(entry)[7]);
}

TEST(FormEntry, ValueMayBeAMegabyteLong) {
  const std::string bytes(1 << 20, 'x');
  Entry entry("long", bytes);
  EXPECT_EQ(bytes.size(), length(entry));
  EXPECT_EQ(bytes, value(entry));
}

TEST(FormEntry, SetValueRefusesNullDataWithALengthAndKeepsTheEntry) {
  Entry entry("city", "Paris");
  for (uint32_t claimed : {1U, 1000U, UINT32_MAX}) {
    SCOPED_TRACE(claimed);
    EXPECT_EQ(TARN_BAD_ARGUMENT, FormEntry_setValue(entry, nullptr, claimed));
    EXPECT_STREQ("city", name(entry));
    EXPECT_STREQ("Paris", value(entry));
    EXPECT_EQ(5U, length(entry));
  }
}

TEST(FormEntry, SetValueOnAnotherTypeReturnsWrongTypeWhateverTheArguments) {
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, FormEntry_setValue(stranger, "value", 5));
    EXPECT_EQ(TARN_WRONG_TYPE, FormEntry_setValue(stranger, nullptr, 5));
  });
}

TEST(FormEntry, SetValueAcceptsPartOfItsOwnValue) {
  Entry entry("greeting", "hello, world");
  EXPECT_EQ(TARN_OK, FormEntry_setValue(entry, value(entry) + 7, 5));
  EXPECT_STREQ("world", value(entry));
  EXPECT_EQ(TARN_OK, FormEntry_setValue(entry, value(entry), 5));
  EXPECT_STREQ("world", value(entry));
  EXPECT_EQ(5U, length(entry));
}

TEST(FormEntry, SetValueAcceptsItsOwnStrippedCopy) {
  Entry entry("n", " 42 ");
  OwnText stripped(FormEntry_getStrippedValue(entry));
  EXPECT_EQ(TARN_OK, FormEntry_setValue(entry, strippedCopy(entry), 2));
  EXPECT_STREQ("42", value(entry));
}

// ---- Comparing entries --------------------------------------------------------------------------

TEST(FormEntry, CompareOrdersByNameBeforeValue) {
  Entry a("alpha", "2");
  Entry b("beta", "1");
  EXPECT_LT(FormEntry_compare(a, b), 0);
  EXPECT_GT(FormEntry_compare(b, a), 0);
}

TEST(FormEntry, CompareOrdersEqualNamesByValue) {
  Entry a("size", "large");
  Entry b("SIZE", "small");
  EXPECT_LT(FormEntry_compare(a, b), 0);
  EXPECT_GT(FormEntry_compare(b, a), 0);
}

TEST(FormEntry, CompareIgnoresTheCaseOfNamesAndValues) {
  Entry a("Size", "LARGE");
  Entry b("sIZE", "large");
  EXPECT_EQ(0, FormEntry_compare(a, b));
  EXPECT_EQ(0, FormEntry_compare(a, a));
}

TEST(FormEntry, CompareReadsValuesUpToTheirFirstZeroByte) {
  Entry a("n", std::string_view("x\0a", 3));
  Entry b("n", std::string_view("x\0b", 3));
  EXPECT_EQ(0, FormEntry_compare(a, b));
}

TEST(FormEntry, CompareReturnsEqualWhenEitherHandleIsNotAnEntry) {
  Entry entry("n", "x");
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(0, FormEntry_compare(stranger, entry));
    EXPECT_EQ(0, FormEntry_compare(entry, stranger));
    EXPECT_EQ(0, FormEntry_compare(stranger, stranger));
  });
}

TEST(FormEntry, CompareIsNegativeWheneverTheSecondHasNoName) {
  Entry named("n", "x");
  Entry nameless(nullptr, "x");
  Entry another(nullptr, "x");
  EXPECT_EQ(-1, FormEntry_compare(named, nameless));
  EXPECT_EQ(-1, FormEntry_compare(nameless, named));
  EXPECT_EQ(-1, FormEntry_compare(nameless, another));
  EXPECT_EQ(-1, FormEntry_compare(another, nameless));
}

TEST(FormEntry, CompareOfEqualNamesIsNegativeWheneverTheSecondHasNoValue) {
  Entry full("n", "x");
  Entry bare;
  Entry another;
  CGIgs_setString(bare, TARN_ENTRY_NAME, "n", TARN_FORM_ENTRY_MAGIC);
  CGIgs_setString(another, TARN_ENTRY_NAME, "n", TARN_FORM_ENTRY_MAGIC);
  EXPECT_EQ(-1, FormEntry_compare(full, bare));
  EXPECT_EQ(-1, FormEntry_compare(bare, full));
  EXPECT_EQ(-1, FormEntry_compare(bare, another));
}

TEST(FormEntry, CompareNameIgnoresCaseAndOrders) {
  Entry entry("Name", "");
  EXPECT_EQ(0, FormEntry_compareName(entry, "NAME"));
  EXPECT_LT(FormEntry_compareName(entry, "other"), 0);
  EXPECT_GT(FormEntry_compareName(entry, "a name"), 0);
  EXPECT_GT(FormEntry_compareName(entry, "Nam"), 0);
  EXPECT_GT(FormEntry_compareName(entry, ""), 0);
}

TEST(FormEntry, CompareNameIgnoresCaseOfAsciiLettersOnly) {
  Entry entry("\xc3\x84pfel", "");
  EXPECT_EQ(0, FormEntry_compareName(entry, "\xc3\x84PFEL"));
  EXPECT_NE(0, FormEntry_compareName(entry, "\xc3\xa4pfel"));
}

TEST(FormEntry, CompareNameReturnsMinusOneWithoutAnEntryOrAName) {
  Entry entry("n", "x");
  Entry nameless(nullptr, "x");
  EXPECT_EQ(-1, FormEntry_compareName(entry, nullptr));
  EXPECT_EQ(-1, FormEntry_compareName(nameless, nullptr));
  EXPECT_EQ(-1, FormEntry_compareName(nameless, "n"));
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(-1, FormEntry_compareName(stranger, "n"));
    EXPECT_EQ(-1, FormEntry_compareName(stranger, nullptr));
  });
}

TEST(FormEntry, CompareValueIgnoresCaseAndOrders) {
  Entry entry("n", "Medium");
  EXPECT_EQ(0, FormEntry_compareValue(entry, "mEDIUM"));
  EXPECT_LT(FormEntry_compareValue(entry, "small"), 0);
  EXPECT_GT(FormEntry_compareValue(entry, "large"), 0);
}

TEST(FormEntry, CompareValueStopsAtTheFirstZeroByte) {
  Entry entry("n", std::string_view("on\0off", 6));
  EXPECT_EQ(0, FormEntry_compareValue(entry, "on"));
}

TEST(FormEntry, CompareValueReturnsMinusOneWithoutAnEntryOrAValue) {
  Entry entry("n", "x");
  Entry bare;
  EXPECT_EQ(-1, FormEntry_compareValue(entry, nullptr));
  EXPECT_EQ(-1, FormEntry_compareValue(bare, nullptr));
  EXPECT_EQ(-1, FormEntry_compareValue(bare, "x"));
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(-1, FormEntry_compareValue(stranger, "x"));
    EXPECT_EQ(-1, FormEntry_compareValue(stranger, nullptr));
  });
}

// ---- Reading a value ----------------------------------------------------------------------------

TEST(FormEntry, StrippedValueIsOwnedByTheCallerAndTheValueIsUnchanged) {
  Entry entry("n", "  42 \r\n");
  OwnText stripped(FormEntry_getStrippedValue(entry));
  EXPECT_STREQ("42", stripped.get());
  EXPECT_STREQ("  42 \r\n", value(entry));
  EXPECT_EQ(7U, length(entry));
}

TEST(FormEntry, StrippedValueLosesWhiteSpaceAtItsEndsOnly) {
  const struct {
    const char *value;
    const char *stripped;
  } cases[] = {{"\t\r\n a \t b\t\r\n ", "a \t b"},
               {"a", "a"},
               {" a", "a"},
               {"a ", "a"},
               {"", ""},
               {" \t\r\n", ""},
               {"\va\f", "\va\f"}};
  for (const auto &[whole, expected] : cases) {
    SCOPED_TRACE(testing::PrintToString(whole));
    Entry entry("n", whole);
    OwnText stripped(FormEntry_getStrippedValue(entry));
    EXPECT_STREQ(expected, stripped.get());
  }
}

TEST(FormEntry, StrippedValueEndsAtTheFirstZeroByte) {
  Entry entry("n", std::string_view(" a \0 b ", 7));
  OwnText stripped(FormEntry_getStrippedValue(entry));
  EXPECT_STREQ("a", stripped.get());
}

TEST(FormEntry, StrippedValueOfAnEntryWithoutAValueIsNull) {
  Entry entry;
  EXPECT_EQ(nullptr, FormEntry_getStrippedValue(entry));
}

TEST(FormEntry, StrippedValueOfAnotherTypeIsTheSharedEmptyText) {
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(CGIgs_empty_string, FormEntry_getStrippedValue(stranger));
  });
  EXPECT_STREQ("", CGIgs_empty_string);
}

TEST(FormEntry, StrippedValueOfAnotherTypeFollowsChangesToTheSharedEmptyText) {
  const char *original = std::exchange(CGIgs_empty_string, "nothing");
  withEveryOtherType(
      [](TarnHandle *stranger) { EXPECT_STREQ("nothing", FormEntry_getStrippedValue(stranger)); });
  CGIgs_empty_string = original;
}

TEST(FormEntry, StrippedValueStoresACopyInTheEntry) {
  Entry entry("n", " 42 ");
  OwnText first(FormEntry_getStrippedValue(entry));
  EXPECT_STREQ("42", strippedCopy(entry));
  EXPECT_NE(first.get(), strippedCopy(entry));
  OwnText second(FormEntry_getStrippedValue(entry));
  EXPECT_STREQ("42", first.get());
  EXPECT_STREQ("42", second.get());
  EXPECT_NE(first.get(), second.get());
}

TEST(FormEntry, StoredStrippedValueStaysUntilTheNextStripping) {
  Entry entry("n", " old ");
  OwnText before(FormEntry_getStrippedValue(entry));
  FormEntry_init(entry, "m", " new ", 5);
  EXPECT_STREQ("old", strippedCopy(entry));
  OwnText after(FormEntry_getStrippedValue(entry));
  EXPECT_STREQ("new", after.get());
  EXPECT_STREQ("new", strippedCopy(entry));
}

TEST(FormEntry, IntegerValueReadsLeadingDecimalDigits) {
  const struct {
    const char *value;
    int32_t number;
  } cases[] = {{"42", 42}, {"-7", -7}, {"+5", 5},  {" 3.9", 3},         {"12abc", 12},
               {"abc", 0}, {"", 0},    {"007", 7}, {"0x10", 0},         {"- 7", 0},
               {"--7", 0}, {"1,2", 1}, {"1e3", 1}, {"\t\n\v\f\r 8", 8}, {"\302\2408", 0}};
  for (const auto &[text, number] : cases) {
    Entry entry("n", text);
    EXPECT_EQ(number, FormEntry_getIntegerValue(entry)) << '"' << text << '"';
  }
}

TEST(FormEntry, IntegerValueIsClampedTo32Bits) {
  const struct {
    const char *value;
    int32_t number;
  } cases[] = {{"2147483647", INT32_MAX},          {"2147483648", INT32_MAX},
               {"4294967295", INT32_MAX},          {"4294967299", INT32_MAX},
               {"9223372036854775808", INT32_MAX}, {"99999999999999999999999999", INT32_MAX},
               {"-2147483648", INT32_MIN},         {"-2147483649", INT32_MIN},
               {"-4294967299", INT32_MIN},         {"-99999999999999999999999999", INT32_MIN}};
  for (const auto &[text, number] : cases) {
    Entry entry("n", text);
    EXPECT_EQ(number, FormEntry_getIntegerValue(entry)) << text;
  }
}

TEST(FormEntry, DoubleValueReadsLikeAtof) {
  const struct {
    const char *value;
    double number;
  } cases[] = {{"3.9", 3.9},   {"-0.5", -0.5}, {" 1e3x", 1000.0},   {"7", 7.0},
               {".25", 0.25},  {"x", 0.0},     {"", 0.0},           {"0.1", 0.1},
               {"0x10", 16.0}, {"1,5", 1.0},   {"1e999", HUGE_VAL}, {"-1e999", -HUGE_VAL}};
  for (const auto &[text, number] : cases) {
    Entry entry("n", text);
    EXPECT_EQ(number, FormEntry_getDoubleValue(entry)) << '"' << text << '"';
  }
}

TEST(FormEntry, NumbersEndAtTheFirstZeroByte) {
  Entry entry("n", std::string_view("1\0002.5", 5));
  EXPECT_EQ(1, FormEntry_getIntegerValue(entry));
  EXPECT_EQ(1.0, FormEntry_getDoubleValue(entry));
}

TEST(FormEntry, NumbersAreZeroWithoutAnEntryOrAValue) {
  Entry bare;
  EXPECT_EQ(0, FormEntry_getIntegerValue(bare));
  EXPECT_EQ(0.0, FormEntry_getDoubleValue(bare));
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(0, FormEntry_getIntegerValue(stranger));
    EXPECT_EQ(0.0, FormEntry_getDoubleValue(stranger));
  });
}

TEST(FormEntry, ToStringReturnsNotYetImplementedForAnyHandle) {
  Entry entry("n", "x");
  EXPECT_STREQ("Not yet implemented", FormEntry_toString(entry));
  EXPECT_EQ(FormEntry_toString(entry), FormEntry_toString(nullptr));
}

// ---- Lists of entries ---------------------------------------------------------------------------

TEST(FormEntryList, CopiesAreTruncatedAtTheFirstZeroByteButKeepTheFullLength) {
  EntryList list;
  Entry entry("raw", std::string_view("ab\0cd", 5));
  ASSERT_EQ(TARN_OK, FormEntryList_addEntry(list, entry));
  TarnHandle clone = 0;
  ASSERT_EQ(TARN_OK, FormEntryList_clone(list, &clone));
  for (TarnHandle *holder : {static_cast<TarnHandle *>(list), &clone}) {
    SCOPED_TRACE(holder == &clone ? "clone" : "list");
    TarnHandle copy = FormEntryList_getByIndex(holder, 0);
    EXPECT_STREQ("ab", value(&copy));
    EXPECT_EQ(5U, length(&copy));
  }
  EXPECT_EQ(std::string_view("ab\0cd", 5), std::string_view(value(entry), 5));
  FormEntryList_delete(&clone);
}

TEST(FormEntryList, CopyKeepsTheStrippedTextAndAMissingName) {
  EntryList list;
  Entry entry(nullptr, " 42 ");
  OwnText stripped(FormEntry_getStrippedValue(entry));
  ASSERT_EQ(TARN_OK, FormEntryList_addEntry(list, entry));
  TarnHandle copy = FormEntryList_getByIndex(list, 0);
  EXPECT_EQ(nullptr, name(&copy));
  EXPECT_STREQ(" 42 ", value(&copy));
  EXPECT_STREQ("42", strippedCopy(&copy));
}

// ---- Without memory -----------------------------------------------------------------------------

TEST(FormEntryWithoutMemory, SetValueReportsItAndKeepsTheEntry) {
  Entry entry("city", "Paris");
  TarnStatus status = TARN_OK;
  tarn_test::withoutMemory([&] { status = FormEntry_setValue(entry, "Oslo", 4); });
  EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
  EXPECT_STREQ("city", name(entry));
  EXPECT_STREQ("Paris", value(entry));
  EXPECT_EQ(5U, length(entry));
}

TEST(FormEntryWithoutMemory, InitReportsItKeepsTheValueAndLosesTheName) {
  Entry entry("city", "Paris");
  TarnStatus status = TARN_OK;
  tarn_test::withoutMemory([&] { status = FormEntry_init(entry, "country", "Peru", 4); });
  EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
  EXPECT_EQ(nullptr, name(entry));
  EXPECT_STREQ("Paris", value(entry));
}

TEST(FormEntryWithoutMemory, StrippedValueIsNull) {
  Entry entry("n", " 42 ");
  const char *stripped = "";
  tarn_test::withoutMemory([&] { stripped = FormEntry_getStrippedValue(entry); });
  EXPECT_EQ(nullptr, stripped);
  EXPECT_STREQ(" 42 ", value(entry));
}

TEST(FormEntryWithoutMemory, CopyOfAValueThatIsTooLargeHasNoneButKeepsItsLength) {
  EntryList list;
  Entry entry("n", std::string(tarn_test::kLittleMemory, 'x'));
  TarnStatus status = TARN_BAD_ARGUMENT;
  tarn_test::withoutMemory([&] { status = FormEntryList_addEntry(list, entry); },
                           tarn_test::kLittleMemory);
  EXPECT_EQ(TARN_OK, status);
  TarnHandle copy = FormEntryList_getByIndex(list, 0);
  EXPECT_STREQ("n", name(&copy));
  EXPECT_EQ(nullptr, value(&copy));
  EXPECT_EQ(tarn_test::kLittleMemory, length(&copy));
}

}  // namespace
