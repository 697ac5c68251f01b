// The parameters of a header such as Content-Type, and the type of a body.
#ifndef TARN_FORM_PARAMETERS_H
#define TARN_FORM_PARAMETERS_H

#include <string_view>

#include "core/bytes.h"
#include "form/problem.h"

namespace tarn::form {

// Whether a text is a token: the name of a header or a parameter, or a value without quotes.
bool isToken(std::string_view text);

// How backslashes in quotes are meant.
enum class Quoting {
  // As HTTP has it: every backslash escapes the byte after it.
  kHttp,
  // Browsers send file names with backslashes that escape nothing, other programs escape quotes and
  // backslashes. Backslashes are escapes only where all of them can be.
  kForm,
};

// Steps through "; name=value; name=value".
class Parameters {
 public:
  // `text` is what follows the type.
  Parameters(std::string_view text, Quoting quoting) : rest_(text), quoting_(quoting) {}

  // Returns false at the end, and where the text is malformed.
  bool next();

  bool malformed() const { return malformed_; }

  std::string_view name() const { return name_; }

  // Without its quotes, with its escapes.
  std::string_view value() const { return value_; }

  // Whether backslashes in the value are escapes.
  bool escaped() const { return escaped_; }

 private:
  bool fail() {
    malformed_ = true;
    return false;
  }
  void skipSpace();
  bool takeQuoted();
  bool takeToken();
  bool endsAt(size_t place) const;

  std::string_view rest_;
  std::string_view name_;
  std::string_view value_;
  Quoting quoting_;
  bool escaped_ = false;
  bool malformed_ = false;
};

enum class BodyType { kNone, kUrlEncoded, kMultipart, kOther };

// Splits off the type before the first ";" or white space; the rest stays.
std::string_view takeType(std::string_view &text);

// Reads a Content-Type. For multipart/form-data, sets `boundary` to "\r\n--" and the boundary, or
// reports a problem.
BodyType readContentType(std::string_view text, Bytes &boundary, Problem &problem);

}  // namespace tarn::form

#endif
