// How blocks are owned, handed over, released and, where scripts rely on it, left alone.
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

namespace tarn::internal {

struct Free {
  void operator()(void *block) const { std::free(block); }
};

// A text or a run of bytes on its way from where it was made to the slot that keeps it.
using OwnedText = std::unique_ptr<char, Free>;

// Empties a slot and gives what it held, so that nothing names a block that is about to go.
template <class T>
T take(T &slot) {
  return std::exchange(slot, T{});
}

// Leaves a block allocated to the end of the process. Every call says why beside it; a block that
// is lost any other way is a leak, and the leak sanitizer reports it. The empty instruction keeps
// the compiler from dropping an allocation that nothing else uses.
inline void abandon(const void *block) {
  __asm__ volatile("" : : "r"(block) : "memory");
#ifdef TARN_LEAK_SANITIZER
  if (block) __lsan_ignore_object(block);
#endif
}

// Room for `length` bytes and a final zero byte, which is set; the rest is not.
inline OwnedText newText(uint64_t length) {
  if (length >= PTRDIFF_MAX) return nullptr;
  OwnedText block(static_cast<char *>(std::malloc(static_cast<size_t>(length) + 1)));
  if (block) block.get()[length] = '\0';
  return block;
}

// The same, with every byte zero. A large one costs memory only where it is written to.
inline OwnedText newZeroedText(uint64_t length) {
  if (length >= PTRDIFF_MAX) return nullptr;
  return OwnedText(static_cast<char *>(std::calloc(1, static_cast<size_t>(length) + 1)));
}

// A copy of some bytes with a zero byte after it. Null copies to null.
inline OwnedText copyBytes(const void *bytes, uint64_t length) {
  if (!bytes) return nullptr;
  OwnedText copy = newText(length);
  if (copy && length > 0) std::memcpy(copy.get(), bytes, static_cast<size_t>(length));
  return copy;
}

inline OwnedText copyText(std::string_view text) { return copyBytes(text.data(), text.size()); }

inline OwnedText copyText(const char *text) {
  return text ? copyBytes(text, std::strlen(text)) : nullptr;
}

}  // namespace tarn::internal

#endif
