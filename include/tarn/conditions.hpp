// Internal: conditions and ranges of requests, and the dates and tags that they consist of.
#ifndef TARN_CONDITIONS_HPP
#define TARN_CONDITIONS_HPP

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "characters.hpp"

namespace tarn::detail {

inline constexpr const char *kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
inline constexpr const char *kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// std::string_view::substr() needs the C++ runtime unless the compiler optimizes.
inline bool starts_with(std::string_view text, std::string_view beginning) noexcept {
  return text.size() >= beginning.size() &&
         std::string_view(text.data(), beginning.size()) == beginning;
}

// ---- Dates --------------------------------------------------------------------------------------

// Takes a date apart. After the first thing that is missing, all() is false. This class and what uses it
// are templates: compilers instantiate them only for scripts that answer conditional requests.
template <class = void>
class DateReader {
 public:
  explicit DateReader(std::string_view text) noexcept : rest_(text) {}

  bool take(std::string_view text) noexcept {
    const bool found = starts_with(rest_, text);
    if (found) rest_.remove_prefix(text.size());
    return found;
  }
  void expect(std::string_view text) noexcept { good_ = take(text) && good_; }
  // A number of this many digits.
  int number(std::size_t digits) noexcept {
    int value = 0;
    for (std::size_t i = 0; i < digits; ++i) {
      const bool digit = !rest_.empty() && is_digit(rest_[0]);
      good_ = digit && good_;
      if (!digit) return 0;
      value = 10 * value + (rest_[0] - '0');
      rest_.remove_prefix(1);
    }
    return value;
  }
  // Which of these names comes next.
  template <std::size_t kCount>
  int name(const char *const (&names)[kCount]) noexcept {
    for (std::size_t i = 0; i < kCount; ++i) {
      if (take(names[i])) return static_cast<int>(i);
    }
    good_ = false;
    return 0;
  }
  bool all() const noexcept { return good_ && rest_.empty(); }

 private:
  std::string_view rest_;
  bool good_ = true;
};

// Seconds since 1970. The month begins at 0, the day at 1.
inline std::int64_t seconds_at(int year, int month, int day, int seconds) noexcept {
  constexpr int kBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
  // The day of a leap year is added after February. 400 years more keep the year above zero.
  const std::int64_t leaping = (month > 1 ? year : year - 1) + 400;
  const std::int64_t leaps = leaping / 4 - leaping / 100 + leaping / 400;
  constexpr std::int64_t kUntil1970 = 2369 / 4 - 2369 / 100 + 2369 / 400;
  const std::int64_t days = 365 * (std::int64_t{year} - 1970) + leaps - kUntil1970;
  return 86400 * (days + kBefore[month] + day - 1) + seconds;
}

// Reads a date in any of the three formats of HTTP. `now` tells the century of a year with two digits,
// which is at most 50 years ahead.
//
// @return false if it is no date
template <class = void>
bool read_date(std::string_view text, std::int64_t now, std::int64_t &date) noexcept {
  constexpr const char *kEnds[] = {"day, ", "sday, ", "nesday, ", "rsday, ", "urday, "};
  constexpr int kLengths[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  DateReader<> in(text);
  in.name(kDays);
  int day = 0;
  int month = 0;
  int year = -1;  // not read yet
  bool two_digits = false;
  if (in.take(", ")) {
    day = in.number(2);
    in.expect(" ");
    month = in.name(kMonths);
    in.expect(" ");
    year = in.number(4);
  } else if (in.take(" ")) {
    month = in.name(kMonths);
    in.expect(" ");
    day = in.take(" ") ? in.number(1) : in.number(2);
  } else {
    in.name(kEnds);
    day = in.number(2);
    in.expect("-");
    month = in.name(kMonths);
    in.expect("-");
    year = 1900 + in.number(2);
    two_digits = true;
  }
  in.expect(" ");
  const int hour = in.number(2);
  in.expect(":");
  const int minute = in.number(2);
  in.expect(":");
  const int second = in.number(2);
  in.expect(" ");
  if (year < 0) {
    year = in.number(4);
  } else {
    in.expect("GMT");
  }
  const int seconds = 3600 * hour + 60 * minute + second;
  if (two_digits) {
    constexpr std::int64_t kFiftyYears = 50 * 31556952LL;
    while (seconds_at(year + 100, month, day, seconds) <= now + kFiftyYears) year += 100;
  }
  const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
  const bool exists = day >= 1 && day <= kLengths[month] && (month != 1 || day < 29 || leap);
  if (!in.all() || !exists || hour > 23 || minute > 59 || second > 60) return false;
  date = seconds_at(year, month, day, seconds);
  return true;
}

// ---- Tags ---------------------------------------------------------------------------------------

inline bool is_space_or_tab(char c) noexcept { return c == ' ' || c == '\t'; }

// Whether one of a list of tags is this one: two tags that are both strong; or, for a weak
// comparison, of any kind. "*" is any tag. What follows something that is no tag does not count.
template <class = void>
bool has_tag(std::string_view list, std::string_view tag, bool weakly) noexcept {
  const auto is_weak = [](std::string_view any) { return starts_with(any, "W/"); };
  const auto opaque = [&](std::string_view any) {
    if (is_weak(any)) any.remove_prefix(2);
    return any;
  };
  while (!list.empty() && is_space_or_tab(list.front())) list.remove_prefix(1);
  while (!list.empty() && is_space_or_tab(list.back())) list.remove_suffix(1);
  if (list == "*") return true;
  while (!list.empty()) {
    if (is_space_or_tab(list[0]) || list[0] == ',') {
      list.remove_prefix(1);
      continue;
    }
    const std::size_t begin = is_weak(list) ? 3 : 1;
    if (list.size() <= begin || list[begin - 1] != '"') return false;
    const std::size_t end = list.find('"', begin);
    if (end == std::string_view::npos) return false;
    const std::string_view each(list.data(), end + 1);
    const bool comparable = weakly || (!is_weak(each) && !is_weak(tag));
    if (comparable && opaque(each) == opaque(tag)) return true;
    list.remove_prefix(end + 1);
  }
  return false;
}

// ---- Ranges -------------------------------------------------------------------------------------

// Part of a file, or all of it.
struct Part {
  std::uint64_t first = 0;
  std::uint64_t size = 0;
};

enum class Wish { everything, part, impossible };

// Takes digits off the beginning of a text. A number that is too large is the largest one.
//
// @return false if there are none
template <class = void>
bool take_number(std::string_view &text, std::uint64_t &number) noexcept {
  if (text.empty() || !is_digit(text[0])) return false;
  number = 0;
  while (!text.empty() && is_digit(text[0])) {
    const auto digit = static_cast<std::uint64_t>(text[0] - '0');
    const bool fits = number <= (UINT64_MAX - digit) / 10;
    number = fits ? 10 * number + digit : UINT64_MAX;
    text.remove_prefix(1);
  }
  return true;
}

// What a Range header wants of a file of this size, which is then `part`. Several ranges, and
// whatever is malformed, want everything: HTTP leaves that to the server.
template <class = void>
Wish wish_of(std::string_view range, std::uint64_t size, Part &part) noexcept {
  part = {0, size};
  constexpr std::string_view kUnit = "bytes=";
  if (!begins_with(range, kUnit)) return Wish::everything;
  range.remove_prefix(kUnit.size());
  // A list may have empty elements.
  const auto is_between = [](char c) { return is_space_or_tab(c) || c == ','; };
  while (!range.empty() && is_between(range.front())) range.remove_prefix(1);
  while (!range.empty() && is_between(range.back())) range.remove_suffix(1);

  std::uint64_t first = 0;
  std::uint64_t last = 0;
  const bool has_first = take_number(range, first);
  if (range.empty() || range[0] != '-') return Wish::everything;
  range.remove_prefix(1);
  const bool has_last = take_number(range, last);
  if (!range.empty() || (!has_first && !has_last) || (has_first && has_last && last < first)) {
    return Wish::everything;
  }
  if (!has_first) {
    // The last bytes. Of an empty file they are the whole file.
    if (last == 0) return Wish::impossible;
    if (size == 0) return Wish::everything;
    part.size = last < size ? last : size;
    part.first = size - part.size;
    return Wish::part;
  }
  if (first >= size) return Wish::impossible;
  const std::uint64_t end = has_last && last < size ? last + 1 : size;
  part = {first, end - first};
  return Wish::part;
}

// ---- Conditions ---------------------------------------------------------------------------------

// What a response to a request with conditions is.
enum class Outcome { whole, part, not_modified, precondition_failed, range_not_satisfiable };

// The version of a file that would be sent.
struct Version {
  std::string_view tag;  // with its quotation marks
  std::int64_t modified = 0;
  std::uint64_t size = 0;
};

// The headers of a request that make it conditional, or ask for a part.
template <class = void>
struct Conditions {
  using Header = std::optional<std::string_view>;

  static Conditions of_request() noexcept {
    const auto header = [](const char *name) -> Header {
      const char *const value = std::getenv(name);
      if (value == nullptr) return {};
      return std::string_view(value);
    };
    return {header("HTTP_IF_MATCH"),      header("HTTP_IF_UNMODIFIED_SINCE"),
            header("HTTP_IF_NONE_MATCH"), header("HTTP_IF_MODIFIED_SINCE"),
            header("HTTP_IF_RANGE"),      header("HTTP_RANGE")};
  }

  // The outcome on a GET or HEAD, in the order of RFC 9110, section 13.2.2. HEAD has no ranges.
  Outcome judge(const Version &version, std::int64_t now, bool with_ranges,
                Part &part) const noexcept {
    part = {0, version.size};
    std::int64_t date = 0;
    const auto has_date = [now, &date](const Header &sent) {
      return sent && read_date(*sent, now, date);
    };
    if (if_match ? !has_tag(*if_match, version.tag, false)
                 : has_date(if_unmodified_since) && version.modified > date) {
      return Outcome::precondition_failed;
    }
    if (if_none_match ? has_tag(*if_none_match, version.tag, true)
                      : has_date(if_modified_since) && version.modified <= date) {
      return Outcome::not_modified;
    }
    if (!with_ranges || !range || !continues(version, now)) return Outcome::whole;
    switch (wish_of(*range, version.size, part)) {
      case Wish::part:
        return Outcome::part;
      case Wish::impossible:
        return Outcome::range_not_satisfiable;
      case Wish::everything:
        break;
    }
    return Outcome::whole;
  }

  // Whether the part that is asked for belongs to the version that the visitor has the beginning of.
  // A date is only reliable if no other change can follow in the same second.
  bool continues(const Version &version, std::int64_t now) const noexcept {
    if (!if_range) return true;
    if (if_range->find('"') != std::string_view::npos) {
      return *if_range == version.tag && version.tag[0] == '"';
    }
    std::int64_t date = 0;
    return read_date(*if_range, now, date) && date == version.modified &&
           now - version.modified >= 2;
  }

  Header if_match;
  Header if_unmodified_since;
  Header if_none_match;
  Header if_modified_since;
  Header if_range;
  Header range;
};

}  // namespace tarn::detail

#endif  // TARN_CONDITIONS_HPP
