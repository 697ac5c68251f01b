/* Characters. */
#ifndef TARN_CHARACTERS_HPP
#define TARN_CHARACTERS_HPP

#include <cstddef>
#include <string_view>

namespace tarn {

namespace detail {

constexpr bool is_among(char c, std::string_view set) noexcept {
  return set.find(c) != std::string_view::npos;
}
constexpr bool is_control(char c) noexcept {
  return static_cast<unsigned char>(c) < ' ' || c == '\x7F';
}
// What ASCII prints, without the blank.
constexpr bool is_visible(char c) noexcept { return c > ' ' && c < '\x7F'; }
constexpr bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }
constexpr bool is_letter(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool is_alphanumeric(char c) noexcept { return is_letter(c) || is_digit(c); }

template <class Test>
constexpr bool all_of(std::string_view text, Test test) noexcept {
  std::size_t passed = 0;
  while (passed < text.size() && test(text[passed])) ++passed;
  return passed == text.size();
}

// Without regard to the case of letters, in any locale.
constexpr bool begins_with(std::string_view text, std::string_view beginning) noexcept {
  const auto lower = [](char c) { return is_letter(c) ? c | 0x20 : c; };
  if (text.size() < beginning.size()) return false;
  for (std::size_t i = 0; i < beginning.size(); ++i) {
    if (lower(text[i]) != lower(beginning[i])) return false;
  }
  return true;
}

template <std::size_t kCount>
constexpr bool is_one_of(std::string_view name, const std::string_view (&names)[kCount]) noexcept {
  bool found = false;
  for (const std::string_view one : names) {
    found = found || (name.size() == one.size() && begins_with(name, one));
  }
  return found;
}

// How many bytes the first character takes; 0 when they are no UTF-8.
constexpr std::size_t character_size(std::string_view text) noexcept {
  const auto byte = [text](std::size_t at) -> unsigned {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
  };
  const unsigned lead = byte(0);
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  // No form longer than needed, no surrogate, nothing beyond U+10FFFF.
  const unsigned first = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned last = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < first || byte(1) > last) return 0;
  const std::size_t size = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  for (std::size_t i = 2; i < size; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  return size;
}

// Whether a character of UTF-8 is a control character, of ASCII or from U+0080 to U+009F. Its last
// byte is its number.
constexpr bool is_control(std::string_view character) noexcept {
  return is_control(character[0]) || (character[0] == '\xC2' && character[1] < '\xA0');
}

}  // namespace detail

}  // namespace tarn

#endif  // TARN_CHARACTERS_HPP
