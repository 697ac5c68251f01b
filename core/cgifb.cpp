#include "core/cgifb.h"

#include <atomic>

namespace tarn::internal {
namespace {

// Leaves a block allocated to the end of the process. These pointers to the first blocks, which are
// more than most requests need, tell the leak checkers of scripts that none is lost. They fit into the
// last page of the library's data, so that loading it takes no more system calls. They are in the file,
// since the loader would have to clear them, which copies the page.
void keepToTheEnd(const void *block) {
  constexpr size_t kMost = 256;
  [[gnu::section(".data")]] static std::atomic<const void *> kept[kMost];
  [[gnu::section(".data")]] static std::atomic<size_t> count;
  const size_t index = count.fetch_add(1, std::memory_order_relaxed);
  if (index < kMost) return kept[index].store(block, std::memory_order_relaxed);
  abandon(block);
}

// The bytes are shared by copies of the node and never freed. Kept: quirk 31.
void storeBytes(Node &buffer, OwnedBytes block, uint32_t count) {
  keepToTheEnd(block.get());
  Slots &slots = buffer.slots();
  slots.fixed = handleOf(block.release());
  slots.ints[TARN_BYTE_BUFFER_LENGTH] = count;
}

}  // namespace

Node *newByteBuffer(OwnedBytes block, uint32_t count) {
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
  return {blockAt<char>(buffer.fixed()), buffer.number(TARN_BYTE_BUFFER_LENGTH)};
}

}  // namespace tarn::internal

using namespace tarn::internal;

TarnStatus CGIfb_setData(TarnHandle *buffer, const void *data, uint32_t length) {
  return fillByteBuffer(nodeIn(buffer, TARN_BYTE_BUFFER_MAGIC), data, length);
}
