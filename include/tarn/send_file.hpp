/* Sending files. */
#ifndef TARN_SEND_FILE_HPP
#define TARN_SEND_FILE_HPP

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>

#include "argument.hpp"
#include "conditions.hpp"
#include "response.hpp"

namespace tarn {
namespace detail {

// Files have more than two gibibytes on 32-bit systems, too.
#if defined(__GLIBC__) && defined(_LARGEFILE64_SOURCE)
using FileStatus = struct stat64;
using FileOffset = off64_t;
inline constexpr int kLargeFile = O_LARGEFILE;
inline int read_status(int file, FileStatus *status) noexcept { return ::fstat64(file, status); }
inline ssize_t send_part(int to, int from, FileOffset *offset, std::size_t most) noexcept {
  return ::sendfile64(to, from, offset, most);
}
inline ssize_t read_part(int file, char *place, std::size_t most, FileOffset offset) noexcept {
  return ::pread64(file, place, most, offset);
}
#else
using FileStatus = struct stat;
using FileOffset = off_t;
inline constexpr int kLargeFile = 0;
static_assert(sizeof(FileOffset) == 8, "compile with -D_FILE_OFFSET_BITS=64");
inline int read_status(int file, FileStatus *status) noexcept { return ::fstat(file, status); }
inline ssize_t send_part(int to, int from, FileOffset *offset, std::size_t most) noexcept {
  return ::sendfile(to, from, offset, most);
}
inline ssize_t read_part(int file, char *place, std::size_t most, FileOffset offset) noexcept {
  return ::pread(file, place, most, offset);
}
#endif

// Copies part of a file to a stream. @return what went wrong; null if nothing did
inline const char *copy_part(int file, const Part &part, FILE *out) noexcept {
  constexpr const char *kNotWritten = "response could not be written";
  constexpr const char *kTooShort = "file became shorter while it was sent";
  if (std::fflush(out) != 0) return kNotWritten;
  auto offset = static_cast<FileOffset>(part.first);
  std::uint64_t left = part.size;
  // The kernel copies to pipes, sockets and most files. If it refuses, the loop below copies.
  const int to = ::fileno(out);
  while (to >= 0 && left > 0) {
    constexpr std::uint64_t kMost = 1U << 30U;
    const auto most = static_cast<std::size_t>(left < kMost ? left : kMost);
    const ssize_t sent = send_part(to, file, &offset, most);
    if (sent == 0) return kTooShort;
    if (sent > 0) left -= static_cast<std::uint64_t>(sent);
    if (sent < 0 && errno != EINTR) break;
  }
  char block[16384];
  while (left > 0) {
    const std::size_t most = left < sizeof block ? static_cast<std::size_t>(left) : sizeof block;
    const ssize_t count = read_part(file, block, most, offset);
    if (count == 0) return kTooShort;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return "file could not be read";
    const auto size = static_cast<std::size_t>(count);
    if (std::fwrite(block, 1, size, out) != size) return kNotWritten;
    offset += count;
    left -= size;
  }
  return nullptr;
}

struct FileType {
  std::string_view extension;
  const char *type;
  bool runs_scripts = false;
};

inline constexpr FileType kUnknownType = {""sv, "application/octet-stream"};
inline constexpr FileType kFileTypes[] = {{"avif"sv, "image/avif"},
                                          {"css"sv, "text/css; charset=utf-8"},
                                          {"csv"sv, "text/csv; charset=utf-8"},
                                          {"flac"sv, "audio/flac"},
                                          {"gif"sv, "image/gif"},
                                          {"gz"sv, "application/gzip"},
                                          {"htm"sv, "text/html; charset=utf-8", true},
                                          {"html"sv, "text/html; charset=utf-8", true},
                                          {"ico"sv, "image/x-icon"},
                                          {"jpeg"sv, "image/jpeg"},
                                          {"jpg"sv, "image/jpeg"},
                                          {"js"sv, "text/javascript; charset=utf-8"},
                                          {"json"sv, "application/json"},
                                          {"m4a"sv, "audio/mp4"},
                                          {"md"sv, "text/markdown; charset=utf-8"},
                                          {"mjs"sv, "text/javascript; charset=utf-8"},
                                          {"mp3"sv, "audio/mpeg"},
                                          {"mp4"sv, "video/mp4"},
                                          {"ogg"sv, "audio/ogg"},
                                          {"pdf"sv, "application/pdf"},
                                          {"png"sv, "image/png"},
                                          {"svg"sv, "image/svg+xml", true},
                                          {"txt"sv, "text/plain; charset=utf-8"},
                                          {"wasm"sv, "application/wasm"},
                                          {"wav"sv, "audio/wav"},
                                          {"webm"sv, "video/webm"},
                                          {"webp"sv, "image/webp"},
                                          {"woff2"sv, "font/woff2"},
                                          {"xhtml"sv, "application/xhtml+xml", true},
                                          {"xml"sv, "application/xml", true},
                                          {"zip"sv, "application/zip"}};

inline const FileType &type_of_name(std::string_view name) noexcept {
  const std::size_t dot = name.find_last_of("./");
  if (dot == std::string_view::npos || name[dot] == '/') return kUnknownType;
  name.remove_prefix(dot + 1);
  for (const FileType &each : kFileTypes) {
    if (name.size() == each.extension.size() && begins_with(name, each.extension)) return each;
  }
  return kUnknownType;
}

}  // namespace detail

/** A file that is open to be sent, by Response::send_file().
 *
 *  Only regular files are opened: no folders, pipes or devices. Size and times are those at the moment
 *  of opening. To change a file that visitors load, write another one and rename it: they get the old
 *  file or the new one, and never a mixture. */
class StoredFile {
 public:
  /** Opens a file of which the script knows the path. Follows links. Never pass a path with something
   *  in it that a visitor sent: use below(). */
  static StoredFile at(std::string_view path) noexcept {
    const detail::Terminated whole(path);
    if (whole.c_str() == nullptr) return StoredFile(ENOMEM);
    return {adopt, ::open(whole.c_str(), kFlags), path};
  }

  /** Opens a file below a folder, even if a visitor sent its name.
   *
   *  It never leaves the folder, follows no link below it, and does not find hidden files: no part of
   *  the name may begin with a dot.
   *
   *  @param folder  as for at()
   *  @param name    with "/" between its parts, if it has several; one more at its beginning is
   *                 skipped, as in PATH_INFO */
  static StoredFile below(std::string_view folder, std::string_view name) noexcept {
    const detail::Terminated root(folder);
    if (root.c_str() == nullptr) return StoredFile(ENOMEM);
    std::string_view rest = name;
    if (!rest.empty() && rest[0] == '/') rest.remove_prefix(1);
    int file = ::open(root.c_str(), kFolderFlags);
    for (bool last = false; file >= 0 && !last;) {
      const std::size_t slash = rest.find('/');
      last = slash == std::string_view::npos;
      const std::string_view part(rest.data(), last ? rest.size() : slash);
      file = open_in(file, part, (last ? kFlags : kFolderFlags) | O_NOFOLLOW);
      if (!last) rest.remove_prefix(slash + 1);
    }
    return {adopt, file, name};
  }

  /** Takes over a descriptor that can be read at any position, and closes it in the end.
   *
   *  @param descriptor  of a regular file; if it is negative, errno tells why there is none
   *  @param name        its extension tells the content type */
  StoredFile(Adopt, int descriptor, std::string_view name) noexcept
      : file_(descriptor), type_(&detail::type_of_name(name)) {
    detail::FileStatus status;
    if (file_ < 0 || detail::read_status(file_, &status) != 0) {
      close_with(errno);
      return;
    }
    if (!S_ISREG(status.st_mode)) {
      close_with(S_ISDIR(status.st_mode) ? EISDIR : ENXIO);
      return;
    }
    size_ = static_cast<std::uint64_t>(status.st_size);
    modified_ = status.st_mtim.tv_sec;
    changed_ = status.st_ctim.tv_sec;
    nanoseconds_ = status.st_ctim.tv_nsec;
    opened_ = std::time(nullptr);
  }

  // There is no file in `other` afterwards.
  StoredFile(StoredFile &&other) noexcept
      : file_(detail::exchanged(other.file_, -1)),
        error_(detail::exchanged(other.error_, EBADF)),
        type_(other.type_),
        size_(other.size_),
        modified_(other.modified_),
        changed_(other.changed_),
        nanoseconds_(other.nanoseconds_),
        opened_(other.opened_) {}
  StoredFile(const StoredFile &) = delete;
  StoredFile &operator=(const StoredFile &) = delete;
  ~StoredFile() { close_with(0); }

  /** Tells whether the file is open. */
  explicit operator bool() const noexcept { return file_ >= 0; }

  /** Why it is not open: an errno value such as ENOENT; 0 if it is. */
  int error() const noexcept { return error_; }

  /** Why it is not open, in words for the server's log. @return a text, valid until the next call of
   *  strerror(); empty if the file is open */
  const char *message() const noexcept { return error_ != 0 ? std::strerror(error_) : ""; }

  /** The number of its bytes. */
  std::uint64_t size() const noexcept { return size_; }

  /** When its content was last changed; not later than when it was opened. */
  std::time_t modified() const noexcept { return modified_ < opened_ ? modified_ : opened_; }

 private:
  friend class Response;

  static constexpr int kFlags =
      O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | detail::kLargeFile;  // no waiting for a pipe
  static constexpr int kFolderFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

  explicit StoredFile(int error) noexcept : error_(error) {}

  // Opens part of a path in a folder, and closes the folder. -1 with errno if it fails.
  static int open_in(int folder, std::string_view part, int flags) noexcept {
    int file = -1;
    errno = ENOENT;
    if (!part.empty() && part[0] != '.' && part.find('\0') == std::string_view::npos) {
      const detail::Name name(part);
      errno = ENOMEM;
      if (name.c_str() != nullptr) file = ::openat(folder, name.c_str(), flags);
    }
    const int error = errno;
    ::close(folder);
    errno = error;
    return file;
  }

  void close_with(int error) noexcept {
    if (file_ >= 0) ::close(file_);
    file_ = -1;
    error_ = error;
  }

  // The status that a visitor gets who asks for a file that is not open.
  int status() const noexcept {
    switch (error_) {
      case ENOENT:
      case ENOTDIR:
      case EISDIR:
      case ELOOP:
      case ENXIO:
      case ENAMETOOLONG:
        return 404;
      case EACCES:
      case EPERM:
        return 403;
      default:
        return 500;
    }
  }

  // Times of files advance in steps of some milliseconds. A later change has another time for certain
  // if the last one was more than a second ago.
  bool is_settled() const noexcept { return opened_ - changed_ >= 2; }

  // Any change has another time of change, even one that restores the time of modification.
  void tag(Response &response) const noexcept {
    char text[64];
    std::snprintf(text, sizeof text, "%" PRIx64 "-%" PRIx64 ".%lx", size_,
                  static_cast<std::uint64_t>(changed_), nanoseconds_);
    if (is_settled()) {
      response.etag(text);
    } else {
      response.weak_etag(text);
    }
  }

  int file_ = -1;
  int error_ = 0;
  const detail::FileType *type_ = &detail::kUnknownType;
  std::uint64_t size_ = 0;
  std::time_t modified_ = 0;
  std::time_t changed_ = 0;
  long nanoseconds_ = 0;
  std::time_t opened_ = 0;
};

template <class Sent>
Sent Response::send_file(const StoredFile &file) noexcept {
  using detail::Outcome;
  if (!file) return send_error(file.status());
  if (modified_.view().empty()) last_modified(file.modified());
  if (etag_.view().empty()) file.tag(*this);
  nosniff();
  if (type_.view().empty()) {
    content_type(file.type_->type);
    // Beside the policy of the script: both apply.
    if (file.type_->runs_scripts) header("Content-Security-Policy", "sandbox");
  }
  detail::Part part = {0, file.size_};
  Outcome outcome = Outcome::whole;
  if (is_conditional()) {
    const bool with_ranges = !head_ && std::string_view(CgiEnv_getRequestMethod(nullptr)) == "GET";
    outcome = detail::Conditions<>::of_request().judge(version(file.opened_, file.size_),
                                                       file.opened_, with_ranges, part);
    header("Accept-Ranges", "bytes");
  }
  char range[80];
  switch (outcome) {
    case Outcome::not_modified:
      return status(304).send();
    case Outcome::precondition_failed:
      return send_error(412);
    case Outcome::range_not_satisfiable:
      std::snprintf(range, sizeof range, "bytes */%" PRIu64, file.size_);
      return header("Content-Range", range).send_error(416);
    case Outcome::part:
      std::snprintf(range, sizeof range, "bytes %" PRIu64 "-%" PRIu64 "/%" PRIu64, part.first,
                    part.first + part.size - 1, file.size_);
      header("Content-Range", range).status(206);
      break;
    case Outcome::whole:
      break;
  }
  if (begin({}, part.size)) refuse(detail::copy_part(file.file_, part, out_));
  return end();
}

}  // namespace tarn

#endif  // TARN_SEND_FILE_HPP
