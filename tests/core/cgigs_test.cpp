#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <tarn.h>

#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <map>
#include <string>

#include "support/failing_memory.h"
#include "support/handles.h"
#include "support/script.h"

namespace {

using tarn_test::kSanitized;
using tarn_test::List;
using tarn_test::Node;

constexpr uint32_t kMagic = 4711;
constexpr uint32_t kOther = 4712;
constexpr uint32_t kChild = 815;
constexpr uint32_t kHuge = std::numeric_limits<uint32_t>::max();

// Everything that a caller can read of a node.
struct Contents {
  uint32_t magic;
  std::array<TarnHandle, 2> lists;
  std::array<TarnHandle, 3> structs;
  std::array<uint32_t, 3> childMagics;
  std::array<const char *, 8> strings;
  std::array<uint32_t, 3> ints;
  double real;
  uintptr_t fixed;

  bool operator==(const Contents &) const = default;
};

Contents contentsOf(TarnHandle *node) {
  Contents contents{};
  contents.magic = CGIgs_getMagic(node);
  for (uint32_t i = 0; i < 2; ++i) contents.lists[i] = CGIgs_getList(node, i, 0);
  for (uint32_t i = 0; i < 3; ++i) {
    contents.structs[i] = CGIgs_getStruct(node, i, 0);
    contents.childMagics[i] = CGIgs_getChildMagic(node, i, 0);
    contents.ints[i] = CGIgs_getInt(node, i, 0);
  }
  for (uint32_t i = 0; i < 8; ++i) contents.strings[i] = CGIgs_getString(node, i, 0);
  contents.real = CGIgs_getDouble(node, 0, 0);
  contents.fixed = CGIgs_getFixed(node, 0);
  return contents;
}

Contents emptyContents(uint32_t magic) {
  Contents contents{};
  contents.magic = magic;
  return contents;
}

// Fills every slot: strings "text 0" to "text 7", ints 100 to 102, children that have their index
// as an int, lists of one word.
void fillSlots(TarnHandle *node) {
  for (uint32_t i = 0; i < 2; ++i) {
    SCOPED_TRACE(i);
    List list{0x1000u + i};
    ASSERT_EQ(TARN_OK, CGIgs_setList(node, i, list, 0));
    list.forget();
  }
  for (uint32_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    Node child(kChild + i);
    ASSERT_EQ(TARN_OK, CGIgs_setInt(child, 0, i, 0));
    ASSERT_EQ(TARN_OK, CGIgs_setStruct(node, i, child, 0, kChild + i));
    ASSERT_EQ(TARN_OK, CGIgs_setInt(node, i, 100 + i, 0));
  }
  for (uint32_t i = 0; i < 8; ++i) {
    SCOPED_TRACE(i);
    ASSERT_EQ(TARN_OK, CGIgs_setString(node, i, ("text " + std::to_string(i)).c_str(), 0));
  }
  ASSERT_EQ(TARN_OK, CGIgs_setDouble(node, 0, 2.5, 0));
  ASSERT_EQ(TARN_OK, CGIgs_setFixed(node, 77, 0));
}

void parkList(TarnHandle *node, std::initializer_list<uintptr_t> words) {
  List list(words);
  ASSERT_EQ(TARN_OK, CGIgs_setList(node, 2, list, 0));
  list.forget();
}

// Every operation that returns a status and checks the type, with arguments that would succeed.
using Setter = std::function<TarnStatus(TarnHandle *handle, uint32_t index, uint32_t magic)>;

const std::map<std::string, Setter> kIndexedSetters = {
    {"setList", [](auto *h, auto i, auto m) { return CGIgs_setList(h, i, nullptr, m); }},
    {"setStruct",
     [](auto *h, auto i, auto m) {
       Node child(kChild);
       return CGIgs_setStruct(h, i, child, m, kChild);
     }},
    {"setString", [](auto *h, auto i, auto m) { return CGIgs_setString(h, i, "new", m); }},
    {"setNString", [](auto *h, auto i, auto m) { return CGIgs_setNString(h, i, "new", 4, m); }},
    {"setInt", [](auto *h, auto i, auto m) { return CGIgs_setInt(h, i, 1, m); }},
    {"setDouble", [](auto *h, auto i, auto m) { return CGIgs_setDouble(h, i, 1, m); }},
};

const std::map<std::string, Setter> kOtherOperations = {
    {"setFixed", [](auto *h, auto, auto m) { return CGIgs_setFixed(h, 1, m); }},
    {"clear", [](auto *h, auto, auto m) { return CGIgs_clear(h, m); }},
    {"delete", [](auto *h, auto, auto m) { return CGIgs_delete(h, m); }},
    {"clone",
     [](auto *h, auto, auto m) {
       Node copy;
       const TarnStatus status = CGIgs_clone(h, copy, m);
       EXPECT_EQ(status == TARN_OK, copy.value() != 0);
       return status;
     }},
};

// The first index that each setter refuses. List index 2 is accepted although there are only two
// list slots.
const std::map<std::string, uint32_t> kFirstRefusedIndex = {
    {"setList", 3},    {"setStruct", 3}, {"setString", 8},
    {"setNString", 8}, {"setInt", 3},    {"setDouble", 1},
};

std::map<std::string, Setter> everyOperation() {
  auto all = kIndexedSetters;
  all.insert(kOtherOperations.begin(), kOtherOperations.end());
  return all;
}

void expectGettersReturnNothing(TarnHandle *handle, uint32_t index, uint32_t magic) {
  EXPECT_EQ(0u, CGIgs_getList(handle, index, magic));
  EXPECT_EQ(0u, CGIgs_getStruct(handle, index, magic));
  EXPECT_EQ(0u, CGIgs_getChildMagic(handle, index, magic));
  EXPECT_EQ(nullptr, CGIgs_getString(handle, index, magic));
  EXPECT_EQ(0u, CGIgs_getInt(handle, index, magic));
  EXPECT_EQ(0.0, CGIgs_getDouble(handle, index, magic));
}

// ---- Numbers that scripts compare against -------------------------------------------------------

TEST(CoreConstants, StatusesKeepTheirNumbers) {
  EXPECT_EQ(0, TARN_OK);
  EXPECT_EQ(1, TARN_BAD_ARGUMENT);
  EXPECT_EQ(2, TARN_WRONG_TYPE);
  EXPECT_EQ(4, TARN_OUT_OF_MEMORY);
}

TEST(CoreConstants, MagicsKeepTheirNumbers) {
  EXPECT_EQ(0x255D, TARN_GENERIC_LIST_MAGIC);
  EXPECT_EQ(0x595E, TARN_BYTE_BUFFER_MAGIC);
}

TEST(CoreConstants, EmptyStringIsEmpty) {
  ASSERT_NE(nullptr, CGIgs_empty_string);
  EXPECT_STREQ("", CGIgs_empty_string);
}

// ---- Creating -----------------------------------------------------------------------------------

TEST(NodeNew, CreatesAnEmptyNode) {
  TarnHandle handle = 0;
  EXPECT_EQ(TARN_OK, CGIgs_new(&handle, kMagic));
  ASSERT_NE(0u, handle);
  EXPECT_EQ(emptyContents(kMagic), contentsOf(&handle));
  EXPECT_EQ(TARN_OK, CGIgs_delete(&handle, kMagic));
}

TEST(NodeNew, AcceptsAnyMagicExceptZero) {
  for (const uint32_t magic : {1u, 0x7fffffffu, 0x80000000u, kHuge}) {
    SCOPED_TRACE(magic);
    Node node(magic);
    EXPECT_NE(0u, node.value());
    EXPECT_EQ(magic, CGIgs_getMagic(node));
  }
}

// The tags of the generic list and of the string, whose records are not nodes.
constexpr uint32_t kRecords[] = {TARN_GENERIC_LIST_MAGIC, TARN_STRING_MAGIC};

// Fills every slot of a node.
void fillEverySlot(TarnHandle *node, uint32_t magic) {
  const Node child(kChild);
  TarnHandle given = child.value();
  for (uint32_t i = 0; i < 2; ++i) {
    SCOPED_TRACE(i);
    List list{7, 8};
    ASSERT_EQ(TARN_OK, CGIgs_setList(node, i, list, magic));
    list.forget();
  }
  for (uint32_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    ASSERT_EQ(TARN_OK, CGIgs_setStruct(node, i, &given, magic, kChild));
    ASSERT_EQ(TARN_OK, CGIgs_setInt(node, i, 40 + i, magic));
  }
  for (uint32_t i = 0; i < 8; ++i) {
    SCOPED_TRACE(i);
    ASSERT_EQ(TARN_OK, CGIgs_setString(node, i, std::to_string(i).c_str(), magic));
  }
  ASSERT_EQ(TARN_OK, CGIgs_setFixed(node, 99, magic));
  ASSERT_EQ(TARN_OK, CGIgs_setDouble(node, 0, 0.5, magic));
}

void expectEverySlotFilled(TarnHandle *node, uint32_t magic) {
  for (uint32_t i = 0; i < 2; ++i) {
    TarnHandle list = CGIgs_getList(node, i, magic);
    EXPECT_EQ(8u, TARNGenericList_getByIndex(&list, 1)) << i;
  }
  for (uint32_t i = 0; i < 3; ++i) {
    TarnHandle child = CGIgs_getStruct(node, i, magic);
    EXPECT_EQ(kChild, CGIgs_getMagic(&child)) << i;
    EXPECT_EQ(kChild, CGIgs_getChildMagic(node, i, magic)) << i;
    EXPECT_EQ(40 + i, CGIgs_getInt(node, i, magic)) << i;
  }
  for (uint32_t i = 0; i < 8; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(std::to_string(i), CGIgs_getString(node, i, magic));
  }
  EXPECT_EQ(99u, CGIgs_getFixed(node, magic));
  EXPECT_EQ(0.5, CGIgs_getDouble(node, 0, magic));
}

TEST(NodeTaggedAsListOrString, WorksLikeAnyNode) {
  for (const uint32_t magic : kRecords) {
    SCOPED_TRACE(magic);
    TarnHandle node = 0;
    ASSERT_EQ(TARN_OK, CGIgs_new(&node, magic));
    EXPECT_EQ(magic, CGIgs_getMagic(&node));
    fillEverySlot(&node, magic);
    expectEverySlotFilled(&node, magic);
    expectEverySlotFilled(&node, 0);
    TarnHandle copy = 0;
    ASSERT_EQ(TARN_OK, CGIgs_clone(&node, &copy, magic));
    EXPECT_EQ(TARN_OK, CGIgs_clear(&node, magic));
    EXPECT_EQ(nullptr, CGIgs_getString(&node, 0, magic));
    EXPECT_STREQ("7", CGIgs_getString(&node, 7, magic));
    EXPECT_EQ(0u, CGIgs_getStruct(&node, 0, magic));
    EXPECT_EQ(TARN_OK, CGIgs_delete(&node, magic));
    EXPECT_EQ(0u, node);
    expectEverySlotFilled(&copy, magic);
    EXPECT_EQ(magic, CGIgs_getMagic(&copy));
    EXPECT_EQ(TARN_OK, CGIgs_delete(&copy, 0));
  }
}

TEST(NodeTaggedAsListOrString, IsCopiedAsAChildWithItsChildren) {
  for (const uint32_t magic : kRecords) {
    SCOPED_TRACE(magic);
    Node parent(kMagic);
    Node node(magic);
    fillEverySlot(node, magic);
    ASSERT_EQ(TARN_OK, CGIgs_setStruct(parent, 1, node, kMagic, magic));
    TarnHandle child = CGIgs_getStruct(parent, 1, kMagic);
    EXPECT_NE(node.value(), child);
    expectEverySlotFilled(&child, magic);
    Node copy;
    ASSERT_EQ(TARN_OK, CGIgs_clone(parent, copy, kMagic));
    EXPECT_EQ(TARN_OK, CGIgs_clear(parent, kMagic));
    child = CGIgs_getStruct(copy, 1, kMagic);
    expectEverySlotFilled(&child, magic);
  }
}

TEST(NodeTaggedAsListOrString, KeepsItsSlotsThroughListAndStringOperations) {
  TarnHandle list = 0;
  ASSERT_EQ(TARN_OK, CGIgs_new(&list, TARN_GENERIC_LIST_MAGIC));
  fillEverySlot(&list, TARN_GENERIC_LIST_MAGIC);
  EXPECT_EQ(0u, TARNGenericList_getCount(&list));
  EXPECT_EQ(0u, TARNGenericList_getByIndex(&list, 0));
  for (uintptr_t word = 1; word <= 25; ++word) {
    EXPECT_EQ(TARN_OK, TARNGenericList_addDatum(&list, word));
  }
  EXPECT_EQ(25u, TARNGenericList_getByIndex(&list, 24));
  expectEverySlotFilled(&list, TARN_GENERIC_LIST_MAGIC);
  EXPECT_EQ(TARN_OK, CGIgs_clear(&list, 0));
  EXPECT_EQ(25u, TARNGenericList_getCount(&list));
  EXPECT_EQ(TARN_OK, CGIgs_delete(&list, TARN_GENERIC_LIST_MAGIC));

  TarnHandle string = 0;
  ASSERT_EQ(TARN_OK, CGIgs_new(&string, TARN_STRING_MAGIC));
  fillEverySlot(&string, TARN_STRING_MAGIC);
  EXPECT_EQ(0u, TARNString_length(&string));
  EXPECT_EQ(TARN_OK, TARNString_append(&string, "a text longer than the record"));
  expectEverySlotFilled(&string, TARN_STRING_MAGIC);
  EXPECT_STREQ("a text longer than the record", TARNString_c_str(&string));
  EXPECT_EQ(TARN_OK, TARNString_delete(&string));
  EXPECT_EQ(0u, string);
}

TEST(NodeTaggedAsListOrString, IsReleasedWithItsSlotsByListAndStringDelete) {
  for (const uint32_t magic : kRecords) {
    SCOPED_TRACE(magic);
    TarnHandle handle = 0;
    ASSERT_EQ(TARN_OK, CGIgs_new(&handle, magic));
    fillEverySlot(&handle, magic);
    if (magic == TARN_STRING_MAGIC) {
      EXPECT_EQ(TARN_OK, TARNString_delete(&handle));
    } else {
      EXPECT_EQ(TARN_OK, TARNGenericList_delete(&handle));
    }
    EXPECT_EQ(0u, handle);
  }
}

// A list slot treats such a node as a list. However deeply they are nested, releasing them must not
// use the stack.
TEST(NodeTaggedAsListOrString, IsReleasedFromAListSlotAtAnyDepth) {
  TarnHandle top = 0;
  for (int depth = 0; depth < 200000; ++depth) {
    TarnHandle outer = 0;
    ASSERT_EQ(TARN_OK, CGIgs_new(&outer, TARN_GENERIC_LIST_MAGIC));
    ASSERT_EQ(TARN_OK, CGIgs_setList(&outer, depth % 2, &top, TARN_GENERIC_LIST_MAGIC));
    top = outer;
  }
  EXPECT_EQ(TARN_OK, CGIgs_delete(&top, 0));
}

TEST(NodeTaggedAsListOrString, IsRefusedUnderTheOtherTag) {
  Node list(TARN_GENERIC_LIST_MAGIC);
  Node string(TARN_STRING_MAGIC);
  EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_setInt(list, 0, 1, TARN_STRING_MAGIC));
  EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_setInt(string, 0, 1, TARN_GENERIC_LIST_MAGIC));
  EXPECT_EQ(TARN_WRONG_TYPE, TARNGenericList_addDatum(string, 1));
  EXPECT_EQ(TARN_WRONG_TYPE, TARNString_append(list, "a"));
}

TEST(NodeNew, RefusesANullAddress) { EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_new(nullptr, kMagic)); }

TEST(NodeNew, RefusesAHandleInUseAndLeavesItUnchanged) {
  Node node(kMagic);
  const TarnHandle before = node.value();
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_new(node, kMagic));
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_new(node, 0));
  EXPECT_EQ(before, node.value());
  EXPECT_EQ(kMagic, CGIgs_getMagic(node));
}

TEST(NodeNew, RefusesMagicZeroAndLeavesTheHandleUnchanged) {
  TarnHandle handle = 0;
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_new(&handle, 0));
  EXPECT_EQ(0u, handle);
}

// ---- The type test ------------------------------------------------------------------------------

TEST(NodeType, IsAComparesTheMagicAndZeroMatchesAnyNode) {
  Node node(kMagic);
  EXPECT_EQ(1u, CGIgs_IsA(node, kMagic));
  EXPECT_EQ(1u, CGIgs_IsA(node, 0));
  EXPECT_EQ(0u, CGIgs_IsA(node, kOther));
}

TEST(NodeType, IsAAndGetMagicReturnZeroWithoutANode) {
  TarnHandle empty = 0;
  for (TarnHandle *handle : {static_cast<TarnHandle *>(nullptr), &empty}) {
    EXPECT_EQ(0u, CGIgs_IsA(handle, 0));
    EXPECT_EQ(0u, CGIgs_IsA(handle, kMagic));
    EXPECT_EQ(0u, CGIgs_getMagic(handle));
  }
}

TEST(NodeType, IsAAndGetMagicReadTheTagOfAGenericList) {
  List list;
  EXPECT_EQ(1u, CGIgs_IsA(list, TARN_GENERIC_LIST_MAGIC));
  EXPECT_EQ(1u, CGIgs_IsA(list, 0));
  EXPECT_EQ(0u, CGIgs_IsA(list, kMagic));
  EXPECT_EQ(9565u, CGIgs_getMagic(list));
}

TEST(NodeType, EveryOperationReturnsWrongTypeWithoutANode) {
  TarnHandle empty = 0;
  for (const auto &[name, operation] : everyOperation()) {
    SCOPED_TRACE(name);
    for (const uint32_t magic : {0u, kMagic}) {
      SCOPED_TRACE(magic);
      EXPECT_EQ(TARN_WRONG_TYPE, operation(nullptr, 0, magic));
      EXPECT_EQ(TARN_WRONG_TYPE, operation(&empty, 0, magic));
      EXPECT_EQ(0u, empty);
    }
  }
  for (TarnHandle *handle : {static_cast<TarnHandle *>(nullptr), &empty}) {
    expectGettersReturnNothing(handle, 0, 0);
    EXPECT_EQ(0u, CGIgs_getFixed(handle, 0));
  }
}

TEST(NodeType, EveryOperationReturnsWrongTypeForAnotherMagicAndChangesNothing) {
  Node node(kMagic);
  fillSlots(node);
  const Contents before = contentsOf(node);
  for (const auto &[name, operation] : everyOperation()) {
    SCOPED_TRACE(name);
    EXPECT_EQ(TARN_WRONG_TYPE, operation(node, 0, kOther));
    EXPECT_EQ(before, contentsOf(node));
  }
  expectGettersReturnNothing(node, 0, kOther);
  EXPECT_EQ(0u, CGIgs_getFixed(node, kOther));
}

TEST(NodeType, IsCheckedBeforeTheIndex) {
  Node node(kMagic);
  for (const auto &[name, setter] : kIndexedSetters) {
    SCOPED_TRACE(name);
    EXPECT_EQ(TARN_WRONG_TYPE, setter(node, kHuge, kOther));
    EXPECT_EQ(TARN_WRONG_TYPE, setter(nullptr, kHuge, 0));
  }
}

TEST(NodeType, EveryOperationExceptCloneAcceptsAnyNodeWithMagicZero) {
  for (const auto &[name, operation] : everyOperation()) {
    SCOPED_TRACE(name);
    Node node(kMagic);
    EXPECT_EQ(name == "clone" ? TARN_BAD_ARGUMENT : TARN_OK, operation(node, 0, 0));
  }
}

TEST(NodeType, EveryOperationExceptIsAAndGetMagicRefusesAGenericList) {
  List list{11, 12};
  for (const uint32_t magic : {0u, static_cast<uint32_t>(TARN_GENERIC_LIST_MAGIC), kMagic}) {
    SCOPED_TRACE(magic);
    for (const auto &[name, operation] : everyOperation()) {
      SCOPED_TRACE(name);
      EXPECT_EQ(TARN_WRONG_TYPE, operation(list, 0, magic));
      EXPECT_EQ(TARN_WRONG_TYPE, operation(list, kHuge, magic));
    }
    for (const uint32_t index : {0u, 1u, kHuge}) {
      SCOPED_TRACE(index);
      expectGettersReturnNothing(list, index, magic);
    }
    EXPECT_EQ(0u, CGIgs_getFixed(list, magic));
  }
  EXPECT_EQ(2u, TARNGenericList_getCount(list));
  EXPECT_EQ(12u, TARNGenericList_getByIndex(list, 1));
}

TEST(NodeType, GenericListIsRefusedAsAChild) {
  Node node(kMagic);
  List list{11};
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_setStruct(node, 0, list, kMagic, TARN_GENERIC_LIST_MAGIC));
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_setStruct(node, 0, list, kMagic, 0));
  EXPECT_EQ(emptyContents(kMagic), contentsOf(node));
}

// ---- Indexes ------------------------------------------------------------------------------------

TEST(NodeIndex, SettersAcceptTheLastSlotAndRefuseTheNext) {
  for (const auto &[name, refused] : kFirstRefusedIndex) {
    SCOPED_TRACE(name);
    Node node(kMagic);
    EXPECT_EQ(TARN_OK, kIndexedSetters.at(name)(node, refused - 1, kMagic));
    const Contents before = contentsOf(node);
    EXPECT_EQ(TARN_BAD_ARGUMENT, kIndexedSetters.at(name)(node, refused, kMagic));
    EXPECT_EQ(TARN_BAD_ARGUMENT, kIndexedSetters.at(name)(node, kHuge, kMagic));
    EXPECT_EQ(before, contentsOf(node));
  }
}

TEST(NodeIndex, GettersReadTheLastSlotAndReturnNothingBeyondIt) {
  Node node(kMagic);
  fillSlots(node);
  EXPECT_NE(0u, CGIgs_getList(node, 1, kMagic));
  EXPECT_EQ(0u, CGIgs_getList(node, 2, kMagic));
  EXPECT_NE(0u, CGIgs_getStruct(node, 2, kMagic));
  EXPECT_EQ(0u, CGIgs_getStruct(node, 3, kMagic));
  EXPECT_EQ(kChild + 2, CGIgs_getChildMagic(node, 2, kMagic));
  EXPECT_EQ(0u, CGIgs_getChildMagic(node, 3, kMagic));
  EXPECT_STREQ("text 7", CGIgs_getString(node, 7, kMagic));
  EXPECT_EQ(nullptr, CGIgs_getString(node, 8, kMagic));
  EXPECT_EQ(102u, CGIgs_getInt(node, 2, kMagic));
  EXPECT_EQ(0u, CGIgs_getInt(node, 3, kMagic));
  EXPECT_EQ(2.5, CGIgs_getDouble(node, 0, kMagic));
  EXPECT_EQ(0.0, CGIgs_getDouble(node, 1, kMagic));
  expectGettersReturnNothing(node, kHuge, kMagic);
}

// ---- Strings ------------------------------------------------------------------------------------

TEST(NodeString, EachOfEightSlotsKeepsItsOwnCopy) {
  Node node(kMagic);
  for (uint32_t i = 0; i < 8; ++i) {
    SCOPED_TRACE(i);
    char text[] = "slot ?";
    text[5] = static_cast<char>('0' + i);
    EXPECT_EQ(TARN_OK, CGIgs_setString(node, i, text, kMagic));
    EXPECT_NE(text, CGIgs_getString(node, i, kMagic));
    std::memset(text, 'x', 5);
  }
  for (uint32_t i = 0; i < 8; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ("slot " + std::to_string(i), CGIgs_getString(node, i, kMagic));
  }
}

TEST(NodeString, GetterReturnsTheStoredTextNotACopy) {
  Node node(kMagic);
  CGIgs_setString(node, 3, "text", kMagic);
  EXPECT_EQ(CGIgs_getString(node, 3, kMagic), CGIgs_getString(node, 3, kMagic));
}

TEST(NodeString, EmptyTextIsStoredAndIsNotNull) {
  Node node(kMagic);
  EXPECT_EQ(TARN_OK, CGIgs_setString(node, 0, "", kMagic));
  EXPECT_STREQ("", CGIgs_getString(node, 0, kMagic));
}

TEST(NodeString, SettingAgainReplacesTheTextAndNullEmptiesTheSlot) {
  Node node(kMagic);
  CGIgs_setString(node, 5, "first", kMagic);
  EXPECT_EQ(TARN_OK, CGIgs_setString(node, 5, "second, and longer", kMagic));
  EXPECT_STREQ("second, and longer", CGIgs_getString(node, 5, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_setString(node, 5, nullptr, kMagic));
  EXPECT_EQ(nullptr, CGIgs_getString(node, 5, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_setString(node, 5, nullptr, kMagic));
}

TEST(NodeString, CanBeSetToTheTextItAlreadyHolds) {
  Node node(kMagic);
  CGIgs_setString(node, 0, "name=value", kMagic);
  EXPECT_EQ(TARN_OK, CGIgs_setString(node, 0, CGIgs_getString(node, 0, kMagic), kMagic));
  EXPECT_STREQ("name=value", CGIgs_getString(node, 0, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_setString(node, 0, CGIgs_getString(node, 0, kMagic) + 5, kMagic));
  EXPECT_STREQ("value", CGIgs_getString(node, 0, kMagic));
}

TEST(NodeString, LongTextIsStoredInFull) {
  Node node(kMagic);
  const std::string text(1 << 20, 'a');
  EXPECT_EQ(TARN_OK, CGIgs_setString(node, 0, text.c_str(), kMagic));
  EXPECT_EQ(text, CGIgs_getString(node, 0, kMagic));
}

TEST(NodeBytes, StoresExactlyTheGivenBytesIncludingZeros) {
  Node node(kMagic);
  const char data[] = {'a', '\0', '\xff', '\0', 'b'};
  for (uint32_t i = 0; i < 8; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(TARN_OK, CGIgs_setNString(node, i, data, sizeof data, kMagic));
    ASSERT_NE(nullptr, CGIgs_getString(node, i, kMagic));
    EXPECT_EQ(0, std::memcmp(data, CGIgs_getString(node, i, kMagic), sizeof data));
  }
}

TEST(NodeBytes, AreFollowedByAZeroByte) {
  Node node(kMagic);
  EXPECT_EQ(TARN_OK, CGIgs_setNString(node, 0, "abcdef", 3, kMagic));
  EXPECT_STREQ("abc", CGIgs_getString(node, 0, kMagic));
}

TEST(NodeBytes, LengthZeroStoresAnEmptyTextButNullEmptiesTheSlot) {
  Node node(kMagic);
  CGIgs_setString(node, 0, "old", kMagic);
  EXPECT_EQ(TARN_OK, CGIgs_setNString(node, 0, "abc", 0, kMagic));
  EXPECT_STREQ("", CGIgs_getString(node, 0, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_setNString(node, 0, nullptr, 5, kMagic));
  EXPECT_EQ(nullptr, CGIgs_getString(node, 0, kMagic));
}

TEST(NodeBytes, CanBeSetToTheTextTheSlotAlreadyHolds) {
  Node node(kMagic);
  CGIgs_setString(node, 1, "name=value", kMagic);
  EXPECT_EQ(TARN_OK, CGIgs_setNString(node, 1, CGIgs_getString(node, 1, kMagic) + 5, 3, kMagic));
  EXPECT_STREQ("val", CGIgs_getString(node, 1, kMagic));
}

TEST(NodeBytesMemory, EachSettingLeavesABlockOfThatSizeAllocated) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer's allocator does not count";
  constexpr uint32_t kSize = 20000;
  const std::string data(kSize, 'x');
  tarn_test::asScript({}, "", [&] {
    const size_t before = mallinfo2().uordblks;
    Node node(kMagic);
    for (int i = 0; i < 3; ++i) CGIgs_setNString(node, 0, data.data(), kSize, kMagic);
    CGIgs_delete(node, kMagic);
    const size_t left = mallinfo2().uordblks - before;
    EXPECT_GE(left, 3 * kSize);
    EXPECT_LT(left, 4 * kSize);
  });
}

// ---- Numbers ------------------------------------------------------------------------------------

TEST(NodeInt, ThreeSlotsStoreAll32Bits) {
  Node node(kMagic);
  const std::array<uint32_t, 3> values = {kHuge, 0x80000000u, 0};
  for (uint32_t i = 0; i < 3; ++i)
    EXPECT_EQ(TARN_OK, CGIgs_setInt(node, i, values[i], kMagic)) << i;
  for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(values[i], CGIgs_getInt(node, i, kMagic)) << i;
  EXPECT_EQ(-1, static_cast<int32_t>(CGIgs_getInt(node, 0, kMagic)));
  EXPECT_EQ(TARN_OK, CGIgs_setInt(node, 0, 5, kMagic));
  EXPECT_EQ(5u, CGIgs_getInt(node, 0, kMagic));
}

TEST(NodeFixed, StoresAPointerAndNeverFollowsOrFreesIt) {
  Node node(kMagic);
  char mine[] = "mine";
  EXPECT_EQ(TARN_OK, CGIgs_setFixed(node, reinterpret_cast<uintptr_t>(mine), kMagic));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(mine), CGIgs_getFixed(node, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_setFixed(node, ~uintptr_t{0}, kMagic));
  EXPECT_EQ(~uintptr_t{0}, CGIgs_getFixed(node, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_delete(node, kMagic));
  EXPECT_STREQ("mine", mine);
}

TEST(NodeDouble, ReadsBackInSinglePrecision) {
  Node node(kMagic);
  EXPECT_EQ(TARN_OK, CGIgs_setDouble(node, 0, 0.1, kMagic));
  EXPECT_EQ(0.10000000149011612, CGIgs_getDouble(node, 0, kMagic));
}

TEST(NodeDouble, HasOneSlot) {
  Node node(kMagic);
  CGIgs_setDouble(node, 0, 1.5, kMagic);
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_setDouble(node, 1, 2.5, kMagic));
  EXPECT_EQ(1.5, CGIgs_getDouble(node, 0, kMagic));
  EXPECT_EQ(0.0, CGIgs_getDouble(node, 1, kMagic));
}

TEST(NodeDouble, RoundsToNearestAndTiesToEven) {
  const double ulp = std::ldexp(1.0, -23);
  const std::map<double, double> kept = {
      {1 + ulp / 2, 1},                     // a tie, down to the even neighbour
      {1 + 3 * ulp / 2, 1 + 2 * ulp},       // a tie, up to the even neighbour
      {1 + ulp / 2 + ulp / 1024, 1 + ulp},  // just above a tie
      {16777217, 16777216},                 // the first whole number that does not fit
      {-16777219, -16777220},               // the same below zero
      {3.0e-46, 0},                         // below the smallest number
      {1.0e-45, 1.401298464324817e-45},     // the smallest number
      {1e300, std::numeric_limits<double>::infinity()},
  };
  Node node(kMagic);
  for (const auto &[given, expected] : kept) {
    EXPECT_EQ(TARN_OK, CGIgs_setDouble(node, 0, given, kMagic));
    EXPECT_EQ(expected, CGIgs_getDouble(node, 0, kMagic)) << given;
  }
}

TEST(NodeDouble, KeepsNegativeZeroAndNaN) {
  Node node(kMagic);
  CGIgs_setDouble(node, 0, -0.0, kMagic);
  EXPECT_TRUE(std::signbit(CGIgs_getDouble(node, 0, kMagic)));
  CGIgs_setDouble(node, 0, std::nan(""), kMagic);
  EXPECT_TRUE(std::isnan(CGIgs_getDouble(node, 0, kMagic)));
}

// ---- Lists --------------------------------------------------------------------------------------

TEST(NodeList, OwnsTheListItIsGivenAndReturnsThatVeryList) {
  Node node(kMagic);
  for (uint32_t i = 0; i < 2; ++i) {
    SCOPED_TRACE(i);
    List list{5, 6};
    const TarnHandle given = list.value();
    EXPECT_EQ(TARN_OK, CGIgs_setList(node, i, list, kMagic));
    EXPECT_EQ(given, list.value());
    EXPECT_EQ(given, CGIgs_getList(node, i, kMagic));
    list.forget();
  }
  TarnHandle lent = CGIgs_getList(node, 1, kMagic);
  EXPECT_EQ(TARN_OK, TARNGenericList_addDatum(&lent, 7));
  EXPECT_EQ(3u, TARNGenericList_getCount(&lent));
}

TEST(NodeList, SettingAnotherDeletesTheOldListButNotItsElements) {
  Node node(kMagic);
  char element[] = "element";
  for (int i = 0; i < 2; ++i) {
    List list{reinterpret_cast<uintptr_t>(element)};
    EXPECT_EQ(TARN_OK, CGIgs_setList(node, 0, list, kMagic));
    EXPECT_EQ(list.value(), CGIgs_getList(node, 0, kMagic));
    list.forget();
  }
  EXPECT_STREQ("element", element);
}

TEST(NodeList, NullOrEmptyHandleEmptiesTheSlot) {
  Node node(kMagic);
  fillSlots(node);
  TarnHandle none = 0;
  EXPECT_EQ(TARN_OK, CGIgs_setList(node, 0, nullptr, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_setList(node, 1, &none, kMagic));
  EXPECT_EQ(0u, CGIgs_getList(node, 0, kMagic));
  EXPECT_EQ(0u, CGIgs_getList(node, 1, kMagic));
}

TEST(NodeList, CanBeSetToTheListItAlreadyHolds) {
  Node node(kMagic);
  fillSlots(node);
  parkList(node, {1, 2});
  for (const uint32_t index : {0u, 1u, 2u}) {
    SCOPED_TRACE(index);
    TarnHandle lent =
        index == 2 ? CGIgs_getStruct(node, 0, kMagic) : CGIgs_getList(node, index, kMagic);
    EXPECT_EQ(TARN_OK, CGIgs_setList(node, index, &lent, kMagic));
    EXPECT_EQ(index == 2 ? 2u : 1u, TARNGenericList_getCount(&lent));
  }
}

TEST(NodeList, NodeGivenAsAListIsStoredButStaysOwnedByTheCallerAndIsNotCloned) {
  Node node(kMagic);
  Node mine(kOther);
  Node copy;
  EXPECT_EQ(TARN_OK, CGIgs_setList(node, 0, mine, kMagic));
  EXPECT_EQ(mine.value(), CGIgs_getList(node, 0, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_clone(node, copy, kMagic));
  EXPECT_EQ(0u, CGIgs_getList(copy, 0, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_clear(node, kMagic));
  EXPECT_EQ(mine.value(), CGIgs_getList(node, 0, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_setList(node, 0, nullptr, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_setList(node, 1, mine, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_delete(node, kMagic));
  EXPECT_EQ(kOther, CGIgs_getMagic(mine));
}

// ---- A list parked at index 2 -------------------------------------------------------------------

TEST(NodeParkedList, IsReadThroughStructZeroAndNotThroughGetList) {
  Node node(kMagic);
  List list{8, 9};
  EXPECT_EQ(TARN_OK, CGIgs_setList(node, 2, list, kMagic));
  EXPECT_EQ(0u, CGIgs_getList(node, 2, kMagic));
  EXPECT_EQ(0u, CGIgs_getList(node, 0, kMagic));
  EXPECT_EQ(list.value(), CGIgs_getStruct(node, 0, kMagic));
  EXPECT_EQ(0u, CGIgs_getChildMagic(node, 0, kMagic));
  list.forget();
  TarnHandle lent = CGIgs_getStruct(node, 0, kMagic);
  EXPECT_EQ(9u, TARNGenericList_getByIndex(&lent, 1));
  EXPECT_EQ(0u, CGIgs_getInt(&lent, 0, 0));
}

TEST(NodeParkedList, ReplacesTheChildWithoutReleasingItAndKeepsItsMagic) {
  Node node(kMagic);
  fillSlots(node);
  TarnHandle child = CGIgs_getStruct(node, 0, kMagic);
  CGIgs_setString(&child, 6, "still here", kChild);
  parkList(node, {1});
  TarnHandle lent = CGIgs_getStruct(node, 0, kMagic);
  EXPECT_EQ(1u, TARNGenericList_IsA(&lent));
  EXPECT_EQ(kChild, CGIgs_getChildMagic(node, 0, kMagic));
  EXPECT_STREQ("still here", CGIgs_getString(&child, 6, kChild));
}

TEST(NodeParkedList, ParkingNullLosesTheChildAndKeepsItsMagic) {
  Node node(kMagic);
  fillSlots(node);
  EXPECT_EQ(TARN_OK, CGIgs_setList(node, 2, nullptr, kMagic));
  EXPECT_EQ(0u, CGIgs_getStruct(node, 0, kMagic));
  EXPECT_EQ(kChild, CGIgs_getChildMagic(node, 0, kMagic));
}

TEST(NodeParkedList, IsDeletedWhenAnotherIsParkedOrTheSlotIsEmptied) {
  Node node(kMagic);
  parkList(node, {1});
  parkList(node, {2, 3});
  TarnHandle lent = CGIgs_getStruct(node, 0, kMagic);
  EXPECT_EQ(2u, TARNGenericList_getCount(&lent));
  EXPECT_EQ(TARN_OK, CGIgs_setList(node, 2, nullptr, kMagic));
  EXPECT_EQ(emptyContents(kMagic), contentsOf(node));
}

TEST(NodeParkedList, IsReleasedByClearWhateverTheChildMagic) {
  for (const bool overChild : {false, true}) {
    SCOPED_TRACE(overChild);
    Node node(kMagic);
    if (overChild) {
      Node child(kChild);
      CGIgs_setStruct(node, 0, child, kMagic, kChild);
    }
    parkList(node, {1, 2, 3});
    EXPECT_EQ(TARN_OK, CGIgs_clear(node, kMagic));
    EXPECT_EQ(emptyContents(kMagic), contentsOf(node));
  }
}

TEST(NodeParkedList, IsReleasedWithTheNodeButItsElementsAreNot) {
  char element[] = "element";
  Node node(kMagic);
  parkList(node, {reinterpret_cast<uintptr_t>(element)});
  EXPECT_EQ(TARN_OK, CGIgs_delete(node, kMagic));
  EXPECT_EQ(0u, node.value());
  EXPECT_STREQ("element", element);
}

TEST(NodeParkedList, IsReplacedWhenAChildIsSet) {
  Node node(kMagic);
  parkList(node, {1});
  Node child(kChild);
  CGIgs_setInt(child, 1, 33, kChild);
  EXPECT_EQ(TARN_OK, CGIgs_setStruct(node, 0, child, kMagic, kChild));
  TarnHandle stored = CGIgs_getStruct(node, 0, kMagic);
  EXPECT_EQ(33u, CGIgs_getInt(&stored, 1, kChild));
}

TEST(NodeParkedList, IsNotClonedButTheChildMagicIs) {
  Node node(kMagic);
  fillSlots(node);
  parkList(node, {1});
  Node copy;
  EXPECT_EQ(TARN_OK, CGIgs_clone(node, copy, kMagic));
  EXPECT_EQ(0u, CGIgs_getStruct(copy, 0, kMagic));
  EXPECT_EQ(kChild, CGIgs_getChildMagic(copy, 0, kMagic));
  EXPECT_NE(0u, CGIgs_getStruct(copy, 1, kMagic));
  TarnHandle lent = CGIgs_getStruct(node, 0, kMagic);
  EXPECT_EQ(1u, TARNGenericList_getCount(&lent));
}

TEST(NodeParkedList, IsReleasedInsideAChild) {
  Node child(kChild);
  parkList(child, {1});
  Node node(kMagic);
  EXPECT_EQ(TARN_OK, CGIgs_setStruct(node, 0, child, kMagic, kChild));
  TarnHandle stored = CGIgs_getStruct(node, 0, kMagic);
  EXPECT_EQ(emptyContents(kChild), contentsOf(&stored));
  parkList(&stored, {2});
  EXPECT_EQ(TARN_OK, CGIgs_delete(node, kMagic));
}

TEST(NodeParkedNode, WithChildMagicZeroIsNotCloned) {
  Node node(kMagic);
  Node parked(kChild);
  EXPECT_EQ(TARN_OK, CGIgs_setString(parked, 0, "parked", kChild));
  EXPECT_EQ(TARN_OK, CGIgs_setList(node, 2, parked, kMagic));
  const TarnHandle before = parked.value();
  parked.adopt(0);  // the node owns it now
  EXPECT_EQ(before, CGIgs_getStruct(node, 0, kMagic));
  EXPECT_EQ(0u, CGIgs_getChildMagic(node, 0, kMagic));
  Node copy;
  EXPECT_EQ(TARN_OK, CGIgs_clone(node, copy, kMagic));
  EXPECT_EQ(emptyContents(kMagic), contentsOf(copy));
  TarnHandle lent = CGIgs_getStruct(node, 0, kMagic);
  EXPECT_EQ(before, lent);
  EXPECT_STREQ("parked", CGIgs_getString(&lent, 0, kChild));
}

// ---- Children -----------------------------------------------------------------------------------

TEST(NodeChild, IsACopyAndTheCallerKeepsTheOriginal) {
  Node node(kMagic);
  for (uint32_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    Node child(kChild);
    CGIgs_setString(child, 0, "before", kChild);
    EXPECT_EQ(TARN_OK, CGIgs_setStruct(node, i, child, kMagic, kChild));
    CGIgs_setString(child, 0, "after", kChild);
    TarnHandle stored = CGIgs_getStruct(node, i, kMagic);
    ASSERT_NE(0u, stored);
    EXPECT_NE(child.value(), stored);
    EXPECT_STREQ("before", CGIgs_getString(&stored, 0, kChild));
    EXPECT_STREQ("after", CGIgs_getString(child, 0, kChild));
    EXPECT_EQ(kChild, CGIgs_getMagic(&stored));
    EXPECT_EQ(kChild, CGIgs_getChildMagic(node, i, kMagic));
  }
}

TEST(NodeChild, SettingAnotherReplacesItAndItsMagic) {
  Node node(kMagic);
  Node first(kChild);
  Node second(kOther);
  CGIgs_setInt(second, 0, 2, kOther);
  CGIgs_setStruct(node, 1, first, kMagic, kChild);
  EXPECT_EQ(TARN_OK, CGIgs_setStruct(node, 1, second, kMagic, kOther));
  TarnHandle stored = CGIgs_getStruct(node, 1, kMagic);
  EXPECT_EQ(2u, CGIgs_getInt(&stored, 0, kOther));
  EXPECT_EQ(kOther, CGIgs_getChildMagic(node, 1, kMagic));
}

TEST(NodeChild, OfAnotherTypeIsRefusedAfterTheNodesOwnTypeCheck) {
  Node node(kMagic);
  fillSlots(node);
  const Contents before = contentsOf(node);
  Node child(kChild);
  TarnHandle none = 0;
  EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_setStruct(node, 0, nullptr, kOther, kChild));
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_setStruct(node, 0, nullptr, kMagic, kChild));
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_setStruct(node, 0, nullptr, kMagic, 0));
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_setStruct(node, 0, &none, kMagic, kChild));
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_setStruct(node, 0, child, kMagic, kOther));
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_setStruct(node, 3, child, kMagic, kChild));
  EXPECT_EQ(before, contentsOf(node));
}

TEST(NodeChild, StoredUnderMagicZeroEmptiesTheSlot) {
  Node node(kMagic);
  fillSlots(node);
  Node child(kOther);
  EXPECT_EQ(TARN_OK, CGIgs_setStruct(node, 1, child, kMagic, 0));
  EXPECT_EQ(0u, CGIgs_getStruct(node, 1, kMagic));
  EXPECT_EQ(0u, CGIgs_getChildMagic(node, 1, kMagic));
  EXPECT_EQ(1u, CGIgs_IsA(child, kOther));
}

TEST(NodeChild, ListsInsideAreCopiedAndShareTheirElements) {
  Node child(kChild);
  fillSlots(child);
  Node node(kMagic);
  CGIgs_setStruct(node, 0, child, kMagic, kChild);
  TarnHandle stored = CGIgs_getStruct(node, 0, kMagic);
  TarnHandle copied = CGIgs_getList(&stored, 0, kChild);
  EXPECT_NE(CGIgs_getList(child, 0, kChild), copied);
  EXPECT_EQ(0x1000u, TARNGenericList_getByIndex(&copied, 0));
}

TEST(NodeChild, NodeAddedToItselfIsCopiedAsItWas) {
  Node node(kMagic);
  Node child(kChild);
  CGIgs_setString(node, 4, "self", kMagic);
  CGIgs_setStruct(node, 0, child, kMagic, kChild);
  // Twice: the second time the old copy in the slot is released before the node is copied.
  for (int i = 0; i < 2; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(TARN_OK, CGIgs_setStruct(node, 1, node, kMagic, kMagic));
    TarnHandle stored = CGIgs_getStruct(node, 1, kMagic);
    ASSERT_NE(0u, stored);
    EXPECT_NE(node.value(), stored);
    EXPECT_STREQ("self", CGIgs_getString(&stored, 4, kMagic));
    EXPECT_EQ(1u, CGIgs_IsA(std::array{CGIgs_getStruct(&stored, 0, kMagic)}.data(), kChild));
    EXPECT_EQ(0u, CGIgs_getStruct(&stored, 1, kMagic));
    EXPECT_EQ(kMagic, CGIgs_getChildMagic(node, 1, kMagic));
  }
}

TEST(NodeChild, StoredChildSetAgainIsReplacedByACopy) {
  Node node(kMagic);
  Node child(kChild);
  CGIgs_setString(child, 3, "same", kChild);
  CGIgs_setStruct(node, 0, child, kMagic, kChild);
  TarnHandle lent = CGIgs_getStruct(node, 0, kMagic);
  EXPECT_EQ(TARN_OK, CGIgs_setStruct(node, 0, &lent, kMagic, kChild));
  TarnHandle stored = CGIgs_getStruct(node, 0, kMagic);
  EXPECT_STREQ("same", CGIgs_getString(&stored, 3, kChild));
}

TEST(NodeChild, RootAddedToAnInnerNodeIsCopiedAsItWas) {
  Node root(kMagic);
  Node inner(kChild);
  CGIgs_setInt(root, 0, 1, kMagic);
  CGIgs_setInt(inner, 0, 2, kChild);
  CGIgs_setStruct(root, 0, inner, kMagic, kChild);
  TarnHandle level = CGIgs_getStruct(root, 0, kMagic);
  EXPECT_EQ(TARN_OK, CGIgs_setStruct(&level, 0, root, kChild, kMagic));
  for (const uint32_t number : {1u, 2u}) {
    SCOPED_TRACE(number);
    level = CGIgs_getStruct(&level, 0, 0);
    EXPECT_EQ(number, CGIgs_getInt(&level, 0, 0));
  }
  EXPECT_EQ(0u, CGIgs_getStruct(&level, 0, 0));
}

TEST(NodeChild, InnerChildCanBeCopiedToAnotherSlotOfTheRoot) {
  Node inner(kOther);
  CGIgs_setString(inner, 0, "inner", kOther);
  Node outer(kChild);
  CGIgs_setStruct(outer, 2, inner, kChild, kOther);
  Node node(kMagic);
  CGIgs_setStruct(node, 0, outer, kMagic, kChild);
  TarnHandle middle = CGIgs_getStruct(node, 0, kMagic);
  TarnHandle lent = CGIgs_getStruct(&middle, 2, kChild);
  EXPECT_EQ(TARN_OK, CGIgs_setStruct(node, 1, &lent, kMagic, kOther));
  TarnHandle stored = CGIgs_getStruct(node, 1, kMagic);
  EXPECT_NE(lent, stored);
  EXPECT_STREQ("inner", CGIgs_getString(&stored, 0, kOther));
  EXPECT_STREQ("inner", CGIgs_getString(&lent, 0, kOther));
}

// ---- Clearing and deleting ----------------------------------------------------------------------

TEST(NodeClear, EmptiesEverythingExceptStringsTwoToSeven) {
  Node node(kMagic);
  fillSlots(node);
  Contents expected = emptyContents(kMagic);
  for (uint32_t i = 2; i < 8; ++i) expected.strings[i] = CGIgs_getString(node, i, kMagic);
  EXPECT_EQ(TARN_OK, CGIgs_clear(node, kMagic));
  EXPECT_EQ(expected, contentsOf(node));
  for (uint32_t i = 2; i < 8; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ("text " + std::to_string(i), CGIgs_getString(node, i, kMagic));
  }
}

TEST(NodeClear, LeavesANodeThatCanBeFilledAgain) {
  Node node(kMagic);
  fillSlots(node);
  CGIgs_clear(node, kMagic);
  EXPECT_EQ(TARN_OK, CGIgs_clear(node, kMagic));
  fillSlots(node);
  EXPECT_STREQ("text 2", CGIgs_getString(node, 2, kMagic));
  EXPECT_EQ(kChild, CGIgs_getChildMagic(node, 0, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_clear(node, 0));
}

TEST(NodeDelete, ReleasesEveryLevelAndSetsTheHandleToZero) {
  Node inner(kChild);
  fillSlots(inner);
  Node node(kMagic);
  fillSlots(node);
  CGIgs_setStruct(node, 2, inner, kMagic, kChild);
  TarnHandle stored = CGIgs_getStruct(node, 2, kMagic);
  CGIgs_setStruct(&stored, 0, inner, kChild, kChild);
  EXPECT_EQ(TARN_OK, CGIgs_delete(node, kMagic));
  EXPECT_EQ(0u, node.value());
  EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_delete(node, kMagic));
}

TEST(NodeDelete, DoesNotReleaseTheElementsOfItsLists) {
  Node element(kOther);
  List list{element.value()};
  Node node(kMagic);
  CGIgs_setList(node, 0, list, kMagic);
  list.forget();
  EXPECT_EQ(TARN_OK, CGIgs_delete(node, kMagic));
  EXPECT_EQ(kOther, CGIgs_getMagic(element));
}

// ---- Cloning ------------------------------------------------------------------------------------

TEST(NodeClone, CopiesEverySlot) {
  Node node(kMagic);
  fillSlots(node);
  Node copy;
  EXPECT_EQ(TARN_OK, CGIgs_clone(node, copy, kMagic));
  ASSERT_NE(0u, copy.value());
  EXPECT_NE(node.value(), copy.value());
  EXPECT_EQ(kMagic, CGIgs_getMagic(copy));
  for (uint32_t i = 0; i < 2; ++i) {
    SCOPED_TRACE(i);
    TarnHandle list = CGIgs_getList(copy, i, kMagic);
    EXPECT_NE(CGIgs_getList(node, i, kMagic), list);
    EXPECT_EQ(1u, TARNGenericList_getCount(&list));
    EXPECT_EQ(0x1000u + i, TARNGenericList_getByIndex(&list, 0));
  }
  for (uint32_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    TarnHandle child = CGIgs_getStruct(copy, i, kMagic);
    EXPECT_NE(CGIgs_getStruct(node, i, kMagic), child);
    EXPECT_EQ(i, CGIgs_getInt(&child, 0, kChild + i));
    EXPECT_EQ(kChild + i, CGIgs_getMagic(&child));
    EXPECT_EQ(kChild + i, CGIgs_getChildMagic(copy, i, kMagic));
    EXPECT_EQ(100 + i, CGIgs_getInt(copy, i, kMagic));
  }
  for (uint32_t i = 0; i < 8; ++i) {
    SCOPED_TRACE(i);
    EXPECT_NE(CGIgs_getString(node, i, kMagic), CGIgs_getString(copy, i, kMagic));
    EXPECT_EQ("text " + std::to_string(i), CGIgs_getString(copy, i, kMagic));
  }
  EXPECT_EQ(2.5, CGIgs_getDouble(copy, 0, kMagic));
  EXPECT_EQ(77u, CGIgs_getFixed(copy, kMagic));
}

TEST(NodeClone, StaysValidWhenTheOriginalIsDeleted) {
  Node node(kMagic);
  fillSlots(node);
  Node copy;
  CGIgs_clone(node, copy, kMagic);
  CGIgs_delete(node, kMagic);
  TarnHandle child = CGIgs_getStruct(copy, 2, kMagic);
  TarnHandle list = CGIgs_getList(copy, 1, kMagic);
  EXPECT_EQ(2u, CGIgs_getInt(&child, 0, kChild + 2));
  EXPECT_EQ(0x1001u, TARNGenericList_getByIndex(&list, 0));
  EXPECT_STREQ("text 7", CGIgs_getString(copy, 7, kMagic));
}

TEST(NodeClone, OfAnEmptyNodeIsEmpty) {
  Node node(kMagic);
  Node copy;
  EXPECT_EQ(TARN_OK, CGIgs_clone(node, copy, kMagic));
  EXPECT_EQ(emptyContents(kMagic), contentsOf(copy));
}

TEST(NodeClone, ChecksTheSourceThenTheDestinationThenTheMagic) {
  Node node(kMagic);
  Node used(kOther);
  TarnHandle empty = 0;
  const TarnHandle before = used.value();
  EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_clone(nullptr, nullptr, kMagic));
  EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_clone(&empty, used, 0));
  EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_clone(node, used, kOther));
  EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_clone(node, &empty, kOther));
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_clone(node, nullptr, kMagic));
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_clone(node, used, kMagic));
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_clone(node, node, kMagic));
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_clone(node, &empty, 0));
  EXPECT_EQ(0u, empty);
  EXPECT_EQ(before, used.value());
  EXPECT_EQ(kOther, CGIgs_getMagic(used));
}

TEST(NodeClone, TruncatesBytesAtTheirFirstZero) {
  Node node(kMagic);
  CGIgs_setNString(node, 0, "ab\0cd", 6, kMagic);
  CGIgs_setNString(node, 1, "without end", 7, kMagic);
  Node copy;
  CGIgs_clone(node, copy, kMagic);
  EXPECT_STREQ("ab", CGIgs_getString(copy, 0, kMagic));
  EXPECT_STREQ("without", CGIgs_getString(copy, 1, kMagic));
}

TEST(NodeClone, CopiesWhatAClearLeftInStringsTwoToSeven) {
  Node node(kMagic);
  fillSlots(node);
  CGIgs_clear(node, kMagic);
  Node copy;
  CGIgs_clone(node, copy, kMagic);
  EXPECT_EQ(nullptr, CGIgs_getString(copy, 1, kMagic));
  EXPECT_STREQ("text 2", CGIgs_getString(copy, 2, kMagic));
}

// ---- Trees --------------------------------------------------------------------------------------

constexpr uint32_t kDepth = 100000;

// Runs `script` on a stack with only ten bytes for each level of the trees below.
void onASmallStack(const std::function<void()> &script) {
  tarn_test::asScript({}, "", [&] {
    rlimit small{};
    ASSERT_EQ(0, getrlimit(RLIMIT_STACK, &small));
    small.rlim_cur = 10 * kDepth;
    ASSERT_EQ(0, setrlimit(RLIMIT_STACK, &small));
    script();
  });
}

// Each level uses another child slot and has its number and a text.
void growChain(TarnHandle *root) {
  TarnHandle level = *root;
  for (uint32_t depth = 1; depth <= kDepth; ++depth) {
    Node child(kChild);
    CGIgs_setInt(child, 0, depth, kChild);
    CGIgs_setString(child, depth % 8, "level", kChild);
    ASSERT_EQ(TARN_OK, CGIgs_setStruct(&level, depth % 3, child, 0, kChild));
    level = CGIgs_getStruct(&level, depth % 3, 0);
  }
}

void expectChain(TarnHandle *root) {
  TarnHandle level = *root;
  for (uint32_t depth = 1; depth <= kDepth; ++depth) {
    ASSERT_EQ(kChild, CGIgs_getChildMagic(&level, depth % 3, 0));
    level = CGIgs_getStruct(&level, depth % 3, 0);
    ASSERT_EQ(depth, CGIgs_getInt(&level, 0, kChild));
    ASSERT_STREQ("level", CGIgs_getString(&level, depth % 8, kChild));
  }
  for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(0u, CGIgs_getStruct(&level, i, kChild)) << i;
}

TEST(NodeTreeLarge, AHundredThousandLevelsCanBeBuiltAndDeleted) {
  onASmallStack([] {
    Node root(kMagic);
    growChain(root);
    expectChain(root);
    EXPECT_EQ(TARN_OK, CGIgs_delete(root, kMagic));
  });
}

TEST(NodeTreeLarge, AHundredThousandLevelsCanBeCloned) {
  onASmallStack([] {
    Node root(kMagic);
    growChain(root);
    Node copy;
    EXPECT_EQ(TARN_OK, CGIgs_clone(root, copy, kMagic));
    EXPECT_EQ(TARN_OK, CGIgs_delete(root, kMagic));
    expectChain(copy);
  });
}

TEST(NodeTreeLarge, AHundredThousandLevelsCanBeStoredReplacedAndCleared) {
  onASmallStack([] {
    Node root(kMagic);
    growChain(root);
    Node holder(kMagic);
    EXPECT_EQ(TARN_OK, CGIgs_setStruct(holder, 1, root, kMagic, kMagic));
    EXPECT_EQ(TARN_OK, CGIgs_setStruct(holder, 1, root, kMagic, kMagic));
    TarnHandle stored = CGIgs_getStruct(holder, 1, kMagic);
    expectChain(&stored);
    EXPECT_EQ(TARN_OK, CGIgs_clear(holder, kMagic));
    EXPECT_EQ(emptyContents(kMagic), contentsOf(holder));
    EXPECT_EQ(TARN_OK, CGIgs_clear(root, kMagic));
    EXPECT_EQ(emptyContents(kMagic), contentsOf(root));
  });
}

// Children in every slot, numbered in pre-order.
void growTree(TarnHandle *node, int levels, uint32_t &number) {
  CGIgs_setInt(node, 0, number++, 0);
  if (levels == 0) return;
  for (uint32_t i = 0; i < 3; ++i) {
    Node child(kChild + i);
    CGIgs_setStruct(node, i, child, 0, kChild + i);
    TarnHandle stored = CGIgs_getStruct(node, i, 0);
    growTree(&stored, levels - 1, number);
  }
}

void expectTree(TarnHandle *node, int levels, uint32_t &number) {
  ASSERT_EQ(number++, CGIgs_getInt(node, 0, 0));
  if (levels == 0) return;
  for (uint32_t i = 0; i < 3; ++i) {
    TarnHandle child = CGIgs_getStruct(node, i, 0);
    ASSERT_EQ(1u, CGIgs_IsA(&child, kChild + i));
    expectTree(&child, levels - 1, number);
  }
}

TEST(NodeTree, ChildrenInEverySlotAreClonedIntoTheSameSlots) {
  constexpr int kLevels = 7;
  Node root(kMagic);
  uint32_t grown = 0;
  growTree(root, kLevels, grown);
  Node copy;
  EXPECT_EQ(TARN_OK, CGIgs_clone(root, copy, kMagic));
  EXPECT_EQ(TARN_OK, CGIgs_clear(root, kMagic));
  uint32_t seen = 0;
  expectTree(copy, kLevels, seen);
  EXPECT_EQ(grown, seen);
}

// ---- Out of memory ------------------------------------------------------------------------------

TEST(NodeWithoutMemory, NewReturnsOkAndLeavesTheHandleZero) {
  TarnHandle handle = 0;
  TarnStatus status = kHuge;
  tarn_test::withoutMemory([&] { status = CGIgs_new(&handle, kMagic); });
  EXPECT_EQ(TARN_OK, status);
  EXPECT_EQ(0u, handle);
}

TEST(NodeWithoutMemory, CloneReturnsOkAndLeavesTheDestinationZero) {
  Node node(kMagic);
  fillSlots(node);
  TarnHandle copy = 0;
  TarnStatus status = kHuge;
  tarn_test::withoutMemory([&] { status = CGIgs_clone(node, &copy, kMagic); });
  EXPECT_EQ(TARN_OK, status);
  EXPECT_EQ(0u, copy);
}

TEST(NodeWithoutMemory, SetStringReturnsOkAndEmptiesTheSlot) {
  Node node(kMagic);
  CGIgs_setString(node, 0, "old", kMagic);
  const std::string text(5000, 'x');
  TarnStatus status = kHuge;
  tarn_test::withoutMemory([&] { status = CGIgs_setString(node, 0, text.c_str(), kMagic); });
  EXPECT_EQ(TARN_OK, status);
  EXPECT_EQ(nullptr, CGIgs_getString(node, 0, kMagic));
}

TEST(NodeWithoutMemory, SetNStringReportsItAndEmptiesTheSlot) {
  Node node(kMagic);
  CGIgs_setString(node, 7, "old", kMagic);
  const std::string data(5000, 'x');
  TarnStatus status = 0;
  tarn_test::withoutMemory([&] { status = CGIgs_setNString(node, 7, data.data(), 5000, kMagic); });
  EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
  EXPECT_EQ(nullptr, CGIgs_getString(node, 7, kMagic));
}

TEST(NodeWithoutMemory, SetNStringOfTheLargestLengthReportsIt) {
  // Reserves address space for the length, without memory.
  void *const data =
      mmap(nullptr, kHuge, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (data == MAP_FAILED) GTEST_SKIP() << "no address space for it";
  Node node(kMagic);
  TarnStatus status = 0;
  tarn_test::withoutMemory([&] { status = CGIgs_setNString(node, 0, data, kHuge, kMagic); });
  munmap(data, kHuge);
  EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
  EXPECT_EQ(nullptr, CGIgs_getString(node, 0, kMagic));
}

TEST(NodeWithoutMemory, SetStructReturnsOkAndLeavesTheSlotEmptyWithTheNewMagic) {
  Node node(kMagic);
  Node child(kChild);
  TarnStatus status = kHuge;
  tarn_test::withoutMemory([&] { status = CGIgs_setStruct(node, 0, child, kMagic, kChild); });
  EXPECT_EQ(TARN_OK, status);
  EXPECT_EQ(0u, CGIgs_getStruct(node, 0, kMagic));
  EXPECT_EQ(kChild, CGIgs_getChildMagic(node, 0, kMagic));
}

TEST(NodeWithoutMemory, CloneOmitsWhateverCannotBeAllocated) {
  const std::string large(100000, 'x');
  Node node(kMagic);
  Node child(kChild);
  List list{1, 2, 3};
  TARNGenericList_reserve(list, 10000);
  CGIgs_setList(node, 0, list, kMagic);
  list.forget();
  CGIgs_setString(child, 0, large.c_str(), kChild);
  CGIgs_setString(child, 1, "small", kChild);
  CGIgs_setStruct(node, 1, child, kMagic, kChild);
  CGIgs_setString(node, 7, large.c_str(), kMagic);
  CGIgs_setInt(node, 2, 5, kMagic);
  Node copy;
  TarnStatus status = kHuge;
  tarn_test::withoutMemory([&] { status = CGIgs_clone(node, copy, kMagic); },
                           tarn_test::kLittleMemory);
  EXPECT_EQ(TARN_OK, status);
  TarnHandle copiedList = CGIgs_getList(copy, 0, kMagic);
  EXPECT_EQ(3u, TARNGenericList_getCount(&copiedList));
  EXPECT_EQ(0u, TARNGenericList_getByIndex(&copiedList, 2));
  TarnHandle copiedChild = CGIgs_getStruct(copy, 1, kMagic);
  EXPECT_EQ(nullptr, CGIgs_getString(&copiedChild, 0, kChild));
  EXPECT_STREQ("small", CGIgs_getString(&copiedChild, 1, kChild));
  EXPECT_EQ(nullptr, CGIgs_getString(copy, 7, kMagic));
  EXPECT_EQ(5u, CGIgs_getInt(copy, 2, kMagic));
}

// Compiled scripts contain the numbers, not the names.
TEST(Slots, KeepTheirNumbers) {
  constexpr struct {
    uint32_t slot;
    uint32_t number;
  } kSlots[] = {
      {TARN_LIST_ELEMENTS, 0},
      {TARN_BYTE_BUFFER_LENGTH, 0},
      {TARN_ENVIRONMENT_CONTENT_LENGTH, 0},
      {TARN_ENVIRONMENT_HTTPS, 1},
      {TARN_ENVIRONMENT_BODY, 0},
      {TARN_ENVIRONMENT_COOKIES, 1},
      {TARN_ENTRY_NAME, 0},
      {TARN_ENTRY_VALUE, 1},
      {TARN_ENTRY_STRIPPED_VALUE, 2},
      {TARN_ENTRY_LENGTH, 0},
      {TARN_FILE_FIELD_NAME, 0},
      {TARN_FILE_FILENAME, 1},
      {TARN_FILE_CONTENT_TYPE, 2},
      {TARN_FILE_BYTES, 0},
      {TARN_REQUEST_ENVIRONMENT, 0},
      {TARN_REQUEST_ENTRIES, 1},
      {TARN_REQUEST_FILES, 2},
      {TARN_COOKIE_NAME, 0},
      {TARN_COOKIE_VALUE, 1},
      {TARN_COOKIE_COMMENT, 2},
      {TARN_COOKIE_DOMAIN, 3},
      {TARN_COOKIE_PATH, 4},
      {TARN_COOKIE_RENDERED, 5},
      {TARN_COOKIE_MAX_AGE, 0},
      {TARN_COOKIE_SECURE, 1},
      {TARN_HEADER_CONTENT_TYPE, 0},
      {TARN_HEADER_COOKIES, 0},
      {TARN_RESPONSE_HEADER_FIRST, 0},
      {TARN_RESPONSE_HEADER_SECOND, 1},
      {TARN_RESPONSE_HEADER_NUMBER, 0},
      {TARN_RESPONSE_HEADER_LINES, 0},
      {TARN_RESPONSE_HEADER_COOKIES, 0},
      {TARN_MULTIPART_HEADER_DISPOSITION, 0},
      {TARN_MULTIPART_HEADER_NAME, 1},
      {TARN_MULTIPART_HEADER_FILENAME, 2},
      {TARN_MULTIPART_HEADER_CONTENT_TYPE, 3},
      {TARN_ATTRIBUTE_NAME, 0},
      {TARN_ATTRIBUTE_VALUE, 1},
      {TARN_ATTRIBUTE_NUMBER, 0},
      {TARN_ELEMENT_NAME, 0},
      {TARN_ELEMENT_TEXT, 1},
      {TARN_ELEMENT_NUMBER, 0},
      {TARN_ELEMENT_ATTRIBUTES, 0},
      {TARN_ELEMENT_EMBEDDED, 1},
  };
  for (const auto &each : kSlots) EXPECT_EQ(each.number, each.slot) << (&each - kSlots);
}

}  // namespace
