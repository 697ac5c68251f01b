#include "serve/parameters.h"

#include <algorithm>
#include <cstring>

namespace tarn::server {
namespace {

// A larger block is given back when its request ends: few requests need one.
constexpr size_t kMostKept = size_t{8} * 1024;

bool beginsWith(std::string_view text, std::string_view start) {
  return text.size() >= start.size() && std::memcmp(text.data(), start.data(), start.size()) == 0;
}

bool contains(std::string_view text, char c) {
  return !text.empty() && std::memchr(text.data(), c, text.size()) != nullptr;
}

const char *endOf(const PrivateBytes &bytes) { return bytes.data() + bytes.size(); }

// Not std::string_view::compare(), which can throw.
int compare(std::string_view a, std::string_view b) {
  const int order = std::memcmp(a.data(), b.data(), std::min(a.size(), b.size()));
  return order != 0 ? order : (a.size() > b.size()) - (a.size() < b.size());
}

std::string_view nameOf(const char *entry) {
  const char *equals = std::strchr(entry, '=');
  return {entry, equals ? static_cast<size_t>(equals - entry) : std::strlen(entry)};
}

}  // namespace

bool belongsToRequest(std::string_view name) {
  constexpr std::string_view kNames[] = {
      "AUTH_TYPE",      "DOCUMENT_ROOT",  "DOCUMENT_URI",    "GATEWAY_INTERFACE",
      "HTTPS",          "PATH_INFO",      "PATH_TRANSLATED", "QUERY_STRING",
      "REQUEST_METHOD", "REQUEST_SCHEME", "REQUEST_URI",     "SCRIPT_FILENAME",
      "SCRIPT_NAME",    "SCRIPT_URI",     "SCRIPT_URL",      "UNIQUE_ID"};
  constexpr std::string_view kStarts[] = {"CONTENT_", "FCGI_",   "HTTP_",      "REDIRECT_",
                                          "REMOTE_",  "SERVER_", "SSL_CLIENT_"};
  return std::any_of(std::begin(kNames), std::end(kNames),
                     [name](std::string_view known) { return name == known; }) ||
         std::any_of(std::begin(kStarts), std::end(kStarts),
                     [name](std::string_view start) { return beginsWith(name, start); });
}

bool Parameters::fail(State state) {
  state_ = state;
  return false;
}

bool Parameters::takePiece(PairReader::Event event) {
  const std::string_view bytes = pairs_.bytes();
  switch (event) {
    case PairReader::Event::kSizes: {
      const uint64_t total = uint64_t{pairs_.nameSize()} + pairs_.valueSize() + size_;
      if (++count_ > limits_.count || total > limits_.size) return fail(State::kTooMany);
      if (pairs_.nameSize() == 0) return fail(State::kMalformed);
      size_ = total;
      return true;
    }
    case PairReader::Event::kName:
      if (contains(bytes, '=')) return fail(State::kMalformed);
      break;
    case PairReader::Event::kEnd:
      return entries_.append('\0') || fail(State::kOutOfMemory);
    default:
      break;
  }
  if (contains(bytes, '\0')) return fail(State::kMalformed);
  const bool name_ends = event == PairReader::Event::kName && pairs_.nameEnds();
  return (entries_.append(bytes) && (!name_ends || entries_.append('='))) ||
         fail(State::kOutOfMemory);
}

Parameters::State Parameters::add(std::string_view stream) {
  while (state_ == State::kIncomplete) {
    const PairReader::Event event = pairs_.next(stream);
    if (event == PairReader::Event::kNone) break;
    takePiece(event);
  }
  return state_;
}

Parameters::State Parameters::end() {
  if (state_ == State::kIncomplete) {
    state_ = pairs_.isBetweenPairs() ? State::kComplete : State::kMalformed;
  }
  return state_;
}

const char *Parameters::find(std::string_view name) const {
  const char *value = nullptr;
  for (const char *entry = entries_.data(); entry && entry < endOf(entries_);
       entry += std::strlen(entry) + 1) {
    // The last name may be incomplete.
    if (nameOf(entry) == name && entry[name.size()] == '=') value = entry + name.size() + 1;
  }
  return value;
}

bool Parameters::set(std::string_view name, std::string_view value) {
  const size_t size = entries_.size();
  if (entries_.append(name) && entries_.append('=') && entries_.append(value) &&
      entries_.append('\0')) {
    ++count_;
    return true;
  }
  entries_.cut(size);
  return false;
}

char **Parameters::environment(char **inherited, Bytes &block) const {
  size_t most = count_ + 1;
  for (char **entry = inherited; *entry; ++entry) ++most;
  if (!block.reserve(most * sizeof(char *) + entries_.size())) return nullptr;
  auto **all = reinterpret_cast<char **>(block.data());
  char **end = all;
  for (const char *entry = entries_.data(); entry && entry < endOf(entries_);
       entry += std::strlen(entry) + 1) {
    if (nameOf(entry) != "HTTP_PROXY") *end++ = const_cast<char *>(entry);
  }
  // Of two with the same name, the later one counts.
  std::sort(all, end, [](const char *a, const char *b) {
    const int order = compare(nameOf(a), nameOf(b));
    return order != 0 ? order < 0 : a > b;
  });
  end = std::unique(all, end, [](const char *a, const char *b) { return nameOf(a) == nameOf(b); });
  const auto own = static_cast<size_t>(end - all);
  for (char **entry = inherited; *entry; ++entry) {
    const std::string_view name = nameOf(*entry);
    const bool replaced = std::binary_search(
        all, all + own, *entry,
        [](const char *a, const char *b) { return compare(nameOf(a), nameOf(b)) < 0; });
    if (!replaced && !belongsToRequest(name)) *end++ = *entry;
  }
  *end = nullptr;
  block.grow(most * sizeof(char *));
  for (char **entry = all; entry < all + own; ++entry) {
    char *copy = block.end();
    block.append({*entry, std::strlen(*entry) + 1});
    *entry = copy;
  }
  return all;
}

void Parameters::clear() {
  entries_.clear(kMostKept);
  pairs_ = {};
  count_ = 0;
  size_ = 0;
  state_ = State::kIncomplete;
}

}  // namespace tarn::server
