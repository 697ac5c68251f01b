#include "reference.h"

#include "support.h"

namespace tarn_fuzz::reference {
namespace {

std::vector<std::string> split(std::string_view text, std::string_view separator) {
  std::vector<std::string> pieces;
  size_t start = 0;
  for (size_t end = text.find(separator); end != text.npos; end = text.find(separator, start)) {
    pieces.emplace_back(text.substr(start, end - start));
    start = end + separator.size();
  }
  pieces.emplace_back(text.substr(start));
  return pieces;
}

struct Pair {
  std::string name;
  std::string value;
};

std::optional<Pair> pairOf(const std::string &text) {
  const size_t equals = text.find('=');
  if (equals == text.npos) return std::nullopt;
  return Pair{text.substr(0, equals), text.substr(equals + 1)};
}

unsigned digit(char character) {
  const auto byte = static_cast<unsigned char>(character);
  if (byte <= 64) return byte - 48U;
  return (byte & 0xDFU) - 55U;
}

// To the end without the second mark. Nothing between the two marks is no text.
Text between(std::string_view part, const std::string &open, const std::string &close) {
  const std::string text(asText(part));
  const size_t mark = text.find(open);
  if (mark == text.npos) return std::nullopt;
  const size_t start = mark + open.size();
  const size_t end = text.find(close, start);
  if (end == start) return std::nullopt;
  return text.substr(start, end == text.npos ? end : end - start);
}

Form urlEncoded(std::string_view input) {
  Form form;
  for (const std::string &piece : split(asText(input), "&")) {
    if (const auto pair = pairOf(piece)) {
      const std::string value = decode(pair->value);
      form.entries.push_back({decode(pair->name), value, static_cast<uint32_t>(value.size())});
    }
  }
  return form;
}

Form multipart(std::string_view contentType, std::string_view body) {
  Form form;
  const size_t mark = contentType.find("boundary=");
  if (mark == contentType.npos) return form;
  const std::string delimiter = "--" + std::string(contentType.substr(mark + 9)) + "\r\n";
  std::vector<std::string> parts = split(body, delimiter);
  // What stands before the first delimiter is no part.
  parts.erase(parts.begin());
  for (const std::string &part : parts) addPart(form, part);
  return form;
}

}  // namespace

std::string decode(std::string_view text) {
  const std::string encoded(asText(text));
  std::string decoded;
  for (size_t i = 0; i < encoded.size(); ++i) {
    if (encoded[i] == '%') {
      // Digits that are missing are zero bytes.
      std::string digits = encoded.substr(i + 1, 2);
      digits.resize(2, '\0');
      decoded += static_cast<char>((digit(digits[0]) * 16 + digit(digits[1])) & 0xFFU);
      i += 2;
    } else {
      decoded += encoded[i] == '+' ? ' ' : encoded[i];
    }
  }
  return std::string(asText(decoded));
}

std::string strip(std::string_view text) {
  const char *blanks = " \t\n\r";
  const size_t start = text.find_first_not_of(blanks);
  if (start == text.npos) return "";
  return std::string(text.substr(start, text.find_last_not_of(blanks) + 1 - start));
}

std::string lower(std::string_view text) {
  std::string result(text);
  for (char &c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

Cookies cookies(std::string_view header) {
  Cookies result;
  for (const std::string &token : split(header, ";")) {
    const auto pair = pairOf(token);
    result.push_back(pair ? Cookie{decode(strip(pair->name)), decode(strip(pair->value))}
                          : Cookie{});
  }
  return result;
}

void addPart(Form &form, std::string_view part) {
  const size_t blankLine = part.find("\r\n\r\n");
  if (blankLine == part.npos) return;
  const std::string_view rest = part.substr(blankLine + 4);
  const size_t lineEnd = rest.find("\r\n");
  const std::string value(rest.substr(0, lineEnd == rest.npos ? 0 : lineEnd));
  const Text name = between(part, "name=\"", "\"");
  const Text encoded = between(part, "filename=\"", "\"");
  const Text type = between(part, "Content-Type: ", "\r\n\r\n");
  const std::string fileName = decode(encoded.value_or(""));
  if (fileName.empty()) {
    form.entries.push_back({name, std::string(asText(value)), static_cast<uint32_t>(value.size())});
  } else if (name && type) {
    form.files.push_back({name, fileName, type, value});
  } else {
    form.files.push_back({});
  }
}

Form form(std::string_view contentType, std::string_view input) {
  const std::string start = lower(contentType).substr(0, 19);
  return start == "multipart/form-data" ? multipart(contentType, input) : urlEncoded(input);
}

}  // namespace tarn_fuzz::reference
