// Debuggers and tools depend on the order of the fields of nodes and lists.
#include <gtest/gtest.h>

#include <cstddef>

#include "core/cgigs.h"
#include "core/tarn_string.h"

namespace tarn::internal {
namespace {

constexpr size_t kWord = sizeof(uintptr_t);

constexpr size_t aligned(size_t offset) { return (offset + kWord - 1) / kWord * kWord; }

TEST(NodeLayout, HasItsFieldsInTheDocumentedOrder) {
  EXPECT_EQ(0U, offsetof(Node, magic));
  EXPECT_EQ(kWord, offsetof(Node, lists));
  EXPECT_EQ(offsetof(Node, lists) + 2 * kWord, offsetof(Node, structs));
  EXPECT_EQ(offsetof(Node, structs) + 3 * kWord, offsetof(Node, childMagics));
  EXPECT_EQ(aligned(offsetof(Node, childMagics) + 3 * 4), offsetof(Node, strings));
  EXPECT_EQ(offsetof(Node, strings) + 8 * kWord, offsetof(Node, ints));
  EXPECT_EQ(offsetof(Node, ints) + 3 * 4, offsetof(Node, doubleValue));
  EXPECT_EQ(aligned(offsetof(Node, doubleValue) + 4), offsetof(Node, fixed));
  EXPECT_GE(sizeof(Node), offsetof(Node, fixed) + kWord);
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
  ASSERT_LE(sizeof(String), sizeof(Node));
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
  ASSERT_LE(sizeof(GenericList), sizeof(Node));
  TarnHandle handle = 0;
  ASSERT_EQ(TARN_OK, CGIgs_new(&handle, TARN_GENERIC_LIST_MAGIC));
  EXPECT_EQ(TARN_OK, TARNGenericList_addDatum(&handle, 7));
  EXPECT_EQ(7U, TARNGenericList_getByIndex(&handle, 0));
  EXPECT_EQ(TARN_OK, TARNGenericList_delete(&handle));
  EXPECT_EQ(0U, handle);
}

}  // namespace
}  // namespace tarn::internal
