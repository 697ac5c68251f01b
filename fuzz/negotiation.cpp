// Chooses types and languages by untrusted headers, and compares the choices with a plain model.
#include <algorithm>
#include <cstdlib>
#include <optional>
#include <set>

#include "support.h"
#include "tarn.hpp"

using namespace tarn_fuzz;

namespace {

const std::vector<std::string> kTypes = {"text/html", "application/json", "text/csv"};
const std::vector<std::string> kTags = {"en", "fr-CA", "de", "zh-Hant", "zh-Hant-TW"};

std::string lower(std::string text) {
  for (char &c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return text;
}

// ---- The model ----------------------------------------------------------------------------------

struct Element {
  std::string name;
  bool hasParameters = false;
  int quality = 1000;
};

bool isToken(const std::string &text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           (c != '\0' && std::string("!#$%&'*+-.^_`|~").find(c) != std::string::npos);
  });
}

std::string trimmed(const std::string &text) {
  const size_t begin = text.find_first_not_of(" \t");
  if (begin == text.npos) return "";
  return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

// Splits a text at a mark outside of quotation marks.
std::vector<std::string> split(const std::string &text, char mark) {
  std::vector<std::string> parts(1);
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (quoted && text[i] == '\\' && i + 1 < text.size()) {
      parts.back() += text[i++];
    } else if (text[i] == '"') {
      quoted = !quoted;
    } else if (text[i] == mark && !quoted) {
      parts.emplace_back();
      continue;
    }
    parts.back() += text[i];
  }
  return parts;
}

bool isQuoted(const std::string &text) {
  if (text.size() < 2 || text[0] != '"') return false;
  for (size_t i = 1; i < text.size(); ++i) {
    if (text[i] == '"') return i == text.size() - 1;
    if (text[i] == '\\') ++i;
  }
  return false;
}

std::optional<int> qualityIn(const std::string &text) {
  if (text == "0" || text == "1") return text == "1" ? 1000 : 0;
  if (text.size() < 2 || text.size() > 5 || text[1] != '.') return std::nullopt;
  std::string digits = text.substr(2);
  if (digits.find_first_not_of("0123456789") != digits.npos) return std::nullopt;
  digits.resize(3, '0');
  const int thousandths = std::stoi(digits);
  if (text[0] == '0') return thousandths;
  return text[0] == '1' && thousandths == 0 ? std::optional(1000) : std::nullopt;
}

std::optional<Element> elementIn(const std::string &text) {
  const std::vector<std::string> parts = split(text, ';');
  Element element;
  element.name = trimmed(parts[0]);
  for (const std::string &each : split(element.name, '/')) {
    if (!each.empty() && !isToken(each)) return std::nullopt;
  }
  if (element.name.empty()) return std::nullopt;
  for (size_t i = 1; i < parts.size(); ++i) {
    const std::string parameter = trimmed(parts[i]);
    if (parameter.empty()) continue;
    const size_t equals = parameter.find('=');
    if (equals == parameter.npos || !isToken(parameter.substr(0, equals))) return std::nullopt;
    const std::string value = parameter.substr(equals + 1);
    if (lower(parameter.substr(0, equals)) == "q") {
      const std::optional<int> quality = qualityIn(value);
      if (!quality) return std::nullopt;
      element.quality = *quality;
    } else {
      if (!isToken(value) && !isQuoted(value)) return std::nullopt;
      element.hasParameters = true;
    }
  }
  return element;
}

std::vector<Element> elementsIn(const std::string &header) {
  std::vector<Element> elements;
  for (const std::string &part : split(header, ',')) {
    if (const std::optional<Element> element = elementIn(part)) elements.push_back(*element);
  }
  return elements;
}

std::string typeFor(const std::string &header) {
  std::vector<Element> ranges = elementsIn(header);
  ranges.erase(std::remove_if(ranges.begin(), ranges.end(),
                              [](const Element &range) {
                                const auto parts = split(range.name, '/');
                                return parts.size() != 2 || parts[0].empty() || parts[1].empty();
                              }),
               ranges.end());
  if (ranges.empty()) return kTypes[0];
  std::string best;
  int quality = 0;
  for (const std::string &type : kTypes) {
    const std::string family = type.substr(0, type.find('/')) + "/*";
    // From the closest kind of range to the widest, the best of the first kind that there is.
    std::vector<int> kinds[4];
    for (const Element &range : ranges) {
      const std::string name = lower(range.name);
      if (name == type) kinds[range.hasParameters ? 1 : 0].push_back(range.quality);
      if (name == family) kinds[2].push_back(range.quality);
      if (name == "*/*") kinds[3].push_back(range.quality);
    }
    const auto kind = std::find_if(std::begin(kinds), std::end(kinds),
                                   [](const auto &each) { return !each.empty(); });
    if (kind == std::end(kinds)) continue;
    const int most = *std::max_element(kind->begin(), kind->end());
    if (most > quality) best = type;
    quality = std::max(most, quality);
  }
  return best;
}

// What a range matches, from the best match to the worst.
std::vector<std::string> matchesOf(std::string range) {
  std::vector<std::string> found;
  const std::string whole = range + "-";
  while (!range.empty()) {
    for (const std::string &tag : kTags) {
      if (lower(tag) == range) found.push_back(tag);
    }
    const size_t dash = range.rfind('-');
    range.erase(dash == range.npos ? 0 : dash);
    if (range.size() > 2 && range[range.size() - 2] == '-') range.erase(range.size() - 2);
  }
  for (const std::string &tag : kTags) {
    if (lower(tag).rfind(whole, 0) == 0) found.push_back(tag);
  }
  return found;
}

std::string languageFor(const std::string &header) {
  std::vector<Element> ranges = elementsIn(header);
  std::set<std::string> named;
  std::set<std::string> excluded;
  for (Element &range : ranges) {
    range.name = lower(range.name);
    for (const std::string &tag : kTags) {
      const std::string plain = lower(tag);
      if (plain == range.name || plain.rfind(range.name + "-", 0) == 0) named.insert(tag);
      if (plain == range.name && range.quality == 0) excluded.insert(tag);
    }
  }
  std::stable_sort(ranges.begin(), ranges.end(),
                   [](const Element &a, const Element &b) { return a.quality > b.quality; });
  for (const Element &range : ranges) {
    if (range.quality == 0) break;
    const bool any = range.name == "*";
    for (const std::string &tag : any ? kTags : matchesOf(range.name)) {
      if ((any ? named : excluded).count(tag) == 0) return tag;
    }
  }
  return kTags[0];
}

}  // namespace

// The header: of types if the first byte is "t", of languages otherwise.
void fuzz(Input input) {
  const bool types = input.byte() == 't';
  const std::string header(input.rest());
  if (header.find('\0') != header.npos) return;
  setenv(types ? "HTTP_ACCEPT" : "HTTP_ACCEPT_LANGUAGE", header.c_str(), 1);
  Stream out;
  tarn::Response response(out.file());
  if (types) {
    EXPECT(tarn::choose_type(response, {kTypes[0], kTypes[1], kTypes[2]}) == typeFor(header));
  } else {
    EXPECT(tarn::choose_language(response, {kTags[0], kTags[1], kTags[2], kTags[3], kTags[4]}) ==
           languageFor(header));
  }
  EXPECT(response.send());
  EXPECT(out.written().find(types ? "\r\nVary: Accept\r\n" : "\r\nVary: Accept-Language\r\n") !=
         std::string::npos);
}
