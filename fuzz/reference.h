// What a script has to see of a request, worked out from the request alone: the rules of the
// interface in another way than the library's, so that the two can be held against each other.
#ifndef TARN_FUZZ_REFERENCE_H
#define TARN_FUZZ_REFERENCE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn_fuzz {

// None is a text that is not there.
using Text = std::optional<std::string>;

struct Entry {
  Text name;
  Text value;
  uint32_t length;

  bool operator==(const Entry &) const = default;
};

struct File {
  Text name;
  Text fileName;
  Text type;
  Text data;

  bool operator==(const File &) const = default;
};

struct Cookie {
  Text name;
  Text value;

  bool operator==(const Cookie &) const = default;
};

struct Form {
  std::vector<Entry> entries;
  std::vector<File> files;

  bool operator==(const Form &) const = default;
};

using Cookies = std::vector<Cookie>;

namespace reference {

std::string decode(std::string_view text);
std::string strip(std::string_view text);
std::string lower(std::string_view text);
Cookies cookies(std::string_view header);
void addPart(Form &form, std::string_view part);
Form form(std::string_view contentType, std::string_view input);

}  // namespace reference
}  // namespace tarn_fuzz

#endif
