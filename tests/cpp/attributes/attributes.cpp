// Tells the kind of attributes, and writes trees of elements, for tests of what a browser does with
// them. Usage: attributes kinds, names or trees
//
// "kinds" reads names, one a line, and prints the kind of each; "names" prints all names that have a
// kind. "trees" reads trees and prints each as a JSON string of its HTML, or an empty line if it is
// refused. Each line of a tree is a step: "<name" opens an element, ">" closes it, "@name value" adds
// an attribute, "!name value" one that is Raw, and "." ends the tree. Values are URL-encoded.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "tarn.hpp"

namespace {

using tarn::detail::Kind;

const char *nameOf(Kind kind) {
  switch (kind) {
    case Kind::kUnknown:
      return "unknown";
    case Kind::kText:
      return "text";
    case Kind::kId:
      return "id";
    case Kind::kUrl:
    case Kind::kOwnUrl:
    case Kind::kLink:
    case Kind::kSource:
      return "url";
    case Kind::kOwnUrls:
      return "urls";
    case Kind::kParameter:
    case Kind::kMeta:
      return "text or url";
    case Kind::kAnimation:
    case Kind::kAnimated:
      return "animation";
    case Kind::kScript:
      return "script";
    case Kind::kStyle:
      return "style";
    case Kind::kPage:
      return "page";
    case Kind::kTemplate:
      return "template";
  }
  return "";
}

bool readLine(std::string &line) {
  line.clear();
  int c = std::getchar();
  for (; c != EOF && c != '\n'; c = std::getchar()) line += static_cast<char>(c);
  return c != EOF || !line.empty();
}

std::string decoded(const std::string &text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isEscape = text[i] == '%';
    bytes += isEscape ? static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16)) : text[i];
    if (isEscape) i += 2;
  }
  return bytes;
}

void addAttribute(tarn::Element &element, const std::string &step) {
  const std::size_t blank = step.find(' ');
  const std::string name = decoded(step.substr(1, blank - 1));
  const std::string value = decoded(step.substr(blank + 1));
  if (step[0] == '!') {
    element.add(tarn::Attribute(name, tarn::Raw(value)));
  } else {
    element.add(tarn::Attribute(name, value));
  }
}

void writeTrees() {
  std::vector<tarn::Element> open;
  for (std::string step; readLine(step);) {
    if (step[0] == '<') {
      open.emplace_back(step.substr(1));
    } else if (step[0] == '>') {
      tarn::Element child = std::move(open.back());
      open.pop_back();
      open.back().add(std::move(child));
    } else if (step[0] == '.') {
      const tarn::Text html = tarn::html(open.back());
      const tarn::Text json = tarn::escape_json(html.view());
      std::puts(html ? json.c_str() : "");
      open.pop_back();
    } else {
      addAttribute(open.back(), step);
    }
  }
}

void tellKinds() {
  for (std::string name; readLine(name);) std::puts(nameOf(tarn::detail::kind_of(name)));
}

void tellNames() {
  for (const auto &one : tarn::detail::kKinds) std::puts(one.name);
  for (std::string_view list : {tarn::detail::kIds, tarn::detail::kTexts}) {
    for (const char c : list.substr(1)) std::putchar(c == ' ' ? '\n' : c);
  }
}

}  // namespace

int main(int count, char **arguments) {
  const std::string_view task = count > 1 ? arguments[1] : "";
  if (task == "trees") writeTrees();
  if (task == "kinds") tellKinds();
  if (task == "names") tellNames();
  return std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
