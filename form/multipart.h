// multipart/form-data.
#ifndef TARN_FORM_MULTIPART_H
#define TARN_FORM_MULTIPART_H

#include <string_view>

#include "form/form.h"

namespace tarn::form {

// Finds the first occurrence of a delimiter, which begins with "\r\n--" and contains no other CR.
// Takes linear time. Returns null if there is no delimiter.
const char *findDelimiter(std::string_view text, std::string_view delimiter);

// The same, faster, on processors that can do that.
const char *findDelimiterWide(std::string_view text, std::string_view delimiter);
bool canSearchWide();

// Steps over the preamble and the first delimiter's line.
bool startMultipart(TarnForm &form);

// Reads the headers of the next part into a record. Returns null after a problem.
TarnFormField *stepToPart(TarnForm &form);

// See TarnForm::nextRun().
bool nextRunOfPart(TarnForm &form, std::string_view &run);

}  // namespace tarn::form

#endif
