#include "support/rules.h"

namespace tarn_rules {
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

std::optional<std::pair<std::string, std::string>> pairOf(const std::string &text) {
  const size_t equals = text.find('=');
  if (equals == text.npos) return std::nullopt;
  return std::pair(text.substr(0, equals), text.substr(equals + 1));
}

unsigned digit(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte > 64 ? (byte & 0xDFU) - 55U : byte - 48U;
}

// The text between two marks; without the second mark, all that follows the first. No text when
// nothing is between them.
Text between(std::string_view part, const std::string &open, const std::string &close) {
  const std::string text(asText(part));
  const size_t mark = text.find(open);
  if (mark == text.npos) return kNone;
  const size_t start = mark + open.size();
  const size_t end = text.find(close, start);
  if (end == start) return kNone;
  return text.substr(start, end == text.npos ? end : end - start);
}

}  // namespace

std::string_view asText(std::string_view bytes) { return bytes.substr(0, bytes.find('\0')); }

std::string decoded(std::string_view text) {
  const std::string encoded(asText(text));
  std::string result;
  for (size_t i = 0; i < encoded.size(); ++i) {
    if (encoded[i] == '%') {
      // Missing digits are zero bytes.
      std::string digits = encoded.substr(i + 1, 2);
      digits.resize(2, '\0');
      result += static_cast<char>((digit(digits[0]) * 16 + digit(digits[1])) & 0xFFU);
      i += 2;
    } else {
      result += encoded[i] == '+' ? ' ' : encoded[i];
    }
  }
  return std::string(asText(result));
}

std::string stripped(std::string_view text) {
  const char *const blanks = " \t\n\r";
  const size_t start = text.find_first_not_of(blanks);
  if (start == text.npos) return "";
  return std::string(text.substr(start, text.find_last_not_of(blanks) + 1 - start));
}

std::string lowered(std::string_view text) {
  std::string result(text);
  for (char &c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

Entries modelEntries(std::string_view text) {
  Entries entries;
  for (const std::string &piece : split(asText(text), "&")) {
    if (const auto pair = pairOf(piece)) {
      entries.emplace_back(decoded(pair->first), decoded(pair->second));
    }
  }
  return entries;
}

Cookies modelCookies(std::string_view header) {
  Cookies cookies;
  for (const std::string &token : split(header, ";")) {
    const auto pair = pairOf(token);
    cookies.push_back(pair ? Cookie{decoded(stripped(pair->first)), decoded(stripped(pair->second))}
                           : Cookie{});
  }
  return cookies;
}

Form modelForm(std::string_view contentType, std::string_view body) {
  Form form;
  const size_t mark = contentType.find("boundary=");
  if (mark == contentType.npos) return form;
  const std::string delimiter = "--" + std::string(contentType.substr(mark + 9)) + "\r\n";
  std::vector<std::string> parts = split(body, delimiter);
  // The bytes before the first delimiter are not a part.
  parts.erase(parts.begin());
  for (const std::string &part : parts) modelPart(form, part);
  return form;
}

void modelPart(Form &form, std::string_view part) {
  const size_t blankLine = part.find("\r\n\r\n");
  if (blankLine == part.npos) return;
  const std::string_view rest = part.substr(blankLine + 4);
  const size_t lineEnd = rest.find("\r\n");
  const std::string value(rest.substr(0, lineEnd == rest.npos ? 0 : lineEnd));
  const Text name = between(part, "name=\"", "\"");
  const std::string fileName = decoded(between(part, "filename=\"", "\"").value_or(""));
  const Text contentType = between(part, "Content-Type: ", "\r\n\r\n");
  if (fileName.empty()) {
    const auto length = static_cast<uint32_t>(value.size());
    form.entries.emplace_back(name, std::string(asText(value)), length);
  } else if (name && contentType) {
    form.files.push_back({name, fileName, contentType, value});
  } else {
    form.files.emplace_back();
  }
}

Form modelBody(std::string_view contentType, std::string_view body) {
  if (lowered(contentType).starts_with("multipart/form-data")) return modelForm(contentType, body);
  return {modelEntries(body), {}};
}

}  // namespace tarn_rules
