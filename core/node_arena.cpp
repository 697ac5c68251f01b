#include "core/node_arena.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>

#include "core/system_calls.h"

// Older headers lack it.
#ifndef MADV_POPULATE_WRITE
#define MADV_POPULATE_WRITE 23
#endif

namespace tarn::internal {
namespace {

// Like blocks from malloc() with 64 bits, nodes begin at multiples of this many bytes.
constexpr uint32_t kAlignment = 16;

// A form of fewer nodes takes no shared blocks, so that it allocates no more than it needs.
constexpr uint32_t kAlone = 64;

// More nodes than a block can have.
constexpr uint32_t kAnyNumber = UINT32_MAX;

// Blocks double up to a size for which the C library's malloc() does not yet call mmap().
constexpr uint32_t kSmallestBlock = 8 * 1024;
constexpr uint32_t kLargestBlock = 120 * 1024;

// On processors with larger pages, they are found when they are first used.
constexpr uintptr_t kPage = 4096;

constexpr uint32_t unitsFor(size_t size, uint32_t alignment) {
  return static_cast<uint32_t>((size + alignment - 1) / alignment) * (alignment / NodeArena::kUnit);
}

// Has the kernel find and clear all whole pages in the first part of a block at once. That is faster
// than a page fault for each, and not necessary.
void populate(void *block, size_t size) {
  const auto start = reinterpret_cast<uintptr_t>(block);
  const uintptr_t first = (start + kPage - 1) / kPage * kPage;
  const uintptr_t end = (start + size) / kPage * kPage;
  if (first < end) advise(reinterpret_cast<void *>(first), end - first, MADV_POPULATE_WRITE);
}

}  // namespace

struct NodeArena::Block {
  // The nodes in the block. While the arena uses it, there are kAnyNumber, from which it takes those
  // that it did not put there. Atomic, since threads may delete different nodes at the same time.
  std::atomic<uint32_t> users;

  void leave(uint32_t count) {
    if (users.fetch_sub(count, std::memory_order_acq_rel) == count) std::free(this);
  }
};

NodeArena::~NodeArena() { leaveBlock(); }

void NodeArena::leaveBlock() {
  if (block_) block_->leave(kAnyNumber - nodes_in_block_);
}

bool NodeArena::addBlock() {
  const uint32_t size = std::clamp(size_ * kUnit * 2, kSmallestBlock, kLargestBlock);
  auto *block = static_cast<Block *>(std::malloc(size));
  if (!block) return false;
  const int error = errno;
  // As many pages as nodes took in the block before, for its size.
  if (size == kLargestBlock) populate(block, size_t{size} * used_ / size_);
  errno = error;
  leaveBlock();
  block->users.store(kAnyNumber, std::memory_order_relaxed);
  block_ = block;
  nodes_in_block_ = 0;
  used_ = unitsFor(sizeof(Block), kAlignment);
  end_ = size_ = size / kUnit;
  return true;
}

NodeArena::Place NodeArena::allocate(size_t size, size_t later) {
  if (nodes_ < kAlone) {
    ++nodes_;
    return {};
  }
  const uint32_t units = unitsFor(size, kAlignment);
  const uint32_t unitsLater = unitsFor(later, kUnit);
  if (units + unitsLater > end_ - used_ && !addBlock()) return {};
  Place place;
  place.node = reinterpret_cast<char *>(block_) + size_t{used_} * kUnit;
  place.offset = used_;
  used_ += units;
  end_ -= unitsLater;
  place.distance = end_ - place.offset;
  ++nodes_in_block_;
  return place;
}

void NodeArena::release(void *node, uint32_t offset) {
  reinterpret_cast<Block *>(static_cast<char *>(node) - size_t{offset} * kUnit)->leave(1);
}

}  // namespace tarn::internal
