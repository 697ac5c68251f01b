#include "form/url_encoded.h"

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

// Decodes bytes up to "&" or `end`, at most `room` of them, and removes them from `text`. Returns how
// many there are when decoded; the rest of the room may be overwritten. A "%" that is not the first
// byte and has no room for its digits also ends them, since the digits may not have arrived.
size_t decode(std::string_view &text, char end, char *decoded, size_t room) {
  const char *from = text.data();
  const char *const last = from + text.size();
  char *to = decoded;
  char *const full = decoded + room;
  while (from < last && to < full) {
#ifdef __SSE2__
    if (*from != '%' && static_cast<size_t>(last - from) >= kVector &&
        static_cast<size_t>(full - to) >= kVector) {
      const __m128i bytes = load(from);
      const __m128i spaces = _mm_and_si128(equal(bytes, '+'), _mm_set1_epi8('+' - ' '));
      _mm_storeu_si128(reinterpret_cast<__m128i *>(to), _mm_sub_epi8(bytes, spaces));
      const __m128i ends = _mm_or_si128(equal(bytes, '&'), equal(bytes, end));
      const size_t count = firstOf(_mm_or_si128(ends, equal(bytes, '%')));
      from += count;
      to += count;
      if (count == kVector) continue;
    }
#endif
    if (*from == '&' || *from == end) break;
    if (*from == '%' && last - from < 3 && from != text.data()) break;
    from += decodeByte({from, static_cast<size_t>(last - from)}, true, *to++);
  }
  text.remove_prefix(static_cast<size_t>(from - text.data()));
  return static_cast<size_t>(to - decoded);
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
    std::string_view window = form.source.window();
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
    form.scratch.grow(decode(window, '=', form.scratch.end(), room));
    form.source.consume(form.source.window().size() - window.size());
  }
  return !form.problem;
}

// The same, straight into a record, if all of the name is in the window and not too long. Otherwise
// returns null and consumes nothing.
TarnFormField *takeShortName(TarnForm &form) {
  const uint64_t offset = form.source.position();
  std::string_view rest = form.source.window();
  const size_t room = sizeOfPiece(rest.size(), form.limits[TARN_FORM_TEXT_SIZE]);
  char *name = form.current.begin(&form, room);
  if (!name) {
    form.raiseOutOfMemory();
    return nullptr;
  }
  const size_t size = decode(rest, '=', name, room);
  if (rest.empty() || (rest.front() != '=' && rest.front() != '&')) return nullptr;
  if (rest.front() == '=') rest.remove_prefix(1);
  form.source.consume(form.source.window().size() - rest.size());
  return form.current.end(size, offset);
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
  for (;;) {
    if (!ensureByte(form)) {
      if (!form.problem) form.stage = Stage::kAfterFields;
      return nullptr;
    }
    const std::string_view window = form.source.window();
    size_t empty = 0;
    while (empty < window.size() && window[empty] == '&') ++empty;
    if (empty == 0) break;
    form.source.consume(empty);
  }
  if (!form.countField()) return nullptr;
  const uint64_t offset = form.source.position();
  if (TarnFormField *record = takeShortName(form)) return record;
  if (form.problem || !takeName(form)) return nullptr;
  form.current.clear();
  TarnFormField *record = form.current.add(&form, form.scratch.view(), nullptr, 0, {}, offset);
  if (!record) form.raiseOutOfMemory();
  return record;
}

bool nextRunOfPair(TarnForm &form, std::string_view &run) {
  if (!ensureByte(form) || form.source.window().front() == '&') {
    if (!form.problem) form.stage = Stage::kBetweenFields;
    return false;
  }
  std::string_view window = form.source.window();
  const size_t plain = plainSize(window);
  if (plain >= kLongRun || plain == window.size() || window[plain] == '&') {
    run = {window.data(), plain};
    form.source.consume(plain);
    return true;
  }
  form.scratch.clear();
  const size_t room = sizeOfPiece(window.size(), kDecoded);
  if (!form.scratch.reserve(room)) return form.raiseOutOfMemory();
  char *decoded = form.scratch.data();
  const size_t count = decode(window, '&', decoded, room);
  form.source.consume(form.source.window().size() - window.size());
  run = {decoded, count};
  return true;
}

bool takeShortValue(TarnForm &form, Bytes &text, uint64_t most) {
  if (form.type != BodyType::kUrlEncoded) return false;
  std::string_view rest = form.source.window();
  const size_t room = sizeOfPiece(rest.size(), most);
  if (!text.reserve(room)) return false;
  const size_t size = decode(rest, '&', text.end(), room);
  if (rest.empty() || rest.front() != '&') return false;
  text.grow(size);
  form.source.consume(form.source.window().size() - rest.size());
  form.size = size;
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
