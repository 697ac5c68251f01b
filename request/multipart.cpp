#include "request/multipart.h"

#include "core/text.h"
#include "request/form_file.h"

namespace tarn::internal {
namespace {

constexpr std::string_view kBoundary = "boundary=";
constexpr std::string_view kDashes = "--";
constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kHeadersEnd = "\r\n\r\n";

// "--", the boundary and CR LF. The boundary is the rest of the content type, including quotation
// marks and further parameters. Kept: quirk 4.
OwnedText makeDelimiter(std::string_view boundary) {
  OwnedText text = newText(kDashes.size() + boundary.size() + kLineEnd.size());
  if (!text) return nullptr;
  char *place = copyTo(text.get(), kDashes) - 1;
  place = copyTo(place, boundary) - 1;
  copyTo(place, kLineEnd);
  return text;
}

// The text between the first `open` and the next `close`, or the end of the part; only text before the
// part's first zero byte counts. Null data if `open` is missing or `close` follows it at once; an empty
// text if the part ends with `open`.
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
  bool hasFileName;  // also if there was no memory for it
  OwnedText fileName;
  std::string_view contentType;  // only of a file
};

// Searches for the marks in the whole part, values included. `name="` also matches inside `filename="`,
// so a file name that comes first is the field name too, and the content type includes the header
// lines after it. Kept: quirks 6, 7 and 8.
PartHeader parseHeader(std::string_view part) {
  const std::string_view fileName = textBetween(part, "filename=\"", "\"");
  const std::string_view name = textBetween(part, "name=\"", "\"");
  if (!fileName.data()) return {name, false, nullptr, {}};
  return {name, true, unescape(fileName), textBetween(part, "Content-Type: ", kHeadersEnd)};
}

// Appends the file of a part; false if its bytes cannot be allocated. Without a field name or a content
// type the file is empty. Kept: quirk 9.
bool appendFile(const FormLists &lists, PartHeader header, std::string_view value) {
  FileParts parts{
      .name = copyText(header.name),
      .fileName = std::move(header.fileName),
      .contentType = copyText(header.contentType),
      .data = lists.body ? lists.body->copy(value) : copyBytes(value.data(), value.size()),
      .length = static_cast<uint32_t>(value.size())};
  const bool isNamed = header.name.data() && header.contentType.data();
  if (!parts.data) {
    markIncomplete(lists.request);
    return false;
  }
  Node *file = newFormFile(std::move(parts));
  const bool isWhole = file && (!isNamed || file->child(TARN_FILE_BYTES));
  if (FormFiles::adopt(lists.files, file) != TARN_OK || !isWhole) markIncomplete(lists.request);
  return true;
}

}  // namespace

const char *parsePart(const FormLists &lists, std::string_view part) {
  const char *headersEnd = find(part, kHeadersEnd);
  if (!headersEnd) return nullptr;
  // The value ends at the first CR LF after the headers; without one it is empty. A text area arrives
  // as its first line, a file up to its first CR LF. Kept: quirk 1.
  const std::string_view body = textFrom(part, headersEnd + kHeadersEnd.size());
  const char *lineEnd = find(body, kLineEnd);
  const std::string_view value = textUpTo(body, lineEnd ? lineEnd : body.data());
  PartHeader header = parseHeader(part);
  if (header.hasFileName && !header.fileName) markIncomplete(lists.request);
  if (header.fileName && *header.fileName) {
    return appendFile(lists, std::move(header), value) ? headersEnd : nullptr;
  }
  // The text ends at its first zero byte; the length is that of all bytes. Kept: quirk 11.
  Node *entry = newFormEntry(header.name, upToZeroByte(value), static_cast<uint32_t>(value.size()),
                             lists.arena);
  appendEntry(lists, entry);
  return entry ? headersEnd : nullptr;
}

// The last part runs to the end of the body: nothing searches for the closing delimiter. Kept: quirk 5.
void parseMultipart(const FormLists &lists, std::string_view body, const char *contentType) {
  const std::string_view type = viewOf(contentType);
  const char *found = find(type, kBoundary);
  if (!found) return;
  const OwnedText delimiter = makeDelimiter(textFrom(type, found + kBoundary.size()));
  if (!delimiter) return markIncomplete(lists.request);
  const std::string_view mark = viewOf(delimiter.get());
  found = find(body, mark);
  while (found) {
    const std::string_view rest = textFrom(body, found + mark.size());
    found = find(rest, mark);
    parsePart(lists, found ? textUpTo(rest, found) : rest);
  }
}

}  // namespace tarn::internal
