// The fields that TarnForm_load() keeps.
#ifndef TARN_FORM_KEPT_H
#define TARN_FORM_KEPT_H

#include <string_view>

#include "form/form.h"

namespace tarn::form {

// See TarnFormField_text(), _view() and _block().
const char *keptText(TarnForm &form, TarnFormField &field);
const void *keptView(TarnForm &form, TarnFormField &field);
bool nextKeptBlock(TarnForm &form, TarnFormField &field, std::string_view &block);

// Releases the mappings of all kept fields.
void releaseKept(TarnForm &form);

}  // namespace tarn::form

#endif
