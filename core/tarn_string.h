#ifndef TARN_CORE_TARN_STRING_H
#define TARN_CORE_TARN_STRING_H

#include "core/handle.h"

namespace tarn::internal {

struct Node;

// The order of the first three fields is part of the interface.
struct String {
  uint32_t magic;
  // What scripts see; 0 after a clear, which keeps the buffer.
  int32_t capacity;
  // Null after a failed growth; the text is then empty.
  char *buffer;
  // How much of the buffer may be written to; the last byte of it is always zero, and so is every
  // byte behind it.
  size_t room;
  // The size of the buffer.
  size_t block;
  // Null, except for a string that CGIgs_new() made, which is a node too (cgigs.h).
  Node *node;
};

// Deletes the string, and its node if it has one.
void deleteString(String *string);

inline String *stringAt(TarnHandle value) {
  return magicAt(value) == TARN_STRING_MAGIC ? blockAt<String>(value) : nullptr;
}

inline String *stringIn(const TarnHandle *handle) { return stringAt(objectIn(handle)); }

}  // namespace tarn::internal

#endif
