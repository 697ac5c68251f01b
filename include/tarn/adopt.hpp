/* Taking over handles. */
#ifndef TARN_ADOPT_HPP
#define TARN_ADOPT_HPP

#if __cplusplus < 201703L
#error "the C++ headers of Tarn need C++17: compile with -std=c++17 or later"
#endif

namespace tarn {

/** Marks the constructors that take ownership of an object: `Element(tarn::adopt, handle)`. */
struct Adopt {
  explicit Adopt() = default;
};
/** The value to pass to those constructors. */
inline constexpr Adopt adopt{};

}  // namespace tarn

#endif  // TARN_ADOPT_HPP
