#ifndef TARN_CORE_TARN_STRING_H
#define TARN_CORE_TARN_STRING_H

#include "core/handle.h"

namespace tarn::internal {

struct Node;

// Scripts read the first three fields by their order.
struct String {
  uint32_t magic;
  // What the string says its buffer holds; 0 after a clear, which keeps the buffer.
  int32_t capacity;
  // Null after a growth that failed, and then an empty text.
  char *buffer;
  // What the buffer really holds; its last byte is always zero.
  size_t room;
  // Null, but for a string that CGIgs_new() made, which is a node too (core/cgigs.h).
  Node *node;
};

// Releases the string, and the node that it is a part of.
void deleteString(String *string);

inline String *stringAt(TarnHandle value) {
  return magicAt(value) == TARN_STRING_MAGIC ? blockAt<String>(value) : nullptr;
}

inline String *stringIn(const TarnHandle *handle) { return stringAt(objectIn(handle)); }

}  // namespace tarn::internal

#endif
