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

/** A string that grows: TARNString as a class. */
class String : public detail::Owned<String, TARN_STRING_MAGIC, TARNString_delete, TARNString_dup> {
 public:
  using Owned::Owned;

  /** Makes a string from a text. */
  explicit String(std::string_view text = {}) noexcept {
    reset_unless(TARNString_new(&handle_) == TARN_OK && append(text));
  }

  /** The text, valid until the string changes. */
  std::string_view view() const &noexcept { return c_str(); }
  std::string_view view() const && = delete;

  /** The text, null-terminated, valid until the string changes; never null. */
  const char *c_str() const &noexcept {
    const char *text = detail::query<TARNString_c_str>(handle_);
    return text != nullptr ? text : "";
  }
  const char *c_str() const && = delete;

  /** The length in bytes. */
  std::size_t size() const noexcept { return detail::query<TARNString_length>(handle_); }
  bool empty() const noexcept { return size() == 0; }

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
  bool append(std::string_view text) noexcept { return insert(size(), text); }

  /** Inserts a text.
   *
   *  @param position  in bytes; beyond the end, nothing is inserted
   *  @param text      may be part of the string itself
   *  @return false if nothing was inserted; if that is because an allocation failed, the string is
   *          empty
   */
  bool insert(std::size_t position, std::string_view text) noexcept {
    if (handle_ == 0 || position > size() || text.size() > INT32_MAX) return false;
    // Stops at a zero byte, behind which nothing could be read. To TARNString_insertn(), 0 would
    // mean the length of a null-terminated text.
    const std::size_t count = text.empty() ? 0 : strnlen(text.data(), text.size());
    if (count == 0) return true;
    return TARNString_insertn(&handle_, text.data(), 0, static_cast<std::uint32_t>(count),
                              static_cast<std::uint32_t>(position)) == TARN_OK;
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
    if (position >= size() || count == 0) return;
    const std::size_t least = size() - position < count ? size() - position : count;
    TARNString_remove(&handle_, static_cast<std::uint32_t>(position),
                      static_cast<std::uint32_t>(least));
  }

  /** Removes the whole text. */
  void clear() noexcept { remove(0, size()); }
};

}  // namespace tarn

#endif  // TARN_STRING_HPP
