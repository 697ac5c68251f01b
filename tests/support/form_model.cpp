#include "support/form_model.h"

#include <cstddef>
#include <utility>

namespace tarn_test {
namespace {

constexpr size_t kFieldLimit = 1000;
// From the first header line to the end of the empty line.
constexpr size_t kHeaderLimit = size_t{16} * 1024;
constexpr size_t kBoundaryLimit = 70;

// A problem's code; empty if there is none.
using Problem = std::string;

bool isWhite(char c) { return c == ' ' || c == '\t'; }

bool isDigit(char c) { return c >= '0' && c <= '9'; }

char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string lowered(std::string_view text) {
  std::string result;
  for (const char c : text) result += lowered(c);
  return result;
}

bool isTokenCharacter(char c) {
  const char lower = lowered(c);
  if (isDigit(c) || (lower >= 'a' && lower <= 'z')) return true;
  return c != '\0' && std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

std::string_view skipWhite(std::string_view text) {
  while (!text.empty() && isWhite(text.front())) text.remove_prefix(1);
  return text;
}

std::string_view stripped(std::string_view text) {
  text = skipWhite(text);
  while (!text.empty() && isWhite(text.back())) text.remove_suffix(1);
  return text;
}

// The value of a hexadecimal digit, or -1.
int hexadecimal(char c) {
  const size_t found = std::string_view("0123456789abcdef").find(lowered(c));
  return found == std::string_view::npos ? -1 : static_cast<int>(found);
}

std::string urlDecoded(std::string_view text) {
  std::string result;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && hexadecimal(text[i + 1]) >= 0 &&
        hexadecimal(text[i + 2]) >= 0) {
      result += static_cast<char>(hexadecimal(text[i + 1]) * 16 + hexadecimal(text[i + 2]));
      i += 2;
    } else {
      result += text[i] == '+' ? ' ' : text[i];
    }
  }
  return result;
}

// Browsers write quotes, CR and LF in names as "%22", "%0D" and "%0A", and nothing else.
std::string sent(std::string_view text) {
  std::string result;
  for (size_t i = 0; i < text.size(); ++i) {
    const std::string escape = lowered(text.substr(i, 3));
    if (escape == "%22" || escape == "%0d" || escape == "%0a") {
      result += escape == "%22" ? '"' : escape == "%0d" ? '\r' : '\n';
      i += 2;
    } else {
      result += text[i];
    }
  }
  return result;
}

// ---- Parameters of a header ---------------------------------------------------------------------

struct Parameter {
  std::string name;  // in lower case
  std::string value;
};

// A value, and what follows it.
using Read = std::optional<std::pair<std::string, std::string_view>>;

// Reads the value of a quoted string, given what follows its opening quote.
using QuotedReader = Read (*)(std::string_view);

// Any character may be escaped, or only quotes and backslashes.
Read quotedWithEscapes(std::string_view text, bool escapesAny) {
  std::string value;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"') return std::pair(value, text.substr(i + 1));
    if (text[i] == '\\') {
      ++i;
      if (i == text.size()) return std::nullopt;
      if (!escapesAny && text[i] != '"' && text[i] != '\\') return std::nullopt;
    }
    value += text[i];
  }
  return std::nullopt;
}

Read quotedInContentType(std::string_view text) {
  Read read = quotedWithEscapes(text, true);
  if (read && read->first.find_first_of("\r\n") != std::string::npos) return std::nullopt;
  return read;
}

// Clients differ in what a backslash means. It escapes only if every one comes before another or a
// quote and the closing quote ends the parameter. Otherwise it is a character like any other, and the
// first quote ends the value.
Read quotedInDisposition(std::string_view text) {
  if (Read read = quotedWithEscapes(text, false)) {
    const std::string_view rest = skipWhite(read->second);
    if (rest.empty() || rest.front() == ';') return read;
  }
  const size_t quote = text.find('"');
  if (quote == std::string_view::npos) return std::nullopt;
  return std::pair(std::string(text.substr(0, quote)), text.substr(quote + 1));
}

// The token that a text begins with, perhaps empty.
std::string token(std::string_view text, bool isBoundary) {
  std::string result;
  for (const char c : text) {
    if (!isTokenCharacter(c) && !(isBoundary && (c == '=' || c == ':'))) break;
    result += c;
  }
  return result;
}

// The parameters after a media type or "form-data". None if they are malformed. Empty ones, as in
// ";;", are skipped.
// The boundary of a content type may have characters that no token has.
std::optional<std::vector<Parameter>> parametersOf(std::string_view text, QuotedReader quoted) {
  std::vector<Parameter> found;
  std::string_view rest = skipWhite(text);
  while (!rest.empty()) {
    if (rest.front() != ';') return std::nullopt;
    rest = skipWhite(rest.substr(1));
    if (rest.empty() || rest.front() == ';') continue;
    const std::string name = lowered(token(rest, false));
    rest = skipWhite(rest.substr(name.size()));
    if (name.empty() || rest.empty() || rest.front() != '=') return std::nullopt;
    rest = skipWhite(rest.substr(1));
    if (!rest.empty() && rest.front() == '"') {
      const Read read = quoted(rest.substr(1));
      if (!read) return std::nullopt;
      found.push_back({name, read->first});
      rest = read->second;
    } else {
      const bool isBoundary = quoted == quotedInContentType && name == "boundary";
      const std::string value = token(rest, isBoundary);
      if (value.empty()) return std::nullopt;
      found.push_back({name, value});
      rest = rest.substr(value.size());
    }
    rest = skipWhite(rest);
  }
  return found;
}

// What is in front of the first ";", and the rest.
std::pair<std::string, std::string_view> typeAndParameters(std::string_view value) {
  const size_t semicolon = value.find(';');
  const std::string type = lowered(stripped(value.substr(0, semicolon)));
  return {type, semicolon == std::string_view::npos ? "" : value.substr(semicolon)};
}

Problem findBoundary(std::string_view text, std::string &boundary) {
  const auto parameters = parametersOf(text, quotedInContentType);
  if (!parameters) return "no_boundary";
  size_t boundaries = 0;
  size_t others = 0;
  for (const Parameter &parameter : *parameters) {
    if (parameter.name == "boundary") {
      boundary = parameter.value;
      ++boundaries;
    } else if (parameter.name.starts_with("boundary*")) {
      ++others;
    }
  }
  if (boundaries == 0) return "no_boundary";
  if (boundaries + others > 1) return "two_boundaries";
  if (boundary.empty() || boundary.size() > kBoundaryLimit || isWhite(boundary.back())) {
    return "no_boundary";
  }
  return "";
}

// ---- Multipart ----------------------------------------------------------------------------------

// Takes what follows a delimiter off `rest`, up to the end of its line.
Problem afterDelimiter(std::string_view &rest, bool &isLast) {
  isLast = rest.starts_with("--");
  if (isLast) return "";
  const std::string_view lineEnd = skipWhite(rest);
  // More bytes could still make this a delimiter.
  if (lineEnd.empty() || lineEnd == "\r" || rest == "-") return "cut_short";
  if (!lineEnd.starts_with("\r\n")) return "malformed";
  rest = lineEnd.substr(2);
  return "";
}

Problem readDisposition(std::string_view value, ModelField &field) {
  const auto [type, text] = typeAndParameters(value);
  if (type != "form-data") return "part_without_name";
  const auto parameters = parametersOf(text, quotedInDisposition);
  if (!parameters) return "malformed_header";
  size_t names = 0;
  size_t filenames = 0;
  for (const Parameter &parameter : *parameters) {
    if (parameter.name == "name") {
      field.name = sent(parameter.value);
      ++names;
    } else if (parameter.name == "filename") {
      field.filename = sent(parameter.value);
      ++filenames;
    }
  }
  if (names > 1 || filenames > 1) return "malformed_header";
  return names == 0 ? "part_without_name" : "";
}

// The headers that matter, as far as they have been read.
struct Seen {
  bool disposition = false;
  bool contentType = false;
  bool encoding = false;
};

Problem readHeader(std::string_view line, ModelField &field, Seen &seen) {
  const std::string name = lowered(token(line, false));
  if (line.find_first_of("\r\n") != std::string_view::npos || name.empty() ||
      name.size() == line.size() || line[name.size()] != ':') {
    return "malformed_header";
  }
  const std::string_view value = stripped(line.substr(name.size() + 1));
  if (name == "content-disposition") {
    if (std::exchange(seen.disposition, true)) return "malformed_header";
    return readDisposition(value, field);
  }
  if (name == "content-type") {
    if (std::exchange(seen.contentType, true)) return "malformed_header";
    field.content_type = value;
  }
  if (name == "content-transfer-encoding") {
    if (std::exchange(seen.encoding, true)) return "malformed_header";
    const std::string encoding = lowered(value);
    if (encoding != "7bit" && encoding != "8bit" && encoding != "binary") return "unsupported_type";
  }
  return "";
}

// Takes the headers off `rest`, but leaves the CR LF of the empty line.
Problem readHeaders(std::string_view &rest, std::string_view delimiter, ModelField &field) {
  std::string_view block = rest.substr(0, kHeaderLimit);
  Seen seen;
  size_t used = 0;
  while (true) {
    if (block.starts_with(delimiter)) return "malformed";
    const size_t end = block.find("\r\n");
    if (end == std::string_view::npos) return rest.size() > kHeaderLimit ? "limit" : "cut_short";
    if (end == 0) break;
    // White space on the next line would continue this one.
    if (used + end + 2 == rest.size()) return "cut_short";
    if (isWhite(rest[used + end + 2])) return "malformed_header";
    if (Problem problem = readHeader(block.substr(0, end), field, seen); !problem.empty()) {
      return problem;
    }
    block = block.substr(end + 2);
    used += end + 2;
  }
  rest = rest.substr(used);
  return seen.disposition ? "" : "part_without_name";
}

// Takes a part and the delimiter after it off `rest`.
Problem readPart(std::string_view &rest, std::string_view delimiter, ModelField &field,
                 bool &isLast) {
  if (Problem problem = readHeaders(rest, delimiter, field); !problem.empty()) return problem;
  // The delimiter after an empty value may share the CR LF of the empty line.
  const size_t end = rest.find("\r\n" + std::string(delimiter));
  if (end == std::string_view::npos) return "cut_short";
  if (end > 0) field.value = rest.substr(2, end - 2);
  rest = rest.substr(end + 2 + delimiter.size());
  return afterDelimiter(rest, isLast);
}

}  // namespace

ModelResult modelOfMultipart(std::string_view boundary, std::string_view body) {
  const std::string delimiter = "--" + std::string(boundary);
  const size_t first = body.find(delimiter);
  if (first == std::string_view::npos) return {{}, "cut_short"};
  if (first > 0 && !body.substr(0, first).ends_with("\r\n")) return {{}, "malformed"};
  std::string_view rest = body.substr(first + delimiter.size());
  ModelResult result;
  bool isLast = false;
  result.problem = afterDelimiter(rest, isLast);
  while (result.problem.empty() && !isLast) {
    if (result.fields.size() == kFieldLimit) return {result.fields, "limit"};
    ModelField field;
    result.problem = readPart(rest, delimiter, field, isLast);
    if (result.problem.empty()) result.fields.push_back(field);
  }
  return result;
}

ModelResult modelOfUrlEncoded(std::string_view text) {
  ModelResult result;
  while (!text.empty()) {
    const size_t end = text.find('&');
    const std::string_view piece = text.substr(0, end);
    text = end == std::string_view::npos ? "" : text.substr(end + 1);
    if (piece.empty()) continue;
    if (result.fields.size() == kFieldLimit) return {result.fields, "limit"};
    const size_t equals = piece.find('=');
    ModelField field;
    field.name = urlDecoded(piece.substr(0, equals));
    if (equals != std::string_view::npos) field.value = urlDecoded(piece.substr(equals + 1));
    result.fields.push_back(field);
  }
  return result;
}

ModelResult modelOfForm(std::string_view contentType, std::string_view body) {
  if (contentType.empty() && body.empty()) return {};
  const auto [type, parameters] = typeAndParameters(contentType);
  if (type == "application/x-www-form-urlencoded") return modelOfUrlEncoded(body);
  if (type != "multipart/form-data") return {{}, "unsupported_type"};
  std::string boundary;
  if (Problem problem = findBoundary(parameters, boundary); !problem.empty()) return {{}, problem};
  return modelOfMultipart(boundary, body);
}

}  // namespace tarn_test
