// The byte buffer: a run of bytes that stays allocated to the end of the process.
#ifndef TARN_CORE_CGIFB_H
#define TARN_CORE_CGIFB_H

#include "core/cgigs.h"

namespace tarn::internal {

struct Bytes {
  char *data;  // null if there are none
  uint32_t count;
};

// A buffer that takes over a block of `count` bytes and a zero byte, without copying it; empty if
// `count` is 0 or the block is null. Null if the node cannot be allocated.
Node *newByteBuffer(OwnedBytes block, uint32_t count);

// Fills a buffer with a copy; TARN_WRONG_TYPE if the buffer is null.
TarnStatus fillByteBuffer(Node *buffer, const void *data, uint32_t length);

Bytes bytesOf(const Node &buffer);

}  // namespace tarn::internal

#endif
