#include <gtest/gtest.h>
#include <sys/mman.h>
#include <tarn.h>

#include <cstring>
#include <string>

#include "support/failing_memory.h"
#include "support/handles.h"

namespace {

using tarn_test::List;
using tarn_test::Node;

constexpr uint32_t kMagic = 22878;

const char *dataOf(TarnHandle *buffer) {
  return reinterpret_cast<const char *>(CGIgs_getFixed(buffer, kMagic));
}

std::string bytesOf(TarnHandle *buffer) {
  const char *data = dataOf(buffer);
  return data == nullptr ? std::string()
                         : std::string(data, CGIgs_getInt(buffer, TARN_BYTE_BUFFER_LENGTH, kMagic));
}

TEST(ByteBuffer, StartsWithoutBytes) {
  Node buffer(kMagic);
  EXPECT_EQ(nullptr, dataOf(buffer));
  EXPECT_EQ(0u, CGIgs_getInt(buffer, TARN_BYTE_BUFFER_LENGTH, kMagic));
}

TEST(ByteBuffer, KeepsACopyOfTheBytesAndTheirCount) {
  Node buffer(kMagic);
  char data[] = {'a', 'b', 'c'};
  EXPECT_EQ(TARN_OK, CGIfb_setData(buffer, data, 3));
  data[0] = 'x';
  EXPECT_NE(data, dataOf(buffer));
  EXPECT_EQ("abc", bytesOf(buffer));
  EXPECT_EQ(3u, CGIgs_getInt(buffer, TARN_BYTE_BUFFER_LENGTH, kMagic));
}

TEST(ByteBuffer, PutsAZeroByteAfterTheBytes) {
  Node buffer(kMagic);
  CGIfb_setData(buffer, "abcdef", 3);
  EXPECT_STREQ("abc", dataOf(buffer));
  CGIfb_setData(buffer, "x", 1);
  EXPECT_STREQ("x", dataOf(buffer));
}

TEST(ByteBuffer, KeepsZeroBytes) {
  Node buffer(kMagic);
  const std::string data("\0a\0\xff\0", 5);
  EXPECT_EQ(TARN_OK, CGIfb_setData(buffer, data.data(), 5));
  EXPECT_EQ(data, bytesOf(buffer));
}

TEST(ByteBufferLarge, KeepsMegabytes) {
  Node buffer(kMagic);
  std::string data(10 << 20, '\0');
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 31 / 7);
  EXPECT_EQ(TARN_OK, CGIfb_setData(buffer, data.data(), 10 << 20));
  EXPECT_TRUE(data == bytesOf(buffer));
  EXPECT_EQ('\0', dataOf(buffer)[data.size()]);
}

TEST(ByteBuffer, RefusesNullDataOrLengthZeroAndKeepsItsContents) {
  Node buffer(kMagic);
  CGIfb_setData(buffer, "abc", 3);
  CGIgs_setString(buffer, 0, "label", kMagic);
  const char *before = dataOf(buffer);
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIfb_setData(buffer, "xyz", 0));
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIfb_setData(buffer, nullptr, 3));
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIfb_setData(buffer, nullptr, 0));
  EXPECT_EQ(before, dataOf(buffer));
  EXPECT_EQ("abc", bytesOf(buffer));
  EXPECT_STREQ("label", CGIgs_getString(buffer, 0, kMagic));
}

TEST(ByteBuffer, SetDataOnAnotherTypeReturnsWrongTypeAndChangesNothing) {
  Node node(4711);
  CGIgs_setFixed(node, 5, 4711);
  CGIgs_setInt(node, 0, 6, 4711);
  List list{1};
  TarnHandle empty = 0;
  for (TarnHandle *handle : {static_cast<TarnHandle *>(nullptr), &empty,
                             static_cast<TarnHandle *>(node), static_cast<TarnHandle *>(list)}) {
    EXPECT_EQ(TARN_WRONG_TYPE, CGIfb_setData(handle, "abc", 3));
    EXPECT_EQ(TARN_WRONG_TYPE, CGIfb_setData(handle, nullptr, 0));
  }
  EXPECT_EQ(5u, CGIgs_getFixed(node, 4711));
  EXPECT_EQ(6u, CGIgs_getInt(node, 0, 4711));
  EXPECT_EQ(1u, TARNGenericList_getCount(list));
}

TEST(ByteBuffer, SetDataClearsTheNodeFirst) {
  Node buffer(kMagic);
  Node child(4711);
  CGIgs_setStruct(buffer, 1, child, kMagic, 4711);
  CGIgs_setInt(buffer, 1, 5, kMagic);
  CGIgs_setDouble(buffer, 0, 5, kMagic);
  CGIgs_setString(buffer, 1, "gone", kMagic);
  CGIgs_setString(buffer, 2, "kept", kMagic);
  EXPECT_EQ(TARN_OK, CGIfb_setData(buffer, "abc", 3));
  EXPECT_EQ(0u, CGIgs_getStruct(buffer, 1, kMagic));
  EXPECT_EQ(0u, CGIgs_getInt(buffer, 1, kMagic));
  EXPECT_EQ(0.0, CGIgs_getDouble(buffer, 0, kMagic));
  EXPECT_EQ(nullptr, CGIgs_getString(buffer, 1, kMagic));
  EXPECT_STREQ("kept", CGIgs_getString(buffer, 2, kMagic));
}

TEST(ByteBuffer, OldBytesStayReadableAfterTheyAreReplaced) {
  Node buffer(kMagic);
  CGIfb_setData(buffer, "abc", 3);
  const char *former = dataOf(buffer);
  EXPECT_EQ(TARN_OK, CGIfb_setData(buffer, "defgh", 5));
  EXPECT_NE(former, dataOf(buffer));
  EXPECT_EQ("defgh", bytesOf(buffer));
  EXPECT_STREQ("abc", former);
}

TEST(ByteBuffer, CanBeFilledFromItsOwnBytesOrText) {
  Node buffer(kMagic);
  CGIfb_setData(buffer, "abcdef", 6);
  EXPECT_EQ(TARN_OK, CGIfb_setData(buffer, dataOf(buffer) + 2, 3));
  EXPECT_EQ("cde", bytesOf(buffer));
  CGIgs_setString(buffer, 0, "label", kMagic);
  EXPECT_EQ(TARN_OK, CGIfb_setData(buffer, CGIgs_getString(buffer, 0, kMagic), 5));
  EXPECT_EQ("label", bytesOf(buffer));
}

TEST(ByteBuffer, BytesStayReadableAfterClearAndDelete) {
  Node buffer(kMagic);
  CGIfb_setData(buffer, "abc", 3);
  const char *first = dataOf(buffer);
  EXPECT_EQ(TARN_OK, CGIgs_clear(buffer, kMagic));
  EXPECT_EQ(nullptr, dataOf(buffer));
  EXPECT_EQ(0u, CGIgs_getInt(buffer, TARN_BYTE_BUFFER_LENGTH, kMagic));
  CGIfb_setData(buffer, "def", 3);
  const char *second = dataOf(buffer);
  EXPECT_EQ(TARN_OK, CGIgs_delete(buffer, kMagic));
  EXPECT_STREQ("abc", first);
  EXPECT_STREQ("def", second);
}

TEST(ByteBuffer, CloneSharesTheBytes) {
  Node buffer(kMagic);
  CGIfb_setData(buffer, "a\0c", 3);
  Node copy;
  EXPECT_EQ(TARN_OK, CGIgs_clone(buffer, copy, kMagic));
  EXPECT_EQ(dataOf(buffer), dataOf(copy));
  EXPECT_EQ(TARN_OK, CGIgs_delete(buffer, kMagic));
  EXPECT_EQ(std::string("a\0c", 3), bytesOf(copy));
}

TEST(ByteBufferWithoutMemory, SetDataReportsItAndLosesTheContents) {
  Node buffer(kMagic);
  CGIfb_setData(buffer, "abc", 3);
  const std::string data(5000, 'x');
  TarnStatus status = 0;
  tarn_test::withoutMemory([&] { status = CGIfb_setData(buffer, data.data(), 5000); });
  EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
  EXPECT_EQ(nullptr, dataOf(buffer));
  EXPECT_EQ(0u, CGIgs_getInt(buffer, TARN_BYTE_BUFFER_LENGTH, kMagic));
}

TEST(ByteBufferWithoutMemory, SetDataOfTheLargestLengthReportsIt) {
  // Reserves address space for the length, without memory.
  void *const data =
      mmap(nullptr, UINT32_MAX, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (data == MAP_FAILED) GTEST_SKIP() << "no address space for it";
  Node buffer(kMagic);
  TarnStatus status = 0;
  tarn_test::withoutMemory([&] { status = CGIfb_setData(buffer, data, UINT32_MAX); });
  munmap(data, UINT32_MAX);
  EXPECT_EQ(TARN_OUT_OF_MEMORY, status);
  EXPECT_EQ(nullptr, dataOf(buffer));
}

}  // namespace
