/* Tarn for C++: the interface of tarn.h as types that own, view and check.
 *
 * One header over the C interface, C++17: nothing to compile, nothing exported. It throws nothing,
 * and a script that is compiled with -fno-exceptions needs no C++ runtime for it. (The C++ library's
 * own checks, -D_GLIBCXX_ASSERTIONS, do: link with -lstdc++ then.)
 *
 * Conventions that hold for every type and function:
 *
 *  1. Ownership. A type such as Element or Cookie owns its object and releases it. It can be moved;
 *     a copy is asked for by clone(). What takes an object as an rvalue (an element its children)
 *     takes it over, without a copy.
 *  2. Views. A type such as ElementView, Entry or File reads an object that belongs to another one.
 *     It is as small as a pointer and copied like one, and lives as long as what lent it: until
 *     that is changed, moved from or gone. So does every std::string_view. A view of a temporary
 *     object does not compile.
 *  3. Missing and empty. What may be missing is a std::optional: nothing is not the empty text.
 *  4. Texts. A text that you pass is a std::string_view and is copied; it counts up to its first
 *     zero byte, as all texts of the interface do. Names to look for are `const char *`. Neither
 *     may be a null pointer. A text that is lent has a zero byte after its end; bytes() and body()
 *     may have some in the middle too.
 *  5. Memory. What could not be made whole holds nothing, and neither does what it was to be part
 *     of: `if (!element)` asks. Only a clone() lacks silently what memory did not suffice for.
 *  6. C. handle() gives the address that a function of tarn.h takes, release() gives an object
 *     away, and each type has a constructor `(tarn::adopt, handle)` that takes one over.
 *  7. Threads. As in tarn.h: no object may be used from two threads at once.
 */
#ifndef TARN_HPP
#define TARN_HPP

#if __cplusplus < 201703L
#error "tarn.hpp is C++17: compile with -std=c++17 or a later one"
#endif

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

#include "tarn.h"

namespace tarn {

// libtarn.a has types of its own in namespace tarn. A script's are others.
inline namespace script {

/** Marks the constructors that take an object over: `Element(tarn::adopt, handle)`. */
struct Adopt {
  explicit Adopt() = default;
};
/** What those constructors take: the only Adopt there need be. */
inline constexpr Adopt adopt{};

// ---- Detail -------------------------------------------------------------------------------------

namespace detail {

inline std::optional<std::string_view> maybe(const char *text) noexcept {
  if (text == nullptr) return std::nullopt;
  return std::string_view(text);
}

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

// Asks an object that is not to be changed. The C interface takes the address of a handle for that
// too.
template <auto kFunction, class... Arguments>
auto ask(TarnHandle object, Arguments... arguments) noexcept {
  return kFunction(&object, arguments...);
}

// What a byte buffer holds.
inline std::string_view bytes_of(TarnHandle buffer) noexcept {
  const std::uintptr_t bytes = CGIgs_getFixed(&buffer, TARN_BYTE_BUFFER_MAGIC);
  return {reinterpret_cast<const char *>(bytes),
          CGIgs_getInt(&buffer, TARN_BYTE_BUFFER_LENGTH, TARN_BYTE_BUFFER_MAGIC)};
}

// What all views of nodes share.
template <std::uint32_t kMagic>
class Lent {
 public:
  /** The type tag of the object. */
  static constexpr std::uint32_t magic = kMagic;

  /** Views the object behind a handle; 0 is none. */
  explicit Lent(TarnHandle handle) noexcept : handle_(handle) {}

  /** Tells whether the view has an object. */
  explicit operator bool() const noexcept { return handle_ != 0; }

  /** The address to pass to functions of tarn.h that read; never delete through it. */
  TarnHandle *handle() &noexcept { return &handle_; }

 protected:
  std::optional<std::string_view> text_in(std::uint32_t slot) const noexcept {
    return maybe(ask<CGIgs_getString>(handle_, slot, kMagic));
  }
  std::uint32_t number_in(std::uint32_t slot) const noexcept {
    return ask<CGIgs_getInt>(handle_, slot, kMagic);
  }
  TarnHandle child_in(std::uint32_t slot) const noexcept {
    return ask<CGIgs_getStruct>(handle_, slot, kMagic);
  }

  TarnHandle handle_;
};

// What an iterator's -> goes through, since the item is made on the spot.
template <class Item>
struct Arrow {
  Item item;
  const Item *operator->() const noexcept { return &item; }
};

// What a list lends: an Item for each of its elements, made when it is asked for.
template <class Item, std::uint32_t kMagic, auto kCount, auto kAt>
class Range {
 public:
  /** The type tag of the list. */
  static constexpr std::uint32_t magic = kMagic;

  class Iterator {
   public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = Item;
    using difference_type = std::ptrdiff_t;
    using pointer = Arrow<Item>;
    using reference = Item;

    Iterator() noexcept = default;
    Iterator(TarnHandle list, difference_type index) noexcept : list_(list), index_(index) {}

    Item operator*() const noexcept {
      return Item(ask<kAt>(list_, static_cast<std::uint32_t>(index_)));
    }
    pointer operator->() const noexcept { return {**this}; }
    Item operator[](difference_type n) const noexcept { return *(*this + n); }

    Iterator &operator+=(difference_type n) noexcept {
      index_ += n;
      return *this;
    }
    Iterator &operator-=(difference_type n) noexcept { return *this += -n; }
    Iterator &operator++() noexcept { return *this += 1; }
    Iterator &operator--() noexcept { return *this += -1; }
    Iterator operator++(int) noexcept { return std::exchange(*this, *this + 1); }
    Iterator operator--(int) noexcept { return std::exchange(*this, *this - 1); }

    friend Iterator operator+(Iterator i, difference_type n) noexcept { return i += n; }
    friend Iterator operator+(difference_type n, Iterator i) noexcept { return i += n; }
    friend Iterator operator-(Iterator i, difference_type n) noexcept { return i -= n; }
    friend difference_type operator-(Iterator a, Iterator b) noexcept {
      return a.index_ - b.index_;
    }
    friend bool operator==(Iterator a, Iterator b) noexcept { return a.index_ == b.index_; }
    friend bool operator!=(Iterator a, Iterator b) noexcept { return a.index_ != b.index_; }
    friend bool operator<(Iterator a, Iterator b) noexcept { return a.index_ < b.index_; }
    friend bool operator>(Iterator a, Iterator b) noexcept { return a.index_ > b.index_; }
    friend bool operator<=(Iterator a, Iterator b) noexcept { return a.index_ <= b.index_; }
    friend bool operator>=(Iterator a, Iterator b) noexcept { return a.index_ >= b.index_; }

   private:
    TarnHandle list_ = 0;
    difference_type index_ = 0;
  };

  using value_type = Item;
  using iterator = Iterator;
  using const_iterator = Iterator;
  using size_type = std::size_t;
  using difference_type = std::ptrdiff_t;

  /** Views the list behind a handle; 0 is an empty one. */
  explicit Range(TarnHandle list) noexcept : list_(list) {}

  /** Counts the elements. */
  std::size_t size() const noexcept { return static_cast<std::size_t>(ask<kCount>(list_)); }
  bool empty() const noexcept { return size() == 0; }

  Iterator begin() const noexcept { return {list_, 0}; }
  Iterator end() const noexcept { return {list_, static_cast<std::ptrdiff_t>(size())}; }

  /** The element at an index, counted from 0. @return an Item that has no object beyond the end */
  Item operator[](std::size_t index) const noexcept {
    return begin()[static_cast<std::ptrdiff_t>(index)];
  }

 private:
  TarnHandle list_;
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

// ---- Input: the form ----------------------------------------------------------------------------

namespace detail {

inline bool is_blank(char c) noexcept { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

inline std::optional<std::int64_t> integer_of(std::string_view text, std::int64_t least,
                                              std::int64_t most) noexcept {
  const char *from = text.data();
  const char *end = from + text.size();
  while (from != end && is_blank(*from)) ++from;
  while (from != end && is_blank(end[-1])) --end;
  // A plus sign stands for itself; from_chars() knows the other one.
  if (end - from > 1 && from[0] == '+' && from[1] != '-') ++from;
  std::int64_t number = 0;
  const std::from_chars_result read = std::from_chars(from, end, number);
  if (read.ec != std::errc() || read.ptr != end || number < least || number > most) {
    return std::nullopt;
  }
  return number;
}

}  // namespace detail

/** Reads one field of a form. */
class Entry : public detail::Lent<TARN_FORM_ENTRY_MAGIC> {
 public:
  using Lent::Lent;

  /** The field's name.
   *
   *  @return a view, good as long as the request; nothing for a field without a name
   */
  std::optional<std::string_view> name() const noexcept { return text_in(TARN_ENTRY_NAME); }

  /** The value, up to its first zero byte.
   *
   *  @return a view, good as long as the request
   */
  std::string_view value() const noexcept {
    return text_in(TARN_ENTRY_VALUE).value_or(std::string_view());
  }

  /** Reads the value as a whole number.
   *
   *  @param least,most  the numbers that are expected
   *  @return the number when the value is decimal digits, with a sign in front or not, with white
   *          space around them or not, and nothing else, and the number is no less than `least` and
   *          no more than `most`; else nothing
   */
  std::optional<std::int64_t> integer(std::int64_t least = INT64_MIN,
                                      std::int64_t most = INT64_MAX) const noexcept {
    return detail::integer_of(value(), least, most);
  }

  /** Reads the value as FormEntry_getIntegerValue() does: up to the first byte that is no digit.
   *
   *  @return the number, stopped at the limits of 32 bits; 0 when there is none
   */
  std::int32_t number() const noexcept { return detail::ask<FormEntry_getIntegerValue>(handle_); }

  /** Reads the value as FormEntry_getDoubleValue() does.
   *
   *  @return the number; 0.0 when there is none
   */
  double real() const noexcept { return detail::ask<FormEntry_getDoubleValue>(handle_); }

  /** Tells whether the field has this name, in any case. */
  bool is_named(const char *name) const noexcept {
    return detail::ask<FormEntry_compareName>(handle_, name) == 0;
  }
};

/** The fields of a form, in order: a random-access range of Entry. */
using Entries = detail::Range<Entry, TARN_FORM_ENTRY_LIST_MAGIC, FormEntryList_getCount,
                              FormEntryList_getByIndex>;

/** The values of all fields with one name, in order: a forward range of std::string_view, which
 *  looks for the next one when it is asked for. */
class Values {
 public:
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = std::string_view;
    using difference_type = std::ptrdiff_t;
    using pointer = detail::Arrow<std::string_view>;
    using reference = std::string_view;

    Iterator() noexcept = default;
    Iterator(Entries::Iterator at, Entries::Iterator end, const char *name) noexcept
        : at_(at), end_(end), name_(name) {
      pass();
    }

    std::string_view operator*() const noexcept { return at_->value(); }
    pointer operator->() const noexcept { return {**this}; }
    Iterator &operator++() noexcept {
      ++at_;
      pass();
      return *this;
    }
    Iterator operator++(int) noexcept {
      const Iterator before = *this;
      ++*this;
      return before;
    }

    friend bool operator==(Iterator a, Iterator b) noexcept { return a.at_ == b.at_; }
    friend bool operator!=(Iterator a, Iterator b) noexcept { return a.at_ != b.at_; }

   private:
    void pass() noexcept {
      while (at_ != end_ && !at_->is_named(name_)) ++at_;
    }

    Entries::Iterator at_;
    Entries::Iterator end_;
    const char *name_ = nullptr;
  };

  using value_type = std::string_view;
  using iterator = Iterator;
  using const_iterator = Iterator;

  /** What Request::all() gives. `name` has to live as long as the range. */
  Values(Entries entries, const char *name) noexcept : entries_(entries), name_(name) {}

  bool empty() const noexcept { return begin() == end(); }
  Iterator begin() const noexcept { return {entries_.begin(), entries_.end(), name_}; }
  Iterator end() const noexcept { return {entries_.end(), entries_.end(), name_}; }

 private:
  Entries entries_;
  const char *name_;
};

// ---- Input: uploaded files ----------------------------------------------------------------------

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

/** The files of a form, in order: a random-access range of File. */
using Files =
    detail::Range<File, TARN_FORM_FILE_LIST_MAGIC, FormFileList_getCount, FormFileList_getByIndex>;

// ---- Input: cookies -----------------------------------------------------------------------------

/** Reads a cookie. */
class CookieView : public detail::Lent<TARN_COOKIE_MAGIC> {
 public:
  using Lent::Lent;

  /** The name.
   *
   *  @return a view, good as long as what the cookie belongs to; nothing for a piece of the cookie
   *          header that has no "="
   */
  std::optional<std::string_view> name() const noexcept { return text_in(TARN_COOKIE_NAME); }

  /** The value. @return as name() */
  std::optional<std::string_view> value() const noexcept { return text_in(TARN_COOKIE_VALUE); }

  /** The comment. @return as name(); nothing unless it was set, as with all that follows */
  std::optional<std::string_view> comment() const noexcept { return text_in(TARN_COOKIE_COMMENT); }

  /** The domain. @return as comment() */
  std::optional<std::string_view> domain() const noexcept { return text_in(TARN_COOKIE_DOMAIN); }

  /** The path. @return as comment() */
  std::optional<std::string_view> path() const noexcept { return text_in(TARN_COOKIE_PATH); }

  /** The max-age, in seconds; 0 unless it was set. */
  long max_age() const noexcept { return detail::ask<HTTPCookie_getMaxAge>(handle_); }

  /** Tells whether the secure flag was set. */
  bool is_secure() const noexcept { return number_in(TARN_COOKIE_SECURE) != 0; }
};

/** Cookies, in order: a random-access range of CookieView. */
using Cookies = detail::Range<CookieView, TARN_COOKIE_LIST_MAGIC, HTTPCookieList_getCount,
                              HTTPCookieList_getByIndex>;

// ---- Input: the environment ---------------------------------------------------------------------

/** Reads what a web server says of a request: variables, as they are when they are asked for; body
 *  and cookies, as they came.
 *
 *  The texts of variables are the environment's own: views of them are good until a variable is
 *  changed, and empty for one that is unset; variable() tells the two apart. Numbers are decimal, 0
 *  when unset, and stop at the limits of 32 bits.
 *
 *  @code
 *  if (request.environment().request_method() == "POST") ...
 *  @endcode
 */
class Environment : public detail::Lent<TARN_ENVIRONMENT_MAGIC> {
 public:
  using Lent::Lent;

  /** Any variable, with or without a request. @return its value; nothing when it is unset */
  static std::optional<std::string_view> variable(const char *name) noexcept {
    return detail::maybe(std::getenv(name));
  }

  /** SERVER_SOFTWARE. */
  std::string_view server_software() const noexcept { return text<CgiEnv_getServerSoftware>(); }
  /** SERVER_NAME. */
  std::string_view server_name() const noexcept { return text<CgiEnv_getServerName>(); }
  /** GATEWAY_INTERFACE. */
  std::string_view gateway_interface() const noexcept { return text<CgiEnv_getGatewayInterface>(); }
  /** SERVER_PROTOCOL. */
  std::string_view server_protocol() const noexcept { return text<CgiEnv_getServerProtocol>(); }
  /** SERVER_PORT. */
  std::int32_t server_port() const noexcept { return detail::ask<CgiEnv_getServerPort>(handle_); }
  /** HTTP_COOKIE, the raw header. */
  std::string_view http_cookie() const noexcept { return text<CgiEnv_getCookies>(); }
  /** REQUEST_METHOD. */
  std::string_view request_method() const noexcept { return text<CgiEnv_getRequestMethod>(); }
  /** PATH_INFO. */
  std::string_view path_info() const noexcept { return text<CgiEnv_getPathInfo>(); }
  /** PATH_TRANSLATED. */
  std::string_view path_translated() const noexcept { return text<CgiEnv_getPathTranslated>(); }
  /** SCRIPT_NAME. */
  std::string_view script_name() const noexcept { return text<CgiEnv_getScriptName>(); }
  /** QUERY_STRING. */
  std::string_view query_string() const noexcept { return text<CgiEnv_getQueryString>(); }
  /** CONTENT_LENGTH, in bytes, read afresh. */
  std::int32_t content_length() const noexcept {
    return detail::ask<CgiEnv_getContentLength>(handle_);
  }
  /** CONTENT_TYPE. */
  std::string_view content_type() const noexcept { return text<CgiEnv_getContentType>(); }
  /** HTTP_REFERER. */
  std::string_view http_referer() const noexcept { return text<CgiEnv_getReferrer>(); }
  /** REMOTE_HOST. */
  std::string_view remote_host() const noexcept { return text<CgiEnv_getRemoteHost>(); }
  /** REMOTE_ADDR. */
  std::string_view remote_addr() const noexcept { return text<CgiEnv_getRemoteAddr>(); }
  /** AUTH_TYPE. */
  std::string_view auth_type() const noexcept { return text<CgiEnv_getAuthType>(); }
  /** REMOTE_USER. */
  std::string_view remote_user() const noexcept { return text<CgiEnv_getRemoteUser>(); }
  /** REMOTE_IDENT. */
  std::string_view remote_ident() const noexcept { return text<CgiEnv_getRemoteIdent>(); }
  /** HTTP_ACCEPT. */
  std::string_view http_accept() const noexcept { return text<CgiEnv_getAccept>(); }
  /** HTTP_USER_AGENT. */
  std::string_view http_user_agent() const noexcept { return text<CgiEnv_getUserAgent>(); }
  /** REDIRECT_REQUEST. */
  std::string_view redirect_request() const noexcept { return text<CgiEnv_getRedirectRequest>(); }
  /** REDIRECT_URL. */
  std::string_view redirect_url() const noexcept { return text<CgiEnv_getRedirectURL>(); }
  /** REDIRECT_STATUS. */
  std::string_view redirect_status() const noexcept { return text<CgiEnv_getRedirectStatus>(); }
  /** Tells whether HTTPS is "on", in lower case. */
  bool https() const noexcept { return number_in(TARN_ENVIRONMENT_HTTPS) == 1; }

  /** The body of a POST as it came; bytes that did not arrive are zero.
   *
   *  @return a view, good to the end of the process; nothing when none was read
   */
  std::optional<std::string_view> body() const noexcept {
    const std::string_view bytes = detail::bytes_of(child_in(TARN_ENVIRONMENT_BODY));
    return bytes.empty() ? std::nullopt : std::optional(bytes);
  }

  /** The cookies, lent by the request; empty when none came. */
  Cookies cookies() const noexcept { return Cookies(child_in(TARN_ENVIRONMENT_COOKIES)); }

 private:
  template <auto kGet>
  std::string_view text() const noexcept {
    return detail::ask<kGet>(handle_);
  }
};

// ---- Input: the request -------------------------------------------------------------------------

namespace detail {

// Whether a name has a prefix that browsers give a meaning to; they ignore case there.
inline bool is_protected_name(const char *name) noexcept {
  return nStringsAreEqual(name, "__Host-", 7) == 0 || nStringsAreEqual(name, "__Secure-", 9) == 0;
}

// The cookies that Tarn makes of a cookie header: one more than there are ";".
inline std::size_t count_cookies(std::string_view header) noexcept {
  std::size_t count = 1;
  for (const char c : header) count += c == ';' ? 1 : 0;
  return count;
}

// Cuts the next cookie off a cookie header.
//
// @return its name as it was sent, without the white space around it; empty when it has none
inline std::string_view next_cookie_name(std::string_view &header) noexcept {
  const std::size_t end = header.find(';');
  const bool is_last = end == std::string_view::npos;
  const std::string_view piece(header.data(), is_last ? header.size() : end);
  header.remove_prefix(piece.size() + (is_last ? 0 : 1));
  const std::size_t equals = piece.find('=');
  std::string_view name(piece.data(), equals == std::string_view::npos ? 0 : equals);
  constexpr std::string_view white_space = " \t\r\n";
  while (!name.empty() && white_space.find(name.front()) != std::string_view::npos)
    name.remove_prefix(1);
  while (!name.empty() && white_space.find(name.back()) != std::string_view::npos)
    name.remove_suffix(1);
  return name;
}

}  // namespace detail

/** A request, taken in when it is made: environment, cookies, body, and the form, parsed.
 *
 *  Names of fields are compared without regard to case. What it lends lives as long as the request,
 *  and does not compile on a temporary one.
 *
 *  @code
 *  tarn::Request request;
 *  std::string_view name = request["name"].value_or("stranger");
 *  for (std::string_view tag : request.all("tag")) ...
 *  @endcode
 */
class Request : public detail::Owned<Request, TARN_REQUEST_MAGIC, Tarn_delete, nullptr> {
 public:
  using Owned::Owned;

  /** Takes the request in, as Tarn_new() does. The body can be read once in a process. */
  Request() noexcept : status_(Tarn_new(&handle_)) {}

  /** What became of taking it in: as Tarn_new(). */
  TarnStatus status() const noexcept { return status_; }

  /** Tells whether there is a request, taken in with success. */
  explicit operator bool() const noexcept { return handle_ != 0 && status_ == TARN_OK; }

  /** Tells whether everything that arrived is in the request, as Tarn_isComplete() does: false when
   *  memory ran out for some of it and when the body broke off. Ask before you store anything. */
  bool complete() const noexcept { return detail::ask<Tarn_isComplete>(handle_) != 0; }

  /** A request is not copied. */
  Request clone() const = delete;

  /** The value of the first field with this name.
   *
   *  @return a view; an empty one of a field that was left empty, nothing when there is no field
   */
  std::optional<std::string_view> operator[](const char *name) const &noexcept {
    const std::optional<Entry> found = entry(name);
    return found ? std::optional(found->value()) : std::nullopt;
  }
  void operator[](const char *) const && = delete;
  void operator[](int) const = delete;

  /** The first field with this name; nothing when there is none. */
  std::optional<Entry> entry(const char *name) const &noexcept {
    return first<Entry, Tarn_getElementByName>(name);
  }
  void entry(const char *) const && = delete;

  /** The values of all fields with this name, in order. `name` has to live as long as the range. */
  Values all(const char *name) const &noexcept { return {entries(), name}; }
  void all(const char *) const && = delete;

  /** Tells whether a checkbox was ticked: the first field with this name is "on", in any case. */
  bool checked(const char *name) const noexcept {
    return detail::ask<Tarn_queryCheckbox>(handle_, name) != 0;
  }

  /** Reads the first field with this name as a whole number.
   *
   *  @param least,most  the numbers that are expected
   *  @return as Entry::integer(); nothing also when there is no field
   */
  std::optional<std::int64_t> integer(const char *name, std::int64_t least = INT64_MIN,
                                      std::int64_t most = INT64_MAX) const noexcept {
    const std::optional<Entry> found = entry(name);
    return found ? found->integer(least, most) : std::nullopt;
  }

  /** Reads the first field with this name as Entry::number() does; 0 when there is none. */
  std::int32_t number(const char *name) const noexcept {
    const std::optional<Entry> found = entry(name);
    return found ? found->number() : 0;
  }

  /** All fields, in order. */
  Entries entries() const &noexcept { return Entries(child(TARN_REQUEST_ENTRIES)); }
  void entries() const && = delete;

  /** The first file whose field has this name, up to its first CR LF; nothing when there is none. */
  std::optional<File> file(const char *name) const &noexcept {
    return first<File, Tarn_getFile>(name);
  }
  void file(const char *) const && = delete;

  /** All files, in order. */
  Files files() const &noexcept { return Files(child(TARN_REQUEST_FILES)); }
  void files() const && = delete;

  /** The value of the first cookie with this name, decoded. Case counts, as browsers have it.
   *
   *  A browser protects cookies whose names begin with `__Host-` or `__Secure-`, but only names that
   *  are spelled like this: anyone who may set a cookie can set `__%48ost-id`, which decodes to
   *  `__Host-id`. For a name with such a prefix, this finds only a cookie that was sent under
   *  literally that name.
   *
   *  @return a view; nothing when there is no such cookie
   */
  std::optional<std::string_view> cookie(const char *name) const &noexcept {
    const Cookies all = cookies();
    const bool literally = detail::is_protected_name(name);
    std::string_view header = CgiEnv_getCookies(nullptr);
    // A list that lacks a cookie does not go with the header any more.
    if (literally && detail::count_cookies(header) != all.size()) return std::nullopt;
    for (const CookieView found : all) {
      const bool is_sent_so = !literally || detail::next_cookie_name(header) == name;
      if (is_sent_so && found.name() == name) return found.value();
    }
    return std::nullopt;
  }
  void cookie(const char *) const && = delete;

  /** All cookies, in order, with the pieces of the cookie header that have no "=". */
  Cookies cookies() const &noexcept { return environment().cookies(); }
  void cookies() const && = delete;

  /** The environment with the body. */
  Environment environment() const &noexcept {
    const Environment lent(child(TARN_REQUEST_ENVIRONMENT));
    return lent;
  }
  void environment() const && = delete;

 private:
  TarnHandle child(std::uint32_t slot) const noexcept {
    return detail::ask<CGIgs_getStruct>(handle_, slot, TARN_REQUEST_MAGIC);
  }

  template <class Item, auto kFind>
  std::optional<Item> first(const char *name) const noexcept {
    const TarnHandle found = detail::ask<kFind>(handle_, name);
    return found != 0 ? std::optional<Item>(found) : std::nullopt;
  }

  TarnStatus status_ = TARN_OK;
};

// ---- Dynamic string -----------------------------------------------------------------------------

/** A text that grows, over TARNString. */
class String : public detail::Owned<String, TARN_STRING_MAGIC, TARNString_delete, TARNString_dup> {
 public:
  using Owned::Owned;

  /** Makes a string of a text. */
  explicit String(std::string_view text = {}) noexcept {
    require(TARNString_new(&handle_) == TARN_OK && append(text));
  }

  /** Reads the text, good until the string is changed. */
  std::string_view view() const &noexcept { return c_str(); }
  std::string_view view() const && = delete;

  /** The text with its final zero byte, good until the string is changed; never null. */
  const char *c_str() const &noexcept {
    const char *text = detail::ask<TARNString_c_str>(handle_);
    return text != nullptr ? text : "";
  }
  const char *c_str() const && = delete;

  /** Counts the bytes. */
  std::size_t size() const noexcept { return detail::ask<TARNString_length>(handle_); }
  bool empty() const noexcept { return size() == 0; }

  /** Replaces the text.
   *
   *  @param text  may be the string's own
   *  @return false without memory; the text is as it was then
   */
  bool assign(std::string_view text) noexcept {
    String made(text);
    if (!made) return false;
    *this = std::move(made);
    return true;
  }

  /** Appends a text.
   *
   *  @param text  may be the string's own
   *  @return false without memory; the string is empty then
   */
  bool append(std::string_view text) noexcept { return insert(size(), text); }

  /** Inserts a text.
   *
   *  @param position  in bytes; beyond the text, nothing is inserted
   *  @param text      may be the string's own
   *  @return false when nothing was inserted; without memory the string is empty then
   */
  bool insert(std::size_t position, std::string_view text) noexcept {
    if (handle_ == 0 || position > size() || text.size() > INT32_MAX) return false;
    // A length of 0 would stand for the length of a text that ends in a zero byte. Bytes after such
    // a byte would move the text behind them out of sight.
    const std::size_t count = text.empty() ? 0 : strnlen(text.data(), text.size());
    if (count == 0) return true;
    return TARNString_insertn(&handle_, text.data(), 0, static_cast<std::uint32_t>(count),
                              static_cast<std::uint32_t>(position)) == TARN_OK;
  }

  /** Appends formatted text.
   *
   *  @param format  as for printf(); never a text that a visitor sent
   *  @return false when nothing was appended
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

  /** Removes bytes; beyond the text, nothing.
   *
   *  @param count  in bytes; more than there are stands for all up to the end
   */
  void remove(std::size_t position, std::size_t count) noexcept {
    if (position >= size() || count == 0) return;
    const std::size_t least = size() - position < count ? size() - position : count;
    TARNString_remove(&handle_, static_cast<std::uint32_t>(position),
                      static_cast<std::uint32_t>(least));
  }

  /** Empties the text. */
  void clear() noexcept { remove(0, size()); }
};

// ---- Cookies and headers ------------------------------------------------------------------------

/** A cookie as an object; tarn::SetCookie is what sends one. Nothing is checked or escaped. */
class Cookie : public detail::Object<Cookie, CookieView, detail::delete_node<TARN_COOKIE_MAGIC>,
                                     detail::clone_node<TARN_COOKIE_MAGIC>> {
 public:
  using Object::Object;

  /** Makes a cookie of a name and a value. */
  Cookie(std::string_view name, std::string_view value) noexcept {
    set_text(TARN_COOKIE_NAME, name);
    set_text(TARN_COOKIE_VALUE, value);
  }

  /** Sets the comment. */
  Cookie &comment(std::string_view text) &noexcept { return with_text(TARN_COOKIE_COMMENT, text); }

  /** Sets the domain. */
  Cookie &domain(std::string_view text) &noexcept { return with_text(TARN_COOKIE_DOMAIN, text); }

  /** Sets the path. */
  Cookie &path(std::string_view text) &noexcept { return with_text(TARN_COOKIE_PATH, text); }

  /** Sets the max-age, in seconds, kept as 32 bits. */
  Cookie &max_age(long seconds) &noexcept {
    HTTPCookie_setMaxAge(&handle_, seconds);
    return *this;
  }

  /** Sets the secure flag. */
  Cookie &secure(bool is_secure = true) &noexcept {
    HTTPCookie_setSecure(&handle_, is_secure ? 1 : 0);
    return *this;
  }

 private:
  Cookie &with_text(std::uint32_t slot, std::string_view text) noexcept {
    set_text(slot, text);
    return *this;
  }
};

/** A list that owns cookies. Equal names are kept. */
class CookieList : public detail::List<CookieList, Cookie, Cookies, HTTPCookieList_delete,
                                       HTTPCookieList_clone> {
 public:
  using List::List;
};

namespace detail {

// What a header's lines are lent as; one for which there was no memory is empty.
inline const char *line_at(TarnHandle *lines, std::uint32_t index) noexcept {
  const auto *line = reinterpret_cast<const char *>(TARNGenericList_getByIndex(lines, index));
  return line != nullptr ? line : "";
}

// A node shares the cookies of a list with its clone; a header has its own.

inline TarnStatus clone_header(TarnHandle *source, TarnHandle *copy) noexcept {
  CGIgs_new(copy, TARN_HEADER_MAGIC);
  CGIgs_setString(copy, TARN_HEADER_CONTENT_TYPE,
                  CGIgs_getString(source, TARN_HEADER_CONTENT_TYPE, TARN_HEADER_MAGIC),
                  TARN_HEADER_MAGIC);
  TarnHandle cookies = CGIgs_getStruct(source, TARN_HEADER_COOKIES, TARN_HEADER_MAGIC);
  return cookies != 0 ? HTTPHeader_setCookieList(copy, &cookies) : TARN_OK;
}

inline TarnStatus clone_response_header(TarnHandle *source, TarnHandle *copy) noexcept {
  constexpr std::uint32_t magic = TARN_RESPONSE_HEADER_MAGIC;
  CGIgs_new(copy, magic);
  for (const std::uint32_t slot : {TARN_RESPONSE_HEADER_FIRST, TARN_RESPONSE_HEADER_SECOND}) {
    CGIgs_setString(copy, slot, CGIgs_getString(source, slot, magic), magic);
  }
  CGIgs_setInt(copy, TARN_RESPONSE_HEADER_NUMBER,
               CGIgs_getInt(source, TARN_RESPONSE_HEADER_NUMBER, magic), magic);
  TarnHandle lines = HTTPResponseHeader_getHeaderList(source);
  for (std::uint32_t i = 0; i < TARNGenericList_getCount(&lines); ++i) {
    const TarnStatus status = HTTPResponseHeader_addHeader(copy, line_at(&lines, i));
    if (status != TARN_OK) return status;
  }
  TarnHandle cookies = CGIgs_getStruct(source, TARN_RESPONSE_HEADER_COOKIES, magic);
  return cookies != 0 ? HTTPResponseHeader_setCookieList(copy, &cookies) : TARN_OK;
}

}  // namespace detail

/** Reads a PlainHeader. */
class PlainHeaderView : public detail::Lent<TARN_HEADER_MAGIC> {
 public:
  using Lent::Lent;

  /** The content type. @return a view, good as long as the header */
  std::optional<std::string_view> content_type() const noexcept {
    return text_in(TARN_HEADER_CONTENT_TYPE);
  }

  /** The cookies, lent; empty when there is none. */
  Cookies cookies() const noexcept { return Cookies(child_in(TARN_HEADER_COOKIES)); }
};

/** A content type with cookies, over HTTPHeader. It holds data; tarn::Response answers. */
class PlainHeader
    : public detail::Object<PlainHeader, PlainHeaderView, HTTPHeader_delete, detail::clone_header> {
 public:
  using Object::Object;

  /** Makes a header of a content type. */
  explicit PlainHeader(std::string_view content_type = "text/plain") noexcept {
    set_text(TARN_HEADER_CONTENT_TYPE, content_type);
  }

  /** Takes a cookie over as the last one. */
  PlainHeader &add(Cookie &&cookie) &noexcept {
    keep<Cookies>(TARN_HEADER_COOKIES, cookie);
    return *this;
  }

  /** Takes over all cookies of a list, which is empty then. */
  PlainHeader &add(CookieList &&cookies) &noexcept {
    keep_all<Cookies>(TARN_HEADER_COOKIES, cookies);
    return *this;
  }
};

/** The lines of a header, in order: a random-access range of std::string_view. */
using Lines = detail::Range<std::string_view, TARN_GENERIC_LIST_MAGIC, TARNGenericList_getCount,
                            detail::line_at>;

/** Reads a ResponseHeader. */
class ResponseHeaderView : public detail::Lent<TARN_RESPONSE_HEADER_MAGIC> {
 public:
  using Lent::Lent;

  /** The first text. @return a view, good as long as the header */
  std::optional<std::string_view> first() const noexcept {
    return text_in(TARN_RESPONSE_HEADER_FIRST);
  }

  /** The number. */
  std::int32_t number() const noexcept {
    return static_cast<std::int32_t>(number_in(TARN_RESPONSE_HEADER_NUMBER));
  }

  /** The second text. @return as first() */
  std::optional<std::string_view> second() const noexcept {
    return text_in(TARN_RESPONSE_HEADER_SECOND);
  }

  /** The lines, lent; empty when there is none. */
  Lines lines() const noexcept {
    return Lines(detail::ask<HTTPResponseHeader_getHeaderList>(handle_));
  }

  /** The cookies, lent; empty when there is none. */
  Cookies cookies() const noexcept { return Cookies(child_in(TARN_RESPONSE_HEADER_COOKIES)); }
};

/** Two texts, a number, lines and cookies, over HTTPResponseHeader. It holds data; tarn::Response
 *  answers. Nothing is checked. */
class ResponseHeader
    : public detail::Object<ResponseHeader, ResponseHeaderView, HTTPResponseHeader_delete,
                            detail::clone_response_header> {
 public:
  using Object::Object;

  /** Makes a header of its texts and its number, without lines or cookies. */
  ResponseHeader(std::string_view first, std::int32_t number, std::string_view second) noexcept {
    set_text(TARN_RESPONSE_HEADER_FIRST, first);
    set_text(TARN_RESPONSE_HEADER_SECOND, second);
    CGIgs_setInt(&handle_, TARN_RESPONSE_HEADER_NUMBER, static_cast<std::uint32_t>(number),
                 TARN_RESPONSE_HEADER_MAGIC);
  }

  /** Appends a line, usually "Name: value". */
  ResponseHeader &add(std::string_view line) &noexcept {
    const detail::Terminated copy(line);
    const TarnStatus status = HTTPResponseHeader_addHeader(&handle_, copy.c_str());
    // The status does not tell that there was no memory for the line.
    TarnHandle lines = HTTPResponseHeader_getHeaderList(&handle_);
    const std::uint32_t count = TARNGenericList_getCount(&lines);
    require(status == TARN_OK && TARNGenericList_getByIndex(&lines, count - 1) != 0);
    return *this;
  }

  /** Takes a cookie over as the last one. */
  ResponseHeader &add(Cookie &&cookie) &noexcept {
    keep<Cookies>(TARN_RESPONSE_HEADER_COOKIES, cookie);
    return *this;
  }

  /** Takes over all cookies of a list, which is empty then. */
  ResponseHeader &add(CookieList &&cookies) &noexcept {
    keep_all<Cookies>(TARN_RESPONSE_HEADER_COOKIES, cookies);
    return *this;
  }
};

/** Reads a MultiPartHeader. */
class MultiPartHeaderView : public detail::Lent<TARN_MULTIPART_HEADER_MAGIC> {
 public:
  using Lent::Lent;

  /** The disposition. @return a view, good as long as the header; nothing when there is none */
  std::optional<std::string_view> disposition() const noexcept {
    return text_in(TARN_MULTIPART_HEADER_DISPOSITION);
  }

  /** The field's name. @return as disposition() */
  std::optional<std::string_view> name() const noexcept {
    return text_in(TARN_MULTIPART_HEADER_NAME);
  }

  /** The file's name. @return as disposition() */
  std::optional<std::string_view> file_name() const noexcept {
    return text_in(TARN_MULTIPART_HEADER_FILENAME);
  }

  /** The content type. @return as disposition() */
  std::optional<std::string_view> content_type() const noexcept {
    return text_in(TARN_MULTIPART_HEADER_CONTENT_TYPE);
  }
};

/** The header of a part of a multipart body, over MultiPartHeader. */
class MultiPartHeader : public detail::Object<MultiPartHeader, MultiPartHeaderView,
                                              detail::delete_node<TARN_MULTIPART_HEADER_MAGIC>,
                                              detail::clone_node<TARN_MULTIPART_HEADER_MAGIC>> {
 public:
  using Object::Object;

  /** Makes a header of its four texts, of which the later ones may be missing. */
  explicit MultiPartHeader(std::string_view disposition,
                           std::optional<std::string_view> name = std::nullopt,
                           std::optional<std::string_view> file_name = std::nullopt,
                           std::optional<std::string_view> content_type = std::nullopt) noexcept {
    set_text(TARN_MULTIPART_HEADER_DISPOSITION, disposition);
    if (name) set_text(TARN_MULTIPART_HEADER_NAME, *name);
    if (file_name) set_text(TARN_MULTIPART_HEADER_FILENAME, *file_name);
    if (content_type) set_text(TARN_MULTIPART_HEADER_CONTENT_TYPE, *content_type);
  }
};

// ---- HTML attributes and elements ---------------------------------------------------------------

/** The number (TARN_ELEMENT_NUMBER, TARN_ATTRIBUTE_NUMBER) of what was made of Raw. */
inline constexpr std::uint32_t raw_mark = 0x57415221;

/** A text that is trusted as it stands: markup where text is expected. Never make one of what a
 *  visitor sent. It is a view: the text has to live until an element or attribute is made of it.
 */
class Raw {
 public:
  /** Trusts a text. */
  explicit Raw(std::string_view text) noexcept : text_(text) {}
  explicit Raw(std::nullptr_t) = delete;

  /** The text. */
  std::string_view text() const noexcept { return text_; }

 private:
  std::string_view text_;
};

/** Reads an attribute. */
class AttributeView : public detail::Lent<TARN_ATTRIBUTE_MAGIC> {
 public:
  using Lent::Lent;

  /** The name. @return a view, good as long as the attribute; nothing when there is none */
  std::optional<std::string_view> name() const noexcept { return text_in(TARN_ATTRIBUTE_NAME); }

  /** The value. @return as name(); nothing for an attribute without a value, such as `required` */
  std::optional<std::string_view> value() const noexcept { return text_in(TARN_ATTRIBUTE_VALUE); }

  /** Tells whether the value was made of Raw. */
  bool is_raw() const noexcept { return number_in(TARN_ATTRIBUTE_NUMBER) == raw_mark; }
};

/** An attribute of an element. */
class Attribute
    : public detail::Object<Attribute, AttributeView, detail::delete_node<TARN_ATTRIBUTE_MAGIC>,
                            detail::clone_node<TARN_ATTRIBUTE_MAGIC>> {
 public:
  using Object::Object;

  /** An attribute without a value, such as `required`. */
  explicit Attribute(std::string_view name) noexcept { set_text(TARN_ATTRIBUTE_NAME, name); }

  /** An attribute with a value, which is escaped when it is written. */
  Attribute(std::string_view name, std::string_view value) noexcept : Attribute(name) {
    set_text(TARN_ATTRIBUTE_VALUE, value);
  }
  Attribute(std::string_view name, std::nullptr_t) = delete;

  /** An attribute with a value that is trusted: a script for `onclick`, a URL of any scheme. It is
   *  escaped too, so that it stays what it is. */
  Attribute(std::string_view name, const Raw &value) noexcept : Attribute(name, value.text()) {
    CGIgs_setInt(&handle_, TARN_ATTRIBUTE_NUMBER, raw_mark, TARN_ATTRIBUTE_MAGIC);
  }
};

/** Attributes, in order: a random-access range of AttributeView. */
using Attributes = detail::Range<AttributeView, TARN_ATTRIBUTE_LIST_MAGIC,
                                 HTMLAttributeList_getCount, HTMLAttributeList_getByIndex>;

/** A list that owns attributes. Equal names are kept. */
class AttributeList : public detail::List<AttributeList, Attribute, Attributes,
                                          HTMLAttributeList_delete, HTMLAttributeList_clone> {
 public:
  using List::List;
};

namespace detail {

// What an element without a name is made of.
struct TextPiece {
  std::string_view text;
  std::uint32_t mark = 0;
};

}  // namespace detail

class ElementView;

/** Elements, in order: a random-access range of ElementView. */
using Elements = detail::Range<ElementView, TARN_ELEMENT_LIST_MAGIC, HTMLElementList_getCount,
                               HTMLElementList_getByIndex>;

/** Reads an element. */
class ElementView : public detail::Lent<TARN_ELEMENT_MAGIC> {
 public:
  using Lent::Lent;

  /** The name. @return a view, good as long as the element; nothing for a text */
  std::optional<std::string_view> name() const noexcept { return text_in(TARN_ELEMENT_NAME); }

  /** The element's own text, which comes before its children. A child without a name is a text:
   *  this one. @return as name() */
  std::optional<std::string_view> text() const noexcept { return text_in(TARN_ELEMENT_TEXT); }

  /** Tells whether the text was made of Raw. */
  bool is_raw() const noexcept { return number_in(TARN_ELEMENT_NUMBER) == raw_mark; }

  /** The attributes, lent; empty when there is none. */
  Attributes attributes() const noexcept { return Attributes(child_in(TARN_ELEMENT_ATTRIBUTES)); }

  /** The embedded elements and texts, lent; empty when there is none. */
  Elements children() const noexcept;
};

inline Elements ElementView::children() const noexcept {
  return Elements(child_in(TARN_ELEMENT_EMBEDDED));
}

class ElementList;

/** An element with its attributes and all that is in it.
 *
 *  @code
 *  tarn::Element("p", tarn::Attribute("class", "greeting"),
 *                "Hello, ", name, tarn::Element("b", "!"))
 *  @endcode
 */
class Element : public detail::Object<Element, ElementView, HTMLElement_delete, HTMLElement_clone> {
 public:
  using Object::Object;

  /** Makes an element of these pieces, in order; each is what add() takes. */
  template <class... Pieces>
  explicit Element(std::string_view name, Pieces &&...pieces) noexcept {
    set_text(TARN_ELEMENT_NAME, name);
    (add(std::forward<Pieces>(pieces)), ...);
  }

  /** Appends a text, which is escaped when it is written. */
  Element &add(std::string_view text) &noexcept { return add(Element(detail::TextPiece{text})); }
  Element &add(std::nullptr_t) & = delete;

  /** Appends markup that is trusted as it stands. */
  Element &add(const Raw &markup) &noexcept {
    return add(Element(detail::TextPiece{markup.text(), raw_mark}));
  }

  /** Takes an attribute over as the last one. */
  Element &add(Attribute &&attribute) &noexcept {
    keep<Attributes>(TARN_ELEMENT_ATTRIBUTES, attribute);
    return *this;
  }

  /** Takes an element over, with all that is in it, as the last child. */
  Element &add(Element &&child) &noexcept {
    if (&child == this) {
      reset();
    } else {
      keep<Elements>(TARN_ELEMENT_EMBEDDED, child);
    }
    return *this;
  }

  /** Takes over all attributes of a list, which is empty then. */
  Element &add(AttributeList &&attributes) &noexcept {
    keep_all<Attributes>(TARN_ELEMENT_ATTRIBUTES, attributes);
    return *this;
  }

  /** Takes over all elements of a list, which is empty then. */
  Element &add(ElementList &&elements) &noexcept;

  // What has a name of its own is moved or cloned.
  Element &add(const Attribute &) & = delete;
  Element &add(const AttributeList &) & = delete;
  Element &add(const Element &) & = delete;
  Element &add(const ElementList &) & = delete;

 private:
  friend class ElementList;

  explicit Element(detail::TextPiece piece) noexcept {
    set_text(TARN_ELEMENT_TEXT, piece.text);
    CGIgs_setInt(&handle_, TARN_ELEMENT_NUMBER, piece.mark, TARN_ELEMENT_MAGIC);
  }
};

/** A list that owns elements. */
class ElementList : public detail::List<ElementList, Element, Elements, HTMLElementList_delete,
                                        HTMLElementList_clone> {
 public:
  using List::add;
  using List::List;

  /** Appends a text, which is escaped when it is written. */
  ElementList &add(std::string_view text) &noexcept {
    return add(Element(detail::TextPiece{text}));
  }
  ElementList &add(std::nullptr_t) & = delete;

  /** Appends markup that is trusted as it stands. */
  ElementList &add(const Raw &markup) &noexcept {
    return add(Element(detail::TextPiece{markup.text(), raw_mark}));
  }
};

inline Element &Element::add(ElementList &&elements) &noexcept {
  keep_all<Elements>(TARN_ELEMENT_EMBEDDED, elements);
  return *this;
}

// ---- Answers ------------------------------------------------------------------------------------
//
// A page is a tree of elements: html() writes it, Response sends it with its header. Whatever
// stands in the tree is text in UTF-8 and is escaped for its place; only Raw is markup. What cannot
// be written safely is refused as a whole, never in part, and problem() tells why.

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

constexpr bool is_among(char c, std::string_view set) noexcept {
  return set.find(c) != std::string_view::npos;
}
constexpr bool is_control(char c) noexcept {
  return static_cast<unsigned char>(c) < ' ' || c == '\x7F';
}
// What ASCII prints, without the blank.
constexpr bool is_visible(char c) noexcept { return c > ' ' && c < '\x7F'; }
constexpr bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }
constexpr bool is_letter(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool is_alphanumeric(char c) noexcept { return is_letter(c) || is_digit(c); }

template <class Test>
constexpr bool all_of(std::string_view text, Test test) noexcept {
  std::size_t passed = 0;
  while (passed < text.size() && test(text[passed])) ++passed;
  return passed == text.size();
}

// Without regard to the case of letters, in any locale.
constexpr bool begins_with(std::string_view text, std::string_view beginning) noexcept {
  const auto lower = [](char c) { return is_letter(c) ? c | 0x20 : c; };
  if (text.size() < beginning.size()) return false;
  for (std::size_t i = 0; i < beginning.size(); ++i) {
    if (lower(text[i]) != lower(beginning[i])) return false;
  }
  return true;
}

template <std::size_t kCount>
constexpr bool is_one_of(std::string_view name, const std::string_view (&names)[kCount]) noexcept {
  bool found = false;
  for (const std::string_view one : names) {
    found = found || (name.size() == one.size() && begins_with(name, one));
  }
  return found;
}

// How many bytes the first character takes; 0 when they are no UTF-8.
constexpr std::size_t character_size(std::string_view text) noexcept {
  const auto byte = [text](std::size_t at) -> unsigned {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
  };
  const unsigned lead = byte(0);
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  // No form longer than needed, no surrogate, nothing beyond U+10FFFF.
  const unsigned first = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned last = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < first || byte(1) > last) return 0;
  const std::size_t size = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  for (std::size_t i = 2; i < size; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  return size;
}

// Writes a text, with what `replacement` gives for a character in its place, if anything. It is
// asked with an empty character for a byte that is no UTF-8.
template <class Replacement>
void put_replaced(Buffer &out, std::string_view text, Replacement replacement) noexcept {
  const char *const end = text.data() + text.size();
  const char *copied = text.data();
  for (const char *at = copied; at < end;) {
    const std::size_t size = character_size({at, static_cast<std::size_t>(end - at)});
    const std::string_view instead = replacement(std::string_view(at, size));
    const char *const next = at + (size > 0 ? size : 1);
    if (!instead.empty()) {
      out << std::string_view(copied, static_cast<std::size_t>(at - copied)) << instead;
      copied = next;
    }
    at = next;
  }
  out << std::string_view(copied, static_cast<std::size_t>(end - copied));
}

// Whether a character of UTF-8 is a control character, of ASCII or from U+0080 to U+009F. Its last
// byte is its number.
constexpr bool is_control(std::string_view character) noexcept {
  return is_control(character[0]) || (character[0] == '\xC2' && character[1] < '\xA0');
}

// A page has no control characters but tabs and line ends.
inline std::string_view html_replacement(std::string_view character) noexcept {
  constexpr std::string_view kUnknown = "\xEF\xBF\xBD";
  if (character.empty()) return kUnknown;
  switch (character[0]) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    case '\r':
      return "&#13;";  // a browser reads a bare one as a line feed
    case '\t':
    case '\n':
      return {};
    default:
      return is_control(character) ? kUnknown : std::string_view();
  }
}

inline void put_html(Buffer &out, std::string_view text) noexcept {
  put_replaced(out, text, html_replacement);
}

inline void put_attribute(Buffer &out, std::string_view text) noexcept {
  put_replaced(out, text, [](std::string_view character) noexcept -> std::string_view {
    if (character == "\t") return "&#9;";
    if (character == "\n") return "&#10;";
    if (character == " ") return "&#32;";
    if (character == "=") return "&#61;";
    if (character == "`") return "&#96;";
    return html_replacement(character);
  });
}

inline void put_encoded(Buffer &out, std::string_view text, std::string_view marks) noexcept {
  for (const char c : text) {
    const bool plain = is_alphanumeric(c) || is_among(c, marks);
    char piece[4];
    std::snprintf(piece, sizeof piece, plain ? "%c" : "%%%02X", static_cast<unsigned char>(c));
    out << piece;
  }
}

inline void put_url(Buffer &out, std::string_view text) noexcept { put_encoded(out, text, "-._~"); }

inline void put_path(Buffer &out, std::string_view text) noexcept {
  put_encoded(out, text, "-._~/");
}

inline void put_json(Buffer &out, std::string_view text) noexcept {
  char escape[] = "\\u0000";
  out << "\"";
  put_replaced(out, text, [&escape](std::string_view character) noexcept -> std::string_view {
    if (character.empty()) return "\\ufffd";
    // Older scripts end a line here.
    if (character == "\xE2\x80\xA8") return "\\u2028";
    if (character == "\xE2\x80\xA9") return "\\u2029";
    if (!is_control(character) && !is_among(character[0], "\"\\<>&'")) return {};
    const auto number = static_cast<unsigned char>(character.back());
    std::snprintf(escape, sizeof escape, "\\u%04x", number);
    return escape;
  });
  out << "\"";
}

using Put = void (*)(Buffer &, std::string_view) noexcept;

template <Put kPut>
Text escaped(std::string_view text) noexcept {
  Buffer out;
  kPut(out, text);
  return out.take();
}

}  // namespace detail

/** Escapes a text for HTML that you write yourself: for a place between tags, or for an attribute's
 *  value in quotation marks of either kind. What is no UTF-8, and control characters other than
 *  tabs and line ends, become U+FFFD.
 */
[[nodiscard]] inline Text escape_html(std::string_view text) noexcept {
  return detail::escaped<detail::put_html>(text);
}

/** Escapes a text for an attribute's value, so that it holds without quotation marks too, when it
 *  is not empty. Otherwise as escape_html(). */
[[nodiscard]] inline Text escape_attribute(std::string_view text) noexcept {
  return detail::escaped<detail::put_attribute>(text);
}

/** Escapes a text for one part of a URL, such as a value of the query: every byte other than
 *  letters, digits, "-", ".", "_" and "~" as a "%" with two digits. unescapeString() undoes it. */
[[nodiscard]] inline Text escape_url(std::string_view text) noexcept {
  return detail::escaped<detail::put_url>(text);
}

/** Escapes a text for the path of a URL: as escape_url(), but for "/", which stays.
 *
 *  @code
 *  const tarn::Text here = tarn::escape_path(request.environment().script_name());
 *  return response.redirect(here.view()).send() ? 0 : 1;
 *  @endcode
 */
[[nodiscard]] inline Text escape_path(std::string_view text) noexcept {
  return detail::escaped<detail::put_path>(text);
}

/** Makes a string of JSON and JavaScript of a text, quotation marks included. It can stand within
 *  a script element and in an attribute's value: no character in it means anything to HTML. What is
 *  no UTF-8 becomes U+FFFD. */
[[nodiscard]] inline Text escape_json(std::string_view text) noexcept {
  return detail::escaped<detail::put_json>(text);
}

namespace detail {

// What an element may hold.
enum class Content { kAny, kText, kRaw, kNothing };

inline constexpr std::string_view kVoidElements[] = {
    "area", "base",  "basefont", "bgsound", "br",   "col",   "embed",  "frame", "hr",
    "img",  "input", "keygen",   "link",    "meta", "param", "source", "track", "wbr"};
inline constexpr std::string_view kRawElements[] = {"iframe", "noembed", "noframes",
                                                    "script", "style",   "xmp"};
inline constexpr std::string_view kTextElements[] = {"textarea", "title"};
// A browser drops a line feed right behind their start.
inline constexpr std::string_view kLineElements[] = {"listing", "pre", "textarea"};

inline constexpr std::string_view kCodeAttributes[] = {"srcdoc", "style"};
inline constexpr std::string_view kUrlAttributes[] = {
    "action",   "background", "cite",   "codebase", "data", "formaction", "from",      "href",
    "longdesc", "manifest",   "poster", "src",      "to",   "values",     "xlink:href"};
inline constexpr std::string_view kSafeSchemes[] = {"http", "https", "mailto", "tel"};

inline Content content_of(std::string_view name) noexcept {
  if (is_one_of(name, kVoidElements)) return Content::kNothing;
  if (is_one_of(name, kRawElements)) return Content::kRaw;
  return is_one_of(name, kTextElements) ? Content::kText : Content::kAny;
}

// Nothing would end a plaintext element.
inline bool is_element_name(std::string_view name) noexcept {
  return !name.empty() && is_letter(name[0]) &&
         all_of(name, [](char c) { return is_alphanumeric(c) || c == '-'; }) &&
         !is_one_of(name, {"plaintext"});
}

inline bool is_attribute_name(std::string_view name) noexcept {
  return !name.empty() &&
         all_of(name, [](char c) { return is_visible(c) && !is_among(c, "\"'/<=>`"); });
}

// Whether a value of this attribute is a program or a style to a browser.
inline bool is_code(std::string_view name) noexcept {
  return begins_with(name, "on") || is_one_of(name, kCodeAttributes);
}

// Whether a URL is relative, or has a scheme that runs nothing. What a browser leaves out before it
// looks for the scheme, blanks and control characters, is left out here wherever it stands.
inline bool is_safe_url(std::string_view url) noexcept {
  char scheme[8];
  std::size_t size = 0;
  for (const char c : url) {
    if (is_control(c) || c == ' ') continue;
    if (c == ':') return size == 0 || is_one_of({scheme, size}, kSafeSchemes);
    const bool belongs = is_letter(c) || (size > 0 && (is_digit(c) || is_among(c, "+-.")));
    if (!belongs) return true;
    if (size < sizeof scheme) scheme[size++] = c;
  }
  return true;
}

// Writes a tree as HTML, from element to element without recursion: no depth exhausts the stack.
// What fails answers why.
class Renderer {
 public:
  using Problem = const char *;

  explicit Renderer(Buffer &out) noexcept : out_(out) {}
  ~Renderer() { std::free(open_); }
  Renderer(const Renderer &) = delete;
  Renderer &operator=(const Renderer &) = delete;

  Problem render(ElementView top) noexcept {
    Problem problem = begin(top, Content::kAny);
    while (problem == nullptr && depth_ > 0) problem = proceed(open_[depth_ - 1]);
    return problem;
  }

 private:
  // An element whose end is still to be written.
  struct Open {
    TarnHandle element;
    std::size_t next;
    Content content;
  };

  // The next child of the innermost open element, or its end.
  Problem proceed(Open &open) noexcept {
    const Elements children = ElementView(open.element).children();
    if (open.next < children.size()) return begin(children[open.next++], open.content);
    const Open closed = open_[--depth_];
    return end(*ElementView(closed.element).name(), closed.content);
  }

  Problem begin(ElementView element, Content around) noexcept {
    const std::optional<std::string_view> name = element.name();
    const std::string_view text = element.text().value_or("");
    if (!name) {
      if (!element.children().empty()) return "a text has elements of its own";
      return put_text(text, element.is_raw(), around);
    }
    if (around != Content::kAny) return "an element stands where only text can";
    if (!is_element_name(*name)) return "an element has a name that is none";
    out_ << "<" << *name;
    for (const AttributeView attribute : element.attributes()) {
      if (const Problem problem = put(attribute)) return problem;
    }
    out_ << ">";
    if (is_one_of(*name, kLineElements)) out_ << "\n";
    const Content content = content_of(*name);
    if (content == Content::kNothing) {
      const bool empty = text.empty() && element.children().empty();
      return empty ? nullptr : "an element that is always empty has content";
    }
    if (content != Content::kAny) content_start_ = out_.written().size();
    if (!push({*element.handle(), 0, content})) return "memory has run out";
    return put_text(text, false, content);
  }

  Problem end(std::string_view name, Content content) noexcept {
    if (content != Content::kAny && ends_elsewhere(name)) return "a text would end its element";
    out_ << "</" << name << ">";
    return nullptr;
  }

  Problem put_text(std::string_view text, bool raw, Content around) noexcept {
    if (raw) {
      out_ << text;
      return nullptr;
    }
    if (around == Content::kRaw && !text.empty()) return "a script or style is not Raw";
    put_html(out_, text);
    return nullptr;
  }

  Problem put(AttributeView attribute) noexcept {
    const std::string_view name = attribute.name().value_or("");
    if (!is_attribute_name(name)) return "an attribute has a name that is none";
    const bool trusted = attribute.is_raw();
    if (!trusted && is_code(name)) return "an attribute for code is not Raw";
    out_ << " " << name;
    const std::optional<std::string_view> value = attribute.value();
    if (!value) return nullptr;
    if (!trusted && is_one_of(name, kUrlAttributes) && !is_safe_url(*value)) {
      return "a URL's scheme is not a safe one";
    }
    out_ << "=\"";
    put_html(out_, *value);
    out_ << "\"";
    return nullptr;
  }

  // Whether what stands in the element would end it elsewhere. "<!--" can hide a script's end.
  bool ends_elsewhere(std::string_view name) noexcept {
    const std::string_view written = out_.written();
    for (std::size_t at = written.find('<', content_start_); at != std::string_view::npos;
         at = written.find('<', at + 1)) {
      const std::string_view rest(written.data() + at + 1, written.size() - at - 1);
      if (begins_with(rest, "!--") && is_one_of(name, {"script"})) return true;
      if (begins_with(rest, "/") && begins_with({rest.data() + 1, rest.size() - 1}, name)) {
        return true;
      }
    }
    return false;
  }

  bool push(Open open) noexcept {
    if (depth_ == room_) {
      const std::size_t room = room_ > 0 ? 2 * room_ : 16;
      auto *grown = static_cast<Open *>(std::realloc(open_, room * sizeof(Open)));
      if (grown == nullptr) return false;
      open_ = grown;
      room_ = room;
    }
    open_[depth_++] = open;
    return true;
  }

  Buffer &out_;
  std::size_t content_start_ = 0;
  Open *open_ = nullptr;
  std::size_t depth_ = 0;
  std::size_t room_ = 0;
};

}  // namespace detail

/** Writes an element, with all that is in it, as HTML; an `html` element with its DOCTYPE.
 *
 *  A browser reads the tree that was built, where HTML has such trees (it has no paragraph within a
 *  paragraph), with every text and value as it was, but for what escape_html() replaces; of
 *  attributes of one name it takes the first. Trees may be of any depth. Refused are
 *
 *   - names of elements with more than letters, digits and "-", and `plaintext`; names of
 *     attributes with blanks, control characters, quotation marks of any kind, or any of "/<=>"
 *   - content in an element that is always empty, such as `br`; elements in `title`, `textarea` and
 *     in those for code: `script`, `style`, `iframe`, `noembed`, `noframes`, `xmp`
 *   - text in an element for code that is not Raw, and Raw that would end one before its end
 *   - attributes for code, `style`, `srcdoc` and all that begin with "on", that are not Raw
 *   - URLs in attributes, such as `href` and `src`, that are not Raw and have another scheme than
 *     http, https, mailto and tel; a relative URL has none
 *
 *  @return the text; or why there is none: something was refused, or memory has run out
 */
[[nodiscard]] inline Text html(const Element &element) noexcept {
  if (!element) return Text::refused("there is no element");
  const ElementView top = element.view();
  detail::Buffer out;
  if (detail::is_one_of(top.name().value_or(""), {"html"})) out << "<!DOCTYPE html>\n";
  if (const char *problem = detail::Renderer(out).render(top)) return Text::refused(problem);
  return out.take();
}

namespace detail {

// What names of headers and cookies are made of.
constexpr bool is_token(char c) noexcept {
  return is_alphanumeric(c) || is_among(c, "!#$%&'*+-.^_`|~");
}

constexpr bool is_in_header(char c) noexcept { return !is_control(c) || c == '\t'; }

// A browser reads "\" as "/", and leaves out what is not visible.
constexpr bool is_in_url(char c) noexcept { return is_visible(c) && !is_among(c, "\"<>\\^`{|}"); }

// "//" would begin another host.
constexpr bool is_own_path(std::string_view url) noexcept {
  const bool absolute = !url.empty() && url[0] == '/' && (url.size() == 1 || url[1] != '/');
  return absolute && all_of(url, is_in_url);
}

inline bool is_site_url(std::string_view url) noexcept {
  for (const std::string_view scheme : {"http://", "https://"}) {
    const bool has_host = url.size() > scheme.size() && !is_among(url[scheme.size()], "/?#");
    if (begins_with(url, scheme) && has_host) return all_of(url, is_in_url);
  }
  return false;
}

struct Reason {
  int status;
  const char *phrase;
};

inline constexpr Reason kReasons[] = {{201, "Created"},
                                      {202, "Accepted"},
                                      {204, "No Content"},
                                      {206, "Partial Content"},
                                      {301, "Moved Permanently"},
                                      {302, "Found"},
                                      {303, "See Other"},
                                      {304, "Not Modified"},
                                      {307, "Temporary Redirect"},
                                      {308, "Permanent Redirect"},
                                      {400, "Bad Request"},
                                      {401, "Unauthorized"},
                                      {403, "Forbidden"},
                                      {404, "Not Found"},
                                      {405, "Method Not Allowed"},
                                      {406, "Not Acceptable"},
                                      {409, "Conflict"},
                                      {410, "Gone"},
                                      {411, "Length Required"},
                                      {412, "Precondition Failed"},
                                      {413, "Content Too Large"},
                                      {415, "Unsupported Media Type"},
                                      {422, "Unprocessable Content"},
                                      {429, "Too Many Requests"},
                                      {500, "Internal Server Error"},
                                      {501, "Not Implemented"},
                                      {502, "Bad Gateway"},
                                      {503, "Service Unavailable"},
                                      {504, "Gateway Timeout"}};

constexpr const char *reason_for(int status) noexcept {
  for (const Reason &reason : kReasons) {
    if (reason.status == status) return reason.phrase;
  }
  return "Other";
}

inline constexpr std::string_view kPlainText = "text/plain; charset=utf-8";

// Written by functions of their own, or by the server.
inline constexpr std::string_view kOwnHeaders[] = {
    "Connection", "Content-Length", "Content-Type",     "Location",
    "Set-Cookie", "Status",         "Transfer-Encoding"};

inline constexpr const char *kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
inline constexpr const char *kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

}  // namespace detail

/** With which requests that another site causes a browser sends a cookie. */
enum class SameSite {
  strict, /**< with none */
  lax,    /**< with links to this site */
  none    /**< with all; takes secure() */
};

/** A cookie to be set, for Response::cookie().
 *
 *  @code
 *  response.cookie(tarn::SetCookie("guest", name).max_age(60).secure());
 *  @endcode
 *
 *  Without more it ends with the browser's session, goes to all pages of this host, is hidden from
 *  their scripts, and comes with links from other sites but not with their forms. It is a view: the
 *  texts have to live until the response has taken it.
 */
class SetCookie {
 public:
  /** Makes a cookie to be set.
   *
   *  @param name   letters, digits and any of "!#$&'*-.^_`|~"
   *  @param value  any text without zero bytes; it comes back as it is
   */
  SetCookie(std::string_view name, std::string_view value) noexcept : name_(name), value_(value) {}
  SetCookie(std::string_view name, std::nullptr_t) = delete;

  /** Keeps it for so many seconds. 0 deletes it. */
  SetCookie &max_age(std::int64_t seconds) noexcept {
    max_age_ = seconds;
    keeps_ = true;
    return *this;
  }
  /** For the pages below this path, which begins with "/". */
  SetCookie &path(std::string_view path) noexcept {
    path_ = path;
    return *this;
  }
  /** For this host and all below it, instead of the host that answers. */
  SetCookie &domain(std::string_view domain) noexcept {
    domain_ = domain;
    return *this;
  }
  /** By https only. */
  SetCookie &secure() noexcept {
    secure_ = true;
    return *this;
  }
  /** Lets scripts in the page read it. */
  SetCookie &readable_by_scripts() noexcept {
    http_only_ = false;
    return *this;
  }
  /** With which requests from other sites it is sent; SameSite::lax without it. */
  SetCookie &same_site(SameSite site) noexcept {
    same_site_ = site;
    return *this;
  }

 private:
  friend class Response;

  // Why it is no cookie, or none that a browser would take; null when it is one.
  const char *problem() const noexcept {
    using namespace detail;
    // Tarn reads names as URL-encoded.
    const auto in_name = [](char c) { return is_token(c) && !is_among(c, "%+"); };
    const auto in_path = [](char c) { return is_visible(c) && c != ';'; };
    const auto in_domain = [](char c) { return is_alphanumeric(c) || is_among(c, ".-"); };
    const bool for_host = begins_with(name_, "__Host-");
    const bool for_https = for_host || begins_with(name_, "__Secure-");
    if (name_.empty() || !all_of(name_, in_name)) return "a cookie has a name that is none";
    if (is_among('\0', value_)) return "a cookie's value has a zero byte";
    if (path_.empty() || path_[0] != '/' || !all_of(path_, in_path)) {
      return "a cookie has a path that is none";
    }
    if (!all_of(domain_, in_domain)) return "a cookie has a domain that is none";
    if ((for_https || same_site_ == SameSite::none) && !secure_) {
      return "a cookie that has to be secure is not";
    }
    if (for_host && (path_ != "/" || !domain_.empty())) {
      return "a cookie named __Host- has a path or a domain";
    }
    return nullptr;
  }

  void put(detail::Buffer &out) const noexcept {
    out << "Set-Cookie: " << name_ << "=";
    detail::put_url(out, value_);
    if (keeps_) {
      char age[24];
      std::snprintf(age, sizeof age, "%lld", static_cast<long long>(max_age_));
      out << "; Max-Age=" << age;
    }
    if (!domain_.empty()) out << "; Domain=" << domain_;
    out << "; Path=" << path_;
    if (secure_) out << "; Secure";
    if (http_only_) out << "; HttpOnly";
    constexpr std::string_view kSites[] = {"Strict", "Lax", "None"};
    out << "; SameSite=" << kSites[static_cast<int>(same_site_)] << "\r\n";
  }

  std::string_view name_;
  std::string_view value_;
  std::string_view path_ = "/";
  std::string_view domain_;
  std::int64_t max_age_ = 0;
  bool keeps_ = false;  // beyond the browser's session
  SameSite same_site_ = SameSite::lax;
  bool secure_ = false;
  bool http_only_ = true;
};

/** The answer to a request.
 *
 *  @code
 *  return tarn::Response().status(404).send(page) ? 0 : 1;
 *  @endcode
 *
 *  Functions before send() set what the answer says, in any order. What cannot be written safely,
 *  such as a header with a line end in it, is refused: send() then answers false, problem() tells
 *  why, and the visitor gets a plain page for status 500 instead.
 */
class Response {
 public:
  /** Begins an answer.
   *
   *  @param out  where the server reads; stays open */
  explicit Response(FILE *out = stdout) noexcept
      : out_(out), head_(std::string_view(CgiEnv_getRequestMethod(nullptr)) == "HEAD") {}
  Response(const Response &) = delete;
  Response &operator=(const Response &) = delete;

  /** 200 to 599; 200 without it. */
  Response &status(int code) noexcept {
    if (code < 200 || code > 599) return refuse("a status is none");
    status_ = code;
    return *this;
  }

  /** What the body is, instead of what the sending function says. */
  Response &content_type(std::string_view type) noexcept {
    if (type.empty() || !detail::all_of(type, detail::is_in_header)) {
      return refuse("a content type is none");
    }
    return keep(type_, {type});
  }

  /** Sends the browser on to a page of this site.
   *
   *  The status goes with it, so that the browser asks anew: a path alone would let the server
   *  answer with that page under this address.
   *
   *  @param path  with the query, if any; begins with one "/", in ASCII as in a URL
   *  @param code  301, 302, 303, 307 or 308; with 303 a form is not sent again
   */
  Response &redirect(std::string_view path, int code = 303) noexcept {
    if (!detail::is_own_path(path)) return refuse("a path to redirect to is none of this site");
    return redirect_to(path, code);
  }

  /** Sends the browser on to any site: never one that a visitor named.
   *
   *  @param url  begins with "http://" or "https://" and a host; otherwise as for redirect()
   */
  Response &redirect_away(std::string_view url, int code = 303) noexcept {
    if (!detail::is_site_url(url)) return refuse("a URL to redirect to is none");
    return redirect_to(url, code);
  }

  /** Adds a header of any name but those that have a function here or are the server's.
   *
   *  @param name   letters, digits and any of "!#$%&'*+-.^_`|~"
   *  @param value  without control characters other than tabs
   */
  Response &header(std::string_view name, std::string_view value) noexcept {
    if (name.empty() || !detail::all_of(name, detail::is_token)) {
      return refuse("a header has a name that is none");
    }
    if (detail::is_one_of(name, detail::kOwnHeaders)) return refuse("a header is not to be added");
    if (!detail::all_of(value, detail::is_in_header)) {
      return refuse("a header's value has a control character");
    }
    lines_ << name << ": " << value << "\r\n";
    return *this;
  }

  /** Keeps the answer out of all caches. */
  Response &no_store() noexcept { return header("Cache-Control", "no-store"); }

  /** Keeps browsers from taking the body for another type than the content type. */
  Response &nosniff() noexcept { return header("X-Content-Type-Options", "nosniff"); }

  /** Keeps the page out of other pages' frames. */
  Response &deny_framing() noexcept { return header("X-Frame-Options", "DENY"); }

  /** Keeps the page's address from those that it links to. */
  Response &no_referrer() noexcept { return header("Referrer-Policy", "no-referrer"); }

  /** What the page may load and run: `default-src 'self'` and the like. */
  Response &content_security_policy(std::string_view policy) noexcept {
    return header("Content-Security-Policy", policy);
  }

  /** The language of the body: `en`. */
  Response &content_language(std::string_view tag) noexcept {
    return header("Content-Language", tag);
  }

  /** The methods that the script takes: `GET, POST`. Goes with status 405. */
  Response &allow(std::string_view methods) noexcept { return header("Allow", methods); }

  /** When the content was changed. */
  Response &last_modified(std::time_t when) noexcept {
    std::tm utc;
    if (gmtime_r(&when, &utc) == nullptr || utc.tm_year < -1900 || utc.tm_year > 9999 - 1900) {
      return refuse("a time is none");
    }
    char date[64];
    std::snprintf(date, sizeof date, "%s, %02d %s %04d %02d:%02d:%02d GMT",
                  detail::kDays[utc.tm_wday], utc.tm_mday, detail::kMonths[utc.tm_mon],
                  utc.tm_year + 1900, utc.tm_hour, utc.tm_min, utc.tm_sec);
    return header("Last-Modified", date);
  }

  /** A name for this state of the content, without its quotation marks. */
  Response &etag(std::string_view tag) noexcept {
    const auto in_tag = [](char c) { return !detail::is_control(c) && c != ' ' && c != '"'; };
    if (!detail::all_of(tag, in_tag)) return refuse("an etag is none");
    lines_ << "ETag: \"" << tag << "\"\r\n";
    return *this;
  }

  /** Lets the browser save the body under this name. */
  Response &attachment(std::string_view name) noexcept {
    lines_ << "Content-Disposition: attachment; filename*=UTF-8''";
    detail::put_url(lines_, name);
    lines_ << "\r\n";
    return *this;
  }

  /** Sets a cookie in the browser. */
  Response &cookie(const SetCookie &cookie) noexcept {
    if (const char *problem = cookie.problem()) return refuse(problem);
    cookie.put(cookies_);
    return *this;
  }

  /** Whether the header goes without the body. By itself it does when the request's method is HEAD.
   */
  Response &head(bool alone) noexcept {
    head_ = alone;
    return *this;
  }

  /** Sends a page, as text/html in UTF-8.
   *
   *  @return whether the answer has been written, as it was meant to be and to the end; otherwise
   *          problem() tells what went wrong
   */
  [[nodiscard]] bool send(const Element &page) noexcept {
    const Text body = html(page);
    refuse(body.problem());
    return send_as("text/html; charset=utf-8", body.view());
  }
  /** Sends an answer without content, such as a redirection. @return as for a page */
  [[nodiscard]] bool send() noexcept { return send_text({}); }
  /** Sends a text, as text/plain in UTF-8. @return as for a page */
  [[nodiscard]] bool send_text(std::string_view text) noexcept {
    return send_as(detail::kPlainText, text);
  }
  /** Sends bytes, as application/octet-stream. @return as for a page */
  [[nodiscard]] bool send_bytes(std::string_view bytes) noexcept {
    return send_as("application/octet-stream", bytes);
  }

  /** What was refused first, or failed, in words for the server's log. @return a constant text;
   *  null when all is well */
  const char *problem() const noexcept { return problem_; }

 private:
  // The first problem stays.
  Response &refuse(const char *problem) noexcept {
    if (problem_ == nullptr) problem_ = problem;
    return *this;
  }

  Response &redirect_to(std::string_view url, int code) noexcept {
    constexpr int kCodes[] = {301, 302, 303, 307, 308};
    bool redirects = false;
    for (const int one : kCodes) redirects = redirects || code == one;
    if (!redirects) return refuse("a status does not redirect");
    return keep(location_, {"Location: ", url, "\r\n"}).status(code);
  }

  Response &keep(Text &place, std::initializer_list<std::string_view> pieces) noexcept {
    detail::Buffer text;
    for (const std::string_view piece : pieces) text << piece;
    place = text.take();
    return refuse(place.problem());
  }

  bool send_as(std::string_view type, std::string_view body) noexcept {
    if (std::exchange(sent_, true)) {
      refuse("an answer has been sent before");
      return false;
    }
    const Text lines = lines_.take();
    const Text cookies = cookies_.take();
    refuse(lines.problem()).refuse(cookies.problem());
    if (problem_ == nullptr) {
      write(status_, type_.view().empty() ? type : type_.view(),
            {location_.view(), lines.view(), cookies.view()}, body);
    } else {
      write(500, detail::kPlainText, {}, "Internal Server Error\n");
    }
    if (std::fflush(out_) != 0 || std::ferror(out_) != 0) refuse("the answer was not written");
    return problem_ == nullptr;
  }

  // A server takes 200 as said, and may then answer 304 in its place.
  void write(int status, std::string_view type, std::initializer_list<std::string_view> lines,
             std::string_view body) noexcept {
    const bool has_body = status != 204 && status != 304;
    if (status != 200) std::fprintf(out_, "Status: %d %s\r\n", status, detail::reason_for(status));
    if (has_body) {
      put("Content-Type: ");
      put(type);
      put("\r\n");
    }
    for (const std::string_view line : lines) put(line);
    if (has_body) std::fprintf(out_, "Content-Length: %zu\r\n", body.size());
    put("\r\n");
    if (has_body && !head_) put(body);
  }

  void put(std::string_view text) noexcept {
    if (!text.empty()) std::fwrite(text.data(), 1, text.size(), out_);
  }

  FILE *out_;
  bool head_;
  bool sent_ = false;
  int status_ = 200;
  Text type_{adopt, nullptr, 0};
  Text location_{adopt, nullptr, 0};
  detail::Buffer lines_;
  detail::Buffer cookies_;
  const char *problem_ = nullptr;
};

}  // namespace script
}  // namespace tarn

#endif  // TARN_HPP
