/* Escaping text for HTML, URLs and JSON. */
#ifndef TARN_ESCAPE_HPP
#define TARN_ESCAPE_HPP

#include <cstddef>
#include <string_view>

#include "characters.hpp"
#include "text.hpp"

namespace tarn {
namespace detail {

// Writes a text with some characters replaced. `replacement` takes a character, or an empty text for
// a byte that is not UTF-8, and returns what to write instead; an empty text keeps the character.
template <class Replacement>
void put_replaced(Buffer &out, std::string_view text, Replacement replacement) noexcept {
  const char *const end = text.data() + text.size();
  const char *copied = text.data();
  for (const char *at = copied; at < end;) {
    const std::size_t size = first_character({at, static_cast<std::size_t>(end - at)}).size;
    const std::string_view instead = replacement(std::string_view(at, size));
    const char *const next = at + (size > 0 ? size : 1);
    if (!instead.empty()) {
      out << std::string_view(copied, static_cast<std::size_t>(at - copied)) << instead;
      copied = next;
    }
    at = next;
  }
  out << std::string_view(copied, static_cast<std::size_t>(end - copied));
}

// Whether a character is a control character: of ASCII, or U+0080 to U+009F, which begin with C2.
inline bool is_control(std::string_view character) noexcept {
  return is_control(character[0]) || (character[0] == '\xC2' && character[1] < '\xA0');
}

// HTML allows no control characters other than tabs and line ends.
inline std::string_view html_replacement(std::string_view character) noexcept {
  constexpr std::string_view kUnknown = "\xEF\xBF\xBD";
  if (character.empty()) return kUnknown;
  switch (character[0]) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    case '\r':
      return "&#13;";  // browsers turn a bare CR into a line feed
    case '\t':
    case '\n':
      return {};
    default:
      return is_control(character) ? kUnknown : std::string_view();
  }
}

inline void put_html(Buffer &out, std::string_view text) noexcept {
  put_replaced(out, text, html_replacement);
}

inline void put_attribute(Buffer &out, std::string_view text) noexcept {
  put_replaced(out, text, [](std::string_view character) noexcept -> std::string_view {
    if (character == "\t") return "&#9;";
    if (character == "\n") return "&#10;";
    if (character == " ") return "&#32;";
    if (character == "=") return "&#61;";
    if (character == "`") return "&#96;";
    return html_replacement(character);
  });
}

// Which bytes a URL keeps: letters, digits and some marks. Visits these only: compilers make the tables
// whenever they read this header.
struct UrlBytes {
  constexpr explicit UrlBytes(std::string_view marks) noexcept {
    for (const char c : marks) keep(c);
    for (char c = '0'; c <= '9'; ++c) keep(c);
    for (char c = 'A'; c <= 'Z'; ++c) keep(c);
    for (char c = 'a'; c <= 'z'; ++c) keep(c);
  }
  constexpr bool keeps(char c) const noexcept { return kept[static_cast<unsigned char>(c)]; }

  constexpr void keep(char c) noexcept { kept[static_cast<unsigned char>(c)] = true; }

  bool kept[256] = {};
};
inline constexpr UrlBytes kUrlBytes("-._~");
inline constexpr UrlBytes kPathBytes("-._~/");

// Writes "%XX" for all other bytes. Makes room for a piece of the text at a time.
inline void put_encoded(Buffer &out, std::string_view text, const UrlBytes &bytes) noexcept {
  constexpr std::size_t kPiece = 4096;
  while (!text.empty()) {
    const std::size_t count = text.size() < kPiece ? text.size() : kPiece;
    char *const place = out.room(3 * count);
    if (place == nullptr) return;
    char *to = place;
    for (std::size_t i = 0; i < count; ++i) {
      const char c = text[i];
      if (bytes.keeps(c)) {
        *to++ = c;
      } else {
        const auto byte = static_cast<unsigned char>(c);
        *to++ = '%';
        *to++ = "0123456789ABCDEF"[byte >> 4U];
        *to++ = "0123456789ABCDEF"[byte & 15U];
      }
    }
    out.extend(static_cast<std::size_t>(to - place));
    text.remove_prefix(count);
  }
}

inline void put_url(Buffer &out, std::string_view text) noexcept {
  put_encoded(out, text, kUrlBytes);
}

inline void put_path(Buffer &out, std::string_view text) noexcept {
  put_encoded(out, text, kPathBytes);
}

// The size of what put_url() writes.
inline std::size_t url_size(std::string_view text) noexcept {
  std::size_t size = 0;
  for (const char c : text) size += kUrlBytes.keeps(c) ? 1U : 3U;
  return size;
}

inline void put_json(Buffer &out, std::string_view text) noexcept {
  char escape[] = "\\u0000";
  out << "\"";
  put_replaced(out, text, [&escape](std::string_view character) noexcept -> std::string_view {
    if (character.empty()) return "\\ufffd";
    // Line ends in JavaScript before ECMAScript 2019.
    if (character == "\xE2\x80\xA8") return "\\u2028";
    if (character == "\xE2\x80\xA9") return "\\u2029";
    if (!is_control(character) && !is_among(character[0], "\"\\<>&'")) return {};
    // All of these are below U+00A0, where the last byte is the code point.
    const auto number = static_cast<unsigned char>(character.back());
    escape[4] = "0123456789abcdef"[number >> 4U];
    escape[5] = "0123456789abcdef"[number & 15U];
    return {escape, 6};
  });
  out << "\"";
}

using Put = void (*)(Buffer &, std::string_view) noexcept;

template <Put kPut>
Text escaped(std::string_view text) noexcept {
  Buffer out;
  kPut(out, text);
  return out.take();
}

// Of a null pointer, such as an unset variable of getenv(), there is no view.
template <Put kPut>
Text escaped(const char *text) noexcept {
  if (text == nullptr) return Text::refused("text is a null pointer");
  return escaped<kPut>(std::string_view(text));
}

}  // namespace detail

/** Escapes a text for HTML that you write yourself: between tags, or in an attribute value in single
 *  or double quotes. Invalid UTF-8, and control characters other than tabs and line ends, become
 *  U+FFFD.
 */
[[nodiscard]] inline Text escape_html(std::string_view text) noexcept {
  return detail::escaped<detail::put_html>(text);
}
/** The same. If the text is a null pointer, the result is false and has a problem. */
[[nodiscard]] inline Text escape_html(const char *text) noexcept {
  return detail::escaped<detail::put_html>(text);
}

/** Escapes a text for an attribute value with or without quotes. An empty text needs quotes.
 *  Otherwise as escape_html(). */
[[nodiscard]] inline Text escape_attribute(std::string_view text) noexcept {
  return detail::escaped<detail::put_attribute>(text);
}
/** The same. If the text is a null pointer, the result is false and has a problem. */
[[nodiscard]] inline Text escape_attribute(const char *text) noexcept {
  return detail::escaped<detail::put_attribute>(text);
}

/** Escapes a text for one part of a URL, such as a value in the query: every byte other than
 *  letters, digits, "-", ".", "_" and "~" becomes a "%" and two digits. unescapeString() reverses
 *  it. */
[[nodiscard]] inline Text escape_url(std::string_view text) noexcept {
  return detail::escaped<detail::put_url>(text);
}
/** The same. If the text is a null pointer, the result is false and has a problem. */
[[nodiscard]] inline Text escape_url(const char *text) noexcept {
  return detail::escaped<detail::put_url>(text);
}

/** Escapes a text for the path of a URL: as escape_url(), but keeps "/".
 *
 *  @code
 *  const tarn::Text here = tarn::escape_path(request.environment().script_name());
 *  return response.redirect(here.view()).send() ? 0 : 1;
 *  @endcode
 */
[[nodiscard]] inline Text escape_path(std::string_view text) noexcept {
  return detail::escaped<detail::put_path>(text);
}
/** The same. If the text is a null pointer, the result is false and has a problem. */
[[nodiscard]] inline Text escape_path(const char *text) noexcept {
  return detail::escaped<detail::put_path>(text);
}

/** Turns a text into a string of JSON and JavaScript, with its quotation marks. It is safe inside a
 *  script element, and in an attribute value in single quotes: between its quotation marks, no
 *  character has a meaning in HTML.
 *  Invalid UTF-8 becomes U+FFFD. */
[[nodiscard]] inline Text escape_json(std::string_view text) noexcept {
  return detail::escaped<detail::put_json>(text);
}
/** The same. If the text is a null pointer, the result is false and has a problem. */
[[nodiscard]] inline Text escape_json(const char *text) noexcept {
  return detail::escaped<detail::put_json>(text);
}

}  // namespace tarn

#endif  // TARN_ESCAPE_HPP
