/* Taking objects over. */
#ifndef TARN_ADOPT_HPP
#define TARN_ADOPT_HPP

#if __cplusplus < 201703L
#error "tarn.hpp is C++17: compile with -std=c++17 or a later one"
#endif

namespace tarn {

/** Marks the constructors that take an object over: `Element(tarn::adopt, handle)`. */
struct Adopt {
  explicit Adopt() = default;
};
/** What those constructors take: the only Adopt there need be. */
inline constexpr Adopt adopt{};

}  // namespace tarn

#endif  // TARN_ADOPT_HPP
