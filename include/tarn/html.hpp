/* Pages. */
#ifndef TARN_HTML_HPP
#define TARN_HTML_HPP

#include <cstddef>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "element.hpp"
#include "escape.hpp"

namespace tarn {

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

}  // namespace tarn

#endif  // TARN_HTML_HPP
