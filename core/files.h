// Files that the libraries write. In a header, because each library has to be complete alone.
#ifndef TARN_CORE_FILES_H
#define TARN_CORE_FILES_H

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace tarn {

// Writes all bytes. Returns 0 or an errno value.
inline int writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return errno;
    if (written > 0) bytes.remove_prefix(static_cast<size_t>(written));
  }
  return 0;
}

// A temporary file without a name, in TMPDIR or /tmp. Where the file system cannot do that, the file
// has a name that begins with `prefix` for a moment. Returns its descriptor; -1 with errno set.
inline int openUnnamed(const char *prefix) {
  const char *folder = std::getenv("TMPDIR");
  if (!folder || *folder == '\0') folder = "/tmp";
  const int made = open(folder, O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (made >= 0 || (errno != EOPNOTSUPP && errno != EISDIR)) return made;
  char path[PATH_MAX];
  const int size = std::snprintf(path, sizeof path, "%s/.%s-XXXXXX", folder, prefix);
  if (size < 0 || static_cast<size_t>(size) >= sizeof path) {
    errno = ENAMETOOLONG;
    return -1;
  }
  const int named = mkostemp(path, O_CLOEXEC);
  if (named >= 0) unlink(path);
  return named;
}

}  // namespace tarn

#endif
