/* What a request asks for: its method, path and headers.
 *
 * These functions read the environment of the process. They need neither a request nor a library.
 */
#ifndef TARN_INPUT_HPP
#define TARN_INPUT_HPP

#include <cstddef>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "adopt.hpp"
#include "argument.hpp"
#include "characters.hpp"

namespace tarn {
namespace detail {

inline std::optional<std::string_view> variable(const char *name) noexcept {
  const char *const value = std::getenv(name);
  if (value == nullptr) return {};
  return std::string_view(value);
}

// Takes the part of a path up to the next "/" off its beginning, which is a "/".
inline std::string_view take_segment(std::string_view &path) noexcept {
  path.remove_prefix(1);
  std::size_t size = 0;
  while (size < path.size() && path[size] != '/') ++size;
  const std::string_view segment(path.data(), size);
  path.remove_prefix(size);
  return segment;
}

// "." and ".." are never values: in a file name, they would lead to another folder.
inline bool is_path_value(std::string_view segment) noexcept {
  return !segment.empty() && segment != "." && segment != "..";
}

// Without the "/" at its end; nothing unless all segments are values.
inline std::optional<std::string_view> plain_path(std::string_view path) noexcept {
  if (!path.empty() && path.back() == '/') path.remove_suffix(1);
  std::string_view rest = path;
  while (!rest.empty()) {
    if (rest[0] != '/' || !is_path_value(take_segment(rest))) return {};
  }
  return path;
}

}  // namespace detail

/** The method of the request, REQUEST_METHOD: "GET", "POST" or any other word. Case matters.
 *
 *  @return a view, valid until the variable changes; empty when there is none
 */
inline std::string_view request_method() noexcept {
  return detail::or_empty(detail::variable("REQUEST_METHOD"));
}

/** The segments of a path, in order: a forward range of std::string_view.
 *
 *  @code
 *  const tarn::Path path = tarn::request_path();
 *  if (path.size() == 2 && path[0] == "lake") show(*path[1]);
 *  @endcode
 *
 *  A segment is the text between two "/", or behind the last one. It is never empty, "." or "..": a
 *  path with such a segment has no segments at all, and so has one that does not begin with "/". One
 *  "/" at the end does not count, so `/lake` and `/lake/` have the same segments. The server has
 *  decoded the path already; nothing is decoded here.
 */
class Path {
 public:
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = std::string_view;
    using difference_type = std::ptrdiff_t;
    struct pointer {
      std::string_view item;
      const std::string_view *operator->() const noexcept { return &item; }
    };
    using reference = std::string_view;

    Iterator() noexcept = default;
    explicit Iterator(std::string_view rest) noexcept : rest_(rest) {}

    std::string_view operator*() const noexcept {
      std::string_view rest = rest_;
      return detail::take_segment(rest);
    }
    pointer operator->() const noexcept { return {**this}; }
    Iterator &operator++() noexcept {
      detail::take_segment(rest_);
      return *this;
    }
    Iterator operator++(int) noexcept {
      const Iterator before = *this;
      ++*this;
      return before;
    }

    friend bool operator==(Iterator a, Iterator b) noexcept {
      return a.rest_.size() == b.rest_.size();
    }
    friend bool operator!=(Iterator a, Iterator b) noexcept { return !(a == b); }

   private:
    std::string_view rest_;
  };

  using value_type = std::string_view;
  using iterator = Iterator;
  using const_iterator = Iterator;

  /** Views a path, which must outlive the segments. */
  explicit Path(std::string_view path) noexcept
      : path_(path), plain_(detail::or_empty(detail::plain_path(path))) {}
  template <class Text, class = detail::IfOwning<Text>>
  explicit Path(Text &&) = delete;

  /** Tells whether the path is plain: it is empty, or begins with "/", and no segment is empty, "." or
   *  "..". */
  explicit operator bool() const noexcept { return detail::plain_path(path_).has_value(); }

  /** The whole path, as the server passed it. */
  std::string_view text() const noexcept { return path_; }

  /** The number of segments; 0 for "/" and for a path that is not plain. */
  std::size_t size() const noexcept {
    std::size_t count = 0;
    for (const char c : plain_) count += c == '/' ? 1 : 0;
    return count;
  }
  bool empty() const noexcept { return plain_.empty(); }

  Iterator begin() const noexcept { return Iterator(plain_); }
  static Iterator end() noexcept { return {}; }

  /** A segment, counted from 0. @return its text; nothing behind the last one */
  std::optional<std::string_view> operator[](std::size_t index) const noexcept {
    for (const std::string_view segment : *this) {
      if (index-- == 0) return segment;
    }
    return {};
  }

 private:
  std::string_view path_;
  std::string_view plain_;
};

/** The path behind the name of the script, PATH_INFO.
 *
 *  @return its segments, valid until the variable changes
 */
inline Path request_path() noexcept {
  return Path(detail::or_empty(detail::variable("PATH_INFO")));
}

/** A header of the request.
 *
 *  @code
 *  tarn::request_header("Accept-Language").value_or("en")
 *  @endcode
 *
 *  Servers pass each header in a variable of its own, except that many hold back `Authorization`.
 *
 *  @param given  its name: letters, digits and "-", at most 100; case does not matter
 *  @return a view, valid until the variable changes; nothing when there is no such header, and for
 *          any other name. "Proxy" is no name of a header: the variable HTTP_PROXY often is not the
 *          visitor's
 */
inline std::optional<std::string_view> request_header(const detail::TextArgument &given) noexcept {
  const std::string_view name = given.view();
  constexpr std::string_view kPrefix = "HTTP_";
  constexpr std::size_t kMost = 100;
  char variable[kPrefix.size() + kMost + 1] = "HTTP_";
  if (name.empty() || name.size() > kMost || detail::is_one_of(name, {"proxy"})) {
    return {};
  }
  char *end = variable + kPrefix.size();
  for (const char c : name) {
    if (!detail::is_alphanumeric(c) && c != '-') return {};
    *end++ = c == '-' ? '_' : static_cast<char>(c >= 'a' ? c - 'a' + 'A' : c);
  }
  *end = '\0';
  if (!detail::is_one_of(name, {"content-type", "content-length"})) {
    return detail::variable(variable);
  }
  // Of these two, an empty variable is the same as none.
  const auto value = detail::variable(variable + kPrefix.size());
  if (value && value->empty()) return {};
  return value;
}

}  // namespace tarn

#ifdef __cpp_lib_ranges
template <>
inline constexpr bool std::ranges::enable_borrowed_range<tarn::Path> = true;
#endif

#endif  // TARN_INPUT_HPP
