// Behaviour that the five list types share. What only some of them do is in their own tests.
#include <gtest/gtest.h>
#include <tarn.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/failing_memory.h"
#include "support/handles.h"

namespace {

using tarn_test::Node;
using tarn_test::withEveryOtherType;

struct Entries {
  static constexpr const char *kTypeName = "Entries";
  static constexpr uint32_t kListMagic = 206173;
  static constexpr uint32_t kElementMagic = 5471;
  static constexpr bool kBeginsBeforeTheCopy = true;
  static constexpr auto add = FormEntryList_addEntry;
  static constexpr auto getCount = FormEntryList_getCount;
  static constexpr auto getByIndex = FormEntryList_getByIndex;
  static constexpr auto reserve = FormEntryList_reserve;
  static constexpr auto clear = FormEntryList_clear;
  static constexpr auto remove = FormEntryList_delete;
  static constexpr auto clone = FormEntryList_clone;
  static constexpr auto toHtml = FormEntryList_toHTML;
};

struct Files {
  static constexpr const char *kTypeName = "Files";
  static constexpr uint32_t kListMagic = 206173;
  static constexpr uint32_t kElementMagic = 22842;
  static constexpr bool kBeginsBeforeTheCopy = true;
  static constexpr auto add = FormFileList_addEntry;
  static constexpr auto getCount = FormFileList_getCount;
  static constexpr auto getByIndex = FormFileList_getByIndex;
  static constexpr auto reserve = FormFileList_reserve;
  static constexpr auto clear = FormFileList_clear;
  static constexpr auto remove = FormFileList_delete;
  static constexpr auto clone = FormFileList_clone;
  static constexpr auto toHtml = FormFileList_toHTML;
};

struct Cookies {
  static constexpr const char *kTypeName = "Cookies";
  static constexpr uint32_t kListMagic = 75101;
  static constexpr uint32_t kElementMagic = 30211;
  static constexpr bool kBeginsBeforeTheCopy = false;
  static constexpr auto add = HTTPCookieList_addCookie;
  static constexpr auto getCount = HTTPCookieList_getCount;
  static constexpr auto getByIndex = HTTPCookieList_getByIndex;
  static constexpr auto clear = HTTPCookieList_clear;
  static constexpr auto remove = HTTPCookieList_delete;
  static constexpr auto clone = HTTPCookieList_clone;
  static constexpr auto toHtml = HTTPCookieList_toHTML;
};

struct Attributes {
  static constexpr const char *kTypeName = "Attributes";
  static constexpr uint32_t kListMagic = 140637;
  static constexpr uint32_t kElementMagic = 32001;
  static constexpr bool kBeginsBeforeTheCopy = false;
  static constexpr auto add = HTMLAttributeList_addAttribute;
  static constexpr auto getCount = HTMLAttributeList_getCount;
  static constexpr auto getByIndex = HTMLAttributeList_getByIndex;
  static constexpr auto clear = HTMLAttributeList_clear;
  static constexpr auto remove = HTMLAttributeList_delete;
  static constexpr auto clone = HTMLAttributeList_clone;
  static constexpr auto toHtml = HTMLAttributeList_toHTML;
};

struct Elements {
  static constexpr const char *kTypeName = "Elements";
  static constexpr uint32_t kListMagic = 140637;
  static constexpr uint32_t kElementMagic = 58413;
  static constexpr bool kBeginsBeforeTheCopy = true;
  static constexpr auto add = HTMLElementList_addElement;
  static constexpr auto getCount = HTMLElementList_getCount;
  static constexpr auto getByIndex = HTMLElementList_getByIndex;
  static constexpr auto clear = HTMLElementList_clear;
  static constexpr auto remove = HTMLElementList_delete;
  static constexpr auto clone = HTMLElementList_clone;
  static constexpr auto toHtml = HTMLElementList_toHTML;
};

struct TypeName {
  template <typename Type>
  static std::string GetName(int) {
    return Type::kTypeName;
  }
};

constexpr uint32_t kElementMagics[] = {Entries::kElementMagic, Files::kElementMagic,
                                       Cookies::kElementMagic, Attributes::kElementMagic,
                                       Elements::kElementMagic};

// Each element has a name in string 0 and another text in string 1.
enum Text : uint32_t { kName, kSecond };

template <typename Type>
struct Element : Node {
  Element() : Node(Type::kElementMagic) {}
  explicit Element(const std::string &name) : Element() {
    CGIgs_setString(*this, kName, name.c_str(), Type::kElementMagic);
    CGIgs_setString(*this, kSecond, (name + " too").c_str(), Type::kElementMagic);
  }
};

template <typename Type>
struct TypedList : Node {
  TypedList() : Node(Type::kListMagic) {}
  TypedList(std::initializer_list<const char *> names) : TypedList() {
    for (const char *name : names) add(name);
  }
  ~TypedList() { Type::remove(*this); }

  void add(const std::string &name) {
    Element<Type> element(name);
    ASSERT_EQ(TARN_OK, Type::add(*this, element));
  }
  // A script can add any address to the generic list inside.
  void addForeign(TarnHandle address) {
    TarnHandle inner = this->inner();
    ASSERT_EQ(TARN_OK, TARNGenericList_addDatum(&inner, address));
  }
  TarnHandle inner() { return CGIgs_getList(*this, TARN_LIST_ELEMENTS, Type::kListMagic); }
  uint32_t capacity() {
    TarnHandle generic = inner();
    return TARNGenericList_getCapacity(&generic);
  }
};

std::string nameOf(TarnHandle element) {
  const char *name = CGIgs_getString(&element, kName, 0);
  return name ? name : "(none)";
}

using Names = std::vector<std::string>;

// Checks that each element has the type, and the second text that belongs to its name.
template <typename Type>
Names namesIn(TarnHandle *list) {
  Names names;
  const auto count = static_cast<uint32_t>(Type::getCount(list));
  for (uint32_t i = 0; i < count; ++i) {
    TarnHandle element = Type::getByIndex(list, i);
    EXPECT_EQ(1U, CGIgs_IsA(&element, Type::kElementMagic)) << "at " << i;
    names.push_back(nameOf(element));
    const char *second = CGIgs_getString(&element, kSecond, Type::kElementMagic);
    EXPECT_TRUE(!second || second == names.back() + " too") << "at " << i << ": " << second;
  }
  return names;
}

enum Child : uint32_t { kFree = 2 };

// ---- All five -----------------------------------------------------------------------------------

template <typename Type>
struct NodeList : testing::Test {};
using AllLists = testing::Types<Entries, Files, Cookies, Attributes, Elements>;
TYPED_TEST_SUITE(NodeList, AllLists, TypeName);

TYPED_TEST(NodeList, StartsEmpty) {
  TypedList<TypeParam> list;
  EXPECT_EQ(0, TypeParam::getCount(list));
  EXPECT_EQ(0U, TypeParam::getByIndex(list, 0));
  EXPECT_EQ(0U, list.inner());
}

TYPED_TEST(NodeList, KeepsElementsInTheOrderAddedIncludingRepeatedNames) {
  TypedList<TypeParam> list{"b", "a", "B", "b"};
  EXPECT_EQ(4, TypeParam::getCount(list));
  EXPECT_EQ((Names{"b", "a", "B", "b"}), namesIn<TypeParam>(list));
}

TYPED_TEST(NodeList, AddingTwiceMakesTwoCopiesAndLeavesTheCallersElement) {
  TypedList<TypeParam> list;
  Element<TypeParam> element("before");
  EXPECT_EQ(TARN_OK, TypeParam::add(list, element));
  EXPECT_EQ(TARN_OK, TypeParam::add(list, element));
  TarnHandle first = TypeParam::getByIndex(list, 0);
  const TarnHandle second = TypeParam::getByIndex(list, 1);
  EXPECT_NE(first, second);
  EXPECT_NE(element.value(), first);
  EXPECT_NE(element.value(), second);

  CGIgs_setString(element, kName, "after", TypeParam::kElementMagic);
  EXPECT_EQ((Names{"before", "before"}), namesIn<TypeParam>(list));
  CGIgs_setString(&first, kName, "changed", TypeParam::kElementMagic);
  CGIgs_setString(&first, kSecond, "changed too", TypeParam::kElementMagic);
  EXPECT_EQ((Names{"changed", "before"}), namesIn<TypeParam>(list));
  EXPECT_EQ("after", nameOf(element.value()));
  CGIgs_delete(element, TypeParam::kElementMagic);
  EXPECT_EQ((Names{"changed", "before"}), namesIn<TypeParam>(list));
}

TYPED_TEST(NodeList, AddsAnEmptyElement) {
  TypedList<TypeParam> list;
  EXPECT_EQ(TARN_OK, TypeParam::add(list, Element<TypeParam>()));
  EXPECT_EQ(TARN_OK, TypeParam::add(list, Element<TypeParam>("")));
  EXPECT_EQ((Names{"(none)", ""}), namesIn<TypeParam>(list));
}

TYPED_TEST(NodeList, AddsACopyOfItsOwnElement) {
  TypedList<TypeParam> list{"a"};
  for (int copies = 1; copies < 25; ++copies) {
    SCOPED_TRACE(copies);
    TarnHandle lent = TypeParam::getByIndex(list, 0);
    ASSERT_EQ(TARN_OK, TypeParam::add(list, &lent));
  }
  EXPECT_EQ(Names(25, "a"), namesIn<TypeParam>(list));
}

TYPED_TEST(NodeList, AddToAnotherTypeReturnsWrongTypeEvenWithoutAnElement) {
  Element<TypeParam> element("a");
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::add(stranger, element));
    EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::add(stranger, nullptr));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::add(element, element));
}

TYPED_TEST(NodeList, AddOfAnotherTypeReturnsBadArgumentAndChangesNothing) {
  TypedList<TypeParam> list;
  withEveryOtherType(
      [&](TarnHandle *stranger) { EXPECT_EQ(TARN_BAD_ARGUMENT, TypeParam::add(list, stranger)); });
  for (const uint32_t magic : kElementMagics) {
    if (magic == TypeParam::kElementMagic) continue;
    EXPECT_EQ(TARN_BAD_ARGUMENT, TypeParam::add(list, Node(magic))) << magic;
  }
  EXPECT_EQ(TARN_BAD_ARGUMENT, TypeParam::add(list, list));
  EXPECT_EQ(0U, list.inner());
  list.add("a");
  EXPECT_EQ(TARN_BAD_ARGUMENT, TypeParam::add(list, nullptr));
  EXPECT_EQ(Names{"a"}, namesIn<TypeParam>(list));
}

TYPED_TEST(NodeList, CountAndIndexReturnZeroForAnotherType) {
  Element<TypeParam> element("a");
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(0, TypeParam::getCount(stranger));
    EXPECT_EQ(0U, TypeParam::getByIndex(stranger, 0));
  });
  EXPECT_EQ(0, TypeParam::getCount(element));
  EXPECT_EQ(0U, TypeParam::getByIndex(element, 0));
}

TYPED_TEST(NodeList, IndexAtOrBeyondTheCountReturnsZero) {
  TypedList<TypeParam> list{"a"};
  EXPECT_NE(0U, TypeParam::getByIndex(list, 0));
  for (uint32_t index : {1U, 9U, 10U, 0x80000000U, static_cast<uint32_t>(-1)}) {
    EXPECT_EQ(0U, TypeParam::getByIndex(list, index)) << index;
  }
}

TYPED_TEST(NodeList, ClearAndDeleteOfAnotherTypeReturnWrongType) {
  Element<TypeParam> element("a");
  withEveryOtherType([](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::clear(stranger));
    EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::remove(stranger));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::clear(element));
  EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::remove(element));
  EXPECT_EQ("a", nameOf(element.value()));
}

TYPED_TEST(NodeList, DeleteSetsTheHandleToZeroAndWorksOnce) {
  TypedList<TypeParam> list{"a", "b"};
  EXPECT_EQ(TARN_OK, TypeParam::remove(list));
  EXPECT_EQ(0U, list.value());
  EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::remove(list));
}

TYPED_TEST(NodeList, DeleteAcceptsAListThatNeverHadAnElement) {
  TypedList<TypeParam> list;
  EXPECT_EQ(TARN_OK, TypeParam::remove(list));
  EXPECT_EQ(0U, list.value());
}

TYPED_TEST(NodeList, CloneOwnsCopiesOfTheElementsInOrder) {
  TypedList<TypeParam> source{"b", "a", "b"};
  TarnHandle copy = 0;
  ASSERT_EQ(TARN_OK, TypeParam::clone(source, &copy));
  EXPECT_EQ(TypeParam::kListMagic, CGIgs_getMagic(&copy));
  EXPECT_NE(TypeParam::getByIndex(source, 0), TypeParam::getByIndex(&copy, 0));
  source.add("c");
  EXPECT_EQ((Names{"b", "a", "b"}), namesIn<TypeParam>(&copy));
  TypeParam::remove(source);
  EXPECT_EQ((Names{"b", "a", "b"}), namesIn<TypeParam>(&copy));
  EXPECT_EQ(TARN_OK, TypeParam::add(&copy, Element<TypeParam>("d")));
  EXPECT_EQ((Names{"b", "a", "b", "d"}), namesIn<TypeParam>(&copy));
  TypeParam::remove(&copy);
}

TYPED_TEST(NodeList, SourceStaysValidWhenItsCloneIsDeleted) {
  TypedList<TypeParam> source{"a", "b"};
  TarnHandle copy = 0;
  ASSERT_EQ(TARN_OK, TypeParam::clone(source, &copy));
  EXPECT_EQ(TARN_OK, TypeParam::remove(&copy));
  EXPECT_EQ((Names{"a", "b"}), namesIn<TypeParam>(source));
}

TYPED_TEST(NodeList, CloneOfAListWithoutElementsIsANewEmptyList) {
  TypedList<TypeParam> source;
  TarnHandle copy = 0;
  EXPECT_EQ(TARN_OK, TypeParam::clone(source, &copy));
  EXPECT_EQ(TypeParam::kListMagic, CGIgs_getMagic(&copy));
  EXPECT_NE(source.value(), copy);
  EXPECT_EQ(0, TypeParam::getCount(&copy));
  TypeParam::remove(&copy);
}

TYPED_TEST(NodeList, CloneOverwritesWhatTheDestinationHeldWithoutDeletingIt) {
  TypedList<TypeParam> source{"a"};
  TypedList<TypeParam> held{"still here"};
  TarnHandle destination = held.value();
  ASSERT_EQ(TARN_OK, TypeParam::clone(source, &destination));
  EXPECT_EQ(Names{"a"}, namesIn<TypeParam>(&destination));
  EXPECT_EQ(Names{"still here"}, namesIn<TypeParam>(held));
  TypeParam::remove(&destination);
}

TYPED_TEST(NodeList, CloneIntoItsOwnHandleDoesNotDeleteTheSource) {
  TypedList<TypeParam> source{"a"};
  TarnHandle handle = source.value();
  ASSERT_EQ(TARN_OK, TypeParam::clone(&handle, &handle));
  EXPECT_NE(source.value(), handle);
  EXPECT_EQ(Names{"a"}, namesIn<TypeParam>(&handle));
  EXPECT_EQ(Names{"a"}, namesIn<TypeParam>(source));
  TypeParam::remove(&handle);
}

TYPED_TEST(NodeList, CloneOfAnotherTypeReturnsWrongTypeAndKeepsTheDestination) {
  Element<TypeParam> element("a");
  TarnHandle destination = element.value();
  withEveryOtherType([&](TarnHandle *stranger) {
    EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::clone(stranger, &destination));
    EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::clone(stranger, nullptr));
  });
  EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::clone(element, &destination));
  EXPECT_EQ(element.value(), destination);
}

TYPED_TEST(NodeList, CloneToANullAddressReturnsTheStatusOfTheCopy) {
  Node foreign(TARN_HEADER_MAGIC);
  TypedList<TypeParam> list{"a"};
  EXPECT_EQ(TARN_OK, TypeParam::clone(list, nullptr));
  EXPECT_EQ(Names{"a"}, namesIn<TypeParam>(list));
  list.addForeign(foreign.value());
  EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::clone(list, nullptr));
}

TYPED_TEST(NodeList, CloneOfAListWithAForeignNodeOrZeroReturnsWrongTypeAndKeepsTheDestination) {
  Node foreign(TARN_HEADER_MAGIC);
  for (const TarnHandle address : {foreign.value(), TarnHandle{0}}) {
    SCOPED_TRACE(address);
    TypedList<TypeParam> list{"a"};
    list.addForeign(address);
    list.add("b");
    EXPECT_EQ(3, TypeParam::getCount(list));
    EXPECT_EQ(address, TypeParam::getByIndex(list, 1));
    for (const TarnHandle before : {foreign.value(), TarnHandle{0}}) {
      SCOPED_TRACE(before);
      TarnHandle destination = before;
      EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::clone(list, &destination));
      EXPECT_EQ(before, destination);
    }
    EXPECT_EQ(3, TypeParam::getCount(list));
    EXPECT_EQ("b", nameOf(TypeParam::getByIndex(list, 2)));
  }
}

TYPED_TEST(NodeList, ClearAndDeleteDoNotReleaseAForeignNode) {
  for (auto *release : {TypeParam::clear, TypeParam::remove}) {
    SCOPED_TRACE(release == TypeParam::clear ? "clear" : "delete");
    Node foreign(TARN_HEADER_MAGIC);
    CGIgs_setString(foreign, kName, "mine", TARN_HEADER_MAGIC);
    TypedList<TypeParam> list{"a"};
    list.addForeign(foreign.value());
    list.addForeign(0);
    list.add("b");
    EXPECT_EQ(TARN_OK, release(list));
    EXPECT_EQ(0, TypeParam::getCount(list));
    EXPECT_EQ("mine", nameOf(foreign.value()));
  }
}

TYPED_TEST(NodeList, HoldsThousandsOfElementsAndItsCapacityGrowsByTens) {
  constexpr uint32_t kMany = 5001;
  TypedList<TypeParam> list;
  Names names;
  for (uint32_t i = 0; i < kMany; ++i) {
    names.push_back(std::to_string(i));
    list.add(names.back());
    ASSERT_EQ((i / 10 + 1) * 10, list.capacity());
  }
  EXPECT_EQ(names, namesIn<TypeParam>(list));

  TarnHandle copy = 0;
  ASSERT_EQ(TARN_OK, TypeParam::clone(list, &copy));
  EXPECT_EQ(TARN_OK, TypeParam::clear(list));
  EXPECT_EQ(names, namesIn<TypeParam>(&copy));
  EXPECT_EQ(TARN_OK, TypeParam::remove(&copy));
}

TYPED_TEST(NodeList, ToHtmlReturnsNotYetImplementedForAnyHandle) {
  TypedList<TypeParam> list{"a"};
  const char *text = TypeParam::toHtml(list);
  EXPECT_STREQ("Not yet implemented.", text);
  withEveryOtherType([&](TarnHandle *stranger) { EXPECT_EQ(text, TypeParam::toHtml(stranger)); });
}

// ---- Lists that a clear keeps, and lists that it ends -------------------------------------------

template <typename Type>
struct NodeListKeptByClear : testing::Test {};
using ListsKeptByClear = testing::Types<Entries, Cookies, Attributes>;
TYPED_TEST_SUITE(NodeListKeptByClear, ListsKeptByClear, TypeName);

TYPED_TEST(NodeListKeptByClear, IsEmptyAndCanBeUsedAgain) {
  TypedList<TypeParam> list{"a", "b"};
  const TarnHandle before = list.value();
  EXPECT_EQ(TARN_OK, TypeParam::clear(list));
  EXPECT_EQ(before, list.value());
  EXPECT_EQ(TypeParam::kListMagic, CGIgs_getMagic(list));
  EXPECT_EQ(0, TypeParam::getCount(list));
  EXPECT_EQ(0U, TypeParam::getByIndex(list, 0));
  EXPECT_EQ(0U, list.inner());

  EXPECT_EQ(TARN_OK, TypeParam::clear(list));
  list.add("c");
  EXPECT_EQ(Names{"c"}, namesIn<TypeParam>(list));
}

TYPED_TEST(NodeListKeptByClear, LosesTheOtherSlotsOfItsNodeExceptStringsTwoToSeven) {
  TypedList<TypeParam> list{"a"};
  for (uint32_t slot : {0U, 1U, 2U}) CGIgs_setString(list, slot, "label", TypeParam::kListMagic);
  CGIgs_setInt(list, 0, 7, TypeParam::kListMagic);
  EXPECT_EQ(TARN_OK, TypeParam::clear(list));
  EXPECT_EQ(nullptr, CGIgs_getString(list, 0, TypeParam::kListMagic));
  EXPECT_EQ(nullptr, CGIgs_getString(list, 1, TypeParam::kListMagic));
  EXPECT_STREQ("label", CGIgs_getString(list, 2, TypeParam::kListMagic));
  EXPECT_EQ(0U, CGIgs_getInt(list, 0, TypeParam::kListMagic));
}

TYPED_TEST(NodeListKeptByClear, IsClonedAsAnEmptyList) {
  TypedList<TypeParam> list{"a"};
  TypeParam::clear(list);
  TarnHandle copy = 0;
  EXPECT_EQ(TARN_OK, TypeParam::clone(list, &copy));
  EXPECT_EQ(TypeParam::kListMagic, CGIgs_getMagic(&copy));
  EXPECT_EQ(0, TypeParam::getCount(&copy));
  TypeParam::remove(&copy);
}

template <typename Type>
struct NodeListEndedByClear : testing::Test {};
using ListsEndedByClear = testing::Types<Files, Elements>;
TYPED_TEST_SUITE(NodeListEndedByClear, ListsEndedByClear, TypeName);

TYPED_TEST(NodeListEndedByClear, LeavesTheHandleZeroWhetherFullOrEmpty) {
  TypedList<TypeParam> full{"a", "b"};
  TypedList<TypeParam> empty;
  for (TarnHandle *list : {static_cast<TarnHandle *>(full), static_cast<TarnHandle *>(empty)}) {
    EXPECT_EQ(TARN_OK, TypeParam::clear(list));
    EXPECT_EQ(0U, *list);
    EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::clear(list));
    EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::remove(list));
    EXPECT_EQ(TARN_WRONG_TYPE, TypeParam::add(list, Element<TypeParam>("c")));
    EXPECT_EQ(0, TypeParam::getCount(list));
  }
}

// ---- Types that share a tag ---------------------------------------------------------------------

template <typename OwnType, typename SiblingType>
struct Siblings {
  static constexpr const char *kTypeName = OwnType::kTypeName;
  using Own = OwnType;
  using Sibling = SiblingType;
};

template <typename Pair>
struct NodeListOfASharedTag : testing::Test {
  NodeListOfASharedTag() {
    mixed.add("a");
    EXPECT_EQ(TARN_OK, Pair::Sibling::add(mixed, sibling));
    mixed.add("b");
  }

  Element<typename Pair::Sibling> sibling{"sibling"};
  TypedList<typename Pair::Own> mixed;
};
using ListsOfASharedTag =
    testing::Types<Siblings<Entries, Files>, Siblings<Files, Entries>,
                   Siblings<Attributes, Elements>, Siblings<Elements, Attributes>>;
TYPED_TEST_SUITE(NodeListOfASharedTag, ListsOfASharedTag, TypeName);

TYPED_TEST(NodeListOfASharedTag, AcceptsAndCountsElementsOfBothTypes) {
  using Own = typename TypeParam::Own;
  using Sibling = typename TypeParam::Sibling;
  EXPECT_EQ(3, Own::getCount(this->mixed));
  EXPECT_EQ(3, Sibling::getCount(this->mixed));
  TarnHandle second = Own::getByIndex(this->mixed, 1);
  EXPECT_EQ(second, Sibling::getByIndex(this->mixed, 1));
  EXPECT_EQ(1U, CGIgs_IsA(&second, Sibling::kElementMagic));
  EXPECT_EQ("sibling", nameOf(second));
  EXPECT_EQ("b", nameOf(Sibling::getByIndex(this->mixed, 2)));
}

TYPED_TEST(NodeListOfASharedTag, IsClonedAsEitherTypeOnlyWithoutElementsOfTheOther) {
  using Own = typename TypeParam::Own;
  using Sibling = typename TypeParam::Sibling;
  TarnHandle destination = this->sibling.value();
  EXPECT_EQ(TARN_WRONG_TYPE, Own::clone(this->mixed, &destination));
  EXPECT_EQ(TARN_WRONG_TYPE, Sibling::clone(this->mixed, &destination));
  EXPECT_EQ(this->sibling.value(), destination);
  EXPECT_EQ(3, Own::getCount(this->mixed));

  TypedList<Own> pure{"a"};
  EXPECT_EQ(TARN_WRONG_TYPE, Sibling::clone(pure, &destination));
  EXPECT_EQ(this->sibling.value(), destination);
  TypedList<Own> empty;
  TypedList<Sibling> copy;
  Sibling::remove(copy);
  EXPECT_EQ(TARN_OK, Sibling::clone(empty, copy));
  EXPECT_EQ(TARN_OK, Sibling::add(copy, this->sibling));
  EXPECT_EQ(Names{"sibling"}, namesIn<Sibling>(copy));
}

TYPED_TEST(NodeListOfASharedTag, ClearAndDeleteDoNotReleaseElementsOfTheOtherType) {
  using Own = typename TypeParam::Own;
  using Sibling = typename TypeParam::Sibling;
  for (auto *release : {Own::clear, Own::remove}) {
    SCOPED_TRACE(release == Own::clear ? "clear" : "delete");
    TypedList<Own> list{"a"};
    ASSERT_EQ(TARN_OK, Sibling::add(list, this->sibling));
    list.add("b");
    TarnHandle stays = Own::getByIndex(list, 1);
    EXPECT_EQ(TARN_OK, release(list));
    EXPECT_EQ(0, Own::getCount(list));
    EXPECT_EQ(1U, CGIgs_IsA(&stays, Sibling::kElementMagic));
    EXPECT_EQ("sibling", nameOf(stays));
  }
}

// ---- Lists that can be told to make room --------------------------------------------------------

template <typename Type>
struct NodeListReserve : testing::Test {};
using ListsThatReserve = testing::Types<Entries, Files>;
TYPED_TEST_SUITE(NodeListReserve, ListsThatReserve, TypeName);

TYPED_TEST(NodeListReserve, DoesNothingOnANewList) {
  TypedList<TypeParam> list;
  TypeParam::reserve(list, 40);
  EXPECT_EQ(0U, list.inner());
  EXPECT_EQ(0U, list.capacity());
  EXPECT_EQ(0, TypeParam::getCount(list));
}

TYPED_TEST(NodeListReserve, GrowsInStepsOfTenOnceThereWasAnElement) {
  TypedList<TypeParam> list{"a"};
  EXPECT_EQ(10U, list.capacity());
  const struct {
    uint32_t asked;
    uint32_t capacity;
  } steps[] = {{0, 10}, {10, 10}, {11, 20}, {40, 40}, {5, 40}, {41, 50}, {4995, 5000}};
  for (const auto &[asked, expected] : steps) {
    TypeParam::reserve(list, asked);
    EXPECT_EQ(expected, list.capacity()) << "asked for " << asked;
  }
  EXPECT_EQ(Names{"a"}, namesIn<TypeParam>(list));
}

TYPED_TEST(NodeListReserve, DoesNothingAgainAfterAClear) {
  TypedList<TypeParam> list{"a"};
  TypeParam::clear(list);
  TypeParam::reserve(list, 40);
  EXPECT_EQ(0U, list.capacity());
}

TYPED_TEST(NodeListReserve, DoesNothingOnAnotherType) {
  withEveryOtherType([](TarnHandle *stranger) {
    TypeParam::reserve(stranger, 40);
    EXPECT_EQ(0U, TARNGenericList_getCapacity(stranger));
  });
}

// ---- Elements that are copied with all their children -------------------------------------------

template <typename Type>
struct NodeListWithinAnElement : testing::Test {};
using ListsOfWholeNodes = testing::Types<Entries, Files, Cookies, Attributes>;
TYPED_TEST_SUITE(NodeListWithinAnElement, ListsOfWholeNodes, TypeName);

TYPED_TEST(NodeListWithinAnElement, CopiesThatElementWithTheListAsItIs) {
  Element<TypeParam> element("a");
  ASSERT_EQ(TARN_OK, CGIgs_setStruct(element, kFree, TypedList<TypeParam>(),
                                     TypeParam::kElementMagic, TypeParam::kListMagic));
  TarnHandle list = CGIgs_getStruct(element, kFree, TypeParam::kElementMagic);
  ASSERT_EQ(TARN_OK, TypeParam::add(&list, element));
  EXPECT_EQ(Names{"a"}, namesIn<TypeParam>(&list));
  TarnHandle copy = TypeParam::getByIndex(&list, 0);
  TarnHandle within = CGIgs_getStruct(&copy, kFree, TypeParam::kElementMagic);
  EXPECT_EQ(1U, CGIgs_IsA(&within, TypeParam::kListMagic));
  EXPECT_EQ(TypeParam::kBeginsBeforeTheCopy,
            CGIgs_getList(&within, TARN_LIST_ELEMENTS, TypeParam::kListMagic) != 0);
  EXPECT_EQ(0, TypeParam::getCount(&within));
  // Deleting the element releases the list, but not what is in it.
  EXPECT_EQ(TARN_OK, CGIgs_delete(&copy, TypeParam::kElementMagic));
}

// ---- Without memory -----------------------------------------------------------------------------

template <typename Type>
struct NodeListWithoutMemory : testing::Test {};
TYPED_TEST_SUITE(NodeListWithoutMemory, AllLists, TypeName);

TYPED_TEST(NodeListWithoutMemory, AddAndCloneReportItAndChangeNothing) {
  Element<TypeParam> element("a");
  TypedList<TypeParam> list{"a"};
  TarnHandle destination = element.value();
  TarnStatus added = TARN_OK;
  TarnStatus cloned = TARN_OK;
  tarn_test::withoutMemory([&] {
    added = TypeParam::add(list, element);
    cloned = TypeParam::clone(list, &destination);
  });
  EXPECT_EQ(TARN_OUT_OF_MEMORY, added);
  EXPECT_EQ(TARN_OUT_OF_MEMORY, cloned);
  EXPECT_EQ(Names{"a"}, namesIn<TypeParam>(list));
  EXPECT_EQ(element.value(), destination);
}

// A cookie or an attribute is copied before its list is created, other elements after that.
TYPED_TEST(NodeListWithoutMemory, FirstElementThatCannotBeCopiedMayLeaveAnEmptyList) {
  constexpr size_t kEnoughForAGenericList = 64;
  Element<TypeParam> element("a");
  TypedList<TypeParam> list;
  TarnStatus status = TARN_OK;
  tarn_test::withoutMemory([&] { status = TypeParam::add(list, element); }, kEnoughForAGenericList);
  EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
  EXPECT_EQ(0, TypeParam::getCount(list));
  EXPECT_EQ(TypeParam::kBeginsBeforeTheCopy, list.inner() != 0);
}

TYPED_TEST(NodeListWithoutMemory, CloneThatRunsOutHalfwayKeepsTheDestination) {
  TypedList<TypeParam> list;
  for (int i = 0; i < 1000; ++i) list.add("a");
  TarnHandle destination = list.value();
  TarnStatus status = TARN_OK;
  tarn_test::withoutMemory([&] { status = TypeParam::clone(list, &destination); },
                           tarn_test::kLittleMemory);
  EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
  EXPECT_EQ(list.value(), destination);
  EXPECT_EQ(Names(1000, "a"), namesIn<TypeParam>(list));
}

}  // namespace
