// application/x-www-form-urlencoded, and query strings.
#ifndef TARN_FORM_URL_ENCODED_H
#define TARN_FORM_URL_ENCODED_H

#include <string_view>

#include "form/form.h"

namespace tarn::form {

// TarnForm::step() between two fields. Faster than stepToPair() if the field is short and in the window.
TarnFormField *stepToShortPair(TarnForm &form);

// Reads the name of the next field. Returns null at the end of the form and with a problem.
TarnFormField *stepToPair(TarnForm &form);

// While TarnForm_load() reads, keeps as many of the next fields as are short and in the window, and
// far from every limit.
void keepPairs(TarnForm &form);

// See TarnForm::nextRun().
bool nextRunOfPair(TarnForm &form, std::string_view &run);

// Reads the whole value, and the "&" behind it, if both are in the window and the value has neither
// thousands of bytes nor more than `most`. It goes behind the other bytes of `text`. Otherwise returns
// false and reads nothing.
bool takeShortValue(TarnForm &form, Bytes &text, uint64_t most);

// The rest of the value, if it is in memory and nothing in it is encoded; otherwise data() is null.
std::string_view plainValue(const TarnForm &form);

// Decodes the byte at the beginning of a text: "%XX", and "+" if `plus` says so. Returns how many
// bytes it takes.
size_t decodeByte(std::string_view text, bool plus, char &byte);

}  // namespace tarn::form

#endif
