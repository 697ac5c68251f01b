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

#include "request.hpp"

namespace tarn {

/** A name for a file, in a place of its own: at most 255 bytes. */
class FileName {
 public:
  FileName() noexcept = default;

  /** The name, good as long as this object. */
  std::string_view view() const &noexcept { return {text_, size_}; }
  std::string_view view() const && = delete;
  /** The name with a final zero byte, good as long as this object. */
  const char *c_str() const &noexcept { return text_; }
  const char *c_str() const && = delete;

 private:
  friend class File;

  static constexpr std::size_t most = 255;

  // A name as the script gives it; none when it is no name of a file.
  explicit FileName(std::string_view name) noexcept {
    const bool path = name == "." || name == ".." || name.find('/') != std::string_view::npos;
    if (path || name.size() > most || name.find('\0') != std::string_view::npos) return;
    add(name);
  }

  void add(std::string_view piece) noexcept {
    std::memcpy(text_ + size_, piece.data(), piece.size());
    size_ += piece.size();
  }

  char text_[most + 1] = {};
  std::size_t size_ = 0;
};

/** What became of a file that was to be saved. */
class Saved {
 public:
  /** Tells whether the file is there, whole, under name(). */
  explicit operator bool() const noexcept { return error_ == 0; }

  /** Why it is not: a number of <cerrno>, such as EEXIST; 0 when it is. */
  int error() const noexcept { return error_; }

  /** The name in the directory, also of a file that could not be saved. */
  const FileName &name() const &noexcept { return name_; }
  const FileName &name() const && = delete;

 private:
  friend class File;

  Saved(const FileName &name, int error) noexcept : name_(name), error_(error) {}

  FileName name_;
  int error_;
};

namespace detail {

// The length of the UTF-8 sequence at the front of a text, with the character in it; 0 for bytes
// that are none.
inline std::size_t character_at(const char *text, std::size_t size, char32_t &character) noexcept {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  if (first < 0x80) {
    character = first;
    return 1;
  }
  const std::size_t length = first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if (length == 0 || first > 0xF4 || length > size) return 0;
  character = first & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0U) != 0x80) return 0;
    character = character << 6U | (byte(i) & 0x3FU);
  }
  // Longer than it had to be, half of a pair, or beyond the last character.
  const bool wrong = (length == 3 && character < 0x800) || (length == 4 && character < 0x10000) ||
                     (character >= 0xD800 && character <= 0xDFFF) || character > 0x10FFFF;
  return wrong ? 0 : length;
}

// Characters beyond ASCII that nobody sees in the name of a file: control characters, white space,
// what Unicode ignores where it cannot be shown, letters and symbols without ink (the fillers of
// Hangul, Braille's blank), and what turns the direction of writing.
struct Span {
  char32_t first, last;
};
inline constexpr Span kHidden[] = {
    {0x80, 0xA0},       {0xAD, 0xAD},       {0x34F, 0x34F},     {0x61C, 0x61C},
    {0x115F, 0x1160},   {0x1680, 0x1680},   {0x17B4, 0x17B5},   {0x180B, 0x180F},
    {0x2000, 0x200F},   {0x2028, 0x202F},   {0x205F, 0x206F},   {0x2800, 0x2800},
    {0x3000, 0x3000},   {0x3164, 0x3164},   {0xFDD0, 0xFDEF},   {0xFE00, 0xFE0F},
    {0xFEFF, 0xFEFF},   {0xFFA0, 0xFFA0},   {0xFFF0, 0xFFFF},   {0x13430, 0x1343F},
    {0x1BCA0, 0x1BCA3}, {0x1D159, 0x1D159}, {0x1D173, 0x1D17A}, {0xE0000, 0x10FFFF}};

// Whether a character can stand in the name of a file without harm to whoever lists or copies it.
inline bool is_harmless(char32_t c) noexcept {
  if (c < 0x80) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '-' || c == '_';
  }
  for (const Span &span : kHidden) {
    if (c >= span.first && c <= span.last) return false;
  }
  // The last two of each plane are no characters.
  return (c & 0xFFFEU) != 0xFFFE;
}

// A descriptor that is closed with its scope.
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

// Each of the following tells whether it succeeded; errno says why it did not.

inline bool write_all(int file, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// Gives a file another name, unless that name is taken.
inline bool rename_to_free(int directory, const char *from, const char *to) noexcept {
#ifdef RENAME_NOREPLACE
  if (::renameat2(directory, from, directory, to, RENAME_NOREPLACE) == 0) return true;
  // Not every file system can do that.
  if (errno != EINVAL && errno != ENOSYS) return false;
#endif
  if (::linkat(directory, from, directory, to, 0) != 0) return false;
  ::unlinkat(directory, from, 0);
  return true;
}

// A file that is new, under a name that nobody gives to an upload.
inline int create_temporary(int directory, char (&name)[64]) noexcept {
  for (unsigned attempt = 0; attempt < 1000; ++attempt) {
    std::snprintf(name, sizeof name, ".tarn-%ld-%u", static_cast<long>(::getpid()), attempt);
    const int made =
        ::openat(directory, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (made >= 0 || errno != EEXIST) return made;
  }
  return -1;
}

// Removes what a failure leaves behind, and fails.
inline bool give_up(int directory, const char *name) noexcept {
  const int error = errno;
  ::unlinkat(directory, name, 0);
  errno = error;
  return false;
}

inline bool save_at(int directory, const char *name, std::string_view bytes) noexcept {
  char temporary[64];
  Descriptor file(create_temporary(directory, temporary));
  if (file.number() < 0) return false;
  const bool kept = write_all(file.number(), bytes) && ::fsync(file.number()) == 0 &&
                    file.close() && rename_to_free(directory, temporary, name);
  if (!kept) return give_up(directory, temporary);
  // EINVAL: a file system that has nothing to sync in a directory.
  return ::fsync(directory) == 0 || errno == EINVAL || give_up(directory, name);
}

}  // namespace detail

/** Reads one uploaded file: what was sent up to its first CR LF. The rest is dropped without an
 *  error, so a PNG image arrives as four bytes. Its name and type are what a stranger sent. */
class File : public detail::Lent<TARN_FORM_FILE_MAGIC> {
 public:
  using Lent::Lent;

  /** The name of the field that it came in.
   *
   *  @return a view, good as long as the request; nothing when the part had no name or no type:
   *          there is no file name, no type and no byte then either
   */
  std::optional<std::string_view> field() const noexcept { return text_in(TARN_FILE_FIELD_NAME); }

  /** The file's name on the visitor's machine, decoded. It may hold "../", quotes and control
   *  bytes; safe_name() does not.
   *
   *  @return as field()
   */
  std::optional<std::string_view> name() const noexcept { return text_in(TARN_FILE_FILENAME); }

  /** The content type that the visitor's browser gave it. @return as field() */
  std::optional<std::string_view> type() const noexcept { return text_in(TARN_FILE_CONTENT_TYPE); }

  /** The bytes as they came, zero bytes included, up to the first CR LF and no further.
   *
   *  @return a view, good to the end of the process; an empty one of an empty file
   */
  std::string_view bytes() const noexcept { return detail::bytes_of(child_in(TARN_FILE_BYTES)); }

  /** Makes a name of name() that is safe in any directory: what stands after the last slash or
   *  backslash, cut to 200 bytes between characters, without a dot or a dash at the front. Letters,
   *  digits, ".", "-", "_" and what can be seen beyond ASCII stay. Everything else becomes "_":
   *  control characters, blanks and characters that cannot be seen (soft hyphens, joiners, the
   *  selectors in emoji, fillers), so that no two names look the same because of them, and bytes
   *  that are not UTF-8. When nothing is left the name is "file".
   */
  FileName safe_name() const noexcept {
    std::string_view text = name().value_or(std::string_view());
    const std::size_t slash = text.find_last_of("/\\");
    if (slash != std::string_view::npos) text.remove_prefix(slash + 1);
    FileName made;
    while (!text.empty()) {
      char32_t character = 0;
      const std::size_t length = detail::character_at(text.data(), text.size(), character);
      const bool harmless = length > 0 && detail::is_harmless(character);
      const std::string_view piece = harmless ? std::string_view(text.data(), length) : "_";
      if (made.size_ + piece.size() > 200) break;
      if (made.size_ > 0 || (character != '.' && character != '-')) made.add(piece);
      text.remove_prefix(length > 0 ? length : 1);
    }
    if (made.size_ == 0) made.add("file");
    return made;
  }

  /** Saves the bytes(), which end at the first CR LF, under safe_name(). See the other save(). */
  [[nodiscard]] Saved save(std::string_view directory) const noexcept {
    return save_as(directory, safe_name());
  }

  /** Saves the bytes as a new file that only the script's user may read and write.
   *
   *  They are written under another name, are on the disk when the file gets its own, and that name
   *  is on the disk when this returns. Nothing that is there is overwritten or followed, be it a
   *  link. After a failure there is no file.
   *
   *  @code
   *  tarn::Saved saved = file.save("/srv/uploads");
   *  if (!saved && saved.error() == EEXIST) ...
   *  @endcode
   *
   *  @param directory  where; it must not be a link itself
   *  @param name       without a slash, at most 255 bytes
   *  @return the name, and 0 or the errno of what failed: EEXIST when the name is taken; EINVAL
   *          when it is none for a file, or the file has no field()
   */
  [[nodiscard]] Saved save(std::string_view directory, std::string_view name) const noexcept {
    return save_as(directory, FileName(name));
  }

 private:
  Saved save_as(std::string_view directory, const FileName &name) const noexcept {
    if (name.size_ == 0 || !field()) return {name, EINVAL};
    // With a slash at its end a link would be followed.
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
