#include "support/fastcgi_model.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <optional>

#include "support/fastcgi.h"

namespace tarn_test {
namespace {

using namespace fastcgi;

unsigned byteAt(std::string_view text, size_t place) {
  return static_cast<unsigned char>(text[place]);
}

// ---- Name-value pairs ----------------------------------------------------------------------------

struct Pair {
  uint32_t name_size = 0;
  uint32_t value_size = 0;
  std::string_view name;   // what there is of it
  std::string_view value;  // likewise
  bool whole = false;
};

// Takes a length off the text, or nothing if it is cut short.
std::optional<uint32_t> takeLength(std::string_view &text) {
  if (text.empty()) return std::nullopt;
  const size_t bytes = byteAt(text, 0) < 128 ? 1 : 4;
  if (text.size() < bytes) return std::nullopt;
  uint32_t length = byteAt(text, 0) & 0x7F;
  for (size_t i = 1; i < bytes; ++i) length = length * 256 + byteAt(text, i);
  text.remove_prefix(bytes);
  return length;
}

// Takes a pair off the text, or nothing if its lengths are cut short.
std::optional<Pair> takePair(std::string_view &text) {
  std::string_view rest = text;
  const auto name_size = takeLength(rest);
  const auto value_size = name_size ? takeLength(rest) : std::nullopt;
  if (!value_size) return std::nullopt;
  Pair pair = {*name_size, *value_size, rest.substr(0, *name_size), "", false};
  rest.remove_prefix(pair.name.size());
  pair.value = rest.substr(0, *value_size);
  rest.remove_prefix(pair.value.size());
  pair.whole = pair.name.size() == pair.name_size && pair.value.size() == pair.value_size;
  text = rest;
  return pair;
}

// ---- A connection --------------------------------------------------------------------------------

class Connection {
 public:
  explicit Connection(const ConnectionRules &rules) : rules_(rules) {}

  // Returns false when no byte is read any more.
  bool takeRecords(std::string &bytes);
  void answer() { stage_ = Stage::kNone; }

  Events events;

 private:
  enum class Stage { kNone, kParameters, kBody, kBodyEnded, kRefused };

  struct Record {
    unsigned type;
    unsigned request;
    size_t size;
    std::string_view content;
    bool whole;
  };

  bool take(const Record &record);
  bool takeBegin(const Record &record);
  void takeManagement(const Record &record);
  bool takeParameters(const Record &record);
  bool takeBody(const Record &record);
  void judgeParameters(bool ended);
  void add(const std::string &event) { events.push_back(event); }

  const ConnectionRules rules_;
  Stage stage_ = Stage::kNone;
  unsigned request_ = 0;
  std::string parameters_;
};

void Connection::takeManagement(const Record &record) {
  if (!record.whole || record.type == kGetValuesResult || record.type == kUnknownType) return;
  if (record.type != kGetValues) {
    const std::string type(1, static_cast<char>(record.type));
    return add("reply " + fastcgi::record(kUnknownType, 0, type + std::string(7, '\0')));
  }
  const std::string most = std::to_string(rules_.connections);
  const std::map<std::string_view, std::string> known = {
      {"FCGI_MAX_CONNS", most}, {"FCGI_MAX_REQS", most}, {"FCGI_MPXS_CONNS", "0"}};
  std::map<std::string_view, bool> asked;
  std::string_view rest = record.content;
  for (auto pair = takePair(rest); pair && pair->whole; pair = takePair(rest)) {
    asked[pair->name] = true;
  }
  std::string values;
  for (const auto &[name, value] : known) {
    if (asked[name]) values += pair(name, value);
  }
  add("reply " + fastcgi::record(kGetValuesResult, 0, values));
}

bool Connection::takeBegin(const Record &record) {
  if (record.size != 8) return record.content.empty() && !record.whole;
  if (!record.whole) return true;
  const unsigned role = byteAt(record.content, 0) * 256 + byteAt(record.content, 1);
  const bool keeps = (byteAt(record.content, 2) & kKeep) != 0;
  if (stage_ != Stage::kNone) {
    if (record.request == request_) return false;
    add("reply " + end(record.request, 0, kCannotMultiplex));
  } else if (role != kResponder) {
    add((keeps ? "reply " : "refusal ") + end(record.request, 0, kUnknownRole));
  } else {
    request_ = record.request;
    parameters_.clear();
    stage_ = Stage::kParameters;
    add("begin " + std::to_string(request_) + (keeps ? ", keep" : ""));
  }
  return true;
}

// Reads all parameters again, from the first.
void Connection::judgeParameters(bool ended) {
  std::map<std::string, std::string> variables = {{"PATH", "/bin"}};
  std::string_view rest = parameters_;
  uint64_t count = 0;
  uint64_t total = 0;
  bool whole = true;
  const char *problem = nullptr;
  while (!rest.empty() && whole && !problem) {
    const auto pair = takePair(rest);
    whole = pair && pair->whole;
    if (!pair) break;
    total += pair->name_size;
    total += pair->value_size;
    if (++count > rules_.most_parameters || total > rules_.most_parameter_bytes) {
      problem = "too many parameters";
    } else if (pair->name_size == 0 || pair->name.find_first_of({"=\0", 2}) != pair->name.npos ||
               pair->value.find('\0') != pair->value.npos) {
      problem = "malformed parameters";
    } else if (whole) {
      variables[std::string(pair->name)] = pair->value;
    }
  }
  if (!problem && ended && !whole) problem = "malformed parameters";
  if (problem) {
    stage_ = Stage::kRefused;
    add(problem);
    if (rules_.answers != Answers::kNever) answer();
  } else if (ended) {
    stage_ = Stage::kBody;
    std::string event = "parameters";
    variables.erase("HTTP_PROXY");
    for (const auto &[name, value] : variables) event.append(" ").append(name + "=").append(value);
    add(event);
  }
}

bool Connection::takeParameters(const Record &record) {
  if (stage_ == Stage::kRefused) return true;
  if (record.content.empty() && !record.whole) return true;
  if (stage_ != Stage::kParameters) return false;
  parameters_ += record.content;
  judgeParameters(record.size == 0);
  return true;
}

bool Connection::takeBody(const Record &record) {
  if (stage_ == Stage::kRefused) return true;
  if (record.content.empty() && !record.whole) return true;
  if (record.size == 0 && stage_ == Stage::kBodyEnded) return true;
  if (stage_ != Stage::kBody) return false;
  if (record.size == 0) {
    stage_ = Stage::kBodyEnded;
    add("body end");
    if (rules_.answers != Answers::kNever) answer();
  } else if (rules_.answers == Answers::kAtTheFirstByteOfTheBody) {
    add("body");
    answer();
  } else if (!events.empty() && events.back().starts_with("body ")) {
    events.back() += record.content;
  } else {
    add("body " + std::string(record.content));
  }
  return true;
}

// Returns false for what is not FastCGI.
bool Connection::take(const Record &record) {
  if (record.request == 0) {
    takeManagement(record);
    return true;
  }
  if (record.type == kBegin) return takeBegin(record);
  if (stage_ == Stage::kNone || record.request != request_) return true;
  if (record.type == kParams) return takeParameters(record);
  if (record.type == kStdin) return takeBody(record);
  if (record.type == kAbort && record.whole) {
    add("abort");
    if (rules_.answers != Answers::kNever) answer();
  }
  return true;
}

bool Connection::takeRecords(std::string &bytes) {
  while (!bytes.empty()) {
    if (bytes[0] != 1) {
      add("malformed");
      return false;
    }
    if (bytes.size() < 8) return true;
    const size_t size = byteAt(bytes, 4) * 256 + byteAt(bytes, 5);
    const std::string_view content = std::string_view(bytes).substr(8, size);
    const Record record = {byteAt(bytes, 1), byteAt(bytes, 2) * 256 + byteAt(bytes, 3), size,
                           content, content.size() == size};
    const size_t events_before = events.size();
    if (!take(record)) {
      add("malformed");
      return false;
    }
    if (events.size() > events_before && events.back().starts_with("refusal")) return false;
    const size_t all = 8 + size + byteAt(bytes, 6);
    bytes.erase(0, all < bytes.size() ? all : bytes.size());
  }
  return true;
}

}  // namespace

Events modelOfConnection(const std::vector<std::string> &pieces, const ConnectionRules &rules) {
  Connection connection(rules);
  std::string bytes;
  for (size_t i = 0; i < pieces.size(); ++i) {
    if (i > 0) connection.answer();
    bytes += pieces[i];
    if (!connection.takeRecords(bytes)) break;
  }
  return connection.events;
}

// ---- What a script answers -----------------------------------------------------------------------

namespace {

constexpr size_t kMostHeader = size_t{256} * 1024;

std::string lowered(std::string_view text) {
  std::string result(text);
  for (char &c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

std::string_view stripped(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == text.npos) return "";
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// A number of digits only that fits into 64 bits.
std::optional<uint64_t> numberOf(std::string_view text) {
  if (text.empty() || text.find_first_not_of("0123456789") != text.npos) return std::nullopt;
  const size_t first = text.find_first_not_of('0');
  if (first == text.npos) return 0;
  const std::string_view digits = text.substr(first);
  if (digits.size() > 20 || (digits.size() == 20 && digits > "18446744073709551615")) {
    return std::nullopt;
  }
  return std::stoull(std::string(digits));
}

// What follows from the lines of a header.
struct Header {
  std::optional<uint64_t> length;
  std::string status;
  bool names_file = false;  // the web server sends a file instead of the body
};

Header readHeader(const std::vector<std::string> &lines) {
  Header header;
  for (const std::string &line : lines) {
    const size_t colon = line.find(':');
    if (&line == &lines.front() && line.starts_with("HTTP/")) {
      const size_t space = line.find(' ');
      if (space != line.npos) header.status = stripped(line.substr(space));
    } else if (colon != line.npos) {
      const std::string name = lowered(stripped(line.substr(0, colon)));
      const std::string_view value = stripped(std::string_view(line).substr(colon + 1));
      if (name == "content-length") header.length = numberOf(value);
      if (name == "status") header.status = value;
      header.names_file |= name.starts_with("x-accel-redirect") || name.starts_with("x-sendfile") ||
                           name.starts_with("x-lighttpd-send-");
    }
  }
  return header;
}

bool hasNoBody(std::string_view status) {
  if (status.size() > 3 && status[3] >= '0' && status[3] <= '9') return false;
  const std::string_view number = status.substr(0, 3);
  return number == "204" || number == "304";
}

std::string nameOf(const std::string &line) {
  const size_t colon = line.find(':');
  return colon == line.npos ? "" : lowered(stripped(line.substr(0, colon)));
}

// The lines in the order in which they are sent: the last "Status" goes behind the others if a
// "Location" follows it.
std::string inOrder(std::vector<std::string> lines) {
  const bool has_status_line = lines.size() > 1 && lines[0].starts_with("HTTP/");
  size_t status = lines.size();
  bool is_redirect = false;
  for (size_t i = has_status_line ? 1 : 0; i < lines.size(); ++i) {
    if (nameOf(lines[i]) == "status") {
      status = i;
      is_redirect = false;
    }
    if (nameOf(lines[i]) == "location") is_redirect = status < lines.size();
  }
  if (is_redirect) {
    lines.insert(lines.end() - 1, lines[status]);
    lines.erase(lines.begin() + static_cast<ptrdiff_t>(status));
  }
  std::string header;
  for (const std::string &line : lines) header += line;
  return header;
}

}  // namespace

ModelAnswer modelOfAnswer(std::string_view written) {
  const ModelAnswer bad = {ModelAnswer::State::kBad, "", "", false, false};
  std::vector<std::string> lines;
  std::vector<std::string> raw;  // with their ends
  size_t place = 0;
  for (;;) {
    const size_t end = written.find('\n', place);
    if (end == written.npos) {
      const bool too_long = written.size() > kMostHeader;
      return too_long ? bad : ModelAnswer();
    }
    if (end >= kMostHeader) return bad;
    std::string line(written.substr(place, end - place));
    raw.push_back(line + '\n');
    while (!line.empty() && line.back() == '\r') line.pop_back();
    place = end + 1;
    if (line.empty()) break;
    lines.push_back(line);
    const std::string &first = lines.front();
    if (!first.starts_with("HTTP/") && (first.find(':') == first.npos || first[0] == ':'))
      return bad;
  }
  ModelAnswer answer = {ModelAnswer::State::kHeader, inOrder(raw),
                        std::string(written.substr(place)), false, false};
  const Header header = readHeader(lines);
  const bool may_be_empty = hasNoBody(header.status) || header.names_file;
  answer.is_short = header.length && answer.body.size() < *header.length &&
                    !(answer.body.empty() && may_be_empty);
  answer.is_whole = may_be_empty || (header.length && answer.body.size() >= *header.length);
  return answer;
}

}  // namespace tarn_test
