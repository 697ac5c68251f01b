// The test programs' malloc(), through which the library allocates too.
#include <cstdlib>

#include "support/handles.h"

namespace {

bool limited = false;
size_t left = 0;

[[maybe_unused]] bool grants(size_t size) {
  if (!limited) return true;
  if (size > left) return false;
  left -= size;
  return true;
}

}  // namespace

namespace tarn_test {

void withoutMemory(const std::function<void()> &action, size_t spare) {
  left = spare;
  limited = true;
  action();
  limited = false;
}

}  // namespace tarn_test

#ifdef TARN_TESTS_SANITIZED

// Blocks beyond this are refused, as they would be where memory is short, and do not end the test.
extern "C" const char *__asan_default_options();
const char *__asan_default_options() {
  return "allocator_may_return_null=1:max_allocation_size_mb=1536";
}

#else

extern "C" {

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);

void *malloc(size_t size) { return grants(size) ? __libc_malloc(size) : nullptr; }

void *calloc(size_t count, size_t size) {
  size_t all = 0;
  if (__builtin_mul_overflow(count, size, &all)) return nullptr;
  return grants(all) ? __libc_calloc(count, size) : nullptr;
}

void *realloc(void *block, size_t size) {
  return grants(size) ? __libc_realloc(block, size) : nullptr;
}
}
#endif
