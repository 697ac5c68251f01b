#include <gtest/gtest.h>
#include <tarn.hpp>

#include <cstring>
#include <string>
#include <utility>

#include "support/failing_memory.h"
#include "support/processor_time.h"

namespace {

TEST(CppString, IsEmptyOrBeginsWithAText) {
  const tarn::String empty;
  EXPECT_TRUE(empty);
  EXPECT_EQ("", empty.view());
  EXPECT_TRUE(empty.empty());
  const tarn::String text("text");
  EXPECT_EQ("text", text.view());
  EXPECT_STREQ("text", text.c_str());
  EXPECT_EQ(4U, text.size());
  EXPECT_FALSE(text.empty());
}

TEST(CppString, CopiesAViewUpToItsEndOrAZeroByte) {
  tarn::String string(std::string_view("text", 2));
  EXPECT_EQ("te", string.view());
  EXPECT_TRUE(string.append(std::string_view("x\0y", 3)));
  EXPECT_TRUE(string.append("t"));
  EXPECT_EQ("text", string.view());
  EXPECT_TRUE(string.append(std::string_view("\0more", 5)));
  EXPECT_EQ("text", string.view());
}

TEST(CppString, CanBeReplaced) {
  tarn::String string("old");
  EXPECT_TRUE(string.assign("a new and longer text"));
  EXPECT_EQ("a new and longer text", string.view());
  std::string_view part = string.view();
  part.remove_prefix(2);
  EXPECT_TRUE(string.assign(part)) << "its own text";
  EXPECT_EQ("new and longer text", string.view());
  EXPECT_TRUE(string.assign(""));
  EXPECT_EQ("", string.view());
}

TEST(CppString, Grows) {
  tarn::String string("b");
  EXPECT_TRUE(string.append("d"));
  EXPECT_TRUE(string.insert(1, "c"));
  EXPECT_TRUE(string.insert(0, "a"));
  EXPECT_TRUE(string.insert(4, "e"));
  EXPECT_TRUE(string.append(""));
  EXPECT_TRUE(string.append(std::string_view()));
  EXPECT_EQ("abcde", string.view());
  EXPECT_TRUE(string.append(string.view()));
  EXPECT_EQ("abcdeabcde", string.view());
  std::string expected = "abcdeabcde";
  for (int i = 0; i < 100; ++i) {
    EXPECT_TRUE(string.append("0123456789"));
    expected += "0123456789";
  }
  EXPECT_EQ(expected, string.view());
}

TEST(CppString, InsertsATextUpToItsZeroByte) {
  tarn::String string("ab");
  EXPECT_TRUE(string.insert(1, std::string_view("x\0y", 3)));
  EXPECT_EQ("axb", string.view());
  EXPECT_TRUE(string.insert(0, std::string_view("\0y", 2)));
  EXPECT_EQ("axb", string.view());
  EXPECT_TRUE(string.insert(0, std::string_view("long enough to need a new buffer\0y", 34)));
  EXPECT_EQ("long enough to need a new bufferaxb", string.view());
}

TEST(CppString, RefusesToInsertBeyondItsEnd) {
  tarn::String string("ab");
  EXPECT_FALSE(string.insert(3, "x"));
  EXPECT_EQ("ab", string.view());
}

TEST(CppString, AppendsFormattedText) {
  tarn::String string("n=");
  EXPECT_TRUE(string.append_format("%d, %s", 42, "a text that is rather long"));
  EXPECT_EQ("n=42, a text that is rather long", string.view());
}

TEST(CppString, GrowsInLinearTime) {
  tarn_test::limitProcessorTime();
  tarn::String string;
  int moves = 0;
  const char *at = string.c_str();
  for (int i = 0; i < 2000000; ++i) {
    ASSERT_TRUE(string.append("12345"));
    if (std::exchange(at, string.c_str()) != string.c_str()) ++moves;
  }
  EXPECT_EQ(10000000U, string.size());
  EXPECT_EQ(10000000U, std::strlen(string.c_str()));
  EXPECT_GT(50, moves);
}

TEST(CppString, SeesWhatFunctionsOfTarnHChange) {
  tarn::String string("abc");
  TarnHandle *const handle = string.handle();
  EXPECT_EQ(TARN_OK, TARNString_append(handle, "def"));
  EXPECT_EQ("abcdef", string.view());
  EXPECT_TRUE(string.append("g"));
  EXPECT_EQ(TARN_OK, TARNString_remove(handle, 0, 3));
  EXPECT_EQ(4U, string.size());
  EXPECT_TRUE(string.append("h"));
  EXPECT_EQ("defgh", string.view());
  string = tarn::String("new");
  EXPECT_EQ(TARN_OK, TARNString_append(handle, "er"));
  EXPECT_TRUE(string.append("!"));
  EXPECT_EQ("newer!", string.view());
  tarn::String moved = std::move(string);
  EXPECT_EQ(TARN_OK, TARNString_set(moved.handle(), "set"));
  EXPECT_TRUE(moved.append("."));
  EXPECT_EQ("set.", moved.view());
}

TEST(CppString, ReservesRoom) {
  tarn::String string("abc");
  EXPECT_TRUE(string.reserve(1000));
  const char *const at = string.c_str();
  for (int i = 0; i < 997; ++i) EXPECT_TRUE(string.append("x"));
  EXPECT_EQ(at, string.c_str());
  EXPECT_TRUE(string.reserve(10)) << "there is more";
  EXPECT_EQ(1000U, string.size());
  EXPECT_FALSE(string.reserve(SIZE_MAX));
  tarn::String empty(std::move(string));
  EXPECT_FALSE(string.reserve(1));
}

TEST(CppString, AppendsWithAnOperator) {
  tarn::String string("a");
  string += "b";
  (string += std::string("c")) += "";
  string += string.view();
  EXPECT_EQ("abcabc", string.view());
}

TEST(CppString, ComparesWithTexts) {
  const tarn::String string("abc");
  EXPECT_TRUE(string == "abc");
  EXPECT_TRUE("abc" == string);
  EXPECT_TRUE(string == std::string("abc"));
  EXPECT_TRUE(string == tarn::String("abc"));
  EXPECT_FALSE(string != tarn::String("abc"));
  EXPECT_TRUE(string != "ab");
  EXPECT_TRUE(std::string_view("abcd") != string);
  EXPECT_TRUE(tarn::String() == "");
}

TEST(CppString, CopiesKeepTheirLength) {
  tarn::String string("abc");
  tarn::String copy = string.clone();
  EXPECT_TRUE(copy.append("d"));
  EXPECT_EQ("abcd", copy.view());
  EXPECT_EQ("abc", string.view());
}

TEST(CppString, Shrinks) {
  tarn::String string("abcdef");
  string.remove(1, 2);
  EXPECT_EQ("adef", string.view());
  string.remove(1, 0);
  EXPECT_EQ("adef", string.view());
  string.remove(4, 1);
  string.remove(100, 1);
  EXPECT_EQ("adef", string.view());
  string.remove(2, SIZE_MAX);
  EXPECT_EQ("ad", string.view());
  string.clear();
  EXPECT_EQ("", string.view());
  EXPECT_TRUE(string.append("x"));
  EXPECT_EQ("x", string.view());
}

TEST(CppString, StaysEmptyAfterAMove) {
  tarn::String string("text");
  const tarn::String other = std::move(string);
  EXPECT_FALSE(string);
  EXPECT_EQ("", string.view());
  EXPECT_EQ(0U, string.size());
  EXPECT_FALSE(string.append("x"));
  EXPECT_FALSE(string.append_format("%d", 1));
  string.clear();
  EXPECT_FALSE(string);
  EXPECT_TRUE(string.assign("new"));
  EXPECT_EQ("new", string.view());
}

TEST(CppStringMemory, StaysAsItWasIfThereIsNoRoomToReserve) {
  tarn::String string("text");
  bool done = true;
  tarn_test::withoutMemory([&] { done = string.reserve(100000); });
  EXPECT_FALSE(done);
  EXPECT_EQ("text", string.view());
}

TEST(CppStringMemory, ReportsFailedAllocations) {
  const std::string large(1000, 'x');
  tarn::String string("text");
  bool done = true;
  tarn_test::withoutMemory([&] { done = string.assign(large); });
  EXPECT_FALSE(done);
  EXPECT_EQ("text", string.view());
  tarn_test::withoutMemory([&] { done = string.append(large); });
  EXPECT_FALSE(done);
  EXPECT_EQ("", string.view());
  EXPECT_TRUE(string.append("again"));
  EXPECT_EQ("again", string.view());
}

}  // namespace
