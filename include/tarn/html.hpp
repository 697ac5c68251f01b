/* Writing HTML. */
#ifndef TARN_HTML_HPP
#define TARN_HTML_HPP

#include <cstddef>
#include <optional>
#include <string_view>

#include "attribute_kind.hpp"
#include "element.hpp"
#include "escape.hpp"
#include "text.hpp"

namespace tarn {
namespace detail {

// What an element may contain.
enum class Content { kAny, kText, kRaw, kNothing };

inline constexpr std::string_view kVoidElements[] = {
    "area"sv,  "base"sv,  "basefont"sv, "bgsound"sv, "br"sv,    "col"sv,
    "embed"sv, "frame"sv, "hr"sv,       "img"sv,     "input"sv, "keygen"sv,
    "link"sv,  "meta"sv,  "param"sv,    "source"sv,  "track"sv, "wbr"sv};
inline constexpr std::string_view kRawElements[] = {"iframe"sv, "noembed"sv, "noframes"sv,
                                                    "script"sv, "style"sv,   "xmp"sv};
inline constexpr std::string_view kTextElements[] = {"textarea"sv, "title"sv};
// Browsers drop a line feed right after the start tag of these.
inline constexpr std::string_view kLineElements[] = {"listing"sv, "pre"sv, "textarea"sv};

inline constexpr std::string_view kSafeSchemes[] = {"http"sv, "https"sv, "mailto"sv, "tel"sv};
inline constexpr std::string_view kRunningSchemes[] = {"data"sv, "javascript"sv, "vbscript"sv};

// The elements whose `href` is followed or is an image, and whose `src` is not code or a page.
inline constexpr std::string_view kLinkElements[] = {"a"sv, "area"sv, "feimage"sv, "image"sv};
inline constexpr std::string_view kMediaElements[] = {"audio"sv,  "image"sv, "img"sv,  "input"sv,
                                                      "source"sv, "track"sv, "video"sv};
// What a link element may be with a URL of another site: its target is not loaded, or is an image.
inline constexpr std::string_view kLinkTypes[] = {
    "alternate"sv, "author"sv,  "bookmark"sv, "canonical"sv, "help"sv,
    "icon"sv,      "license"sv, "me"sv,       "next"sv,      "prev"sv};

template <class = void>
Content content_of(std::string_view name) noexcept {
  if (is_one_of(name, kVoidElements)) return Content::kNothing;
  if (is_one_of(name, kRawElements)) return Content::kRaw;
  return is_one_of(name, kTextElements) ? Content::kText : Content::kAny;
}

inline bool is_in_element_name(char c) noexcept { return is_alphanumeric(c) || c == '-'; }
inline bool is_in_attribute_name(char c) noexcept {
  return is_visible(c) && !is_among(c, "\"'/<=>`");
}

// Excludes plaintext, which no end tag ends.
inline bool is_element_name(std::string_view name) noexcept {
  return !name.empty() && is_letter(name[0]) && all_of(name, is_in_element_name) &&
         !is_one_of(name, {"plaintext"});
}

inline bool is_attribute_name(std::string_view name) noexcept {
  return !name.empty() && all_of(name, is_in_attribute_name);
}

inline bool is_blank(char c) noexcept { return c == ' ' || is_control(c); }
inline bool is_ascii(char c) noexcept { return static_cast<unsigned char>(c) < 0x80; }

// Where a URL leads. Browsers remove some spaces and control characters before they read a URL; this
// ignores all of them everywhere. Of a meta element, Chromium also removes spaces such as U+2028 from
// the start of the URL; this ignores all characters there that are not ASCII.
struct Destination {
  bool is_here = true;  // relative, without a host
  bool is_safe = true;  // relative, or with a scheme that runs nothing
  bool runs_code = false;
};

template <class = void>
Destination destination_of(std::string_view url) noexcept {
  char scheme[12];
  std::size_t size = 0;
  bool after_slash = false;
  for (const char c : url) {
    if (is_blank(c) || (!is_ascii(c) && size == 0 && !after_slash)) continue;
    const bool is_slash = c == '/' || c == '\\';  // the same to browsers
    if (after_slash) return {!is_slash, true, false};
    after_slash = is_slash && size == 0;
    if (after_slash) continue;
    if (c == ':' && size > 0) {
      const std::string_view found(scheme, size);
      return {false, is_one_of(found, kSafeSchemes), is_one_of(found, kRunningSchemes)};
    }
    const bool belongs = is_letter(c) || (size > 0 && (is_digit(c) || is_among(c, "+-.")));
    if (!belongs) return {};
    if (size < sizeof scheme) scheme[size++] = c;
  }
  return {};
}

// Whether each piece of a text passes a test. `separates` tells which characters are between them.
template <class Separates, class Test>
bool all_pieces(std::string_view text, Separates separates, Test test) noexcept {
  std::size_t start = 0;
  bool passed = true;
  for (std::size_t at = 0; at <= text.size() && passed; ++at) {
    if (at < text.size() && !separates(text[at])) continue;
    passed = test(std::string_view(text.data() + start, at - start));
    start = at + 1;
  }
  return passed;
}

template <class = void>
bool is_here(std::string_view url) noexcept {
  return destination_of(url).is_here;
}

template <class Separates>
bool all_here(std::string_view urls, Separates separates) noexcept {
  return all_pieces(urls, separates, is_here<>);
}

// Whether what follows the time in the content of a meta element that reloads the page is a URL of
// this site: "5; url=/next".
template <class = void>
bool reloads_here(std::string_view content) noexcept {
  const auto skip = [&content](auto skipped) {
    while (!content.empty() && skipped(content[0])) content.remove_prefix(1);
  };
  const auto separates = [](char c) { return is_blank(c) || !is_ascii(c) || is_among(c, ",;"); };
  skip(is_blank);
  skip([separates](char c) { return !separates(c); });
  skip(separates);
  if (begins_with(content, "url")) content.remove_prefix(3);
  skip([](char c) { return is_blank(c) || !is_ascii(c) || is_among(c, "=\"'"); });
  return is_here(content);
}

inline constexpr const char *kCode = "style, srcdoc and event attributes must be Raw";
inline constexpr const char *kForeign = "this URL must be a path of this site, or Raw";

// Writes a tree as HTML. It keeps the open elements in an array and does not recurse, so a deep tree
// cannot exhaust the stack. Its functions return the reason why they failed, or null. It is a template,
// as html() is: compilers instantiate it only for scripts that write HTML.
template <class = void>
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
    const std::string_view text = or_empty(element.text());
    if (!name) {
      if (!element.children().empty()) return "text contains elements";
      return put_text(text, element.is_raw(), around);
    }
    if (!same(around, Content::kAny)) return "element inside an element that may only contain text";
    if (!is_element_name(*name)) return "invalid element name";
    out_ << "<" << *name;
    for (const AttributeView attribute : element.attributes()) {
      if (const Problem problem = put_attribute(element, attribute)) return problem;
    }
    out_ << ">";
    if (is_one_of(*name, kLineElements)) out_ << "\n";
    const Content content = content_of(*name);
    if (same(content, Content::kNothing)) {
      const bool empty = text.empty() && element.children().empty();
      return empty ? nullptr : "void element has content";
    }
    if (!same(content, Content::kAny)) content_start_ = out_.written().size();
    if (!open_.push({*element.handle(), 0, content})) return kOutOfMemory;
    return put_text(text, false, content);
  }

  Problem put_end_tag(std::string_view name, Content content) noexcept {
    if (!same(content, Content::kAny) && ends_early(name))
      return "content would end its element early";
    out_ << "</" << name << ">";
    return nullptr;
  }

  Problem put_text(std::string_view text, bool raw, Content around) noexcept {
    if (raw) {
      out_ << text;
      return nullptr;
    }
    if (same(around, Content::kRaw) && !text.empty()) return "script or style content must be Raw";
    put_html(out_, text);
    return nullptr;
  }

  Problem put_attribute(ElementView element, AttributeView attribute) noexcept {
    const std::string_view name = or_empty(attribute.name());
    if (!is_attribute_name(name)) return "invalid attribute name";
    const std::optional<std::string_view> value = attribute.value();
    if (!attribute.is_raw()) {
      if (const Problem problem = problem_of(element, name, or_empty(value))) return problem;
    }
    out_ << " " << name;
    if (!value) return nullptr;
    out_ << "=\"";
    put_html(out_, *value);
    out_ << "\"";
    return nullptr;
  }

  // Why a value that is not Raw is refused.
  static Problem problem_of(ElementView element, std::string_view name,
                            std::string_view value) noexcept {
    const std::string_view around = or_empty(element.name());
    switch (quick_kind_of(name)) {
      case Kind::kText:
      case Kind::kId:
        return nullptr;
      case Kind::kScript:
      case Kind::kStyle:
      case Kind::kPage:
        return kCode;
      case Kind::kTemplate:
        return "attributes of template engines must be Raw";
      case Kind::kUrl:
        return problem_of_url(value, true);
      case Kind::kOwnUrl:
        return problem_of_url(value, false);
      case Kind::kLink:
        return problem_of_url(value, is_one_of(around, kLinkElements) ||
                                         (is_one_of(around, {"link"}) && links_safely(element)));
      case Kind::kSource:
        return problem_of_url(value, is_one_of(around, kMediaElements));
      case Kind::kParameter:
        return is_one_of(around, {"param"}) ? problem_of_url(value, false) : nullptr;
      case Kind::kOwnUrls:
        return all_here(value, [](char c) { return is_blank(c) || c == ','; }) ? nullptr : kForeign;
      case Kind::kAnimation:
        return all_here(value, [](char c) { return c == ';'; }) ? nullptr : kForeign;
      case Kind::kAnimated:
        return is_animated_safely(value) ? nullptr : kCode;
      case Kind::kMeta:
        return !reloads(element) || reloads_here(value) ? nullptr : kForeign;
      case Kind::kUnknown:
        break;
    }
    const bool is_refused = destination_of(value).runs_code && same(kind_of(name), Kind::kUnknown);
    return is_refused ? "unknown attribute must not hold a URL that runs code" : nullptr;
  }

  static Problem problem_of_url(std::string_view url, bool leads_anywhere) noexcept {
    const Destination destination = destination_of(url);
    if (!destination.is_safe) return "URL scheme must be http, https, mailto or tel";
    return leads_anywhere || destination.is_here ? nullptr : kForeign;
  }

  // Whether a test passes for the value of any attribute of this name. Browsers use the first, but
  // this does not depend on it.
  template <class Test>
  static bool any_value(ElementView element, std::string_view name, Test test) noexcept {
    bool found = false;
    for (const AttributeView attribute : element.attributes()) {
      found = found ||
              (is_one_of(or_empty(attribute.name()), {name}) && test(or_empty(attribute.value())));
    }
    return found;
  }

  // Whether a link element loads nothing but an image.
  static bool links_safely(ElementView link) noexcept {
    const auto is_safe = [](std::string_view type) {
      return type.empty() || is_one_of(type, kLinkTypes);
    };
    const auto is_unsafe = [is_safe](std::string_view types) {
      return !all_pieces(types, is_blank, is_safe);
    };
    return any_value(link, "rel", [](std::string_view) { return true; }) &&
           !any_value(link, "rel", is_unsafe);
  }

  static bool reloads(ElementView meta) noexcept {
    return any_value(meta, "http-equiv",
                     [](std::string_view value) { return is_one_of(value, {"refresh"}); });
  }

  static bool is_animated_safely(std::string_view name) noexcept {
    const Kind kind = kind_of(name);
    return !same(kind, Kind::kScript) && !same(kind, Kind::kStyle) && !same(kind, Kind::kPage) &&
           !same(kind, Kind::kTemplate);
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
 *     names with characters other than visible ASCII, with quotation marks of any kind, or any of
 *     "/<=>"
 *   - content in an element that is always empty, such as `br`; elements in `title`, `textarea` and
 *     elements for code: `script`, `style`, `iframe`, `noembed`, `noframes`, `xmp`
 *   - in an element for code, text that is not Raw, and Raw that would end the element early
 *   - attributes for code that are not Raw: `style`, `srcdoc`, all that begin with "on", and those
 *     of template engines, such as `v-html`, `:href`, `x-data` and `hx-on:click`
 *   - URLs that are not Raw and have a scheme other than http, https, mailto and tel; a relative URL
 *     has none
 *   - URLs of other sites that are not Raw, in attributes such as `src`, `href`, `data`, `action`,
 *     `formaction`, `ping` and `srcset`, in the `content` of a `meta` element that opens another
 *     page, and in the values of an animation
 *   - URLs that run code, such as "javascript:", in attributes that HTML, SVG and MathML do not have,
 *     unless their names begin with "data-" or "aria-"
 *
 *  A URL of another site is allowed in the `href` of `a`, `area`, an `image` or `feImage` in SVG, and a
 *  `link` whose `rel` is `canonical`, `alternate`, `icon` or the like; in the `src` of `img`, `audio`,
 *  `video`, `source`, `track` and `input`; and in attributes such as `poster` and `cite`.
 *
 *  @return the text; or the reason why there is none: something was refused, or an allocation failed
 */
template <class Result = Text>
[[nodiscard]] Result html(const Element &element) noexcept {
  if (!element) return Text::refused("element is empty: moved from, or out of memory");
  const ElementView top = element.view();
  detail::Buffer out;
  if (detail::is_one_of(detail::or_empty(top.name()), {"html"})) out << "<!DOCTYPE html>\n";
  if (const char *problem = detail::Renderer<>(out).render(top)) return Text::refused(problem);
  return out.take();
}

}  // namespace tarn

#endif  // TARN_HTML_HPP
