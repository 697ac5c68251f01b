#include "request/multipart.h"

#include "core/text.h"
#include "request/form_file.h"

namespace tarn::internal {
namespace {

constexpr std::string_view kBoundary = "boundary=";
constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kHeadersEnd = "\r\n\r\n";

// "--", the boundary and a line end. The boundary is the rest of the content type as it stands,
// quotes and further parameters included: that is what has to be found in the body.
OwnedText makeDelimiter(const char *boundary) {
  char *text = nullptr;
  tarn_asprintf(&text, "--%s\r\n", boundary);
  return OwnedText(text);
}

// The text between the first `open` and the `close` that follows it, or the end; the text of the
// part ends at its first zero byte. Nothing between the two counts as nothing found (null data); a
// text that ends with `open` has an empty one there.
std::string_view textBetween(std::string_view part, std::string_view open, std::string_view close) {
  const char *found = find(part, open);
  if (!found || !hasNoZeroByte(textUpTo(part, found))) return {};
  const std::string_view rest = textFrom(part, found + open.size());
  const char *end = find(rest, close);
  if (end == rest.data()) return {};
  return upToZeroByte(end ? textUpTo(rest, end) : rest);
}

struct PartHeader {
  std::string_view name;
  bool hasFileName;  // sent, though there may be no memory for it
  OwnedText fileName;
  std::string_view contentType;
};

// The marks are looked for in the whole part, as far as it is text: a part without a header of its
// own can find one in its body. `name="` also stands inside `filename="`, so that a file name sent
// before the field name becomes the field name too. The content type takes in the header lines that
// follow it.
PartHeader parseHeader(std::string_view part) {
  const std::string_view fileName = textBetween(part, "filename=\"", "\"");
  return {textBetween(part, "name=\"", "\""), fileName.data() != nullptr,
          fileName.data() ? unescape(fileName) : nullptr,
          textBetween(part, "Content-Type: ", kHeadersEnd)};
}

// Appends the file of a part; false without memory for its bytes. Without field name or content
// type, an empty file is appended.
bool appendFile(const FormLists &lists, PartHeader header, std::string_view value) {
  FileParts parts{.name = copyText(header.name),
                  .fileName = std::move(header.fileName),
                  .contentType = copyText(header.contentType),
                  .data = copyBytes(value.data(), value.size()),
                  .length = static_cast<uint32_t>(value.size())};
  const bool isNamed = header.name.data() && header.contentType.data();
  if (!parts.data) {
    markIncomplete(lists.request);
    return false;
  }
  Node *file = newFormFile(std::move(parts));
  const bool isWhole = file && (!isNamed || file->structs[TARN_FILE_BYTES]);
  if (FormFiles::adopt(lists.files, file) != TARN_OK || !isWhole) markIncomplete(lists.request);
  return true;
}

}  // namespace

const char *parsePart(const FormLists &lists, std::string_view part) {
  const char *headersEnd = find(part, kHeadersEnd);
  if (!headersEnd) return nullptr;
  // The value is the first line of what follows; without a line end there is none. Scripts get the
  // first line of a text area, and a file up to its first line end, by this.
  const std::string_view body = textFrom(part, headersEnd + kHeadersEnd.size());
  const char *lineEnd = find(body, kLineEnd);
  const std::string_view value = textUpTo(body, lineEnd ? lineEnd : body.data());
  PartHeader header = parseHeader(part);
  if (header.hasFileName && !header.fileName) markIncomplete(lists.request);
  if (header.fileName && *header.fileName) {
    return appendFile(lists, std::move(header), value) ? headersEnd : nullptr;
  }
  // The value is kept as far as it is text, with the length that was sent.
  Node *entry = newFormEntry(header.name, upToZeroByte(value), static_cast<uint32_t>(value.size()));
  appendEntry(lists, entry);
  return entry ? headersEnd : nullptr;
}

// The end is where no delimiter follows: the last part takes in the closing one, which nothing
// looks for, and whatever comes after it.
void parseMultipart(const FormLists &lists, std::string_view body, const char *contentType) {
  const char *boundary = find(contentType, kBoundary);
  if (!boundary) return;
  const OwnedText delimiter = makeDelimiter(boundary + kBoundary.size());
  if (!delimiter) return markIncomplete(lists.request);
  const std::string_view mark = delimiter.get();
  const char *found = find(body, mark);
  while (found) {
    const std::string_view rest = textFrom(body, found + mark.size());
    found = find(rest, mark);
    parsePart(lists, found ? textUpTo(rest, found) : rest);
  }
}

}  // namespace tarn::internal
