// Typed values. typed_test.py compares them with what Python reads.
#include <gtest/gtest.h>
#include <tarn.hpp>

#include <cerrno>
#include <cfloat>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "support/failing_memory.h"

namespace {

using tarn::Checked;
using tarn::Choice;
using tarn::Date;
using tarn::Reason;

constexpr std::optional<std::string_view> kNothing;
const std::string kManyNines(10000, '9');
const std::string kManyZeros(10000, '0');
const std::string kSmallNines = kManyNines + "e-9999";

template <class Value>
Value valueOf(const Checked<Value> &checked) {
  EXPECT_EQ(Reason::none, checked.reason());
  return *checked;
}

TEST(CppChecked, IsAValueOrAReason) {
  const Checked<int> seven = 7;
  EXPECT_TRUE(seven);
  EXPECT_TRUE(seven.has_value());
  EXPECT_EQ(7, *seven);
  EXPECT_EQ(7, seven.value_or(1));
  EXPECT_EQ(Reason::none, seven.reason());
  const Checked<int> none = Reason::malformed;
  EXPECT_FALSE(none);
  EXPECT_FALSE(none.has_value());
  EXPECT_EQ(0, *none);
  EXPECT_EQ(1, none.value_or(1));
  EXPECT_EQ(Reason::malformed, none.reason());
  EXPECT_FALSE(Checked<int>(Reason::none)) << "a value that nobody gave";
}

TEST(CppChecked, IsAConstantExpression) {
  static_assert(*Checked<int>(7) == 7);
  static_assert(Checked<Date>(Date(2028, 2, 29))->day() == 29);
  static_assert(Date(2028, 2, 29) < Date(2028, 3, 1) && Date(2028, 12, 31) < Date(2029, 1, 1));
  static_assert(Date(-1, 12, 31) < Date(1, 1, 1) && Date(1, 1, 1) == Date(1, 1, 1));
}

TEST(CppTyped, NothingAndTheEmptyTextAreMissing) {
  const char *const null = nullptr;
  for (const auto text : {kNothing, std::optional<std::string_view>("")}) {
    EXPECT_EQ(Reason::missing, tarn::integer(text).reason());
    EXPECT_EQ(Reason::missing, tarn::real(text).reason());
    EXPECT_EQ(Reason::missing, tarn::boolean(text).reason());
    EXPECT_EQ(Reason::missing, tarn::one_of(text, {"a"}).reason());
    EXPECT_EQ(Reason::missing, tarn::date(text).reason());
    EXPECT_EQ(Reason::missing, tarn::line(text, 9).reason());
    EXPECT_EQ(Reason::missing, tarn::lines(text, 9).reason());
  }
  EXPECT_EQ(Reason::missing, tarn::integer(null).reason());
  EXPECT_EQ(Reason::missing, tarn::line(null, 9).reason());
}

TEST(CppTyped, TakesEveryKindOfText) {
  const std::string owned = "5";
  const char *const pointer = "5";
  const std::optional<std::string_view> optional = "5";
  EXPECT_EQ(5, *tarn::integer("5"));
  EXPECT_EQ(5, *tarn::integer(pointer));
  EXPECT_EQ(5, *tarn::integer(owned));
  EXPECT_EQ(5, *tarn::integer(std::string("5")));
  EXPECT_EQ(5, *tarn::integer(std::string_view("57", 1)));
  EXPECT_EQ(5, *tarn::integer(optional));
  EXPECT_EQ("5", *tarn::line(owned, 1));
  EXPECT_EQ("5", *tarn::line(optional, 1));
}

TEST(CppTypedInteger, ReadsAll64Bits) {
  EXPECT_EQ(0, valueOf(tarn::integer("0")));
  EXPECT_EQ(0, valueOf(tarn::integer("-0")));
  EXPECT_EQ(-40, valueOf(tarn::integer("-40")));
  EXPECT_EQ(7, valueOf(tarn::integer("007")));
  EXPECT_EQ(5, valueOf(tarn::integer(kManyZeros + "5")));
  EXPECT_EQ(INT64_MAX, valueOf(tarn::integer("9223372036854775807")));
  EXPECT_EQ(INT64_MIN, valueOf(tarn::integer("-9223372036854775808")));
}

TEST(CppTypedInteger, IsOutOfRange) {
  for (const std::string &text :
       {std::string("9223372036854775808"), std::string("-9223372036854775809"),
        std::string("18446744073709551621"), kManyNines, "-" + kManyNines}) {
    EXPECT_EQ(Reason::out_of_range, tarn::integer(text).reason()) << text;
  }
  EXPECT_EQ(1, valueOf(tarn::integer("1", 1, 3)));
  EXPECT_EQ(3, valueOf(tarn::integer("3", 1, 3)));
  EXPECT_EQ(Reason::out_of_range, tarn::integer("0", 1, 3).reason());
  EXPECT_EQ(Reason::out_of_range, tarn::integer("4", 1, 3).reason());
  EXPECT_EQ(Reason::out_of_range, tarn::integer("2", 3, 1).reason());
}

TEST(CppTypedInteger, IsMalformed) {
  for (const std::string_view text :
       {"+5", " 5", "5 ", "5\n", "-", "--5", "-+5", "5-", "5.0", "5e0", "0x5", "five", "1,000",
        "1'0", "\xD9\xA5", "\xEF\xBC\x95"}) {
    EXPECT_EQ(Reason::malformed, tarn::integer(text).reason()) << text;
  }
  EXPECT_EQ(Reason::malformed, tarn::integer(std::string_view("5\0", 2)).reason());
  EXPECT_EQ(Reason::malformed, tarn::integer(std::string_view("\0", 1)).reason());
  EXPECT_EQ(Reason::malformed, tarn::integer(kManyNines + "x").reason());
}

TEST(CppTypedReal, ReadsValidFloatingPointNumbers) {
  EXPECT_EQ(0.0, valueOf(tarn::real("0")));
  EXPECT_TRUE(std::signbit(valueOf(tarn::real("-0"))));
  EXPECT_TRUE(std::signbit(valueOf(tarn::real("-0.00e5"))));
  EXPECT_EQ(-1.5, valueOf(tarn::real("-1.5")));
  EXPECT_EQ(0.5, valueOf(tarn::real(".5")));
  EXPECT_EQ(-0.5, valueOf(tarn::real("-.5")));
  EXPECT_EQ(6e-7, valueOf(tarn::real("6e-7")));
  EXPECT_EQ(6e7, valueOf(tarn::real("6E+7")));
  EXPECT_EQ(1234.5, valueOf(tarn::real("0012.345e2")));
  EXPECT_EQ(DBL_MAX, valueOf(tarn::real("1.7976931348623157e308")));
  EXPECT_EQ(5e-324, valueOf(tarn::real("5e-324")));
  EXPECT_EQ(0.0, valueOf(tarn::real("1e-999")));
  EXPECT_EQ(0.0, valueOf(tarn::real("0e" + kManyNines)));
  EXPECT_EQ(0.0, valueOf(tarn::real("9e-" + kManyNines)));
  EXPECT_EQ(1.0, valueOf(tarn::real("1e" + kManyZeros)));
}

TEST(CppTypedReal, ReadsAnyNumberOfDigits) {
  EXPECT_EQ(1.0, valueOf(tarn::real(kManyZeros + "1." + kManyZeros)));
  EXPECT_EQ(1e-300, valueOf(tarn::real("0." + kManyZeros + "1e9701")));
  EXPECT_EQ(1.0, valueOf(tarn::real("1" + kManyZeros + "e-10000")));
  EXPECT_EQ(1.0, valueOf(tarn::real("0." + kManyNines)));
  // Halfway between 1 and the next double. The last digit decides.
  const std::string halfway = "1.00000000000000011102230246251565404236316680908203125";
  EXPECT_EQ(1.0, valueOf(tarn::real(halfway)));
  EXPECT_EQ(1.0, valueOf(tarn::real(halfway + kManyZeros)));
  EXPECT_EQ(std::nextafter(1.0, 2.0), valueOf(tarn::real(halfway + kManyZeros + "1")));
}

TEST(CppTypedReal, IsOutOfRange) {
  for (const std::string &text :
       {std::string("1e999"), std::string("-1e999"), std::string("1.7976931348623159e308"),
        kManyNines, "1e" + kManyNines, "0." + kManyZeros + "1e99999"}) {
    EXPECT_EQ(Reason::out_of_range, tarn::real(text).reason()) << text;
  }
  EXPECT_EQ(0.5, valueOf(tarn::real("0.5", 0.5, 1)));
  EXPECT_EQ(Reason::out_of_range, tarn::real("0.49", 0.5, 1).reason());
  EXPECT_EQ(Reason::out_of_range, tarn::real("1.01", 0.5, 1).reason());
  EXPECT_EQ(Reason::out_of_range, tarn::real("1", 0, std::nan("")).reason());
}

TEST(CppTypedReal, IsMalformed) {
  for (const std::string_view text :
       {"nan",   "inf", "-inf",  "Infinity", "NaN",   "+5",   " 5", "5 ",  "5.",
        ".",     "-",   "-.",    "e5",       ".e5",   "5.e5", "5e", "5e+", "5e+-5",
        "5e5.0", "5f",  "0x1p3", "1,5",      "1.5.5", "--5",  "1_0"}) {
    EXPECT_EQ(Reason::malformed, tarn::real(text).reason()) << text;
  }
  EXPECT_EQ(Reason::malformed, tarn::real(std::string_view("5\0", 2)).reason());
}

TEST(CppTypedReal, LeavesErrno) {
  errno = EDOM;
  EXPECT_FALSE(tarn::real("1e999"));
  EXPECT_TRUE(tarn::real("1e-999"));
  EXPECT_EQ(EDOM, errno);
}

// std::from_chars() is an implementation of its own.
TEST(CppTypedReal, IsTheNearestNumber) {
  std::mt19937_64 random(20261123);
  const auto below = [&random](std::size_t most) {
    return static_cast<std::size_t>(random() % most);
  };
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    const std::size_t count = 1 + below(i % 100 == 0 ? 1500 : 40);
    for (std::size_t digit = 0; digit < count; ++digit) {
      text += static_cast<char>('0' + below(10));
    }
    text.insert(below(text.size()), ".");
    text += "e" + std::to_string(static_cast<int>(below(700)) - 350);
    double expected = 0;
    const std::errc error = std::from_chars(text.data(), text.data() + text.size(), expected).ec;
    const Checked<double> number = tarn::real(text);
    if (error == std::errc()) {
      EXPECT_EQ(expected, valueOf(number)) << text;
    } else {
      // It does not tell which: the number is too large, or too small.
      EXPECT_TRUE(!number || std::abs(*number) <= DBL_MIN) << text;
    }
  }
}

TEST(CppTypedBoolean, ReadsCheckboxesAndWords) {
  for (const char *text : {"on", "true", "1"}) EXPECT_TRUE(valueOf(tarn::boolean(text))) << text;
  for (const char *text : {"off", "false", "0"}) EXPECT_FALSE(valueOf(tarn::boolean(text))) << text;
  for (const char *text : {"On", "TRUE", "yes", "01", "2", " on", "on "}) {
    EXPECT_EQ(Reason::malformed, tarn::boolean(text).reason()) << text;
  }
  EXPECT_EQ(Reason::malformed, tarn::boolean(std::string_view("1\0", 2)).reason());
  EXPECT_FALSE(tarn::boolean(kNothing).value_or(false));
}

TEST(CppTypedOneOf, ComparesExactly) {
  EXPECT_EQ("large", valueOf(tarn::one_of("large", {"small", "large"})));
  for (const std::string_view text : {"Large", "larg", "larges", " large", "medium"}) {
    EXPECT_EQ(Reason::out_of_range, tarn::one_of(text, {"small", "large"}).reason()) << text;
  }
  EXPECT_EQ(Reason::out_of_range, tarn::one_of(std::string_view("a\0", 2), {"a"}).reason());
}

TEST(CppTypedOneOf, TakesAnyRangeOfChoices) {
  constexpr Choice kSizes[] = {{"s", "Small"}, {"l", "Large"}};
  constexpr std::string_view kViews[] = {"s", "l"};
  const char *const pointers[] = {"s", "l"};
  const std::vector<std::string> strings = {"s", "l"};
  EXPECT_EQ("l", valueOf(tarn::one_of("l", kSizes)));
  EXPECT_EQ(Reason::out_of_range, tarn::one_of("Large", kSizes).reason());
  EXPECT_EQ("l", valueOf(tarn::one_of("l", kViews)));
  EXPECT_EQ("l", valueOf(tarn::one_of("l", pointers)));
  EXPECT_EQ("l", valueOf(tarn::one_of("l", strings)));
}

TEST(CppTypedOneOf, CanBeTheEmptyText) {
  EXPECT_EQ("", valueOf(tarn::one_of("", {"", "a"})));
  EXPECT_EQ(Reason::missing, tarn::one_of(kNothing, {"", "a"}).reason());
}

TEST(CppTypedDate, ReadsDaysThatExist) {
  const Date leap = valueOf(tarn::date("2028-02-29"));
  EXPECT_EQ(2028, leap.year());
  EXPECT_EQ(2, leap.month());
  EXPECT_EQ(29, leap.day());
  for (const char *text : {"2000-02-29", "0001-01-01", "9999-12-31", "02026-01-31", "1900-02-28"}) {
    EXPECT_TRUE(tarn::date(text)) << text;
  }
  for (const char *text :
       {"2024-02-30", "2023-02-29", "1900-02-29", "2100-02-29", "2026-04-31", "2026-00-10",
        "2026-13-10", "2026-01-00", "2026-01-32", "0000-01-01", "00000-01-01"}) {
    EXPECT_EQ(Reason::malformed, tarn::date(text).reason()) << text;
  }
}

TEST(CppTypedDate, IsMalformed) {
  for (const std::string_view text :
       {"2026-1-01", "2026-01-1", "026-01-01", "20260101", "2026/01/01", "01.02.2026",
        "-2026-01-01", "+2026-01-01", " 2026-01-01", "2026-01-01 ", "2026-01-01T00:00", "2026-01-",
        "2026-01", "-", "--", "2026-01-001", "2026--01-01", "2026-+1-01", "2026-01-0x"}) {
    EXPECT_EQ(Reason::malformed, tarn::date(text).reason()) << text;
  }
  EXPECT_EQ(Reason::malformed, tarn::date(std::string_view("2026-01-01\0", 11)).reason());
  EXPECT_EQ(Reason::malformed, tarn::date(kManyNines).reason());
}

TEST(CppTypedDate, IsOutOfRange) {
  const Date least(2026, 11, 23);
  const Date most(2027, 1, 1);
  EXPECT_TRUE(tarn::date("2026-11-23", least, most));
  EXPECT_TRUE(tarn::date("2027-01-01", least, most));
  EXPECT_EQ(Reason::out_of_range, tarn::date("2026-11-22", least, most).reason());
  EXPECT_EQ(Reason::out_of_range, tarn::date("2027-01-02", least, most).reason());
  EXPECT_EQ(Reason::out_of_range, tarn::date("10000-01-01").reason());
  EXPECT_EQ(Reason::out_of_range, tarn::date(kManyNines + "-01-01").reason());
  // Divisible by 400, so it is a leap year.
  EXPECT_EQ(Reason::out_of_range, tarn::date("9" + kManyZeros + "-02-29").reason());
  EXPECT_EQ(Reason::malformed, tarn::date("9" + kManyZeros + "-02-30").reason());
  const Date last(INT_MAX, 12, 31);
  EXPECT_EQ(INT_MAX, valueOf(tarn::date("2147483647-12-31", Date(), last)).year());
  EXPECT_EQ(Reason::out_of_range, tarn::date("2147483648-01-01", Date(), last).reason());
}

TEST(CppTypedLine, CountsAsBrowsersDo) {
  EXPECT_EQ("abc", valueOf(tarn::line("abc", 3)));
  EXPECT_EQ(Reason::out_of_range, tarn::line("abcd", 3).reason());
  EXPECT_TRUE(tarn::line("\u00E9\u20AC", 2));
  EXPECT_EQ(Reason::out_of_range, tarn::line("\u00E9\u20AC", 1).reason());
  EXPECT_TRUE(tarn::line("\U0001F986", 2));
  EXPECT_EQ(Reason::out_of_range, tarn::line("\U0001F986", 1).reason());
  EXPECT_TRUE(tarn::lines("a\r\nb", 3));
  EXPECT_EQ(Reason::out_of_range, tarn::lines("a\r\nb", 2).reason());
  EXPECT_TRUE(tarn::lines("\r\r\n\n", 3));
  EXPECT_EQ(Reason::out_of_range, tarn::lines("\r\r\n\n", 2).reason());
  EXPECT_EQ(Reason::out_of_range, tarn::line(kManyNines, 9999).reason());
}

TEST(CppTypedLine, HasNoControlCharacters) {
  for (const std::string_view text :
       {"a\nb", "a\r", "\t", "\x1B[31m", "\x7F", "\u0080", "\u009F"}) {
    EXPECT_EQ(Reason::malformed, tarn::line(text, 99).reason());
  }
  EXPECT_EQ(Reason::malformed, tarn::line(std::string_view("a\0", 2), 99).reason());
  EXPECT_TRUE(tarn::line("\u00A0 ~", 99));
  EXPECT_TRUE(tarn::lines("a\tb\r\nc\n", 99));
  for (const std::string_view text : {"\x1B[31m", "\x0B", "\f", "\x7F", "\u0085"}) {
    EXPECT_EQ(Reason::malformed, tarn::lines(text, 99).reason());
  }
}

TEST(CppTypedLine, IsUtf8) {
  for (const std::string_view text :
       {"\xFF", "a\x80", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82"}) {
    EXPECT_EQ(Reason::malformed, tarn::line(text, 99).reason());
    EXPECT_EQ(Reason::malformed, tarn::lines(text, 99).reason());
  }
}

TEST(CppTyped, AllocatesNothing) {
  bool all = false;
  tarn_test::withoutMemory([&all] {
    all = tarn::integer("5") && tarn::real(kSmallNines) && tarn::date("2026-01-01") &&
          tarn::one_of("a", {"a"}) && tarn::line("a", 1) && tarn::boolean("on").has_value();
  });
  EXPECT_TRUE(all);
}

}  // namespace
