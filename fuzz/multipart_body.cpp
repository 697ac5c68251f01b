// A POST with any content type and any body: the input's first line is CONTENT_TYPE, the rest is
// the body. Most content types that are worth trying begin a multipart form.
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

  // Once more from a block that ends with the body, for a script that read it itself. URL-encoded
  // text has a zero byte after it.
  const Form again = expected;
  const CText text(body.view());
  const bool multipart = nStringsAreEqual(type.data(), "multipart/form-data", 19) == 0;
  EXPECT(Tarn_parseFormInput(request.handle(), multipart ? body.data() : text.data(),
                             body.size()) == TARN_OK);
  expected.entries.insert(expected.entries.end(), again.entries.begin(), again.entries.end());
  expected.files.insert(expected.files.end(), again.files.begin(), again.files.end());
  EXPECT(request.form() == expected);
}
