/* Choosing a type or a language that the visitor accepts. */
#ifndef TARN_NEGOTIATION_HPP
#define TARN_NEGOTIATION_HPP

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <string_view>

#include "response.hpp"

namespace tarn {
namespace detail {

using Offers = std::initializer_list<std::string_view>;

// One element of Accept or Accept-Language.
struct Preference {
  std::string_view name;
  bool has_parameters = false;  // other than q
  int quality = 1000;           // thousandths; 0 excludes
};

inline bool is_in_range(char c) noexcept { return is_token(c) || c == '/'; }
inline bool is_in_quality(char c) noexcept { return is_digit(c) || c == '.'; }

// Takes a list of preferences apart. Elements that are malformed are skipped. It is a template, as what
// uses it is: compilers instantiate it only for scripts that choose a type or a language.
template <class = void>
class Preferences {
 public:
  explicit Preferences(std::string_view list) noexcept : rest_(list) {}

  // False at the end of the list.
  bool next(Preference &one) noexcept {
    while (!rest_.empty()) {
      one = Preference();
      skip_blanks();
      one.name = take_while(is_in_range);
      bool good = !one.name.empty();
      skip_blanks();
      while (good && take(';')) {
        skip_blanks();
        good = take_parameter(one);
        skip_blanks();
      }
      if (take_rest() && good) return true;
    }
    return false;
  }

 private:
  bool take(char c) noexcept {
    const bool found = !rest_.empty() && rest_[0] == c;
    if (found) rest_.remove_prefix(1);
    return found;
  }
  std::string_view take_while(bool (*test)(char)) noexcept {
    std::size_t size = 0;
    while (size < rest_.size() && test(rest_[size])) ++size;
    const std::string_view taken(rest_.data(), size);
    rest_.remove_prefix(size);
    return taken;
  }
  void skip_blanks() noexcept { take_while(is_space_or_tab); }

  // Text in quotation marks, which is not used.
  bool skip_quoted() noexcept {
    bool escaped = false;
    while (!rest_.empty()) {
      const char c = rest_[0];
      rest_.remove_prefix(1);
      if (c == '"' && !escaped) return true;
      escaped = c == '\\' && !escaped;
    }
    return false;
  }

  // What follows q concerns extensions that nobody has.
  bool take_parameter(Preference &one) noexcept {
    const std::string_view name = take_while(is_token);
    // An empty parameter is allowed.
    if (name.empty()) return true;
    if (!take('=')) return false;
    if (name.size() == 1 && (name[0] == 'q' || name[0] == 'Q')) return take_quality(one.quality);
    one.has_parameters = true;
    return take('"') ? skip_quoted() : !take_while(is_token).empty();
  }

  // 0 or 1, with up to three digits after the point.
  bool take_quality(int &quality) noexcept {
    const std::string_view text = take_while(is_in_quality);
    const bool good = !text.empty() && text.size() <= 5 && (text[0] == '0' || text[0] == '1') &&
                      (text.size() == 1 || text[1] == '.');
    if (!good) return false;
    quality = 0;
    for (std::size_t i = 0, weight = 1000; i < 5; ++i) {
      if (i == 1) continue;
      if (i < text.size() && !is_digit(text[i])) return false;
      if (i < text.size()) quality += static_cast<int>(weight) * (text[i] - '0');
      weight /= 10;
    }
    return quality <= 1000;
  }

  // Skips what is left of an element, and the comma. @return whether nothing was left
  bool take_rest() noexcept {
    skip_blanks();
    if (rest_.empty() || take(',')) {
      skip_blanks();
      return true;
    }
    while (!rest_.empty() && !take(',')) {
      if (take('"')) {
        skip_quoted();
      } else {
        rest_.remove_prefix(1);
      }
    }
    skip_blanks();
    return false;
  }

  std::string_view rest_;
};

// Ignores case as begins_with() does.
inline bool is_same(std::string_view a, std::string_view b) noexcept {
  return a.size() == b.size() && begins_with(a, b);
}

inline bool is_media_range(std::string_view name) noexcept {
  const std::size_t slash = name.find('/');
  return slash != std::string_view::npos && slash > 0 && slash + 1 < name.size() &&
         name.rfind('/') == slash;
}

// How closely a media range describes a type: 4 if it names it, 3 if it has parameters, 2 for
// "text/*", 1 for all types and 0 for others.
inline int closeness(const Preference &range, std::string_view type) noexcept {
  if (is_same(range.name, type)) return range.has_parameters ? 3 : 4;
  if (range.name == "*/*") return 1;
  std::string_view family = range.name;
  if (family.back() != '*') return 0;
  family.remove_suffix(1);
  return family.back() == '/' && begins_with(type, family) ? 2 : 0;
}

// The type that Accept prefers, the first of several. Empty if it excludes all.
template <class = void>
std::string_view preferred_type(std::string_view accept, Offers offers) noexcept {
  std::string_view best;
  int best_quality = 0;
  bool any = false;
  for (const std::string_view offer : offers) {
    int closest = 0;
    int quality = 0;
    Preferences<> list(accept);
    for (Preference range; list.next(range);) {
      if (!is_media_range(range.name)) continue;
      const int close = closeness(range, offer);
      any = true;
      if (close == 0 || close < closest) continue;
      quality = close > closest || range.quality > quality ? range.quality : quality;
      closest = close;
    }
    if (quality > best_quality) {
      best = offer;
      best_quality = quality;
    }
  }
  return any || offers.size() == 0 ? best : *offers.begin();
}

// Whether a tag is below another one: "fr-CA" is below "fr".
inline bool is_below(std::string_view tag, std::string_view other) noexcept {
  return tag.size() > other.size() && tag[other.size()] == '-' && begins_with(tag, other);
}

// Languages, and which of the first 64 a header names or excludes.
template <class = void>
class Languages {
 public:
  Languages(Offers offers, std::string_view accept) noexcept : offers_(offers) {
    Preferences<> all(accept);
    for (Preference range; all.next(range);) {
      for (const std::string_view &offer : offers_) {
        const bool same = is_same(range.name, offer);
        if (same || is_below(offer, range.name)) named_ |= bit(offer);
        if (same && range.quality == 0) excluded_ |= bit(offer);
      }
    }
  }

  // The best one for a range; empty if there is none.
  std::string_view find(std::string_view range) const noexcept {
    if (range == "*") {
      return first([this](const std::string_view &offer) { return (named_ & bit(offer)) == 0; });
    }
    for (std::string_view tag = range; !tag.empty(); tag = shorter(tag)) {
      const std::string_view found = first([this, tag](const std::string_view &offer) {
        return is_same(offer, tag) && (excluded_ & bit(offer)) == 0;
      });
      if (!found.empty()) return found;
    }
    return first([this, range](const std::string_view &offer) {
      return is_below(offer, range) && (excluded_ & bit(offer)) == 0;
    });
  }

 private:
  template <class Test>
  std::string_view first(Test test) const noexcept {
    for (const std::string_view &offer : offers_) {
      if (test(offer)) return offer;
    }
    return {};
  }

  std::uint64_t bit(const std::string_view &offer) const noexcept {
    const auto index = static_cast<std::size_t>(&offer - offers_.begin());
    return index < 64 ? std::uint64_t{1} << index : 0;
  }

  // Without its last part. A single letter begins an extension, and means nothing alone.
  static std::string_view shorter(std::string_view tag) noexcept {
    const std::size_t dash = tag.rfind('-');
    std::string_view rest(tag.data(), dash == std::string_view::npos ? 0 : dash);
    if (rest.size() > 2 && rest[rest.size() - 2] == '-') rest.remove_suffix(2);
    return rest;
  }

  Offers offers_;
  std::uint64_t named_ = 0;
  std::uint64_t excluded_ = 0;
};

// The language that Accept-Language prefers: the lookup of RFC 4647, and then a language below the one
// that is asked for. The first one if it names none of them.
template <class = void>
std::string_view preferred_language(std::string_view accept, Offers offers) noexcept {
  if (offers.size() == 0) return {};
  const Languages<> languages(offers, accept);
  std::string_view best = *offers.begin();
  int best_quality = 0;
  Preferences<> list(accept);
  for (Preference range; list.next(range);) {
    if (range.quality <= best_quality) continue;
    const std::string_view found = languages.find(range.name);
    if (found.empty()) continue;
    best = found;
    best_quality = range.quality;
  }
  return best;
}

inline std::string_view accepted(const char *variable) noexcept {
  const char *const value = std::getenv(variable);
  return value != nullptr ? std::string_view(value) : std::string_view();
}

}  // namespace detail

/** Chooses a content type by the Accept header, and adds `Vary: Accept` to the response.
 *
 *  @code
 *  const auto type = tarn::choose_type(response, {"text/html", "application/json"});
 *  if (type.empty()) return response.send_error(406) ? 0 : 1;
 *  @endcode
 *
 *  Parameters in the header, such as `charset`, do not count, unless the same type is also there
 *  without any. What is malformed is ignored.
 *
 *  @param offered  without parameters, the default first
 *  @return one of them, the first of those that the visitor likes equally; empty if the visitor
 *          excludes all */
template <class Chosen = std::string_view>
[[nodiscard]] Chosen choose_type(Response &response,
                                 std::initializer_list<std::string_view> offered) noexcept {
  response.header("Vary", "Accept");
  return detail::preferred_type(detail::accepted("HTTP_ACCEPT"), offered);
}

/** Chooses a language by the Accept-Language header, and adds `Vary: Accept-Language` to the response.
 *
 *  For a visitor who asks for `fr-CA`, it finds `fr-CA` or `fr` (the lookup of RFC 4647); for one who
 *  asks for `fr`, also `fr-CA`. Name the language with Response::content_language().
 *
 *  @param offered  tags such as "en" and "fr-CA", the default first
 *  @return one of them: the default if the visitor asks for none */
template <class Chosen = std::string_view>
[[nodiscard]] Chosen choose_language(Response &response,
                                     std::initializer_list<std::string_view> offered) noexcept {
  response.header("Vary", "Accept-Language");
  return detail::preferred_language(detail::accepted("HTTP_ACCEPT_LANGUAGE"), offered);
}

}  // namespace tarn

#endif  // TARN_NEGOTIATION_HPP
