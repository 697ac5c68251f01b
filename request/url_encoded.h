// The parser of application/x-www-form-urlencoded: query strings and bodies. It splits;
// unescapeTo() in core/text.h decodes.
#ifndef TARN_REQUEST_URL_ENCODED_H
#define TARN_REQUEST_URL_ENCODED_H

#include <string_view>

#include "request/form_lists.h"

namespace tarn::internal {

// Parses pairs that "&" separates.
void parseUrlEncoded(const FormLists &lists, std::string_view text);

// Parses one "name=value"; "&" has no meaning in it. Without "=" it is dropped.
void parsePair(const FormLists &lists, std::string_view pair);

}  // namespace tarn::internal

#endif
