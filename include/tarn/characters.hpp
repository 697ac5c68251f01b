// Internal: classes of characters, and UTF-8.
#ifndef TARN_CHARACTERS_HPP
#define TARN_CHARACTERS_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tarn::detail {

// For tables: compilers know the length of "..."sv, but count that of a std::string_view from "...".
using std::string_view_literals::operator""sv;

// As value_or(""), which compilers instantiate for each type of its argument.
inline std::string_view or_empty(const std::optional<std::string_view> &text) noexcept {
  return text ? *text : std::string_view();
}

// As a == b. For the operator, clang also considers each pair of types that numbers can have: a call is
// several times as fast to compile.
template <class Enum>
bool same(Enum a, Enum b) noexcept {
  return static_cast<int>(a) == static_cast<int>(b);
}

inline bool is_among(char c, std::string_view set) noexcept {
  return set.find(c) != std::string_view::npos;
}
inline bool is_control(char c) noexcept {
  return static_cast<unsigned char>(c) < ' ' || c == '\x7F';
}
// Printable ASCII, without the space.
inline bool is_visible(char c) noexcept { return c > ' ' && c < '\x7F'; }
inline bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }
inline bool is_letter(char c) noexcept { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
inline bool is_alphanumeric(char c) noexcept { return is_letter(c) || is_digit(c); }

// Reads a whole number in digits, with "-" before them or not. This is what std::from_chars() does, but
// compilers take long to read <charconv>, and for each type of a std::optional.
//
// @return false if it is anything else, or too large
inline bool read_whole_number(std::string_view text, std::int64_t &result) noexcept {
  const bool is_negative = !text.empty() && text[0] == '-';
  if (is_negative) text.remove_prefix(1);
  if (text.empty()) return false;
  const std::uint64_t most = std::uint64_t{INT64_MAX} + (is_negative ? 1 : 0);
  std::uint64_t number = 0;
  for (const char c : text) {
    if (!is_digit(c)) return false;
    const auto digit = static_cast<std::uint64_t>(c - '0');
    if (number > (most - digit) / 10) return false;
    number = 10 * number + digit;
  }
  result = static_cast<std::int64_t>(is_negative ? 0 - number : number);
  return true;
}

template <class Test>
bool all_of(std::string_view text, Test test) noexcept {
  std::size_t passed = 0;
  while (passed < text.size() && test(text[passed])) ++passed;
  return passed == text.size();
}

inline int in_small_letters(char c) noexcept { return is_letter(c) ? c | 0x20 : c; }

// Ignores the case of ASCII letters, whatever the locale is.
inline bool begins_with(std::string_view text, std::string_view beginning) noexcept {
  if (text.size() < beginning.size()) return false;
  for (std::size_t i = 0; i < beginning.size(); ++i) {
    if (in_small_letters(text[i]) != in_small_letters(beginning[i])) return false;
  }
  return true;
}

// Ignores case as begins_with() does.
template <std::size_t kCount>
bool is_one_of(std::string_view name, const std::string_view (&names)[kCount]) noexcept {
  bool found = false;
  for (const std::string_view one : names) {
    found = found || (name.size() == one.size() && begins_with(name, one));
  }
  return found;
}

// A character of UTF-8 and the number of its bytes, which is 0 if they are not UTF-8.
struct Character {
  std::size_t size = 0;
  char32_t code = 0;
};

// The first character of a text, which must not be empty.
inline Character first_character(std::string_view text) noexcept {
  const auto byte = [text](std::size_t i) -> unsigned {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
  };
  const unsigned lead = byte(0);
  if (lead < 0x80) return {1, lead};
  if (lead < 0xC2 || lead > 0xF4) return {};
  // The second byte excludes overlong forms, surrogates and anything beyond U+10FFFF.
  const unsigned least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < least || byte(1) > most) return {};
  const std::size_t size = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  char32_t code = lead & (0x7FU >> size);
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return {};
    code = code << 6U | (byte(i) & 0x3FU);
  }
  return {size, code};
}

}  // namespace tarn::detail

#endif  // TARN_CHARACTERS_HPP
