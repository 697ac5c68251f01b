#include "form/url_encoded.h"

#include <cstring>

namespace tarn::form {
namespace {

// A longer run without anything to decode is not copied.
constexpr size_t kLongRun = 64;
// How many bytes are decoded at a time.
constexpr size_t kDecoded = 4096;

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const char lower = static_cast<char>(c | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

bool isEncoded(char c) { return c == '+' || c == '%'; }

// How many bytes come before the first encoded one, or before the end of the value.
size_t plainSize(std::string_view text) {
  size_t size = 0;
  while (size < text.size() && text[size] != '&' && !isEncoded(text[size])) ++size;
  return size;
}

// Fills the window, so that a "%" at its beginning has its digits unless the body ends there.
// Returns false at the end of the body and after a problem.
bool ensureByte(TarnForm &form) {
  std::string_view window = form.source.window();
  while (window.empty() || (window.front() == '%' && window.size() < 3)) {
    if (!form.more()) return !form.problem && !window.empty();
    window = form.source.window();
  }
  return true;
}

// Reads a name to the end of TarnForm::scratch, and the "=" behind it.
bool takeName(TarnForm &form) {
  const uint64_t most = form.limits[TARN_FORM_TEXT_SIZE];
  form.scratch.clear();
  if (!form.scratch.reserve(0)) return form.raiseOutOfMemory();
  while (ensureByte(form)) {
    char byte = form.source.window().front();
    if (byte == '&') return true;
    const size_t size = byte == '=' ? 1 : decodeByte(form.source.window(), true, byte);
    const bool ends = form.source.window().front() == '=';
    if (!ends && form.scratch.size() >= most) {
      return form.problem.raiseLimit(TARN_FORM_TEXT_SIZE, most, form.source.position());
    }
    form.source.consume(size);
    if (ends) return true;
    if (!form.scratch.append(byte)) return form.raiseOutOfMemory();
  }
  return !form.problem;
}

}  // namespace

size_t decodeByte(std::string_view text, bool plus, char &byte) {
  byte = text.front();
  if (byte == '+' && plus) byte = ' ';
  if (byte != '%' || text.size() < 3) return 1;
  const int high = hexDigit(text[1]);
  const int low = hexDigit(text[2]);
  if (high < 0 || low < 0) return 1;
  byte = static_cast<char>(high * 16 + low);
  return 3;
}

TarnFormField *stepToPair(TarnForm &form) {
  for (;;) {
    if (!ensureByte(form)) {
      if (!form.problem) form.stage = Stage::kAfterFields;
      return nullptr;
    }
    if (form.source.window().front() != '&') break;
    form.source.consume(1);
  }
  const uint64_t offset = form.source.position();
  if (!form.countField() || !takeName(form)) return nullptr;
  form.current.clear();
  TarnFormField *record =
      form.current.add(&form, false, form.scratch.view(), nullptr, 0, {}, offset);
  if (!record) form.raiseOutOfMemory();
  return record;
}

bool nextRunOfPair(TarnForm &form, std::string_view &run) {
  if (!ensureByte(form) || form.source.window().front() == '&') {
    if (!form.problem) form.stage = Stage::kBetweenFields;
    return false;
  }
  std::string_view window = form.source.window();
  const size_t plain = plainSize(window);
  if (plain >= kLongRun || plain == window.size() || window[plain] == '&') {
    run = {window.data(), plain};
    form.source.consume(plain);
    return true;
  }
  form.scratch.clear();
  if (!form.scratch.reserve(kDecoded)) return form.raiseOutOfMemory();
  char *decoded = form.scratch.data();
  size_t count = 0;
  while (count < kDecoded && !window.empty() && window.front() != '&' &&
         (window.front() != '%' || window.size() >= 3 || count == 0)) {
    window.remove_prefix(decodeByte(window, true, decoded[count++]));
  }
  form.source.consume(form.source.window().size() - window.size());
  run = {decoded, count};
  return true;
}

std::string_view plainValue(const TarnForm &form) {
  const std::string_view window = form.source.window();
  const size_t plain = plainSize(window);
  const bool all = plain == window.size() || window[plain] == '&';
  if (!form.source.inMemory() || !all) return {};
  return {window.data() ? window.data() : "", plain};
}

}  // namespace tarn::form
