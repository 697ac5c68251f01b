// Reads multipart/form-data in the order in which the bytes arrive: preamble, delimiter line,
// headers, value, delimiter line, ... closing delimiter.
#include "form/multipart.h"

#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "form/part_headers.h"
#include "form/text.h"

namespace tarn::form {
namespace {

// From here on in a body, the fastest search is used. To ask the processor for it takes longer than to
// search a small body.
constexpr uint64_t kLargeBody = uint64_t{1} << 20;

const char *search(TarnForm &form, std::string_view text) {
  if (form.search == Search::kUsual && form.source.position() >= kLargeBody) {
    form.search = canSearchWide() ? Search::kWide : Search::kChosen;
  }
  const std::string_view delimiter = form.boundary.view();
  return form.search == Search::kWide ? findDelimiterWide(text, delimiter)
                                      : findDelimiter(text, delimiter);
}

// Makes the window at least `size` bytes long, if that many are left.
bool ensure(TarnForm &form, size_t size) {
  while (form.source.window().size() < size) {
    if (!form.more()) return false;
  }
  return true;
}

// The delimiter without its CR LF, as it may open a body.
std::string_view dashBoundary(const TarnForm &form) {
  std::string_view delimiter = form.boundary.view();
  delimiter.remove_prefix(2);
  return delimiter;
}

// Reads what follows a boundary on its line: "--", or white space and a line end.
bool takeRestOfDelimiterLine(TarnForm &form) {
  constexpr const char *kCut = "cut short: the body ends in a delimiter";
  constexpr const char *kOther = "a delimiter line goes on after the boundary";
  if (beginsWith(form.source.window(), "\r\n")) {
    form.source.consume(2);
    form.stage = Stage::kBetweenFields;
    return true;
  }
  if (!ensure(form, 1)) return form.raiseCutShort(kCut);
  if (form.source.window().front() == '-') {
    if (!ensure(form, 2)) return form.raiseCutShort(kCut);
    if (form.source.window()[1] != '-') return form.raise(TARN_FORM_MALFORMED, kOther);
    form.source.consume(2);
    form.stage = Stage::kAfterFields;
    return true;
  }
  for (;;) {
    if (!ensure(form, 1)) return form.raiseCutShort(kCut);
    const char c = form.source.window().front();
    if (c != ' ' && c != '\t') break;
    form.source.consume(1);
  }
  if (form.source.window().front() != '\r') return form.raise(TARN_FORM_MALFORMED, kOther);
  if (!ensure(form, 2)) return form.raiseCutShort(kCut);
  if (form.source.window()[1] != '\n') return form.raise(TARN_FORM_MALFORMED, kOther);
  form.source.consume(2);
  form.stage = Stage::kBetweenFields;
  return true;
}

// Finds a text in linear time. At first it compares only the text's ends, at 16 places at a time. If
// they are found too often, it goes on with the algorithm "shift-and", in which each byte takes the same
// time: bit i of the state says whether the last i + 1 bytes are the text's first ones.
class Finder {
 public:
  explicit Finder(std::string_view wanted)
      : wanted_(wanted), start_(wanted.size() < kLongest ? wanted.size() : kLongest) {
    // A start that ends at the first byte of four is three bits further after all four.
    for (uint64_t &bits : bits_) bits |= uint64_t{7} << start_;
    for (size_t i = 0; i < start_; ++i) {
      bits_[static_cast<unsigned char>(wanted[i])] |= uint64_t{1} << i;
    }
  }

  // Where the text occurs first. Returns null if it does not.
  const char *find(std::string_view text) const {
    size_t compared = 0;
    if (const char *found = findEnds(text, compared)) return found;
    text.remove_prefix(compared);
    return shiftAnd(text);
  }

 private:
  static constexpr size_t kLongest = 60;

  // Finds the text in the first `compared` places.
  const char *findEnds([[maybe_unused]] std::string_view text, size_t &compared) const {
    compared = 0;
#ifdef __SSE2__
    constexpr size_t vector = sizeof(__m128i);
    constexpr size_t bytes_for_miss = 64;
    const auto equal = [](const char *place, char byte) {
      return _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(place)),
                            _mm_set1_epi8(byte));
    };
    const size_t last = wanted_.size() - 1;
    size_t misses = 0;
    while (text.size() - compared >= vector + last && misses * bytes_for_miss <= compared + 1024) {
      const char *const place = text.data() + compared;
      const __m128i ends =
          _mm_and_si128(equal(place, wanted_.front()), equal(place + last, wanted_.back()));
      for (auto mask = static_cast<unsigned>(_mm_movemask_epi8(ends)); mask != 0;
           mask &= mask - 1) {
        const char *const found = place + __builtin_ctz(mask);
        if (std::memcmp(found, wanted_.data(), wanted_.size()) == 0) return found;
        ++misses;
      }
      compared += vector;
    }
#endif
    return nullptr;
  }

  const char *shiftAnd(std::string_view text) const {
    const uint64_t ends = (uint64_t{1} << (start_ - 1)) * 15;
    uint64_t state = 0;
    size_t i = 0;
    for (; i + 3 < text.size(); i += 4) {
      const uint64_t one = (bitsOf(text[i]) << 1 | 1) & bitsOf(text[i + 1]);
      const uint64_t two = (bitsOf(text[i + 2]) << 1 | 1) & bitsOf(text[i + 3]);
      state = (state << 4 | 15) & (one << 2 | 3) & two;
      if ((state & ends) == 0) continue;
      for (size_t later = 0; later < 4; ++later) {
        const bool ends_here = (state >> (start_ + 2 - later) & 1) != 0;
        if (ends_here && isRestAt(text, i + later + 1 - start_)) {
          return text.data() + i + later + 1 - start_;
        }
      }
    }
    for (; i < text.size(); ++i) {
      const bool fits = i + 1 >= wanted_.size();
      if (fits && isAt(text, i + 1 - wanted_.size())) return text.data() + i + 1 - wanted_.size();
    }
    return nullptr;
  }

  // Whether the text is here, if its start is.
  bool isRestAt(std::string_view text, size_t place) const {
    text.remove_prefix(place);
    if (text.size() < wanted_.size()) return false;
    if (start_ == wanted_.size()) return true;
    // The start is longer than what is compared here, and the rest is shorter.
    constexpr size_t rest = 16;
    const size_t end = wanted_.size() - rest;
    return std::memcmp(text.data() + end, wanted_.data() + end, rest) == 0;
  }

  uint64_t bitsOf(char byte) const { return bits_[static_cast<unsigned char>(byte)]; }
  bool isAt(std::string_view text, size_t place) const {
    text.remove_prefix(place);
    return beginsWith(text, wanted_);
  }

  std::string_view wanted_;
  size_t start_;
  uint64_t bits_[256] = {};
};

// Consumes what is before the first occurrence of a text, except the last two bytes, which tell
// whether a line begins there. Sets `before` to the offset of the text in the window. Returns false if
// the text does not occur.
bool consumePreamble(TarnForm &form, std::string_view wanted, size_t &before) {
  before = 0;
  if (ensure(form, wanted.size()) && beginsWith(form.source.window(), wanted)) return true;
  const Finder finder(wanted);
  const size_t overlap = wanted.size() + 1;
  do {
    const std::string_view window = form.source.window();
    if (const char *found = finder.find(window)) {
      before = static_cast<size_t>(found - window.data());
      return true;
    }
    if (window.size() > overlap) form.source.consume(window.size() - overlap);
  } while (form.more());
  return false;
}

}  // namespace

bool startMultipart(TarnForm &form) {
  const std::string_view wanted = dashBoundary(form);
  size_t before = 0;
  if (!consumePreamble(form, wanted, before)) {
    return form.raiseCutShort("cut short: the body has no delimiter");
  }
  const bool opens = before == 0 && form.source.position() == 0;
  const char *place = form.source.window().data() + before;
  const bool begins_line = before >= 2 && place[-2] == '\r' && place[-1] == '\n';
  form.source.consume(before);
  if (!opens && !begins_line) {
    return form.raise(TARN_FORM_MALFORMED, "the preamble contains the boundary inside a line");
  }
  form.part_offset = form.source.position();
  form.source.consume(wanted.size());
  return takeRestOfDelimiterLine(form);
}

TarnFormField *stepToPart(TarnForm &form) {
  const std::string_view wanted = dashBoundary(form);
  if (!form.countField()) return nullptr;
  TarnFormField *record = takePart(form, wanted);
  if (!record) return nullptr;
  // The empty line of the headers and the delimiter of an empty value may share a CR LF.
  ensure(form, wanted.size());
  form.empty_part = beginsWith(form.source.window(), wanted);
  form.at_delimiter = form.empty_part;
  form.searched = 0;
  return record;
}

bool nextRunOfPart(TarnForm &form, std::string_view &run) {
  const std::string_view delimiter = form.boundary.view();
  const size_t ahead = delimiter.size();
  for (;;) {
    const std::string_view window = form.source.window();
    const char *found = nullptr;
    if (!form.at_delimiter) {
      std::string_view rest = window;
      rest.remove_prefix(form.searched);
      found = search(form, rest);
      form.at_delimiter = found && found == window.data();
    }
    if (form.at_delimiter) {
      form.at_delimiter = false;
      form.source.consume(form.empty_part ? 0 : 2);
      form.part_offset = form.source.position();
      form.source.consume(delimiter.size() - 2);
      takeRestOfDelimiterLine(form);
      return false;
    }
    // Without a delimiter, the last bytes may be the beginning of one.
    const size_t safe = found                    ? static_cast<size_t>(found - window.data())
                        : window.size() >= ahead ? window.size() - (ahead - 1)
                                                 : 0;
    const size_t size = found ? safe : form.sizeToHandOut(safe);
    form.searched = safe - size;
    form.at_delimiter = found != nullptr;
    if (size > 0) {
      run = {window.data(), size};
      form.source.consume(size);
      return true;
    }
    if (!form.more()) return form.raiseCutShort("cut short: the body ends in a value");
  }
}

}  // namespace tarn::form
