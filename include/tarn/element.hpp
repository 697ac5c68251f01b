/* HTML elements and attributes. */
#ifndef TARN_ELEMENT_HPP
#define TARN_ELEMENT_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include "object.hpp"

namespace tarn {

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

}  // namespace tarn

#endif  // TARN_ELEMENT_HPP
