// The search that every byte of an upload goes through.
#include <cstdint>
#include <cstring>

#include "form/multipart.h"

#ifdef __SSE2__
#include <emmintrin.h>
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
        const char *const start = from + 16 * lane;
        const __m128i heads = _mm_and_si128(found[lane], restOfHead(start));
        for (auto mask = static_cast<unsigned>(_mm_movemask_epi8(heads)); mask != 0;
             mask &= mask - 1) {
          const char *place = start + __builtin_ctz(mask);
          if (std::memcmp(place, delimiter.data(), size) == 0) return place;
        }
      }
    }
    from += 64;
  }
#endif
  return findOneByOne(from, last_start, delimiter);
}

}  // namespace tarn::form
