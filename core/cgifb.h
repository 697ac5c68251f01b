// The byte buffer: a run of bytes that stays to the end of the process.
#ifndef TARN_CORE_CGIFB_H
#define TARN_CORE_CGIFB_H

#include "core/cgigs.h"

namespace tarn::internal {

struct Bytes {
  char *data;  // null when there are none
  uint32_t count;
};

// A buffer of the `count` bytes of a block made by newText(), which are not copied; empty when
// `count` is 0 or there is no block. Null without memory for the node.
Node *newByteBuffer(OwnedText block, uint32_t count);

// Fills a buffer with a copy; a null buffer is one of the wrong type.
TarnStatus fillByteBuffer(Node *buffer, const void *data, uint32_t length);

Bytes bytesOf(const Node &buffer);

}  // namespace tarn::internal

#endif
