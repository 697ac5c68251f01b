// The service's memory for requests, which does not come from malloc(). The linker replaces the
// function that allocates it.
#include <cstddef>

#include "support/failing_memory.h"

void *realResize(void *block, size_t old, size_t size) __asm__("__real_" TARN_RESIZE_PRIVATE);
void *countedResize(void *block, size_t old, size_t size) __asm__("__wrap_" TARN_RESIZE_PRIVATE);

void *countedResize(void *block, size_t old, size_t size) {
  return tarn_test::grantsMemory(size) ? realResize(block, old, size) : nullptr;
}
