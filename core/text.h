// Text utilities in the form in which the library itself uses them: on text that may stand inside
// a longer one, so that nothing has to be cut out to be looked at.
#ifndef TARN_CORE_TEXT_H
#define TARN_CORE_TEXT_H

#include <cstring>
#include <string_view>

#include "core/memory.h"

namespace tarn::internal {

// An environment variable, or an empty text.
char *environmentVariable(const char *name);

// strcasecmp(), with a null text before any other; two nulls are equal.
int compareTexts(const char *a, const char *b);

// strcmp(), with the same exceptions.
int orderTexts(const char *a, const char *b);

// Decodes "+" and "%XX". What lies past the end of the text counts as zero bytes.
OwnedText unescape(std::string_view text);

// The same into a place with room for the text and a final zero byte. Gives the place after that.
char *unescapeTo(char *place, std::string_view text);

// Puts a text and a final zero byte into a place. Gives the place after that.
inline char *copyTo(char *place, std::string_view text) {
  if (!text.empty()) std::memcpy(place, text.data(), text.size());
  place[text.size()] = '\0';
  return place + text.size() + 1;
}

// The text without the white space around it.
std::string_view trim(std::string_view text);

// The first occurrence of `needle`, or null. The time grows with the haystack, whatever it holds.
const char *find(std::string_view haystack, std::string_view needle);

// What stands before, or from, a place inside the text. (Views are cut by pointers: substr() would
// want the C++ runtime.)
inline std::string_view textUpTo(std::string_view text, const char *place) {
  return {text.data(), static_cast<size_t>(place - text.data())};
}

inline std::string_view textFrom(std::string_view text, const char *place) {
  return {place, static_cast<size_t>(text.data() + text.size() - place)};
}

// Divides a text at the first separator. Without one, all of it stands before and the result is
// false.
inline bool splitAtFirst(std::string_view text, char separator, std::string_view &before,
                         std::string_view &after) {
  const void *found = text.empty() ? nullptr : std::memchr(text.data(), separator, text.size());
  const char *place = found ? static_cast<const char *>(found) : text.data() + text.size();
  before = textUpTo(text, place);
  after = textFrom(text, found ? place + 1 : place);
  return found != nullptr;
}

// The bytes before the first zero byte.
std::string_view upToZeroByte(std::string_view bytes);
inline bool hasNoZeroByte(std::string_view bytes) {
  return upToZeroByte(bytes).size() == bytes.size();
}

// A decimal number as atol() reads it where a long has 32 bits: text beyond that stops at the
// limit.
int32_t toNumber(const char *text);

}  // namespace tarn::internal

#endif
