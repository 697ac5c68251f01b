// The state of a form while it is read.
#ifndef TARN_FORM_FORM_H
#define TARN_FORM_FORM_H

#include <string_view>

#include "core/bytes.h"
#include "form/field.h"
#include "form/parameters.h"
#include "form/problem.h"
#include "form/saving.h"
#include "form/source.h"

namespace tarn::form {

// How far reading has come.
enum class Stage {
  kUnread,         // nothing has been read
  kBetweenFields,  // the next field, or the end, begins here
  kInValue,        // the next byte belongs to the current field's value, or ends it
  kAfterFields,    // the last field has been read; what follows does not matter
  kFinished,       // the body has been read to its end
};

// What has been taken of the current field's value.
enum class Taken {
  kNothing,
  kAsText,  // all of it, and it is in TarnForm::text
  kAsView,  // all of it, and it is at TarnForm::view
  kPartly,  // some or all was returned or skipped
  kLost,    // a write failed, so that some of it is nowhere
};

constexpr uint64_t kNotWritten = UINT64_MAX;

}  // namespace tarn::form

struct TarnForm {
  // Steps to the next field. Returns null at the end and after a problem.
  TarnFormField *step();

  // The same for the body as a whole.
  TarnFormField *stepToBody();

  // Finds the next bytes of the current value. They are valid until the next call. Returns false at
  // the end of the value and after a problem.
  bool nextRun(std::string_view &run);

  // Reads what is left of the current value.
  bool skipValue();

  bool more() { return source.more(limits, problem); }

  // While a value is written to a file, a run ends where a large block of the file ends: the kernel
  // takes less time for whole blocks. Returns how much of a run to hand out, 0 to wait for more.
  size_t sizeToHandOut(size_t available) const;

  // These report a problem at the beginning of the window and return false.
  bool raise(TarnFormProblem code, const char *sentence);
  bool raiseOutOfMemory();

  // Counts a field. Returns false, with a problem, if there are too many.
  bool countField();

  // The input has ended inside the form. If the source has a problem, that is the reason, and it
  // stays.
  bool raiseCutShort(const char *sentence);

  tarn::form::Source source;
  tarn::form::Limits limits;
  tarn::form::Problem problem;
  tarn::form::BodyType type = tarn::form::BodyType::kNone;
  const char *content_type = "";
  tarn::Bytes boundary;         // "\r\n--" and the boundary
  tarn::Bytes headers;          // of the current part
  tarn::Bytes scratch;          // names, or decoded bytes of a value
  tarn::Bytes text;             // the current value
  tarn::form::Records current;  // the current field
  tarn::form::Records kept;     // the fields that TarnForm_load() keeps
  tarn::Bytes order;            // where in `kept` they are, as they were sent
  tarn::Bytes by_name;          // the same, sorted by name
  tarn::Bytes by_folded_name;
  tarn::form::NewFile saved;  // the current value, while it has no name
  const void *view = nullptr;
  uint64_t part_offset = 0;
  uint64_t size = 0;  // of the current value, as far as it has been read
  uint64_t written_from = tarn::form::kNotWritten;  // where in the value a written file begins
  size_t searched = 0;  // so many bytes of the window come before the next delimiter
  uint64_t fields = 0;
  std::string_view unread;  // what TarnFormField_read() left of a run
  // The kept or current field whose stored value is being read, and how far.
  const TarnFormField *being_read = nullptr;
  uint64_t read_position = 0;
  int spool = -1;  // holds the large files that TarnForm_load() kept
  uint64_t spool_size = 0;
  void *answers = nullptr;  // cookies and fields of the query that were returned
  tarn::form::Stage stage = tarn::form::Stage::kUnread;
  tarn::form::Taken taken = tarn::form::Taken::kNothing;
  bool length_missing = false;
  bool at_delimiter = false;  // the next delimiter is at the beginning of the window
  bool empty_part = false;    // it follows the headers at once
  bool loaded = false;

  ~TarnForm();

 private:
  bool start();
  bool checkLength();
  bool nextRunOfBody(std::string_view &run);
  bool drain();
};

#endif
