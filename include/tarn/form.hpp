/* Form fields. */
#ifndef TARN_FORM_HPP
#define TARN_FORM_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

#include "argument.hpp"
#include "characters.hpp"
#include "view.hpp"

namespace tarn {
namespace detail {

// Without the white space around it.
inline std::string_view trimmed(std::string_view text) noexcept {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return {text.data() + first, text.find_last_not_of(kBlanks) - first + 1};
}

// A template, like all functions that return rare types of a std::optional: each of those takes
// compilers longer than most headers, and scripts that call none need not wait for it.
template <class Number>
std::optional<Number> integer_of(std::string_view text, std::int64_t least,
                                 std::int64_t most) noexcept {
  std::int64_t number = 0;
  text = trimmed(text);
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  if (!read_whole_number(text, number) || number < least || number > most) return {};
  return number;
}

}  // namespace detail

/** Reads one field of a form. */
class Entry : public detail::NodeView<TARN_FORM_ENTRY_MAGIC> {
 public:
  using NodeView::NodeView;

  /** The field's name.
   *
   *  @return a view, valid as long as the request; nothing for a field without a name
   */
  std::optional<std::string_view> name() const noexcept { return text_in(TARN_ENTRY_NAME); }

  /** The value, up to its first zero byte.
   *
   *  @return a view, valid as long as the request
   */
  std::string_view value() const noexcept { return detail::or_empty(text_in(TARN_ENTRY_VALUE)); }

  /** Reads the value as a whole number.
   *
   *  @param least,most  the range to accept
   *  @return the number; nothing unless the value is decimal digits with an optional sign, with
   *          white space around them or not, and the number is from `least` to `most`
   */
  template <class Number = std::int64_t>
  std::optional<Number> integer(std::int64_t least = INT64_MIN,
                                std::int64_t most = INT64_MAX) const noexcept {
    return detail::integer_of<Number>(value(), least, most);
  }

  /** Reads the value as FormEntry_getIntegerValue() does: up to the first byte that is not a digit.
   *
   *  @return the number, limited to 32 bits; 0 when there is none
   */
  std::int32_t number() const noexcept { return detail::query(FormEntry_getIntegerValue, handle_); }

  /** Reads the value as FormEntry_getDoubleValue() does.
   *
   *  @return the number; 0.0 when there is none
   */
  double real() const noexcept { return detail::query(FormEntry_getDoubleValue, handle_); }

  /** The name or the value, for structured bindings.
   *
   *  @code
   *  for (const auto [name, value] : request.entries()) ...
   *  @endcode
   */
  template <std::size_t kIndex>
  auto get() const noexcept {
    static_assert(kIndex < 2, "an entry has a name and a value");
    if constexpr (kIndex == 0) {
      return name();
    } else {
      return value();
    }
  }

  /** Tells whether the field has this name. Case is ignored. */
  bool is_named(const detail::Name &name) const noexcept {
    return detail::query(FormEntry_compareName, handle_, name.c_str()) == 0;
  }
};

/** The fields of a form, in order: a random-access range of Entry. */
using Entries = detail::Range<Entry, TARN_FORM_ENTRY_LIST_MAGIC, FormEntryList_getCount,
                              FormEntryList_getByIndex>;

/** The values of all fields with one name, in order: a forward range of std::string_view. Each step
 *  searches for the next field. */
class Values {
 public:
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = std::string_view;
    using difference_type = std::ptrdiff_t;
    using pointer = detail::Arrow<std::string_view>;
    using reference = std::string_view;

    Iterator() noexcept = default;
    Iterator(const Entries::Iterator &at, const Entries::Iterator &end, const char *name) noexcept
        : at_(at), end_(end), name_(name) {
      skip_other_names();
    }

    std::string_view operator*() const noexcept { return at_->value(); }
    pointer operator->() const noexcept { return {**this}; }
    Iterator &operator++() noexcept {
      ++at_;
      skip_other_names();
      return *this;
    }
    Iterator operator++(int) noexcept {
      const Iterator before = *this;
      ++*this;
      return before;
    }

    friend bool operator==(Iterator a, Iterator b) noexcept { return a.at_ == b.at_; }
    friend bool operator!=(Iterator a, Iterator b) noexcept { return a.at_ != b.at_; }

   private:
    void skip_other_names() noexcept {
      while (at_ != end_ && !at_->is_named(name_)) ++at_;
    }

    Entries::Iterator at_;
    Entries::Iterator end_;
    const char *name_ = nullptr;
  };

  using value_type = std::string_view;
  using iterator = Iterator;
  using const_iterator = Iterator;

  /** What Request::all() returns. Keeps the name of the first field, so that `name` need not outlive
   *  the range. */
  Values(Entries entries, const detail::Name &name) noexcept
      : first_(entries.begin()), end_(entries.end()) {
    while (first_ != end_ && !first_->is_named(name.c_str())) ++first_;
    if (first_ == end_) return;
    const std::optional<std::string_view> found = first_->name();
    name_ = found ? found->data() : "";
  }

  bool empty() const noexcept { return first_ == end_; }
  Iterator begin() const noexcept { return {first_, end_, name_}; }
  Iterator end() const noexcept { return {end_, end_, name_}; }

 private:
  Entries::Iterator first_;
  Entries::Iterator end_;
  const char *name_ = nullptr;
};

}  // namespace tarn

template <>
struct std::tuple_size<tarn::Entry> : std::integral_constant<std::size_t, 2> {};
template <>
struct std::tuple_element<0, tarn::Entry> {
  using type = std::optional<std::string_view>;
};
template <>
struct std::tuple_element<1, tarn::Entry> {
  using type = std::string_view;
};

#ifdef __cpp_lib_ranges
template <>
inline constexpr bool std::ranges::enable_borrowed_range<tarn::Values> = true;
#endif

#endif  // TARN_FORM_HPP
