// Writes JSON as its input says: a command a line, with texts in hexadecimal. Prints the JSON, or the
// reason for refusal on standard error. A line "." ends each text; it prints one line a text.
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tarn.hpp"

namespace {

// Decodes in place.
std::string_view from_hexadecimal(char *text) {
  std::size_t size = 0;
  for (const char *at = text; at[0] != '\0' && at[1] != '\0'; at += 2) {
    const char digits[] = {at[0], at[1], '\0'};
    text[size++] = static_cast<char>(std::strtol(digits, nullptr, 16));
  }
  return {text, size};
}

void write(tarn::JsonWriter &json, char *line) {
  char *const argument = line + 1;
  switch (line[0]) {
    case '{':
      json.begin_object();
      break;
    case '}':
      json.end_object();
      break;
    case '[':
      json.begin_array();
      break;
    case ']':
      json.end_array();
      break;
    case 'k':
      json.key(from_hexadecimal(argument));
      break;
    case 's':
      json.value(from_hexadecimal(argument));
      break;
    case 'i':
      json.value(std::strtoll(argument, nullptr, 10));
      break;
    case 'u':
      json.value(std::strtoull(argument, nullptr, 10));
      break;
    case 'd':
      json.value(std::strtod(argument, nullptr));
      break;
    case 't':
      json.value(true);
      break;
    case 'f':
      json.value(false);
      break;
    default:
      json.value(nullptr);
  }
}

// Prints one text. Returns false at the end of the input.
bool write_one() {
  static char line[1 << 16];
  tarn::JsonWriter json;
  for (;;) {
    if (std::fgets(line, sizeof line, stdin) == nullptr) return false;
    line[std::strcspn(line, "\n")] = '\0';
    if (line[0] == '.') break;
    write(json, line);
  }
  const tarn::Text text = json.take();
  if (text) {
    std::printf("%s\n", text.c_str());
  } else {
    std::printf("refused: %s\n", text.problem());
  }
  return true;
}

}  // namespace

int main() {
  std::setlocale(LC_NUMERIC, "");
  while (write_one()) continue;
  return std::fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
