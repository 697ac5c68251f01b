// How requests are read: the rules of the interface, written a second time and as plainly as
// possible, so that the tests and the fuzz targets can compare any input with them. The same rules in
// Python, for requests through a web server, are in tests/e2e/rules.py. Nothing here calls Tarn.
#ifndef TARN_TESTS_SUPPORT_RULES_H
#define TARN_TESTS_SUPPORT_RULES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn_rules {

// A text that may be absent, which is not the same as empty.
using Text = std::optional<std::string>;
constexpr std::nullopt_t kNone = std::nullopt;

struct Entry {
  Entry(Text itsName, const std::string &itsValue)
      : Entry(std::move(itsName), itsValue, static_cast<uint32_t>(itsValue.size())) {}
  Entry(Text itsName, Text itsValue, uint32_t itsLength)
      : name(std::move(itsName)), value(std::move(itsValue)), length(itsLength) {}
  bool operator==(const Entry &) const = default;

  Text name;
  Text value;
  uint32_t length;
};

// A file without anything is File{}; one of length 0 has empty data.
struct File {
  bool operator==(const File &) const = default;

  Text name;
  Text fileName;
  Text contentType;
  Text data;
};

struct Cookie {
  bool operator==(const Cookie &) const = default;

  Text name;
  Text value;
};

using Entries = std::vector<Entry>;
using Files = std::vector<File>;
using Cookies = std::vector<Cookie>;

struct Form {
  bool operator==(const Form &) const = default;

  Entries entries;
  Files files;
};

// The bytes before the first zero byte.
std::string_view asText(std::string_view bytes);

// URL-encoded text, decoded up to its first zero byte.
std::string decoded(std::string_view text);

// Without blanks, tabs and line ends at both ends.
std::string stripped(std::string_view text);

// With the letters A to Z in lower case.
std::string lowered(std::string_view text);

// What URL-encoded text holds, up to its first zero byte.
Entries modelEntries(std::string_view text);

// What a cookie header holds.
Cookies modelCookies(std::string_view header);

// What a multipart body holds, and what a single part adds to a form.
Form modelForm(std::string_view contentType, std::string_view body);
void modelPart(Form &form, std::string_view part);

// What a body of any content type holds: multipart, or else URL-encoded.
Form modelBody(std::string_view contentType, std::string_view body);

}  // namespace tarn_rules

#endif
