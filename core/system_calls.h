// The system calls that large bodies take. They go through syscall(): at the start of every script,
// the loader binds each function of the C library that libtarn.so calls, and these would be nine more.
// Wherever the arguments of a call differ between processors, or are not known to be these, the C
// library's function is called.
#ifndef TARN_CORE_SYSTEM_CALLS_H
#define TARN_CORE_SYSTEM_CALLS_H

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string_view>

namespace tarn::internal {

// A readable and writable mapping, or MAP_FAILED. The offset is a multiple of 4 KiB. On s390x, the
// arguments of this call are in memory.
inline void *mapPages(void *place, size_t size, int flags, int file, off_t offset) {
  constexpr long kAccess = PROT_READ | PROT_WRITE;
#if defined(__i386__)
  return reinterpret_cast<void *>(syscall(SYS_mmap2, place, size, kAccess, long{flags}, long{file},
                                          static_cast<long>(offset / 4096)));
#elif defined(__LP64__) && (defined(__x86_64__) || defined(__aarch64__))
  return reinterpret_cast<void *>(
      syscall(SYS_mmap, place, size, kAccess, long{flags}, long{file}, long{offset}));
#else
  return mmap(place, size, kAccess, flags, file, offset);
#endif
}

inline void unmapPages(void *start, size_t size) { syscall(SYS_munmap, start, size); }

inline bool advise(void *start, size_t size, int advice) {
  return syscall(SYS_madvise, start, size, advice) == 0;
}

// Where the next byte is read, or -1. Also -1 if a `long` of 32 bits cannot hold that.
inline off_t positionOf(int file) {
#if defined(SYS_lseek)
  return static_cast<off_t>(syscall(SYS_lseek, file, 0L, SEEK_CUR));
#else
  return lseek(file, 0, SEEK_CUR);
#endif
}

// The size of a regular file without a name; -1 for any other, and for one whose kind is unknown. What
// statx() fills in is the same on all processors, unlike what fstat() does. musl does not declare it.
inline int64_t sizeOfUnnamedFile(int file) {
  struct {
    uint32_t known;
    uint32_t block_size;
    uint64_t attributes;
    uint32_t names;
    uint32_t user;
    uint32_t group;
    uint16_t mode;
    uint16_t unused;
    uint64_t inode;
    uint64_t size;
    uint64_t others[26];
  } found;
  static_assert(sizeof found == 256);
  constexpr uint32_t kTypeNamesAndSize = 0x1 | 0x4 | 0x200;
  if (syscall(SYS_statx, long{file}, "", long{AT_EMPTY_PATH}, kTypeNamesAndSize, &found) != 0 ||
      (found.known & kTypeNamesAndSize) != kTypeNamesAndSize || !S_ISREG(found.mode) ||
      found.names != 0 || found.size > INT64_MAX) {
    return -1;
  }
  return static_cast<int64_t>(found.size);
}

// Whether the process may write that many bytes to a file.
inline bool mayWrite(uint64_t size) {
  struct {
    uint64_t current;
    uint64_t most;
  } limit;
  return syscall(SYS_prlimit64, 0, RLIMIT_FSIZE, nullptr, &limit) == 0 && limit.current >= size;
}

// A file in memory, or -1.
inline int createMemoryFile(const char *name) {
  return static_cast<int>(syscall(SYS_memfd_create, name, MFD_CLOEXEC));
}

inline void closeFile(int file) { syscall(SYS_close, file); }

// Writes all bytes; false if that fails.
inline bool writeToFile(int file, std::string_view bytes) {
  while (!bytes.empty()) {
    const long written = syscall(SYS_write, file, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) bytes.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

}  // namespace tarn::internal

#endif
