// Writes JSON by any sequence of calls, and reads it back with a parser that is independent of Tarn. What
// is refused must be what would not be JSON.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "support.h"
#include "tarn.hpp"

using namespace tarn_fuzz;

namespace {

// What was written: "{", "}", "[", "]", "k" and "s" with a text, "n" with a number, "w" with a word.
struct Token {
  char kind;
  std::string text = {};
  double number = 0;
  bool isNumber(double other) const { return std::memcmp(&number, &other, sizeof other) == 0; }
};

// ---- A parser -----------------------------------------------------------------------------------

class Parser {
 public:
  explicit Parser(const std::string &text) : text_(text) {}

  // The tokens of one value and nothing else. No recursion: values may be nested deeply.
  std::optional<std::vector<Token>> parse() {
    std::vector<char> open;
    bool wantsValue = true;
    bool first = false;  // nothing is in the innermost object or array yet
    while (wantsValue || !open.empty()) {
      if (!open.empty() && (first || !wantsValue)) {
        if (take(open.back() == '{' ? '}' : ']')) {
          tokens_.push_back({open.back() == '{' ? '}' : ']'});
          open.pop_back();
          first = wantsValue = false;
          continue;
        }
        if (!first && !take(',')) return std::nullopt;
        first = false;
        wantsValue = true;
      }
      if (!open.empty() && open.back() == '{') {
        if (!take('"') || !string('k') || !take(':')) return std::nullopt;
      }
      if (take('{') || take('[')) {
        open.push_back(text_[at_ - 1]);
        tokens_.push_back({open.back()});
        first = true;
        wantsValue = false;
        continue;
      }
      if (!scalar()) return std::nullopt;
      wantsValue = false;
    }
    if (at_ != text_.size()) return std::nullopt;
    return tokens_;
  }

 private:
  bool take(char c) {
    const bool found = at_ < text_.size() && text_[at_] == c;
    at_ += found;
    return found;
  }

  bool scalar() {
    if (take('"')) return string('s');
    for (const char *word : {"true", "false", "null"}) {
      if (text_.compare(at_, std::strlen(word), word) == 0) {
        at_ += std::strlen(word);
        tokens_.push_back({'w', word});
        return true;
      }
    }
    return number();
  }

  bool digits() {
    const size_t begin = at_;
    while (at_ < text_.size() && text_[at_] >= '0' && text_[at_] <= '9') ++at_;
    return at_ > begin;
  }

  bool number() {
    const size_t begin = at_;
    take('-');
    if (!take('0') && !digits()) return false;
    if (take('.') && !digits()) return false;
    if (take('e') || take('E')) {
      if (!take('+')) take('-');
      if (!digits()) return false;
    }
    const std::string text = text_.substr(begin, at_ - begin);
    tokens_.push_back({'n', text, std::strtod(text.c_str(), nullptr)});
    return true;
  }

  // What follows the first quotation mark. Only ASCII is escaped, and U+2028 and its like.
  bool string(char kind) {
    std::string value;
    while (!take('"')) {
      if (at_ >= text_.size() || static_cast<uint8_t>(text_[at_]) < ' ') return false;
      // Nothing in a string has a meaning in HTML.
      EXPECT(std::string("<>&'").find(text_[at_]) == std::string::npos);
      if (!take('\\')) {
        value += text_[at_++];
        continue;
      }
      if (!take('u') || at_ + 4 > text_.size()) return false;
      const std::string hex = text_.substr(at_, 4);
      if (hex.find_first_not_of("0123456789abcdef") != hex.npos) return false;
      at_ += 4;
      const unsigned long code = std::stoul(hex, nullptr, 16);
      if (code < 0x80) {
        value += static_cast<char>(code);
      } else if (code < 0x800) {
        value += static_cast<char>(0xC0 | (code >> 6));
        value += static_cast<char>(0x80 | (code & 0x3F));
      } else {
        value += static_cast<char>(0xE0 | (code >> 12));
        value += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        value += static_cast<char>(0x80 | (code & 0x3F));
      }
    }
    tokens_.push_back({kind, value});
    return true;
  }

  const std::string &text_;
  size_t at_ = 0;
  std::vector<Token> tokens_;
};

// ---- The model ----------------------------------------------------------------------------------

// A text as it is read back: U+FFFD in place of each byte that is not UTF-8.
std::string readBack(const std::string &text) {
  std::string read;
  for (size_t at = 0; at < text.size();) {
    const auto byte = [&](size_t i) {
      return at + i < text.size() ? static_cast<uint8_t>(text[at + i]) : 0U;
    };
    const size_t size = byte(0) < 0x80 ? 1 : byte(0) < 0xE0 ? 2 : byte(0) < 0xF0 ? 3 : 4;
    unsigned long code = size == 1 ? byte(0) : byte(0) & (0x7FU >> size);
    bool valid = byte(0) < 0x80 || (byte(0) >= 0xC2 && byte(0) <= 0xF4);
    for (size_t i = 1; i < size; ++i) {
      valid = valid && (byte(i) & 0xC0) == 0x80;
      code = code << 6 | (byte(i) & 0x3F);
    }
    const unsigned long least[] = {0, 0, 0x80, 0x800, 0x10000};
    valid = valid && code >= least[size] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    read += valid ? text.substr(at, size) : "\xEF\xBF\xBD";
    at += valid ? size : 1;
  }
  return read;
}

// What the calls so far allow next.
struct Model {
  std::vector<Token> tokens;
  std::vector<char> open;
  bool afterKey = false;
  bool done = false;
  bool good = true;

  bool takesValue() const { return open.empty() ? !done : open.back() == '[' || afterKey; }
  bool isWhole() const { return good && open.empty() && done; }

  void value(const Token &token) {
    good = good && takesValue();
    tokens.push_back(token);
    afterKey = false;
    done = done || open.empty();
  }
  void begin(char c) {
    value({c});
    open.push_back(c);
  }
  void end(char c) {
    good = good && !open.empty() && !afterKey && open.back() == (c == '}' ? '{' : '[');
    tokens.push_back({c});
    if (!open.empty()) open.pop_back();
  }
  void key(const std::string &name) {
    good = good && !open.empty() && open.back() == '{' && !afterKey;
    tokens.push_back({'k', readBack(name)});
    afterKey = true;
  }
};

template <class Number>
Number numberIn(Input &input) {
  char bytes[sizeof(Number)] = {};
  const std::string_view taken = input.take(sizeof bytes);
  std::memcpy(bytes, taken.data(), taken.size());
  Number number;
  std::memcpy(&number, bytes, sizeof number);
  return number;
}

template <class Number>
void whole(Input &input, tarn::JsonWriter &json, Model &model) {
  const auto number = numberIn<Number>(input);
  json.value(number);
  model.value({'n', std::to_string(number)});
}

// Letters are calls, to keep inputs readable.
void call(char letter, Input &input, tarn::JsonWriter &json, Model &model) {
  switch (letter) {
    case '{':
      json.begin_object();
      return model.begin('{');
    case '}':
      json.end_object();
      return model.end('}');
    case '[':
      json.begin_array();
      return model.begin('[');
    case ']':
      json.end_array();
      return model.end(']');
    case 'k': {
      const std::string name(input.piece());
      json.key(name);
      return model.key(name);
    }
    case 'm': {
      const std::string name(input.piece());
      const std::string text(input.piece());
      json.member(name, text);
      model.key(name);
      return model.value({'s', readBack(text)});
    }
    case 'i':
      return whole<int64_t>(input, json, model);
    case 'u':
      return whole<uint64_t>(input, json, model);
    case 'd': {
      const auto number = numberIn<double>(input);
      json.value(number);
      model.good = model.good && std::isfinite(number);
      return model.value({'d', "", number});
    }
    case 't':
      json.value(true);
      return model.value({'w', "true"});
    case 'n':
      json.value(nullptr);
      return model.value({'w', "null"});
    default: {
      const std::string text(input.piece());
      json.value(text);
      return model.value({'s', readBack(text)});
    }
  }
}

}  // namespace

void fuzz(Input input) {
  tarn::JsonWriter json;
  Model model;
  while (!input.empty()) call(static_cast<char>(input.byte()), input, json, model);
  const tarn::Text text = json.take();
  EXPECT(static_cast<bool>(text) == model.isWhole());
  if (!text) return;
  const std::string written(text.view());
  const std::optional<std::vector<Token>> read = Parser(written).parse();
  EXPECT(read && read->size() == model.tokens.size());
  for (size_t i = 0; i < read->size(); ++i) {
    const Token &token = (*read)[i];
    const Token &expected = model.tokens[i];
    if (expected.kind == 'd') {
      EXPECT(token.kind == 'n' && token.isNumber(expected.number));
    } else {
      EXPECT(token.kind == expected.kind && token.text == expected.text);
    }
  }
}
