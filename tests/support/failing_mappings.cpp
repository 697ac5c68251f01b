// The test programs' mmap(), so that memory can run out where the library maps it, too. The C
// library's malloc() has its own.
#include <dlfcn.h>
#include <sys/mman.h>

#include <cerrno>

#include "support/failing_memory.h"

extern "C" {

void *mmap(void *place, size_t size, int protection, int flags, int file, off_t offset) noexcept {
  using Map = void *(void *, size_t, int, int, int, off_t);
  static auto *const real = reinterpret_cast<Map *>(dlsym(RTLD_NEXT, "mmap"));
  if (tarn_test::grantsMemory(size)) return real(place, size, protection, flags, file, offset);
  errno = ENOMEM;
  return MAP_FAILED;
}
}
