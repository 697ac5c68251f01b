#include "core/tarn_string.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "core/memory.h"

namespace tarn {
namespace {

constexpr int32_t kFirstCapacity = 16;
constexpr int32_t kSlack = 16;

const char *textOf(const String &string) { return string.buffer ? string.buffer : ""; }

size_t lengthOf(const String &string) { return std::strlen(textOf(string)); }

// A block for a capacity. It has one byte more, for the zero byte of a text that fills it.
OwnedText newBuffer(int64_t capacity) {
  return capacity <= INT32_MAX ? newZeroedText(static_cast<uint64_t>(capacity)) : nullptr;
}

void install(String &string, OwnedText buffer, int64_t capacity) {
  std::free(std::exchange(string.buffer, buffer.release()));
  string.capacity = static_cast<int32_t>(capacity);
  string.room = static_cast<size_t>(capacity) + 1;
}

// Without memory a string loses its buffer and reads as empty until the next one can be made.
void loseBuffer(String &string) {
  std::free(take(string.buffer));
  string.room = 0;
}

// Gives the string a buffer of this capacity that holds its text.
bool grow(String &string, int64_t capacity) {
  OwnedText buffer = newBuffer(capacity);
  if (!buffer) return false;
  std::memcpy(buffer.get(), textOf(string), lengthOf(string));
  install(string, std::move(buffer), capacity);
  return true;
}

bool isInside(const String &string, const char *text) {
  const auto place = reinterpret_cast<uintptr_t>(text);
  const auto start = reinterpret_cast<uintptr_t>(string.buffer);
  return string.buffer && place >= start && place < start + string.room;
}

// Copies up to the source's zero byte and fills up with zero bytes: a source that is shorter than
// claimed cuts the text there.
void copyPadded(char *to, const char *from, size_t count) {
  const size_t length = strnlen(from, count);
  std::memcpy(to, from, length);
  std::memset(to + length, 0, count - length);
}

// Opens a gap in the text and fills it. Beyond the text there is nothing to move, and what would
// fall outside the block is not written.
void place(String &string, const char *source, size_t count, size_t position) {
  const size_t length = lengthOf(string);
  if (position <= length) {
    char *gap = string.buffer + position;
    std::memmove(gap + count, gap, length - position + 1);
  }
  if (position < string.room) {
    copyPadded(string.buffer + position, source, std::min(count, string.room - position));
  }
}

TarnStatus insert(String &string, const char *source, size_t count, size_t position) {
  // Copied before anything moves: the source may be the string's own text.
  OwnedText own;
  if (isInside(string, source)) {
    own = newText(count);
    if (!own) return TARN_OUT_OF_MEMORY;
    copyPadded(own.get(), source, count);
    source = own.get();
  }
  const auto need = static_cast<int64_t>(lengthOf(string) + count + 1);
  const bool tooSmall = need > string.capacity;
  if ((tooSmall || !string.buffer) && !grow(string, tooSmall ? need + kSlack : string.capacity)) {
    loseBuffer(string);
    return TARN_OUT_OF_MEMORY;
  }
  place(string, source, count, position);
  return TARN_OK;
}

TarnStatus set(String &string, const char *text) {
  const size_t length = std::strlen(text);
  const auto wanted = static_cast<int64_t>(length);
  const bool tooSmall = wanted > string.capacity;
  if (tooSmall || !string.buffer) {
    const int64_t capacity = tooSmall ? wanted + kSlack : string.capacity;
    OwnedText buffer = newBuffer(capacity);
    if (!buffer) {
      loseBuffer(string);
      return TARN_OK;
    }
    std::memcpy(buffer.get(), text, length + 1);
    install(string, std::move(buffer), capacity);
  } else {
    std::memmove(string.buffer, text, length + 1);
  }
  return TARN_OK;
}

String *newString(TarnStatus &status) {
  status = TARN_OUT_OF_MEMORY;
  auto *string = static_cast<String *>(std::calloc(1, sizeof(String)));
  if (!string) return nullptr;
  string->magic = TARN_STRING_MAGIC;
  if (grow(*string, kFirstCapacity)) status = TARN_OK;
  return string;
}

}  // namespace

void deleteString(String *string) {
  std::free(string->buffer);
  std::free(string);
}

}  // namespace tarn

using namespace tarn;

TarnStatus TARNString_new(TarnHandle *handle) {
  if (!handle || *handle) return TARN_BAD_ARGUMENT;
  TarnStatus status;
  *handle = handleOf(newString(status));
  return status;
}

TarnStatus TARNString_delete(TarnHandle *handle) {
  String *string = stringIn(handle);
  if (!string) return TARN_WRONG_TYPE;
  *handle = 0;
  deleteString(string);
  return TARN_OK;
}

uint32_t TARNString_IsA(TarnHandle *handle) { return stringIn(handle) ? 1 : 0; }

TarnStatus TARNString_dup(TarnHandle *source, TarnHandle *target) {
  const String *string = stringIn(source);
  if (!string) return TARN_WRONG_TYPE;
  if (!target || *target) return TARN_BAD_ARGUMENT;
  auto *copy = static_cast<String *>(std::calloc(1, sizeof(String)));
  if (!copy) return TARN_OUT_OF_MEMORY;
  copy->magic = TARN_STRING_MAGIC;
  // The whole buffer, not the text alone.
  OwnedText buffer = newBuffer(string->capacity);
  if (buffer) {
    const size_t held = std::min(static_cast<size_t>(string->capacity), string->room);
    if (held > 0) std::memcpy(buffer.get(), string->buffer, held);
    install(*copy, std::move(buffer), string->capacity);
  }
  copy->capacity = string->capacity;
  *target = handleOf(copy);
  return TARN_OK;
}

TarnStatus TARNString_set(TarnHandle *handle, const char *text) {
  String *string = stringIn(handle);
  if (!string) return TARN_WRONG_TYPE;
  return text ? set(*string, text) : TARN_BAD_ARGUMENT;
}

TarnStatus TARNString_set_string(TarnHandle *handle, TarnHandle *source) {
  String *string = stringIn(handle);
  if (!string) return TARN_WRONG_TYPE;
  const String *given = stringIn(source);
  return given ? set(*string, textOf(*given)) : TARN_BAD_ARGUMENT;
}

uint32_t TARNString_length(TarnHandle *handle) {
  const String *string = stringIn(handle);
  return string ? static_cast<uint32_t>(lengthOf(*string)) : 0;
}

// The buffer stays, but counts for nothing: the next write makes a new one.
TarnStatus TARNString_clear(TarnHandle *handle) {
  String *string = stringIn(handle);
  if (!string) return TARN_WRONG_TYPE;
  if (string->buffer) *string->buffer = '\0';
  string->capacity = 0;
  return TARN_OK;
}

const char *TARNString_c_str(TarnHandle *handle) {
  const String *string = stringIn(handle);
  return string ? string->buffer : "";
}

TarnStatus TARNString_append(TarnHandle *handle, const char *text) {
  return TARNString_appendn(handle, text, 0, 0);
}

TarnStatus TARNString_appendn(TarnHandle *handle, const char *text, uint32_t offset,
                              uint32_t count) {
  // The text is tested before the type: without one, any object gives 1.
  if (!objectIn(handle)) return TARN_WRONG_TYPE;
  if (!text) return TARN_BAD_ARGUMENT;
  return TARNString_insertn(handle, text, offset, count, TARNString_length(handle));
}

// What is no string appends nothing, and that succeeds.
TarnStatus TARNString_append_string(TarnHandle *handle, TarnHandle *source) {
  const char *text = TARNString_c_str(source);
  return text ? TARNString_append(handle, text) : TARN_BAD_ARGUMENT;
}

TarnStatus TARNString_append_sprintf(TarnHandle *handle, const char *format, ...) {
  if (!format) return TARN_BAD_ARGUMENT;
  va_list args;
  va_start(args, format);
  char *text = nullptr;
  tarn_vasprintf(&text, format, args);
  va_end(args);
  const TarnStatus status = TARNString_append(handle, text);
  std::free(text);
  return status;
}

TarnStatus TARNString_insert(TarnHandle *handle, const char *text, uint32_t position) {
  return TARNString_insertn(handle, text, 0, 0, position);
}

TarnStatus TARNString_insertn(TarnHandle *handle, const char *text, uint32_t offset, uint32_t count,
                              uint32_t position) {
  String *string = stringIn(handle);
  if (!string) return TARN_WRONG_TYPE;
  if (!text) return TARN_BAD_ARGUMENT;
  // A count of 0 is the length of the whole text, also from an offset on: the end is filled up.
  return insert(*string, text + offset, count > 0 ? count : std::strlen(text), position);
}

TarnStatus TARNString_insert_sprintf(TarnHandle *handle, uint32_t position, const char *format,
                                     ...) {
  if (!format) return TARN_BAD_ARGUMENT;
  va_list args;
  va_start(args, format);
  char *text = nullptr;
  tarn_vasprintf(&text, format, args);
  va_end(args);
  const TarnStatus status = TARNString_insert(handle, text, position);
  std::free(text);
  return status;
}

TarnStatus TARNString_remove(TarnHandle *handle, uint32_t position, uint32_t count) {
  String *string = stringIn(handle);
  if (!string) return TARN_WRONG_TYPE;
  const size_t length = lengthOf(*string);
  if (position < length) {
    const bool toTheEnd = count == 0 || count > length - position;
    const size_t removed = toTheEnd ? length - position : count;
    char *hole = string->buffer + position;
    std::memmove(hole, hole + removed, length - position - removed + 1);
  } else if (position < string->room) {
    string->buffer[position] = '\0';
  }
  return TARN_OK;
}

TarnStatus TARNString_substr(TarnHandle *handle, int32_t start, uint32_t count,
                             TarnHandle *result) {
  const String *string = stringIn(handle);
  if (!string) return TARN_WRONG_TYPE;
  TarnStatus status;
  String *made = newString(status);
  if (status == TARN_OK && (!result || *result)) status = TARN_BAD_ARGUMENT;
  if (status != TARN_OK) {
    if (made) deleteString(made);
    return status;
  }
  // A negative start is a large one, beyond every text.
  const size_t length = lengthOf(*string);
  const size_t from = static_cast<uint32_t>(start);
  if (from < length) {
    const bool toTheEnd = count == 0 || count > length - from;
    const OwnedText cut = copyBytes(textOf(*string) + from, toTheEnd ? length - from : count);
    if (cut) set(*made, cut.get());
  }
  *result = handleOf(made);
  return TARN_OK;
}

int32_t TARNString_compare(TarnHandle *handle, const char *text) {
  const String *string = stringIn(handle);
  if (!string) return -1;
  return text ? std::strcmp(textOf(*string), text) : 1;
}

int32_t TARNString_compare_string(TarnHandle *handle, TarnHandle *other) {
  const String *right = stringIn(other);
  return right ? TARNString_compare(handle, textOf(*right)) : -1;
}

TarnStatus TARNString_print(TarnHandle *handle) { return TARNString_fprint(handle, stdout); }

TarnStatus TARNString_fprint(TarnHandle *handle, FILE *stream) {
  const String *string = stringIn(handle);
  if (!string) return TARN_WRONG_TYPE;
  if (!stream) return TARN_BAD_ARGUMENT;
  if (!string->buffer) return TARN_OUT_OF_MEMORY;
  std::fprintf(stream, "%s", string->buffer);
  return TARN_OK;
}

TarnStatus TARNString_printline(TarnHandle *handle) {
  return TARNString_fprintline(handle, stdout);
}

TarnStatus TARNString_fprintline(TarnHandle *handle, FILE *stream) {
  const TarnStatus status = TARNString_fprint(handle, stream);
  if (status == TARN_OK) std::fprintf(stream, "\n");
  return status;
}

TarnStatus TARNString_reserve(TarnHandle *handle, uint32_t requested) {
  String *string = stringIn(handle);
  if (!string) return TARN_WRONG_TYPE;
  const size_t length = lengthOf(*string);
  const uint32_t free = static_cast<uint32_t>(string->capacity) - static_cast<uint32_t>(length);
  // To the byte, without slack. Without memory the string stays as it is.
  if (free < requested) grow(*string, static_cast<int64_t>(length) + requested);
  return TARN_OK;
}
