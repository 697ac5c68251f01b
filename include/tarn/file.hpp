/* Uploaded files. */
#ifndef TARN_FILE_HPP
#define TARN_FILE_HPP

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "field.hpp"
#include "request.hpp"

namespace tarn {
namespace detail {

// Closes a file descriptor at the end of its scope.
class Descriptor {
 public:
  explicit Descriptor(int number) noexcept : number_(number) {}
  ~Descriptor() { close(); }
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;

  int number() const noexcept { return number_; }
  bool close() noexcept {
    const int number = std::exchange(number_, -1);
    return number < 0 || ::close(number) == 0;
  }

 private:
  int number_;
};

// The following functions set errno when they fail.

inline bool write_all(int file, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// Fails if the new name is taken.
inline bool rename_without_replacing(int directory, const char *from, const char *to) noexcept {
#ifdef RENAME_NOREPLACE
  if (::renameat2(directory, from, directory, to, RENAME_NOREPLACE) == 0) return true;
  // Not every file system supports it.
  if (errno != EINVAL && errno != ENOSYS) return false;
#endif
  if (::linkat(directory, from, directory, to, 0) != 0) return false;
  ::unlinkat(directory, from, 0);
  return true;
}

// Creates a file under a new name, which safe_name() never returns. -1 if it fails.
inline int create_temporary(int directory, char (&name)[64]) noexcept {
  for (unsigned attempt = 0; attempt < 1000; ++attempt) {
    std::snprintf(name, sizeof name, ".tarn-%ld-%u", static_cast<long>(::getpid()), attempt);
    const int made =
        ::openat(directory, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (made >= 0 || errno != EEXIST) return made;
  }
  return -1;
}

// Removes a file after a failure, whose errno it keeps. @return false
inline bool remove_after_failure(int directory, const char *name) noexcept {
  const int error = errno;
  ::unlinkat(directory, name, 0);
  errno = error;
  return false;
}

inline bool save_at(int directory, const char *name, std::string_view bytes) noexcept {
  char temporary[64];
  Descriptor file(create_temporary(directory, temporary));
  if (file.number() < 0) return false;
  const bool stored = write_all(file.number(), bytes) && ::fsync(file.number()) == 0 &&
                      file.close() && rename_without_replacing(directory, temporary, name);
  if (!stored) return remove_after_failure(directory, temporary);
  // EINVAL: on this file system there is nothing to sync in a directory.
  return ::fsync(directory) == 0 || errno == EINVAL || remove_after_failure(directory, name);
}

}  // namespace detail

/** Reads one uploaded file: its bytes up to the first CR LF. The rest is dropped without an error,
 *  so a PNG image arrives as four bytes. The sender chose its name and type: do not trust them. */
class File : public detail::NodeView<TARN_FORM_FILE_MAGIC> {
 public:
  using NodeView::NodeView;

  /** The name of the form field.
   *
   *  @return a view, valid as long as the request; nothing when the part had no name or no type, and
   *          then there are no file name, no type and no bytes either
   */
  std::optional<std::string_view> field() const noexcept { return text_in(TARN_FILE_FIELD_NAME); }

  /** The file's name on the visitor's machine, decoded. It may contain "../", quotes and control
   *  bytes; safe_name() does not.
   *
   *  @return as field()
   */
  std::optional<std::string_view> name() const noexcept { return text_in(TARN_FILE_FILENAME); }

  /** The content type that the browser sent. @return as field() */
  std::optional<std::string_view> type() const noexcept { return text_in(TARN_FILE_CONTENT_TYPE); }

  /** The bytes as they were sent, zero bytes included, up to the first CR LF and no further.
   *
   *  @return a view, valid until the process ends; empty for an empty file
   */
  std::string_view bytes() const noexcept { return detail::bytes_of(child_in(TARN_FILE_BYTES)); }

  /** Makes a name from name() that is safe in any directory, as FileName::safe() does. */
  FileName safe_name() const noexcept {
    return FileName::safe(name().value_or(std::string_view()));
  }

  /** Saves the bytes(), which end at the first CR LF, under safe_name(). See the other save(). */
  [[nodiscard]] Saved save(std::string_view directory) const noexcept {
    return save_as(directory, safe_name());
  }

  /** Saves the bytes as a new file that only the script's user may read and write.
   *
   *  The bytes are written under a temporary name and renamed once they are on the disk; when this
   *  returns, the new name is on the disk too. It never overwrites a file and never follows a link.
   *  After a failure, no file is left.
   *
   *  @code
   *  tarn::Saved saved = file.save("/srv/uploads");
   *  if (!saved && saved.error() == EEXIST) ...
   *  @endcode
   *
   *  @param directory  an existing directory, not a link to one
   *  @param name       without a slash, at most 255 bytes
   *  @return the name, and 0 or the errno value of the failure: EEXIST when the name is taken;
   *          EINVAL when it is not a valid file name, or the file has no field()
   */
  [[nodiscard]] Saved save(std::string_view directory, std::string_view name) const noexcept {
    return save_as(directory, FileName(name));
  }

 private:
  Saved save_as(std::string_view directory, const FileName &name) const noexcept {
    if (name.size_ == 0 || !field()) return {name, EINVAL};
    // open() would follow a link whose name ends in a slash.
    while (directory.size() > 1 && directory.back() == '/') directory.remove_suffix(1);
    const detail::Terminated path(directory);
    if (path.c_str() == nullptr) return {name, ENOMEM};
    const detail::Descriptor at(
        ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const bool done = at.number() >= 0 && detail::save_at(at.number(), name.c_str(), bytes());
    return {name, done ? 0 : errno};
  }
};

inline std::optional<File> Request::file(const char *name) const &noexcept {
  return first<File, Tarn_getFile>(name);
}

}  // namespace tarn

#endif  // TARN_FILE_HPP
