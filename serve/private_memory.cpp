#include "serve/private_memory.h"

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <new>

#include "core/memory.h"

#ifdef TARN_LEAK_SANITIZER
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(block, size) static_cast<void>(0)
#define ASAN_UNPOISON_MEMORY_REGION(block, size) static_cast<void>(0)
#endif

namespace tarn::server {
namespace {

// The sanitizer reports whoever writes behind a block, if something is left there.
#ifdef TARN_LEAK_SANITIZER
constexpr size_t kRedZone = 16;
// Between these is every mapping.
char *lowest = nullptr;
char *highest = nullptr;
#else
constexpr size_t kRedZone = 0;
#endif

constexpr size_t kSmallest = 64;
constexpr size_t kLargest = size_t{32} * 1024;  // of the blocks in chunks
constexpr size_t kChunk = size_t{256} * 1024;
constexpr size_t kGranule = size_t{64} * 1024;  // of mappings: a multiple of every page size
constexpr auto kClasses = static_cast<size_t>(std::bit_width(kLargest / kSmallest));

struct FreeBlock {
  FreeBlock *next;
};

// In the first chunk, so that a request changes no page that a child shares.
struct Chunks {
  FreeBlock *free[kClasses] = {};
  char *unused = nullptr;  // the rest of the newest chunk
  size_t unused_size = 0;
};

Chunks *chunks = nullptr;

bool isLarge(size_t size) { return size > kLargest - kRedZone; }

size_t mappingSize(size_t size) { return (size + kRedZone + kGranule - 1) / kGranule * kGranule; }

// Blocks of a class have kSmallest << class bytes.
size_t classOf(size_t size) {
  const size_t whole = std::max(size + kRedZone, kSmallest);
  return static_cast<size_t>(std::bit_width((whole - 1) / kSmallest));
}

void *map(size_t size) {
  void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  ASAN_UNPOISON_MEMORY_REGION(memory, size);  // what the sanitizer knows of an older mapping
#ifdef TARN_LEAK_SANITIZER
  auto *const begin = static_cast<char *>(memory);
  if (!lowest || begin < lowest) lowest = begin;
  highest = std::max(highest, begin + size);
#endif
  if (madvise(memory, size, MADV_DONTFORK) == 0) return memory;
  munmap(memory, size);
  return nullptr;
}

// What is left of the last chunk is too small for the block that is needed, so it is lost.
bool addChunk() {
  void *memory = map(kChunk);
  if (!memory) return false;
  auto *place = static_cast<char *>(memory);
  size_t used = 0;
  if (!chunks) {
    chunks = new (memory) Chunks;
    used = std::bit_ceil(sizeof(Chunks));
  }
  chunks->unused = place + used;
  chunks->unused_size = kChunk - used;
  return true;
}

void *takeBlock(size_t size) {
  const size_t kind = classOf(size);
  const size_t whole = kSmallest << kind;
  void *block = nullptr;
  if (chunks && chunks->free[kind]) {
    block = chunks->free[kind];
    ASAN_UNPOISON_MEMORY_REGION(block, sizeof(FreeBlock));
    chunks->free[kind] = chunks->free[kind]->next;
  } else {
    if ((!chunks || chunks->unused_size < whole) && !addChunk()) return nullptr;
    block = chunks->unused;
    chunks->unused += whole;
    chunks->unused_size -= whole;
  }
  ASAN_POISON_MEMORY_REGION(block, whole);
  ASAN_UNPOISON_MEMORY_REGION(block, size);
  return block;
}

void *mapBlock(size_t size) {
  if (size > PTRDIFF_MAX - kRedZone - kGranule) return nullptr;
  void *block = map(mappingSize(size));
  if (block) ASAN_POISON_MEMORY_REGION(static_cast<char *>(block) + size, mappingSize(size) - size);
  return block;
}

}  // namespace

size_t PrivateMemory::roundUp(size_t size) {
  if (kRedZone > 0 || size > PTRDIFF_MAX - kGranule) return size;
  return isLarge(size) ? mappingSize(size) : kSmallest << classOf(size);
}

void *PrivateMemory::resize(void *block, size_t old, size_t size) {
  if (kRedZone == 0 && block && isLarge(old) && isLarge(size)) {
    void *moved = mremap(block, mappingSize(old), mappingSize(size), MREMAP_MAYMOVE);
    return moved == MAP_FAILED ? nullptr : moved;
  }
  void *made = isLarge(size) ? mapBlock(size) : takeBlock(size);
  if (!made || !block) return made;
  std::memcpy(made, block, std::min(old, size));
  release(block, old);
  return made;
}

void PrivateMemory::release(void *block, size_t size) {
  if (!block) return;
  if (isLarge(size)) {
    ASAN_UNPOISON_MEMORY_REGION(block, mappingSize(size));
    munmap(block, mappingSize(size));
    return;
  }
  const size_t kind = classOf(size);
  ASAN_UNPOISON_MEMORY_REGION(block, kSmallest << kind);
  chunks->free[kind] = new (block) FreeBlock{chunks->free[kind]};
  ASAN_POISON_MEMORY_REGION(block, kSmallest << kind);
}

void PrivateMemory::forget() {
  chunks = nullptr;
#ifdef TARN_LEAK_SANITIZER
  ASAN_UNPOISON_MEMORY_REGION(lowest, static_cast<size_t>(highest - lowest));
#endif
}

}  // namespace tarn::server
