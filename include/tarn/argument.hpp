// Internal: texts and names as arguments.
#ifndef TARN_ARGUMENT_HPP
#define TARN_ARGUMENT_HPP

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

#include "adopt.hpp"

namespace tarn::detail {

// As std::is_convertible, which instantiates many templates for each pair of types.
template <class To>
void take_implicitly(To) noexcept;  // is not defined
template <class From, class To, class = void>
inline constexpr bool kConverts = false;
template <class From, class To>
inline constexpr bool
    kConverts<From, To, decltype(detail::take_implicitly<To>(std::declval<From>()))> = true;

// As std::is_arithmetic. Most of the types that are asked for are classes.
template <class Given, bool kIsClass = std::is_class_v<Given>>
inline constexpr bool kIsArithmetic = std::is_arithmetic_v<Given>;
template <class Given>
inline constexpr bool kIsArithmetic<Given, true> = false;

// Literals have many lengths, and compilers take long for each type that they ask std about.
template <class Given>
inline constexpr bool kIsText = kConverts<const Given &, std::string_view>;
template <std::size_t kSize>
inline constexpr bool kIsText<char[kSize]> = true;
template <std::size_t kSize>
inline constexpr bool kIsText<const char[kSize]> = true;

template <class Given>
inline constexpr bool kIsPointer = kConverts<const Given &, const char *>;

template <class>
inline constexpr bool kIsOptional = false;
template <class Given>
inline constexpr bool kIsOptional<std::optional<Given>> = true;

template <class Given, class... Others>
inline constexpr bool kIsOneOf = (std::is_same_v<Given, Others> || ...);

template <class Given>
inline constexpr bool kIsCharacter =
#ifdef __cpp_char8_t
    kIsOneOf<Given, char, wchar_t, char8_t, char16_t, char32_t>;
#else
    kIsOneOf<Given, char, wchar_t, char16_t, char32_t>;
#endif

template <class Given>
inline constexpr bool kIsNumber =
    std::is_integral_v<Given> && !std::is_same_v<Given, bool> && !kIsCharacter<Given>;

template <class Given>
inline constexpr bool kIsArgument = kIsText<Given> || kIsOptional<Given> || kIsArithmetic<Given>;
template <std::size_t kSize>
inline constexpr bool kIsArgument<char[kSize]> = true;

// Texts that own their bytes. A view of one that is a temporary would dangle.
template <class Text>
inline constexpr bool kIsOwning =
    !std::is_lvalue_reference_v<Text> && std::is_class_v<std::decay_t<Text>> &&
    !std::is_same_v<std::decay_t<Text>, std::string_view> &&
    std::is_convertible_v<Text, std::string_view>;
template <class Text>
using IfOwning = std::enable_if_t<kIsOwning<Text>>;

// A text as an argument: a view, or the digits of a whole number. There is none if it was a null
// pointer.
class TextArgument {
 public:
  template <class Given, class = std::enable_if_t<kIsArgument<Given>>>
  TextArgument(const Given &given) noexcept {  // NOLINT(google-explicit-constructor)
    static_assert(!kIsOptional<Given>,
                  R"(this text may be missing: say what to write then, as in text.value_or(""))");
    static_assert(
        !std::is_same_v<Given, bool>,
        R"(a bool is not a text: write is_on ? "yes" : "no", or leave out the attribute)");
    static_assert(!kIsCharacter<Given>, "a character is not a text: write a text of one character");
    static_assert(!std::is_floating_point_v<Given>,
                  "a floating-point number is not a text: format it, with std::snprintf() say");
    if constexpr (kIsNumber<Given>) {
      static_assert(sizeof(Given) <= sizeof(std::uint64_t), "this number is too large a type");
      const auto number = static_cast<std::uint64_t>(given);
      put_digits(given < Given{0} ? std::uint64_t{0} - number : number, given < Given{0});
    } else if constexpr (kIsPointer<Given>) {
      const char *const text = given;
      if (text != nullptr) set(text);
    } else if constexpr (kIsText<Given>) {
      set(given);
    }
  }
  template <std::size_t kSize>
  // cppcheck-suppress uninitMemberVar  // digits_ is for numbers
  TextArgument(const char (&literal)[kSize]) noexcept {  // NOLINT(google-explicit-constructor)
    set(static_cast<const char *>(literal));
  }
  // Of a braced list, as in `{bytes, size}`.
  // cppcheck-suppress uninitMemberVar
  TextArgument(const char *text, std::size_t size) noexcept { set({text, size}); }
  TextArgument(std::nullptr_t) = delete;
  TextArgument(const TextArgument &) = delete;
  TextArgument &operator=(const TextArgument &) = delete;

  explicit operator bool() const noexcept { return text_ != nullptr; }
  std::string_view view() const noexcept { return {text_, size_}; }

 private:
  void set(std::string_view text) noexcept {
    text_ = text.data() != nullptr ? text.data() : "";
    size_ = text.size();
  }

  void put_digits(std::uint64_t number, bool is_negative) noexcept {
    char *at = digits_ + sizeof digits_;
    do {
      *--at = static_cast<char>('0' + number % 10);
      number /= 10;
    } while (number > 0);
    if (is_negative) *--at = '-';
    text_ = at;
    size_ = static_cast<std::size_t>(digits_ + sizeof digits_ - at);
  }

  const char *text_ = nullptr;
  std::size_t size_ = 0;
  char digits_[20];
};

// A text as an argument that an object keeps: a view of what has a name, and of a literal; a copy of
// anything else. There is none if it was a null pointer, or could not be copied.
class KeptText {
 public:
  template <class Given, class = std::enable_if_t<kIsArgument<std::decay_t<Given>> ||
                                                  kIsText<std::remove_reference_t<Given>>>>
  KeptText(Given &&given) noexcept {  // NOLINT(google-explicit-constructor)
    const TextArgument text(given);
    if (!text) return;
    if constexpr (std::is_lvalue_reference_v<Given> && !kIsNumber<std::decay_t<Given>>) {
      text_ = text.view().data();
      size_ = text.view().size();
    } else {
      keep(text.view());
    }
  }
  KeptText(std::nullptr_t) = delete;
  KeptText(const KeptText &other) noexcept {
    if (other.copy_ != nullptr) {
      keep(other.view());
    } else {
      text_ = other.text_;
      size_ = other.size_;
    }
  }
  KeptText(KeptText &&other) noexcept
      : text_(detail::exchanged(other.text_, nullptr)),
        size_(other.size_),
        copy_(detail::exchanged(other.copy_, nullptr)) {}
  KeptText &operator=(KeptText other) noexcept {
    detail::swap_values(text_, other.text_);
    detail::swap_values(size_, other.size_);
    detail::swap_values(copy_, other.copy_);
    return *this;
  }
  ~KeptText() {
    if (copy_ != nullptr) std::free(copy_);
  }

  explicit operator bool() const noexcept { return text_ != nullptr; }
  std::string_view view() const noexcept {
    return text_ != nullptr ? std::string_view(text_, size_) : std::string_view();
  }

 private:
  void keep(std::string_view text) noexcept {
    copy_ = static_cast<char *>(std::malloc(text.size() + 1));
    if (copy_ == nullptr) return;
    std::memcpy(copy_, text.data(), text.size());
    text_ = copy_;
    size_ = text.size();
  }

  const char *text_ = nullptr;
  std::size_t size_ = 0;
  char *copy_ = nullptr;
};

// A name as an argument, null-terminated. There is none if it was a null pointer, or could not be
// copied.
class Name {
 public:
  // cppcheck-suppress uninitMemberVar  // near_ is for copies
  Name(const char *name) noexcept : name_(name) {}  // NOLINT(google-explicit-constructor)
  template <class Given, class = std::enable_if_t<kIsText<Given> && !kIsPointer<Given>>>
  Name(const Given &given) noexcept {  // NOLINT(google-explicit-constructor)
    const std::string_view name = given;
    char *const place = name.size() < sizeof near_
                            ? near_
                            : far_ = static_cast<char *>(std::malloc(name.size() + 1));
    name_ = place;
    if (place == nullptr) return;
    if (!name.empty()) std::memcpy(place, name.data(), name.size());
    place[name.size()] = '\0';
  }
  Name(const Name &) = delete;
  Name &operator=(const Name &) = delete;
  ~Name() {
    if (far_ != nullptr) std::free(far_);
  }

  const char *c_str() const noexcept { return name_; }

 private:
  const char *name_;
  char *far_ = nullptr;
  char near_[64];
};

}  // namespace tarn::detail

#endif  // TARN_ARGUMENT_HPP
