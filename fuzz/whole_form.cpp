// Reads a whole form with any content type and any body: the first line of the input is CONTENT_TYPE,
// the rest is the body. Compares it with a plain model, however the bytes arrive.
#include "support.h"
#include "support/form_model.h"
#include "support/pieces.h"
#include "tarn_form.h"

using namespace tarn_fuzz;
using namespace tarn_test;

namespace {

std::string bytesOf(TarnFormField *field) {
  const auto *bytes = static_cast<const char *>(TarnFormField_view(field));
  EXPECT(bytes != nullptr);
  return {bytes, static_cast<size_t>(TarnFormField_size(field))};
}

// Files of more than a few bytes go into the temporary file.
void expectLoaded(const char *type, std::string_view body, const ModelResult &expected) {
  TarnForm *form = TarnForm_openMemory(type, body.data(), body.size());
  TarnForm_setLimit(form, TARN_FORM_MEMORY_SIZE, 8);
  EXPECT((TarnForm_load(form) == 1) == expected.problem.empty());
  const size_t count = expected.problem.empty() ? expected.fields.size() : 0;
  EXPECT(TarnForm_count(form, nullptr) == count);
  for (size_t i = 0; i < count; ++i) {
    const ModelField &field = expected.fields[i];
    TarnFormField *kept = TarnForm_get(form, nullptr, i);
    EXPECT(std::string(TarnFormField_name(kept),
                       static_cast<size_t>(TarnFormField_nameSize(kept))) == field.name);
    EXPECT((TarnFormField_filename(kept) != nullptr) == field.filename.has_value());
    EXPECT(bytesOf(kept) == field.value);
    if (field.name.find('\0') == std::string::npos) {
      EXPECT(TarnForm_get(form, field.name.c_str(), 0) != nullptr);
      EXPECT(TarnForm_getIgnoringCase(form, field.name.c_str(), 0) != nullptr);
    }
  }
  TarnForm_close(form);
}

}  // namespace

void fuzz(Input input) {
  const CText type(input.line());
  const Block body(input.rest());
  const ModelResult expected = modelOfForm(type.data(), body.view());
  EXPECT(readFromMemory(type.data(), body.view()) == expected);
  const size_t first = body.size() % 61 + 1;
  EXPECT(readInPieces(type.data(), body.view(), {first, 1, 7}) == expected);
  expectLoaded(type.data(), body.view(), expected);
}
