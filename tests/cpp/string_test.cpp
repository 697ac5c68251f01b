#include <gtest/gtest.h>
#include <tarn.hpp>

#include <string>

#include "support/failing_memory.h"

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

TEST(CppString, ReportsFailedAllocations) {
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
