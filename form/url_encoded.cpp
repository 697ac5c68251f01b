#include "form/url_encoded.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "form/decoding.h"

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

bool isEncoded(char c) { return c == '+' || c == '%'; }

#ifdef __SSE2__
// The place of the first byte with its bits set; kVector if there is none.
ptrdiff_t firstOf(__m128i bytes) {
  const auto mask = static_cast<unsigned>(_mm_movemask_epi8(bytes));
  return __builtin_ctz(mask | 1U << kVector);
}
#endif

// How many bytes come before the first encoded one, or before the end of the value.
size_t plainSize(std::string_view text) {
  size_t size = 0;
#ifdef __SSE2__
  for (; text.size() - size >= size_t{kVector}; size += kVector) {
    const __m128i bytes = load(text.data() + size);
    const __m128i encoded = _mm_or_si128(equal(bytes, '+'), equal(bytes, '%'));
    const ptrdiff_t count = firstOf(_mm_or_si128(encoded, equal(bytes, '&')));
    if (count < kVector) return size + static_cast<size_t>(count);
  }
#endif
  while (size < text.size() && text[size] != '&' && !isEncoded(text[size])) ++size;
  return size;
}

template <char kEnd>
[[gnu::noinline]] Decoding decodePiece(std::string_view window, char *to, size_t room) {
  return decode<kEnd>({window.data(), to}, window.data() + window.size(), to + room);
}

// Decodes bytes at the beginning of the window, which are consumed. Returns how many there are when
// decoded.
template <char kEnd>
size_t decodeWindow(TarnForm &form, char *decoded, size_t room) {
  const std::string_view window = form.source.window();
  const Decoding done = decodePiece<kEnd>(window, decoded, room);
  form.source.consume(static_cast<size_t>(done.from - window.data()));
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
  if (!form.scratch.reserve(0)) return form.reportOutOfMemory();
  while (ensureByte(form)) {
    const std::string_view window = form.source.window();
    if (window.front() == '&') return true;
    if (window.front() == '=') {
      form.source.consume(1);
      return true;
    }
    const uint64_t left = most - form.scratch.size();
    if (left == 0)
      return form.problem.reportLimit(TARN_FORM_TEXT_SIZE, most, form.source.position());
    const size_t room = sizeOfPiece(window.size(), left);
    if (!form.scratch.reserve(room)) return form.reportOutOfMemory();
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
  if (!record) form.reportOutOfMemory();
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

#ifdef __SSE2__
// Whether the next field can be read as a ShortPair.
bool mayBeShort(const TarnForm &form) {
  const std::string_view window = form.source.window();
  return window.size() >= size_t{Block::kReach} && window.front() != '&' &&
         form.fields < form.limits[TARN_FORM_FIELDS] && form.source.position() <= UINT32_MAX &&
         form.limits[TARN_FORM_TEXT_SIZE] >= ShortPair::kMost;
}

// Reads the name of the next field, and looks ahead at its value. Returns null if it did nothing.
[[gnu::always_inline]] inline TarnFormField *readShortPair(TarnForm &form) {
  if (form.loading || !mayBeShort(form)) return nullptr;
  const std::string_view window = form.source.window();
  const uint64_t offset = form.source.position();
  char *name = form.current.beginAgain(ShortPair::kRoom);
  if (!name) name = form.current.begin(&form, ShortPair::kRoom);
  ShortPair pair(form.known_block);
  if (!name || !pair.decodeName(window.data(), window.data() + window.size(), name)) return nullptr;
  ++form.fields;
  TarnFormField *record = form.current.end(static_cast<size_t>(pair.writtenEnd() - name), offset);
  const char *const value = pair.readEnd() + (*pair.readEnd() == '=');
  form.source.consume(static_cast<size_t>(value - window.data()));
  form.text.clear();
  if (form.text.reserve(ShortPair::kRoom) && pair.decodeValue(form.text.data())) {
    form.known_block = pair.known();
    form.ahead = {static_cast<size_t>(pair.readEnd() - value) + 1,
                  static_cast<size_t>(pair.writtenEnd() - form.text.data())};
  }
  return record;
}

// Keeps a field as a ShortPair, if no limit is near. Returns where the next one begins; null if it kept
// nothing.
[[gnu::always_inline]] inline const char *keepPair(TarnForm &form, ShortPair &pair,
                                                   const char *from, const char *last,
                                                   uint64_t offset) {
  Records &kept = form.kept;
  if (last - from < Block::kReach || *from == '&') return nullptr;
  const size_t room = ShortPair::roomForBoth(last - from);
  if (form.fields >= form.limits[TARN_FORM_FIELDS]) return nullptr;
  char *const name = kept.begin(&form, room);
  const bool fits = kept.size() + sizeof(TarnFormField) + room <= form.limits[TARN_FORM_LOAD_SIZE];
  if (!name || !fits || !form.order.reserve(sizeof(uint32_t))) return nullptr;
  if (!pair.decodeName(from, last, name)) return nullptr;
  const auto name_size = static_cast<size_t>(pair.writtenEnd() - name);
  char *const value = pair.writtenEnd() + 1;
  if (!pair.decodeValue(value)) return nullptr;
  const auto value_size = static_cast<size_t>(pair.writtenEnd() - value);
  const uint32_t place = kept.end(name_size, value_size, offset);
  std::memcpy(form.order.end(), &place, sizeof place);
  form.order.grow(sizeof place);
  ++form.fields;
  return pair.readEnd() + 1;
}
#endif

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

#ifdef __SSE2__
TarnFormField *stepToShortPair(TarnForm &form) {
  form.beginStep();
  TarnFormField *field = readShortPair(form);
  if (!field) return form.stepSlowly();
  form.stage = Stage::kInValue;
  return field;
}
#endif

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
    form.reportOutOfMemory();
    return nullptr;
  }
  const Decoding done = decodePiece<'='>(window, name, room);
  if (done.from == window.data() + window.size() || (*done.from != '=' && *done.from != '&') ||
      offset > UINT32_MAX) {
    return takeLongName(form, offset);
  }
  form.source.consume(static_cast<size_t>(done.from - window.data()) + (*done.from == '='));
  return records.end(static_cast<size_t>(done.to - name), offset);
}

void keepPairs([[maybe_unused]] TarnForm &form) {
#ifdef __SSE2__
  const std::string_view window = form.source.window();
  const uint64_t offset = form.source.position();
  const bool possible = form.type == BodyType::kUrlEncoded && form.stage == Stage::kBetweenFields &&
                        !form.problem && offset + window.size() <= UINT32_MAX &&
                        form.limits[TARN_FORM_TEXT_SIZE] >= ShortPair::kMost;
  if (!possible) return;
  ShortPair pair;
  const char *from = window.data();
  const char *const last = from + window.size();
  while (const char *next =
             keepPair(form, pair, from, last, offset + static_cast<size_t>(from - window.data()))) {
    from = next;
  }
  form.source.consume(static_cast<size_t>(from - window.data()));
#endif
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
  if (!form.scratch.reserve(room)) return form.reportOutOfMemory();
  run = {form.scratch.data(), decodeWindow<'&'>(form, form.scratch.data(), room)};
  return true;
}

bool takeShortValue(TarnForm &form, Bytes &text, uint64_t most) {
  if (form.type != BodyType::kUrlEncoded) return false;
  const std::string_view window = form.source.window();
  const size_t room = sizeOfPiece(window.size(), most);
  if (!text.reserve(room)) return false;
  char *const begin = text.end();
  const Decoding done = decodePiece<'&'>(window, begin, room);
  if (done.from == window.data() + window.size() || *done.from != '&') return false;
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
