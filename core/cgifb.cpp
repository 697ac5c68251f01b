#include "core/cgifb.h"

#include <atomic>

namespace tarn::internal {
namespace {

// Leaves a block allocated to the end of the process. These pointers to the last blocks tell leak
// checkers of scripts, even those that know nothing of this library, that none is lost. Their memory
// is used as it is written to.
void keepToTheEnd(const void *block) {
  constexpr size_t kMost = 4096;
  static std::atomic<const void *> kept[kMost];
  static std::atomic<size_t> count;
  kept[count.fetch_add(1, std::memory_order_relaxed) % kMost].store(block,
                                                                    std::memory_order_relaxed);
}

// The bytes are shared by copies of the node and never freed. Kept: quirk 31.
void storeBytes(Node &buffer, OwnedText block, uint32_t count) {
  keepToTheEnd(block.get());
  buffer.fixed = handleOf(block.release());
  buffer.ints[TARN_BYTE_BUFFER_LENGTH] = count;
}

}  // namespace

Node *newByteBuffer(OwnedText block, uint32_t count) {
  Node *buffer = newNode(TARN_BYTE_BUFFER_MAGIC);
  if (buffer && block && count > 0) storeBytes(*buffer, std::move(block), count);
  return buffer;
}

TarnStatus fillByteBuffer(Node *buffer, const void *data, uint32_t length) {
  if (!buffer) return TARN_WRONG_TYPE;
  if (!data || length == 0) return TARN_BAD_ARGUMENT;
  OwnedText copy = copyBytes(data, length);
  emptyNode(*buffer);
  if (!copy) return TARN_OUT_OF_MEMORY;
  storeBytes(*buffer, std::move(copy), length);
  return TARN_OK;
}

Bytes bytesOf(const Node &buffer) {
  return {blockAt<char>(buffer.fixed), buffer.ints[TARN_BYTE_BUFFER_LENGTH]};
}

}  // namespace tarn::internal

using namespace tarn::internal;

TarnStatus CGIfb_setData(TarnHandle *buffer, const void *data, uint32_t length) {
  return fillByteBuffer(nodeIn(buffer, TARN_BYTE_BUFFER_MAGIC), data, length);
}
