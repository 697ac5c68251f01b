// Internal: an array that grows.
#ifndef TARN_ARRAY_HPP
#define TARN_ARRAY_HPP

#include <cstddef>
#include <cstdlib>
#include <type_traits>
#include <utility>

namespace tarn::detail {

// An array that grows, in a block of malloc(). A std::vector would need the C++ runtime.
template <class Item>
class Array {
  static_assert(std::is_trivially_copyable_v<Item>, "realloc() moves the items");

 public:
  Array() noexcept = default;
  ~Array() { std::free(items_); }
  Array(const Array &) = delete;
  Array &operator=(const Array &) = delete;

  std::size_t size() const noexcept { return size_; }
  Item *data() noexcept { return items_; }
  const Item *data() const noexcept { return items_; }
  Item &last() noexcept { return items_[size_ - 1]; }

  // Room for so many items at the end; null if the allocation failed. extend() makes them part of
  // the array.
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
    return std::exchange(items_, nullptr);
  }

 private:
  Item *items_ = nullptr;
  std::size_t size_ = 0;
  std::size_t room_ = 0;
};

}  // namespace tarn::detail

#endif  // TARN_ARRAY_HPP
