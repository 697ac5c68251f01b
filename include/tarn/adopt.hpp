/* Taking over handles. */
#ifndef TARN_ADOPT_HPP
#define TARN_ADOPT_HPP

#if __cplusplus < 201703L
#error "the C++ headers of Tarn need C++17: compile with -std=c++17 or later"
#endif

// On a parameter that a function's result refers to, and after a member function whose result refers
// to the object: compilers that know the attribute warn if that is a temporary that is soon gone.
#ifdef __has_cpp_attribute
#if __has_cpp_attribute(clang::lifetimebound)
#define TARN_LIFETIMEBOUND [[clang::lifetimebound]]
#endif
#endif
#ifndef TARN_LIFETIMEBOUND
#define TARN_LIFETIMEBOUND
#endif

namespace tarn {

namespace detail {

// As std::exchange() and std::swap(), whose declarations take compilers long.
template <class Value, class Next>
constexpr Value exchanged(Value &place, Next &&next) noexcept {
  Value before(static_cast<Value &&>(place));
  place = static_cast<Value>(static_cast<Next &&>(next));
  return before;
}
template <class Value>
constexpr void swap_values(Value &a, Value &b) noexcept {
  Value before(static_cast<Value &&>(a));
  a = static_cast<Value &&>(b);
  b = static_cast<Value &&>(before);
}

}  // namespace detail

/** Marks the constructors that take ownership of an object: `Element(tarn::adopt, handle)`. */
struct Adopt {
  explicit Adopt() = default;
};
/** The value to pass to those constructors. */
inline constexpr Adopt adopt{};

}  // namespace tarn

#endif  // TARN_ADOPT_HPP
