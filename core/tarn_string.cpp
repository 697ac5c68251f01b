#include "core/tarn_string.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "core/cgigs.h"
#include "core/memory.h"

namespace tarn::internal {
namespace {

constexpr int32_t kFirstCapacity = 16;
constexpr int32_t kSlack = 16;

const char *textOf(const String &string) { return string.buffer ? string.buffer : ""; }

size_t lengthOf(const String &string) { return textLength(textOf(string)); }

// A buffer for a capacity, with one more byte for the zero byte of a text that fills it.
OwnedText newBuffer(int64_t capacity) {
  return capacity <= INT32_MAX ? newZeroedText(static_cast<uint64_t>(capacity)) : nullptr;
}

void setCapacity(String &string, int64_t capacity) {
  string.capacity = static_cast<int32_t>(capacity);
  string.room = static_cast<size_t>(capacity) + 1;
}

void replaceBuffer(String &string, OwnedText buffer, int64_t capacity) {
  std::free(std::exchange(string.buffer, buffer.release()));
  setCapacity(string, capacity);
  string.block = string.room;
}

// After a failed growth a string has no buffer and reads as empty until it gets one.
void dropBuffer(String &string) {
  std::free(take(string.buffer));
  string.room = string.block = 0;
}

// The capacity after storing a text of this size. Kept: quirk 64.
int64_t capacityFor(const String &string, int64_t size) {
  return size > string.capacity ? size + kSlack : string.capacity;
}

bool fits(const String &string, int64_t size) { return string.buffer && size <= string.capacity; }

// Copies up to the source's zero byte and pads with zero bytes, so a source shorter than `count` ends
// the text. Kept: quirk 62.
void copyPadded(char *to, const char *from, size_t count) {
  const size_t given = textLength(from, count);
  copyMemory(to, from, given);
  std::memset(to + given, 0, count - given);
}

// Writes behind the end of the text, where scripts do not see it, and never outside the block. The
// last byte of the block stays zero. Kept: quirk 63.
void writeBeyond(char *buffer, size_t room, const char *source, size_t count, size_t position) {
  const size_t end = room - 1;
  if (position < end) copyPadded(buffer + position, source, std::min(count, end - position));
}

// TARNString_clear() promises a new buffer for the next text. Kept: quirk 64.
bool isCleared(const String &string) { return string.capacity == 0; }

// A buffer twice as large as the last one, if there is memory, so that many small insertions seldom
// copy the text. Scripts see the capacity alone. A text from the string's own block moves to a new one
// even if the last one was large enough; that one is as large as the last.
OwnedText newRoomyBuffer(const String &string, int64_t capacity, size_t &block) {
  block = static_cast<size_t>(capacity) + 1;
  const size_t wanted = string.block < block ? 2 * string.block : string.block;
  const size_t ahead = isCleared(string) ? 0 : std::min(wanted, size_t{1} << 31U);
  if (capacity <= INT32_MAX && ahead > block) {
    if (OwnedText made = newZeroedText(ahead - 1)) {
      block = ahead;
      return made;
    }
  }
  return newBuffer(capacity);
}

// The old buffer is freed last, since the source may be inside it.
bool insertIntoNewBuffer(String &string, size_t length, int64_t capacity, const char *source,
                         size_t count, size_t position) {
  size_t block;
  OwnedText made = newRoomyBuffer(string, capacity, block);
  if (!made) return false;
  char *buffer = made.get();
  const char *text = textOf(string);
  const size_t head = std::min(position, length);
  copyMemory(buffer, text, head);
  if (position <= length) {
    copyPadded(buffer + head, source, count);
    copyMemory(buffer + head + count, text + head, length - head);
  } else {
    writeBeyond(buffer, static_cast<size_t>(capacity) + 1, source, count, position);
  }
  replaceBuffer(string, std::move(made), capacity);
  string.block = block;
  return true;
}

size_t offsetIn(const String &string, const char *source) {
  return reinterpret_cast<uintptr_t>(source) - reinterpret_cast<uintptr_t>(string.buffer);
}

// Grows inside the block, if that leaves what a new buffer would: the text, and zero bytes behind it.
// A source that is part of the block must be read before those are written.
bool growInPlace(String &string, size_t length, int64_t capacity, const char *source) {
  if (!string.buffer || isCleared(string) || capacity >= INT32_MAX ||
      static_cast<size_t>(capacity) >= string.block || offsetIn(string, source) < string.block) {
    return false;
  }
  std::memset(string.buffer + length, 0, string.room - length);
  setCapacity(string, capacity);
  return true;
}

// If the source is part of the string's own text, its bytes behind the gap have moved with the tail.
void insertInPlace(String &string, size_t length, const char *source, size_t count,
                   size_t position) {
  if (position > length) return writeBeyond(string.buffer, string.room, source, count, position);
  const size_t offset = offsetIn(string, source);
  const bool own = offset <= length;
  const size_t given = textLength(source, count);
  const size_t unmoved = own && offset < position ? std::min(given, position - offset) : 0;
  char *gap = string.buffer + position;
  copyMemory(gap + count, gap, length - position + 1);
  if (own) {
    copyMemory(gap, source, unmoved);
    copyMemory(gap + unmoved, source + unmoved + count, given - unmoved);
    std::memset(gap + given, 0, count - given);
  } else {
    copyPadded(gap, source, count);
  }
}

// `length` is that of the string's text, which may be long: it is measured once for each call.
TarnStatus insert(String &string, size_t length, const char *source, size_t count,
                  size_t position) {
  const int64_t need = static_cast<int64_t>(length) + static_cast<int64_t>(count) + 1;
  const int64_t capacity = capacityFor(string, need);
  if (fits(string, need) || growInPlace(string, length, capacity, source)) {
    insertInPlace(string, length, source, count, position);
  } else if (!insertIntoNewBuffer(string, length, capacity, source, count, position)) {
    dropBuffer(string);
    return TARN_OUT_OF_MEMORY;
  }
  return TARN_OK;
}

// A count of 0 is the length of the whole text, despite the offset. Kept: quirk 61.
size_t countOf(const char *text, uint32_t count) { return count > 0 ? count : textLength(text); }

// Does not report a failed allocation; the string is then empty. Kept: quirk 65.
TarnStatus set(String &string, const char *text) {
  const size_t length = textLength(text);
  const auto size = static_cast<int64_t>(length);
  if (fits(string, size)) {
    copyMemory(string.buffer, text, length + 1);
    return TARN_OK;
  }
  const int64_t capacity = capacityFor(string, size);
  OwnedText made = newBuffer(capacity);
  if (made) {
    copyMemory(made.get(), text, length + 1);
    replaceBuffer(string, std::move(made), capacity);
  } else {
    dropBuffer(string);
  }
  return TARN_OK;
}

String *newRecord() {
  auto *string = static_cast<String *>(std::calloc(1, sizeof(String)));
  if (string) string->magic = TARN_STRING_MAGIC;
  return string;
}

String *newString(TarnStatus &status) {
  String *string = newRecord();
  if (string) {
    if (OwnedText buffer = newBuffer(kFirstCapacity)) {
      replaceBuffer(*string, std::move(buffer), kFirstCapacity);
    }
  }
  status = string && string->buffer ? TARN_OK : TARN_OUT_OF_MEMORY;
  return string;
}

}  // namespace

void deleteString(String *string) {
  if (string->node) return destroyNode(string->node);
  std::free(string->buffer);
  std::free(string);
}

}  // namespace tarn::internal

using namespace tarn::internal;

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
  String *copy = newRecord();
  if (!copy) return TARN_OUT_OF_MEMORY;
  // The whole buffer, not the text alone.
  OwnedText buffer = newBuffer(string->capacity);
  if (buffer) {
    const size_t held = std::min(static_cast<size_t>(string->capacity), string->room);
    if (held > 0) copyMemory(buffer.get(), string->buffer, held);
    replaceBuffer(*copy, std::move(buffer), string->capacity);
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

// The buffer stays, but the next text that is not empty gets a new one. Kept: quirk 64.
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
  // A null text is reported before a wrong type. Kept: quirk 56.
  if (!objectIn(handle)) return TARN_WRONG_TYPE;
  if (!text) return TARN_BAD_ARGUMENT;
  String *string = stringIn(handle);
  if (!string) return TARN_WRONG_TYPE;
  const size_t length = lengthOf(*string);
  return insert(*string, length, text + offset, countOf(text, count), length);
}

// A source that is not a string appends nothing and succeeds. Kept: quirk 66.
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
  return insert(*string, lengthOf(*string), text + offset, countOf(text, count), position);
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
    copyMemory(hole, hole + removed, length - position - removed + 1);
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
  const size_t length = lengthOf(*string);
  // A negative start becomes a large number, beyond every text. Kept: quirk 63.
  const size_t first = static_cast<uint32_t>(start);
  if (first < length) {
    const bool toTheEnd = count == 0 || count > length - first;
    const OwnedText cut = copyBytes(textOf(*string) + first, toTheEnd ? length - first : count);
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
  if (free >= requested) return TARN_OK;
  // Exactly what is needed, without slack; a failed allocation is not reported. Kept: quirks 64
  // and 65.
  const int64_t capacity = static_cast<int64_t>(length) + requested;
  if (OwnedText buffer = newBuffer(capacity)) {
    copyMemory(buffer.get(), textOf(*string), length);
    replaceBuffer(*string, std::move(buffer), capacity);
  }
  return TARN_OK;
}
