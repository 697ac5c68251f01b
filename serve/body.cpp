#include "serve/body.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "core/files.h"

namespace tarn::server {
namespace {

// What one call copies. The rest of a large body does not fit into a size_t on 32-bit machines.
constexpr uint64_t kMostCopied = uint64_t{1} << 30;

// A descriptor from which a file on a disk can only be read; the file's own one without /proc.
int reopened(int file) {
  char path[32];
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", file);
  const int reading = open(path, O_RDONLY | O_CLOEXEC);
  if (reading < 0) return file;
  close(file);
  return reading;
}

}  // namespace

int Body::moveToDisk() {
  const int file = openUnnamed("tarn-serve");
  if (file < 0) return errno;
  off_t offset = 0;
  while (static_cast<uint64_t>(offset) < size_) {
    const uint64_t left = size_ - static_cast<uint64_t>(offset);
    const ssize_t count =
        sendfile(file, file_, &offset, static_cast<size_t>(std::min(left, kMostCopied)));
    if (count > 0 || (count < 0 && errno == EINTR)) continue;
    const int error = count < 0 ? errno : EIO;
    close(file);
    return error;
  }
  if (file_ >= 0) close(file_);
  file_ = file;
  on_disk_ = true;
  return 0;
}

int Body::append(std::string_view bytes, uint64_t most_in_memory, uint64_t expected) {
  if (!on_disk_ && std::max(size_ + bytes.size(), expected) > most_in_memory) {
    if (const int error = moveToDisk()) return error;
  }
  if (file_ < 0) {
    file_ = memfd_create("tarn-body", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (file_ < 0) return errno;
  }
  if (const int error = writeAll(file_, bytes)) return error;
  size_ += bytes.size();
  return 0;
}

// Standard input cannot be written to. Sealing a file in memory costs less than opening it again.
int Body::take() {
  const int file = file_;
  if (lseek(file, 0, SEEK_SET) < 0) return -1;
  file_ = -1;
  if (on_disk_) return reopened(file);
  fcntl(file, F_ADD_SEALS, F_SEAL_FUTURE_WRITE | F_SEAL_GROW | F_SEAL_SHRINK);
  return file;
}

void Body::clear() {
  if (file_ >= 0) close(file_);
  file_ = -1;
  on_disk_ = false;
  size_ = 0;
}

}  // namespace tarn::server
