/* Tarn for C++: the interface of tarn.h as types that own, view and check.
 *
 * One header over the C interface, C++17: nothing to compile, nothing exported. It throws nothing,
 * and a script that is compiled with -fno-exceptions needs no C++ runtime for it.
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
 *     may be a null pointer.
 *  5. Memory. What could not be made whole holds nothing, and neither does what it was to be part
 *     of: `if (!element)` asks. Only a clone() lacks silently what memory did not suffice for.
 *  6. C. handle() gives the address that a function of tarn.h takes, release() gives an object
 *     away, and each type has a constructor `(tarn::adopt, handle)` that takes one over.
 *  7. Threads. As in tarn.h: no object may be used from two threads at once.
 */
#ifndef TARN_HPP
#define TARN_HPP

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

// What all views of nodes share. The C interface takes the address of a handle also to read.
template <std::uint32_t kMagic>
class Lent {
 public:
  static constexpr std::uint32_t magic = kMagic;

  explicit Lent(TarnHandle handle) noexcept : handle_(handle) {}

  /** Tells whether the view has an object. */
  explicit operator bool() const noexcept { return handle_ != 0; }

  /** The address to pass to functions of tarn.h that read; never delete through it. */
  TarnHandle *handle() &noexcept { return &handle_; }

 protected:
  std::optional<std::string_view> text_in(std::uint32_t slot) const noexcept {
    TarnHandle own = handle_;
    return maybe(CGIgs_getString(&own, slot, kMagic));
  }
  std::uint32_t number_in(std::uint32_t slot) const noexcept {
    TarnHandle own = handle_;
    return CGIgs_getInt(&own, slot, kMagic);
  }
  TarnHandle child_in(std::uint32_t slot) const noexcept {
    TarnHandle own = handle_;
    return CGIgs_getStruct(&own, slot, kMagic);
  }

  TarnHandle handle_;
};

// What a list lends: an Item for each of its elements, made when it is asked for.
template <class Item, std::uint32_t kMagic, auto kCount, auto kAt>
class Range {
 public:
  static constexpr std::uint32_t magic = kMagic;

  class Iterator {
    struct Arrow {
      Item item;
      const Item *operator->() const noexcept { return &item; }
    };

   public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = Item;
    using difference_type = std::ptrdiff_t;
    using pointer = Arrow;
    using reference = Item;

    Iterator() noexcept = default;
    Iterator(TarnHandle list, difference_type index) noexcept : list_(list), index_(index) {}

    Item operator*() const noexcept {
      TarnHandle own = list_;
      return Item(kAt(&own, static_cast<std::uint32_t>(index_)));
    }
    Arrow operator->() const noexcept { return {**this}; }
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

  explicit Range(TarnHandle list) noexcept : list_(list) {}

  /** Counts the elements. */
  std::size_t size() const noexcept {
    TarnHandle own = list_;
    return static_cast<std::size_t>(kCount(&own));
  }
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
    if (kClone(&own, &made) != TARN_OK) kDelete(&made);
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

  TarnHandle handle_ = 0;
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

// The generic list of a typed list, which owns what the words in it name; 0 without memory.
inline TarnHandle words_of(TarnHandle list, std::uint32_t magic) noexcept {
  if (CGIgs_getList(&list, 0, magic) == 0) {
    TarnHandle words = 0;
    TARNGenericList_new(&words);
    CGIgs_setList(&list, 0, &words, magic);
  }
  return CGIgs_getList(&list, 0, magic);
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
    TarnHandle own = handle_;
    const char *text = TARNString_c_str(&own);
    return text != nullptr ? text : "";
  }
  const char *c_str() const && = delete;

  /** Counts the bytes. */
  std::size_t size() const noexcept {
    TarnHandle own = handle_;
    return TARNString_length(&own);
  }
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
  bool append_format(const char *format, ...) noexcept TARN_PRINTF(2, 3) {
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

// ---- HTML attributes and elements ---------------------------------------------------------------

/** The number (int 0) of an element or attribute that was made of Raw. */
inline constexpr std::uint32_t raw_mark = 0x57415221;

/** A text that is trusted as it stands: markup where text is expected. Never make one of what a
 *  visitor sent. It is a view: the text has to live until an element or attribute is made of it.
 */
class Raw {
 public:
  explicit Raw(std::string_view text) noexcept : text_(text) {}
  explicit Raw(std::nullptr_t) = delete;

  std::string_view text() const noexcept { return text_; }

 private:
  std::string_view text_;
};

/** Reads an attribute. */
class AttributeView : public detail::Lent<TARN_ATTRIBUTE_MAGIC> {
 public:
  using Lent::Lent;

  /** The name. @return a view, good as long as the attribute; nothing when there is none */
  std::optional<std::string_view> name() const noexcept { return text_in(0); }

  /** The value. @return as name(); nothing for an attribute without a value, such as `required` */
  std::optional<std::string_view> value() const noexcept { return text_in(1); }

  /** Tells whether the value was made of Raw. */
  bool is_raw() const noexcept { return number_in(0) == raw_mark; }
};

/** An attribute of an element. */
class Attribute
    : public detail::Object<Attribute, AttributeView, detail::delete_node<TARN_ATTRIBUTE_MAGIC>,
                            detail::clone_node<TARN_ATTRIBUTE_MAGIC>> {
 public:
  using Object::Object;

  /** An attribute without a value, such as `required`. */
  explicit Attribute(std::string_view name) noexcept { set_text(0, name); }

  /** An attribute with a value, which is escaped when it is written. */
  Attribute(std::string_view name, std::string_view value) noexcept : Attribute(name) {
    set_text(1, value);
  }
  Attribute(std::string_view name, std::nullptr_t) = delete;

  /** An attribute with a value that is trusted: a script for `onclick`, a URL of any scheme. It is
   *  escaped too, so that it stays what it is. */
  Attribute(std::string_view name, Raw value) noexcept : Attribute(name, value.text()) {
    CGIgs_setInt(&handle_, 0, raw_mark, TARN_ATTRIBUTE_MAGIC);
  }
};

/** Attributes, in order; see detail::Range for what it does. */
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

/** Elements, in order; see detail::Range for what it does. */
using Elements = detail::Range<ElementView, TARN_ELEMENT_LIST_MAGIC, HTMLElementList_getCount,
                               HTMLElementList_getByIndex>;

/** Reads an element. */
class ElementView : public detail::Lent<TARN_ELEMENT_MAGIC> {
 public:
  using Lent::Lent;

  /** The name. @return a view, good as long as the element; nothing for a text */
  std::optional<std::string_view> name() const noexcept { return text_in(0); }

  /** The element's own text, which comes before its children. A child without a name is a text:
   *  this one. @return as name() */
  std::optional<std::string_view> text() const noexcept { return text_in(1); }

  /** Tells whether the text was made of Raw. */
  bool is_raw() const noexcept { return number_in(0) == raw_mark; }

  /** The attributes, lent; empty when there is none. */
  Attributes attributes() const noexcept { return Attributes(child_in(0)); }

  /** The embedded elements and texts, lent; empty when there is none. */
  Elements children() const noexcept;
};

inline Elements ElementView::children() const noexcept { return Elements(child_in(1)); }

class ElementList;

/** An element with its attributes and all that is in it.
 *
 *  @code
 *  tarn::Element("p", tarn::Attribute("class", "greeting"), "Hello, ", name,
 *                tarn::Element("b", "!"))
 *  @endcode
 */
class Element : public detail::Object<Element, ElementView, HTMLElement_delete, HTMLElement_clone> {
 public:
  using Object::Object;

  /** Makes an element of these pieces, in order; each is what add() takes. */
  template <class... Pieces>
  explicit Element(std::string_view name, Pieces &&...pieces) noexcept {
    set_text(0, name);
    (add(std::forward<Pieces>(pieces)), ...);
  }

  /** Appends a text, which is escaped when it is written. */
  Element &add(std::string_view text) &noexcept { return add(Element(detail::TextPiece{text})); }
  Element &add(std::nullptr_t) & = delete;

  /** Appends markup that is trusted as it stands. */
  Element &add(Raw markup) &noexcept {
    return add(Element(detail::TextPiece{markup.text(), raw_mark}));
  }

  /** Takes an attribute over as the last one. */
  Element &add(Attribute &&attribute) &noexcept {
    require(detail::hand_over(list_in(0, TARN_ATTRIBUTE_LIST_MAGIC), TARN_ATTRIBUTE_LIST_MAGIC,
                              attribute));
    return *this;
  }

  /** Takes an element over, with all that is in it, as the last child. */
  Element &add(Element &&child) &noexcept {
    require(&child != this &&
            detail::hand_over(list_in(1, TARN_ELEMENT_LIST_MAGIC), TARN_ELEMENT_LIST_MAGIC, child));
    return *this;
  }

  /** Takes over all attributes of a list, which is empty then. */
  Element &add(AttributeList &&attributes) &noexcept {
    require(detail::hand_over_all(list_in(0, TARN_ATTRIBUTE_LIST_MAGIC), TARN_ATTRIBUTE_LIST_MAGIC,
                                  *attributes.handle()));
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
    set_text(1, piece.text);
    CGIgs_setInt(&handle_, 0, piece.mark, TARN_ELEMENT_MAGIC);
  }

  // The list in a slot, which begins empty.
  TarnHandle list_in(std::uint32_t slot, std::uint32_t magic) noexcept {
    if (CGIgs_getStruct(&handle_, slot, TARN_ELEMENT_MAGIC) == 0) {
      TarnHandle empty = 0;
      CGIgs_new(&empty, magic);
      CGIgs_setStruct(&handle_, slot, &empty, TARN_ELEMENT_MAGIC, magic);
      CGIgs_delete(&empty, magic);
    }
    return CGIgs_getStruct(&handle_, slot, TARN_ELEMENT_MAGIC);
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
  ElementList &add(Raw markup) &noexcept {
    return add(Element(detail::TextPiece{markup.text(), raw_mark}));
  }
};

inline Element &Element::add(ElementList &&elements) &noexcept {
  require(detail::hand_over_all(list_in(1, TARN_ELEMENT_LIST_MAGIC), TARN_ELEMENT_LIST_MAGIC,
                                *elements.handle()));
  return *this;
}

// ---- Answers ------------------------------------------------------------------------------------

}  // namespace script
}  // namespace tarn

#endif  // TARN_HPP
