// Reads multipart/form-data in the order in which the bytes arrive: preamble, delimiter line,
// headers, value, delimiter line, ... closing delimiter.
#include "form/multipart.h"

#include "form/finder.h"
#include "form/part_headers.h"
#include "form/text.h"

namespace tarn::form {
namespace {

// From here on in a body, the fastest search is used. To ask the processor for it takes longer than to
// search a small body.
constexpr uint64_t kLargeBody = uint64_t{1} << 20;

bool shouldSearchWide(TarnForm &form) {
  if (form.search == Search::kUsual && form.source.position() >= kLargeBody) {
    form.search = canSearchWide() ? Search::kWide : Search::kChosen;
  }
  return form.search == Search::kWide;
}

const char *search(TarnForm &form, std::string_view text) {
  const std::string_view delimiter = form.boundary.view();
  return shouldSearchWide(form) ? findDelimiterWide(text, delimiter)
                                : findDelimiter(text, delimiter);
}

// Makes the window at least `size` bytes long, if that many are left.
bool ensure(TarnForm &form, size_t size) {
  while (form.source.window().size() < size) {
    if (!form.more()) return false;
  }
  return true;
}

// The delimiter without its CR LF, as it may open a body.
std::string_view dashBoundary(const TarnForm &form) {
  std::string_view delimiter = form.boundary.view();
  delimiter.remove_prefix(2);
  return delimiter;
}

// Reads what follows a boundary on its line: "--", or white space and a line end.
bool takeRestOfDelimiterLine(TarnForm &form) {
  constexpr const char *kCut = "cut short: the body ends in a delimiter";
  constexpr const char *kOther = "a delimiter line goes on after the boundary";
  if (beginsWith(form.source.window(), "\r\n")) {
    form.source.consume(2);
    form.stage = Stage::kBetweenFields;
    return true;
  }
  if (!ensure(form, 1)) return form.reportCutShort(kCut);
  if (form.source.window().front() == '-') {
    if (!ensure(form, 2)) return form.reportCutShort(kCut);
    if (form.source.window()[1] != '-') return form.report(TARN_FORM_MALFORMED, kOther);
    form.source.consume(2);
    form.stage = Stage::kAfterFields;
    return true;
  }
  for (;;) {
    if (!ensure(form, 1)) return form.reportCutShort(kCut);
    const char c = form.source.window().front();
    if (c != ' ' && c != '\t') break;
    form.source.consume(1);
  }
  if (form.source.window().front() != '\r') return form.report(TARN_FORM_MALFORMED, kOther);
  if (!ensure(form, 2)) return form.reportCutShort(kCut);
  if (form.source.window()[1] != '\n') return form.report(TARN_FORM_MALFORMED, kOther);
  form.source.consume(2);
  form.stage = Stage::kBetweenFields;
  return true;
}

// Consumes what is before the first occurrence of a text, except the last two bytes, which tell
// whether a line begins there. Sets `before` to the offset of the text in the window. Returns false if
// the text does not occur.
bool consumePreamble(TarnForm &form, std::string_view wanted, size_t &before) {
  before = 0;
  if (ensure(form, wanted.size()) && beginsWith(form.source.window(), wanted)) return true;
  const Finder finder(wanted);
  const size_t overlap = wanted.size() + 1;
  do {
    const std::string_view window = form.source.window();
    if (const char *found = finder.find(window, shouldSearchWide(form))) {
      before = static_cast<size_t>(found - window.data());
      return true;
    }
    if (window.size() > overlap) form.source.consume(window.size() - overlap);
  } while (form.more());
  return false;
}

}  // namespace

bool startMultipart(TarnForm &form) {
  const std::string_view wanted = dashBoundary(form);
  size_t before = 0;
  if (!consumePreamble(form, wanted, before)) {
    return form.reportCutShort("cut short: the body has no delimiter");
  }
  const bool opens = before == 0 && form.source.position() == 0;
  const char *place = form.source.window().data() + before;
  const bool begins_line = before >= 2 && place[-2] == '\r' && place[-1] == '\n';
  form.source.consume(before);
  if (!opens && !begins_line) {
    return form.report(TARN_FORM_MALFORMED, "the preamble contains the boundary inside a line");
  }
  form.part_offset = form.source.position();
  form.source.consume(wanted.size());
  return takeRestOfDelimiterLine(form);
}

TarnFormField *stepToPart(TarnForm &form) {
  const std::string_view wanted = dashBoundary(form);
  if (!form.countField()) return nullptr;
  TarnFormField *record = takePart(form, wanted);
  if (!record) return nullptr;
  // The empty line of the headers and the delimiter of an empty value may share a CR LF.
  ensure(form, wanted.size());
  form.empty_part = beginsWith(form.source.window(), wanted);
  form.at_delimiter = form.empty_part;
  form.searched = 0;
  return record;
}

bool nextRunOfPart(TarnForm &form, std::string_view &run) {
  const std::string_view delimiter = form.boundary.view();
  const size_t ahead = delimiter.size();
  for (;;) {
    const std::string_view window = form.source.window();
    const char *found = nullptr;
    if (!form.at_delimiter) {
      std::string_view rest = window;
      rest.remove_prefix(form.searched);
      found = search(form, rest);
      form.at_delimiter = found && found == window.data();
    }
    if (form.at_delimiter) {
      form.at_delimiter = false;
      form.source.consume(form.empty_part ? 0 : 2);
      form.part_offset = form.source.position();
      form.source.consume(delimiter.size() - 2);
      takeRestOfDelimiterLine(form);
      return false;
    }
    // Without a delimiter, the last bytes may be the beginning of one.
    const size_t safe = found                    ? static_cast<size_t>(found - window.data())
                        : window.size() >= ahead ? window.size() - (ahead - 1)
                                                 : 0;
    const size_t size = found ? safe : form.sizeToHandOut(safe);
    form.searched = safe - size;
    form.at_delimiter = found != nullptr;
    if (size > 0) {
      run = {window.data(), size};
      form.source.consume(size);
      return true;
    }
    if (!form.more()) return form.reportCutShort("cut short: the body ends in a value");
  }
}

}  // namespace tarn::form
