// Nodes, lists, strings, texts and byte buffers, with each allocation failing in turn.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdlib>
#include <string>

#include "support/failing_memory.h"
#include "support/handles.h"
#include "support/object.h"

namespace tarn_test {
namespace {

constexpr uint32_t kMagic = 4242;
constexpr uint32_t kChild = 4243;

// ---- Nodes --------------------------------------------------------------------------------------

// A child with a child, both with texts and a list.
void fillSlots(TarnHandle *node) {
  Node child(kChild);
  List words{1, 2, 3};
  for (TarnHandle *filled : {static_cast<TarnHandle *>(child), node}) {
    CGIgs_setString(filled, 0, "first", 0);
    CGIgs_setString(filled, 7, "last", 0);
    CGIgs_setInt(filled, 1, 5, 0);
    CGIgs_setStruct(filled, 2, child, 0, kChild);
    TarnHandle list = 0;
    TARNGenericList_clone(words, &list);
    CGIgs_setList(filled, 1, &list, 0);
  }
}

TEST(NodeAtEachFailure, NewLeavesTheHandleZero) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Object node;
    EXPECT_EQ(TARN_OK, memory.call([&] { return CGIgs_new(node, kMagic); }));
    EXPECT_EQ(memory.failed(), node.value() == 0);
  });
}

TEST(NodeAtEachFailure, CloneOmitsWhateverCannotBeAllocated) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Node node(kMagic);
    fillSlots(node);
    const std::string before = pictureOf(node.value());
    Object copy;
    EXPECT_EQ(TARN_OK, memory.call([&] { return CGIgs_clone(node, copy, kMagic); }));
    EXPECT_EQ(before, pictureOf(node.value()));
    EXPECT_TRUE(memory.failed() || copy.picture() == before);
    EXPECT_EQ(copy.value() ? 5U : 0U, CGIgs_getInt(copy, 1, kMagic));
  });
}

TEST(NodeAtEachFailure, SetStructStoresWhatCouldBeCopiedWithTheNewMagic) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Object node(kMagic);
    Node child(kChild);
    fillSlots(node);
    fillSlots(child);
    const std::string before = pictureOf(child.value());
    EXPECT_EQ(TARN_OK,
              memory.call([&] { return CGIgs_setStruct(node, 2, child, kMagic, kChild); }));
    EXPECT_EQ(before, pictureOf(child.value()));
    EXPECT_TRUE(memory.failed() || pictureOf(CGIgs_getStruct(node, 2, kMagic)) == before);
    EXPECT_EQ(kChild, CGIgs_getChildMagic(node, 2, kMagic));
    EXPECT_STREQ("first", CGIgs_getString(node, 0, kMagic));
  });
}

TEST(NodeAtEachFailure, SetStringSucceedsAndLeavesTheSlotEmpty) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Object node(kMagic);
    fillSlots(node);
    EXPECT_EQ(TARN_OK, memory.call([&] { return CGIgs_setString(node, 0, "new", kMagic); }));
    EXPECT_STREQ(memory.failed() ? nullptr : "new", CGIgs_getString(node, 0, kMagic));
    EXPECT_STREQ("last", CGIgs_getString(node, 7, kMagic));
  });
}

TEST(NodeAtEachFailure, SetNStringReturnsOutOfMemoryExactlyWhenTheSlotIsEmpty) {
  int reported = 0;
  forEachFailingAllocation([&](FailingMemory &memory) {
    Object node(kMagic);
    fillSlots(node);
    const TarnStatus status =
        memory.call([&] { return CGIgs_setNString(node, 0, "new", 3, kMagic); });
    const char *text = CGIgs_getString(node, 0, kMagic);
    EXPECT_EQ(text ? TARN_OK : TARN_OUT_OF_MEMORY, status);
    EXPECT_STREQ(text ? "new" : nullptr, text);
    if (status != TARN_OK) ++reported;
  });
  EXPECT_EQ(2, reported) << "the stored block fails once alone and once together with the other";
}

// ---- Byte buffers -------------------------------------------------------------------------------

TEST(ByteBufferAtEachFailure, SetDataReportsItAndLosesTheContents) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Object buffer(TARN_BYTE_BUFFER_MAGIC);
    const std::string empty = buffer.picture();
    CGIfb_setData(buffer, "old", 3);
    const TarnStatus status = memory.call([&] { return CGIfb_setData(buffer, "data", 4); });
    EXPECT_EQ(memory.failed() ? TARN_OUT_OF_MEMORY : TARN_OK, status);
    EXPECT_EQ(memory.failed(), buffer.picture() == empty);
  });
}

// ---- Generic lists ------------------------------------------------------------------------------

TEST(GenericListAtEachFailure, NewReportsItAndLeavesTheHandleZero) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Object list(TARNGenericList_delete);
    const TarnStatus status = memory.call([&] { return TARNGenericList_new(list); });
    EXPECT_EQ(memory.failed() ? TARN_OUT_OF_MEMORY : TARN_OK, status);
    EXPECT_EQ(memory.failed(), list.value() == 0);
  });
}

TEST(GenericListAtEachFailure, CloneReportsAMissingListAndReadsZerosFromAMissingArray) {
  forEachFailingAllocation([](FailingMemory &memory) {
    List list{1, 2, 3};
    Object copy(TARNGenericList_delete);
    const TarnStatus status = memory.call([&] { return TARNGenericList_clone(list, copy); });
    EXPECT_EQ(copy.value() ? TARN_OK : TARN_OUT_OF_MEMORY, status);
    EXPECT_EQ(copy.value() ? 3U : 0U, TARNGenericList_getCount(copy));
    EXPECT_EQ("[1 2 3 ]", pictureOf(list.value()));
    EXPECT_TRUE(memory.failed() || copy.picture() == "[1 2 3 ]");
  });
}

TEST(NodeAtEachFailure, NewUnderTheTagOfAListOrStringLeavesTheHandleZero) {
  for (const uint32_t magic : {TARN_GENERIC_LIST_MAGIC, TARN_STRING_MAGIC}) {
    SCOPED_TRACE(magic);
    forEachFailingAllocation([magic](FailingMemory &memory) {
      Object node;
      EXPECT_EQ(TARN_OK, memory.call([&] { return CGIgs_new(node, magic); }));
      EXPECT_EQ(memory.failed(), node.value() == 0);
    });
  }
}

TEST(NodeAtEachFailure, CloneThatLacksItsListsHasTheRest) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Object node(kMagic);
    for (const uint32_t index : {0U, 1U}) {
      SCOPED_TRACE(index);
      List list{7, 8};
      ASSERT_EQ(TARN_OK, CGIgs_setList(node, index, list, kMagic));
      list.forget();
    }
    ASSERT_EQ(TARN_OK, CGIgs_setInt(node, 0, 5, kMagic));
    Object copy;
    EXPECT_EQ(TARN_OK, memory.call([&] { return CGIgs_clone(node, copy, kMagic); }));
    EXPECT_TRUE(memory.failed() || copy.picture() == node.picture());
    EXPECT_EQ(copy.value() ? 5U : 0U, CGIgs_getInt(copy, 0, kMagic));
  });
}

TEST(GenericListAtEachFailure, AddReportsItAndKeepsTheElements) {
  forEachFailingAllocation([](FailingMemory &memory) {
    List list{1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    const std::string before = pictureOf(list.value());
    const TarnStatus status = memory.call([&] { return TARNGenericList_addDatum(list, 11); });
    const bool added = TARNGenericList_getByIndex(list, 10) == 11;
    EXPECT_EQ(added ? TARN_OK : TARN_OUT_OF_MEMORY, status);
    EXPECT_EQ(20U, TARNGenericList_getCapacity(list));
    EXPECT_TRUE(added || (memory.failed() && pictureOf(list.value()) == before));
  });
}

TEST(GenericListAtEachFailure, ReserveReportsItAndKeepsTheElements) {
  forEachFailingAllocation([](FailingMemory &memory) {
    List list{1, 2, 3};
    const TarnStatus status = memory.call([&] { return TARNGenericList_reserve(list, 100); });
    EXPECT_EQ(memory.failed() ? TARN_OUT_OF_MEMORY : TARN_OK, status);
    const uint32_t capacity = TARNGenericList_getCapacity(list);
    EXPECT_TRUE(capacity % 10 == 0 && capacity > 10 && capacity <= 100) << capacity;
    EXPECT_TRUE(memory.failed() || capacity == 100) << capacity;
    EXPECT_EQ("[1 2 3 ]", pictureOf(list.value()));
  });
}

TEST(GenericListAtEachFailure, InitReturnsOkAndReadsZerosFromAMissingArray) {
  forEachFailingAllocation([](FailingMemory &memory) {
    List list{1, 2, 3};
    const uintptr_t words[] = {5, 6};
    EXPECT_EQ(TARN_OK, memory.call([&] { return ATRNGenericList_init(list, words, 2, 2); }));
    EXPECT_EQ(TARNGenericList_getData(list) ? "[5 6 ]" : "[0 0 ]", pictureOf(list.value()));
    EXPECT_EQ(2U, TARNGenericList_getCapacity(list));
  });
}

TEST(GenericListAtEachFailure, WriteAfterAFailedGrowthReportsASecondFailure) {
  forEachFailingAllocation([](FailingMemory &memory) {
    List list;
    withoutMemory([&] { TARNGenericList_addDatum(list, 1); });
    const TarnStatus status = memory.call([&] { return TARNGenericList_setByIndex(list, 1, 2); });
    EXPECT_TRUE(status == TARN_OK || (status == TARN_OUT_OF_MEMORY && memory.failed()));
    EXPECT_EQ(status == TARN_OK ? "[0 2 ]" : "[]", pictureOf(list.value()));
  });
}

// ---- Strings ------------------------------------------------------------------------------------

const char kLong[] = "longer than the sixteen bytes of a new string";

class String : public Object {
 public:
  explicit String(const char *text) : Object(TARNString_delete) {
    EXPECT_EQ(TARN_OK, TARNString_new(*this));
    EXPECT_EQ(TARN_OK, TARNString_set(*this, text));
  }
};

// The state of a string "abc" when appending to it runs out of memory.
void expectLost(FailingMemory &memory, String &string, TarnStatus status,
                const std::string &whole) {
  EXPECT_EQ(memory.failed() ? TARN_OUT_OF_MEMORY : TARN_OK, status);
  EXPECT_EQ(memory.failed() ? "\"lost\"" : "\"" + whole + "\"", string.picture());
  EXPECT_EQ(TARN_OK, TARNString_append(string, "!"));
  EXPECT_EQ("\"" + (memory.failed() ? "" : whole) + "!\"", string.picture());
}

TEST(StringAtEachFailure, NewReportsItAndLeavesNoStringOrAnEmptyOne) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Object string(TARNString_delete);
    const TarnStatus status = memory.call([&] { return TARNString_new(string); });
    EXPECT_EQ(memory.failed() ? TARN_OUT_OF_MEMORY : TARN_OK, status);
    EXPECT_EQ(0U, TARNString_length(string));
    EXPECT_EQ(string.value() ? TARN_OK : TARN_WRONG_TYPE, TARNString_append(string, kLong));
  });
}

TEST(StringAtEachFailure, DupReportsAMissingStringButNotAMissingText) {
  forEachFailingAllocation([](FailingMemory &memory) {
    String string("abc");
    Object copy(TARNString_delete);
    const TarnStatus status = memory.call([&] { return TARNString_dup(string, copy); });
    EXPECT_EQ(copy.value() ? TARN_OK : TARN_OUT_OF_MEMORY, status);
    EXPECT_EQ("\"abc\"", string.picture());
    EXPECT_EQ(memory.failed(), copy.picture() != "\"abc\"");
  });
}

TEST(StringAtEachFailure, SetReturnsOkAndLeavesTheStringEmpty) {
  forEachFailingAllocation([](FailingMemory &memory) {
    String one("abc");
    String two("def");
    String source(kLong);
    EXPECT_EQ(TARN_OK, memory.call([&] { return TARNString_set(one, kLong); }));
    EXPECT_STREQ(memory.failed() ? nullptr : kLong, TARNString_c_str(one));
    EXPECT_EQ(TARN_OK, memory.call([&] { return TARNString_set_string(two, source); }));
    EXPECT_STREQ(memory.failed() ? nullptr : kLong, TARNString_c_str(two));
    EXPECT_STREQ(kLong, TARNString_c_str(source));
  });
}

TEST(StringAtEachFailure, FailedAppendOrInsertLosesTheText) {
  const std::string text = kLong;
  forEachFailingAllocation([&](FailingMemory &memory) {
    String string("abc");
    const TarnStatus status = memory.call([&] { return TARNString_append(string, kLong); });
    expectLost(memory, string, status, "abc" + text);
  });
  forEachFailingAllocation([&](FailingMemory &memory) {
    String string("abc");
    const TarnStatus status = memory.call([&] { return TARNString_appendn(string, kLong, 1, 20); });
    expectLost(memory, string, status, "abc" + text.substr(1, 20));
  });
  forEachFailingAllocation([&](FailingMemory &memory) {
    String string("abc");
    String source(kLong);
    const TarnStatus status = memory.call([&] { return TARNString_append_string(string, source); });
    expectLost(memory, string, status, "abc" + text);
    EXPECT_STREQ(kLong, TARNString_c_str(source));
  });
  forEachFailingAllocation([&](FailingMemory &memory) {
    String string("abc");
    const TarnStatus status = memory.call([&] { return TARNString_insert(string, kLong, 1); });
    expectLost(memory, string, status, "a" + text + "bc");
  });
  forEachFailingAllocation([&](FailingMemory &memory) {
    String string("abc");
    const TarnStatus status =
        memory.call([&] { return TARNString_insertn(string, kLong, 0, 20, 2); });
    expectLost(memory, string, status, "ab" + text.substr(0, 20) + "c");
  });
}

TEST(StringAtEachFailure, FailedFormattingIsRefusedOrLosesTheText) {
  forEachFailingAllocation([](FailingMemory &memory) {
    String string("abc");
    const TarnStatus status =
        memory.call([&] { return TARNString_append_sprintf(string, "%s", kLong); });
    const bool refused = status == TARN_BAD_ARGUMENT && string.picture() == "\"abc\"";
    if (!refused) expectLost(memory, string, status, std::string("abc") + kLong);
  });
  forEachFailingAllocation([](FailingMemory &memory) {
    String string("abc");
    const TarnStatus status =
        memory.call([&] { return TARNString_insert_sprintf(string, 0, "%s", kLong); });
    const bool refused = status == TARN_BAD_ARGUMENT && string.picture() == "\"abc\"";
    if (!refused) expectLost(memory, string, status, std::string(kLong) + "abc");
  });
}

TEST(StringAtEachFailure, SubstrReportsAMissingStringAndLeavesAMissingTextEmpty) {
  forEachFailingAllocation([](FailingMemory &memory) {
    String string(kLong);
    Object part(TARNString_delete);
    const TarnStatus status = memory.call([&] { return TARNString_substr(string, 1, 0, part); });
    EXPECT_EQ(part.value() ? TARN_OK : TARN_OUT_OF_MEMORY, status);
    EXPECT_STREQ(kLong, TARNString_c_str(string));
    EXPECT_TRUE(memory.failed() || TARNString_compare(part, kLong + 1) == 0);
    EXPECT_TRUE(!memory.failed() || TARNString_length(part) == 0);
  });
}

TEST(StringAtEachFailure, ReserveReturnsOkAndLeavesTheStringUnchanged) {
  forEachFailingAllocation([](FailingMemory &memory) {
    String string("abc");
    EXPECT_EQ(TARN_OK, memory.call([&] { return TARNString_reserve(string, 100); }));
    EXPECT_EQ("\"abc\"", string.picture());
  });
}

// ---- Texts --------------------------------------------------------------------------------------

void expectText(FailingMemory &memory, const char *expected, char *text) {
  EXPECT_STREQ(memory.failed() ? nullptr : expected, text);
  std::free(text);
}

int format(FailingMemory &memory, char **out, const char *pattern, ...) {
  va_list args;
  va_start(args, pattern);
  const int length = memory.call([&] { return tarn_vasprintf(out, pattern, args); });
  va_end(args);
  return length;
}

TEST(TextAtEachFailure, AsprintfReturnsNoText) {
  forEachFailingAllocation([](FailingMemory &memory) {
    char *text = nullptr;
    const int length = memory.call([&] { return tarn_asprintf(&text, "%d-%s", 7, "x"); });
    EXPECT_EQ(memory.failed() ? 0 : 3, length);
    expectText(memory, "7-x", text);
    EXPECT_EQ(3, format(memory, &text, "%d-%s", 8, "y") + (memory.failed() ? 3 : 0));
    expectText(memory, "8-y", text);
  });
}

// To print it, the C library allocates memory each time. It has to be measured and then printed.
TEST(TextAtEachFailure, AsprintfOfAVeryLongNumberReturnsNoText) {
  forEachFailingAllocation([](FailingMemory &memory) {
    char *text = nullptr;
    const int length = memory.call([&] { return tarn_asprintf(&text, "%.100000f", 0.0); });
    EXPECT_EQ(memory.failed() ? 0 : 100002, length);
    const std::string expected = "0." + std::string(100000, '0');
    expectText(memory, expected.c_str(), text);
  });
}

TEST(TextAtEachFailure, FunctionsThatAllocateATextReturnNull) {
  forEachFailingAllocation([](FailingMemory &memory) {
    expectText(memory, "a b", memory.call([&] { return unescapeString("a%20b"); }));
    expectText(memory, "a", memory.call([&] { return stripString(" a\n"); }));
  });
}

TEST(TextAtEachFailure, ReadStringReturnsNull) {
  char input[] = " 4 abc";
  forEachFailingAllocation([&](FailingMemory &memory) {
    FILE *stream = fmemopen(input, sizeof input - 1, "r");
    ASSERT_NE(nullptr, stream);
    char *text = memory.call([&] { return readString(stream); });
    EXPECT_TRUE(memory.failed() || std::string("abc") == text);
    std::free(text);
    std::fclose(stream);
  });
}

TEST(TextAtEachFailure, ExtractBetweenReturnsNoBufferOrAnEmptyOne) {
  forEachFailingAllocation([](FailingMemory &memory) {
    Object whole(TARN_BYTE_BUFFER_MAGIC);
    CGIfb_setData(whole, "x", 1);
    Object one;
    Object two;
    *one = memory.call([&] { return extractBetween("[x]", 3, "[", "]"); });
    EXPECT_EQ(memory.failed(), one.picture() != whole.picture());
    *two = memory.call([&] { return extractBetween1("'x'", 3, "'"); });
    EXPECT_EQ(memory.failed(), two.picture() != whole.picture());
  });
}

TEST(TextAtEachFailure, SaferSystemReturnsTheSameAsForANullCommand) {
  const int ofNull = std::system(nullptr);
  forEachFailingAllocation([&](FailingMemory &memory) {
    const int result = memory.call([&] { return saferSystem("exit 0"); });
    EXPECT_EQ(memory.failed() ? ofNull : 0, result);
  });
}

}  // namespace
}  // namespace tarn_test
