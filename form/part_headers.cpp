#include "form/part_headers.h"

#include <cstring>

namespace tarn::form {
namespace {

bool raiseHeader(TarnForm &form, uint64_t place, const char *sentence) {
  return form.problem.raise(TARN_FORM_MALFORMED_HEADER, place, sentence);
}

size_t offsetOf(const void *place, std::string_view text) {
  return static_cast<size_t>(static_cast<const char *>(place) - text.data());
}

// Reads a line to the end of TarnForm::headers, with its line end.
bool takeLine(TarnForm &form, std::string_view &line) {
  const size_t start = form.headers.size();
  const uint64_t place = form.source.position();
  const uint64_t most = form.limits[TARN_FORM_HEADER_SIZE];
  const void *end = nullptr;
  while (!end) {
    const std::string_view window = form.source.window();
    end = window.empty() ? nullptr : std::memchr(window.data(), '\n', window.size());
    const size_t arrived = end ? offsetOf(end, window) + 1 : window.size();
    if (arrived > most - form.headers.size()) {
      const uint64_t reached = form.source.position() + (most - form.headers.size());
      return form.problem.raiseLimit(TARN_FORM_HEADER_SIZE, most, reached);
    }
    if (!form.headers.append({window.data(), arrived})) return form.raiseOutOfMemory();
    form.source.consume(arrived);
    if (!end && !form.more()) {
      return form.raiseCutShort("cut short: the body ends in the headers of a part");
    }
  }
  line = {form.headers.data() + start, form.headers.size() - start};
  const void *carriage_return = std::memchr(line.data(), '\r', line.size());
  if (carriage_return != line.data() + line.size() - 2) {
    return raiseHeader(form, place, "a header line has a CR or LF that is not part of CR LF");
  }
  return true;
}

// Splits "name: value". Returns false if the line is no header.
bool splitLine(std::string_view line, std::string_view &name, std::string_view &value) {
  const void *found = std::memchr(line.data(), ':', line.size());
  if (!found) return false;
  const size_t colon = offsetOf(found, line);
  name = {line.data(), colon};
  line.remove_prefix(colon + 1);
  value = trim(line);
  return isToken(name);
}

std::string_view withoutLineEnd(std::string_view line) { return {line.data(), line.size() - 2}; }

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

struct Disposition {
  std::string_view name, filename;
  bool has_name = false, name_escaped = false;
  bool has_filename = false, filename_escaped = false;
};

// Returns a sentence about what is malformed, or null.
const char *readParameters(std::string_view text, Disposition &disposition) {
  Parameters parameters(text, Quoting::kForm);
  while (parameters.next()) {
    if (equalIgnoringCase(parameters.name(), "name")) {
      if (disposition.has_name) return "Content-Disposition has two names";
      disposition.has_name = true;
      disposition.name = parameters.value();
      disposition.name_escaped = parameters.escaped();
    } else if (equalIgnoringCase(parameters.name(), "filename")) {
      if (disposition.has_filename) return "Content-Disposition has two file names";
      disposition.has_filename = true;
      disposition.filename = parameters.value();
      disposition.filename_escaped = parameters.escaped();
    }
  }
  return parameters.malformed() ? "the parameters of Content-Disposition are malformed" : nullptr;
}

TarnFormField *addRecord(TarnForm &form, const Disposition &disposition) {
  form.scratch.clear();
  if (!appendDecoded(form.scratch, disposition.name, disposition.name_escaped)) return nullptr;
  const size_t name_size = form.scratch.size();
  if (!appendDecoded(form.scratch, disposition.filename, disposition.filename_escaped) ||
      !form.scratch.reserve(0)) {
    return nullptr;
  }
  form.current.clear();
  const char *filename = disposition.has_filename ? form.scratch.data() + name_size : nullptr;
  return form.current.add(&form, false, {form.scratch.data(), name_size}, filename,
                          form.scratch.size() - name_size, form.headers.view(), form.part_offset);
}

// A header that can be there only once: two readers could take different ones.
struct Single {
  const char *name;
  bool found;
};

bool isAllowedEncoding(std::string_view encoding) {
  return equalIgnoringCase(encoding, "7bit") || equalIgnoringCase(encoding, "8bit") ||
         equalIgnoringCase(encoding, "binary");
}

}  // namespace

bool takeHeaders(TarnForm &form, std::string_view dash_boundary) {
  Single singles[] = {{"Content-Disposition", false},
                      {"Content-Type", false},
                      {"Content-Transfer-Encoding", false}};
  form.headers.clear();
  for (;;) {
    const uint64_t place = form.source.position();
    std::string_view line;
    if (!takeLine(form, line)) return false;
    line = withoutLineEnd(line);
    if (line.empty()) {
      form.headers.cut(form.headers.size() - 2);
      return true;
    }
    if (line.size() >= dash_boundary.size() &&
        std::memcmp(line.data(), dash_boundary.data(), dash_boundary.size()) == 0) {
      return form.problem.raise(TARN_FORM_MALFORMED, place, "a delimiter inside the headers");
    }
    if (line.front() == ' ' || line.front() == '\t') {
      return raiseHeader(form, place, "a folded header line");
    }
    std::string_view name, value;
    if (!splitLine(line, name, value)) {
      return raiseHeader(form, place, "a header line without a valid name and a colon");
    }
    for (Single &single : singles) {
      if (!equalIgnoringCase(name, single.name)) continue;
      if (single.found) return raiseHeader(form, place, "a part has the same header twice");
      single.found = true;
    }
    form.headers.data()[offsetOf(value.data() + value.size(), form.headers.view())] = '\0';
  }
}

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

TarnFormField *makeRecordOfPart(TarnForm &form) {
  std::string_view text = findHeader(form.headers.view(), "Content-Disposition");
  if (!text.data()) {
    form.problem.raise(TARN_FORM_PART_WITHOUT_NAME, form.part_offset,
                       "a part without Content-Disposition");
    return nullptr;
  }
  const std::string_view type = takeType(text);
  if (!equalIgnoringCase(type, "form-data")) {
    form.problem.raise(TARN_FORM_PART_WITHOUT_NAME, form.part_offset,
                       "a part whose Content-Disposition is not form-data");
    return nullptr;
  }
  Disposition disposition;
  if (const char *sentence = readParameters(text, disposition)) {
    raiseHeader(form, form.part_offset, sentence);
    return nullptr;
  }
  if (!disposition.has_name) {
    form.problem.raise(TARN_FORM_PART_WITHOUT_NAME, form.part_offset, "a part without a name");
    return nullptr;
  }
  const std::string_view encoding = findHeader(form.headers.view(), "Content-Transfer-Encoding");
  if (encoding.data() && !isAllowedEncoding(encoding)) {
    form.problem.raise(TARN_FORM_UNSUPPORTED_TYPE, form.part_offset,
                       "a part with a Content-Transfer-Encoding");
    return nullptr;
  }
  TarnFormField *record = addRecord(form, disposition);
  if (!record) form.raiseOutOfMemory();
  return record;
}

}  // namespace tarn::form
