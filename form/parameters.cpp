#include "form/parameters.h"

#include "form/text.h"

namespace tarn::form {
namespace {

constexpr size_t kLongestBoundary = 70;
constexpr std::string_view kDelimiterStart = "\r\n--";

// Which bytes a token may contain.
struct TokenBytes {
  bool allowed[256] = {};

  constexpr TokenBytes() {
    for (const char c : std::string_view("!#$%&'*+-.^_`|~0123456789")) allow(c);
    for (char c = 'a'; c <= 'z'; ++c) allow(c);
    for (char c = 'A'; c <= 'Z'; ++c) allow(c);
  }
  constexpr void allow(char c) { allowed[static_cast<unsigned char>(c)] = true; }
};

bool isTokenByte(char c) {
  static constexpr TokenBytes token;
  return token.allowed[static_cast<unsigned char>(c)];
}

// Appends a quoted value without its backslashes.
bool appendUnescaped(Bytes &bytes, std::string_view value) {
  for (size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '\\' && i + 1 < value.size()) ++i;
    if (!bytes.append(value[i])) return false;
  }
  return true;
}

bool reportNoBoundary(Problem &problem, const char *sentence) {
  return problem.report(TARN_FORM_NO_BOUNDARY, 0, sentence);
}

// Whether a parameter is a piece of a boundary in the syntax of RFC 2231, such as "boundary*0".
bool isPieceOfBoundary(std::string_view name) {
  constexpr std::string_view start = "boundary*";
  return name.size() >= start.size() && equalIgnoringCase({name.data(), start.size()}, start);
}

bool readBoundary(std::string_view text, Bytes &boundary, Problem &problem) {
  Parameters parameters(text, Quoting::kHttp);
  if (!boundary.append(kDelimiterStart)) return problem.reportOutOfMemory(0);
  bool found = false;
  bool more = false;
  while (parameters.next()) {
    if (isPieceOfBoundary(parameters.name())) more = true;
    if (!equalIgnoringCase(parameters.name(), "boundary")) continue;
    if (found) {
      more = true;
      continue;
    }
    found = true;
    const bool kept = parameters.escaped() ? appendUnescaped(boundary, parameters.value())
                                           : boundary.append(parameters.value());
    if (!kept) return problem.reportOutOfMemory(0);
  }
  if (parameters.malformed() || std::memchr(text.data(), '\r', text.size()) ||
      std::memchr(text.data(), '\n', text.size())) {
    return reportNoBoundary(problem, "the parameters of CONTENT_TYPE are malformed");
  }
  if (found && more) {
    return problem.report(TARN_FORM_TWO_BOUNDARIES, 0, "two boundaries in CONTENT_TYPE");
  }
  if (!found) return reportNoBoundary(problem, "no boundary in CONTENT_TYPE");
  std::string_view value = boundary.view();
  value.remove_prefix(kDelimiterStart.size());
  if (value.empty()) return reportNoBoundary(problem, "the boundary in CONTENT_TYPE is empty");
  if (value.size() > kLongestBoundary) {
    return reportNoBoundary(problem, "the boundary in CONTENT_TYPE is longer than 70 bytes");
  }
  if (isSpace(value.back())) {
    return reportNoBoundary(problem, "the boundary in CONTENT_TYPE ends in white space");
  }
  return true;
}

}  // namespace

bool isToken(std::string_view text) {
  for (const char c : text) {
    if (!isTokenByte(c)) return false;
  }
  return !text.empty();
}

void Parameters::skipSpace() {
  while (!rest_.empty() && isSpace(rest_.front())) rest_.remove_prefix(1);
}

bool Parameters::next() {
  if (malformed_) return false;
  skipSpace();
  if (rest_.empty()) return false;
  if (rest_.front() != ';') return fail();
  while (!rest_.empty() && (rest_.front() == ';' || isSpace(rest_.front()))) rest_.remove_prefix(1);
  if (rest_.empty()) return false;

  size_t size = 0;
  while (size < rest_.size() && isTokenByte(rest_[size])) ++size;
  if (size == 0) return fail();
  name_ = {rest_.data(), size};
  rest_.remove_prefix(size);
  skipSpace();
  if (rest_.empty() || rest_.front() != '=') return fail();
  rest_.remove_prefix(1);
  skipSpace();
  escaped_ = false;
  return !rest_.empty() && rest_.front() == '"' ? takeQuoted() : takeToken();
}

bool Parameters::takeToken() {
  // Java's mail library writes boundaries with "=" and ":" without quotes.
  const bool boundary = quoting_ == Quoting::kHttp && equalIgnoringCase(name_, "boundary");
  size_t size = 0;
  while (size < rest_.size() &&
         (isTokenByte(rest_[size]) || (boundary && (rest_[size] == '=' || rest_[size] == ':')))) {
    ++size;
  }
  value_ = {rest_.data(), size};
  rest_.remove_prefix(size);
  return size > 0 || fail();
}

// Whether the next parameter or the end follows.
bool Parameters::endsAt(size_t place) const {
  while (place < rest_.size() && isSpace(rest_[place])) ++place;
  return place >= rest_.size() || rest_[place] == ';';
}

bool Parameters::takeQuoted() {
  rest_.remove_prefix(1);
  // With escapes: the value ends at the first quote that is not escaped.
  size_t end = 0;
  bool escapes = false;
  while (end < rest_.size() && rest_[end] != '"') {
    if (rest_[end] != '\\') {
      ++end;
      continue;
    }
    const bool escape = end + 1 < rest_.size() && (quoting_ == Quoting::kHttp ||
                                                   rest_[end + 1] == '\\' || rest_[end + 1] == '"');
    if (!escape) break;
    escapes = true;
    end += 2;
  }
  const bool closed = end < rest_.size() && rest_[end] == '"';
  escaped_ = escapes && closed && (quoting_ == Quoting::kHttp || endsAt(end + 1));
  if (!escaped_) {
    // Without: at the first quote.
    if (quoting_ == Quoting::kHttp && !closed) return fail();
    const size_t quote = rest_.find('"');
    if (quote == std::string_view::npos) return fail();
    end = quote;
  }
  value_ = {rest_.data(), end};
  rest_.remove_prefix(end + 1);
  return endsAt(0) || fail();
}

std::string_view takeType(std::string_view &text) {
  text = trim(text);
  size_t size = 0;
  while (size < text.size() && text[size] != ';' && !isSpace(text[size])) ++size;
  const std::string_view type(text.data(), size);
  text.remove_prefix(size);
  return type;
}

BodyType readContentType(std::string_view text, Bytes &boundary, Problem &problem) {
  if (text.empty()) return BodyType::kNone;
  const std::string_view type = takeType(text);
  const std::string_view rest = trim(text);
  if (!rest.empty() && rest.front() != ';') return BodyType::kOther;
  if (equalIgnoringCase(type, "multipart/form-data")) {
    readBoundary(text, boundary, problem);
    return BodyType::kMultipart;
  }
  return equalIgnoringCase(type, "application/x-www-form-urlencoded") ? BodyType::kUrlEncoded
                                                                      : BodyType::kOther;
}

}  // namespace tarn::form
