// Debuggers and tools depend on the order of the fields of nodes and lists. A node that shares a block
// has only its tag at its address; its slots are elsewhere, in the same order.
#include <gtest/gtest.h>

#include <cstddef>

#include "core/cgigs.h"
#include "core/tarn_string.h"

namespace tarn::internal {
namespace {

constexpr size_t kWord = sizeof(uintptr_t);

constexpr size_t aligned(size_t offset) { return (offset + kWord - 1) / kWord * kWord; }

constexpr size_t offsetInNode(size_t offsetInSlots) {
  return offsetof(WholeNode, slots) + offsetInSlots;
}

TEST(NodeLayout, HasItsFieldsInTheDocumentedOrder) {
  EXPECT_EQ(0U, offsetof(Node, magic));
  EXPECT_EQ(0U, offsetof(WholeNode, node));
  EXPECT_EQ(kWord, offsetInNode(offsetof(Slots, lists)));
  EXPECT_EQ(offsetof(Slots, lists) + 2 * kWord, offsetof(Slots, structs));
  EXPECT_EQ(offsetof(Slots, structs) + 3 * kWord, offsetof(Slots, childMagics));
  EXPECT_EQ(aligned(offsetInNode(offsetof(Slots, childMagics)) + 3 * 4),
            offsetInNode(offsetof(Slots, strings)));
  EXPECT_EQ(offsetof(Slots, strings) + 8 * kWord, offsetof(Slots, ints));
  EXPECT_EQ(offsetof(Slots, ints) + 3 * 4, offsetof(Slots, doubleValue));
  EXPECT_EQ(aligned(offsetInNode(offsetof(Slots, doubleValue)) + 4),
            offsetInNode(offsetof(Slots, fixed)));
  EXPECT_GE(sizeof(WholeNode), offsetInNode(offsetof(Slots, fixed)) + kWord);
}

TEST(NodeLayout, OfANodeInASharedBlockBeginsWithTheTagToo) {
  EXPECT_EQ(0U, offsetof(ShortNode, node));
}

TEST(GenericListLayout, HasItsFieldsInTheDocumentedOrder) {
  EXPECT_EQ(0U, offsetof(GenericList, magic));
  EXPECT_EQ(4U, offsetof(GenericList, count));
  EXPECT_EQ(8U, offsetof(GenericList, capacity));
  EXPECT_EQ(aligned(12), offsetof(GenericList, data));
}

TEST(StringLayout, HasItsFieldsInTheDocumentedOrder) {
  EXPECT_EQ(0U, offsetof(String, magic));
  EXPECT_EQ(4U, offsetof(String, capacity));
  EXPECT_EQ(8U, offsetof(String, buffer));
}

// The same for the string's tag: the node is an empty string without a buffer.
TEST(StringLayout, FitsIntoANodeWithItsTag) {
  ASSERT_LE(sizeof(String), sizeof(WholeNode));
  TarnHandle handle = 0;
  ASSERT_EQ(TARN_OK, CGIgs_new(&handle, TARN_STRING_MAGIC));
  EXPECT_EQ(0U, TARNString_length(&handle));
  EXPECT_EQ(TARN_OK, TARNString_append(&handle, "text"));
  EXPECT_STREQ("text", TARNString_c_str(&handle));
  EXPECT_EQ(TARN_OK, TARNString_delete(&handle));
  EXPECT_EQ(0U, handle);
}

// List operations treat a node created by CGIgs_new() with the list's tag as a list. The node is
// large enough, and because it is all zeros the list is empty.
TEST(GenericListLayout, FitsIntoANodeWithItsTag) {
  ASSERT_LE(sizeof(GenericList), sizeof(WholeNode));
  TarnHandle handle = 0;
  ASSERT_EQ(TARN_OK, CGIgs_new(&handle, TARN_GENERIC_LIST_MAGIC));
  EXPECT_EQ(TARN_OK, TARNGenericList_addDatum(&handle, 7));
  EXPECT_EQ(7U, TARNGenericList_getByIndex(&handle, 0));
  EXPECT_EQ(TARN_OK, TARNGenericList_delete(&handle));
  EXPECT_EQ(0U, handle);
}

}  // namespace
}  // namespace tarn::internal
