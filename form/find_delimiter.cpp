// The search that every byte of an upload goes through.
#include <cstdint>
#include <cstring>

#include "form/multipart.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif
#ifdef __x86_64__
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace tarn::form {
namespace {

const char *findOneByOne(const char *from, const char *last_start, std::string_view delimiter) {
  while (from <= last_start) {
    const size_t left = static_cast<size_t>(last_start - from) + 1;
    const char *found = static_cast<const char *>(std::memchr(from, '\r', left));
    if (!found) return nullptr;
    if (std::memcmp(found, delimiter.data(), delimiter.size()) == 0) return found;
    from = found + 1;
  }
  return nullptr;
}

#ifdef __SSE2__
__m128i load(const char *place) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i *>(place));
}

// Behind which of 16 places comes "\n--".
__m128i restOfHead(const char *place) {
  const __m128i dash = _mm_set1_epi8('-');
  const __m128i dashes =
      _mm_and_si128(_mm_cmpeq_epi8(load(place + 2), dash), _mm_cmpeq_epi8(load(place + 3), dash));
  return _mm_and_si128(dashes, _mm_cmpeq_epi8(load(place + 1), _mm_set1_epi8('\n')));
}

// The candidates among 16 places. Returns the first that is the delimiter, or null.
const char *findAmong(__m128i candidates, const char *start, std::string_view delimiter) {
  const __m128i heads = _mm_and_si128(candidates, restOfHead(start));
  for (auto mask = static_cast<unsigned>(_mm_movemask_epi8(heads)); mask != 0; mask &= mask - 1) {
    const char *place = start + __builtin_ctz(mask);
    if (std::memcmp(place, delimiter.data(), delimiter.size()) == 0) return place;
  }
  return nullptr;
}
#endif

#ifdef __x86_64__
#define TARN_AVX2 __attribute__((target("avx2")))

// Those of 32 places that have the first byte here and the last one behind.
TARN_AVX2 inline __m256i wideCandidates(const char *place, size_t behind, __m256i first,
                                        __m256i last) {
  const auto *const bytes = reinterpret_cast<const __m256i *>(place);
  const auto *const more = reinterpret_cast<const __m256i *>(place + behind);
  return _mm256_and_si256(_mm256_cmpeq_epi8(_mm256_loadu_si256(bytes), first),
                          _mm256_cmpeq_epi8(_mm256_loadu_si256(more), last));
}
#endif

}  // namespace

// A comparison begins at a CR and ends at the first difference, which is not behind the next CR. So no
// byte is compared more than twice, whatever a browser sends.
const char *findDelimiter(std::string_view text, std::string_view delimiter) {
  const size_t size = delimiter.size();
  if (text.size() < size) return nullptr;
  const char *from = text.data();
  const char *const last_start = from + (text.size() - size);
#ifdef __SSE2__
  // Looks at the first and the last byte of 16 places at a time. In a picture, 1 place in 65,536 has
  // both. Only where one has, the rest of "\r\n--" is compared, again at 16 places at a time.
  const __m128i first = _mm_set1_epi8('\r');
  const __m128i last = _mm_set1_epi8(delimiter.back());
  const auto candidates = [&](const char *place) {
    return _mm_and_si128(_mm_cmpeq_epi8(load(place), first),
                         _mm_cmpeq_epi8(load(place + size - 1), last));
  };
  while (last_start - from >= 64) {
    const __m128i found[4] = {candidates(from), candidates(from + 16), candidates(from + 32),
                              candidates(from + 48)};
    const __m128i any =
        _mm_or_si128(_mm_or_si128(found[0], found[1]), _mm_or_si128(found[2], found[3]));
    if (_mm_movemask_epi8(any) != 0) {
      for (size_t lane = 0; lane < 4; ++lane) {
        const char *place = findAmong(found[lane], from + 16 * lane, delimiter);
        if (place) return place;
      }
    }
    from += 64;
  }
#endif
  return findOneByOne(from, last_start, delimiter);
}

#ifdef __x86_64__
// Three instructions that a virtual machine takes microseconds for. The C library knows the answer, but
// to import the function that tells it would cost every script more.
bool canSearchWide() {
  unsigned a = 0;
  unsigned b = 0;
  unsigned c = 0;
  unsigned d = 0;
  constexpr unsigned last_leaf = 7;
  __cpuid(0, a, b, c, d);
  if (a < last_leaf) return false;
  __cpuid(1, a, b, c, d);
  // Whether the system keeps the wide registers of each process.
  constexpr unsigned needed = bit_OSXSAVE | bit_AVX;
  if ((c & needed) != needed) return false;
  unsigned kept = 0;
  asm volatile("xgetbv" : "=a"(kept), "=d"(d) : "c"(0));
  constexpr unsigned wide = 6;
  __cpuid_count(last_leaf, 0, a, b, c, d);
  return (kept & wide) == wide && (b & bit_AVX2) != 0;
}

TARN_AVX2 const char *findDelimiterWide(std::string_view text, std::string_view delimiter) {
  const size_t behind = delimiter.size() - 1;
  const __m256i first = _mm256_set1_epi8('\r');
  const __m256i last = _mm256_set1_epi8(delimiter.back());
  while (text.size() >= 128 + behind) {
    const char *const from = text.data();
    const __m256i found[4] = {wideCandidates(from, behind, first, last),
                              wideCandidates(from + 32, behind, first, last),
                              wideCandidates(from + 64, behind, first, last),
                              wideCandidates(from + 96, behind, first, last)};
    const __m256i any =
        _mm256_or_si256(_mm256_or_si256(found[0], found[1]), _mm256_or_si256(found[2], found[3]));
    if (_mm256_movemask_epi8(any) != 0) {
      for (size_t lane = 0; lane < 4; ++lane) {
        const char *const start = from + 32 * lane;
        const char *place = findAmong(_mm256_castsi256_si128(found[lane]), start, delimiter);
        if (!place) {
          place = findAmong(_mm256_extracti128_si256(found[lane], 1), start + 16, delimiter);
        }
        if (place) return place;
      }
    }
    // Then the next ones are aligned.
    text.remove_prefix(128 - (reinterpret_cast<uintptr_t>(from) & 31));
  }
  return findDelimiter(text, delimiter);
}
#else
bool canSearchWide() { return false; }

const char *findDelimiterWide(std::string_view text, std::string_view delimiter) {
  return findDelimiter(text, delimiter);
}
#endif

}  // namespace tarn::form
