// Finds a text in another, in linear time whatever the two are.
#ifndef TARN_FORM_FINDER_H
#define TARN_FORM_FINDER_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace tarn::form {

class Finder {
 public:
  // The text has at least 3 bytes and is not copied. To prepare takes time in proportion to the
  // square of its size.
  explicit Finder(std::string_view wanted);

  // Where it occurs first. Returns null if it does not. `wide` is for processors that can search so:
  // see canSearchWide().
  const char *find(std::string_view text, bool wide) const;

 private:
  size_t shiftAt(const char *place) const;

  std::string_view wanted_;
  size_t left_ = 0;    // the size of the left part
  size_t period_ = 1;  // the smallest one

#ifdef __SSE2__
  template <class Candidates>
  bool findByFilter(const char *&place, const char *last, const Candidates &candidates) const;
  bool findNarrow(const char *&place, const char *last) const;
  bool findWide(const char *&place, const char *last) const;
  size_t shiftAtCandidate(const char *place) const;

  static constexpr size_t kVector = sizeof(__m128i);
  static constexpr size_t kBlock = 4 * kVector;  // places that are filtered together
  static constexpr size_t kFilter = 9;
  static constexpr size_t kGroup = 3;

  size_t filter_start_ = 0;
  size_t filter_size_ = 0;
  __m128i filter_[kVector];  // bytes of the text, each 16 times
#endif
};

}  // namespace tarn::form

#endif
