#include "form/url_encoded.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace tarn::form {
namespace {

// A longer run without anything to decode is not copied.
constexpr size_t kLongRun = 64;
// How many bytes are decoded at a time, at most.
constexpr size_t kDecoded = 4096;

size_t sizeOfPiece(size_t size, uint64_t limit) {
  const size_t piece = size < kDecoded ? size : kDecoded;
  return piece < limit ? piece : static_cast<size_t>(limit);
}

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

int hexDigit(char c) {
  static constexpr HexDigits digits;
  return digits.value[static_cast<unsigned char>(c)];
}

bool isEncoded(char c) { return c == '+' || c == '%'; }

#ifdef __SSE2__
constexpr size_t kVector = sizeof(__m128i);

// All bits of each byte that is this one.
__m128i equal(__m128i bytes, char wanted) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(wanted)); }

// The place of the first byte with its bits set; 16 if there is none.
size_t firstOf(__m128i bytes) {
  const auto mask = static_cast<unsigned>(_mm_movemask_epi8(bytes));
  return static_cast<size_t>(__builtin_ctz(mask | 1U << kVector));
}

__m128i load(const char *place) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i *>(place));
}

// With spaces for "+".
void storeDecoded(__m128i bytes, char *place) {
  const __m128i spaces = _mm_and_si128(equal(bytes, '+'), _mm_set1_epi8('+' - ' '));
  _mm_storeu_si128(reinterpret_cast<__m128i *>(place), _mm_sub_epi8(bytes, spaces));
}

// A bit for each of 64 bytes that is "%", "&" or "=".
uint64_t specialBytes(const char *place) {
  uint64_t bits = 0;
  for (size_t i = 0; i < SpecialBytes::kSize; i += kVector) {
    const __m128i bytes = load(place + i);
    const __m128i special =
        _mm_or_si128(_mm_or_si128(equal(bytes, '%'), equal(bytes, '&')), equal(bytes, '='));
    bits |= uint64_t{static_cast<uint32_t>(_mm_movemask_epi8(special))} << i;
  }
  return bits;
}
#endif

// How many bytes come before the first encoded one, or before the end of the value.
size_t plainSize(std::string_view text) {
  size_t size = 0;
#ifdef __SSE2__
  for (; text.size() - size >= kVector; size += kVector) {
    const __m128i bytes = load(text.data() + size);
    const __m128i encoded = _mm_or_si128(equal(bytes, '+'), equal(bytes, '%'));
    const size_t count = firstOf(_mm_or_si128(encoded, equal(bytes, '&')));
    if (count < kVector) return size + count;
  }
#endif
  while (size < text.size() && text[size] != '&' && !isEncoded(text[size])) ++size;
  return size;
}

// Decodes "%XX" at the beginning of a text of at least 3 bytes. Without digits, it stays "%".
inline void decodePercent(const char *&from, char *&to) {
  const int byte = hexDigit(from[1]) * 16 | hexDigit(from[2]);
  // A branch, since a processor can guess it: what follows need not wait for the digits.
  if (byte < 0) [[unlikely]] {
    *to++ = *from++;
    return;
  }
  *to++ = static_cast<char>(byte);
  from += 3;
}

// How far decoding has come.
struct Decoding {
  const char *from;  // what is next
  char *to;          // where its byte goes
};

// Decodes bytes up to "&" or `kEnd`, or until `to` reaches `full`. What is behind may be overwritten up
// to there. A "%" that is not the first byte and has no room for its digits also ends them, since the
// digits may not have arrived.
template <char kEnd>
[[gnu::always_inline]] inline Decoding decode(const char *from, const char *last, char *to,
                                              const char *full) {
  const char *const first = from;
#ifdef __SSE2__
  // No more bytes are written than read.
  const char *const last_block = std::min(last - from, full - to) + from;
  while (last_block - from >= static_cast<ptrdiff_t>(kVector)) {
    const __m128i bytes = load(from);
    storeDecoded(bytes, to);
    __m128i special = _mm_or_si128(equal(bytes, '&'), equal(bytes, '%'));
    if (kEnd != '&') special = _mm_or_si128(special, equal(bytes, kEnd));
    const auto mask = static_cast<unsigned>(_mm_movemask_epi8(special));
    const size_t count = mask != 0 ? static_cast<size_t>(__builtin_ctz(mask)) : kVector;
    from += count;
    to += count;
    if (mask == 0) continue;
    if (*from != '%') return {from, to};
    if (last - from < 3) break;
    decodePercent(from, to);
  }
#endif
  while (from < last && to < full && *from != '&' && *from != kEnd) {
    if (*from == '%' && last - from >= 3) {
      decodePercent(from, to);
      continue;
    }
    if (*from == '%' && from != first) break;
    *to++ = *from == '+' ? ' ' : *from;
    ++from;
  }
  return {from, to};
}

#ifdef __SSE2__
// The first byte from here on that may not be plain. Where it is follows from the mask of a block, and
// not from the bytes before it, so the processor can look ahead. Returns null if it is not known.
[[gnu::always_inline]] inline const char *nextSpecial(SpecialBytes &block, const char *from,
                                                      const char *last) {
  auto place = static_cast<size_t>(from - block.begin);
  if (!block.begin || place >= SpecialBytes::kSize) {
    if (last - from < static_cast<ptrdiff_t>(SpecialBytes::kSize)) return nullptr;
    block = {from, specialBytes(from)};
    place = 0;
  }
  uint64_t bits = block.bits >> place;
  while (bits == 0) {
    from = block.begin + SpecialBytes::kSize;
    if (last - from < static_cast<ptrdiff_t>(SpecialBytes::kSize)) return nullptr;
    bits = specialBytes(from);
    block = {from, bits};
  }
  return from + __builtin_ctzll(bits);
}

// Decodes a name or value up to its end. Otherwise, or if the window ends soon, returns null.
template <char kEnd>
[[gnu::always_inline]] inline Decoding decodeShort(SpecialBytes &known, const char *from,
                                                   const char *last, char *to, const char *full) {
  if (last - from > static_cast<ptrdiff_t>(kDecoded)) last = from + kDecoded;
  SpecialBytes block = known;
  for (;;) {
    const char *const special = nextSpecial(block, from, last);
    const ptrdiff_t size = special - from;
    // Whole vectors are copied.
    const bool fits = special && last - special >= static_cast<ptrdiff_t>(kVector) &&
                      full - to >= size + static_cast<ptrdiff_t>(kVector);
    if (!fits) return {nullptr, to};
    known = block;
    for (ptrdiff_t i = 0; i < size; i += kVector) storeDecoded(load(from + i), to + i);
    from = special;
    to += size;
    if (*from == '%') {
      decodePercent(from, to);
    } else if (*from == '&' || kEnd == '=') {
      return {from, to};
    } else {
      *to++ = *from++;
    }
  }
}
#endif

template <char kEnd>
[[gnu::noinline]] Decoding decodeStepByStep(const char *from, const char *last, char *to,
                                            const char *full) {
  return decode<kEnd>(from, last, to, full);
}

// See decode(); faster for names and values that are not long.
template <char kEnd>
[[gnu::always_inline]] inline Decoding decodePiece([[maybe_unused]] TarnForm &form,
                                                   const char *from, const char *last, char *to,
                                                   const char *full) {
#ifdef __SSE2__
  const Decoding done = decodeShort<kEnd>(form.special_bytes, from, last, to, full);
  if (done.from) return done;
#endif
  return decodeStepByStep<kEnd>(from, last, to, full);
}

// The same for bytes at the beginning of the window, which are consumed. Returns how many there are when
// decoded.
template <char kEnd>
size_t decodeWindow(TarnForm &form, char *decoded, size_t room) {
  const std::string_view window = form.source.window();
  const char *const begin = window.data();
  const Decoding done = decode<kEnd>(begin, begin + window.size(), decoded, decoded + room);
  form.source.consume(static_cast<size_t>(done.from - begin));
  return static_cast<size_t>(done.to - decoded);
}

// Fills the window, so that a "%" at its beginning has its digits unless the body ends there.
// Returns false at the end of the body and after a problem.
bool ensureByte(TarnForm &form) {
  std::string_view window = form.source.window();
  while (window.empty() || (window.front() == '%' && window.size() < 3)) {
    if (!form.more()) return !form.problem && !window.empty();
    window = form.source.window();
  }
  return true;
}

// Reads a name into TarnForm::scratch, and the "=" behind it.
bool takeName(TarnForm &form) {
  const uint64_t most = form.limits[TARN_FORM_TEXT_SIZE];
  form.scratch.clear();
  if (!form.scratch.reserve(0)) return form.raiseOutOfMemory();
  while (ensureByte(form)) {
    const std::string_view window = form.source.window();
    if (window.front() == '&') return true;
    if (window.front() == '=') {
      form.source.consume(1);
      return true;
    }
    const uint64_t left = most - form.scratch.size();
    if (left == 0)
      return form.problem.raiseLimit(TARN_FORM_TEXT_SIZE, most, form.source.position());
    const size_t room = sizeOfPiece(window.size(), left);
    if (!form.scratch.reserve(room)) return form.raiseOutOfMemory();
    form.scratch.grow(decodeWindow<'='>(form, form.scratch.end(), room));
  }
  return !form.problem;
}

// Reads a name of any length.
[[gnu::noinline]] TarnFormField *takeLongName(TarnForm &form, uint64_t offset) {
  if (form.problem || !takeName(form)) return nullptr;
  FieldTexts texts;
  texts.name = form.scratch.view();
  TarnFormField *record = form.records().add(&form, texts, offset);
  if (!record) form.raiseOutOfMemory();
  return record;
}

// Finds a byte that is not "&". Returns false at the end of the form and with a problem.
[[gnu::noinline]] bool skipEmptyPieces(TarnForm &form) {
  while (ensureByte(form)) {
    const std::string_view window = form.source.window();
    size_t empty = 0;
    while (empty < window.size() && window[empty] == '&') ++empty;
    if (empty == 0) return true;
    form.source.consume(empty);
  }
  if (!form.problem) form.stage = Stage::kAfterFields;
  return false;
}

}  // namespace

size_t decodeByte(std::string_view text, bool plus, char &byte) {
  byte = text.front();
  if (byte == '+' && plus) byte = ' ';
  if (byte != '%' || text.size() < 3) return 1;
  const int high = hexDigit(text[1]);
  const int low = hexDigit(text[2]);
  if (high < 0 || low < 0) return 1;
  byte = static_cast<char>(high * 16 + low);
  return 3;
}

TarnFormField *stepToPair(TarnForm &form) {
  constexpr size_t digits = 3;  // an encoded byte
  std::string_view window = form.source.window();
  if (window.size() < digits || window.front() == '&') {
    if (!skipEmptyPieces(form)) return nullptr;
    window = form.source.window();
  }
  if (!form.countField()) return nullptr;
  const uint64_t offset = form.source.position();
  // If all of the name is in the window and not too long, it goes straight into the record.
  const uint64_t most = form.limits[TARN_FORM_TEXT_SIZE];
  const size_t room = std::min<size_t>(sizeOfPiece(window.size(), most), TarnFormField::kShortName);
  Records &records = form.records();
  char *name = records.begin(&form, room);
  if (!name) {
    form.raiseOutOfMemory();
    return nullptr;
  }
  const char *const last = window.data() + window.size();
  const Decoding done = decodePiece<'='>(form, window.data(), last, name, name + room);
  if (done.from == last || (*done.from != '=' && *done.from != '&') || offset > UINT32_MAX) {
    return takeLongName(form, offset);
  }
  form.source.consume(static_cast<size_t>(done.from - window.data()) + (*done.from == '='));
  return records.end(static_cast<size_t>(done.to - name), offset);
}

bool nextRunOfPair(TarnForm &form, std::string_view &run) {
  if (!ensureByte(form) || form.source.window().front() == '&') {
    if (!form.problem) form.stage = Stage::kBetweenFields;
    return false;
  }
  const std::string_view window = form.source.window();
  const size_t plain = plainSize(window);
  if (plain >= kLongRun || plain == window.size() || window[plain] == '&') {
    run = {window.data(), plain};
    form.source.consume(plain);
    return true;
  }
  form.scratch.clear();
  const size_t room = sizeOfPiece(window.size(), kDecoded);
  if (!form.scratch.reserve(room)) return form.raiseOutOfMemory();
  run = {form.scratch.data(), decodeWindow<'&'>(form, form.scratch.data(), room)};
  return true;
}

bool takeShortValue(TarnForm &form, Bytes &text, uint64_t most) {
  if (form.type != BodyType::kUrlEncoded) return false;
  const std::string_view window = form.source.window();
  const size_t room = sizeOfPiece(window.size(), most);
  if (!text.reserve(room)) return false;
  const char *const last = window.data() + window.size();
  char *const begin = text.end();
  const Decoding done = decodePiece<'&'>(form, window.data(), last, begin, begin + room);
  if (done.from == last || *done.from != '&') return false;
  form.size = static_cast<size_t>(done.to - begin);
  text.grow(static_cast<size_t>(done.to - begin));
  form.source.consume(static_cast<size_t>(done.from - window.data()) + 1);
  form.stage = Stage::kBetweenFields;
  return true;
}

std::string_view plainValue(const TarnForm &form) {
  const std::string_view window = form.source.window();
  const size_t plain = plainSize(window);
  const bool all = plain == window.size() || window[plain] == '&';
  if (!form.source.inMemory() || !all) return {};
  return {window.data() ? window.data() : "", plain};
}

}  // namespace tarn::form
