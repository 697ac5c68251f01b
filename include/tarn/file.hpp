/* Uploaded files. */
#ifndef TARN_FILE_HPP
#define TARN_FILE_HPP

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <string_view>
#include <utility>

#include "field.hpp"
#include "request.hpp"
#include "text.hpp"

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
    const int number = detail::exchanged(number_, -1);
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

// Creates a file under a new name, which safe_name() never returns. -1 if it fails. Processes that died
// may have left many files, so numbers that have never been used follow the first ones.
inline int create_temporary(int directory, char (&name)[64]) noexcept {
  for (unsigned attempt = 0; attempt < 1000; ++attempt) {
    timespec now = {};
    if (attempt >= 100) ::clock_gettime(CLOCK_REALTIME, &now);
    const long long number = attempt < 100 ? attempt : now.tv_sec * 1000000000LL + now.tv_nsec;
    std::snprintf(name, sizeof name, ".tarn-%ld-%lld", static_cast<long>(::getpid()), number);
    const int made =
        ::openat(directory, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (made >= 0 || errno != EEXIST) return made;
  }
  return -1;
}

// open() would follow a link whose name ends in "/" or "/.".
inline std::string_view without_final_dots(std::string_view directory) noexcept {
  const auto ends_in = [&directory](char c) {
    return directory.size() > 1 && directory.back() == c;
  };
  while (ends_in('/') || (ends_in('.') && directory[directory.size() - 2] == '/')) {
    directory.remove_suffix(1);
  }
  return directory;
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

// ---- Multipart bodies, read as Tarn_new() reads them

// Removes the beginning of a text. @return false if it begins with something else
inline bool take(std::string_view &text, std::string_view beginning) noexcept {
  if (text.size() < beginning.size()) return false;
  if (std::string_view(text.data(), beginning.size()) != beginning) return false;
  text.remove_prefix(beginning.size());
  return true;
}

// Removes everything up to a mark, and the mark. @return false, and removes nothing, if it is missing
inline bool skip_past(std::string_view &text, std::string_view mark) noexcept {
  const void *const found = memfind(text.data(), static_cast<std::uint32_t>(text.size()),
                                    mark.data(), static_cast<std::uint32_t>(mark.size()));
  if (found == nullptr) return false;
  const auto before = static_cast<std::size_t>(static_cast<const char *>(found) - text.data());
  text.remove_prefix(before + mark.size());
  return true;
}

// Whether a text begins with a delimiter: unlike Tarn_new(), this also accepts the closing one, and
// blanks at the end of the line.
inline bool is_at_delimiter(std::string_view text, std::string_view boundary) noexcept {
  if (!take(text, "--") || !take(text, boundary)) return false;
  if (take(text, "--")) return true;
  while (take(text, " ") || take(text, "\t")) {
  }
  return take(text, "\r\n");
}

// The text between a mark and the next quotation mark, without what a zero byte cuts off.
inline std::string_view quoted_after(std::string_view part, std::string_view mark) noexcept {
  std::string_view rest = part;
  if (!skip_past(rest, mark)) return {};
  const std::size_t before = part.size() - rest.size();
  if (std::string_view(part.data(), before).find('\0') != std::string_view::npos) return {};
  std::size_t size = 0;
  while (size < rest.size() && rest[size] != '"' && rest[size] != '\0') ++size;
  return {rest.data(), size};
}

// A number for a file: equal for equal files, and hardly ever for others.
inline std::uint64_t mark_of(std::string_view field, std::string_view name,
                             std::string_view bytes) noexcept {
  std::uint64_t mark = 14695981039346656037U;
  const auto add = [&mark](std::string_view text) {
    for (const char c : text) mark = (mark ^ static_cast<unsigned char>(c)) * 1099511628211U;
    mark = (mark ^ text.size()) * 1099511628211U;
  };
  add(field);
  add(name);
  add(bytes);
  return mark;
}

// Marks a part, if its value goes on behind the bytes that Tarn_new() keeps. `rest` is the body from
// this part on. @return false if memory ran out
inline bool mark_if_cut(Array<std::uint64_t> &marks, std::string_view part, std::string_view rest,
                        std::string_view boundary) noexcept {
  std::string_view value = part;
  if (!skip_past(value, "\r\n\r\n")) return true;
  rest.remove_prefix(part.size() - value.size());
  const std::size_t end = value.find("\r\n");
  value = {value.data(), end == std::string_view::npos ? 0 : end};
  // The value may share its CR LF with the headers.
  if (value.empty() && is_at_delimiter(rest, boundary)) return true;
  rest.remove_prefix(value.size());
  if (take(rest, "\r\n") && is_at_delimiter(rest, boundary)) return true;
  const Terminated sent(quoted_after(part, "filename=\""));
  char *const name = unescapeString(sent.c_str());
  const bool marked =
      name != nullptr && marks.push(mark_of(quoted_after(part, "name=\""), name, value));
  std::free(name);
  return marked;
}

// For std::qsort() and std::bsearch(): compilers take long to read <algorithm>.
inline int compare_marks(const void *a, const void *b) noexcept {
  const std::uint64_t first = *static_cast<const std::uint64_t *>(a);
  const std::uint64_t second = *static_cast<const std::uint64_t *>(b);
  return (first > second) - (first < second);
}

// Searches the body, unless that has been done. @return false if memory ran out
inline bool search_cut_parts(CutParts &parts) noexcept {
  if (parts.searched) return true;
  if (parts.environment == 0) return false;
  const Environment environment(parts.environment);
  const std::string_view type = environment.content_type();
  std::string_view boundary = type;
  if (!skip_past(boundary, "boundary=")) return true;
  Buffer delimiter;
  delimiter << "--" << boundary << "\r\n";
  const Text mark = delimiter.take();
  if (!mark) return false;
  Array<std::uint64_t> marks;
  // A form in a query string can be multipart, too.
  const std::optional<std::string_view> body = environment.body();
  std::string_view rest = body ? *body : environment.query_string();
  bool more = skip_past(rest, mark.view());
  while (more) {
    std::string_view next = rest;
    more = skip_past(next, mark.view());
    const std::size_t end = more ? next.size() + mark.view().size() : 0;
    if (!mark_if_cut(marks, {rest.data(), rest.size() - end}, rest, boundary)) return false;
    rest = next;
  }
  if (marks.size() > 0)
    std::qsort(marks.data(), marks.size(), sizeof(std::uint64_t), compare_marks);
  parts.count = marks.size();
  parts.marks = marks.release();
  parts.searched = true;
  return true;
}

}  // namespace detail

/** Reads one uploaded file of a Request: its bytes up to the first CR LF, where Tarn_new() cuts every
 *  multipart value. A PNG image arrives as four bytes. save() refuses a file that was cut; to receive
 *  files whole, use FormReader. The sender chose its name and type: do not trust them. */
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

  /** Tells whether bytes() is not the whole file: in the body, it is followed by more than the
   *  delimiter. Searches the body once for all files of a request, and finds this one by field, name
   *  and bytes.
   *
   *  Only a file from Request::file() or Request::files() knows the body. For any other, and for one
   *  that is not in the body because the script made or changed it, the answer is false.
   */
  bool is_cut() const noexcept { return field() && error_of_cut() != 0; }

  /** Makes a name from name() that is safe in any directory, as FileName::safe() does. */
  FileName safe_name() const noexcept { return FileName::safe(detail::or_empty(name())); }

  /** Saves the file under safe_name(). See the other save(). */
  [[nodiscard]] Saved save(std::string_view directory) const noexcept {
    return save_as(directory, safe_name());
  }

  /** Saves the bytes as a new file that only the script's user may read and write, unless is_cut().
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
   *          EMSGSIZE when is_cut(); EINVAL when it is not a valid file name, or the file has no
   *          field()
   */
  [[nodiscard]] Saved save(std::string_view directory, std::string_view name) const noexcept {
    return save_as(directory, FileName(name));
  }

 private:
  friend class Request;
  template <class, std::uint32_t, auto, auto>
  friend class detail::Range;

  File(TarnHandle handle, detail::CutParts *cut_parts) noexcept
      : NodeView(handle), cut_parts_(cut_parts) {}

  Saved save_as(std::string_view directory, const FileName &name) const noexcept {
    if (name.size_ == 0 || !field()) return {name, EINVAL};
    if (const int error = error_of_cut()) return {name, error};
    const detail::Terminated path(detail::without_final_dots(directory));
    if (path.c_str() == nullptr) return {name, ENOMEM};
    const detail::Descriptor at(
        ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const bool done = at.number() >= 0 && detail::save_at(at.number(), name.c_str(), bytes());
    return {name, done ? 0 : errno};
  }

  // 0, or why save() does not store the bytes.
  int error_of_cut() const noexcept {
    if (cut_parts_ == nullptr) return 0;
    const std::optional<std::string_view> sent = name();
    if (!sent) return 0;
    if (!detail::search_cut_parts(*cut_parts_)) return ENOMEM;
    if (cut_parts_->count == 0) return 0;
    const std::uint64_t mark = detail::mark_of(*field(), *sent, bytes());
    const void *const cut = std::bsearch(&mark, cut_parts_->marks, cut_parts_->count, sizeof mark,
                                         detail::compare_marks);
    return cut != nullptr ? detail::kFileIsCut : 0;
  }

  detail::CutParts *cut_parts_ = nullptr;
};

template <class Found>
std::optional<Found> Request::file(const detail::Name &name) const &noexcept {
  const TarnHandle found = detail::query(Tarn_getFile, handle_, name.c_str());
  if (found == 0) return {};
  return Found(found, cut_parts_.of(child(TARN_REQUEST_ENVIRONMENT)));
}

}  // namespace tarn

#endif  // TARN_FILE_HPP
