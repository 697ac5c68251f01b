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

// The current value, if it was decoded into TarnForm::text before it was asked for. It is not taken.
struct ValueAhead {
  size_t encoded_size = 0;  // in the window, with the "&"; 0 if there is none
  size_t size = 0;
};

// Which of 64 bytes in the window are special: see Block. What is in front of the next field does not
// matter.
struct KnownBlock {
  const char *begin = nullptr;  // null if nothing is known
  uint64_t special = 0;
};

// How to search for a delimiter.
enum class Search {
  kUsual,   // so far; the body may be small
  kChosen,  // for a large body: kUsual is best on this processor
  kWide,
};

constexpr uint64_t kNotWritten = UINT64_MAX;

}  // namespace tarn::form

struct TarnForm {
  // Steps to the next field. Returns null at the end and after a problem.
  TarnFormField *step();
  TarnFormField *stepSlowly();

  // Forgets the field before.
  void beginStep() {
    size = 0;
    view = nullptr;
    unread = {};
    ahead = {};
    being_read = nullptr;
    taken = tarn::form::Taken::kNothing;
  }

  // Steps to the body as it is: see TarnForm_body().
  TarnFormField *stepToBody();

  // Finds the next bytes of the current value. They are valid until the next call. Returns false at
  // the end of the value and after a problem.
  bool nextRun(std::string_view &run);

  // Reads what is left of the current value.
  bool skipValue();

  // Takes a value that was decoded before. Returns false if there is none.
  bool takeAhead(tarn::form::Taken how) {
    if (ahead.encoded_size == 0 || taken != tarn::form::Taken::kNothing) return false;
    source.consume(ahead.encoded_size);
    size = ahead.size;
    taken = how;
    stage = tarn::form::Stage::kBetweenFields;
    return true;
  }

  // Where the next field goes.
  tarn::form::Records &records() { return loading ? kept : current; }

  // Makes the window longer. Returns false at the end of the body and with a problem.
  bool more() {
    known_block = {};
    return source.more(limits, problem);
  }

  // While a value is written to a file, a run ends where a large block of the file ends: the kernel
  // takes less time for whole blocks. Returns how much of a run to hand out, 0 to wait for more.
  size_t sizeToHandOut(size_t available) const;

  // These report a problem at the beginning of the window and return false.
  bool report(TarnFormProblem code, const char *sentence);
  bool reportOutOfMemory();

  // Reports at the end of the window that the input has ended inside the form, and returns false. If
  // the source has a problem, that is the reason, and it stays.
  bool reportCutShort(const char *sentence);

  // Counts a field. Returns false, with a problem, if there are too many.
  bool countField() {
    if (fields >= limits[TARN_FORM_FIELDS]) return reportTooManyFields();
    ++fields;
    return true;
  }

  tarn::form::Source source;
  tarn::form::Limits limits;
  tarn::form::Problem problem;
  tarn::form::BodyType type = tarn::form::BodyType::kNone;
  const char *content_type = "";
  tarn::Bytes boundary;                // "\r\n--" and the boundary
  tarn::Bytes headers;                 // of the current part
  tarn::Bytes scratch;                 // names, or decoded bytes of a value
  tarn::Bytes text;                    // the current value
  tarn::form::Records current{false};  // the current field
  tarn::form::Records kept{true};      // the fields that TarnForm_load() keeps
  tarn::Bytes order;                   // where in `kept` they are, as they were sent
  tarn::Bytes by_name;                 // the same, sorted by name
  tarn::Bytes by_folded_name;
  tarn::Bytes usual_headers;  // of kept fields, as far as they were asked for
  uint64_t looked_at = 0;     // so many fields were compared with names
  tarn::form::NewFile saved;  // the current value, while it has no name
  const void *view = nullptr;
  uint64_t part_offset = 0;
  uint64_t size = 0;  // of the current value, as far as it has been read
  uint64_t written_from = tarn::form::kNotWritten;  // where in the value a written file begins
  size_t searched = 0;  // so many bytes of the window come before the next delimiter
  uint64_t fields = 0;
  tarn::form::ValueAhead ahead;
  tarn::form::KnownBlock known_block;
  std::string_view unread;  // what TarnFormField_read() left of a run
  // The kept or current field whose stored value is being read, and how far.
  const TarnFormField *being_read = nullptr;
  uint64_t read_position = 0;
  int spool = -1;  // holds the large files that TarnForm_load() kept
  uint64_t spool_size = 0;
  void *answers = nullptr;  // cookies and fields of the query that were returned
  tarn::form::Stage stage = tarn::form::Stage::kUnread;
  tarn::form::Taken taken = tarn::form::Taken::kNothing;
  tarn::form::Search search = tarn::form::Search::kUsual;
  bool length_missing = false;
  bool at_delimiter = false;       // the next delimiter is at the beginning of the window
  bool empty_part = false;         // it follows the headers at once
  bool loading = false;            // TarnForm_load() has begun
  bool has_usual_headers = false;  // some kept fields do
  bool loaded = false;

  ~TarnForm();

 private:
  bool start();
  bool checkLength();
  bool reportTooManyFields();
  bool nextRunOfBody(std::string_view &run);
  bool drain();
};

#endif
