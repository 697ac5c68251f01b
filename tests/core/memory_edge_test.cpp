// Texts and bytes at the edge of a mapped page: nothing outside them is read or written.
#include <gtest/gtest.h>
#include <tarn.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "support/form.h"
#include "support/guarded.h"
#include "support/handles.h"
#include "support/processor_time.h"

namespace tarn_test {
namespace {

using namespace std::string_literals;

// All other tests in this file depend on this.
TEST(MemoryEdgeDeathTest, KillsAProgramThatReadsOrWritesOneByteBeyond) {
  Guarded after("abc");
  Guarded before("abc", Edge::kBefore);
  const auto read = [](const char *place) { return *const_cast<const volatile char *>(place); };
  const auto write = [](char *place) { *const_cast<volatile char *>(place) = 'x'; };
  EXPECT_EQ('c', read(after.text() + 2));
  EXPECT_EQ('a', read(before.text()));
  EXPECT_DEATH(read(after.text() + 3), "");
  EXPECT_DEATH(write(after.text() + 3), "");
  EXPECT_DEATH(read(before.text() - 1), "");
  EXPECT_DEATH(write(before.text() - 1), "");
}

// ---- Text utilities -----------------------------------------------------------------------------

TEST(MemoryEdge, IsNotCrossedByUnescapeString) {
  const std::string pieces[] = {"a", "%", "4", "+", "%4", "%41", "%zz", "%00", "\xFF"};
  std::mt19937 random(20070717);
  for (int round = 0; round < roundsInTime(3000); ++round) {
    std::string text;
    for (auto length = random() % 6; length > 0; --length) text += pieces[random() % 9];
    GuardedText input(text);
    ASSERT_EQ(decoded(text), copyAndRelease(unescapeString(input.text()))) << text;
  }
}

TEST(MemoryEdge, IsNotCrossedByStripString) {
  for (const char *text : {"", " ", "\t\n\r ", "a", " a", "a ", " a b \r\n"}) {
    SCOPED_TRACE(testing::PrintToString(text));
    std::string expected = text;
    expected.erase(0, expected.find_first_not_of(" \t\n\r"));
    expected.erase(expected.find_last_not_of(" \t\n\r") + 1);
    Guarded after(text + "\0"s);
    Guarded before(text + "\0"s, Edge::kBefore);
    EXPECT_EQ(expected, copyAndRelease(stripString(after.text())));
    EXPECT_EQ(expected, copyAndRelease(stripString(before.text())));
  }
}

TEST(MemoryEdge, IsNotCrossedByMemfind) {
  const std::string text = "aabaabaaab\0aab"s;
  for (size_t length = 0; length <= text.size(); ++length) {
    for (size_t size = 0; size <= length; ++size) {
      for (size_t at = 0; at + size <= text.size(); ++at) {
        SCOPED_TRACE(testing::Message() << size << " of " << length << " at " << at);
        Guarded haystack(text.substr(0, length));
        Guarded needle(text.substr(at, size));
        const size_t found = haystack.str().find(needle.str());
        void *const expected = found == std::string::npos ? nullptr : haystack.text() + found;
        ASSERT_EQ(expected,
                  memfind(haystack.text(), haystack.size(), needle.text(), needle.size()));
      }
    }
  }
  Guarded none("");
  Guarded one("a");
  EXPECT_EQ(nullptr, memfind(none.text(), 0, one.text(), 1));
  EXPECT_EQ(none.text(), memfind(none.text(), 0, one.text(), 0));
}

TEST(MemoryEdge, IsNotCrossedByComparisons) {
  Guarded unended("abc");
  Guarded other("ABC");
  GuardedText text("abcd");
  EXPECT_EQ(0, nStringsAreEqual(unended.text(), other.text(), 3));
  EXPECT_EQ(0, nStringsAreEqual(unended.text(), text.text(), 3));
  EXPECT_GT(nStringsAreEqual(text.text(), GuardedText("abc").text(), UINT32_MAX), 0);
  EXPECT_EQ(0, stringsAreEqual(text.text(), GuardedText("ABCD").text()));
  EXPECT_LT(stringsAreEqual(GuardedText("").text(), text.text()), 0);
}

// The caller provides one byte after the data; with `open` at the start nothing further is read.
TEST(MemoryEdge, IsNotCrossedByExtractBetween) {
  const auto between = [](const std::string &data, const char *open, const char *close) {
    GuardedText input(data);
    TarnHandle buffer = extractBetween(input.text(), input.size() - 1, open, close);
    const auto *bytes =
        reinterpret_cast<const char *>(CGIgs_getFixed(&buffer, TARN_BYTE_BUFFER_MAGIC));
    std::string found(bytes ? bytes : "",
                      CGIgs_getInt(&buffer, TARN_BYTE_BUFFER_LENGTH, TARN_BYTE_BUFFER_MAGIC));
    CGIgs_delete(&buffer, TARN_BYTE_BUFFER_MAGIC);
    return found;
  };
  EXPECT_EQ("x", between("[x]", "[", "]"));
  EXPECT_EQ("x\0"s, between("[x", "[", "]"));
  EXPECT_EQ("\0"s, between("[", "[", "]"));
  EXPECT_EQ("", between("", "[", "]"));
  EXPECT_EQ("", between("[", "[[", "]"));
  EXPECT_EQ("x]\0"s, between("[x]", "[", "]]"));
  EXPECT_EQ("ab\0"s, between("ab", "", "]"));
  EXPECT_EQ("", between("abc[xy", "(", ")"));
}

// ---- Bytes that are kept ------------------------------------------------------------------------

TEST(MemoryEdge, IsNotCrossedWhenNodesAndBuffersCopyBytes) {
  for (const size_t size : {1, 2, 3, 4, 15, 16, 17, 4095, 4096, 4097}) {
    Guarded data(std::string(size, 'x'));
    const std::string text = data.str();

    Node buffer(TARN_BYTE_BUFFER_MAGIC);
    EXPECT_EQ(TARN_OK, CGIfb_setData(buffer, data.text(), data.size()));
    EXPECT_EQ(text, reinterpret_cast<const char *>(CGIgs_getFixed(buffer, TARN_BYTE_BUFFER_MAGIC)));

    Node node(4242);
    EXPECT_EQ(TARN_OK, CGIgs_setNString(node, 0, data.text(), data.size(), 4242));
    EXPECT_EQ(text, CGIgs_getString(node, 0, 4242)) << "a zero byte follows";
    Node copy;
    EXPECT_EQ(TARN_OK, CGIgs_clone(node, copy, 4242));
    EXPECT_EQ(text, CGIgs_getString(copy, 0, 4242));

    Node entry(TARN_FORM_ENTRY_MAGIC);
    EXPECT_EQ(TARN_OK, FormEntry_setValue(entry, data.text(), data.size()));
    EXPECT_EQ((Entry{kNone, text}), entryOf(entry.value()));

    Node file(TARN_FORM_FILE_MAGIC);
    EXPECT_EQ(TARN_OK, FormFile_init(file, GuardedText("f").text(), GuardedText("n").text(),
                                     GuardedText("").text(), data.text(), data.size()));
    EXPECT_EQ((File{"f", "n", "", text}), fileOf(file.value()));
  }
}

TEST(MemoryEdge, IsNotCrossedWhenAListCopiesWords) {
  for (uint32_t capacity = 0; capacity < 25; ++capacity) {
    SCOPED_TRACE(capacity);
    std::string bytes(capacity * sizeof(uintptr_t), '\1');
    Guarded words(bytes);
    for (const uint32_t count : {0U, capacity / 2, capacity, capacity + 1, UINT32_MAX}) {
      SCOPED_TRACE(count);
      List list;
      EXPECT_EQ(TARN_OK, ATRNGenericList_init(list, words.text(), count, capacity));
      EXPECT_EQ(count, TARNGenericList_getCount(list));
      EXPECT_EQ(capacity, TARNGenericList_getCapacity(list));
      uintptr_t ones = 0;
      std::memset(&ones, 1, sizeof ones);
      for (const uint32_t index : {0U, capacity - 1, capacity, capacity + 9, UINT32_MAX - 1}) {
        SCOPED_TRACE(index);
        EXPECT_EQ(index < count && index < capacity ? ones : 0,
                  TARNGenericList_getByIndex(list, index));
      }
    }
  }
}

// Growing beyond a 32-bit capacity fails and leaves the capacity overstated.
TEST(MemoryEdge, IsNotCrossedByAListThatCouldNotGrow) {
  List list{1, 2, 3};
  ASSERT_EQ(TARN_OUT_OF_MEMORY, TARNGenericList_reserve(list, UINT32_MAX));
  EXPECT_EQ(20U, TARNGenericList_getCapacity(list));
  Node copy;
  TarnHandle cloned = 0;
  EXPECT_EQ(TARN_OK, TARNGenericList_clone(list, &cloned));
  EXPECT_EQ(20U, TARNGenericList_getCapacity(&cloned));
  EXPECT_EQ(3U, TARNGenericList_getByIndex(&cloned, 2));
  EXPECT_EQ(TARN_OK, TARNGenericList_setByIndex(&cloned, 19, 20));
  EXPECT_EQ(20U, TARNGenericList_getByIndex(&cloned, 19));
  EXPECT_EQ(TARN_OK, TARNGenericList_delete(&cloned));

  EXPECT_EQ(TARN_OK, TARNGenericList_setByIndex(list, 19, 20));
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNGenericList_setByIndex(list, 20, 21));
  EXPECT_EQ(20U, TARNGenericList_getByIndex(list, 19));
  EXPECT_EQ(0U, TARNGenericList_getByIndex(list, 10));
  EXPECT_EQ(2U, TARNGenericList_getByIndex(list, 1));
  EXPECT_EQ(TARN_OK, TARNGenericList_addDatum(list, 21));
  EXPECT_EQ(30U, TARNGenericList_getCapacity(list));
  EXPECT_EQ(21U, TARNGenericList_getByIndex(list, 20));
  EXPECT_EQ(TARN_OK, TARNGenericList_clear(list));
  EXPECT_EQ(0U, TARNGenericList_getCount(list));

  List fresh;
  ASSERT_EQ(TARN_OUT_OF_MEMORY, TARNGenericList_reserve(fresh, UINT32_MAX - 1));
  EXPECT_EQ(10U, TARNGenericList_getCapacity(fresh));
  EXPECT_EQ(TARN_OK, TARNGenericList_clear(fresh));
  EXPECT_EQ(TARN_OK, TARNGenericList_setByIndex(fresh, 9, 7));
  EXPECT_EQ(7U, TARNGenericList_getByIndex(fresh, 9));
}

// ---- The dynamic string -------------------------------------------------------------------------

// The string after `count` bytes of `text` from `offset` were inserted at `position`.
std::string withInserted(std::string to, const std::string &text, size_t offset, size_t count,
                         size_t position) {
  if (count == 0) count = text.size();
  std::string part = text.substr(offset, count);
  part.resize(count);
  if (position > to.size()) return to;
  to.insert(position, part);
  return std::string(asText(to));
}

TEST(MemoryEdge, IsNotCrossedWhenAStringCopiesText) {
  for (const size_t held : {0, 1, 7, 15, 16, 17, 40}) {
    for (const std::string &text : {""s, "a"s, "hello"s, std::string(16, 't')}) {
      GuardedText source(text);
      const std::string before(held, 'h');
      for (uint32_t offset = 0; offset <= text.size(); ++offset) {
        for (const uint32_t count : {0U, 1U, 4U, 5U, 6U, 15U, 16U, 17U, 100U}) {
          for (const size_t position : {size_t{0}, held / 2, held, held + 1, held + 1000}) {
            TarnHandle string = 0;
            ASSERT_EQ(TARN_OK, TARNString_new(&string));
            ASSERT_EQ(TARN_OK, TARNString_set(&string, before.c_str()));
            EXPECT_EQ(TARN_OK, TARNString_insertn(&string, source.text(), offset, count,
                                                  static_cast<uint32_t>(position)));
            ASSERT_EQ(withInserted(before, text, offset, count, position),
                      TARNString_c_str(&string))
                << count << " from " << offset << " at " << position << " of " << held;
            EXPECT_EQ(TARN_OK, TARNString_delete(&string));
          }
        }
      }
    }
  }
}

TEST(MemoryEdge, IsNotCrossedWhenAStringFormatsOrComparesText) {
  TarnHandle string = 0;
  ASSERT_EQ(TARN_OK, TARNString_new(&string));
  for (size_t size = 0; size < 100; ++size) {
    SCOPED_TRACE(size);
    const std::string text(size, 'x');
    EXPECT_EQ(TARN_OK, TARNString_set(&string, GuardedText(text).text()));
    EXPECT_EQ(0, TARNString_compare(&string, GuardedText(text).text()));
    EXPECT_LT(TARNString_compare(&string, GuardedText(text + "y").text()), 0);
    EXPECT_EQ(TARN_OK, TARNString_clear(&string));
    EXPECT_EQ(TARN_OK, TARNString_append_sprintf(&string, "%s%%", GuardedText(text).text()));
    EXPECT_EQ(text + "%", TARNString_c_str(&string));
  }
  EXPECT_EQ(TARN_OK, TARNString_delete(&string));
}

}  // namespace
}  // namespace tarn_test
