// Text utilities for the library itself. They work on views, so a piece of a longer text does not
// have to be copied first.
#ifndef TARN_CORE_TEXT_H
#define TARN_CORE_TEXT_H

#include <cstring>
#include <string_view>

#include "core/memory.h"

namespace tarn::internal {

// The value of an environment variable; an empty text if it is unset.
char *environmentVariable(const char *name);

// strcasecmp() that accepts null: null sorts before any text, and two nulls are equal.
int compareTexts(const char *a, const char *b);

// strcmp(), with the same rule for null.
int orderTexts(const char *a, const char *b);

// Decodes "+" and "%XX". Digits missing at the end count as zero bytes.
OwnedText unescape(std::string_view text);

// The same into a buffer with room for the text and a final zero byte. Returns the end: the address
// after the zero byte.
char *unescapeTo(char *place, std::string_view text);

// Copies a text and a final zero byte into a buffer. Returns the address after the zero byte.
inline char *copyTo(char *place, std::string_view text) {
  if (!text.empty()) copyMemory(place, text.data(), text.size());
  place[text.size()] = '\0';
  return place + text.size() + 1;
}

// The text without leading and trailing white space.
std::string_view trim(std::string_view text);

// The first occurrence of `needle`, or null. Takes linear time, whatever the haystack contains.
const char *find(std::string_view haystack, std::string_view needle);

// The part of a text before a position, and the part from it on. (substr() would need the C++
// runtime.)
inline std::string_view textUpTo(std::string_view text, const char *place) {
  return {text.data(), static_cast<size_t>(place - text.data())};
}

inline std::string_view textFrom(std::string_view text, const char *place) {
  return {place, static_cast<size_t>(text.data() + text.size() - place)};
}

// Splits a text at the first separator. Without one, returns false, with all of the text in `before`
// and an empty `after`.
inline bool splitAtFirst(std::string_view text, char separator, std::string_view &before,
                         std::string_view &after) {
  const void *found = text.empty() ? nullptr : std::memchr(text.data(), separator, text.size());
  const char *place = found ? static_cast<const char *>(found) : text.data() + text.size();
  before = textUpTo(text, place);
  after = textFrom(text, found ? place + 1 : place);
  return found != nullptr;
}

// The bytes before the first zero byte; all of them if there is none.
std::string_view upToZeroByte(std::string_view bytes);
inline bool hasNoZeroByte(std::string_view bytes) {
  return upToZeroByte(bytes).size() == bytes.size();
}

// A decimal number, read up to the first byte that is not a digit and clamped to 32 bits.
// Kept: quirk 25.
int32_t toNumber(const char *text);

}  // namespace tarn::internal

#endif
