#include "form/saving.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// musl 1.2.3 has no function for this call.
#ifndef RENAME_NOREPLACE
#include <sys/syscall.h>
#define RENAME_NOREPLACE 1U
static int renameat2(int from, const char *old, int to, const char *name, unsigned flags) {
  return static_cast<int>(syscall(SYS_renameat2, from, old, to, name, flags));
}
#endif

namespace tarn::form {
namespace {

constexpr int kMostAttempts = 10000;

// The disk begins to write after each of these, so that keep() does not wait for all of the file.
constexpr uint64_t kStartedAtOnce = uint64_t{4} * 1024 * 1024;

bool isFileName(std::string_view name) {
  return !name.empty() && name.size() <= NAME_MAX && name != "." && name != ".." &&
         std::memchr(name.data(), '/', name.size()) == nullptr;
}

// open() would follow a link whose name ends in "/" or "/.".
int openFolder(const char *folder) {
  size_t size = std::strlen(folder);
  while (size > 1 &&
         (folder[size - 1] == '/' || (folder[size - 1] == '.' && folder[size - 2] == '/'))) {
    --size;
  }
  char path[PATH_MAX];
  if (size >= sizeof path) {
    errno = ENAMETOOLONG;
    return -1;
  }
  std::memcpy(path, folder, size);
  path[size] = '\0';
  return open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

// linkat() can name a file that has no name only through this path.
bool pathOfDescriptor(int descriptor, char (&path)[40]) {
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor);
  struct stat about;
  return lstat(path, &about) == 0;
}

bool isSameFile(const struct stat &a, const struct stat &b) {
  return a.st_ino == b.st_ino && a.st_dev == b.st_dev;
}

}  // namespace

void NewFile::close() {
  if (temporary_[0] != '\0') unlinkat(folder_, temporary_, 0);
  if (file_ >= 0) ::close(file_);
  if (folder_ >= 0) ::close(folder_);
  folder_ = file_ = -1;
  size_ = started_ = 0;
  temporary_[0] = '\0';
  unnamed_ = false;
}

int NewFile::open(const char *folder, const char *name) {
  if (!folder || !name || !isFileName(name)) return EINVAL;
  folder_ = openFolder(folder);
  if (folder_ < 0) return errno;
  if (faccessat(folder_, name, F_OK, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  file_ = openat(folder_, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
  // Not every file system can do that; old kernels take O_TMPFILE for O_DIRECTORY.
  if (file_ < 0) return errno == EOPNOTSUPP || errno == EISDIR ? openNamed() : errno;
  char path[40];
  if (pathOfDescriptor(file_, path)) return 0;
  ::close(file_);
  file_ = -1;
  return openNamed();
}

// A lock on the file lasts as long as the process that writes it, so a file without one was left by
// a process that died.
int NewFile::openNamed() {
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    char name[sizeof temporary_];
    std::snprintf(name, sizeof name, ".tarn-form-%d", attempt);
    const int made =
        openat(folder_, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (made < 0) {
      if (errno != EEXIST) return errno;
      if (removeStale(name)) --attempt;
      continue;
    }
    bool same = false;
    const int error = flock(made, LOCK_EX | LOCK_NB) == 0 ? isNameOf(name, made, same) : errno;
    // Before it was locked, another process may have taken it for a stale one.
    if (error == 0 && same) {
      std::memcpy(temporary_, name, sizeof name);
      file_ = made;
      return 0;
    }
    if (error != 0 && error != EWOULDBLOCK) unlinkat(folder_, name, 0);
    ::close(made);
    if (error != 0 && error != EWOULDBLOCK) return error;
  }
  return EEXIST;
}

// Whether a name in the folder is that of an open regular file. Returns 0 or an errno value.
int NewFile::isNameOf(const char *name, int file, bool &same) const {
  struct stat of_file;
  struct stat of_name;
  same = false;
  if (fstat(file, &of_file) != 0) return errno;
  if (fstatat(folder_, name, &of_name, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? 0 : errno;
  }
  same = S_ISREG(of_file.st_mode) && isSameFile(of_file, of_name);
  return 0;
}

bool NewFile::removeStale(const char *name) const {
  const int old = openat(folder_, name, O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (old < 0) return false;
  bool same = false;
  const bool stale = flock(old, LOCK_EX | LOCK_NB) == 0 && isNameOf(name, old, same) == 0 && same &&
                     unlinkat(folder_, name, 0) == 0;
  ::close(old);
  return stale;
}

int NewFile::write(std::string_view bytes) {
  if (const int error = writeAll(file_, bytes)) return error;
  size_ += bytes.size();
  if (durable_ && size_ - started_ >= kStartedAtOnce) {
    sync_file_range(file_, static_cast<off_t>(started_), static_cast<off_t>(size_ - started_),
                    SYNC_FILE_RANGE_WRITE);
    started_ = size_;
  }
  return 0;
}

int NewFile::publish(const char *name) {
  if (temporary_[0] == '\0') {
    char path[40];
    pathOfDescriptor(file_, path);
    return linkat(AT_FDCWD, path, folder_, name, AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
  }
  if (renameat2(folder_, temporary_, folder_, name, RENAME_NOREPLACE) != 0) {
    // Not every file system can do that.
    if (errno != EINVAL && errno != ENOSYS) return errno;
    if (linkat(folder_, temporary_, folder_, name, 0) != 0) return errno;
    unlinkat(folder_, temporary_, 0);
  }
  temporary_[0] = '\0';
  return 0;
}

// Some file systems, such as NFS, report only at close() that bytes could not be stored. The file is
// still needed to give it its name, so this closes a second descriptor of it.
int NewFile::checkWritten() const {
  const int second = fcntl(file_, F_DUPFD_CLOEXEC, 0);
  return second >= 0 && ::close(second) == 0 ? 0 : errno;
}

int NewFile::keep(const char *name) {
  if (!durable_) {
    if (const int error = checkWritten()) return error;
  } else if (fsync(file_) != 0) {
    return errno;
  }
  const int published = publish(name);
  unnamed_ = published == EEXIST;
  if (published != 0 || !durable_) return published;
  // EINVAL: on this file system there is nothing to sync in a folder.
  if (fsync(folder_) == 0 || errno == EINVAL) return 0;
  const int error = errno;
  unlinkat(folder_, name, 0);
  return error;
}

int NewFile::keepIn(const char *folder, const char *name) {
  if (!folder || !name || !isFileName(name)) return EINVAL;
  const int other = openFolder(folder);
  if (other < 0) return errno;
  struct stat of_other;
  struct stat of_folder;
  const bool same = fstat(other, &of_other) == 0 && fstat(folder_, &of_folder) == 0 &&
                    isSameFile(of_other, of_folder);
  ::close(other);
  return same ? keep(name) : EXDEV;
}

}  // namespace tarn::form
