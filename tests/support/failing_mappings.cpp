// The test programs' mmap() and syscall(), so that memory can run out where the library maps it, too,
// and other system calls can fail. The C library's malloc() has its own.
#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>

#include "support/failing_memory.h"

namespace tarn_test {

int (*errorOfCall)(long number) = nullptr;

}  // namespace tarn_test

namespace {

bool isMapping(long number) {
#ifdef SYS_mmap2
  if (number == SYS_mmap2) return true;
#endif
#ifdef SYS_mmap
  if (number == SYS_mmap) return true;
#endif
  return false;
}

int errorOf(long number, size_t size) {
  if (isMapping(number)) return tarn_test::grantsMemory(size) ? 0 : ENOMEM;
  return tarn_test::errorOfCall ? tarn_test::errorOfCall(number) : 0;
}

}  // namespace

extern "C" {

void *mmap(void *place, size_t size, int protection, int flags, int file, off_t offset) noexcept {
  using Map = void *(void *, size_t, int, int, int, off_t);
  static auto *const real = reinterpret_cast<Map *>(dlsym(RTLD_NEXT, "mmap"));
  if (tarn_test::grantsMemory(size)) return real(place, size, protection, flags, file, offset);
  errno = ENOMEM;
  return MAP_FAILED;
}

long syscall(long number, ...) noexcept {
  using Call = long(long, ...);
  static auto *const real = reinterpret_cast<Call *>(dlsym(RTLD_NEXT, "syscall"));
  constexpr int kMost = 6;
  long given[kMost];
  va_list arguments;
  va_start(arguments, number);
  for (long &argument : given) argument = va_arg(arguments, long);
  va_end(arguments);
  if (const int error = errorOf(number, static_cast<size_t>(given[1]))) {
    errno = error;
    return -1;
  }
  return real(number, given[0], given[1], given[2], given[3], given[4], given[5]);
}
}
