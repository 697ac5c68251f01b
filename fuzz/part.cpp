// Parses a single part of a multipart body.
#include "request.h"

using namespace tarn_fuzz;

void fuzz(Input input) {
  const Block part(input.rest());
  const std::string sent(part.view());
  Script script({}, "");
  Request request;
  EXPECT(request.status() == TARN_OK);
  Tarn_parseMime(request.handle(), reinterpret_cast<const uint8_t *>(part.data()), part.size());
  Form expected;
  tarn_rules::modelPart(expected, sent);
  expectForm(request, expected);

  // The parser changes at most one byte of the part: it ends the header with a null byte.
  std::string after = sent;
  const size_t headerEnd = sent.find("\r\n\r\n");
  if (headerEnd != sent.npos) after[headerEnd] = '\0';
  EXPECT(part.view() == after);
}
