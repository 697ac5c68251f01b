/* Typed values.
 *
 * These functions check a text from a form, and return a value of its type or the reason why there is
 * none. A text that is empty or not there is missing. They accept what HTML calls a valid integer, a
 * valid floating-point number and a valid date string, which is what browsers send for
 * `<input type="number">` and `<input type="date">`. The whole text must be valid: spaces around it
 * are not. A locale changes nothing.
 *
 * They allocate nothing, and need no library but libc.
 */
#ifndef TARN_TYPED_HPP
#define TARN_TYPED_HPP

#include <cerrno>
#include <cfloat>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <type_traits>

#include "argument.hpp"
#include "characters.hpp"

namespace tarn {

/** Why a text has no value of a type. */
enum class Reason {
  none,        /**< it has one */
  missing,     /**< there is no text, or it is empty */
  malformed,   /**< the text is not of this type */
  out_of_range /**< the text is of this type, but too long, or not among what is allowed */
};

/** A value, or the reason why there is none.
 *
 *  @code
 *  const auto age = tarn::integer(form["age"], 0, 150);
 *  if (age) store(*age);
 *  if (age.reason() == tarn::Reason::out_of_range) ...
 *  @endcode
 *
 *  A check of your own can return one: either a value, such as `*text`, or `tarn::Reason::malformed`.
 */
template <class Value>
class Checked {
 public:
  /** A value. */
  constexpr Checked(
      Value value) noexcept  // NOLINT(google-explicit-constructor): a check returns it
      : value_(value) {}

  /** No value. @param reason  why; Reason::none is taken for Reason::malformed */
  constexpr Checked(
      Reason reason) noexcept  // NOLINT(google-explicit-constructor): a check returns it
      : reason_(reason == Reason::none ? Reason::malformed : reason) {}

  /** Tells whether there is a value. */
  constexpr bool has_value() const noexcept { return reason_ == Reason::none; }

  /** Tells whether there is a value. A `Checked<bool>` refuses it: it would be mistaken for the value. */
  explicit constexpr operator bool() const noexcept {
    static_assert(!std::is_same_v<Value, bool>,
                  "whether there is a bool is not the bool: call has_value(), or value_or(false)");
    return has_value();
  }

  /** The value; if there is none, one that is 0, false or empty. */
  constexpr const Value &operator*() const noexcept { return value_; }
  /** A member of the value. */
  constexpr const Value *operator->() const noexcept { return &value_; }

  /** The value, or `otherwise` if there is none. */
  constexpr Value value_or(Value otherwise) const noexcept {
    return has_value() ? value_ : otherwise;
  }

  /** Why there is no value; Reason::none if there is one. */
  constexpr Reason reason() const noexcept { return reason_; }

 private:
  Value value_{};
  Reason reason_ = Reason::none;
};

/** A day of the calendar. Days can be compared: the earlier one is less. One without arguments is no
 *  day, and less than any. */
class Date {
 public:
  constexpr Date() noexcept = default;

  /** A day. @param year,month,day  are not checked; month and day count from 1 */
  constexpr Date(int year, int month, int day) noexcept : year_(year), month_(month), day_(day) {}

  /** The year. */
  constexpr int year() const noexcept { return year_; }
  /** The month, 1 to 12. */
  constexpr int month() const noexcept { return month_; }
  /** The day of the month, from 1. */
  constexpr int day() const noexcept { return day_; }

 private:
  constexpr std::int64_t order() const noexcept {
    return (std::int64_t{year_} * 100 + month_) * 100 + day_;
  }

  friend constexpr bool operator==(Date a, Date b) noexcept { return a.order() == b.order(); }
  friend constexpr bool operator!=(Date a, Date b) noexcept { return a.order() != b.order(); }
  friend constexpr bool operator<(Date a, Date b) noexcept { return a.order() < b.order(); }
  friend constexpr bool operator>(Date a, Date b) noexcept { return a.order() > b.order(); }
  friend constexpr bool operator<=(Date a, Date b) noexcept { return a.order() <= b.order(); }
  friend constexpr bool operator>=(Date a, Date b) noexcept { return a.order() >= b.order(); }

  int year_ = 0;
  int month_ = 0;
  int day_ = 0;
};

/** One of several values that a visitor can choose, for one_of(), CheckedForm::select() and
 *  CheckedForm::radios(). Both texts are views. */
class Choice {
 public:
  /** A value and what the visitor reads. */
  constexpr Choice(std::string_view value, std::string_view label) noexcept
      : value_(value), label_(label) {}
  // A choice is a view of both.
  template <class Value, class Label,
            class = std::enable_if_t<detail::kIsOwning<Value> || detail::kIsOwning<Label>>>
  Choice(Value &&, Label &&) = delete;

  /** What the browser sends. */
  constexpr std::string_view value() const noexcept { return value_; }
  /** What the visitor reads. */
  constexpr std::string_view label() const noexcept { return label_; }

 private:
  std::string_view value_;
  std::string_view label_;
};

namespace detail {

// A text that may be missing, as an argument: also from a null pointer.
class GivenText {
 public:
  template <class Given, class = std::enable_if_t<kIsText<Given>>>
  GivenText(const Given &given) noexcept {  // NOLINT(google-explicit-constructor)
    if constexpr (kIsPointer<Given>) {
      const char *const text = given;
      if (text != nullptr) text_ = text;
    } else {
      text_ = given;
    }
  }
  // NOLINTNEXTLINE(google-explicit-constructor)
  GivenText(const std::optional<std::string_view> &given) noexcept : text_(given) {}

  bool is_missing() const noexcept { return !text_ || text_->empty(); }
  bool has_value() const noexcept { return text_.has_value(); }
  std::string_view view() const noexcept { return or_empty(text_); }

 private:
  std::optional<std::string_view> text_;
};

// The same, of which a view is returned.
class ViewedText : public GivenText {
 public:
  template <class Given, class = std::enable_if_t<std::is_convertible_v<Given, GivenText>>>
  ViewedText(Given &&given) noexcept : GivenText(given) {  // NOLINT
    static_assert(!kIsOwning<Given>, "the text is gone when this returns a view of it: keep it");
  }
};

inline bool take(std::string_view &text, char wanted) noexcept {
  if (text.empty() || text[0] != wanted) return false;
  text.remove_prefix(1);
  return true;
}

// Takes the digits that a text begins with off it.
inline std::string_view take_digits(std::string_view &text) noexcept {
  std::size_t size = 0;
  while (size < text.size() && is_digit(text[size])) ++size;
  const std::string_view digits(text.data(), size);
  text.remove_prefix(size);
  return digits;
}

// The number that digits are, or `most` if it is larger. Ten times `most` must fit.
inline std::int64_t number_of(std::string_view digits, std::int64_t most) noexcept {
  std::int64_t number = 0;
  for (const char digit : digits) {
    number = number * 10 + (digit - '0');
    if (number > most) number = most;
  }
  return number;
}

// The digits of a decimal number, at most as many as matter. std::from_chars() would read a double
// too, but is part of the C++ runtime.
template <class Number>
class Decimal {
 public:
  void add(std::string_view digits, bool is_behind_point) noexcept {
    for (const char digit : digits) {
      if (is_behind_point) --power_;
      if (size_ == 0 && digit == '0') continue;
      if (size_ < kMost) {
        digits_[size_++] = digit;
      } else {
        ++power_;
        has_more_ = has_more_ || digit != '0';
      }
    }
  }

  // The nearest number; out of range if it is too large for a double. The text that strtod() reads has no
  // decimal point, so the locale does not matter.
  Checked<Number> times_ten_to(std::int64_t power) noexcept {
    if (size_ == 0) return 0.0;
    if (has_more_) digits_[size_++] = '1';
    power += power_ - (has_more_ ? 1 : 0);
    if (power < -kMostPower) power = -kMostPower;
    if (power > kMostPower) power = kMostPower;
    std::snprintf(digits_ + size_, sizeof digits_ - size_, "e%d", static_cast<int>(power));
    const int before = errno;
    errno = 0;
    const double number = std::strtod(digits_, nullptr);
    const bool is_too_large = errno == ERANGE && number > 1;
    errno = before;
    if (is_too_large) return Reason::out_of_range;
    return number;
  }

 private:
  // The middle between two doubles has at most 767 digits. Of further digits, only whether they are
  // all zero can change which double is the nearest.
  static constexpr std::size_t kMost = 800;
  // With this power and so many digits, a number is 0 or too large.
  static constexpr std::int64_t kMostPower = 9999;

  char digits_[kMost + 16] = "";
  std::size_t size_ = 0;
  std::int64_t power_ = 0;
  bool has_more_ = false;
};

// The text as one_of() compares it.
inline std::string_view value_of(std::string_view choice) noexcept { return choice; }
inline std::string_view value_of(const Choice &choice) noexcept { return choice.value(); }

// Checks a text in which `is_allowed` tells which control characters may be.
template <class Allowed>
Checked<std::string_view> checked_text(const GivenText &text, std::size_t most,
                                       Allowed is_allowed) noexcept {
  if (text.is_missing()) return Reason::missing;
  std::size_t length = 0;
  char32_t before = 0;
  for (std::string_view rest = text.view(); !rest.empty();) {
    const Character next = first_character(rest);
    const bool is_control = next.code < 0x20 || (next.code >= 0x7F && next.code < 0xA0);
    if (next.size == 0 || (is_control && !is_allowed(next.code))) return Reason::malformed;
    // A line end counts once, and a character beyond U+FFFF twice.
    if (next.code != '\n' || before != '\r') length += next.code > 0xFFFF ? 2 : 1;
    before = next.code;
    rest.remove_prefix(next.size);
  }
  if (length > most) return Reason::out_of_range;
  return text.view();
}

}  // namespace detail

/** A whole number: digits, with "-" before them or not.
 *
 *  @param text        such as "-40"; not "+5", " 5" or "5.0"
 *  @param least,most  the range to accept
 */
inline Checked<std::int64_t> integer(const detail::GivenText &text, std::int64_t least = INT64_MIN,
                                     std::int64_t most = INT64_MAX) noexcept {
  if (text.is_missing()) return Reason::missing;
  std::string_view digits = text.view();
  detail::take(digits, '-');
  if (detail::take_digits(digits).empty() || !digits.empty()) return Reason::malformed;
  std::int64_t number = 0;
  if (!detail::read_whole_number(text.view(), number) || number < least || number > most) {
    return Reason::out_of_range;
  }
  return number;
}

/** A number: digits with a decimal point or not, and a power of ten or not.
 *
 *  @param text        such as "-1.5", ".5" or "6e-7"; not "5.", "+5", "1,5", "inf" or "0x1"
 *  @param least,most  the range to accept
 *  @return the nearest double; one too large for a double is out of range
 */
template <class Number = double>
Checked<Number> real(const detail::GivenText &text, double least = -DBL_MAX,
                     double most = DBL_MAX) noexcept {
  if (text.is_missing()) return Reason::missing;
  std::string_view rest = text.view();
  const bool is_negative = detail::take(rest, '-');
  const std::string_view whole = detail::take_digits(rest);
  const bool has_point = detail::take(rest, '.');
  const std::string_view fraction = has_point ? detail::take_digits(rest) : std::string_view();
  if (has_point ? fraction.empty() : whole.empty()) return Reason::malformed;
  std::int64_t power = 0;
  if (detail::take(rest, 'e') || detail::take(rest, 'E')) {
    const bool is_small = detail::take(rest, '-');
    if (!is_small) detail::take(rest, '+');
    const std::string_view digits = detail::take_digits(rest);
    if (digits.empty()) return Reason::malformed;
    // More than a text has digits.
    power = detail::number_of(digits, INT64_MAX / 100);
    if (is_small) power = -power;
  }
  if (!rest.empty()) return Reason::malformed;
  detail::Decimal<Number> decimal;
  decimal.add(whole, false);
  decimal.add(fraction, true);
  const Checked<Number> magnitude = decimal.times_ten_to(power);
  if (!magnitude) return Reason::out_of_range;
  const double number = is_negative ? -*magnitude : *magnitude;
  if (!(number >= least && number <= most)) return Reason::out_of_range;
  return number;
}

/** True or false.
 *
 *  @param text  "on", as a ticked checkbox sends, "true" or "1"; or "off", "false" or "0". A checkbox
 *               that is not ticked sends nothing: `boolean(form["all"]).value_or(false)`
 */
template <class Value = bool>
Checked<Value> boolean(const detail::GivenText &text) noexcept {
  const std::string_view word = text.view();
  if (text.is_missing()) return Reason::missing;
  if (word == "on" || word == "true" || word == "1") return true;
  if (word == "off" || word == "false" || word == "0") return false;
  return Reason::malformed;
}

/** One of several texts.
 *
 *  @param text     compared exactly
 *  @param choices  texts or Choice objects: an array, or any other range of them
 *  @return a view of the text; out of range if it is not among the choices, and missing if it is empty
 *          and that is not among them
 */
template <class Choices>
Checked<std::string_view> one_of(const detail::ViewedText &text, const Choices &choices) noexcept {
  for (const auto &choice : choices) {
    if (text.has_value() && detail::value_of(choice) == text.view()) return text.view();
  }
  return text.is_missing() ? Reason::missing : Reason::out_of_range;
}

/** One of several texts: `one_of(form["size"], {"small", "large"})`. */
template <std::size_t kCount>
Checked<std::string_view> one_of(const detail::ViewedText &text,
                                 const std::string_view (&choices)[kCount]) noexcept {
  for (const std::string_view choice : choices) {
    if (text.has_value() && choice == text.view()) return text.view();
  }
  return text.is_missing() ? Reason::missing : Reason::out_of_range;
}

/** A day of the calendar.
 *
 *  @param text        year, month and day, such as "2028-02-29"; the year has four digits or more
 *  @param least,most  the range to accept
 *  @return the day; a month without such a day is malformed
 */
template <class Day = Date>
Checked<Day> date(const detail::GivenText &text, Date least = Date(1, 1, 1),
                  Date most = Date(9999, 12, 31)) noexcept {
  constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (text.is_missing()) return Reason::missing;
  std::string_view rest = text.view();
  const std::string_view years = detail::take_digits(rest);
  const bool has_month = detail::take(rest, '-');
  const std::string_view months = detail::take_digits(rest);
  const bool has_day = detail::take(rest, '-');
  const std::string_view days = detail::take_digits(rest);
  const bool has_all = has_month && has_day && rest.empty();
  if (!has_all || years.size() < 4 || months.size() != 2 || days.size() != 2) {
    return Reason::malformed;
  }
  const std::int64_t year = detail::number_of(years, INT64_C(1) << 31U);
  const auto month = static_cast<int>(detail::number_of(months, 99));
  const auto day = static_cast<int>(detail::number_of(days, 99));
  // Leap years repeat after 400 years, so the last four digits are enough.
  const std::int64_t last = detail::number_of({years.data() + years.size() - 4, 4}, 9999);
  const bool is_leap = last % 4 == 0 && (last % 100 != 0 || last % 400 == 0);
  if (year == 0 || month < 1 || month > 12 || day < 1) return Reason::malformed;
  if (day > kDays[month - 1] + (month == 2 && is_leap ? 1 : 0)) return Reason::malformed;
  if (year > INT32_MAX) return Reason::out_of_range;
  const Date found(static_cast<int>(year), month, day);
  if (found < least || found > most) return Reason::out_of_range;
  return found;
}

/** A text of one line: valid UTF-8 without control characters.
 *
 *  @param text  the text
 *  @param most  how long it may be, counted as the attribute `maxlength` does: in units of UTF-16
 *  @return a view of the text; out of range if it is longer
 */
inline Checked<std::string_view> line(const detail::ViewedText &text, std::size_t most) noexcept {
  return detail::checked_text(text, most, [](char32_t) { return false; });
}

/** A text of several lines: as line(), with line ends and tabs.
 *
 *  @param text  the text; browsers end its lines with CR LF
 *  @param most  as for line(); a line end counts once
 */
inline Checked<std::string_view> lines(const detail::ViewedText &text, std::size_t most) noexcept {
  return detail::checked_text(
      text, most, [](char32_t code) { return code == '\r' || code == '\n' || code == '\t'; });
}

}  // namespace tarn

#endif  // TARN_TYPED_HPP
