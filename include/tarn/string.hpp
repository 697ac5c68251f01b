/* Strings. */
#ifndef TARN_STRING_HPP
#define TARN_STRING_HPP

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "object.hpp"

namespace tarn {
namespace detail {

// The beginning of a TARNString, which is part of the interface.
struct StringRecord {
  std::uint32_t magic;
  std::int32_t capacity;
  char *buffer;
};

inline StringRecord record_of(TarnHandle string) noexcept {
  StringRecord record;
  std::memcpy(&record, reinterpret_cast<const void *>(string), sizeof record);
  return record;
}

}  // namespace detail

/** A string that grows: TARNString as a class.
 *
 *  append() takes time in proportion to what it appends. After a call of handle() functions of tarn.h
 *  may change the string, so append() then searches for its end, as they do.
 */
class String : public detail::Owned<String, TARN_STRING_MAGIC, TARNString_delete, TARNString_dup> {
 public:
  using Owned::Owned;

  /** Makes a string from a text. */
  explicit String(const detail::TextArgument &text = "") noexcept {
    reset_unless(TARNString_new(&handle_) == TARN_OK);
    is_known_ = true;
    reset_unless(text && append(text.view()));
  }

  String(String &&other) noexcept
      : Owned(std::move(other)),
        size_(detail::exchanged(other.size_, 0)),
        is_known_(other.is_known_) {}
  // Somebody may have the address of either handle.
  String &operator=(String &&other) noexcept {
    Owned::operator=(static_cast<Owned &&>(other));
    size_ = this != &other ? detail::exchanged(other.size_, 0) : size_;
    is_known_ = is_known_ && other.is_known_;
    return *this;
  }

  /** The text, valid until the string changes. */
  std::string_view view() const &noexcept TARN_LIFETIMEBOUND { return {c_str(), size()}; }
  std::string_view view() const && = delete;

  /** The text, null-terminated, valid until the string changes; never null. */
  const char *c_str() const &noexcept TARN_LIFETIMEBOUND {
    const char *text = detail::query(TARNString_c_str, handle_);
    return text != nullptr ? text : "";
  }
  const char *c_str() const && = delete;

  /** The length in bytes. */
  std::size_t size() const noexcept {
    if (handle_ == 0) return 0;
    return is_known_ ? size_ : detail::query(TARNString_length, handle_);
  }
  bool empty() const noexcept { return size() == 0; }

  /** A copy of the string. */
  [[nodiscard]] String clone() const noexcept {
    String copy = Owned::clone();
    copy.size_ = copy.size();
    copy.is_known_ = true;
    return copy;
  }

  /** The address to pass to functions of tarn.h. */
  TarnHandle *handle() &noexcept {
    is_known_ = false;
    return &handle_;
  }

  /** Makes room for a text, so that the string can grow to it without an allocation.
   *
   *  @param size  of the whole text, in bytes
   *  @return false if the allocation failed; the string is unchanged then
   */
  bool reserve(std::size_t size) noexcept {
    if (handle_ == 0 || size >= INT32_MAX) return false;
    const std::size_t used = this->size();
    if (size > used) TARNString_reserve(&handle_, static_cast<std::uint32_t>(size - used + 1));
    return size <= used || has_room(used, size - used);
  }

  /** Replaces the text.
   *
   *  @param text  may be part of the string itself
   *  @return false if an allocation failed; the string is unchanged then
   */
  bool assign(std::string_view text) noexcept {
    String made(text);
    if (!made) return false;
    *this = std::move(made);
    return true;
  }

  /** Appends a text.
   *
   *  @param text  may be part of the string itself
   *  @return false if an allocation failed; the string is empty then
   */
  bool append(std::string_view text) noexcept {
    if (handle_ == 0 || text.size() > INT32_MAX) return false;
    const std::size_t count = count_of(text);
    if (count == 0) return true;
    if (!is_known_) {
      return TARNString_appendn(&handle_, text.data(), 0, static_cast<std::uint32_t>(count)) ==
             TARN_OK;
    }
    if (has_room(size_, count)) {
      char *const end = detail::record_of(handle_).buffer + size_;
      std::memcpy(end, text.data(), count);
      end[count] = '\0';
      size_ += count;
      return true;
    }
    // The text may be part of the string, so it is appended before the string makes more room.
    if (!insert(size_, text)) return false;
    if (size_ < INT32_MAX / 2) reserve(2 * size_);
    return true;
  }

  /** Appends a text, as append() does. If an allocation fails, the string is empty. */
  String &operator+=(std::string_view text) &noexcept {
    append(text);
    return *this;
  }
  String &operator+=(std::nullptr_t) & = delete;

  /** Inserts a text.
   *
   *  @param position  in bytes; beyond the end, nothing is inserted
   *  @param text      may be part of the string itself
   *  @return false if nothing was inserted; if that is because an allocation failed, the string is
   *          empty
   */
  bool insert(std::size_t position, std::string_view text) noexcept {
    if (handle_ == 0 || position > size() || text.size() > INT32_MAX) return false;
    const std::size_t count = count_of(text);
    if (count == 0) return true;
    const TarnStatus status =
        TARNString_insertn(&handle_, text.data(), 0, static_cast<std::uint32_t>(count),
                           static_cast<std::uint32_t>(position));
    size_ = status == TARN_OK ? size_ + count : 0;
    return status == TARN_OK;
  }

  /** Appends formatted text.
   *
   *  @param format  as for printf(); never a text that a visitor sent
   *  @return false if nothing was appended
   */
  bool append_format(const char *format, ...) noexcept  // NOLINT(cert-dcl50-cpp): as printf()
      TARN_PRINTF(2, 3) {
    va_list args;
    va_start(args, format);
    char *text = nullptr;
    tarn_vasprintf(&text, format, args);
    va_end(args);
    const bool done = text != nullptr && append(text);
    std::free(text);
    return done;
  }

  /** Removes bytes. A position beyond the end removes nothing.
   *
   *  @param count  in bytes; a larger number than there are removes all up to the end
   */
  void remove(std::size_t position, std::size_t count) noexcept {
    const std::size_t used = size();
    if (position >= used || count == 0) return;
    const std::size_t least = used - position < count ? used - position : count;
    TARNString_remove(&handle_, static_cast<std::uint32_t>(position),
                      static_cast<std::uint32_t>(least));
    size_ -= least;
  }

  /** Removes the whole text. */
  void clear() noexcept { remove(0, size()); }

 private:
  friend bool operator==(const String &a, std::string_view b) noexcept { return a.view() == b; }
  friend bool operator==(const String &a, const String &b) noexcept { return a == b.view(); }
  friend bool operator==(std::string_view a, const String &b) noexcept { return b == a; }
  friend bool operator!=(const String &a, std::string_view b) noexcept { return !(a == b); }
  friend bool operator!=(const String &a, const String &b) noexcept { return !(a == b); }
  friend bool operator!=(std::string_view a, const String &b) noexcept { return !(a == b); }

  // Stops at a zero byte, behind which nothing could be read. To functions of tarn.h, 0 would mean
  // the length of a null-terminated text.
  static std::size_t count_of(std::string_view text) noexcept {
    return text.empty() ? 0 : strnlen(text.data(), text.size());
  }

  bool has_room(std::size_t used, std::size_t more) const noexcept {
    const detail::StringRecord record = detail::record_of(handle_);
    return record.buffer != nullptr && used + more < static_cast<std::size_t>(record.capacity);
  }

  std::size_t size_ = 0;
  // Whether `size_` is the length: until somebody else gets to the handle.
  bool is_known_ = false;
};

}  // namespace tarn

#endif  // TARN_STRING_HPP
