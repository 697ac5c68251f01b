/* Texts and reasons for refusal. */
#ifndef TARN_TEXT_HPP
#define TARN_TEXT_HPP

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "adopt.hpp"

namespace tarn {

/** A text, or the reason why there is none. */
class Text {
 public:
  /** Takes ownership of a block of malloc() that holds `size` bytes and a zero byte. Null and 0 are
   *  an empty text. */
  Text(Adopt, char *text, std::size_t size) noexcept : text_(text), size_(size) {}

  /** No text. @param problem  why; must be a string literal or live as long as the process */
  static Text refused(const char *problem) noexcept {
    Text none(adopt, nullptr, 0);
    none.problem_ = problem;
    return none;
  }

  // There is no text in `other` afterwards.
  Text(Text &&other) noexcept
      : text_(detail::exchanged(other.text_, nullptr)),
        size_(detail::exchanged(other.size_, 0)),
        problem_(detail::exchanged(other.problem_, "text was moved from")) {}
  Text &operator=(Text &&other) noexcept {
    Text moved(std::move(other));
    detail::swap_values(text_, moved.text_);
    detail::swap_values(size_, moved.size_);
    detail::swap_values(problem_, moved.problem_);
    return *this;
  }
  ~Text() { std::free(text_); }

  /** Tells whether there is a text, even if it is empty. */
  explicit operator bool() const noexcept { return problem_ == nullptr; }

  /** The text, valid as long as this object. A temporary object ends with the statement: pass its
   *  view to a function, but do not keep it. */
  std::string_view view() const noexcept TARN_LIFETIMEBOUND { return {c_str(), size_}; }

  /** The text, null-terminated and never null; valid as view(). */
  const char *c_str() const noexcept TARN_LIFETIMEBOUND { return text_ != nullptr ? text_ : ""; }

  /** Why there is no text, in words for the server's log. @return a constant text; null when there
   *  is a text */
  const char *problem() const noexcept { return problem_; }

 private:
  char *text_ = nullptr;
  std::size_t size_ = 0;
  const char *problem_ = nullptr;
};

namespace detail {

inline constexpr const char *kOutOfMemory = "out of memory";

// An array that grows, in a block of malloc(). A std::vector would need the C++ runtime.
// __is_trivially_copyable is what std::is_trivially_copyable asks, after other templates.
template <class Item>
class Array {
  static_assert(__is_trivially_copyable(Item), "realloc() moves the items");

 public:
  Array() noexcept = default;
  Array(Array &&other) noexcept
      : items_(detail::exchanged(other.items_, nullptr)),
        size_(detail::exchanged(other.size_, 0)),
        room_(detail::exchanged(other.room_, 0)) {}
  ~Array() { std::free(items_); }
  Array(const Array &) = delete;
  Array &operator=(const Array &) = delete;

  std::size_t size() const noexcept { return size_; }
  Item *data() noexcept { return items_; }
  const Item *data() const noexcept { return items_; }
  Item &last() noexcept { return items_[size_ - 1]; }

  // Room for so many items at the end, at least one; null if the allocation failed. extend() makes
  // them part of the array.
  Item *reserve(std::size_t count) noexcept {
    const std::size_t needed = size_ + count;
    if (needed > room_) {
      const std::size_t room = needed > 2 * room_ ? needed : 2 * room_;
      auto *grown = static_cast<Item *>(std::realloc(items_, room * sizeof(Item)));
      if (grown == nullptr) return nullptr;
      items_ = grown;
      room_ = room;
    }
    return items_ + size_;
  }
  void extend(std::size_t count) noexcept { size_ += count; }

  // False if the allocation failed.
  bool push(const Item &item) noexcept {
    Item *const place = reserve(1);
    if (place == nullptr) return false;
    *place = item;
    extend(1);
    return true;
  }
  Item pop() noexcept { return items_[--size_]; }

  // Gives the block to the caller. The array is empty then.
  Item *release() noexcept {
    size_ = room_ = 0;
    return detail::exchanged(items_, nullptr);
  }

 private:
  Item *items_ = nullptr;
  std::size_t size_ = 0;
  std::size_t room_ = 0;
};

// A text in the making.
class Buffer {
 public:
  Buffer &operator<<(std::string_view text) noexcept {
    if (text.empty() || failed_) return *this;
    char *const place = text_.reserve(text.size() + 1);
    failed_ = place == nullptr;
    if (failed_) return *this;
    std::memcpy(place, text.data(), text.size());
    place[text.size()] = '\0';
    text_.extend(text.size());
    return *this;
  }

  // Room for so many bytes at the end; null if the allocation failed. extend() makes them part of the
  // text.
  char *room(std::size_t most) noexcept {
    char *const place = failed_ ? nullptr : text_.reserve(most + 1);
    failed_ = place == nullptr;
    return place;
  }
  void extend(std::size_t count) noexcept {
    text_.extend(count);
    text_.data()[text_.size()] = '\0';
  }

  // The text so far, valid until more is written.
  std::string_view written() const noexcept {
    return {text_.data() != nullptr ? text_.data() : "", text_.size()};
  }

  // After a failed allocation the text would have a gap, so there is none.
  Text take() noexcept {
    if (failed_) return Text::refused(kOutOfMemory);
    const std::size_t size = text_.size();
    return {adopt, text_.release(), size};
  }

 private:
  Array<char> text_;
  bool failed_ = false;
};

}  // namespace detail
}  // namespace tarn

#endif  // TARN_TEXT_HPP
