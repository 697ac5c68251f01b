#include <gtest/gtest.h>
#include <malloc.h>
#include <tarn.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/failing_memory.h"
#include "support/form.h"
#include "support/handles.h"

namespace {

using tarn_test::Node;

// A string owned by the test; converts to the address of its handle.
class String {
 public:
  explicit String(const std::string &text = {}) {
    EXPECT_EQ(TARN_OK, TARNString_new(&handle_));
    EXPECT_EQ(TARN_OK, TARNString_set(&handle_, text.c_str()));
  }
  // For a string that the library will create.
  explicit String(std::nullptr_t) {}
  ~String() { TARNString_delete(&handle_); }
  String(const String &) = delete;
  String &operator=(const String &) = delete;

  operator TarnHandle *() { return &handle_; }
  TarnHandle value() const { return handle_; }
  // Gives up ownership, because a node owns the string now.
  void forget() { handle_ = 0; }

 private:
  TarnHandle handle_ = 0;
};

// The start of the record, which scripts can read.
struct Record {
  uint32_t magic;
  int32_t capacity;
  char *buffer;
};

Record recordOf(const TarnHandle *handle) {
  Record record;
  std::memcpy(&record, reinterpret_cast<const void *>(*handle), sizeof record);
  return record;
}

int32_t capacityOf(const TarnHandle *handle) { return recordOf(handle).capacity; }

// The bytes of the buffer, even beyond the end of the text.
std::string bytesOf(TarnHandle *handle, size_t count) { return {TARNString_c_str(handle), count}; }

std::string letters(size_t count) {
  std::string text(count, '\0');
  for (size_t i = 0; i < count; ++i) text[i] = static_cast<char>('a' + i % 26);
  return text;
}

void withEveryOtherHandle(const std::function<void(TarnHandle *)> &look) {
  tarn_test::withEveryHandleExcept(TARN_STRING_MAGIC, look);
}

// ---- What can be done to a string ---------------------------------------------------------------

using Act = std::function<TarnStatus(TarnHandle *)>;

const char *toArgument(const std::string &text) { return text.c_str(); }
const char *toArgument(const char *text) { return text; }
uint32_t toArgument(uint32_t number) { return number; }
uint32_t toArgument(int number) { return static_cast<uint32_t>(number); }

template <auto operation>
constexpr auto actionOf = [](const auto &...args) -> Act {
  return [... args = std::decay_t<decltype(args)>(args)](TarnHandle *to) {
    return operation(to, toArgument(args)...);
  };
};

constexpr auto set = actionOf<TARNString_set>;
constexpr auto append = actionOf<TARNString_append>;
constexpr auto appendn = actionOf<TARNString_appendn>;
constexpr auto insert = actionOf<TARNString_insert>;
constexpr auto insertn = actionOf<TARNString_insertn>;
constexpr auto removeBytes = actionOf<TARNString_remove>;
constexpr auto reserve = actionOf<TARNString_reserve>;
Act setString(const std::string &text) {
  return [=](auto *to) { return TARNString_set_string(to, String(text)); };
}
Act appendString(const std::string &text) {
  return [=](auto *to) { return TARNString_append_string(to, String(text)); };
}
Act appendFormatted(const std::string &text) {
  return [=](auto *to) { return TARNString_append_sprintf(to, "%s", text.c_str()); };
}
Act insertFormatted(const std::string &text, uint32_t position) {
  return [=](auto *to) { return TARNString_insert_sprintf(to, position, "%s", text.c_str()); };
}
const Act clear = TARNString_clear;
// Growth fails because the size exceeds the largest capacity; the buffer and the text are lost.
const Act loseBuffer = [](auto *to) {
  return TARNString_appendn(to, "x", 0, INT32_MAX) == TARN_OUT_OF_MEMORY ? TARN_OK
                                                                         : TARN_BAD_ARGUMENT;
};

struct Case {
  const char *what;
  std::string start;
  std::vector<Act> acts;
  std::string text;
  int32_t capacity = 16;
};

void checkCases(const std::vector<Case> &cases) {
  for (const Case &row : cases) {
    SCOPED_TRACE(row.what);
    String string(row.start);
    for (const Act &act : row.acts) EXPECT_EQ(TARN_OK, act(string));
    EXPECT_EQ(row.text.size(), TARNString_length(string));
    EXPECT_EQ(row.text, TARNString_c_str(string));
    EXPECT_EQ(row.capacity, capacityOf(string));
  }
}

// ---- Creating and deleting ----------------------------------------------------------------------

TEST(StringNew, CreatesAnEmptyStringWithACapacityOf16) {
  String string(nullptr);
  ASSERT_EQ(TARN_OK, TARNString_new(string));
  EXPECT_EQ(1U, TARNString_IsA(string));
  EXPECT_EQ(0U, TARNString_length(string));
  EXPECT_STREQ("", TARNString_c_str(string));
  EXPECT_EQ(37181U, recordOf(string).magic);
  EXPECT_EQ(16, recordOf(string).capacity);
  EXPECT_EQ(TARNString_c_str(string), recordOf(string).buffer);
  EXPECT_EQ(std::string(16, '\0'), bytesOf(string, 16));
}

TEST(StringNew, RefusesANullAddressAndAHandleInUse) {
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_new(nullptr));
  String string("kept");
  const TarnHandle before = string.value();
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_new(string));
  EXPECT_EQ(before, string.value());
  EXPECT_STREQ("kept", TARNString_c_str(string));
}

TEST(StringDelete, SetsTheHandleToZeroAndIsRefusedTheSecondTime) {
  String string("text");
  EXPECT_EQ(TARN_OK, TARNString_delete(string));
  EXPECT_EQ(0U, string.value());
  EXPECT_EQ(TARN_WRONG_TYPE, TARNString_delete(string));
}

// Under the sanitizers nothing is counted: they detect a leaked text themselves.
TEST(StringDeleteMemory, ReleasesTheText) {
  constexpr uint32_t kMuch = 1U << 20;
  const auto inUse = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
  const size_t before = inUse();
  String string;
  TARNString_reserve(string, kMuch);
  EXPECT_TRUE(tarn_test::kSanitized || inUse() >= before + kMuch);
  TARNString_delete(string);
  EXPECT_LT(inUse(), before + kMuch);
}

// ---- Handles that are not strings ---------------------------------------------------------------

TEST(String, OperationsCheckTheTypeFirst) {
  withEveryOtherHandle([](TarnHandle *handle) {
    EXPECT_EQ(0U, TARNString_IsA(handle));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_delete(handle));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_dup(handle, nullptr));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_set(handle, nullptr));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_set_string(handle, nullptr));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_clear(handle));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_insert(handle, nullptr, 0));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_insertn(handle, nullptr, 0, 0, 0));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_insert_sprintf(handle, 0, "%d", 1));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_remove(handle, 0, 0));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_substr(handle, 0, 0, nullptr));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_fprint(handle, nullptr));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_fprintline(handle, nullptr));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_reserve(handle, 10));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_append(handle, "text"));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_appendn(handle, "text", 0, 0));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_append_sprintf(handle, "%d", 1));
  });
}

TEST(String, AnotherTypeReadsAsEmptyAndSortsFirst) {
  String string;
  withEveryOtherHandle([&](TarnHandle *handle) {
    EXPECT_EQ(0U, TARNString_length(handle));
    EXPECT_STREQ("", TARNString_c_str(handle));
    EXPECT_EQ(-1, TARNString_compare(handle, ""));
    EXPECT_EQ(-1, TARNString_compare(handle, nullptr));
    EXPECT_EQ(-1, TARNString_compare_string(handle, string));
    EXPECT_EQ(-1, TARNString_compare_string(string, handle));
    EXPECT_EQ(-1, TARNString_compare_string(handle, handle));
  });
}

TEST(String, NullTextIsRefusedAndChangesNothing) {
  String string("kept");
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_set(string, nullptr));
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_append(string, nullptr));
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_appendn(string, nullptr, 2, 100));
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_insert(string, nullptr, 0));
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_insertn(string, nullptr, 2, 100, 0));
  EXPECT_STREQ("kept", TARNString_c_str(string));
  EXPECT_EQ(16, capacityOf(string));
}

TEST(StringAppend, ChecksForANullTextBeforeTheType) {
  withEveryOtherHandle([](TarnHandle *handle) {
    const TarnStatus status = handle && *handle ? TARN_BAD_ARGUMENT : TARN_WRONG_TYPE;
    EXPECT_EQ(status, TARNString_append(handle, nullptr));
    EXPECT_EQ(status, TARNString_appendn(handle, nullptr, 2, 100));
  });
}

// ---- Growing ------------------------------------------------------------------------------------

TEST(StringCapacity, EachOperationGrowsByItsOwnRule) {
  const auto l = letters;
  checkCases({
      {"a text as long as the capacity fits", "", {set(l(16))}, l(16), 16},
      {"a longer text gets 16 more", "", {set(l(17))}, l(17), 33},
      {"and so does a much longer one", "", {set(l(1000))}, l(1000), 1016},
      {"a shorter text leaves the capacity", l(17), {set("a")}, "a", 33},
      {"as long as the new capacity", l(17), {set(l(33))}, l(33), 33},
      {"longer than the new capacity", l(17), {set(l(34))}, l(34), 50},
      {"another string's text fits", "", {setString(l(16))}, l(16), 16},
      {"another string's text does not", "", {setString(l(17))}, l(17), 33},
      {"an appended text fits with its end", "-", {append(l(14))}, "-" + l(14), 16},
      {"without room for the end it does not", "-", {append(l(15))}, "-" + l(15), 33},
      {"appending nothing to 15", l(15), {append("")}, l(15), 16},
      {"appending nothing to a full string", l(16), {append("")}, l(16), 33},
      {"appending up to the new capacity", l(17), {append(l(15))}, l(17) + l(15), 33},
      {"appending beyond it", l(17), {append(l(16))}, l(17) + l(16), 50},
      {"another string appended fits", "-", {appendString(l(14))}, "-" + l(14), 16},
      {"another string appended does not", "-", {appendString(l(15))}, "-" + l(15), 33},
      {"formatted text fits", "-", {appendFormatted(l(14))}, "-" + l(14), 16},
      {"formatted text does not", "-", {appendFormatted(l(15))}, "-" + l(15), 33},
      {"formatted text inserted fits", "-", {insertFormatted(l(14), 0)}, l(14) + "-", 16},
      {"formatted text inserted does not", "-", {insertFormatted(l(15), 0)}, l(15) + "-", 33},
      {"a count fits", "", {appendn("hi", 0, 15)}, "hi", 16},
      {"a count does not, short as the text is", "", {appendn("hi", 0, 16)}, "hi", 33},
      {"an insertion beyond the text counts too", "ab", {insert(l(20), 100)}, "ab", 39},
      {"a reserve of what is there", "", {reserve(16)}, "", 16},
      {"a reserve has no slack", "", {reserve(17)}, "", 17},
      {"a reserve behind a text fits", l(10), {reserve(6)}, l(10), 16},
      {"a reserve behind a text does not", l(10), {reserve(7)}, l(10), 17},
      {"a reserve of ten behind ten", l(10), {reserve(10)}, l(10), 20},
      {"a reserve of ten in a new string", "", {reserve(10)}, "", 16},
      {"a reserve for nothing", l(16), {reserve(0)}, l(16), 16},
      {"a large reserve, then used", "-", {reserve(9999), append(l(9998))}, "-" + l(9998), 10000},
      {"a removal keeps the capacity", l(17), {removeBytes(0, 0)}, "", 33},
      {"a clear forgets the capacity", l(17), {clear, clear}, "", 0},
      {"after it, an append", l(17), {clear, append("a")}, "a", 18},
      {"after it, an append of nothing", l(17), {clear, append("")}, "", 17},
      {"after it, an insertion", l(17), {clear, insert("hi", 0)}, "hi", 19},
      {"after it, a set", l(17), {clear, set("a")}, "a", 17},
      {"after it, a set of nothing", l(17), {clear, set("")}, "", 0},
      {"after it, a reserve", l(17), {clear, reserve(1)}, "", 1},
      {"after it, a reserve for nothing", l(17), {clear, reserve(0)}, "", 0},
      {"a reserve that no capacity counts", "ab", {reserve(0x80000000U)}, "ab", 16},
      {"a reserve whose end passes 32 bits", "ab", {reserve(UINT32_MAX)}, "ab", 16},
  });
}

TEST(StringCapacity, TextMovesOnlyWhenItDoesNotFit) {
  String string("0123456789");
  const auto place = [&] { return reinterpret_cast<uintptr_t>(TARNString_c_str(string)); };
  const uintptr_t before = place();
  TARNString_append(string, "abcde");
  TARNString_reserve(string, 1);
  EXPECT_EQ(before, place());
  TARNString_append(string, "f");
  EXPECT_NE(before, place());
  EXPECT_STREQ("0123456789abcdef", TARNString_c_str(string));
}

// ---- Writing and removing -----------------------------------------------------------------------

TEST(StringSet, ReplacesTheWholeTextWithTheGivenBytes) {
  checkCases({{"longer", "xy", {set("100%s%n\xff\x01\n")}, "100%s%n\xff\x01\n"},
              {"shorter", "xyz", {set("a")}, "a"},
              {"empty", "xyz", {set("")}, ""},
              {"another string's", "xyz", {setString("\xc3\xa4")}, "\xc3\xa4"}});
}

TEST(StringSetString, CopiesTheTextAndRefusesASourceOfAnotherType) {
  String source("from here");
  String target("to there");
  EXPECT_EQ(TARN_OK, TARNString_set_string(target, source));
  TARNString_append(target, "!");
  EXPECT_STREQ("from here", TARNString_c_str(source));
  withEveryOtherHandle([&](TarnHandle *other) {
    EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_set_string(target, other));
  });
  EXPECT_STREQ("from here!", TARNString_c_str(target));
}

TEST(StringClear, KeepsTheBufferAndTheBytesAfterTheTerminator) {
  String string("abcdef");
  const char *place = TARNString_c_str(string);
  EXPECT_EQ(TARN_OK, TARNString_clear(string));
  EXPECT_EQ(place, TARNString_c_str(string));
  EXPECT_EQ(std::string("\0bcdef", 6), bytesOf(string, 6));
}

TEST(StringAppendString, AnotherTypeAppendsNothingAndReturnsOk) {
  String target("kept");
  withEveryOtherHandle([&](TarnHandle *other) {
    EXPECT_EQ(TARN_OK, TARNString_append_string(target, other));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_append_string(other, target));
    EXPECT_EQ(TARN_WRONG_TYPE, TARNString_append_string(other, other));
  });
  EXPECT_STREQ("kept", TARNString_c_str(target));
}

TEST(StringInsert, InsertsAtAPositionInTheTextAndIgnoresOneBeyondIt) {
  const std::string tail = letters(1000);
  checkCases({{"append", "xy", {append("abc")}, "xyabc"},
              {"append nothing", "xy", {append("")}, "xy"},
              {"append a string", "xy", {appendString("abc")}, "xyabc"},
              {"front", "xy", {insert("abc", 0)}, "abcxy"},
              {"middle", "xy", {insert("abc", 1)}, "xabcy"},
              {"end", "xy", {insert("abc", 2)}, "xyabc"},
              {"nothing", "xy", {insert("", 1)}, "xy"},
              {"a long tail", tail, {insert("abc", 1)}, "aabc" + tail.substr(1), 1016},
              {"a long tail moves", tail, {insert(tail, 1)}, "a" + tail + tail.substr(1), 2017},
              {"just beyond", "xy", {insert("abc", 3), append("!")}, "xy!"},
              {"at the buffer's end", "xy", {insert("abc", 15), append("!")}, "xy!"},
              {"far beyond", "xy", {insert("abc", 0x80000000U), append("!")}, "xy!"},
              {"as far as can be", "xy", {insert("abc", UINT32_MAX), append("!")}, "xy!"}});
}

TEST(StringInsertn, InsertsPartOfATextPaddedWithZeroBytes) {
  const std::string full = "0123456789abcdef";
  checkCases({
      {"a part, appended", "", {appendn("hello", 1, 3)}, "ell"},
      {"less than asked for", "", {appendn("hi", 0, 4)}, "hi"},
      {"the front", "xy", {insertn("hello", 0, 2, 1)}, "xhey"},
      {"the last byte", "xy", {insertn("hello", 4, 1, 1)}, "xoy"},
      {"all of it by its count", "xy", {insertn("hello", 0, 5, 1)}, "xhelloy"},
      {"count 0 is all of it", "xy", {insertn("hello", 0, 0, 1)}, "xhelloy"},
      {"zero bytes hide what follows them", "xyz", {insertn("hi", 0, 4, 1)}, "xhi"},
      {"for good", "xyz", {insertn("hi", 0, 4, 1), append("!")}, "xhi!"},
      {"count 0 counts what the offset skips", "xyz", {insertn("hello", 2, 0, 1)}, "xllo"},
      {"which does not show at the end", "xyz", {insertn("hello", 2, 0, 3)}, "xyzllo"},
      {"an offset at the text's end", "xyz", {insertn("hello", 5, 0, 1)}, "x"},
      {"with a count", "xyz", {insertn("hello", 5, 2, 1)}, "x"},
      {"no text", "xyz", {insertn("", 0, 0, 1)}, "xyz"},
      {"no text for a count", "xyz", {insertn("", 0, 3, 1)}, "x"},
      {"a part, growing", full, {insertn("hello", 1, 3, 10)}, "0123456789ellabcdef", 36},
      {"zero bytes, growing", full, {insertn("hi", 0, 40, 10)}, "0123456789hi", 73},
  });
}

TEST(StringInsertn, BeyondTheTextWritesInvisiblyAndOnlyInsideTheBuffer) {
  String string("ab");
  EXPECT_EQ(TARN_OK, TARNString_insert(string, "XY", 3));
  EXPECT_EQ(std::string("ab\0XY", 5), bytesOf(string, 5));
  for (uint32_t position = 3; position < 40; ++position) {
    checkCases({{"beyond", "ab", {insert("0123456789", position)}, "ab"},
                {"filled later", "ab", {insert("012", position), set(letters(16))}, letters(16)}});
  }
}

TEST(StringInsertn, SizeBeyondTheLargestCapacityFailsLikeAnAllocation) {
  for (const uint32_t count :
       {0x7FFFFFECU, 0x7FFFFFF0U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFCU, UINT32_MAX}) {
    SCOPED_TRACE(count);
    String string("abc");
    EXPECT_EQ(TARN_OUT_OF_MEMORY, TARNString_insertn(string, "x", 0, count, 1));
    EXPECT_EQ(nullptr, TARNString_c_str(string));
    EXPECT_EQ(16, capacityOf(string));
  }
}

TEST(StringRemove, RemovesARangeThatIsTruncatedAtTheEndOfTheText) {
  const auto rest = [](uint32_t position, uint32_t count) {
    String string("abcdef");
    EXPECT_EQ(TARN_OK, TARNString_remove(string, position, count));
    return std::string(TARNString_c_str(string));
  };
  EXPECT_EQ("adef", rest(1, 2));
  EXPECT_EQ("bcdef", rest(0, 1));
  EXPECT_EQ("abcde", rest(5, 1));
  EXPECT_EQ("", rest(0, 6));
  EXPECT_EQ("ab", rest(2, 0));
  EXPECT_EQ("", rest(0, 0));
  EXPECT_EQ("abcd", rest(4, 10));
  for (const uint32_t huge : {0x80000000U, UINT32_MAX - 3, UINT32_MAX - 1, UINT32_MAX}) {
    EXPECT_EQ("abcd", rest(4, huge)) << huge;
  }
  for (const uint32_t beyond : {6U, 7U, 15U, 16U, 17U, 100U, 0x80000000U, UINT32_MAX}) {
    for (const uint32_t count : {0U, 1U, 5U, UINT32_MAX}) {
      EXPECT_EQ("abcdef", rest(beyond, count)) << count << " at " << beyond;
    }
  }
}

TEST(StringRemove, BeyondTheTextWritesAZeroByteAfterItsEnd) {
  String string("abcdef");
  TARNString_remove(string, 2, 0);
  EXPECT_EQ(std::string("ab\0def", 6), bytesOf(string, 6));
  EXPECT_EQ(TARN_OK, TARNString_remove(string, 4, 1));
  EXPECT_EQ(std::string("ab\0d\0f", 6), bytesOf(string, 6));
}

// ---- Formatting ---------------------------------------------------------------------------------

TEST(StringSprintf, AppendsAndInsertsFormattedText) {
  String string("<>");
  EXPECT_EQ(TARN_OK, TARNString_append_sprintf(string, "%d-%s%%", 7, "x"));
  EXPECT_EQ(TARN_OK, TARNString_insert_sprintf(string, 1, "%c%05.1f%lx", 'c', 2.5, 255UL));
  EXPECT_STREQ("<c002.5ff>7-x%", TARNString_c_str(string));
}

TEST(StringSprintf, AcceptsArgumentsOfAnyLengthAndCopiesTheirPercentSigns) {
  const std::string much = letters(100000);
  checkCases({{"percent", "-", {appendFormatted("100%s%n%d")}, "-100%s%n%d"},
              {"percent, inserted", "--", {insertFormatted("100%s%n%d", 1)}, "-100%s%n%d-"},
              {"nothing", "kept", {appendFormatted(""), insertFormatted("", 2)}, "kept"},
              {"beyond the text", "kept", {insertFormatted("-", 9)}, "kept"},
              {"much", "-", {appendFormatted(much)}, "-" + much, 100018},
              {"much, inserted", "-", {insertFormatted(much, 0)}, much + "-", 100018}});
}

TEST(StringSprintf, NullFormatIsRefusedWhateverTheHandle) {
  const char *format = nullptr;
  const auto look = [&](TarnHandle *handle) {
    EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_append_sprintf(handle, format, 1));
    EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_insert_sprintf(handle, 0, format, 1));
  };
  String string("kept");
  look(string);
  EXPECT_STREQ("kept", TARNString_c_str(string));
  withEveryOtherHandle(look);
}

// The "C" locale cannot represent the euro sign.
TEST(StringSprintf, FormattingErrorReturnsTheSameAsANullText) {
  const wchar_t euro[] = {0x20AC, 0};
  TarnHandle none = 0;
  Node node(4711);
  String string("kept");
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_append_sprintf(string, "%ls", euro));
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_insert_sprintf(string, 0, "%ls", euro));
  EXPECT_STREQ("kept", TARNString_c_str(string));
  EXPECT_EQ(TARN_WRONG_TYPE, TARNString_append_sprintf(&none, "%ls", euro));
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_append_sprintf(node, "%ls", euro));
  EXPECT_EQ(TARN_WRONG_TYPE, TARNString_insert_sprintf(node, 0, "%ls", euro));
}

// ---- A string's own text ------------------------------------------------------------------------

TEST(StringGivenItsOwnText, WritesItLikeAnyOtherText) {
  using Write = std::function<TarnStatus(TarnHandle *, const char *)>;
  const std::pair<const char *, Write> rows[] = {
      {"append", [](auto *h, auto *t) { return TARNString_append(h, t); }},
      {"append a tail", [](auto *h, auto *t) { return TARNString_append(h, t + 2); }},
      {"append a part", [](auto *h, auto *t) { return TARNString_appendn(h, t, 1, 2); }},
      {"append as an argument",
       [](auto *h, auto *t) { return TARNString_append_sprintf(h, "-%s", t); }},
      {"insert in front", [](auto *h, auto *t) { return TARNString_insert(h, t, 0); }},
      {"insert in the middle", [](auto *h, auto *t) { return TARNString_insert(h, t, 2); }},
      {"insert a tail", [](auto *h, auto *t) { return TARNString_insert(h, t + 1, 3); }},
      {"insert what moves", [](auto *h, auto *t) { return TARNString_insertn(h, t, 2, 2, 1); }},
      {"insert too much", [](auto *h, auto *t) { return TARNString_insertn(h, t, 3, 2000, 2); }},
      {"insert as an argument",
       [](auto *h, auto *t) { return TARNString_insert_sprintf(h, 1, "%s", t); }},
      {"set", [](auto *h, auto *t) { return TARNString_set(h, t); }},
      {"set to a tail", [](auto *h, auto *t) { return TARNString_set(h, t + 2); }},
  };
  for (const auto &[what, write] : rows) {
    for (const size_t size : {4U, 7U, 8U, 15U, 16U, 17U, 33U, 1000U}) {
      SCOPED_TRACE(std::string(what) + " at " + std::to_string(size));
      const std::string text = letters(size);
      String expected(text);
      String string(text);
      EXPECT_EQ(TARN_OK, write(expected, text.c_str()));
      EXPECT_EQ(TARN_OK, write(string, TARNString_c_str(string)));
      EXPECT_STREQ(TARNString_c_str(expected), TARNString_c_str(string));
      EXPECT_EQ(capacityOf(expected), capacityOf(string));
    }
  }
}

TEST(StringGivenItsOwnText, CanBeItsOwnSource) {
  const Act appendItself = [](auto *h) { return TARNString_append_string(h, h); };
  const Act setItself = [](auto *h) { return TARNString_set_string(h, h); };
  checkCases({{"append", "abc", {appendItself, appendItself}, "abcabcabcabc"},
              {"append, growing", letters(8), {appendItself}, letters(8) + letters(8), 33},
              {"set", "abc", {setItself}, "abc"}});
}

TEST(StringGivenItsOwnText, CanUseWhatAClearLeftInTheBuffer) {
  const Act append1 = [](auto *h) { return TARNString_append(h, TARNString_c_str(h) + 1); };
  const Act set1 = [](auto *h) { return TARNString_set(h, TARNString_c_str(h) + 1); };
  checkCases(
      {{"append", "abcd", {clear, append1}, "bcd", 20}, {"set", "abcd", {clear, set1}, "bcd", 19}});
}

// The terminator belongs to the string too; bytes written after it are not part of the text.
TEST(StringGivenItsOwnText, TreatsItsOwnTerminatorAsAnEmptyTextPaddedWithZeroBytes) {
  for (const uint32_t size : {0U, 1U, 5U, 8U}) {
    for (uint32_t position = 0; position <= size; ++position) {
      for (const uint32_t count : {1U, 3U, 5U}) {
        SCOPED_TRACE(std::to_string(count) + " at " + std::to_string(position) + " of " +
                     std::to_string(size));
        const std::string text = letters(size);
        String expected(text);
        String string(text);
        ASSERT_EQ(TARN_OK, TARNString_insertn(expected, "", 0, count, position));
        ASSERT_EQ(TARN_OK,
                  TARNString_insertn(string, TARNString_c_str(string), size, count, position));
        EXPECT_EQ(text.substr(0, position) + std::string(count, '\0') + text.substr(position),
                  bytesOf(string, size + count));
        EXPECT_EQ(bytesOf(expected, size + count), bytesOf(string, size + count));
        EXPECT_EQ(capacityOf(expected), capacityOf(string));
      }
    }
  }
}

// ---- Room ahead of the capacity -----------------------------------------------------------------

TEST(StringGrowthLarge, SmallAppendsSeldomMoveTheText) {
  String string;
  std::string expected;
  const char *at = TARNString_c_str(string);
  int moves = 0;
  for (int i = 0; i < 40000; ++i) {
    ASSERT_EQ(TARN_OK, TARNString_append(string, "12345"));
    expected += "12345";
    if (std::exchange(at, TARNString_c_str(string)) != TARNString_c_str(string)) ++moves;
  }
  EXPECT_GT(30, moves);
  EXPECT_EQ(expected, TARNString_c_str(string));
}

TEST(StringGrowth, AfterAClearTheNextTextGetsANewBuffer) {
  String string;
  for (int i = 0; i < 100; ++i) ASSERT_EQ(TARN_OK, TARNString_append(string, "12345"));
  ASSERT_EQ(TARN_OK, TARNString_clear(string));
  const char *const before = TARNString_c_str(string);
  ASSERT_EQ(TARN_OK, TARNString_append(string, "a"));
  EXPECT_NE(before, TARNString_c_str(string));
  EXPECT_EQ(18, capacityOf(string));
}

// A duplicate has a buffer of exactly the capacity, so that every growth gets a new one. Both must
// have the same bytes up to the capacity, which scripts can read.
TEST(StringGrowth, LeavesTheBytesThatANewBufferWouldHave) {
  std::mt19937 random(20070717);
  const auto below = [&](uint32_t end) { return static_cast<uint32_t>(random() % end); };
  const std::string source = letters(60);
  for (int run = 0; run < 200; ++run) {
    String string;
    for (int step = 0; step < 60; ++step) {
      String copy(nullptr);
      ASSERT_EQ(TARN_OK, TARNString_dup(string, copy));
      const uint32_t position = below(TARNString_length(string) + 8);
      const uint32_t count = 1 + below(40);
      const Act acts[] = {
          appendn(source, below(20), count),
          appendn("short", 0, count),
          insertn(source, below(20), count, position),
          insertn("short", 0, count, position),
          removeBytes(position, below(30)),
          set(source.substr(0, below(60))),
          reserve(below(50)),
      };
      const Act &act = acts[below(std::size(acts))];
      ASSERT_EQ(act(copy), act(string));
      ASSERT_STREQ(TARNString_c_str(copy), TARNString_c_str(string));
      ASSERT_EQ(capacityOf(copy), capacityOf(string));
      const auto capacity = static_cast<size_t>(capacityOf(string));
      ASSERT_EQ(bytesOf(copy, capacity), bytesOf(string, capacity));
    }
  }
}

TEST(StringGrowth, TakesItsOwnTextFromRoomAhead) {
  String string("ab");
  for (int i = 0; i < 12; ++i) {
    ASSERT_EQ(TARN_OK, TARNString_insert(string, TARNString_c_str(string), 1));
  }
  String expected("ab");
  for (int i = 0; i < 12; ++i) {
    const std::string text = TARNString_c_str(expected);
    ASSERT_EQ(TARN_OK, TARNString_insert(expected, text.c_str(), 1));
  }
  EXPECT_STREQ(TARNString_c_str(expected), TARNString_c_str(string));
  EXPECT_EQ(capacityOf(expected), capacityOf(string));
}

// A text from the string's own block always moves to a new one, which must not double each time.
TEST(StringGrowth, ItsOwnTextInSmallPiecesTakesMemoryInProportion) {
  String string("ab");
  for (int i = 0; i < 500; ++i) {
    ASSERT_EQ(TARN_OK, TARNString_appendn(string, TARNString_c_str(string), 0, 1));
  }
  EXPECT_EQ("ab" + std::string(500, 'a'), TARNString_c_str(string));
  void *const block = const_cast<char *>(TARNString_c_str(string));
  EXPECT_GT(4 * static_cast<size_t>(capacityOf(string)), malloc_usable_size(block));
}

// ---- Parts and copies ---------------------------------------------------------------------------

TEST(StringSubstr, ReturnsARangeAsANewString) {
  const auto part = [](int32_t start, uint32_t count) {
    String string("abcdef");
    String result(nullptr);
    EXPECT_EQ(TARN_OK, TARNString_substr(string, start, count, result));
    EXPECT_EQ(1U, TARNString_IsA(result));
    EXPECT_STREQ("abcdef", TARNString_c_str(string));
    return std::string(TARNString_c_str(result));
  };
  EXPECT_EQ("cde", part(2, 3));
  EXPECT_EQ("abcdef", part(0, 6));
  EXPECT_EQ("abcdef", part(0, 0));
  EXPECT_EQ("cdef", part(2, 0));
  EXPECT_EQ("f", part(5, 9));
  for (const uint32_t huge : {0x80000000U, UINT32_MAX - 1, UINT32_MAX}) {
    EXPECT_EQ("cdef", part(2, huge)) << huge;
  }
  for (const int32_t beyond : {6, 7, 100, INT32_MAX, INT32_MIN, -6, -1}) {
    for (const uint32_t count : {0U, 1U, UINT32_MAX}) {
      EXPECT_EQ("", part(beyond, count)) << count << " at " << beyond;
    }
  }
}

TEST(StringSubstr, NewStringHasTheCapacityThatSetWouldGive) {
  String string(letters(100));
  for (const auto &[count, capacity] : {std::pair(16U, 16), std::pair(17U, 33)}) {
    SCOPED_TRACE(count);
    String part(nullptr);
    EXPECT_EQ(TARN_OK, TARNString_substr(string, 26, count, part));
    EXPECT_EQ(letters(count), TARNString_c_str(part));
    EXPECT_EQ(capacity, capacityOf(part));
  }
}

TEST(StringDup, CopiesTextAndCapacityToANewString) {
  for (const size_t size : {0U, 5U, 16U, 17U, 1000U}) {
    SCOPED_TRACE(size);
    String string(letters(size));
    String copy(nullptr);
    ASSERT_EQ(TARN_OK, TARNString_dup(string, copy));
    EXPECT_EQ(1U, TARNString_IsA(copy));
    EXPECT_EQ(letters(size), TARNString_c_str(copy));
    EXPECT_EQ(capacityOf(string), capacityOf(copy));
    TARNString_append(copy, "!");
    EXPECT_EQ(letters(size), TARNString_c_str(string));
    EXPECT_EQ(letters(size) + "!", TARNString_c_str(copy));
  }
}

TEST(StringDup, CopiesTheWholeCapacityWhereverTheTextEnds) {
  String string("abcdef");
  TARNString_remove(string, 2, 0);
  String copy(nullptr);
  ASSERT_EQ(TARN_OK, TARNString_dup(string, copy));
  EXPECT_EQ(std::string("ab\0def", 6), bytesOf(copy, 6));
  TARNString_clear(string);
  String cleared(nullptr);
  ASSERT_EQ(TARN_OK, TARNString_dup(string, cleared));
  EXPECT_STREQ("", TARNString_c_str(cleared));
  EXPECT_EQ(0, capacityOf(cleared));
}

TEST(StringCopies, RefuseANullAddressAndAHandleInUse) {
  String string("abc");
  String used("used");
  for (TarnHandle *const target : std::vector<TarnHandle *>{nullptr, used, string}) {
    EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_dup(string, target));
    EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_substr(string, 0, 1, target));
  }
  EXPECT_STREQ("used", TARNString_c_str(used));
  EXPECT_STREQ("abc", TARNString_c_str(string));
}

// ---- Comparing ----------------------------------------------------------------------------------

TEST(StringCompare, ReturnsWhatStrcmpReturnsAndOneForANullText) {
  // Called through a pointer, so that the compiler does not compute the result. On some processors the
  // number depends on how both texts are aligned, so it compares the very same ones.
  int (*volatile order)(const char *, const char *) = std::strcmp;
  const char *const texts[] = {"", "a", "A", "abc", "abd", "z", "\x7f", "\xff", "\xc3\xa4"};
  for (const char *a : texts) {
    String left(a);
    EXPECT_EQ(1, TARNString_compare(left, nullptr));
    EXPECT_EQ(0, TARNString_compare_string(left, left));
    for (const char *b : texts) {
      String right(b);
      const char *const text = TARNString_c_str(left);
      EXPECT_EQ(order(text, b), TARNString_compare(left, b)) << a << " against " << b;
      EXPECT_EQ(order(text, TARNString_c_str(right)), TARNString_compare_string(left, right))
          << a << " against " << b;
    }
  }
}

// ---- Printing -----------------------------------------------------------------------------------

std::string writtenTo(const std::function<void(FILE *)> &write) {
  char *text = nullptr;
  size_t size = 0;
  FILE *stream = open_memstream(&text, &size);
  write(stream);
  std::fclose(stream);
  std::string written(text, size);
  std::free(text);
  return written;
}

// Captures standard output, which must fit into a pipe.
std::string printed(const std::function<void()> &print) {
  int ends[2];
  EXPECT_EQ(0, pipe(ends));
  std::fflush(stdout);
  const int before = dup(STDOUT_FILENO);
  dup2(ends[1], STDOUT_FILENO);
  close(ends[1]);
  print();
  std::fflush(stdout);
  dup2(before, STDOUT_FILENO);
  close(before);
  std::string written(1000, '\0');
  written.resize(static_cast<size_t>(read(ends[0], written.data(), written.size())));
  close(ends[0]);
  return written;
}

TEST(StringPrint, WritesTheTextUnchanged) {
  for (const char *text : {"", "x", "100%s%n\n\xff"}) {
    SCOPED_TRACE(testing::PrintToString(text));
    String string(text);
    const std::string line = text + std::string("\n");
    EXPECT_EQ(text, writtenTo([&](FILE *to) { EXPECT_EQ(0U, TARNString_fprint(string, to)); }));
    EXPECT_EQ(line, writtenTo([&](FILE *to) { EXPECT_EQ(0U, TARNString_fprintline(string, to)); }));
    EXPECT_EQ(text, printed([&] { EXPECT_EQ(0U, TARNString_print(string)); }));
    EXPECT_EQ(line, printed([&] { EXPECT_EQ(0U, TARNString_printline(string)); }));
  }
}

// Expects no output, not even a newline.
void expectNoPrint(TarnStatus status, TarnHandle *handle) {
  EXPECT_EQ("", printed([&] {
              EXPECT_EQ(status, TARNString_print(handle));
              EXPECT_EQ(status, TARNString_printline(handle));
            }));
  EXPECT_EQ("", writtenTo([&](FILE *stream) {
              EXPECT_EQ(status, TARNString_fprint(handle, stream));
              EXPECT_EQ(status, TARNString_fprintline(handle, stream));
            }));
}

TEST(StringPrint, AnotherTypePrintsNothing) {
  withEveryOtherHandle([](TarnHandle *handle) { expectNoPrint(TARN_WRONG_TYPE, handle); });
}

TEST(StringPrint, ChecksForANullStreamBeforeAMissingBuffer) {
  String string("text");
  for (const Act &act : {set("text"), loseBuffer}) {
    ASSERT_EQ(TARN_OK, act(string));
    EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_fprint(string, nullptr));
    EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_fprintline(string, nullptr));
  }
}

TEST(StringPrint, DoesNotReportWriteErrors) {
  String string("text");
  FILE *readOnly = std::fopen("/dev/null", "r");
  ASSERT_NE(nullptr, readOnly);
  EXPECT_EQ(TARN_OK, TARNString_fprintline(string, readOnly));
  EXPECT_NE(0, std::ferror(readOnly));
  std::fclose(readOnly);
}

// ---- A string that has lost its buffer ----------------------------------------------------------

TEST(StringWithoutABuffer, ReadsAsEmptyAndCannotBePrinted) {
  String string("abc");
  ASSERT_EQ(TARN_OK, loseBuffer(string));
  EXPECT_EQ(1U, TARNString_IsA(string));
  EXPECT_EQ(nullptr, TARNString_c_str(string));
  EXPECT_EQ(0U, TARNString_length(string));
  EXPECT_EQ(0, TARNString_compare(string, ""));
  EXPECT_GT(0, TARNString_compare(string, "a"));
  EXPECT_EQ(1, TARNString_compare(string, nullptr));
  expectNoPrint(TARN_OUT_OF_MEMORY, string);
  String part(nullptr);
  EXPECT_EQ(TARN_OK, TARNString_substr(string, 0, 3, part));
  EXPECT_STREQ("", TARNString_c_str(part));
  String copy(nullptr);
  EXPECT_EQ(TARN_OK, TARNString_dup(string, copy));
  EXPECT_EQ(0U, TARNString_length(copy));
  EXPECT_EQ(16, capacityOf(copy));
}

TEST(StringWithoutABuffer, IsAnEmptySourceExceptForAppendWhichSeesANullText) {
  String string("abc");
  ASSERT_EQ(TARN_OK, loseBuffer(string));
  String other("other");
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_append_string(other, string));
  EXPECT_EQ(TARN_BAD_ARGUMENT, TARNString_append_string(nullptr, string));
  EXPECT_STREQ("other", TARNString_c_str(other));
  EXPECT_LT(0, TARNString_compare_string(other, string));
  EXPECT_EQ(TARN_OK, TARNString_set_string(other, string));
  EXPECT_STREQ("", TARNString_c_str(other));
}

TEST(StringWithoutABuffer, GetsABufferAtTheNextWrite) {
  const std::string full = letters(16);
  checkCases({{"set", "abc", {loseBuffer, set("text")}, "text"},
              {"set to nothing", "abc", {loseBuffer, set("")}, ""},
              {"set to much", "abc", {loseBuffer, set(full + "-")}, full + "-", 33},
              {"set to a string", "abc", {loseBuffer, setString("text")}, "text"},
              {"append", "abc", {loseBuffer, append("text")}, "text"},
              {"append nothing", "abc", {loseBuffer, append("")}, ""},
              {"append much", "abc", {loseBuffer, append(full)}, full, 33},
              {"append a string", "abc", {loseBuffer, appendString("text")}, "text"},
              {"append formatted", "abc", {loseBuffer, appendFormatted("text")}, "text"},
              {"insert", "abc", {loseBuffer, insert("text", 0)}, "text"},
              {"insert beyond the text", "abc", {loseBuffer, insert("text", 9)}, ""},
              {"insert formatted", "abc", {loseBuffer, insertFormatted("text", 0)}, "text"},
              {"reserve", "abc", {loseBuffer, reserve(20)}, "", 20},
              {"after a clear", "abc", {loseBuffer, clear, append("a")}, "a", 18},
              {"with the capacity it had", full + "-", {loseBuffer, append("a")}, "a", 33}});
}

TEST(StringWithoutABuffer, StaysWithoutOneWhenNothingIsWritten) {
  String string("abc");
  for (const Act &act : {loseBuffer, removeBytes(0, 0), removeBytes(4, 1), reserve(16), clear}) {
    EXPECT_EQ(TARN_OK, act(string));
    EXPECT_EQ(nullptr, TARNString_c_str(string));
  }
  EXPECT_EQ(TARN_OK, TARNString_delete(string));
  EXPECT_EQ(0U, string.value());
}

// ---- Without memory -----------------------------------------------------------------------------

constexpr uint32_t kMuch = 4 * tarn_test::kLittleMemory;

TarnStatus runWithoutMemory(const Act &act, TarnHandle *handle,
                            size_t spare = tarn_test::kLittleMemory) {
  TarnStatus status = TARN_NOT_IMPLEMENTED;
  tarn_test::withoutMemory([&] { status = act(handle); }, spare);
  return status;
}

TEST(StringWithoutMemory, NewReportsItAndLeavesNoStringOrOneWithoutABuffer) {
  int without[2] = {};
  size_t spare = 0;
  for (String string(nullptr); runWithoutMemory(TARNString_new, string, spare) != TARN_OK;
       ++spare) {
    ASSERT_GT(1000U, spare);
    ++without[string.value() == 0 ? 0 : 1];
    if (string.value() == 0) continue;
    EXPECT_EQ(nullptr, TARNString_c_str(string));
    EXPECT_EQ(0U, TARNString_length(string));
    EXPECT_EQ(TARN_OK, TARNString_append(string, "text"));
    EXPECT_STREQ("text", TARNString_c_str(string));
    TARNString_delete(string);
  }
  EXPECT_LT(0, without[0]) << "without a string";
  EXPECT_LT(0, without[1]) << "without a buffer";
  String string(nullptr);
  EXPECT_EQ(TARN_OUT_OF_MEMORY, runWithoutMemory(TARNString_new, string, 0));
  EXPECT_EQ(TARN_OUT_OF_MEMORY, runWithoutMemory(TARNString_new, string, spare - 1));
}

TEST(StringWithoutMemory, FailedInsertLosesTheText) {
  const std::string much = letters(kMuch);
  for (const Act &act : {append(much), insert(much, 1), appendn("a", 0, kMuch)}) {
    String string("abc");
    EXPECT_EQ(TARN_OUT_OF_MEMORY, runWithoutMemory(act, string));
    EXPECT_EQ(nullptr, TARNString_c_str(string));
    EXPECT_EQ(16, capacityOf(string));
  }
}

// The room ahead needs twice the memory; without that much, the string grows by its own rule.
TEST(StringWithoutMemory, GrowsWithoutRoomAheadIfThereIsNotEnough) {
  const std::string start = letters(kMuch);
  String string(start);
  const size_t spare = start.size() + start.size() / 2;
  EXPECT_EQ(TARN_OK, runWithoutMemory(append(letters(20)), string, spare));
  EXPECT_EQ(start + letters(20), TARNString_c_str(string));
  EXPECT_EQ(static_cast<int32_t>(start.size()) + 20 + 17, capacityOf(string));
}

TEST(StringWithoutMemory, TextThatFitsIsStillWritten) {
  String string("abc");
  for (const Act &act : {append("def"), insert("-", 0), removeBytes(1, 1), reserve(10)}) {
    EXPECT_EQ(TARN_OK, runWithoutMemory(act, string, 0));
  }
  EXPECT_STREQ("-bcdef", TARNString_c_str(string));
}

TEST(StringWithoutMemory, SetReturnsOkAndLeavesNoText) {
  String string("abc");
  EXPECT_EQ(TARN_OK, runWithoutMemory(set(letters(kMuch)), string));
  EXPECT_EQ(0U, TARNString_length(string));
  EXPECT_EQ(0, TARNString_compare(string, ""));
  EXPECT_EQ(TARN_OK, TARNString_append(string, "text"));
  EXPECT_STREQ("text", TARNString_c_str(string));
}

TEST(StringWithoutMemory, ReserveReturnsOkAndLeavesTheStringUnchanged) {
  String string("abc");
  EXPECT_EQ(TARN_OK, runWithoutMemory(reserve(100), string, 0));
  EXPECT_STREQ("abc", TARNString_c_str(string));
  EXPECT_EQ(16, capacityOf(string));
}

TEST(StringWithoutMemory, FormattingReturnsTheSameAsANullText) {
  String string("abc");
  EXPECT_EQ(TARN_BAD_ARGUMENT, runWithoutMemory(appendFormatted("x"), string, 0));
  EXPECT_EQ(TARN_BAD_ARGUMENT, runWithoutMemory(insertFormatted("x", 0), string, 0));
  EXPECT_STREQ("abc", TARNString_c_str(string));
}

TEST(StringWithoutMemory, DupReportsAMissingRecordButNotAMissingBuffer) {
  String string(letters(kMuch));
  String copy(nullptr);
  const Act dup = [&](auto *to) { return TARNString_dup(string, to); };
  EXPECT_EQ(TARN_OUT_OF_MEMORY, runWithoutMemory(dup, copy, 0));
  EXPECT_EQ(0U, copy.value());
  EXPECT_EQ(TARN_OK, runWithoutMemory(dup, copy));
  EXPECT_EQ(0U, TARNString_length(copy));
  EXPECT_EQ(capacityOf(string), capacityOf(copy));
  EXPECT_EQ(TARN_OK, TARNString_append(copy, "a"));
  EXPECT_STREQ("a", TARNString_c_str(copy));
}

TEST(StringWithoutMemory, SubstrReportsAMissingStringFirstAndNeverAMissingText) {
  String string(letters(kMuch));
  String part(nullptr);
  const Act substr = [&](auto *to) { return TARNString_substr(string, 0, 0, to); };
  EXPECT_EQ(TARN_OUT_OF_MEMORY, runWithoutMemory(substr, nullptr, 0));
  EXPECT_EQ(TARN_OUT_OF_MEMORY, runWithoutMemory(substr, part, 0));
  EXPECT_EQ(0U, part.value());
  EXPECT_EQ(TARN_OK, runWithoutMemory(substr, part));
  EXPECT_EQ(1U, TARNString_IsA(part));
  EXPECT_EQ(0, TARNString_compare(part, ""));
}

// ---- Strings and nodes --------------------------------------------------------------------------

TEST(StringAndNode, NodeOperationsOnAStringReadOnlyItsTag) {
  String string("kept");
  TarnHandle made = 0;
  EXPECT_EQ(37181U, CGIgs_getMagic(string));
  EXPECT_EQ(1U, CGIgs_IsA(string, 0));
  EXPECT_EQ(1U, CGIgs_IsA(string, TARN_STRING_MAGIC));
  EXPECT_EQ(0U, CGIgs_IsA(string, TARN_GENERIC_LIST_MAGIC));
  for (const uint32_t magic : {0U, TARN_STRING_MAGIC, TARN_FORM_ENTRY_MAGIC}) {
    SCOPED_TRACE(magic);
    EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_delete(string, magic));
    EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_clear(string, magic));
    EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_clone(string, &made, magic));
    EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_setList(string, 0, nullptr, magic));
    EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_setStruct(string, 0, string, magic, magic));
    EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_setString(string, 0, "text", magic));
    EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_setNString(string, 0, "text", 4, magic));
    EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_setInt(string, 0, 1, magic));
    EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_setFixed(string, 1, magic));
    EXPECT_EQ(TARN_WRONG_TYPE, CGIgs_setDouble(string, 0, 1, magic));
    EXPECT_EQ(0U, CGIgs_getList(string, 0, magic));
    EXPECT_EQ(0U, CGIgs_getStruct(string, 0, magic));
    EXPECT_EQ(0U, CGIgs_getChildMagic(string, 0, magic));
    EXPECT_EQ(nullptr, CGIgs_getString(string, 0, magic));
    EXPECT_EQ(0U, CGIgs_getInt(string, 0, magic));
    EXPECT_EQ(0U, CGIgs_getFixed(string, magic));
    EXPECT_EQ(0.0, CGIgs_getDouble(string, 0, magic));
  }
  EXPECT_EQ(TARN_OK, TARNGenericList_delete(string));
  EXPECT_EQ(TARN_WRONG_TYPE, TARNGenericList_clear(string));
  EXPECT_EQ(0U, made);
  EXPECT_STREQ("kept", TARNString_c_str(string));
}

TEST(StringAndNode, StringCannotBeAChild) {
  Node node(4711);
  String string("kept");
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_setStruct(node, 0, string, 4711, TARN_STRING_MAGIC));
  EXPECT_EQ(TARN_BAD_ARGUMENT, CGIgs_setStruct(node, 0, string, 4711, 0));
  EXPECT_EQ(0U, CGIgs_getStruct(node, 0, 4711));
  EXPECT_STREQ("kept", TARNString_c_str(string));
}

TEST(StringAndNode, ParkedStringIsReleasedWithTheNode) {
  Node child(815);
  const Act release[] = {
      [](auto *node) { return CGIgs_delete(node, 4711); },
      [](auto *node) { return CGIgs_clear(node, 4711); },
      [&](auto *node) { return CGIgs_setStruct(node, 0, child, 4711, 815); },
  };
  for (const Act &act : release) {
    Node node(4711);
    String string("parked");
    ASSERT_EQ(TARN_OK, CGIgs_setList(node, 2, string, 4711));
    TarnHandle parked = CGIgs_getStruct(node, 0, 4711);
    EXPECT_EQ(string.value(), parked);
    EXPECT_STREQ("parked", TARNString_c_str(&parked));
    string.forget();
    Node copy;
    EXPECT_EQ(TARN_OK, CGIgs_clone(node, copy, 4711));
    EXPECT_EQ(0U, CGIgs_getStruct(copy, 0, 4711));
    EXPECT_EQ(TARN_OK, act(node));
    TarnHandle after = CGIgs_getStruct(node, 0, 4711);
    EXPECT_EQ(0U, TARNString_IsA(&after));
  }
}

TEST(StringAndNode, ParkedStringThatIsReplacedIsOwnedByTheCallerAgain) {
  Node node(4711);
  String string("kept");
  String next("next");
  ASSERT_EQ(TARN_OK, CGIgs_setList(node, 2, string, 4711));
  ASSERT_EQ(TARN_OK, CGIgs_setList(node, 2, next, 4711));
  EXPECT_EQ(next.value(), CGIgs_getStruct(node, 0, 4711));
  ASSERT_EQ(TARN_OK, CGIgs_setList(node, 2, nullptr, 4711));
  EXPECT_STREQ("kept", TARNString_c_str(string));
  EXPECT_STREQ("next", TARNString_c_str(next));
}

TEST(StringAndNode, StringSetAsAListStaysOwnedByTheCaller) {
  Node node(4711);
  String string("kept");
  ASSERT_EQ(TARN_OK, CGIgs_setList(node, 0, string, 4711));
  EXPECT_EQ(TARN_OK, CGIgs_clear(node, 4711));
  EXPECT_EQ(TARN_OK, CGIgs_delete(node, 4711));
  EXPECT_STREQ("kept", TARNString_c_str(string));
}

TEST(StringAndNode, NodeCreatedUnderTheStringTagIsAnEmptyString) {
  String string(nullptr);
  ASSERT_EQ(TARN_OK, CGIgs_new(string, TARN_STRING_MAGIC));
  EXPECT_EQ(1U, TARNString_IsA(string));
  EXPECT_EQ(0U, TARNString_length(string));
  EXPECT_EQ(0, TARNString_compare(string, ""));
  EXPECT_EQ(TARN_OK, TARNString_remove(string, 0, 0));
  EXPECT_EQ(TARN_OK, TARNString_append(string, "abc"));
  EXPECT_STREQ("abc", TARNString_c_str(string));
  EXPECT_EQ(20, capacityOf(string));
}

TEST(StringInsertn, CountsThatWrapAround32BitsAreRefusedAndSuchPositionsChangeNothing) {
  for (const uint32_t count : {0xFFFFFFFFU, 0xFFFFFFFBU, 0x80000000U, 0x7FFFFFFFU}) {
    String string;
    TARNString_set(string, "abcd");
    EXPECT_EQ(TARN_OUT_OF_MEMORY, TARNString_insertn(string, "hi", 0, count, 0)) << count;
    EXPECT_EQ(0U, TARNString_length(string));
    TARNString_set(string, "abcd");
    EXPECT_EQ(TARN_OUT_OF_MEMORY, TARNString_appendn(string, TARNString_c_str(string), 0, count));
    TARNString_set(string, "abcd");
    EXPECT_EQ(TARN_OK, TARNString_insertn(string, "hi", 0, 2, count));
    EXPECT_STREQ("abcd", TARNString_c_str(string));
  }
}

TEST(StringInsertMemory, OwnTextThatFitsNeedsNoMemory) {
  String string;
  TARNString_set(string, "abcdef");
  EXPECT_EQ(TARN_OK, TARNString_insert(string, TARNString_c_str(string), 2));
  EXPECT_STREQ("ababcdefcdef", TARNString_c_str(string));
  TARNString_set(string, "abcdef");
  EXPECT_EQ(TARN_OK, TARNString_insertn(string, TARNString_c_str(string) + 1, 0, 4, 3));
  EXPECT_STREQ("abcbcdedef", TARNString_c_str(string));
  TARNString_set(string, "abcdef");
  EXPECT_EQ(TARN_OK, TARNString_insertn(string, TARNString_c_str(string) + 4, 0, 2, 1));
  EXPECT_STREQ("aefbcdef", TARNString_c_str(string));
}

}  // namespace
