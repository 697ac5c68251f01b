// Parses a POST with any content type and any body: the first line of the input is CONTENT_TYPE,
// the rest is the body. Most content types that are worth trying are multipart.
#include "request.h"

using namespace tarn_fuzz;

void fuzz(Input input) {
  const CText type(input.line());
  const Block body(input.rest());
  Script script({{"REQUEST_METHOD", "POST"},
                 {"CONTENT_LENGTH", std::to_string(body.size())},
                 {"CONTENT_TYPE", type.data()}},
                body.view());
  Request request;
  EXPECT(request.status() == TARN_OK);
  Form expected = tarn_rules::modelBody(type.data(), body.view());
  expectForm(request, expected);

  // Parses the body again from memory, as for a script that reads standard input itself. The block
  // ends with the body; URL-encoded text must be null-terminated.
  const Form again = expected;
  const CText text(body.view());
  const bool multipart = nStringsAreEqual(type.data(), "multipart/form-data", 19) == 0;
  EXPECT(Tarn_parseFormInput(request.handle(), multipart ? body.data() : text.data(),
                             body.size()) == TARN_OK);
  expected.entries.insert(expected.entries.end(), again.entries.begin(), again.entries.end());
  expected.files.insert(expected.files.end(), again.files.begin(), again.files.end());
  EXPECT(request.form() == expected);
}
