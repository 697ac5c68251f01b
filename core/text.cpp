#include "core/text.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/cgifb.h"

namespace tarn::internal {
namespace {

constexpr std::string_view kBlanks = " \t\n\r";
constexpr std::string_view kShellSeparators = ";|<>";

// Eight bytes at once.
constexpr size_t kWord = sizeof(uint64_t);
constexpr uint64_t kLowestBits = 0x0101010101010101;
constexpr uint64_t kPercents = kLowestBits * '%';
constexpr uint64_t kPluses = kLowestBits * '+';

uint64_t wordAt(const char *place) {
  uint64_t word;
  std::memcpy(&word, place, kWord);
  return word;
}

// The highest bit of each byte that is zero, and no other bit.
constexpr uint64_t zeroBytes(uint64_t word) {
  constexpr uint64_t kLowerBits = kLowestBits * 0x7f;
  return ~(((word & kLowerBits) + kLowerBits) | word | kLowerBits);
}

// How many bytes in memory are before the first with a bit.
size_t bytesBefore(uint64_t bits) {
  const int before =
      std::endian::native == std::endian::big ? std::countl_zero(bits) : std::countr_zero(bits);
  return static_cast<size_t>(before) / 8;
}

bool isOneOf(char character, std::string_view set) {
  return std::memchr(set.data(), character, set.size()) != nullptr;
}

// Every byte has a value by the same arithmetic, modulo 256. Kept: quirk 32.
constexpr std::array<uint8_t, 256> kDigitValues = [] {
  std::array<uint8_t, 256> values{};
  for (int byte = 0; byte < 256; ++byte) {
    values[static_cast<size_t>(byte)] =
        static_cast<uint8_t>(byte > 64 ? (byte & ~0x20) - 55 : byte - 48);
  }
  return values;
}();

int digitValue(char character) { return kDigitValues[static_cast<uint8_t>(character)]; }

char decode(char high, char low) {
  return static_cast<char>(digitValue(high) * 16 + digitValue(low));
}

}  // namespace

char *environmentVariable(const char *name) {
  [[gnu::section(".data")]] static char empty[] = "";  // as in core/cgifb.cpp
  char *value = name ? std::getenv(name) : nullptr;
  return value ? value : empty;
}

int compareTexts(const char *a, const char *b) {
  if (a && b) return strncasecmp(a, b, PTRDIFF_MAX);
  return (a ? 1 : 0) - (b ? 1 : 0);
}

int orderTexts(const char *a, const char *b) {
  return a && b ? std::strcmp(a, b) : compareTexts(a, b);
}

char *unescapeTo(char *place, std::string_view text) {
  const char *in = text.data();
  const char *const end = in + text.size();
  char *out = place;
  while (in < end) {
    const auto left = static_cast<size_t>(end - in);
    if (*in == '%') {
      // Kept: quirk 33.
      *out++ = decode(left > 1 ? in[1] : '\0', left > 2 ? in[2] : '\0');
      in += std::min<size_t>(left, 3);
    } else if (left < kWord) {
      *out++ = *in == '+' ? ' ' : *in;
      ++in;
    } else {
      // Copies eight bytes, and skips those before a "%" or "+". The buffer has room for all eight, since
      // a decoded text is not longer.
      const uint64_t word = wordAt(in);
      std::memcpy(out, &word, kWord);
      const size_t plain = bytesBefore(zeroBytes(word ^ kPercents) | zeroBytes(word ^ kPluses));
      in += plain;
      out += plain;
      if (plain < kWord && *in == '+') {
        *out++ = ' ';
        ++in;
      }
    }
  }
  *out = '\0';
  return out + 1;
}

OwnedText unescape(std::string_view text) {
  OwnedText decoded = newText(text.size());
  if (decoded) unescapeTo(decoded.get(), text);
  return decoded;
}

std::string_view trim(std::string_view text) {
  while (!text.empty() && isOneOf(text.front(), kBlanks)) text.remove_prefix(1);
  while (!text.empty() && isOneOf(text.back(), kBlanks)) text.remove_suffix(1);
  return text;
}

// Scans for the needle's last byte, which is usually rare in the haystack: a line end, a quotation
// mark. After too many false hits close together, it hands over to memmem().
const char *find(std::string_view haystack, std::string_view needle) {
  constexpr size_t kPatience = 2048;
  constexpr size_t kCostOfMiss = 64;
  const char *start = haystack.data();
  const char *const end = start + haystack.size();
  const size_t before = needle.empty() ? 0 : needle.size() - 1;
  if (haystack.size() < needle.size()) return nullptr;
  for (size_t cost = 0; !needle.empty(); ++start, cost += kCostOfMiss + before) {
    if (cost > kPatience + static_cast<size_t>(start - haystack.data())) break;
    const auto left = static_cast<size_t>(end - start);
    if (left <= before) return nullptr;
    const void *last = std::memchr(start + before, needle.back(), left - before);
    if (!last) return nullptr;
    start = static_cast<const char *>(last) - before;
    if (std::memcmp(start, needle.data(), before) == 0) return start;
  }
  return static_cast<const char *>(
      memmem(start, static_cast<size_t>(end - start), needle.data(), needle.size()));
}

std::string_view upToZeroByte(std::string_view bytes) {
  return {bytes.data(), textLength(bytes.data(), bytes.size())};
}

int32_t toNumber(const char *text) {
  const long long value = std::strtoll(text, nullptr, 10);
  return static_cast<int32_t>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}

}  // namespace tarn::internal

using namespace tarn::internal;

// vsnprintf() without _FORTIFY_SOURCE, which would end the process at a "%n" in a format that was
// built in memory. Scripts may use every conversion of printf().
extern "C" int formatText(char *out, size_t size, const char *format,
                          va_list args) __asm__("vsnprintf");

int tarn_vasprintf(char **out, const char *format, va_list args) {
  if (out) *out = nullptr;
  if (!format) return 0;
  va_list measured;
  va_copy(measured, args);
  const int length = formatText(nullptr, 0, format, measured);
  va_end(measured);
  if (length < 0) return 0;
  OwnedText text = newText(static_cast<uint32_t>(length));
  // The C library allocates memory to print a very long number, so this can fail although measuring
  // did not.
  if (!text || formatText(text.get(), static_cast<size_t>(length) + 1, format, args) != length) {
    return 0;
  }
  if (out) *out = text.release();
  return length;
}

int tarn_asprintf(char **out, const char *format, ...) {
  va_list args;
  va_start(args, format);
  const int length = tarn_vasprintf(out, format, args);
  va_end(args);
  return length;
}

char *safeGetenv(const char *name) { return environmentVariable(name); }

int stringsAreEqual(const char *a, const char *b) { return compareTexts(a, b); }

int nStringsAreEqual(const char *a, const char *b, uint32_t n) {
  return a && b ? strncasecmp(a, b, n) : compareTexts(a, b);
}

char *unescapeString(const char *text) { return text ? unescape(viewOf(text)).release() : nullptr; }

unsigned char hexToChar(char high, char low) {
  return static_cast<unsigned char>(decode(high, low));
}

// Escapes these four characters and nothing else. Kept: quirk 36.
int saferSystem(const char *command) {
  if (!command) return -1;
  const std::string_view text = viewOf(command);
  const auto separators =
      std::count_if(text.begin(), text.end(), [](char c) { return isOneOf(c, kShellSeparators); });
  OwnedText escaped = newText(text.size() + static_cast<size_t>(separators));
  if (char *out = escaped.get()) {
    for (const char c : text) {
      if (isOneOf(c, kShellSeparators)) *out++ = '\\';
      *out++ = c;
    }
  }
  return std::system(escaped.get());
}

void *memfind(const void *haystack, uint32_t haystackLength, const void *needle,
              uint32_t needleLength) {
  if (!haystack || !needle) return nullptr;
  return const_cast<char *>(find({static_cast<const char *>(haystack), haystackLength},
                                 {static_cast<const char *>(needle), needleLength}));
}

TarnHandle extractBetween(const void *data, uint32_t length, const char *open, const char *close) {
  Node *buffer = newNode(TARN_BYTE_BUFFER_MAGIC);
  if (!data || !open || !close) return handleOf(buffer);
  const std::string_view all(static_cast<const char *>(data), length);
  const std::string_view mark = viewOf(open);
  const char *found = find(all, mark);
  if (!found) return handleOf(buffer);
  const char *start = found + mark.size();
  // The search length is measured from the start of the data, so it reaches past the end unless
  // `open` is at the start. Without `close`, the byte after the data is included. Kept: quirk 37.
  const char *end = find({start, length - mark.size()}, viewOf(close));
  if (!end) end = all.data() + length + 1;
  fillByteBuffer(buffer, start, static_cast<uint32_t>(end - start));
  return handleOf(buffer);
}

TarnHandle extractBetween1(const void *data, uint32_t length, const char *delimiter) {
  return extractBetween(data, length, delimiter, delimiter);
}

char *stripString(const char *text) {
  return text ? copyText(trim(viewOf(text))).release() : nullptr;
}

char *readString(FILE *stream) {
  if (!stream) return nullptr;
  const long count = std::max(readLong(stream), 0L);
  OwnedText text = newZeroedText(static_cast<uint64_t>(count));
  if (!text) return nullptr;
  // If nothing can be read, the text is empty.
  [[maybe_unused]] const char *line =
      std::fgets(text.get(), static_cast<int>(std::min<long>(count, INT_MAX)), stream);
  return text.release();
}

void writeString(FILE *stream, const char *text) {
  if (stream && text) std::fprintf(stream, " %s ", text);
}

long readLong(FILE *stream) {
  long value = 0;
  if (!stream || std::fscanf(stream, " %ld ", &value) != 1) return 0;
  return value;
}

void writeLong(FILE *stream, long value) {
  if (stream) std::fprintf(stream, " %ld ", value);
}
