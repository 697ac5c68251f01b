#include "support/rules.h"

#include <algorithm>

namespace tarn_test {
namespace {

Text modelBetween(const std::string &text, const std::string &open, const std::string &close) {
  const size_t found = text.find(open);
  if (found == std::string::npos) return kNone;
  const size_t start = found + open.size();
  const size_t end = text.find(close, start);
  if (end == start) return kNone;
  return text.substr(start, end == std::string::npos ? end : end - start);
}

}  // namespace

Entries modelEntries(const std::string &text) {
  Entries entries;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('&', at), text.size());
    const std::string piece = text.substr(at, end - at);
    const size_t equals = piece.find('=');
    if (equals != std::string::npos) {
      entries.emplace_back(decoded(piece.substr(0, equals)), decoded(piece.substr(equals + 1)));
    }
    at = end + 1;
  }
  return entries;
}

Cookies modelCookies(const std::string &header) {
  const auto clean = [](const std::string &text) {
    const char *const blanks = " \t\n\r";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return std::string();
    return decoded(text.substr(first, text.find_last_not_of(blanks) + 1 - first));
  };
  Cookies cookies;
  for (size_t at = 0; at <= header.size();) {
    const size_t end = std::min(header.find(';', at), header.size());
    const std::string token = header.substr(at, end - at);
    const size_t equals = token.find('=');
    cookies.push_back(equals == std::string::npos ? Cookie{}
                                                  : Cookie{clean(token.substr(0, equals)),
                                                           clean(token.substr(equals + 1))});
    at = end + 1;
  }
  return cookies;
}

void modelPart(Form &form, const std::string &part) {
  const size_t blankLine = part.find("\r\n\r\n");
  if (blankLine == std::string::npos) return;
  const size_t start = blankLine + 4;
  const size_t end = part.find("\r\n", start);
  const std::string value = end == std::string::npos ? "" : part.substr(start, end - start);

  const std::string text(asText(part));
  const Text name = modelBetween(text, "name=\"", "\"");
  Text fileName = modelBetween(text, "filename=\"", "\"");
  if (fileName) fileName = decoded(*fileName);
  const Text contentType = modelBetween(text, "Content-Type: ", "\r\n\r\n");

  if (!fileName || fileName->empty()) {
    const auto length = static_cast<uint32_t>(value.size());
    form.entries.emplace_back(name, std::string(asText(value)), length);
  } else if (name && contentType) {
    form.files.push_back({name, fileName, contentType, value});
  } else {
    form.files.emplace_back();
  }
}

Form modelForm(const std::string &contentType, const std::string &body) {
  Form form;
  const size_t found = contentType.find("boundary=");
  if (found == std::string::npos) return form;
  const std::string delimiter = "--" + contentType.substr(found + 9) + "\r\n";
  size_t position = 0;
  while (position < body.size()) {
    const size_t open = body.find(delimiter, position);
    if (open == std::string::npos) break;
    const size_t start = open + delimiter.size();
    const size_t close = body.find(delimiter, start);
    const std::string part =
        close == std::string::npos ? body.substr(start) + '\0' : body.substr(start, close - start);
    modelPart(form, part);
    position = start + part.size();
  }
  return form;
}

}  // namespace tarn_test
