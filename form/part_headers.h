// The headers of a part.
#ifndef TARN_FORM_PART_HEADERS_H
#define TARN_FORM_PART_HEADERS_H

#include <string_view>

#include "form/form.h"

namespace tarn::form {

// Reads the headers of a part and the empty line behind them; makes the field's record. No line may
// begin with `dash_boundary`. Returns null with a problem.
TarnFormField *takePart(TarnForm &form, std::string_view dash_boundary);

// The value of a header in a record's headers, with a zero byte behind it. If there is no such
// header, its data() is null.
std::string_view findHeader(std::string_view headers, std::string_view name);

// A record with usual headers has only Content-Disposition. This is its name; the other function writes
// its value, from a field's name, with a zero byte behind it.
bool isUsualHeader(std::string_view name);
std::string_view writeUsualHeader(std::string_view name, char *place);

}  // namespace tarn::form

#endif
