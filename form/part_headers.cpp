#include "form/part_headers.h"

#include <cstring>

#include "form/text.h"

namespace tarn::form {
namespace {

constexpr std::string_view kDisposition = "Content-Disposition";

bool reportHeader(TarnForm &form, uint64_t place, const char *sentence) {
  return form.problem.report(TARN_FORM_MALFORMED_HEADER, place, sentence);
}

size_t offsetOf(const void *place, std::string_view text) {
  return static_cast<size_t>(static_cast<const char *>(place) - text.data());
}

bool endsWithLineEnd(std::string_view text) {
  return text.size() >= 2 && text[text.size() - 2] == '\r' && text.back() == '\n';
}

// Reads a line to the end of TarnForm::headers, with its CR LF.
bool takeLine(TarnForm &form, std::string_view dash_boundary, std::string_view &line) {
  const size_t start = form.headers.size();
  const uint64_t place = form.source.position();
  const uint64_t most = form.limits[TARN_FORM_HEADER_SIZE];
  bool at_end = false;
  line = {};
  while (!endsWithLineEnd(line) && !at_end) {
    const std::string_view window = form.source.window();
    const void *feed = window.empty() ? nullptr : std::memchr(window.data(), '\n', window.size());
    const size_t arrived = feed ? offsetOf(feed, window) + 1 : window.size();
    if (arrived > most - form.headers.size()) {
      const uint64_t reached = form.source.position() + (most - form.headers.size());
      return form.problem.reportLimit(TARN_FORM_HEADER_SIZE, most, reached);
    }
    if (!form.headers.append({window.data(), arrived})) return form.reportOutOfMemory();
    form.source.consume(arrived);
    line = {form.headers.data() + start, form.headers.size() - start};
    if (beginsWith(line, dash_boundary)) {
      return form.problem.report(TARN_FORM_MALFORMED, place, "a delimiter inside the headers");
    }
    at_end = !feed && !form.more();
  }
  constexpr const char *kCut = "cut short: the body ends in the headers of a part";
  if (at_end) return form.reportCutShort(kCut);
  line.remove_suffix(2);
  if (line.empty()) return true;
  // White space on the next line would continue this one, whatever it says so far.
  if (form.source.window().empty() && !form.more()) return form.reportCutShort(kCut);
  if (isSpace(form.source.window().front())) {
    return reportHeader(form, form.source.position(), "a folded header line");
  }
  if (std::memchr(line.data(), '\r', line.size()) != nullptr ||
      std::memchr(line.data(), '\n', line.size()) != nullptr) {
    return reportHeader(form, place, "a header line contains CR or LF");
  }
  return true;
}

// Splits "name: value". Returns false if the line is not a header.
bool splitLine(std::string_view line, std::string_view &name, std::string_view &value) {
  const void *found = std::memchr(line.data(), ':', line.size());
  if (!found) return false;
  const size_t colon = offsetOf(found, line);
  name = {line.data(), colon};
  line.remove_prefix(colon + 1);
  value = trim(line);
  return isToken(name);
}

// ---- Content-Disposition ------------------------------------------------------------------------

// Browsers write quotes and line ends in names as %22, %0D and %0A.
bool takeEncoded(std::string_view text, char &byte) {
  if (text.size() < 3 || text[0] != '%') return false;
  const char letter = static_cast<char>(text[2] | 0x20);
  if (text[1] == '2' && text[2] == '2') {
    byte = '"';
  } else if (text[1] == '0' && letter == 'd') {
    byte = '\r';
  } else if (text[1] == '0' && letter == 'a') {
    byte = '\n';
  } else {
    return false;
  }
  return true;
}

bool appendDecoded(Bytes &bytes, std::string_view text, bool escaped) {
  if (!bytes.reserve(text.size())) return false;
  if (!escaped && (text.empty() || std::memchr(text.data(), '%', text.size()) == nullptr)) {
    return bytes.append(text);
  }
  while (!text.empty()) {
    char byte = text.front();
    size_t size = 1;
    if (takeEncoded(text, byte)) {
      size = 3;
    } else if (escaped && byte == '\\' && text.size() > 1) {
      byte = text[1];
      size = 2;
    }
    bytes.append(byte);
    text.remove_prefix(size);
  }
  return true;
}

// What the headers of a part say. The decoded names are in TarnForm::scratch: first the field's, then
// the file's.
struct Part {
  bool has_disposition = false;
  bool has_type = false;
  bool has_encoding = false;
  bool has_filename = false;
  size_t name_size = 0;
};

// Reads the parameters of Content-Disposition. A name that is there twice is refused, because two
// readers could choose differently.
bool readNames(TarnForm &form, std::string_view text, uint64_t place, Part &part) {
  Parameters parameters(text, Quoting::kForm);
  Parameters name = parameters;
  Parameters filename = parameters;
  bool has_name = false;
  while (parameters.next()) {
    const bool is_name = equalIgnoringCase(parameters.name(), "name");
    if (!is_name && !equalIgnoringCase(parameters.name(), "filename")) continue;
    bool &found = is_name ? has_name : part.has_filename;
    if (found) return reportHeader(form, place, "Content-Disposition has a parameter twice");
    found = true;
    (is_name ? name : filename) = parameters;
  }
  if (parameters.malformed()) {
    return reportHeader(form, place, "the parameters of Content-Disposition are malformed");
  }
  if (!has_name) {
    return form.problem.report(TARN_FORM_PART_WITHOUT_NAME, place, "a part without a name");
  }
  form.scratch.clear();
  if (!appendDecoded(form.scratch, name.value(), name.escaped())) return form.reportOutOfMemory();
  part.name_size = form.scratch.size();
  if (part.has_filename && !appendDecoded(form.scratch, filename.value(), filename.escaped())) {
    return form.reportOutOfMemory();
  }
  return true;
}

bool readDisposition(TarnForm &form, std::string_view text, uint64_t place, Part &part) {
  const std::string_view type = takeType(text);
  const std::string_view rest = trim(text);
  if (!equalIgnoringCase(type, "form-data") || (!rest.empty() && rest.front() != ';')) {
    return form.problem.report(TARN_FORM_PART_WITHOUT_NAME, place,
                               "a part whose Content-Disposition is not form-data");
  }
  return readNames(form, text, place, part);
}

bool isAllowedEncoding(std::string_view encoding) {
  return equalIgnoringCase(encoding, "7bit") || equalIgnoringCase(encoding, "8bit") ||
         equalIgnoringCase(encoding, "binary");
}

// Reads the headers that matter. Each may appear only once.
bool readHeader(TarnForm &form, std::string_view name, std::string_view value, uint64_t place,
                Part &part) {
  const bool is_disposition = equalIgnoringCase(name, kDisposition);
  const bool is_encoding = equalIgnoringCase(name, "Content-Transfer-Encoding");
  if (!is_disposition && !is_encoding && !equalIgnoringCase(name, "Content-Type")) return true;
  bool &found = is_disposition ? part.has_disposition
                : is_encoding  ? part.has_encoding
                               : part.has_type;
  if (found) return reportHeader(form, place, "a part has the same header twice");
  found = true;
  if (is_disposition) return readDisposition(form, value, place, part);
  if (!is_encoding || isAllowedEncoding(value)) return true;
  return form.problem.report(TARN_FORM_UNSUPPORTED_TYPE, place,
                             "a Content-Transfer-Encoding that browsers do not use");
}

// Reads the lines and the empty one behind them. In TarnForm::headers, a zero byte follows each
// value.
bool takeHeaders(TarnForm &form, std::string_view dash_boundary, Part &part) {
  form.headers.clear();
  for (;;) {
    const uint64_t place = form.source.position();
    std::string_view line;
    if (!takeLine(form, dash_boundary, line)) return false;
    if (line.empty()) {
      form.headers.cut(form.headers.size() - 2);
      return true;
    }
    if (isSpace(line.front())) {
      return reportHeader(form, place, "a folded header line");
    }
    std::string_view name;
    std::string_view value;
    if (!splitLine(line, name, value)) {
      return reportHeader(form, place, "a header line without a valid name and a colon");
    }
    if (!readHeader(form, name, value, place, part)) return false;
    form.headers.data()[offsetOf(value.data() + value.size(), form.headers.view())] = '\0';
  }
}

// ---- The usual header ---------------------------------------------------------------------------

// What browsers send with a text, and nothing else.
constexpr std::string_view kUsualStart = "Content-Disposition: form-data; name=\"";
constexpr std::string_view kUsualValue = "form-data; name=\"";
constexpr std::string_view kUsualEnd = "\"\r\n\r\n";

// Which bytes of a name in quotes mean themselves.
struct PlainBytes {
  bool plain[256] = {};

  constexpr PlainBytes() {
    for (bool &byte : plain) byte = true;
    for (const char c : std::string_view("\"\\%\r\n")) plain[static_cast<unsigned char>(c)] = false;
  }
};

bool isPlain(char c) {
  static constexpr PlainBytes bytes;
  return bytes.plain[static_cast<unsigned char>(c)];
}

// Reads the headers of a part if they are all in the window and there is only the usual one.
// Otherwise returns false and consumes nothing.
bool takeUsualHeaders(TarnForm &form, std::string_view &name) {
  const std::string_view window = form.source.window();
  if (!beginsWith(window, kUsualStart)) return false;
  std::string_view rest = window;
  rest.remove_prefix(kUsualStart.size());
  size_t size = 0;
  while (size < rest.size() && isPlain(rest[size])) ++size;
  name = {rest.data(), size};
  rest.remove_prefix(size);
  const size_t all = kUsualStart.size() + size + kUsualEnd.size();
  if (!beginsWith(rest, kUsualEnd) || all > form.limits[TARN_FORM_HEADER_SIZE]) return false;
  form.source.consume(all);
  return true;
}

TarnFormField *addUsualPart(TarnForm &form, std::string_view name) {
  FieldTexts texts;
  texts.name = name;
  texts.usual_headers = form.loading;
  form.has_usual_headers = form.loading;
  form.headers.clear();
  // The name is in the window behind the start of the header, which goes with it.
  const std::string_view line(name.data() - kUsualStart.size(),
                              kUsualStart.size() + name.size() + 1);
  if (!form.loading && (!form.headers.append(line) || !form.headers.append({"\0\n", 2}))) {
    return nullptr;
  }
  return form.records().add(&form, texts, form.part_offset);
}

}  // namespace

std::string_view findHeader(std::string_view headers, std::string_view name) {
  while (!headers.empty()) {
    const void *found = std::memchr(headers.data(), '\n', headers.size());
    if (!found) break;
    std::string_view line(headers.data(), offsetOf(found, headers));
    headers.remove_prefix(line.size() + 1);
    const void *colon = std::memchr(line.data(), ':', line.size());
    if (!colon) continue;
    const std::string_view line_name(line.data(), offsetOf(colon, line));
    if (!equalIgnoringCase(line_name, name)) continue;
    line.remove_prefix(line_name.size() + 1);
    if (line.back() == '\r') line.remove_suffix(1);
    line = trim(line);
    line.remove_suffix(1);  // the zero byte
    return line;
  }
  return {};
}

bool isUsualHeader(std::string_view name) { return equalIgnoringCase(name, kDisposition); }

std::string_view writeUsualHeader(std::string_view name, char *place) {
  const size_t size = kUsualValue.size() + name.size() + 1;
  std::memcpy(place, kUsualValue.data(), kUsualValue.size());
  if (!name.empty()) std::memcpy(place + kUsualValue.size(), name.data(), name.size());
  std::memcpy(place + size - 1, "\"", 2);
  return {place, size};
}

TarnFormField *takePart(TarnForm &form, std::string_view dash_boundary) {
  TarnFormField *record = nullptr;
  std::string_view name;
  if (takeUsualHeaders(form, name)) {
    record = addUsualPart(form, name);
  } else {
    Part part;
    if (!takeHeaders(form, dash_boundary, part)) return nullptr;
    if (!part.has_disposition) {
      form.problem.report(TARN_FORM_PART_WITHOUT_NAME, form.part_offset,
                          "a part without Content-Disposition");
      return nullptr;
    }
    const std::string_view names = form.scratch.view();
    FieldTexts texts;
    texts.name = {names.data(), part.name_size};
    if (part.has_filename) {
      texts.filename = {names.data() + part.name_size, names.size() - part.name_size};
    }
    if (form.loading) texts.headers = form.headers.view();
    record = form.records().add(&form, texts, form.part_offset);
  }
  if (!record) form.reportOutOfMemory();
  return record;
}

}  // namespace tarn::form
