#include "serve/output.h"

#include <algorithm>
#include <cstring>

namespace tarn::server {
namespace {

// A larger block is given back when the answer ends.
constexpr size_t kMostKept = size_t{8} * 1024;

// Ignores case.
bool beginsWith(std::string_view text, std::string_view start) {
  return text.size() >= start.size() && strncasecmp(text.data(), start.data(), start.size()) == 0;
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && beginsWith(a, b);
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view stripped(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

std::string_view from(std::string_view text, size_t place) {
  return {text.data() + place, text.size() - place};
}

size_t find(std::string_view text, char c) {
  const void *found = text.empty() ? nullptr : std::memchr(text.data(), c, text.size());
  return found ? static_cast<size_t>(static_cast<const char *>(found) - text.data()) : text.size();
}

bool readNumber(std::string_view text, uint64_t &number) {
  number = 0;
  for (const char c : text) {
    const auto digit = static_cast<uint64_t>(c - '0');
    if (!isDigit(c) || number > (UINT64_MAX - digit) / 10) return false;
    number = number * 10 + digit;
  }
  return !text.empty();
}

}  // namespace

void Output::takeStatus(std::string_view status) {
  const bool has_code = status.size() >= 3 && (status.size() == 3 || !isDigit(status[3]));
  status_has_no_body_ = has_code && (beginsWith(status, "204") || beginsWith(status, "304"));
  uint64_t code = 0;
  status_ = has_code && readNumber({status.data(), 3}, code) ? static_cast<int>(code) : 0;
}

void Output::takeField(std::string_view name, std::string_view value) {
  if (equalIgnoringCase(name, "Content-Length")) has_length_ = readNumber(value, length_);
  if (equalIgnoringCase(name, "Location")) {
    has_location_ = true;
    location_follows_ = status_line_end_ > 0;
  }
  names_file_ |= beginsWith(name, "X-Accel-Redirect") || beginsWith(name, "X-Sendfile") ||
                 beginsWith(name, "X-LIGHTTPD-send-");
}

// Takes the line that has been received. Some scripts end it with CR CR LF.
void Output::takeLine() {
  const size_t start = line_;
  std::string_view line = from(header_.view(), start);
  line_ = header_.size();
  line.remove_suffix(1);
  while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  if (line.empty()) {
    endHeader(start);
    return;
  }
  if (start == 0 && line.size() >= 5 && std::memcmp(line.data(), "HTTP/", 5) == 0) {
    takeStatus(stripped(from(line, find(line, ' '))));
    return;
  }
  const size_t colon = find(line, ':');
  if (start == 0 && (colon == 0 || colon == line.size())) state_ = State::kBad;
  if (colon == line.size()) return;
  const std::string_view name = stripped({line.data(), colon});
  const std::string_view value = stripped(from(line, colon + 1));
  if (equalIgnoringCase(name, "Status")) {
    takeStatus(value);
    status_line_ = start;
    status_line_end_ = line_;
    location_follows_ = false;
  }
  takeField(name, value);
}

// The empty line begins at this place. "Status" is moved behind the other lines if "Location" follows
// it: HAProxy answers 302 otherwise.
void Output::endHeader(size_t empty_line) {
  state_ = State::kBody;
  if (!location_follows_) return;
  char *const header = header_.data();
  std::rotate(header + status_line_, header + status_line_end_, header + empty_line);
}

Output::State Output::take(std::string_view bytes, std::string_view &rest) {
  rest = bytes;
  while (state_ == State::kHeader && !rest.empty()) {
    const size_t feed = find(rest, '\n');
    const bool ends = feed < rest.size();
    const std::string_view piece(rest.data(), ends ? feed + 1 : feed);
    if (piece.size() > kMostHeader - header_.size()) return state_ = State::kBad;
    if (!header_.append(piece)) return state_ = State::kOutOfMemory;
    rest.remove_prefix(piece.size());
    if (ends) takeLine();
  }
  if (state_ == State::kBody) body_size_ += rest.size();
  return state_;
}

std::string_view Output::header() {
  if (state_ != State::kBody || is_header_sent_) return {};
  is_header_sent_ = true;
  return header_.view();
}

void Output::clear() {
  header_.clear(kMostKept);
  line_ = status_line_ = status_line_end_ = 0;
  location_follows_ = has_location_ = false;
  status_ = -1;
  state_ = State::kHeader;
  is_header_sent_ = has_length_ = status_has_no_body_ = names_file_ = false;
  length_ = body_size_ = 0;
}

}  // namespace tarn::server
