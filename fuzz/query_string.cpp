// Parses the query string of a GET. Parsing the same text again appends the same entries.
#include "request.h"

using namespace tarn_fuzz;

void fuzz(Input input) {
  const CText query(input.rest());
  Script script({{"REQUEST_METHOD", "GET"}, {"QUERY_STRING", query.data()}}, "not read");
  Request request;
  EXPECT(request.status() == TARN_OK);
  Form expected = tarn_rules::modelBody("", query.data());
  expectForm(request, expected);
  EXPECT(script.unreadInput() == "not read");

  EXPECT(Tarn_parseFormInput(request.handle(), query.data(), 0) == TARN_OK);
  const std::vector<Entry> once = expected.entries;
  expected.entries.insert(expected.entries.end(), once.begin(), once.end());
  EXPECT(request.form() == expected);
}
