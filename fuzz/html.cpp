// Writes trees of elements as pages, and escapes text for pages, then reads them back with an HTML
// parser that is independent of Tarn.
#include <gumbo.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "support.h"
#include "tarn.hpp"

using namespace tarn_fuzz;

namespace {

struct Attribute {
  std::string name;
  std::optional<std::string> value;
  bool trusted;
};

struct Node {
  enum Kind { kElement, kText, kRaw } kind;
  std::string text;  // for an element, its name
  std::vector<Attribute> attributes = {};
  std::vector<Node> children = {};
};

using Names = std::initializer_list<std::string_view>;

// An HTML parser moves neither these elements nor what they contain, however they are nested.
const Names kPlain = {"div", "span", "section", "b", "i", "x-y"};
const Names kCode = {"script", "style", "iframe", "noembed", "noframes", "xmp"};
const Names kOthers = {"pre", "textarea", "title", "br", "img", "input"};
const Names kUrls = {"href", "src", "action", "formaction", "data", "xlink:href", "poster", "cite"};
const Names kAnimation = {"values", "from", "to", "by"};
// Where a URL of another site would add a page or code, or receive a form.
const Names kOwnUrls = {"action", "formaction", "data", "codebase", "manifest"};
const Names kFrames = {"script", "iframe", "embed", "frame"};

bool isIn(Names names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

std::string lower(std::string text) {
  for (char &c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return text;
}

// ---- The tree -----------------------------------------------------------------------------------

// Parses "@name value", or "!name value" for a Raw value.
Attribute attributeIn(std::string_view line) {
  const std::string_view rest = line.substr(1);
  const size_t blank = rest.find(' ');
  Attribute attribute{std::string(rest.substr(0, blank)), std::nullopt, line[0] == '!'};
  if (blank != rest.npos) attribute.value = rest.substr(blank + 1);
  return attribute;
}

// Raw text is written unchanged. Replaces what a parser would not return unchanged: line ends and
// other control characters, non-ASCII bytes and, if the tree has SVG or MathML, in which even code
// is parsed as markup, "<" and "&".
void tame(Node &node, bool asMarkup) {
  if (node.kind == Node::kRaw) {
    for (char &c : node.text) {
      if (c < ' ' || c > '~' || (asMarkup && (c == '<' || c == '&'))) c = '.';
    }
  }
  for (Node &child : node.children) tame(child, asMarkup);
}

// Builds a tree; each line is one step. "<name" opens an element and ">" closes it. "@" and "!" add
// an attribute. "*" adds Raw inside a script, a style or the like. "-" adds text, "+" adds text
// that begins with a line end, and any other line is text.
Node treeIn(Input &input) {
  Node body{Node::kElement, "body"};
  std::vector<Node *> open = {&body};
  while (!input.empty()) {
    const std::string_view line = asText(input.line());
    const char step = line.empty() ? '\0' : line[0];
    Node &parent = *open.back();
    if (step == '<') {
      open.push_back(
          &parent.children.emplace_back(Node{Node::kElement, std::string(line.substr(1))}));
    } else if (step == '>') {
      if (open.size() > 1) open.pop_back();
    } else if (step == '@' || step == '!') {
      if (open.size() > 1) parent.attributes.push_back(attributeIn(line));
    } else if (step == '*' && isIn(kCode, lower(parent.text))) {
      parent.children.push_back({Node::kRaw, std::string(line.substr(1))});
    } else {
      std::string text(line.substr(step == '-' ? 1 : 0));
      if (step == '+') text[0] = '\n';
      parent.children.push_back({Node::kText, text});
    }
  }
  return body;
}

tarn::Element elementOf(const Node &node) {
  tarn::Element element(node.text);
  for (const auto &[name, value, trusted] : node.attributes) {
    if (!value) {
      element.add(tarn::Attribute(name));
    } else if (trusted) {
      element.add(tarn::Attribute(name, tarn::Raw(*value)));
    } else {
      element.add(tarn::Attribute(name, *value));
    }
  }
  for (const Node &child : node.children) {
    if (child.kind == Node::kElement) {
      element.add(elementOf(child));
    } else if (child.kind == Node::kRaw) {
      element.add(tarn::Raw(child.text));
    } else {
      element.add(child.text);
    }
  }
  return element;
}

template <class Test>
bool allBelow(const Node &node, Test test) {
  return std::all_of(node.children.begin(), node.children.end(),
                     [&](const Node &child) { return test(child) && allBelow(child, test); });
}

bool isPlain(const Node &node) {
  return node.kind != Node::kElement ||
         (isIn(kPlain, node.text) &&
          std::all_of(node.attributes.begin(), node.attributes.end(), [](const Attribute &one) {
            return isIn({"class", "title", "id", "data-x"}, one.name);
          }));
}

bool hasKnownName(const Node &node) {
  const std::string name = lower(node.text);
  return node.kind != Node::kElement || isIn(kPlain, name) || isIn(kCode, name) ||
         isIn(kOthers, name);
}

bool isHtml(const Node &node) {
  return node.kind != Node::kElement || !isIn({"svg", "math"}, lower(node.text));
}

bool trustsNothing(const Node &node) {
  return std::none_of(node.attributes.begin(), node.attributes.end(),
                      [](const Attribute &one) { return one.trusted; });
}

// ---- Characters ---------------------------------------------------------------------------------

// Removes and returns the first character. A byte that is not valid UTF-8, and a character that a
// page must not contain, become U+FFFD.
char32_t nextCharacter(std::string_view &text) {
  constexpr char32_t kUnknown = 0xFFFD;
  const auto lead = static_cast<uint8_t>(text[0]);
  const size_t size = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  const char32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
  char32_t character = size == 1 ? lead : lead & (0xFFU >> (size + 1));
  bool sound = lead < 0x80 || (lead >= 0xC0 && lead < 0xF8 && text.size() >= size);
  for (size_t i = 1; i < size && sound; ++i) {
    sound = (text[i] & 0xC0) == 0x80;
    character = character << 6 | (text[i] & 0x3F);
  }
  sound = sound && character >= least[size] && character <= 0x10FFFF &&
          (character < 0xD800 || character > 0xDFFF);
  text.remove_prefix(sound ? size : 1);
  if (!sound || (character < ' ' && character != '\t' && character != '\n' && character != '\r')) {
    return kUnknown;
  }
  const bool control = character >= 0x7F && character < 0xA0;
  // The parser does not accept these noncharacters.
  const bool none = (character >= 0xFDD0 && character <= 0xFDEF) || (character & 0xFFFE) == 0xFFFE;
  return control || none ? kUnknown : character;
}

bool isBlank(char32_t character) { return character == ' ' || (character >= 9 && character <= 13); }

// Returns the text as a browser sees it.
std::string clean(std::string_view text) {
  std::string cleaned;
  while (!text.empty()) {
    const std::string_view before = text;
    const char32_t character = nextCharacter(text);
    if (character == 0xFFFD) {
      cleaned += "\xEF\xBF\xBD";
    } else {
      cleaned += before.substr(0, before.size() - text.size());
    }
  }
  return cleaned;
}

// Replaces every character except blanks with "x".
std::string masked(std::string_view text) {
  std::string mask;
  while (!text.empty()) {
    const char32_t character = nextCharacter(text);
    mask += isBlank(character) ? static_cast<char>(character) : 'x';
  }
  return mask;
}

Node masked(Node node) {
  if (node.kind == Node::kText) node.text = masked(std::string_view(node.text));
  for (Node &child : node.children) child = masked(std::move(child));
  return node;
}

// ---- The page -----------------------------------------------------------------------------------

class Page {
 public:
  explicit Page(std::string_view html)
      : output_(gumbo_parse_with_options(&kGumboDefaultOptions, html.data(), html.size())) {}
  Page(const Page &) = delete;
  Page &operator=(const Page &) = delete;
  ~Page() { gumbo_destroy_output(&kGumboDefaultOptions, output_); }

  const GumboDocument &document() const { return output_->document->v.document; }
  const GumboNode &root() const { return *output_->root; }

 private:
  GumboOutput *output_;
};

bool isElement(const GumboNode &node) {
  return node.type == GUMBO_NODE_ELEMENT || node.type == GUMBO_NODE_TEMPLATE;
}

std::string nameOf(const GumboElement &element) {
  if (element.tag != GUMBO_TAG_UNKNOWN) return gumbo_normalized_tagname(element.tag);
  GumboStringPiece name = element.original_tag;
  gumbo_tag_from_original_text(&name);
  return lower({name.data, name.length});
}

std::vector<const GumboNode *> childrenOf(const GumboNode &node) {
  const GumboVector &list = node.v.element.children;
  std::vector<const GumboNode *> children;
  for (unsigned i = 0; i < list.length; ++i) {
    children.push_back(static_cast<const GumboNode *>(list.data[i]));
  }
  return children;
}

std::vector<const GumboAttribute *> attributesOf(const GumboNode &node) {
  const GumboVector &list = node.v.element.attributes;
  std::vector<const GumboAttribute *> attributes;
  for (unsigned i = 0; i < list.length; ++i) {
    attributes.push_back(static_cast<const GumboAttribute *>(list.data[i]));
  }
  return attributes;
}

// The functions below turn a tree into a string, to compare what was built with what was parsed.
std::string quoted(const std::string &name, const std::string &text) {
  return name + "(" + std::to_string(text.size()) + ":" + text + ")";
}

std::string shown(const GumboNode &node, bool mask) {
  if (!isElement(node)) {
    const std::string text = node.v.text.text;
    return quoted("text", mask ? masked(std::string_view(text)) : text);
  }
  std::string text = "<" + nameOf(node.v.element);
  for (const GumboAttribute *one : attributesOf(node)) text += quoted(one->name, one->value);
  text += ">";
  for (const GumboNode *child : childrenOf(node)) text += shown(*child, mask);
  return text + "</>";
}

// What a browser must read: names in lower case, only the first of several equal attributes, and
// adjacent texts joined.
std::string shown(const Node &node) {
  std::string text = "<" + lower(node.text);
  std::vector<std::string> names;
  for (const Attribute &one : node.attributes) {
    const std::string name = lower(one.name);
    if (std::find(names.begin(), names.end(), name) != names.end()) continue;
    text += quoted(name, clean(one.value.value_or("")));
    names.push_back(name);
  }
  text += ">";
  std::string run;
  const auto endRun = [&] {
    if (!run.empty()) text += quoted("text", run);
    run.clear();
  };
  for (const Node &child : node.children) {
    if (child.kind == Node::kElement) {
      endRun();
      text += shown(child);
    } else {
      run += clean(child.text);
    }
  }
  endRun();
  return text + "</>";
}

// ---- What a browser would run -------------------------------------------------------------------

// Reads a URL as browsers do: drops leading blanks and control characters, and all tabs and line
// ends.
std::string schemeOf(std::string_view url) {
  while (!url.empty() && static_cast<uint8_t>(url.front()) <= ' ') url.remove_prefix(1);
  std::string plain;
  for (const char c : url) {
    if (c != '\t' && c != '\n' && c != '\r') plain += c;
  }
  const size_t end =
      plain.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789+-.");
  const bool begins = lower(plain) >= "a";  // not a digit or a symbol
  if (!begins || end == plain.npos || plain[end] != ':') return "";
  return lower(plain.substr(0, end));
}

// Whether a URL is of the site of its page, read as browsers do.
bool isOwn(std::string_view url) {
  std::string start;
  for (const char c : url) {
    const bool isLeading = start.empty() && static_cast<uint8_t>(c) <= ' ';
    if (!isLeading && c != '\t' && c != '\n' && c != '\r') start += c == '\\' ? '/' : c;
  }
  return schemeOf(url).empty() && start.rfind("//", 0) != 0;
}

void expectNothingRuns(const GumboNode &node) {
  if (!isElement(node)) return;
  const std::string element = nameOf(node.v.element);
  for (const GumboAttribute *attribute : attributesOf(node)) {
    const std::string name = lower(attribute->name);
    std::string_view value = attribute->value;
    EXPECT(name.rfind("on", 0) != 0 && name != "style" && name != "srcdoc");
    EXPECT(name.find_first_of("@:*[(.") == name.npos || name == "xlink:href" ||
           name.rfind("xml", 0) == 0 || name.rfind("xlink:", 0) == 0);
    if (isIn(kUrls, name)) {
      EXPECT(isIn({"", "http", "https", "mailto", "tel"}, schemeOf(value)));
    }
    if (isIn(kOwnUrls, name) || (name == "src" && isIn(kFrames, element)) ||
        (name == "href" && isIn({"script", "base", "use"}, element))) {
      EXPECT(isOwn(value));
    }
    while (isIn(kAnimation, name) && !value.empty()) {
      const size_t end = std::min(value.find(';'), value.size());
      EXPECT(isOwn(value.substr(0, end)));
      value.remove_prefix(std::min(end + 1, value.size()));
    }
  }
  for (const GumboNode *child : childrenOf(node)) expectNothingRuns(*child);
}

std::string written(const Node &body) {
  const tarn::Element page("html", tarn::Element("head"), elementOf(body));
  const tarn::Text text = tarn::html(page);
  EXPECT(text || !allBelow(body, isPlain) || !allBelow(body, trustsNothing));
  return std::string(text.view());
}

void tree(Input input) {
  Node body = treeIn(input);
  tame(body, !allBelow(body, isHtml));
  const std::string html = written(body);
  if (html.empty()) return;
  const Page page(html);
  EXPECT(page.document().has_doctype &&
         page.document().doc_type_quirks_mode == GUMBO_DOCTYPE_NO_QUIRKS);
  if (allBelow(body, trustsNothing)) expectNothingRuns(page.root());

  // Whatever the names, a parser must read each text exactly as it would read plain letters.
  const std::string plain = written(masked(body));
  EXPECT(!plain.empty());
  const Page plainPage(plain);
  EXPECT(shown(page.root(), true) == shown(plainPage.root(), true));

  if (!allBelow(body, hasKnownName)) return;
  EXPECT(shown(page.root(), false) == "<html><head></>" + shown(body) + "</>");
}

// ---- Escaped text -------------------------------------------------------------------------------

// Decodes a JSON string. Tarn writes every escape as a backslash, a "u" and four digits.
std::string fromJson(std::string_view json) {
  EXPECT(json.size() >= 2 && json.front() == '"' && json.back() == '"');
  std::string text;
  for (json = json.substr(1, json.size() - 2); !json.empty();) {
    if (json[0] != '\\') {
      EXPECT(json[0] != '"' && static_cast<uint8_t>(json[0]) >= ' ');
      text += json[0];
      json.remove_prefix(1);
      continue;
    }
    const std::string digits(json.substr(2, 4));
    const unsigned long number = std::strtoul(digits.c_str(), nullptr, 16);
    EXPECT(json[1] == 'u' && digits.size() == 4 &&
           digits.find_first_not_of("0123456789abcdef") == digits.npos);
    if (number >= 0x800) text += static_cast<char>(0xE0 | number >> 12);
    if (number >= 0x800) text += static_cast<char>(0x80 | (number >> 6 & 0x3F));
    if (number >= 0x80 && number < 0x800) text += static_cast<char>(0xC0 | number >> 6);
    text += static_cast<char>(number >= 0x80 ? 0x80 | (number & 0x3F) : number);
    json.remove_prefix(6);
  }
  return text;
}

void texts(std::string_view text) {
  const tarn::Text html = tarn::escape_html(text);
  const tarn::Text attribute = tarn::escape_attribute(text);
  const tarn::Text json = tarn::escape_json(text);
  const std::string head = "<!DOCTYPE html><html><head></head><body title='";
  const Page page(head + html.c_str() + "'><b title=" + attribute.c_str() + "x>" + html.c_str() +
                  "</b><script title='" + json.c_str() + "'>" + json.c_str() + "</script>");
  const std::string run = text.empty() ? "" : quoted("text", clean(text));
  const std::string string(json.view());
  EXPECT(shown(page.root(), false) == "<html><head></><body" + quoted("title", clean(text)) +
                                          "><b" + quoted("title", clean(text) + "x") + ">" + run +
                                          "</><script" + quoted("title", clean(string)) + ">" +
                                          quoted("text", clean(string)) + "</></></>");
  // Control characters come back unchanged.
  EXPECT(clean(fromJson(string)) == clean(text));
}

}  // namespace

// An input that begins with "=" is a text to escape; any other builds a tree.
void fuzz(Input input) {
  const std::string_view bytes = input.rest();
  if (!bytes.empty() && bytes[0] == '=') {
    texts(bytes.substr(1));
  } else {
    tree(Input(bytes));
  }
}
