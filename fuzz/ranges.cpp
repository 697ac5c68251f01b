// Sends a file in reply to any conditions and ranges, and compares the response with a plain model of
// RFC 9110.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <map>
#include <optional>

#include "support.h"
#include "tarn.hpp"

using namespace tarn_fuzz;

namespace {

using Headers = std::map<std::string, std::string>;

constexpr std::int64_t kModified = 784111777;  // Sun, 06 Nov 1994 08:49:37 GMT

// ---- The model ----------------------------------------------------------------------------------

std::string trimmed(const std::string &text) {
  const size_t begin = text.find_first_not_of(" \t");
  if (begin == text.npos) return "";
  return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

std::chrono::year_month_day dayOf(const std::tm &date) {
  return std::chrono::year(date.tm_year + 1900) / (date.tm_mon + 1) / date.tm_mday;
}

// Where a long has 32 bits, timegm() ends in 2038.
std::int64_t secondsAt(const std::tm &date) {
  const std::int64_t days = std::chrono::sys_days(dayOf(date)).time_since_epoch().count();
  return ((days * 24 + date.tm_hour) * 60 + date.tm_min) * 60 + date.tm_sec;
}

// strptime() reads the first digit of seconds that are too many, and stops.
bool readsAll(const std::string &text, const char *format, std::tm &date) {
  const char *const end = strptime(text.c_str(), format, &date);
  return end != nullptr && *end == '\0';
}

// Reads a date with the C library, by each format of HTTP.
std::optional<std::int64_t> dateIn(const std::string &text) {
  // strptime() skips blanks, and accepts any case and any number of digits.
  const auto digits = [](size_t count) { return std::string(count, '9'); };
  std::string shape;
  for (const char c : text) shape += c >= '0' && c <= '9' ? '9' : c;
  const char *const names[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  const char *const longNames[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                   "Thursday", "Friday", "Saturday"};
  const char *const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const std::string clock = digits(2) + ":" + digits(2) + ":" + digits(2);
  const char *format = nullptr;
  bool shortYear = false;
  for (const char *month : months) {
    const std::string name = month;
    for (size_t day = 0; day < 7; ++day) {
      const std::string each = names[day];
      const std::string all = longNames[day];
      if (shape == each + ", " + digits(2) + " " + name + " " + digits(4) + " " + clock + " GMT") {
        format = "%a, %d %b %Y %H:%M:%S GMT";
      }
      // Any name of a day has any ending of a day: neither is compared with the date.
      for (const char *ending : longNames) {
        const std::string tail = std::string(ending).substr(3);
        if (shape ==
            each + tail + ", " + digits(2) + "-" + name + "-" + digits(2) + " " + clock + " GMT") {
          format = "";
          shortYear = true;
        }
      }
      for (const std::string &number : {digits(2), " " + digits(1)}) {
        if (shape == each + " " + name + " " + number + " " + clock + " " + digits(4)) {
          format = "%a %b %e %H:%M:%S %Y";
        }
      }
    }
  }
  if (format == nullptr) return std::nullopt;
  std::tm date = {};
  if (shortYear) {
    const std::string rest = text.substr(text.find(", ") + 2);
    if (!readsAll(rest, "%d-%b-%y %H:%M:%S GMT", date)) return std::nullopt;
    date.tm_year %= 100;
  } else if (!readsAll(text, format, date)) {
    return std::nullopt;
  }
  if (date.tm_sec > 60) return std::nullopt;
  if (shortYear) {
    const std::int64_t limit = std::time(nullptr) + std::int64_t{50} * 31556952;
    std::tm later = date;
    for (int year = date.tm_year + 100;; year += 100) {
      later.tm_year = year;
      if (secondsAt(later) > limit) break;
      date.tm_year = year;
    }
  }
  if (!dayOf(date).ok()) return std::nullopt;
  return secondsAt(date);
}

// The tags in a list, up to what is no tag.
std::vector<std::string> tagsIn(const std::string &list) {
  std::vector<std::string> tags;
  size_t at = 0;
  for (;;) {
    at = list.find_first_not_of(" \t,", at);
    if (at == list.npos) return tags;
    const size_t open = list.compare(at, 2, "W/") == 0 ? at + 2 : at;
    if (open >= list.size() || list[open] != '"') return tags;
    const size_t close = list.find('"', open + 1);
    if (close == list.npos) return tags;
    tags.push_back(list.substr(at, close + 1 - at));
    at = close + 1;
  }
}

std::string withoutW(const std::string &tag) { return tag[0] == 'W' ? tag.substr(2) : tag; }

bool matches(const std::string &list, const std::string &tag, bool weakly) {
  if (trimmed(list) == "*") return true;
  const std::vector<std::string> tags = tagsIn(list);
  return std::any_of(tags.begin(), tags.end(), [&](const std::string &each) {
    return weakly ? withoutW(each) == withoutW(tag) : each == tag && tag[0] != 'W';
  });
}

bool isLess(const std::string &a, const std::string &b) {
  return a.size() != b.size() ? a.size() < b.size() : a < b;
}

// A number as a text without leading zeros, and not above the largest number of 64 bits.
std::string plainNumber(const std::string &digits) {
  const std::string most = std::to_string(UINT64_MAX);
  const size_t begin = digits.find_first_not_of('0');
  const std::string plain = begin == digits.npos ? "0" : digits.substr(begin);
  return isLess(most, plain) ? most : plain;
}

struct Range {
  size_t first, end;
};

// The range that the header wants. None if it wants everything; first > end if there is none.
std::optional<Range> rangeIn(std::string text, size_t size) {
  std::string unit = text.substr(0, 6);
  std::transform(unit.begin(), unit.end(), unit.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  if (unit != "bytes=") return std::nullopt;
  text.erase(0, 6);
  const size_t begin = text.find_first_not_of(" \t,");
  if (begin == text.npos) return std::nullopt;
  text = text.substr(begin, text.find_last_not_of(" \t,") + 1 - begin);
  const size_t dash = text.find('-');
  if (dash == text.npos || text.find_first_not_of("0123456789-") != text.npos ||
      text.find('-', dash + 1) != text.npos || text == "-") {
    return std::nullopt;
  }
  const std::string first = text.substr(0, dash);
  const std::string last = text.substr(dash + 1);
  const std::string length = std::to_string(size);
  if (first.empty()) {
    const std::string count = plainNumber(last);
    if (count == "0") return Range{1, 0};
    if (size == 0) return std::nullopt;
    return Range{isLess(count, length) ? size - std::stoul(count) : 0, size};
  }
  if (!last.empty() && isLess(plainNumber(last), plainNumber(first))) return std::nullopt;
  if (!isLess(plainNumber(first), length)) return Range{1, 0};
  const bool cut = !last.empty() && isLess(plainNumber(last), length);
  return Range{std::stoul(plainNumber(first)), cut ? std::stoul(plainNumber(last)) + 1 : size};
}

// ---- The request --------------------------------------------------------------------------------

const char *const kVariables[] = {"HTTP_IF_MATCH",      "HTTP_IF_UNMODIFIED_SINCE",
                                  "HTTP_IF_NONE_MATCH", "HTTP_IF_MODIFIED_SINCE",
                                  "HTTP_IF_RANGE",      "HTTP_RANGE"};

struct Request {
  std::string method;
  Headers headers;

  const std::string *operator[](const char *name) const {
    const auto found = headers.find(name);
    return found != headers.end() ? &found->second : nullptr;
  }
  std::optional<std::int64_t> date(const char *name) const {
    const std::string *const value = (*this)[name];
    return value != nullptr ? dateIn(*value) : std::nullopt;
  }
};

// The status of the response, and what its body is.
struct Expected {
  int status;
  Range range;
};

Expected expected(const Request &request, const std::string &tag, size_t size) {
  const Range all{0, size};
  if (request.method != "GET" && request.method != "HEAD") return {200, all};
  if (const std::string *const match = request["HTTP_IF_MATCH"]) {
    if (!matches(*match, tag, false)) return {412, {}};
  } else if (const auto date = request.date("HTTP_IF_UNMODIFIED_SINCE")) {
    if (kModified > *date) return {412, {}};
  }
  if (const std::string *const match = request["HTTP_IF_NONE_MATCH"]) {
    if (matches(*match, tag, true)) return {304, {}};
  } else if (const auto date = request.date("HTTP_IF_MODIFIED_SINCE")) {
    if (kModified <= *date) return {304, {}};
  }
  const std::string *const range = request["HTTP_RANGE"];
  if (request.method == "HEAD" || range == nullptr) return {200, all};
  if (const std::string *const version = request["HTTP_IF_RANGE"]) {
    const bool same = version->find('"') != version->npos
                          ? *version == tag && tag[0] != 'W'
                          : dateIn(*version) == std::optional<std::int64_t>(kModified);
    if (!same) return {200, all};
  }
  const std::optional<Range> wanted = rangeIn(*range, size);
  if (!wanted) return {200, all};
  if (wanted->first > wanted->end) return {416, {}};
  return {206, *wanted};
}

// A file with these bytes, which was changed long ago.
tarn::StoredFile fileOf(const std::string &bytes) {
  const int file = memfd_create("range", MFD_CLOEXEC);
  EXPECT(file >= 0 &&
         write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  return {tarn::adopt, file, "lake.txt"};
}

Headers headersIn(std::string &text) {
  Headers headers;
  for (;;) {
    const size_t end = text.find("\r\n");
    EXPECT(end != text.npos);
    const std::string line = text.substr(0, end);
    text.erase(0, end + 2);
    if (line.empty()) return headers;
    const size_t colon = line.find(": ");
    EXPECT(colon != line.npos);
    EXPECT(headers.emplace(line.substr(0, colon), line.substr(colon + 2)).second);
  }
}

void expectResponse(const Request &request, const Expected &expected, const std::string &tag,
                    const std::string &bytes, std::string text) {
  const Headers headers = headersIn(text);
  const auto value = [&headers](const char *name) {
    const auto found = headers.find(name);
    return found != headers.end() ? found->second : std::string();
  };
  const std::string size = std::to_string(bytes.size());
  const auto [status, range] = expected;
  EXPECT(value("Status").substr(0, 3) == (status == 200 ? "" : std::to_string(status)));
  std::string shown;
  if (status == 206) {
    shown =
        "bytes " + std::to_string(range.first) + "-" + std::to_string(range.end - 1) + "/" + size;
  }
  if (status == 416) shown = "bytes */" + size;
  EXPECT(value("Content-Range") == shown);
  if (status == 200 || status == 206) {
    const std::string body = bytes.substr(range.first, range.end - range.first);
    EXPECT(value("Content-Length") == std::to_string(body.size()));
    EXPECT(value("ETag") == tag && !value("Last-Modified").empty());
    EXPECT(text == (request.method == "HEAD" ? "" : body));
  }
  if (status == 304)
    EXPECT(value("ETag") == tag && text.empty() && value("Content-Length").empty());
}

}  // namespace

// Lines: the method, the tag, and one for each header, which is left out if the line is "-". The rest is
// the file.
void fuzz(Input input) {
  Request request;
  request.method = input.line();
  std::string tag(input.line());
  const bool weak = tag.substr(0, 2) == "W/";
  if (weak) tag.erase(0, 2);
  for (const char *name : kVariables) {
    const std::string value(input.line());
    if (value != "-" && value.find('\0') == value.npos) request.headers[name] = value;
  }
  if (request.method.find('\0') != request.method.npos) return;
  const std::string bytes(input.rest());

  setenv("REQUEST_METHOD", request.method.c_str(), 1);
  for (const char *name : kVariables) unsetenv(name);
  for (const auto &[name, content] : request.headers) setenv(name.c_str(), content.c_str(), 1);
  Stream out;
  tarn::Response response(out.file());
  response.last_modified(kModified);
  if (weak) {
    response.weak_etag(tag);
  } else {
    response.etag(tag);
  }
  const bool valid = response.problem() == nullptr;
  const bool sent = response.send_file(fileOf(bytes));
  EXPECT(sent == valid);
  if (!valid) return;
  const std::string shown = (weak ? "W/\"" : "\"") + tag + "\"";
  expectResponse(request, expected(request, shown, bytes.size()), shown, bytes, out.written());
}
