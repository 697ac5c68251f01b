// Internal: the base classes of owning types.
#ifndef TARN_OBJECT_HPP
#define TARN_OBJECT_HPP

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "argument.hpp"
#include "view.hpp"

namespace tarn::detail {

// A null-terminated copy, for functions of tarn.h. c_str() is null if the allocation failed.
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

// The generic list inside a typed list, which is created if there is none. It holds the handles of
// the elements, which the typed list owns. 0 if the allocation failed.
inline TarnHandle handles_in(TarnHandle list, std::uint32_t magic) noexcept {
  if (CGIgs_getList(&list, TARN_LIST_ELEMENTS, magic) == 0) {
    TarnHandle handles = 0;
    TARNGenericList_new(&handles);
    if (CGIgs_setList(&list, TARN_LIST_ELEMENTS, &handles, magic) != TARN_OK)
      TARNGenericList_delete(&handles);
  }
  return CGIgs_getList(&list, TARN_LIST_ELEMENTS, magic);
}

// Moves an object to the end of a typed list. The functions of tarn.h would copy it.
template <class Element>
bool move_into(TarnHandle list, std::uint32_t magic, Element &object) noexcept {
  TarnHandle handles = handles_in(list, magic);
  if (!object || TARNGenericList_addDatum(&handles, *object.handle()) != TARN_OK) return false;
  static_cast<void>(object.release());
  return true;
}

// Moves all elements of one typed list to the end of another.
inline bool move_all_into(TarnHandle list, std::uint32_t magic, TarnHandle source) noexcept {
  TarnHandle handles = handles_in(list, magic);
  TarnHandle moved = handles_in(source, magic);
  const std::uint32_t count = TARNGenericList_getCount(&moved);
  const std::uint32_t room = TARNGenericList_getCount(&handles) + count;
  if (moved == 0 || TARNGenericList_reserve(&handles, room) != TARN_OK) return false;
  for (std::uint32_t i = 0; i < count; ++i) {
    TARNGenericList_addDatum(&handles, TARNGenericList_getByIndex(&moved, i));
  }
  TARNGenericList_clear(&moved);
  return true;
}

// The base of all owning types: deletes its object when it is destroyed.
template <class Self, std::uint32_t kMagic, auto kDelete, auto kClone>
class Owned {
 public:
  /** Takes ownership of an object and sets the handle to 0. An object of another type stays with
   *  the caller, and this one is empty. */
  Owned(Adopt, TarnHandle &handle) noexcept
      : handle_(CGIgs_IsA(&handle, kMagic) != 0 ? detail::exchanged(handle, 0) : 0) {}

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

  /** Tells whether there is an object. There is none after a move, after release(), and when an
   *  allocation failed. */
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

  /** Gives up ownership: the caller deletes the object. */
  [[nodiscard]] TarnHandle release() noexcept { return detail::exchanged(handle_, 0); }

 protected:
  Owned() noexcept = default;

  void reset() noexcept { kDelete(&handle_); }

  // Empties the object unless a step of building it succeeded.
  void reset_unless(bool succeeded) noexcept {
    if (!succeeded) reset();
  }

  void set_text(std::uint32_t slot, const TextArgument &text) noexcept {
    if (!text) return reset();
    const Terminated copy(text.view());
    CGIgs_setString(&handle_, slot, copy.c_str(), kMagic);
    // The status does not tell whether the copy was allocated.
    reset_unless(CGIgs_getString(&handle_, slot, kMagic) != nullptr);
  }

  // Moves an object, or all elements of a list, into the list in a slot.
  template <class Children, class Child>
  void append(std::uint32_t slot, Child &child) noexcept {
    reset_unless(move_into(list_in(slot, Children::magic), Children::magic, child));
  }
  template <class Children, class List>
  void append_all(std::uint32_t slot, List &list) noexcept {
    reset_unless(move_all_into(list_in(slot, Children::magic), Children::magic, *list.handle()));
  }

  TarnHandle handle_ = 0;

 private:
  // The list in a slot, which is created if there is none.
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

// The base of owning types that have a view.
template <class Self, class View, auto kDelete, auto kClone>
class Object : public Owned<Self, View::magic, kDelete, kClone> {
  using Base = Owned<Self, View::magic, kDelete, kClone>;

 public:
  using Base::Base;

  /** Views the object, until it is changed, moved from or destroyed. */
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

// The base of owning lists. Their elements are read as views.
template <class Self, class Element, class View, auto kDelete, auto kClone>
class List : public Object<Self, View, kDelete, kClone> {
  using Base = Object<Self, View, kDelete, kClone>;

 public:
  using Base::Base;

  List() noexcept = default;

  /** Moves an object to the end. */
  Self &add(Element &&object) &noexcept {
    this->reset_unless(move_into(this->handle_, View::magic, object));
    return static_cast<Self &>(*this);
  }
  Self &add(const Element &) & = delete;

  // The same on a list without a name.
  Self add(const Element &) && = delete;
  Self add(Element &&object) &&noexcept { return std::move(add(std::move(object))); }

  /** The number of elements. */
  std::size_t size() const noexcept { return View(this->handle_).size(); }
  bool empty() const noexcept { return size() == 0; }

  typename View::Iterator begin() const &noexcept { return this->view().begin(); }
  typename View::Iterator begin() const && = delete;
  typename View::Iterator end() const &noexcept { return this->view().end(); }
  typename View::Iterator end() const && = delete;

  /** The element at an index, counted from 0. @return a view without an object beyond the end */
  auto operator[](std::size_t index) const &noexcept { return this->view()[index]; }
  void operator[](std::size_t index) const && = delete;
};

}  // namespace tarn::detail

#endif  // TARN_OBJECT_HPP
