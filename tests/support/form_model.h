// What a script must get from a form, computed as plainly as possible, so that the tests and the fuzz
// targets can compare any input with it. The same rules in Python, and more about them, are in
// tests/form/model.py; tests/form/agreement_test.py compares the two. Nothing here calls Tarn.
#ifndef TARN_TESTS_SUPPORT_FORM_MODEL_H
#define TARN_TESTS_SUPPORT_FORM_MODEL_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn_test {

struct ModelField {
  bool operator==(const ModelField &) const = default;

  std::string name;
  std::optional<std::string> filename;
  std::optional<std::string> content_type;
  std::string value;
};

// The fields before the first problem. `problem` is its code, or empty if the form is whole.
struct ModelResult {
  bool operator==(const ModelResult &) const = default;

  std::vector<ModelField> fields;
  std::string problem;
};

// Reads a body that is as long as CONTENT_LENGTH, or that has none. An empty content type is the same
// as none.
ModelResult modelOfForm(std::string_view contentType, std::string_view body);

// The two kinds of forms, without a content type to look at: quicker where only the body changes.
ModelResult modelOfMultipart(std::string_view boundary, std::string_view body);
ModelResult modelOfUrlEncoded(std::string_view text);

}  // namespace tarn_test

#endif
