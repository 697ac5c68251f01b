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

/** Marks elements and attributes that were made from Raw, in their number (TARN_ELEMENT_NUMBER,
 *  TARN_ATTRIBUTE_NUMBER). */
inline constexpr std::uint32_t raw_mark = 0x57415221;

/** A trusted text, which is used as it is: markup where text is expected. Never make one from what
 *  a visitor sent. It is a view: the text must live until an element or attribute is made from it. A
 *  temporary is copied.
 */
class Raw {
 public:
  /** Marks a text as trusted. */
  explicit Raw(detail::KeptText text) noexcept : text_(std::move(text)) {}

  /** Tells whether there is a text. There is none if it was a null pointer, or could not be copied. */
  explicit operator bool() const noexcept { return static_cast<bool>(text_); }

  /** The text. */
  std::string_view text() const noexcept { return text_.view(); }

 private:
  detail::KeptText text_;
};

/** Reads an attribute. */
class AttributeView : public detail::NodeView<TARN_ATTRIBUTE_MAGIC> {
 public:
  using NodeView::NodeView;

  /** The name. @return a view, valid as long as the attribute; nothing when there is none */
  std::optional<std::string_view> name() const noexcept { return text_in(TARN_ATTRIBUTE_NAME); }

  /** The value. @return as name(); nothing for an attribute without a value, such as `required` */
  std::optional<std::string_view> value() const noexcept { return text_in(TARN_ATTRIBUTE_VALUE); }

  /** Tells whether the value was made from Raw. */
  bool is_raw() const noexcept { return number_in(TARN_ATTRIBUTE_NUMBER) == raw_mark; }
};

/** An attribute of an element. */
class Attribute
    : public detail::Object<Attribute, AttributeView, detail::delete_node<TARN_ATTRIBUTE_MAGIC>,
                            detail::clone_node<TARN_ATTRIBUTE_MAGIC>> {
 public:
  using Object::Object;

  /** An attribute without a value, such as `required`. */
  explicit Attribute(const detail::TextArgument &name) noexcept {
    set_text(TARN_ATTRIBUTE_NAME, name);
  }

  /** An attribute with a value, which html() escapes: a text or a whole number. */
  Attribute(const detail::TextArgument &name, const detail::TextArgument &value) noexcept
      : Attribute(name) {
    set_text(TARN_ATTRIBUTE_VALUE, value);
  }

  /** An attribute with a trusted value: a script for `onclick`, a URL of any scheme. html() escapes
   *  it as well, so it reaches the browser unchanged. */
  Attribute(const detail::TextArgument &name, const Raw &value) noexcept
      : Attribute(name, value.text()) {
    CGIgs_setInt(&handle_, TARN_ATTRIBUTE_NUMBER, raw_mark, TARN_ATTRIBUTE_MAGIC);
    reset_unless(static_cast<bool>(value));
  }
};

/** Attributes, in order: a random-access range of AttributeView. */
using Attributes = detail::Range<AttributeView, TARN_ATTRIBUTE_LIST_MAGIC,
                                 HTMLAttributeList_getCount, HTMLAttributeList_getByIndex>;

/** A list that owns attributes. Several may have the same name. */
class AttributeList : public detail::List<AttributeList, Attribute, Attributes,
                                          HTMLAttributeList_delete, HTMLAttributeList_clone> {
 public:
  using List::List;
};

namespace detail {

// A text among the children of an element. It is stored as an element without a name.
struct TextPiece {
  std::string_view text;
  bool is_there;  // not a null pointer
  std::uint32_t mark = 0;
};

}  // namespace detail

class ElementView;

/** Elements, in order: a random-access range of ElementView. */
using Elements = detail::Range<ElementView, TARN_ELEMENT_LIST_MAGIC, HTMLElementList_getCount,
                               HTMLElementList_getByIndex>;

/** Reads an element. */
class ElementView : public detail::NodeView<TARN_ELEMENT_MAGIC> {
 public:
  using NodeView::NodeView;

  /** The name. @return a view, valid as long as the element; nothing for a text */
  std::optional<std::string_view> name() const noexcept { return text_in(TARN_ELEMENT_NAME); }

  /** The element's own text, which comes before its children. For a child without a name, which is
   *  a text, this is that text. @return as name() */
  std::optional<std::string_view> text() const noexcept { return text_in(TARN_ELEMENT_TEXT); }

  /** Tells whether the text was made from Raw. */
  bool is_raw() const noexcept { return number_in(TARN_ELEMENT_NUMBER) == raw_mark; }

  /** The attributes, valid as long as the element. */
  Attributes attributes() const noexcept { return Attributes(child_in(TARN_ELEMENT_ATTRIBUTES)); }

  /** The child elements and texts, valid as long as the element. */
  Elements children() const noexcept;
};

inline Elements ElementView::children() const noexcept {
  return Elements(child_in(TARN_ELEMENT_EMBEDDED));
}

class ElementList;

/** An element with its attributes and its children.
 *
 *  @code
 *  tarn::Element("p", tarn::Attribute("class", "greeting"),
 *                "Hello, ", name, tarn::Element("b", "!"))
 *  @endcode
 */
class Element : public detail::Object<Element, ElementView, HTMLElement_delete, HTMLElement_clone> {
 public:
  using Object::Object;

  /** Makes an element from these pieces, in order. Each is something that add() takes. */
  template <class... Pieces>
  explicit Element(const detail::TextArgument &name, Pieces &&...pieces) noexcept {
    set_text(TARN_ELEMENT_NAME, name);
    (add(std::forward<Pieces>(pieces)), ...);
  }

  /** Appends a text or a whole number, which html() escapes. */
  Element &add(const detail::TextArgument &text) &noexcept {
    return add(Element(detail::TextPiece{text.view(), static_cast<bool>(text)}));
  }

  /** Appends trusted markup, which html() writes as it is. */
  Element &add(const Raw &markup) &noexcept {
    return add(Element(detail::TextPiece{markup.text(), static_cast<bool>(markup), raw_mark}));
  }

  /** Moves an attribute to the end. */
  Element &add(Attribute &&attribute) &noexcept {
    append<Attributes>(TARN_ELEMENT_ATTRIBUTES, attribute);
    return *this;
  }

  /** Moves an element to the end of the children. */
  Element &add(Element &&child) &noexcept {
    if (&child == this) {
      reset();
    } else {
      append<Elements>(TARN_ELEMENT_EMBEDDED, child);
    }
    return *this;
  }

  /** Moves all attributes of a list to the end. The list is empty afterwards. */
  Element &add(AttributeList &&attributes) &noexcept {
    append_all<Attributes>(TARN_ELEMENT_ATTRIBUTES, attributes);
    return *this;
  }

  /** Moves all elements of a list to the end. The list is empty afterwards. */
  Element &add(ElementList &&elements) &noexcept;

  // The same on an element without a name, so that it can be stored or returned.
  Element add(const detail::TextArgument &text) &&noexcept { return std::move(add(text)); }
  Element add(const Raw &markup) &&noexcept { return std::move(add(markup)); }
  Element add(Attribute &&attribute) &&noexcept { return std::move(add(std::move(attribute))); }
  Element add(Element &&child) &&noexcept { return std::move(add(std::move(child))); }
  Element add(AttributeList &&attributes) &&noexcept {
    return std::move(add(std::move(attributes)));
  }
  Element add(ElementList &&elements) &&noexcept;

  // Move or clone objects that have a name.
  Element &add(const Attribute &) & = delete;
  Element &add(const AttributeList &) & = delete;
  Element &add(const Element &) & = delete;
  Element &add(const ElementList &) & = delete;
  Element add(const Attribute &) && = delete;
  Element add(const AttributeList &) && = delete;
  Element add(const Element &) && = delete;
  Element add(const ElementList &) && = delete;

 private:
  friend class ElementList;

  explicit Element(detail::TextPiece piece) noexcept {
    set_text(TARN_ELEMENT_TEXT, piece.text);
    CGIgs_setInt(&handle_, TARN_ELEMENT_NUMBER, piece.mark, TARN_ELEMENT_MAGIC);
    reset_unless(piece.is_there);
  }
};

/** A list that owns elements. */
class ElementList : public detail::List<ElementList, Element, Elements, HTMLElementList_delete,
                                        HTMLElementList_clone> {
 public:
  using List::add;
  using List::List;

  /** Appends a text or a whole number, which html() escapes. */
  ElementList &add(const detail::TextArgument &text) &noexcept {
    return add(Element(detail::TextPiece{text.view(), static_cast<bool>(text)}));
  }

  /** Appends trusted markup, which html() writes as it is. */
  ElementList &add(const Raw &markup) &noexcept {
    return add(Element(detail::TextPiece{markup.text(), static_cast<bool>(markup), raw_mark}));
  }

  // The same on a list without a name.
  ElementList add(const detail::TextArgument &text) &&noexcept { return std::move(add(text)); }
  ElementList add(const Raw &markup) &&noexcept { return std::move(add(markup)); }
};

inline Element &Element::add(ElementList &&elements) &noexcept {
  append_all<Elements>(TARN_ELEMENT_EMBEDDED, elements);
  return *this;
}
inline Element Element::add(ElementList &&elements) &&noexcept {
  return std::move(add(std::move(elements)));
}

}  // namespace tarn

#endif  // TARN_ELEMENT_HPP
