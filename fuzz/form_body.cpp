// Parses a URL-encoded POST. The first line of the input becomes CONTENT_LENGTH and may be
// anything; the rest is the body.
#include <algorithm>
#include <cstdlib>

#include "request.h"

using namespace tarn_fuzz;

namespace {

// Large blocks are slow to allocate under AddressSanitizer.
constexpr long kLongest = 1 << 16;

}  // namespace

void fuzz(Input input) {
  const CText lengthText(input.line());
  const std::string_view arrives = input.rest();
  const long length = std::strtol(lengthText.data(), nullptr, 10);
  if (length > kLongest) return;
  Script script({{"REQUEST_METHOD", "pOsT"},
                 {"QUERY_STRING", "not=looked+at"},
                 {"CONTENT_LENGTH", lengthText.data()},
                 {"CONTENT_TYPE", "application/x-www-form-urlencoded"}},
                arrives);
  Request request;
  TarnHandle environment = request.child(0);
  const Text body =
      bytesOf(CGIgs_getStruct(&environment, TARN_ENVIRONMENT_BODY, TARN_ENVIRONMENT_MAGIC));
  const auto count = static_cast<size_t>(std::max(length, 0L));
  const std::string_view taken = arrives.substr(0, count);
  // With an invalid length, the body is missing and the form is empty. Tarn_new() returns the
  // status of the parse, which is TARN_OK.
  EXPECT(request.status() == TARN_OK);
  if (count > 0) {
    std::string padded(taken);
    padded.resize(count, '\0');
    EXPECT(body == padded);
  } else {
    EXPECT(!body);
  }
  expectForm(request, tarn_rules::modelBody("", taken));
  EXPECT(script.unreadInput() == arrives.substr(taken.size()));
}
