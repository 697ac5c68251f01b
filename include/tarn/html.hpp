/* Writing HTML. */
#ifndef TARN_HTML_HPP
#define TARN_HTML_HPP

#include <cstddef>
#include <optional>
#include <string_view>

#include "element.hpp"
#include "escape.hpp"
#include "text.hpp"

namespace tarn {
namespace detail {

// What an element may contain.
enum class Content { kAny, kText, kRaw, kNothing };

inline constexpr std::string_view kVoidElements[] = {
    "area", "base",  "basefont", "bgsound", "br",   "col",   "embed",  "frame", "hr",
    "img",  "input", "keygen",   "link",    "meta", "param", "source", "track", "wbr"};
inline constexpr std::string_view kRawElements[] = {"iframe", "noembed", "noframes",
                                                    "script", "style",   "xmp"};
inline constexpr std::string_view kTextElements[] = {"textarea", "title"};
// Browsers drop a line feed right after the start tag of these.
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

// Excludes plaintext, which no end tag ends.
inline bool is_element_name(std::string_view name) noexcept {
  return !name.empty() && is_letter(name[0]) &&
         all_of(name, [](char c) { return is_alphanumeric(c) || c == '-'; }) &&
         !is_one_of(name, {"plaintext"});
}

inline bool is_attribute_name(std::string_view name) noexcept {
  return !name.empty() &&
         all_of(name, [](char c) { return is_visible(c) && !is_among(c, "\"'/<=>`"); });
}

// Whether browsers read the attribute's value as a script, as a style sheet or as a page.
inline bool is_code(std::string_view name) noexcept {
  return begins_with(name, "on") || is_one_of(name, kCodeAttributes);
}

// Whether a URL is relative, or has a scheme that runs nothing. Browsers remove some spaces and
// control characters before they look for the scheme; this ignores all of them everywhere.
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

// Writes a tree as HTML. It keeps the open elements in an array and does not recurse, so a deep tree
// cannot exhaust the stack. Its functions return the reason why they failed, or null.
class Renderer {
 public:
  using Problem = const char *;

  explicit Renderer(Buffer &out) noexcept : out_(out) {}

  Problem render(ElementView top) noexcept {
    Problem problem = put_element(top, Content::kAny);
    while (problem == nullptr && open_.size() > 0) problem = put_next(open_.last());
    return problem;
  }

 private:
  // An element whose end tag has not been written yet.
  struct Open {
    TarnHandle element;
    std::size_t next;
    Content content;
  };

  // Writes the next child of the innermost open element, or its end tag after the last child.
  Problem put_next(Open &open) noexcept {
    const Elements children = ElementView(open.element).children();
    if (open.next < children.size()) return put_element(children[open.next++], open.content);
    const Open closed = open_.pop();
    return put_end_tag(*ElementView(closed.element).name(), closed.content);
  }

  // Writes a text; or the start tag of an element and its own text.
  Problem put_element(ElementView element, Content around) noexcept {
    const std::optional<std::string_view> name = element.name();
    const std::string_view text = element.text().value_or("");
    if (!name) {
      if (!element.children().empty()) return "text contains elements";
      return put_text(text, element.is_raw(), around);
    }
    if (around != Content::kAny) return "element inside an element that may only contain text";
    if (!is_element_name(*name)) return "invalid element name";
    out_ << "<" << *name;
    for (const AttributeView attribute : element.attributes()) {
      if (const Problem problem = put_attribute(attribute)) return problem;
    }
    out_ << ">";
    if (is_one_of(*name, kLineElements)) out_ << "\n";
    const Content content = content_of(*name);
    if (content == Content::kNothing) {
      const bool empty = text.empty() && element.children().empty();
      return empty ? nullptr : "void element has content";
    }
    if (content != Content::kAny) content_start_ = out_.written().size();
    if (!open_.push({*element.handle(), 0, content})) return kOutOfMemory;
    return put_text(text, false, content);
  }

  Problem put_end_tag(std::string_view name, Content content) noexcept {
    if (content != Content::kAny && ends_early(name)) return "content would end its element early";
    out_ << "</" << name << ">";
    return nullptr;
  }

  Problem put_text(std::string_view text, bool raw, Content around) noexcept {
    if (raw) {
      out_ << text;
      return nullptr;
    }
    if (around == Content::kRaw && !text.empty()) return "script or style content must be Raw";
    put_html(out_, text);
    return nullptr;
  }

  Problem put_attribute(AttributeView attribute) noexcept {
    const std::string_view name = attribute.name().value_or("");
    if (!is_attribute_name(name)) return "invalid attribute name";
    const bool trusted = attribute.is_raw();
    if (!trusted && is_code(name)) return "style, srcdoc and event attributes must be Raw";
    out_ << " " << name;
    const std::optional<std::string_view> value = attribute.value();
    if (!value) return nullptr;
    if (!trusted && is_one_of(name, kUrlAttributes) && !is_safe_url(*value)) {
      return "URL scheme must be http, https, mailto or tel";
    }
    out_ << "=\"";
    put_html(out_, *value);
    out_ << "\"";
    return nullptr;
  }

  // Whether the content contains the end tag of its element, or "<!--", which can hide the end tag
  // of a script.
  bool ends_early(std::string_view name) noexcept {
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

  Buffer &out_;
  std::size_t content_start_ = 0;
  Array<Open> open_;
};

}  // namespace detail

/** Writes an element, with all that it contains, as HTML; an `html` element with its DOCTYPE.
 *
 *  A browser reads back the tree that you built, with every text and value unchanged except for what
 *  escape_html() replaces, as long as HTML allows such a tree (a paragraph cannot contain a
 *  paragraph). Of several attributes with one name, the browser uses the first. A tree may have any
 *  depth. Refused are
 *
 *   - element names with characters other than letters, digits and "-", and `plaintext`; attribute
 *     names with spaces, control characters, quotation marks of any kind, or any of "/<=>"
 *   - content in an element that is always empty, such as `br`; elements in `title`, `textarea` and
 *     elements for code: `script`, `style`, `iframe`, `noembed`, `noframes`, `xmp`
 *   - in an element for code, text that is not Raw, and Raw that would end the element early
 *   - attributes for code that are not Raw: `style`, `srcdoc` and all that begin with "on"
 *   - URLs in attributes such as `href` and `src` that are not Raw and have a scheme other than http,
 *     https, mailto and tel; a relative URL has none
 *
 *  @return the text; or the reason why there is none: something was refused, or an allocation failed
 */
[[nodiscard]] inline Text html(const Element &element) noexcept {
  if (!element) return Text::refused("element is empty: moved from, or out of memory");
  const ElementView top = element.view();
  detail::Buffer out;
  if (detail::is_one_of(top.name().value_or(""), {"html"})) out << "<!DOCTYPE html>\n";
  if (const char *problem = detail::Renderer(out).render(top)) return Text::refused(problem);
  return out.take();
}

}  // namespace tarn

#endif  // TARN_HTML_HPP
