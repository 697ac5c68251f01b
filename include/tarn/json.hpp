/* Writing JSON. */
#ifndef TARN_JSON_HPP
#define TARN_JSON_HPP

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

#include "argument.hpp"
#include "escape.hpp"

namespace tarn {
namespace detail {

// As few digits as are read back as the same number, or 15. printf() writes the decimal point of the
// locale, which may be several bytes; JSON has a dot.
inline void put_number(Buffer &out, double number) noexcept {
  char digits[64];
  for (int precision = 15; precision <= 17; ++precision) {
    std::snprintf(digits, sizeof digits, "%.*g", precision, number);
    if (std::strtod(digits, nullptr) == number) break;
  }
  bool in_point = false;
  for (const char *at = digits; *at != '\0'; ++at) {
    const bool plain = is_alphanumeric(*at) || is_among(*at, "+-");
    if (plain) out << std::string_view(at, 1);
    if (!plain && !in_point) out << ".";
    in_point = !plain;
  }
}

}  // namespace detail

/** Writes JSON: objects, arrays, texts, numbers, true, false and null.
 *
 *  @code
 *  tarn::JsonWriter json;
 *  json.begin_object();
 *  json.member("lake", "Attersee").member("depth", 169);
 *  json.end_object();
 *  return tarn::Response().send_json(json.take()) ? 0 : 1;
 *  @endcode
 *
 *  It writes at once, without a tree in memory. Texts are escaped as by escape_json(), so the result
 *  is also safe inside a script element. The writer refuses what would not be JSON, such as a value
 *  without a key in an object: take() then returns no text, but the reason. It does not compare keys.
 */
class JsonWriter {
 public:
  JsonWriter() noexcept = default;
  JsonWriter(const JsonWriter &) = delete;
  JsonWriter &operator=(const JsonWriter &) = delete;

  /** Begins an object, as the next value. */
  JsonWriter &begin_object() noexcept { return begin('{', '}'); }
  /** Ends the innermost object or array, which must be an object. */
  JsonWriter &end_object() noexcept { return end('}'); }
  /** Begins an array, as the next value. */
  JsonWriter &begin_array() noexcept { return begin('[', ']'); }
  /** Ends the innermost object or array, which must be an array. */
  JsonWriter &end_array() noexcept { return end(']'); }

  /** Writes the key of the next value of an object. */
  JsonWriter &key(const detail::TextArgument &name) noexcept {
    if (after_key_) return refuse("JSON: a key needs a value");
    if (!in('}')) return refuse("JSON: only objects have keys");
    separate();
    detail::put_json(text_, name.view());
    text_ << ":";
    after_key_ = true;
    return *this;
  }

  /** Writes a text in UTF-8. Invalid UTF-8 becomes U+FFFD. */
  JsonWriter &value(std::string_view text) noexcept {
    if (begin_value()) detail::put_json(text_, text);
    return *this;
  }
  /** Writes a text, or null for a null pointer. */
  JsonWriter &value(const char *text) noexcept {
    return text != nullptr ? value(std::string_view(text)) : value(nullptr);
  }
  /** Writes null. */
  JsonWriter &value(std::nullptr_t) noexcept { return put("null"); }
  /** Writes true, false or a number, which gets as many digits as it needs.
   *
   *  @param value  a bool, an integer or a floating-point number. Infinity and NaN are refused: JSON
   *                has neither. JavaScript reads integers beyond 2 to the power of 53 inexactly; write
   *                those as texts.
   */
  template <class Number, std::enable_if_t<std::is_arithmetic_v<Number>, int> = 0>
  JsonWriter &value(Number value) noexcept {
    static_assert(!detail::kIsCharacter<Number>,
                  "JSON has no characters: pass a text, or an int for a number");
    static_assert(std::is_floating_point_v<Number> || sizeof(Number) <= sizeof(long long),
                  "this number is too large a type");
    char digits[32];
    if constexpr (std::is_same_v<Number, bool>) {
      return put(value ? "true" : "false");
    } else if constexpr (std::is_floating_point_v<Number>) {
      const auto number = static_cast<double>(value);
      if (!__builtin_isfinite(number)) return refuse("JSON: a number must be finite");
      if (begin_value()) detail::put_number(text_, number);
      return *this;
    } else if constexpr (std::is_signed_v<Number>) {
      std::snprintf(digits, sizeof digits, "%lld", static_cast<long long>(value));
    } else {
      std::snprintf(digits, sizeof digits, "%llu", static_cast<unsigned long long>(value));
    }
    return put(digits);
  }
  /** Writes a value, or null if there is none. */
  template <class Value>
  JsonWriter &value(const std::optional<Value> &optional) noexcept {
    return optional ? value(*optional) : value(nullptr);
  }

  /** Writes a key and its value. @param content  as for value() */
  template <class Value>
  JsonWriter &member(const detail::TextArgument &name, const Value &content) noexcept {
    return key(name.view()).value(content);
  }

  /** Returns the text. Call it once, at the end.
   *
   *  @return one whole value; otherwise the first reason for refusal, or "out of memory"
   */
  [[nodiscard]] Text take() noexcept {
    Text text = text_.take();
    refuse(text.problem());
    if (ends_.size() > 0 || text.view().empty()) refuse("JSON: the value is not complete");
    return problem_ == nullptr ? std::move(text) : Text::refused(problem_);
  }

 private:
  JsonWriter &refuse(const char *problem) noexcept {
    if (problem_ == nullptr) problem_ = problem;
    return *this;
  }

  bool in(char end) noexcept { return ends_.size() > 0 && ends_.last() == end; }

  void separate() noexcept {
    if (has_items_) text_ << ",";
    has_items_ = true;
  }

  // What is refused is not written.
  bool begin_value() noexcept {
    if (in('}') && !after_key_) {
      refuse("JSON: a value in an object needs a key");
      return false;
    }
    if (ends_.size() == 0 && has_items_) {
      refuse("JSON: there can be only one value outside of objects and arrays");
      return false;
    }
    if (!after_key_) separate();
    after_key_ = false;
    return true;
  }

  JsonWriter &put(std::string_view text) noexcept {
    if (begin_value()) text_ << text;
    return *this;
  }

  JsonWriter &begin(char begin, char end) noexcept {
    if (!begin_value()) return *this;
    if (!ends_.push(end)) return refuse(detail::kOutOfMemory);
    text_ << std::string_view(&begin, 1);
    has_items_ = false;
    return *this;
  }

  JsonWriter &end(char end) noexcept {
    if (after_key_) return refuse("JSON: a key needs a value");
    if (!in(end)) return refuse("JSON: there is no such object or array to end");
    text_ << std::string_view(&end, 1);
    ends_.pop();
    has_items_ = true;
    return *this;
  }

  detail::Buffer text_;
  detail::Array<char> ends_;  // of the objects and arrays that have begun
  bool after_key_ = false;
  bool has_items_ = false;  // in the innermost object or array
  const char *problem_ = nullptr;
};

}  // namespace tarn

#endif  // TARN_JSON_HPP
