// The headers of a part.
#ifndef TARN_FORM_PART_HEADERS_H
#define TARN_FORM_PART_HEADERS_H

#include <string_view>

#include "form/form.h"

namespace tarn::form {

// Reads the headers of a part and the empty line behind them into TarnForm::headers, where each
// value gets a final zero byte. No line may begin with `dash_boundary`.
bool takeHeaders(TarnForm &form, std::string_view dash_boundary);

// Reads Content-Disposition and the other headers that matter; makes the field's record.
TarnFormField *makeRecordOfPart(TarnForm &form);

// The value of a header in the lines that takeHeaders() leaves, with a zero byte behind it. Its
// data() is null if there is none.
std::string_view findHeader(std::string_view headers, std::string_view name);

}  // namespace tarn::form

#endif
