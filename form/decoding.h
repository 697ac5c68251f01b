// How URL-encoded bytes are decoded.
#ifndef TARN_FORM_DECODING_H
#define TARN_FORM_DECODING_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "form/form.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace tarn::form {

// The values of digits; -1 for other bytes.
struct HexDigits {
  signed char value[256] = {};

  constexpr HexDigits() {
    for (signed char &digit : value) digit = -1;
    for (int i = 0; i < 16; ++i) {
      value[static_cast<unsigned char>("0123456789ABCDEF"[i])] = static_cast<signed char>(i);
      value[static_cast<unsigned char>("0123456789abcdef"[i])] = static_cast<signed char>(i);
    }
  }
};

inline constexpr HexDigits kHexDigits;

inline int hexDigit(char c) { return kHexDigits.value[static_cast<unsigned char>(c)]; }

// How far decoding has come.
struct Decoding {
  const char *from;  // what is next
  char *to;          // where its byte goes
};

// Decodes "%XX" at the beginning of a text of at least 3 bytes. Without digits, it stays "%".
inline void decodePercent(Decoding &at) {
  const int byte = hexDigit(at.from[1]) * 16 | hexDigit(at.from[2]);
  // A branch, since a processor can guess it: what follows need not wait for the digits.
  if (byte < 0) [[unlikely]] {
    *at.to++ = *at.from++;
    return;
  }
  *at.to++ = static_cast<char>(byte);
  at.from += 3;
}

#ifdef __SSE2__
constexpr ptrdiff_t kVector = sizeof(__m128i);

// All bits of each byte that is this one.
inline __m128i equal(__m128i bytes, char wanted) {
  return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(wanted));
}

inline __m128i load(const char *place) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i *>(place));
}

// With spaces for "+".
inline void storeDecoded(__m128i bytes, char *place) {
  const __m128i spaces = _mm_and_si128(equal(bytes, '+'), _mm_set1_epi8('+' - ' '));
  _mm_storeu_si128(reinterpret_cast<__m128i *>(place), _mm_sub_epi8(bytes, spaces));
}

// 64 bytes, which are decoded from one special byte to the next. Where that is follows from the mask
// and not from the bytes before it, so the processor can look ahead.
struct Block {
  static constexpr ptrdiff_t kSize = 64;
  // So many bytes from the beginning of the block on may be read. As many may be written.
  static constexpr ptrdiff_t kReach = kSize + kVector;

  const char *begin;
  uint64_t special;  // a bit for each special byte that is not decoded
  Decoding at;
};

// A bit for each of 64 bytes that is "%", "&" or `kEnd`.
template <char kEnd>
[[gnu::always_inline]] inline uint64_t specialBytes(const char *place) {
  uint64_t bits = 0;
  for (ptrdiff_t i = 0; i < Block::kSize; i += kVector) {
    const __m128i bytes = load(place + i);
    __m128i special = _mm_or_si128(equal(bytes, '%'), equal(bytes, '&'));
    if (kEnd != '&') special = _mm_or_si128(special, equal(bytes, kEnd));
    bits |= uint64_t{static_cast<uint32_t>(_mm_movemask_epi8(special))} << i;
  }
  return bits;
}

// Copies what is not special, in whole vectors.
[[gnu::always_inline]] inline void copyPlain(Decoding &at, const char *last) {
  const ptrdiff_t size = last - at.from;
  if (size <= 0) return;
  storeDecoded(load(at.from), at.to);
  for (ptrdiff_t i = kVector; i < size; i += kVector) storeDecoded(load(at.from + i), at.to + i);
  at.from = last;
  at.to += size;
}

// Decodes up to "&" or `kEnd`. Returns false if none of them is in this block, which is then decoded.
template <char kEnd>
[[gnu::always_inline]] inline bool decodeInBlock(Block &block) {
  while (block.special != 0) {
    const char *const special = block.begin + static_cast<unsigned>(__builtin_ctzll(block.special));
    block.special &= block.special - 1;
    const char byte = *special;
    if (kEnd == '&' && byte == '=') continue;
    copyPlain(block.at, special);
    if (byte != '%') return true;
    decodePercent(block.at);
  }
  copyPlain(block.at, block.begin + Block::kSize);
  return false;
}

// A name and a value that are in the window as a whole, with what a block may read behind them. The next
// one may follow, in the same block.
class ShortPair {
 public:
  // Of the encoded bytes.
  static constexpr ptrdiff_t kMost = 1024;
  // How many bytes may be written for a name or a value.
  static constexpr size_t kRoom = kMost + 2 * kVector;

  // The same for both, each with a zero byte behind it, if so many encoded bytes are left.
  static size_t roomForBoth(ptrdiff_t left) {
    return static_cast<size_t>(std::min(kMost, left) + 2 * kVector + 2);
  }

  ShortPair() = default;
  explicit ShortPair(const KnownBlock &known) : block_{known.begin, known.special, {}} {}
  KnownBlock known() const { return {block_.begin, block_.special}; }

  // Both return false if the field is longer, or not all of it is in the window.
  [[gnu::always_inline]] bool decodeName(const char *from, const char *last, char *to) {
    if (last - from < Block::kReach) return false;
    last_block_ = from + std::min(last - from - Block::kReach, kMost - Block::kSize);
    block_.at = {from, to};
    if (block_.begin && from - block_.begin < Block::kSize) {
      block_.special &= ~uint64_t{0} << (from - block_.begin);
    } else {
      block_.begin = from;
      block_.special = specialBytes<'='>(from);
    }
    return decodeTo<'='>();
  }
  [[gnu::always_inline]] bool decodeValue(char *to) {
    block_.at.to = to;
    if (*block_.at.from == '&') return true;
    ++block_.at.from;
    return decodeTo<'&'>();
  }

  // The byte that ended the name ("=" or "&") or the value ("&"), and the end of what was written.
  const char *readEnd() const { return block_.at.from; }
  char *writtenEnd() const { return block_.at.to; }

 private:
  template <char kEnd>
  [[gnu::always_inline]] bool decodeTo() {
    while (!decodeInBlock<kEnd>(block_)) {
      if (last_block_ - block_.begin < Block::kSize) return false;
      block_.begin += Block::kSize;
      block_.special = specialBytes<'='>(block_.begin);
    }
    return true;
  }

  Block block_ = {};
  const char *last_block_ = nullptr;
};
#endif

// Decodes bytes up to "&" or `kEnd`, or until `to` reaches `full`. What is behind may be overwritten up
// to there. A "%" that is not the first byte and has no room for its digits also ends them, since the
// digits may not have arrived.
template <char kEnd>
Decoding decode(Decoding at, const char *last, const char *full) {
  const char *const first = at.from;
#ifdef __SSE2__
  while (last - at.from >= Block::kReach && full - at.to >= Block::kReach) {
    Block block = {at.from, specialBytes<kEnd>(at.from), at};
    const bool ended = decodeInBlock<kEnd>(block);
    at = block.at;
    if (ended) return at;
  }
  // No more bytes are written than read.
  const char *const last_block = std::min(last - at.from, full - at.to) + at.from;
  while (last_block - at.from >= kVector) {
    const __m128i bytes = load(at.from);
    storeDecoded(bytes, at.to);
    __m128i special = _mm_or_si128(equal(bytes, '&'), equal(bytes, '%'));
    if (kEnd != '&') special = _mm_or_si128(special, equal(bytes, kEnd));
    const auto mask = static_cast<unsigned>(_mm_movemask_epi8(special));
    const ptrdiff_t count = mask != 0 ? __builtin_ctz(mask) : kVector;
    at.from += count;
    at.to += count;
    if (mask == 0) continue;
    if (*at.from != '%') return at;
    if (last - at.from < 3) break;
    decodePercent(at);
  }
#endif
  while (at.from < last && at.to < full && *at.from != '&' && *at.from != kEnd) {
    if (*at.from == '%' && last - at.from >= 3) {
      decodePercent(at);
      continue;
    }
    if (*at.from == '%' && at.from != first) break;
    *at.to++ = *at.from == '+' ? ' ' : *at.from;
    ++at.from;
  }
  return at;
}

}  // namespace tarn::form

#endif
