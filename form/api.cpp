// The exported functions that open and read forms.
#include <new>

#include "form/form.h"
#include "form/part_headers.h"
#include "form/url_encoded.h"

using tarn::form::Stage;

namespace tarn::form {
namespace {

const char *variable(const char *name) {
  const char *value = std::getenv(name);
  return value ? value : "";
}

TarnForm *newForm() {
  void *block = std::malloc(sizeof(TarnForm));
  return block ? new (block) TarnForm : nullptr;
}

// Reads CONTENT_LENGTH. Returns false if it is not a number below 2^63.
bool readLength(const char *text, uint64_t &length) {
  length = 0;
  for (; *text != '\0'; ++text) {
    if (*text < '0' || *text > '9') return false;
    const auto digit = static_cast<uint64_t>(*text - '0');
    if (length > (INT64_MAX - digit) / 10) return false;
    length = length * 10 + digit;
  }
  return true;
}

void openBody(TarnForm &form) {
  form.content_type = variable("CONTENT_TYPE");
  const char *text = variable("CONTENT_LENGTH");
  uint64_t length = 0;
  if (!readLength(text, length)) {
    form.problem.report(TARN_FORM_BAD_LENGTH, 0, "CONTENT_LENGTH is not a number of bytes");
  }
  form.length_missing = *text == '\0';
  form.source.openDescriptor(0, length);
}

// A form whose content type is a copy. The copy is where texts go later: before the first one, the type
// has been read.
TarnForm *newFormOfType(const char *type) {
  TarnForm *form = newForm();
  if (!form || !type) return form;
  if (!form->text.append(type)) {
    TarnForm_close(form);
    return nullptr;
  }
  form->content_type = form->text.data();
  return form;
}

void openQuery(TarnForm &form, const char *query) {
  form.content_type = "application/x-www-form-urlencoded";
  form.source.openMemory(query);
}

bool isMethod(const char *name) { return std::strcmp(variable("REQUEST_METHOD"), name) == 0; }

}  // namespace
}  // namespace tarn::form

using namespace tarn::form;

TarnForm *TarnForm_open(void) {
  TarnForm *form = newForm();
  if (!form) return nullptr;
  if (isMethod("") || isMethod("GET") || isMethod("HEAD")) {
    openQuery(*form, variable("QUERY_STRING"));
  } else {
    openBody(*form);
  }
  return form;
}

TarnForm *TarnForm_openMemory(const char *type, const void *body, uint64_t length) {
  TarnForm *form = newFormOfType(type);
  if (!form) return nullptr;
  const char *bytes = body && length > 0 ? static_cast<const char *>(body) : "";
  form->source.openMemory({bytes, body ? static_cast<size_t>(length) : 0});
  return form;
}

TarnForm *TarnForm_openDescriptor(const char *type, int descriptor, uint64_t length) {
  TarnForm *form = newFormOfType(type);
  if (!form) return nullptr;
  form->source.openDescriptor(descriptor, length);
  if (descriptor < 0) form->problem.report(TARN_FORM_READ_ERROR, 0, "the body cannot be read");
  return form;
}

TarnForm *TarnForm_openQuery(const char *query) {
  TarnForm *form = newForm();
  if (form) openQuery(*form, query ? query : variable("QUERY_STRING"));
  return form;
}

void TarnForm_readToEnd(TarnForm *form) {
  if (form && form->stage == Stage::kUnread && form->length_missing) {
    form->source.openDescriptor(0, TARN_FORM_UNLIMITED);
  }
}

void TarnForm_setLimit(TarnForm *form, TarnFormLimit limit, uint64_t value) {
  if (form && form->stage == Stage::kUnread && limit < kLimits) form->limits.values[limit] = value;
}

void TarnForm_setDurable(TarnForm *form, int durable) {
  if (form) form->saved.setDurable(durable != 0);
}

TarnFormField *TarnForm_next(TarnForm *form) {
  return form && !form->loaded ? form->step() : nullptr;
}

TarnFormField *TarnForm_body(TarnForm *form) {
  return form && !form->loaded ? form->stepToBody() : nullptr;
}

int TarnForm_isWhole(const TarnForm *form) {
  return form && !form->problem && form->stage == Stage::kFinished;
}

TarnFormProblem TarnForm_problem(const TarnForm *form) {
  return form ? form->problem.code : TARN_FORM_OUT_OF_MEMORY;
}

uint64_t TarnForm_problemOffset(const TarnForm *form) { return form ? form->problem.offset : 0; }

const char *TarnForm_message(const TarnForm *form) {
  return form ? form->problem.message : "out of memory";
}

int TarnForm_status(const TarnForm *form) { return statusOf(TarnForm_problem(form)); }

int TarnForm_limit(const TarnForm *form, TarnFormLimit *limit, uint64_t *value) {
  if (!form || !form->problem.is_limit) return 0;
  if (limit) *limit = form->problem.limit;
  if (value) *value = form->problem.limit_value;
  return 1;
}
