// Cookies and fields of the query, by their literal names.
#include <cstdlib>

#include "core/text.h"
#include "form/form.h"
#include "form/kept.h"
#include "form/text.h"
#include "form/url_encoded.h"

namespace tarn::form {
namespace {

using internal::splitAtFirst;

// A text that was returned, and belongs to the form.
struct Answer {
  Answer *next;

  char *text() { return reinterpret_cast<char *>(this + 1); }
};

void releaseAnswers(void *answers) {
  auto *answer = static_cast<Answer *>(answers);
  while (answer) {
    Answer *next = answer->next;
    std::free(answer);
    answer = next;
  }
}

// Finds "name=value" among pieces. If it is not there, the data() of the result is null.
std::string_view findPair(const char *variable, const char *name, char separator, bool cookie) {
  const char *list = std::getenv(variable);
  std::string_view rest = list ? list : "";
  while (!rest.empty()) {
    std::string_view piece;
    std::string_view sent;
    std::string_view value;
    splitAtFirst(rest, separator, piece, rest);
    if (cookie) piece = trim(piece);
    const bool has_value = splitAtFirst(piece, '=', sent, value);
    // A cookie without "=" has no name, and an empty piece of a query is no field.
    if (!has_value && (cookie || piece.empty())) continue;
    if (sent == name) return value;
  }
  return {};
}

const char *answer(TarnForm *form, std::string_view value, bool decode, bool plus) {
  if (!form || !value.data()) return nullptr;
  auto *made = static_cast<Answer *>(std::malloc(sizeof(Answer) + value.size() + 1));
  if (!made) return nullptr;
  char *end = made->text();
  while (!value.empty()) {
    char byte = value.front();
    value.remove_prefix(decode ? decodeByte(value, plus, byte) : 1);
    if (byte == '\0') {
      std::free(made);
      return nullptr;
    }
    *end++ = byte;
  }
  *end = '\0';
  made->next = static_cast<Answer *>(form->answers);
  form->answers = made;
  return made->text();
}

const char *cookie(TarnForm *form, const char *name, bool decode) {
  return name ? answer(form, findPair("HTTP_COOKIE", name, ';', true), decode, false) : nullptr;
}

const char *queryField(TarnForm *form, const char *name, bool decode) {
  return name ? answer(form, findPair("QUERY_STRING", name, '&', false), decode, true) : nullptr;
}

// How many bytes the character at the beginning of a text takes; 0 if it is not UTF-8.
size_t sizeOfCharacter(std::string_view text) {
  const auto byte = [&text](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  const size_t size = first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF5 ? 4 : 0;
  if (size == 0 || text.size() < size) return 0;
  for (size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  const unsigned second = byte(1);
  const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  const bool surrogate = first == 0xED && second >= 0xA0;
  const bool too_large = first == 0xF4 && second >= 0x90;
  return overlong || surrogate || too_large ? 0 : size;
}

}  // namespace
}  // namespace tarn::form

TarnForm::~TarnForm() {
  tarn::form::releaseKept(*this);
  tarn::form::releaseAnswers(answers);
}

using namespace tarn::form;

void TarnForm_close(TarnForm *form) {
  if (!form) return;
  form->~TarnForm();
  std::free(form);
}

const char *TarnForm_cookie(TarnForm *form, const char *name) { return cookie(form, name, false); }

const char *TarnForm_decodedCookie(TarnForm *form, const char *name) {
  return cookie(form, name, true);
}

const char *TarnForm_query(TarnForm *form, const char *name) {
  return queryField(form, name, false);
}

const char *TarnForm_decodedQuery(TarnForm *form, const char *name) {
  return queryField(form, name, true);
}

int TarnForm_isUtf8(const void *bytes, uint64_t size) {
  std::string_view text(static_cast<const char *>(bytes), bytes ? static_cast<size_t>(size) : 0);
  while (!text.empty()) {
    const size_t count = sizeOfCharacter(text);
    if (count == 0) return 0;
    text.remove_prefix(count);
  }
  return 1;
}
