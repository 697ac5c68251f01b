// The test programs have their own functions of these names, which the library calls.
#include "support/failing_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>

namespace tarn_test {

Calls calls;

bool Calls::fail(const char *name) {
  if (!watched) return false;
  ++count;
  if (count < first_failing || count > last_failing) return false;
  if (only && std::strcmp(name, only) != 0) return false;
  if (spared > 0) {
    --spared;
    return false;
  }
  if (most_failures == 0) return false;
  --most_failures;
  if (error == 0) raise(SIGKILL);
  failed = name;
  errno = error;
  return true;
}

}  // namespace tarn_test

using tarn_test::calls;
using tarn_test::Can;

// Names with 64 are those for files larger than 2 GiB.
#define TARN_WATCH(name, symbol, parameters, arguments)                                     \
  extern "C" int watched_##name parameters __asm__(symbol);                                 \
  extern "C" int watched_##name parameters {                                                \
    static const auto real = reinterpret_cast<int(*) parameters>(dlsym(RTLD_NEXT, symbol)); \
    return calls.fail(#name) ? -1 : real arguments;                                         \
  }

TARN_WATCH(faccessat, "faccessat", (int folder, const char *name, int mode, int flags),
           (folder, name, mode, flags))
TARN_WATCH(flock, "flock", (int file, int operation), (file, operation))
TARN_WATCH(fstat, "fstat64", (int file, void *about), (file, about))
TARN_WATCH(fstatat, "fstatat64", (int folder, const char *name, void *about, int flags),
           (folder, name, about, flags))
TARN_WATCH(fsync, "fsync", (int file), (file))
TARN_WATCH(ftruncate, "ftruncate64", (int file, off64_t size), (file, size))
TARN_WATCH(linkat, "linkat", (int from, const char *old, int to, const char *name, int flags),
           (from, old, to, name, flags))
TARN_WATCH(mkostemp, "mkostemp64", (char *path, int flags), (path, flags))
TARN_WATCH(sync_file_range, "sync_file_range",
           (int file, off64_t offset, off64_t size, unsigned flags), (file, offset, size, flags))
TARN_WATCH(unlink, "unlink", (const char *path), (path))
TARN_WATCH(unlinkat, "unlinkat", (int folder, const char *name, int flags), (folder, name, flags))

#undef TARN_WATCH

namespace {

template <class Function>
Function *nextNamed(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

// A descriptor is closed even when close() fails.
int closeAndFail(int file) {
  static auto *const real = nextNamed<int(int)>("close");
  const bool fails = calls.fail("close");
  const int result = real(file);
  if (fails) errno = calls.error;
  return fails ? -1 : result;
}

int openAt(int folder, const char *path, int flags, mode_t mode) {
  static auto *const real = nextNamed<int(int, const char *, int, ...)>("openat64");
  const bool can = calls.can == Can::kEverything || calls.can == Can::kNoProc;
  if (calls.watched && !can && (flags & O_TMPFILE) == O_TMPFILE) {
    errno = EOPNOTSUPP;
    return -1;
  }
  return calls.fail("open") ? -1 : real(folder, path, flags, mode);
}

}  // namespace

extern "C" int watched_close(int file) __asm__("close");
extern "C" int watched_close(int file) { return closeAndFail(file); }

extern "C" int watched_fcntl(int file, int command, ...) __asm__("fcntl64");
extern "C" int watched_fcntl(int file, int command, ...) {
  static auto *const real = nextNamed<int(int, int, ...)>("fcntl64");
  va_list arguments;
  va_start(arguments, command);
  const auto argument = va_arg(arguments, long);
  va_end(arguments);
  // Setting the flags of an open file cannot fail.
  if (command == F_DUPFD_CLOEXEC && calls.fail("fcntl")) return -1;
  return real(file, command, argument);
}

extern "C" int watched_lstat(const char *path, void *about) __asm__("lstat64");
extern "C" int watched_lstat(const char *path, void *about) {
  static auto *const real = nextNamed<int(const char *, void *)>("lstat64");
  if (calls.watched && calls.can == Can::kNoProc) {
    errno = ENOENT;
    return -1;
  }
  return calls.fail("lstat") ? -1 : real(path, about);
}

extern "C" int watched_renameat2(int from, const char *old, int to, const char *name,
                                 unsigned flags) __asm__("renameat2");
extern "C" int watched_renameat2(int from, const char *old, int to, const char *name,
                                 unsigned flags) {
  static auto *const real =
      nextNamed<int(int, const char *, int, const char *, unsigned)>("renameat2");
  if (calls.watched && calls.can == Can::kNoRename) {
    errno = EINVAL;
    return -1;
  }
  return calls.fail("renameat2") ? -1 : real(from, old, to, name, flags);
}

extern "C" int watched_open(const char *path, int flags, ...) __asm__("open64");
extern "C" int watched_open(const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return openAt(AT_FDCWD, path, flags, mode);
}

extern "C" int watched_openat(int folder, const char *path, int flags, ...) __asm__("openat64");
extern "C" int watched_openat(int folder, const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return openAt(folder, path, flags, mode);
}

extern "C" ssize_t watched_write(int file, const void *bytes, size_t size) __asm__("write");
extern "C" ssize_t watched_write(int file, const void *bytes, size_t size) {
  static auto *const real = nextNamed<ssize_t(int, const void *, size_t)>("write");
  if (calls.fail("write")) return -1;
  return real(file, bytes, calls.watched ? std::min(size, calls.most_written) : size);
}

extern "C" ssize_t watched_pwrite(int file, const void *bytes, size_t size,
                                  off64_t offset) __asm__("pwrite64");
extern "C" ssize_t watched_pwrite(int file, const void *bytes, size_t size, off64_t offset) {
  static auto *const real = nextNamed<ssize_t(int, const void *, size_t, off64_t)>("pwrite64");
  if (calls.fail("pwrite")) return -1;
  return real(file, bytes, calls.watched ? std::min(size, calls.most_written) : size, offset);
}

extern "C" ssize_t watched_pread(int file, void *bytes, size_t size,
                                 off64_t offset) __asm__("pread64");
extern "C" ssize_t watched_pread(int file, void *bytes, size_t size, off64_t offset) {
  static auto *const real = nextNamed<ssize_t(int, void *, size_t, off64_t)>("pread64");
  return calls.fail("pread") ? -1 : real(file, bytes, size, offset);
}

extern "C" void *watched_mmap(void *place, size_t size, int protection, int flags, int file,
                              off64_t offset) __asm__("mmap64");
extern "C" void *watched_mmap(void *place, size_t size, int protection, int flags, int file,
                              off64_t offset) {
  static auto *const real = nextNamed<void *(void *, size_t, int, int, int, off64_t)>("mmap64");
  // Allocations are no files.
  if (file >= 0 && calls.fail("mmap")) return MAP_FAILED;
  return real(place, size, protection, flags, file, offset);
}
