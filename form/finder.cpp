// The Two-Way algorithm of Crochemore and Perrin (1991), behind a filter.
//
// The text is cut into a left and a right part. The cut is critical: the shortest text that repeats
// across it is as long as the smallest period of the whole. So if k bytes of the right part are here,
// but not the next one, the text cannot begin at any of the next k places. If the right part is here,
// but not the left part, it cannot begin before one period from here.
//
// This takes linear time. After a step because of the right part, no byte of it is compared again.
// After a step of a period, some are, but only if all of the left part is now at bytes that were found
// equal to the right part. They have the same period, so the left part is there. Then either the right
// part is there too and the search ends, or the next step leaves these bytes behind. The left part is
// shorter than a period.
#include "form/finder.h"

#include <algorithm>
#include <cstring>

#ifdef __x86_64__
#include <immintrin.h>
#endif

namespace tarn::form {
namespace {

// Where the greatest suffix begins, in the order of bytes (1) or the reverse order (-1).
size_t greatestSuffix(std::string_view text, int order) {
  size_t greatest = 0;
  for (size_t i = 1; i < text.size(); ++i) {
    // If one begins with the other, the longer one is greater.
    const int difference = std::memcmp(text.data() + i, text.data() + greatest, text.size() - i);
    if (difference * order > 0) greatest = i;
  }
  return greatest;
}

#ifdef __SSE2__
__m128i load(const char *place) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i *>(place));
}

uint64_t maskOf(__m128i bytes) { return uint64_t{static_cast<uint32_t>(_mm_movemask_epi8(bytes))}; }
#endif

#ifdef __x86_64__
#define TARN_AVX2 __attribute__((target("avx2")))

TARN_AVX2 inline __m256i wideLoad(const char *place) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(place));
}

TARN_AVX2 inline uint64_t wideMaskOf(__m256i bytes) {
  return uint64_t{static_cast<uint32_t>(_mm256_movemask_epi8(bytes))};
}
#endif

}  // namespace

Finder::Finder(std::string_view wanted)
    : wanted_(wanted), left_(std::max(greatestSuffix(wanted, 1), greatestSuffix(wanted, -1))) {
  const auto is_period = [&](size_t size) {
    return std::memcmp(wanted.data(), wanted.data() + size, wanted.size() - size) == 0;
  };
  while (!is_period(period_)) ++period_;
#ifdef __SSE2__
  // If the right part is shorter than a vector, the filter has all of it.
  const bool is_long = wanted.size() - left_ >= kVector;
  filter_size_ = is_long ? kFilter : std::min(wanted.size(), kVector);
  filter_start_ = std::min(left_, wanted.size() - filter_size_);
  for (size_t i = 0; i < filter_size_; ++i) filter_[i] = _mm_set1_epi8(wanted[filter_start_ + i]);
#endif
}

const char *Finder::find(std::string_view text, [[maybe_unused]] bool wide) const {
  if (text.size() < wanted_.size()) return nullptr;
  const char *place = text.data();
  const char *const last = place + (text.size() - wanted_.size());
#ifdef __SSE2__
#ifdef __x86_64__
  const bool found = wide ? findWide(place, last) : findNarrow(place, last);
#else
  const bool found = findNarrow(place, last);
#endif
  if (found) return place;
#endif
  while (place <= last) {
    const size_t shift = shiftAt(place);
    if (shift == 0) return place;
    place += shift;
  }
  return nullptr;
}

// How far the next place is at least where the text may be; 0 if it is here.
size_t Finder::shiftAt(const char *place) const {
  for (size_t i = left_; i < wanted_.size(); ++i) {
    if (place[i] != wanted_[i]) return i - left_ + 1;
  }
  return std::memcmp(place, wanted_.data(), left_) == 0 ? 0 : period_;
}

#ifdef __SSE2__
// The same where the filter fits. A step can be shorter by less than a vector, so that it need not wait
// for the place of the difference: the processor goes on with a step that it can guess.
inline size_t Finder::shiftAtCandidate(const char *place) const {
  const size_t size = wanted_.size();
  if (filter_size_ == size) return 0;
  const auto is_same = [&](size_t i) {
    i = std::min(i, size - kVector);
    return maskOf(_mm_cmpeq_epi8(load(place + i), load(wanted_.data() + i))) == 0xffff;
  };
  for (size_t i = filter_start_ + filter_size_; i < size; i += kVector) {
    if (!is_same(i)) return i - left_ + 1;
  }
  for (size_t i = 0; i < left_; i += kVector) {
    if (!is_same(i)) return period_;
  }
  return 0;
}

// Finds the text at the places of whole blocks. `place` is then where it is, or where to go on.
// `candidates` tells at which of the places of a block the filter fits.
template <class Candidates>
[[gnu::always_inline]] inline bool Finder::findByFilter(const char *&place, const char *last,
                                                        const Candidates &candidates) const {
  const char *block = place;
  for (; last - block >= ptrdiff_t{kBlock}; block += kBlock) {
    if (place >= block + kBlock) continue;
    uint64_t mask = candidates(block);
    if (place > block) mask &= ~uint64_t{0} << (place - block);
    while (mask != 0) {
      const auto at = static_cast<size_t>(__builtin_ctzll(mask));
      const size_t shift = shiftAtCandidate(block + at);
      place = block + at + shift;
      if (shift == 0) return true;
      if (at + shift >= kBlock) break;
      mask &= ~uint64_t{0} << (at + shift);
    }
  }
  place = std::max(place, block);
  return false;
}

bool Finder::findNarrow(const char *&place, const char *last) const {
  return findByFilter(place, last, [this](const char *block) {
    block += filter_start_;
    __m128i a = _mm_set1_epi8(-1);
    __m128i b = a;
    __m128i c = a;
    __m128i d = a;
    for (size_t i = 0; i < filter_size_; i += kGroup) {
      // Most texts are done with after the first group. The last overlaps with the one before if need
      // be.
      const size_t group = std::min(i, filter_size_ - kGroup);
      for (size_t j = group; j < group + kGroup; ++j) {
        const __m128i byte = filter_[j];
        a = _mm_and_si128(a, _mm_cmpeq_epi8(load(block + j), byte));
        b = _mm_and_si128(b, _mm_cmpeq_epi8(load(block + j + kVector), byte));
        c = _mm_and_si128(c, _mm_cmpeq_epi8(load(block + j + 2 * kVector), byte));
        d = _mm_and_si128(d, _mm_cmpeq_epi8(load(block + j + 3 * kVector), byte));
      }
      if (maskOf(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d))) == 0) return uint64_t{0};
    }
    return maskOf(a) | maskOf(b) << kVector | maskOf(c) << 2 * kVector | maskOf(d) << 3 * kVector;
  });
}

#ifdef __x86_64__
// The same with vectors that are twice as long.
TARN_AVX2 bool Finder::findWide(const char *&place, const char *last) const {
  return findByFilter(place, last, [this](const char *block) TARN_AVX2 {
    block += filter_start_;
    __m256i a = _mm256_set1_epi8(-1);
    __m256i b = a;
    for (size_t i = 0; i < filter_size_; i += kGroup) {
      const size_t group = std::min(i, filter_size_ - kGroup);
      for (size_t j = group; j < group + kGroup; ++j) {
        const __m256i byte = _mm256_broadcastsi128_si256(filter_[j]);
        a = _mm256_and_si256(a, _mm256_cmpeq_epi8(wideLoad(block + j), byte));
        b = _mm256_and_si256(b, _mm256_cmpeq_epi8(wideLoad(block + j + 2 * kVector), byte));
      }
      if (wideMaskOf(_mm256_or_si256(a, b)) == 0) return uint64_t{0};
    }
    return wideMaskOf(a) | wideMaskOf(b) << 2 * kVector;
  });
}
#endif
#endif

}  // namespace tarn::form
