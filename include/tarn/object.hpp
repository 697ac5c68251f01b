/* Objects. */
#ifndef TARN_OBJECT_HPP
#define TARN_OBJECT_HPP

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "view.hpp"

namespace tarn {

namespace detail {

// A copy with the final zero byte that the C interface wants; null without memory.
class Terminated {
 public:
  explicit Terminated(std::string_view text) noexcept
      : text_(strndup(text.empty() ? "" : text.data(), text.size())) {}
  ~Terminated() { std::free(text_); }
  Terminated(const Terminated &) = delete;
  Terminated &operator=(const Terminated &) = delete;

  const char *c_str() const noexcept { return text_; }

 private:
  char *text_;
};

// The generic list of a typed list, which owns what the words in it name; 0 without memory.
inline TarnHandle words_of(TarnHandle list, std::uint32_t magic) noexcept {
  if (CGIgs_getList(&list, TARN_LIST_ELEMENTS, magic) == 0) {
    TarnHandle words = 0;
    TARNGenericList_new(&words);
    if (CGIgs_setList(&list, TARN_LIST_ELEMENTS, &words, magic) != TARN_OK)
      TARNGenericList_delete(&words);
  }
  return CGIgs_getList(&list, TARN_LIST_ELEMENTS, magic);
}

// Hands an object over to a typed list, where the C interface would copy it.
template <class Element>
bool hand_over(TarnHandle list, std::uint32_t magic, Element &object) noexcept {
  TarnHandle words = words_of(list, magic);
  if (!object || TARNGenericList_addDatum(&words, *object.handle()) != TARN_OK) return false;
  static_cast<void>(object.release());
  return true;
}

// Hands over all that a typed list owns.
inline bool hand_over_all(TarnHandle list, std::uint32_t magic, TarnHandle from) noexcept {
  TarnHandle words = words_of(list, magic);
  TarnHandle given = words_of(from, magic);
  const std::uint32_t count = TARNGenericList_getCount(&given);
  const std::uint32_t room = TARNGenericList_getCount(&words) + count;
  if (given == 0 || TARNGenericList_reserve(&words, room) != TARN_OK) return false;
  for (std::uint32_t i = 0; i < count; ++i) {
    TARNGenericList_addDatum(&words, TARNGenericList_getByIndex(&given, i));
  }
  TARNGenericList_clear(&given);
  return true;
}

// What all owning types share: the object behind the handle goes with them.
template <class Self, std::uint32_t kMagic, auto kDelete, auto kClone>
class Owned {
 public:
  /** Takes an object over and sets the handle to 0; one of another type stays, and nothing is held.
   */
  Owned(Adopt, TarnHandle &handle) noexcept
      : handle_(CGIgs_IsA(&handle, kMagic) != 0 ? std::exchange(handle, 0) : 0) {}

  Owned(Owned &&other) noexcept : handle_(other.release()) {}
  Owned &operator=(Owned &&other) noexcept {
    if (this != &other) {
      reset();
      handle_ = other.release();
    }
    return *this;
  }
  Owned(const Owned &) = delete;
  Owned &operator=(const Owned &) = delete;
  ~Owned() { reset(); }

  /** Tells whether there is an object: not after a move or release(), nor when memory ran out. */
  explicit operator bool() const noexcept { return handle_ != 0; }

  /** A copy with all that belongs to the object. */
  [[nodiscard]] Self clone() const noexcept {
    TarnHandle own = handle_;
    TarnHandle made = 0;
    if (own == 0 || kClone(&own, &made) != TARN_OK) kDelete(&made);
    return Self(adopt, made);
  }

  /** The address to pass to functions of tarn.h. */
  TarnHandle *handle() &noexcept { return &handle_; }

  /** Gives the object away; whoever receives the handle deletes it. */
  [[nodiscard]] TarnHandle release() noexcept { return std::exchange(handle_, 0); }

 protected:
  Owned() noexcept = default;

  void reset() noexcept { kDelete(&handle_); }

  // Keeps the object as long as all goes well.
  void require(bool done) noexcept {
    if (!done) reset();
  }

  void set_text(std::uint32_t slot, std::string_view text) noexcept {
    const Terminated copy(text);
    CGIgs_setString(&handle_, slot, copy.c_str(), kMagic);
    // The status does not tell that there was no memory.
    require(CGIgs_getString(&handle_, slot, kMagic) != nullptr);
  }

  // Takes an object, or all that a list owns, over into the list in a slot.
  template <class Children, class Child>
  void keep(std::uint32_t slot, Child &child) noexcept {
    require(hand_over(list_in(slot, Children::magic), Children::magic, child));
  }
  template <class Children, class List>
  void keep_all(std::uint32_t slot, List &list) noexcept {
    require(hand_over_all(list_in(slot, Children::magic), Children::magic, *list.handle()));
  }

  TarnHandle handle_ = 0;

 private:
  // The list in a slot, which begins empty.
  TarnHandle list_in(std::uint32_t slot, std::uint32_t magic) noexcept {
    if (CGIgs_getStruct(&handle_, slot, kMagic) == 0) {
      TarnHandle empty = 0;
      CGIgs_new(&empty, magic);
      CGIgs_setStruct(&handle_, slot, &empty, kMagic, magic);
      CGIgs_delete(&empty, magic);
    }
    return CGIgs_getStruct(&handle_, slot, kMagic);
  }
};

// An owning type that is read through a view.
template <class Self, class View, auto kDelete, auto kClone>
class Object : public Owned<Self, View::magic, kDelete, kClone> {
  using Base = Owned<Self, View::magic, kDelete, kClone>;

 public:
  using Base::Base;

  /** Reads the object. The view lives until the object is changed, moved from or gone. */
  View view() const &noexcept { return View(this->handle_); }
  View view() const && = delete;

 protected:
  Object() noexcept { CGIgs_new(&this->handle_, View::magic); }
};

template <std::uint32_t kMagic>
TarnStatus delete_node(TarnHandle *handle) noexcept {
  return CGIgs_delete(handle, kMagic);
}

template <std::uint32_t kMagic>
TarnStatus clone_node(TarnHandle *source, TarnHandle *copy) noexcept {
  return CGIgs_clone(source, copy, kMagic);
}

// An owning list. Its elements are lent as views.
template <class Self, class Element, class View, auto kDelete, auto kClone>
class List : public Object<Self, View, kDelete, kClone> {
  using Base = Object<Self, View, kDelete, kClone>;

 public:
  using Base::Base;

  List() noexcept = default;

  /** Takes an object over as the last one. */
  Self &add(Element &&object) &noexcept {
    this->require(hand_over(this->handle_, View::magic, object));
    return static_cast<Self &>(*this);
  }
  Self &add(const Element &) & = delete;

  /** Counts the elements. */
  std::size_t size() const noexcept { return View(this->handle_).size(); }
  bool empty() const noexcept { return size() == 0; }

  typename View::Iterator begin() const &noexcept { return this->view().begin(); }
  typename View::Iterator begin() const && = delete;
  typename View::Iterator end() const &noexcept { return this->view().end(); }
  typename View::Iterator end() const && = delete;

  /** The element at an index, counted from 0. @return a view that has no object beyond the end */
  auto operator[](std::size_t index) const &noexcept { return this->view()[index]; }
  void operator[](std::size_t index) const && = delete;
};

}  // namespace detail

}  // namespace tarn

#endif  // TARN_OBJECT_HPP
