// How blocks are owned, handed over, released and, in a few places, deliberately left allocated.
#ifndef TARN_CORE_MEMORY_H
#define TARN_CORE_MEMORY_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#if defined(__SANITIZE_ADDRESS__)
#define TARN_LEAK_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TARN_LEAK_SANITIZER
#endif
#endif
#ifdef TARN_LEAK_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

#include "core/system_calls.h"

namespace tarn::internal {

// The loader binds each function of the C library that libtarn.so calls, at the start of every script.
// So the library calls few of them, and leaves these to others.

// memmove(), also where memcpy() would do. By this name, the compiler does not replace it by memcpy().
extern "C" void *copyMemory(void *to, const void *from, size_t size) __asm__("memmove");

// strnlen().
inline size_t textLength(const char *text, size_t most) {
  const void *end = most > 0 ? std::memchr(text, '\0', most) : nullptr;
  return end ? static_cast<size_t>(static_cast<const char *>(end) - text) : most;
}

// strlen(). No text reaches beyond the end of the address space, and memchr() may not either.
inline size_t textLength(const char *text) {
  const uintptr_t most = UINTPTR_MAX - reinterpret_cast<uintptr_t>(text);
  return textLength(text, most < PTRDIFF_MAX ? most : PTRDIFF_MAX);
}

inline std::string_view viewOf(const char *text) { return {text, textLength(text)}; }

struct Free {
  void operator()(void *block) const { std::free(block); }
};

// A text or a run of bytes that no slot owns yet.
using OwnedText = std::unique_ptr<char, Free>;

// Frees a block, or removes the mapping that it is in.
struct Release {
  Release() = default;
  Release(Free) {}
  Release(void *start, size_t count) : mapping(start), size(count) {}

  void operator()(char *block) const {
    if (mapping) {
      unmapPages(mapping, size);
    } else {
      std::free(block);
    }
  }

  void *mapping = nullptr;  // null for a block from malloc()
  size_t size = 0;
};

// The same, but it may be a mapping: for bytes that nobody frees once they are stored.
using OwnedBytes = std::unique_ptr<char, Release>;

// Empties a slot and returns what it held, so that no slot refers to a block about to be freed.
template <class T>
T take(T &slot) {
  return std::exchange(slot, T{});
}

// Keeps the compiler from removing an allocation that nothing else uses, as clang does.
inline void keepAllocation(const void *block) { __asm__ volatile("" : : "r"(block) : "memory"); }

// Leaves a block allocated to the end of the process. A comment at every call says why; a block lost
// in any other way is a leak, and the leak sanitizer reports it.
inline void abandon(const void *block) {
  keepAllocation(block);
#ifdef TARN_LEAK_SANITIZER
  if (block) __lsan_ignore_object(block);
#endif
}

// A block for `length` bytes and a final zero byte. Only the zero byte is initialised.
inline OwnedText newText(uint64_t length) {
  if (length >= PTRDIFF_MAX) return nullptr;
  OwnedText block(static_cast<char *>(std::malloc(static_cast<size_t>(length) + 1)));
  if (block) block.get()[length] = '\0';
  return block;
}

// The same with every byte zero. The pages of a large block cost memory only once written to.
inline OwnedText newZeroedText(uint64_t length) {
  if (length >= PTRDIFF_MAX) return nullptr;
  return OwnedText(static_cast<char *>(std::calloc(1, static_cast<size_t>(length) + 1)));
}

// A copy of some bytes, with a zero byte after them; null for null.
inline OwnedText copyBytes(const void *bytes, uint64_t length) {
  if (!bytes) return nullptr;
  OwnedText copy = newText(length);
  if (copy && length > 0) copyMemory(copy.get(), bytes, static_cast<size_t>(length));
  return copy;
}

inline OwnedText copyText(std::string_view text) { return copyBytes(text.data(), text.size()); }

inline OwnedText copyText(const char *text) {
  return text ? copyBytes(text, textLength(text)) : nullptr;
}

}  // namespace tarn::internal

#endif
