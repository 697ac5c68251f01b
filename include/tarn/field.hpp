/* Fields of whole forms, and the names of saved files. */
#ifndef TARN_FIELD_HPP
#define TARN_FIELD_HPP

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

#include "../tarn_form.h"
#include "characters.hpp"
#include "object.hpp"

namespace tarn {

class Form;

namespace detail {

// Characters beyond ASCII that are invisible in a file name: control characters, white space, what
// Unicode ignores where it cannot be displayed, letters and symbols without ink (Hangul fillers, the
// blank of Braille), and characters that change the direction of writing.
struct Span {
  char32_t first, last;
};
inline constexpr Span kInvisible[] = {
    {0x80, 0xA0},       {0xAD, 0xAD},       {0x34F, 0x34F},     {0x61C, 0x61C},
    {0x115F, 0x1160},   {0x1680, 0x1680},   {0x17B4, 0x17B5},   {0x180B, 0x180F},
    {0x2000, 0x200F},   {0x2028, 0x202F},   {0x205F, 0x206F},   {0x2800, 0x2800},
    {0x3000, 0x3000},   {0x3164, 0x3164},   {0xFDD0, 0xFDEF},   {0xFE00, 0xFE0F},
    {0xFEFF, 0xFEFF},   {0xFFA0, 0xFFA0},   {0xFFF0, 0xFFFF},   {0x13430, 0x1343F},
    {0x1BCA0, 0x1BCA3}, {0x1D159, 0x1D159}, {0x1D173, 0x1D17A}, {0xE0000, 0x10FFFF}};

// Whether a file name may contain a character. A "/" would make it a path, and shells and terminals
// give a meaning to most of the others.
inline bool is_safe_in_file_name(char32_t c) noexcept {
  if (c < 0x80) {
    const char ascii = static_cast<char>(c);
    return is_alphanumeric(ascii) || is_among(ascii, ".-_");
  }
  for (const Span &span : kInvisible) {
    if (c >= span.first && c <= span.last) return false;
  }
  // The last two code points of each plane are not characters.
  return (c & 0xFFFEU) != 0xFFFE;
}

// What Saved::error() is if File::is_cut(). No file system fails with this error.
inline constexpr int kFileIsCut = EMSGSIZE;
// What it is when the form that the file belongs to has a problem.
inline constexpr int kFormHasProblem = -1;

}  // namespace detail

/** A file name of at most 255 bytes, which this object holds itself. */
class FileName {
 public:
  FileName() noexcept = default;

  /** Makes a name that is safe in any directory from one that a visitor sent: what follows the last
   *  slash or backslash, without dots and dashes at the front, cut between characters to at most 200
   *  bytes. Letters, digits, ".", "-", "_" and visible characters beyond ASCII are kept. Everything
   *  else becomes "_": control characters, spaces, bytes that are not UTF-8, and invisible characters
   *  (soft hyphens, joiners, the selectors in emoji, fillers), which would let two names look the
   *  same. If nothing is left, the name is "file".
   */
  static FileName safe(std::string_view sent) noexcept {
    const std::size_t slash = sent.find_last_of("/\\");
    if (slash != std::string_view::npos) sent.remove_prefix(slash + 1);
    FileName made;
    while (!sent.empty()) {
      const detail::Character character = detail::first_character(sent);
      const bool kept = character.size > 0 && detail::is_safe_in_file_name(character.code);
      const std::string_view piece = kept ? std::string_view(sent.data(), character.size) : "_";
      if (made.size_ + piece.size() > 200) break;
      if (made.size_ > 0 || (piece != "." && piece != "-")) made.add(piece);
      sent.remove_prefix(character.size > 0 ? character.size : 1);
    }
    if (made.size_ == 0) made.add("file");
    return made;
  }

  /** The name, valid as long as this object. */
  std::string_view view() const &noexcept { return {text_, size_}; }
  std::string_view view() const && = delete;
  /** The name, null-terminated, valid as long as this object. */
  const char *c_str() const &noexcept { return text_; }
  const char *c_str() const && = delete;

 private:
  friend class Field;
  friend class File;

  static constexpr std::size_t most = 255;

  // A name that the script chose; empty unless it is a valid file name.
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

/** The result of Field::save() and File::save(). */
class Saved {
 public:
  /** Tells whether the whole file was saved under name(). */
  explicit operator bool() const noexcept { return error_ == 0; }

  /** Why it was not: an errno value such as EEXIST, or -1 if the form has a problem; 0 if it was. */
  int error() const noexcept { return error_; }

  /** Why it was not, in words for the server's log.
   *
   *  @return a text, valid until the next call of strerror(); empty if the file was saved
   */
  const char *message() const noexcept {
    switch (error_) {
      case 0:
        return "";
      case detail::kFormHasProblem:
        return "the form has a problem, so the file is not whole";
      case detail::kFileIsCut:
        return "Tarn_new() cut the file at its first line end; read it with tarn::FormReader";
      default:
        return std::strerror(error_);
    }
  }

  /** The name in the directory, even if the file could not be saved. */
  const FileName &name() const &noexcept { return name_; }
  const FileName &name() const && = delete;

 private:
  friend class Field;
  friend class File;

  Saved(const FileName &name, int error) noexcept : name_(name), error_(error) {}

  FileName name_;
  int error_;
};

namespace detail {

inline std::optional<std::string_view> optional_bytes(const void *bytes,
                                                      std::uint64_t size) noexcept {
  if (bytes == nullptr) return {};
  return std::string_view(static_cast<const char *>(bytes), static_cast<std::size_t>(size));
}

// Where to find the field that a range of blocks reads: in a stream, the next field takes its place.
struct FieldPlace {
  TarnFormField *const *current;
  TarnFormField *kept;
};

// Which fields of a Form a range visits.
enum class Wanted { fields, texts, files };

template <class Item, Wanted kWanted>
class FieldRange;

}  // namespace detail

/** The rest of a field's value, in blocks that are not copied: an input range of std::string_view.
 *
 *  A block is valid until the next one is read. The range also ends when there is a problem: call
 *  FormReader::is_whole() before you use what you read.
 */
class Blocks {
 public:
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = std::string_view;
    using difference_type = std::ptrdiff_t;
    using pointer = const std::string_view *;
    using reference = std::string_view;

    Iterator() noexcept = default;
    explicit Iterator(detail::FieldPlace place) noexcept : place_(place) {
      // Unlike its blocks, the whole value can be read while another field is read.
      const void *const all = TarnFormField_view(place.kept);
      if (all == nullptr) {
        advance();
      } else {
        set(all, TarnFormField_size(place.kept));
        place_ = {};
      }
    }

    std::string_view operator*() const noexcept { return block_; }
    pointer operator->() const noexcept { return &block_; }
    Iterator &operator++() noexcept {
      advance();
      return *this;
    }
    void operator++(int) noexcept { advance(); }

    // Two iterators are equal if both are at the end, or neither is.
    friend bool operator==(const Iterator &a, const Iterator &b) noexcept {
      return a.block_.empty() == b.block_.empty();
    }
    friend bool operator!=(const Iterator &a, const Iterator &b) noexcept { return !(a == b); }

   private:
    void advance() noexcept {
      const void *bytes = nullptr;
      TarnFormField *const field = place_.current != nullptr ? *place_.current : place_.kept;
      const std::int64_t size = TarnFormField_block(field, &bytes);
      set(bytes, size > 0 ? static_cast<std::uint64_t>(size) : 0);
    }
    void set(const void *bytes, std::uint64_t size) noexcept {
      block_ = {static_cast<const char *>(bytes), static_cast<std::size_t>(size)};
    }

    detail::FieldPlace place_{};
    std::string_view block_;
  };

  using value_type = std::string_view;
  using iterator = Iterator;
  using const_iterator = Iterator;

  Iterator begin() const noexcept { return Iterator(place_); }
  static Iterator end() noexcept { return {}; }

 private:
  friend class Field;
  friend class KeptField;

  explicit Blocks(detail::FieldPlace place) noexcept : place_(place) {}

  detail::FieldPlace place_;
};

/** The field that a FormReader has reached: a text or a file.
 *
 *  It cannot be copied, because the next field takes its place; what it returns is valid until then. It
 *  is valid as long as the reader, and has no field before the first step and after the last.
 *
 *  The sender chose all of it: do not trust a name, a file name or a type.
 */
class Field {
 public:
  /** Tells whether there is a field. One without a field is empty and has the error -1. */
  explicit operator bool() const noexcept { return field_ != nullptr; }

  /** The name, decoded; empty for the raw body. */
  std::string_view name() const noexcept {
    return {TarnFormField_name(field_), static_cast<std::size_t>(TarnFormField_nameSize(field_))};
  }

  /** The name of the file on the visitor's machine, decoded. It may be a path; safe_name() is not.
   *
   *  @return a view, empty if the visitor chose no file; nothing if the field is a text
   */
  std::optional<std::string_view> filename() const noexcept {
    return detail::optional_bytes(TarnFormField_filename(field_),
                                  TarnFormField_filenameSize(field_));
  }

  /** Tells whether the visitor chose a file: filename() is there and not empty. */
  bool is_file() const noexcept { return TarnFormField_filenameSize(field_) > 0; }

  /** The content type with its parameters, as sent; nothing without one. */
  std::optional<std::string_view> type() const noexcept { return header("Content-Type"); }

  /** A header of the part.
   *
   *  @param name  the header's name, in any case
   *  @return the value as sent, without white space around it; nothing if there is no such header
   */
  std::optional<std::string_view> header(const char *name) const noexcept {
    return detail::optional_bytes(TarnFormField_header(field_, name),
                                  TarnFormField_headerSize(field_, name));
  }

  /** Where in the body the field begins, in bytes. */
  std::uint64_t offset() const noexcept { return TarnFormField_offset(field_); }

  /** How many bytes of the value have been read so far. After text() and view(), and in a Form, that is
   *  the size of the value. */
  std::uint64_t size() const noexcept { return TarnFormField_size(field_); }

  /** Reads the whole value as a text. A zero byte follows it.
   *
   *  @return the value; nothing if it is longer than FormLimits::text_size() (the form then has a
   *          problem, unless it is a Form), if another function read some of it, and after a problem
   */
  std::optional<std::string_view> text() const noexcept {
    const char *const bytes = TarnFormField_text(field_);
    return detail::optional_bytes(bytes, size());
  }

  /** Finds the whole value in memory, without copying it.
   *
   *  @return the value; nothing if it is not in memory or is encoded, if another function read some of
   *          it, and after a problem
   */
  std::optional<std::string_view> view() const noexcept {
    const void *const bytes = TarnFormField_view(field_);
    return detail::optional_bytes(bytes, size());
  }

  /** The rest of the value in blocks. */
  Blocks blocks() const noexcept { return Blocks({&field_, nullptr}); }

  /** Reads the next bytes: as many as there is room for, or all that are left.
   *
   *  @param bytes  where to put them
   *  @param room   how many to read at most
   *  @return how many; 0 at the end of the value; nothing after a problem and after a failed write
   */
  template <class Size = std::size_t>
  std::optional<Size> read(void *bytes, std::size_t room) const noexcept {
    const std::int64_t count = TarnFormField_read(field_, bytes, room);
    if (count < 0) return {};
    return static_cast<Size>(count);
  }

  /** Writes the value, or what has not been read of it, to a file descriptor.
   *
   *  What text() or view() returned can be written again, and so can a field of a Form. Any other value
   *  is gone once it was written, even if that failed; the next field can still be read.
   *
   *  @param descriptor  open for writing, and blocking
   *  @return 0; the errno value of a failed write; ENODATA if the value is gone; -1 if the form has a
   *          problem
   */
  [[nodiscard]] int write(int descriptor) const noexcept {
    return TarnFormField_write(field_, descriptor);
  }

  /** Makes a name from filename() that is safe in any directory, as FileName::safe() does. */
  FileName safe_name() const noexcept { return FileName::safe(detail::or_empty(filename())); }

  /** Saves the value under safe_name(). See the other save(). */
  [[nodiscard]] Saved save(std::string_view directory) const noexcept {
    return save_as(directory, safe_name());
  }

  /** Saves the value, or what has not been read of it, as a new file that only the script's user may
   *  read and write.
   *
   *  The file appears under its name when all of it is on the disk, or not at all, even if the process
   *  dies. It never overwrites a file and never follows a link. After durable(false) of the form, it
   *  does not wait for the disk.
   *
   *  @code
   *  tarn::Saved saved = field.save("/srv/uploads");
   *  if (!saved && saved.error() == EEXIST) saved = field.save("/srv/uploads", "another name");
   *  @endcode
   *
   *  @param directory  an existing directory, not a link to one
   *  @param name       without a slash, at most 255 bytes
   *  @return the name, and the error as for write(); EEXIST when the name is taken, EINVAL when it is
   *          not a valid file name, EXDEV when you try again in another directory and the value is
   *          gone
   */
  [[nodiscard]] Saved save(std::string_view directory, std::string_view name) const noexcept {
    return save_as(directory, FileName(name));
  }

  /** Reads the rest of the value without keeping it. @return false after a problem */
  bool skip() const noexcept { return TarnFormField_skip(field_) != 0; }

  /** The pointer to pass to functions of tarn_form.h; null without a field. */
  TarnFormField *handle() const noexcept { return field_; }

 protected:
  explicit Field(TarnFormField *field) noexcept : field_(field) {}
  Field(const Field &) noexcept = default;
  Field &operator=(const Field &) noexcept = default;
  ~Field() = default;

  TarnFormField *field_;

 private:
  friend class FormReader;

  Saved save_as(std::string_view directory, const FileName &name) const noexcept {
    const detail::Terminated path(directory);
    if (path.c_str() == nullptr) return {name, ENOMEM};
    return {name, TarnFormField_save(field_, path.c_str(), name.c_str())};
  }
};

/** A field that a Form keeps. It can be copied, and what it returns is valid as long as the form.
 *
 *  It can be passed to any function that takes a Field. Its value can be read any number of times.
 *  read() starts from the beginning if another field was read in between.
 */
class KeptField : public Field {
 public:
  /** The whole value in blocks, from the beginning: in one block if it fits into the address space. */
  Blocks blocks() const noexcept { return Blocks({nullptr, field_}); }

 private:
  friend class Form;
  template <class, detail::Wanted>
  friend class detail::FieldRange;

  explicit KeptField(TarnFormField *field) noexcept : Field(field) {}
};

}  // namespace tarn

#ifdef __cpp_lib_ranges
template <>
inline constexpr bool std::ranges::enable_borrowed_range<tarn::Blocks> = true;
#endif

#endif  // TARN_FIELD_HPP
