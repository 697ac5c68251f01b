// The fields that TarnForm_load() keeps, and how they are found.
#ifndef TARN_FORM_KEPT_H
#define TARN_FORM_KEPT_H

#include <string_view>

#include "form/form.h"

namespace tarn::form {

// See TarnFormField_text(), _view() and _block().
const char *keptText(TarnForm &form, TarnFormField &field);
const void *keptView(TarnForm &form, TarnFormField &field);
bool nextKeptBlock(TarnForm &form, TarnFormField &field, std::string_view &block);

// See TarnFormField_header(). If there is no such header, the data() of the result is null.
std::string_view keptHeader(const TarnFormField &field, std::string_view name);

// Releases the mappings of all kept fields.
void releaseKept(TarnForm &form);

// ---- Finding them -------------------------------------------------------------------------------

// Where the fields are in TarnForm::kept.
struct Places {
  const uint32_t *begin;
  const uint32_t *end;

  size_t size() const { return static_cast<size_t>(end - begin); }
};

Places placesIn(const Bytes &bytes);

// Reserves memory for lookups, so that none fails for lack of it. Returns false if there is none.
bool reserveForLookups(TarnForm &form);

}  // namespace tarn::form

#endif
