/* Texts. */
#ifndef TARN_TEXT_HPP
#define TARN_TEXT_HPP

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "adopt.hpp"

namespace tarn {

/** A text of its own, or the reason why there is none. */
class Text {
 public:
  /** Takes over a block of malloc() that holds `size` bytes and a zero byte. Null is an empty text.
   */
  Text(Adopt, char *text, std::size_t size) noexcept : text_(text), size_(size) {}

  /** No text. @param problem  why; a constant text */
  static Text refused(const char *problem) noexcept {
    Text none(adopt, nullptr, 0);
    none.problem_ = problem;
    return none;
  }

  Text(Text &&other) noexcept
      : text_(std::exchange(other.text_, nullptr)),
        size_(std::exchange(other.size_, 0)),
        problem_(other.problem_) {}
  Text &operator=(Text &&other) noexcept {
    std::swap(text_, other.text_);
    std::swap(size_, other.size_);
    std::swap(problem_, other.problem_);
    return *this;
  }
  ~Text() { std::free(text_); }

  /** Tells whether there is a text, be it empty. */
  explicit operator bool() const noexcept { return problem_ == nullptr; }

  /** The text, good as long as this object. */
  std::string_view view() const &noexcept { return {c_str(), size_}; }
  std::string_view view() const && = delete;

  /** The text with a final zero byte; never null. */
  const char *c_str() const &noexcept { return text_ != nullptr ? text_ : ""; }
  const char *c_str() const && = delete;

  /** Why there is no text, in words for the server's log. @return a constant text; null when there
   *  is a text */
  const char *problem() const noexcept { return problem_; }

 private:
  char *text_ = nullptr;
  std::size_t size_ = 0;
  const char *problem_ = nullptr;
};

namespace detail {

// A text that grows in memory.
class Buffer {
 public:
  Buffer() noexcept = default;
  ~Buffer() { std::free(text_); }
  Buffer(const Buffer &) = delete;
  Buffer &operator=(const Buffer &) = delete;

  Buffer &operator<<(std::string_view text) noexcept {
    char *const place = text.empty() ? nullptr : reserve(text.size());
    if (place == nullptr) return *this;
    std::memcpy(place, text.data(), text.size());
    size_ += text.size();
    text_[size_] = '\0';
    return *this;
  }

  // What there is by now, good until more is written.
  std::string_view written() const noexcept { return {text_ != nullptr ? text_ : "", size_}; }

  Text take() noexcept {
    if (failed_) return Text::refused("memory has run out");
    room_ = 0;
    return {adopt, std::exchange(text_, nullptr), std::exchange(size_, 0)};
  }

 private:
  // Where so many bytes and a zero byte go; null without memory. What is missing once would leave a
  // gap, so that all is lost.
  char *reserve(std::size_t count) noexcept {
    if (failed_) return nullptr;
    const std::size_t needed = size_ + count + 1;
    if (needed > room_) {
      const std::size_t room = needed > 2 * room_ ? needed : 2 * room_;
      auto *grown = static_cast<char *>(std::realloc(text_, room));
      failed_ = grown == nullptr;
      if (failed_) return nullptr;
      text_ = grown;
      room_ = room;
    }
    return text_ + size_;
  }

  char *text_ = nullptr;
  std::size_t size_ = 0;
  std::size_t room_ = 0;
  bool failed_ = false;
};

}  // namespace detail

}  // namespace tarn

#endif  // TARN_TEXT_HPP
