// Prints what the C++ model makes of each form on standard input, for agreement_test.py. A form is
// its content type and its body, each with its length in decimal and a newline in front. The answer
// is a line for each field, with its four texts in hexadecimal, and a line for the outcome.
#include <cstddef>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

#include "support/form_model.h"

namespace {

std::optional<std::string> readText() {
  size_t length = 0;
  if (!(std::cin >> length) || std::cin.get() != '\n') return std::nullopt;
  std::string text(length, '\0');
  if (!std::cin.read(text.data(), static_cast<std::streamsize>(length))) return std::nullopt;
  return text;
}

void print(std::string_view text) {
  const std::string_view digits = "0123456789abcdef";
  std::string line = ".";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    line += digits[byte / 16];
    line += digits[byte % 16];
  }
  std::cout << line << ' ';
}

void print(const std::optional<std::string> &text) {
  if (text) {
    print(std::string_view(*text));
  } else {
    std::cout << "none ";
  }
}

}  // namespace

int main() {
  std::ios::sync_with_stdio(false);
  while (const std::optional<std::string> contentType = readText()) {
    const std::optional<std::string> body = readText();
    if (!body) return 1;
    const tarn_test::ModelResult result = tarn_test::modelOfForm(*contentType, *body);
    for (const tarn_test::ModelField &field : result.fields) {
      print(std::string_view(field.name));
      print(field.filename);
      print(field.content_type);
      print(std::string_view(field.value));
      std::cout << '\n';
    }
    std::cout << "outcome " << (result.problem.empty() ? "whole" : result.problem) << '\n';
  }
  return std::cin.eof() ? 0 : 1;
}
