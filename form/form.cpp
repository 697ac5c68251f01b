#include "form/form.h"

#include <cstring>

#include "form/multipart.h"
#include "form/text.h"
#include "form/url_encoded.h"

using tarn::form::BodyType;
using tarn::form::Stage;
using tarn::form::Taken;

bool TarnForm::report(TarnFormProblem code, const char *sentence) {
  return problem.report(code, source.position(), sentence);
}

bool TarnForm::reportOutOfMemory() { return problem.reportOutOfMemory(source.position()); }

bool TarnForm::reportCutShort(const char *sentence) {
  return problem.report(TARN_FORM_CUT_SHORT, source.position() + source.window().size(), sentence);
}

bool TarnForm::reportTooManyFields() {
  return problem.reportLimit(TARN_FORM_FIELDS, limits[TARN_FORM_FIELDS], source.position());
}

bool TarnForm::checkLength() {
  const uint64_t most = limits[TARN_FORM_BODY_SIZE];
  if (source.length() != TARN_FORM_UNLIMITED && source.length() > most) {
    return problem.reportLimit(TARN_FORM_BODY_SIZE, most, most);
  }
  return !problem;
}

bool TarnForm::start() {
  if (!checkLength()) return false;
  type = tarn::form::readContentType(content_type, boundary, problem);
  stage = Stage::kBetweenFields;
  switch (type) {
    case BodyType::kUrlEncoded:
      return true;
    case BodyType::kMultipart:
      return !problem && tarn::form::startMultipart(*this);
    case BodyType::kNone:
      // A request without a body and without a type has a form without fields.
      if (source.length() == 0 || (source.length() == TARN_FORM_UNLIMITED && !more() && !problem)) {
        stage = Stage::kAfterFields;
        return true;
      }
      return report(TARN_FORM_UNSUPPORTED_TYPE, "a body without CONTENT_TYPE");
    case BodyType::kOther:
      break;
  }
  return report(TARN_FORM_UNSUPPORTED_TYPE, "CONTENT_TYPE is not that of a form");
}

// Reads what follows the last field. The body must have its whole length.
bool TarnForm::drain() {
  do {
    source.consume(source.window().size());
  } while (more());
  if (problem) return false;
  stage = Stage::kFinished;
  return true;
}

TarnFormField *TarnForm::step() {
#ifdef __SSE2__
  const bool between_pairs = type == BodyType::kUrlEncoded && stage == Stage::kBetweenFields;
  if (between_pairs && !problem && !saved.isOpen()) return tarn::form::stepToShortPair(*this);
#endif
  return stepSlowly();
}

TarnFormField *TarnForm::stepSlowly() {
  if (stage == Stage::kInValue && !skipValue()) return nullptr;
  if (problem || (stage == Stage::kUnread && !start())) return nullptr;
  beginStep();
  if (saved.isOpen()) saved.close();
  TarnFormField *field = nullptr;
  if (stage == Stage::kBetweenFields) {
    field = type == BodyType::kMultipart ? tarn::form::stepToPart(*this)
                                         : tarn::form::stepToPair(*this);
  }
  if (stage == Stage::kAfterFields) drain();
  if (problem || !field) return nullptr;
  stage = Stage::kInValue;
  return field;
}

TarnFormField *TarnForm::stepToBody() {
  if (problem || stage != Stage::kUnread || !checkLength()) return nullptr;
  type = BodyType::kOther;
  const char header[] = "Content-Type:";
  const std::string_view value = tarn::form::trim(content_type);
  headers.clear();
  if (!value.empty() && std::strpbrk(content_type, "\r\n") == nullptr &&
      (!headers.append({header, sizeof header - 1}) || !headers.append(value) ||
       !headers.append({"\0\n", 2}))) {
    reportOutOfMemory();
    return nullptr;
  }
  TarnFormField *field = current.add(this, {}, 0);
  if (!field) reportOutOfMemory();
  stage = Stage::kInValue;
  return field;
}

size_t TarnForm::sizeToHandOut(size_t available) const {
  constexpr uint64_t block = tarn::form::Source::kBufferSize;
  if (written_from == tarn::form::kNotWritten || source.inMemory()) return available;
  const uint64_t rest = (size - written_from + available) % block;
  return rest < available ? available - static_cast<size_t>(rest) : 0;
}

// See nextRun(), for the body as it is.
bool TarnForm::nextRunOfBody(std::string_view &run) {
  size_t count = sizeToHandOut(source.window().size());
  while (count == 0 && more()) count = sizeToHandOut(source.window().size());
  if (problem) return false;
  if (count == 0) count = source.window().size();
  if (count == 0) {
    stage = Stage::kFinished;
    return false;
  }
  run = {source.window().data(), count};
  source.consume(count);
  return true;
}

bool TarnForm::nextRun(std::string_view &run) {
  if (problem || stage != Stage::kInValue) return false;
  bool more_to_come = false;
  switch (type) {
    case BodyType::kMultipart:
      more_to_come = tarn::form::nextRunOfPart(*this, run);
      break;
    case BodyType::kUrlEncoded:
      more_to_come = tarn::form::nextRunOfPair(*this, run);
      break;
    default:
      more_to_come = nextRunOfBody(run);
  }
  if (more_to_come) size += run.size();
  return more_to_come;
}

bool TarnForm::skipValue() {
  if (!problem && takeAhead(Taken::kPartly)) return true;
  if (taken == Taken::kNothing) taken = Taken::kPartly;
  unread = {};
  std::string_view run;
  while (nextRun(run)) {
  }
  return !problem;
}
