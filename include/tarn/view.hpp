// Internal: the base classes of views and ranges.
#ifndef TARN_VIEW_HPP
#define TARN_VIEW_HPP

// The iterator tags come from <string_view>, which declares them for its own iterators. <iterator>
// also includes streams, and would double the time that this header takes to compile.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

#include "../tarn.h"
#include "adopt.hpp"

namespace tarn {
class Request;
}

namespace tarn::detail {

inline std::optional<std::string_view> optional_text(const char *text) noexcept {
  if (text == nullptr) return {};
  return std::string_view(text);
}

// Calls a function that only reads its object. Such functions take the address of a handle too; they
// get the address of a copy, so that const objects can be read. The function is an argument: a template
// for each of them would take compilers longer.
template <class Result, class... Parameters, class... Arguments>
Result query(Result (*function)(TarnHandle *, Parameters...), TarnHandle object,
             Arguments... arguments) noexcept {
  return function(&object, arguments...);
}

// The bytes in a byte buffer.
inline std::string_view bytes_of(TarnHandle buffer) noexcept {
  const std::uintptr_t bytes = CGIgs_getFixed(&buffer, TARN_BYTE_BUFFER_MAGIC);
  return {reinterpret_cast<const char *>(bytes),
          CGIgs_getInt(&buffer, TARN_BYTE_BUFFER_LENGTH, TARN_BYTE_BUFFER_MAGIC)};
}

// The base of all views of nodes.
template <std::uint32_t kMagic>
class NodeView {
 public:
  /** The type tag of the object. */
  static constexpr std::uint32_t magic = kMagic;

  /** Views the object with this handle; 0 for no object. */
  explicit NodeView(TarnHandle handle) noexcept : handle_(handle) {}

  /** Tells whether the view has an object. */
  explicit operator bool() const noexcept { return handle_ != 0; }

  /** The address to pass to functions of tarn.h that read. Never delete the object through it. */
  TarnHandle *handle() &noexcept { return &handle_; }

 protected:
  std::optional<std::string_view> text_in(std::uint32_t slot) const noexcept {
    return optional_text(query(CGIgs_getString, handle_, slot, kMagic));
  }
  std::uint32_t number_in(std::uint32_t slot) const noexcept {
    return query(CGIgs_getInt, handle_, slot, kMagic);
  }
  TarnHandle child_in(std::uint32_t slot) const noexcept {
    return query(CGIgs_getStruct, handle_, slot, kMagic);
  }

  TarnHandle handle_;
};

// What an iterator's -> returns: iterators make their item on the spot, so something has to hold it.
template <class Item>
struct Arrow {
  Item item;
  const Item *operator->() const noexcept { return &item; }
};

struct CutParts;

// Where an iterator of a Range is. All of them are compared here, because compilers take long to
// declare these operators for each Range.
class Position {
 public:
  Position() noexcept = default;

  friend std::ptrdiff_t operator-(const Position &a, const Position &b) noexcept {
    return a.index_ - b.index_;
  }
  friend bool operator==(const Position &a, const Position &b) noexcept {
    return a.index_ == b.index_;
  }
  friend bool operator!=(const Position &a, const Position &b) noexcept {
    return a.index_ != b.index_;
  }
  friend bool operator<(const Position &a, const Position &b) noexcept {
    return a.index_ < b.index_;
  }
  friend bool operator>(const Position &a, const Position &b) noexcept {
    return a.index_ > b.index_;
  }
  friend bool operator<=(const Position &a, const Position &b) noexcept {
    return a.index_ <= b.index_;
  }
  friend bool operator>=(const Position &a, const Position &b) noexcept {
    return a.index_ >= b.index_;
  }

 protected:
  Position(TarnHandle list, CutParts *cut_parts, std::ptrdiff_t index) noexcept
      : list_(list), cut_parts_(cut_parts), index_(index) {}

  TarnHandle list_ = 0;
  CutParts *cut_parts_ = nullptr;
  std::ptrdiff_t index_ = 0;
};

// A view of a list. Its items are made when they are asked for. Files of a request also know which
// parts of its body were cut.
template <class Item, std::uint32_t kMagic, auto kCount, auto kAt>
class Range {
 public:
  /** The type tag of the list. */
  static constexpr std::uint32_t magic = kMagic;

  class Iterator : public Position {
   public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = Item;
    using difference_type = std::ptrdiff_t;
    using pointer = Arrow<Item>;
    using reference = Item;

    Iterator() noexcept = default;
    Iterator(TarnHandle list, CutParts *cut_parts, difference_type index) noexcept
        : Position(list, cut_parts, index) {}

    Item operator*() const noexcept { return item_at(list_, cut_parts_, index_); }
    pointer operator->() const noexcept { return {**this}; }
    Item operator[](difference_type n) const noexcept { return *(*this + n); }

    Iterator &operator+=(difference_type n) noexcept {
      index_ += n;
      return *this;
    }
    Iterator &operator-=(difference_type n) noexcept { return *this += -n; }
    Iterator &operator++() noexcept { return *this += 1; }
    Iterator &operator--() noexcept { return *this += -1; }
    Iterator operator++(int) noexcept { return detail::exchanged(*this, *this + 1); }
    Iterator operator--(int) noexcept { return detail::exchanged(*this, *this - 1); }

    friend Iterator operator+(Iterator i, difference_type n) noexcept { return i += n; }
    friend Iterator operator+(difference_type n, Iterator i) noexcept { return i += n; }
    friend Iterator operator-(Iterator i, difference_type n) noexcept { return i -= n; }
  };

  using value_type = Item;
  using iterator = Iterator;
  using const_iterator = Iterator;
  using size_type = std::size_t;
  using difference_type = std::ptrdiff_t;

  /** Views a list. @param list  its handle; 0 for an empty list */
  explicit Range(TarnHandle list) noexcept : list_(list) {}

  /** The number of elements. */
  std::size_t size() const noexcept { return static_cast<std::size_t>(query(kCount, list_)); }
  bool empty() const noexcept { return size() == 0; }

  Iterator begin() const noexcept { return {list_, cut_parts_, 0}; }
  Iterator end() const noexcept { return {list_, cut_parts_, static_cast<std::ptrdiff_t>(size())}; }

  /** The element at an index, counted from 0. @return an Item without an object beyond the end */
  Item operator[](std::size_t index) const noexcept {
    return item_at(list_, cut_parts_, static_cast<std::ptrdiff_t>(index));
  }

 private:
  friend class ::tarn::Request;

  Range(TarnHandle list, CutParts *cut_parts) noexcept : list_(list), cut_parts_(cut_parts) {}

  static Item item_at(TarnHandle list, CutParts *cut_parts, std::ptrdiff_t index) noexcept {
    // No list has so many elements.
    const bool fits = index >= 0 && static_cast<std::uint64_t>(index) < UINT32_MAX;
    const auto found = query(kAt, list, fits ? static_cast<std::uint32_t>(index) : UINT32_MAX);
    if constexpr (std::is_base_of_v<NodeView<TARN_FORM_FILE_MAGIC>, Item>) {
      return Item(found, cut_parts);
    } else {
      return Item(found);
    }
  }

  TarnHandle list_;
  CutParts *cut_parts_ = nullptr;
};

}  // namespace tarn::detail

// Iterators outlive the ranges that they come from: what they view is in the owner.
#ifdef __cpp_lib_ranges
template <class Item, std::uint32_t kMagic, auto kCount, auto kAt>
inline constexpr bool
    std::ranges::enable_borrowed_range<tarn::detail::Range<Item, kMagic, kCount, kAt>> = true;
#endif

#endif  // TARN_VIEW_HPP
