// Verifies tokens of tarn/signed.hpp. The input is a line with how to make a token from a signed one,
// a line with its purpose, and the rest: what is changed or sent instead.
#include <sodium.h>
#include <tarn/request.hpp>
#include <tarn/signed.hpp>

#include <algorithm>
#include <cstdlib>
#include <optional>

#include "support.h"

using namespace tarn_fuzz;

namespace {

constexpr char kKeys[] =
    "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f\n"
    "f0e0d0c0b0a090807060504030201000ffeeddccbbaa99887766554433221100\n";
constexpr std::int64_t kNow = 1800000000;
constexpr std::int64_t kSeconds = 60;
constexpr int kVariant = sodium_base64_VARIANT_URLSAFE_NO_PADDING;
constexpr char kPurpose[] = "purpose";

std::int64_t now = kNow;
std::int64_t testTime() { return now; }

std::optional<std::string> bytesOf(std::string_view letters) {
  std::string bytes(letters.size(), '\0');
  std::size_t size = 0;
  if (sodium_base642bin(reinterpret_cast<unsigned char *>(bytes.data()), bytes.size(),
                        letters.data(), letters.size(), nullptr, &size, nullptr, kVariant) != 0) {
    return std::nullopt;
  }
  bytes.resize(size);
  return bytes;
}

std::string encoded(std::string_view bytes) {
  std::string letters(sodium_base64_encoded_len(bytes.size(), kVariant), '\0');
  sodium_bin2base64(letters.data(), letters.size(),
                    reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size(), kVariant);
  letters.pop_back();
  return letters;
}

// The token with some of its bytes, or of its letters, replaced by others of the input.
std::string changed(std::string token, Input &input) {
  while (!input.empty()) {
    std::optional<std::string> bytes;
    if (input.below(2) != 0) bytes = bytesOf(token);
    std::string &text = bytes ? *bytes : token;
    const std::size_t at = std::min<std::size_t>(input.byte(), text.size());
    const std::size_t count = input.below(8);
    text.replace(at, count, input.take(input.below(8)));
    if (bytes) token = encoded(*bytes);
  }
  return token;
}

}  // namespace

void fuzz(Input input) {
  std::optional<Script> script;
  script.emplace(std::initializer_list<Script::Variable>{{"KEYS", kKeys}}, "");
  tarn::Keys keys = tarn::Keys::from_variable("KEYS");
  script.reset();
  EXPECT(keys.size() == 2);
  now = kNow;
  keys.clock(testTime);

  const std::string how(input.line());
  const std::string purpose(input.line());
  const std::string value = how.size() > 1 ? how.substr(1) : "value";
  const tarn::Text signedText = keys.sign(kPurpose, value, kSeconds);
  EXPECT(signedText);
  const std::string original(signedText.view());
  const tarn::Verified read = keys.verify(kPurpose, original);
  EXPECT(read && read.value() == value);

  // Either what was sent instead, or the token with changes.
  const std::string sent =
      how.rfind('c', 0) == 0 ? changed(original, input) : std::string(input.rest());
  const Block block(sent);
  for (const std::string_view asked : {std::string_view(kPurpose), std::string_view(purpose)}) {
    const tarn::Verified found = keys.verify(asked, block.view());
    bool isSigned = sent == original && asked == kPurpose;
    EXPECT(found || !isSigned);
    EXPECT(!isSigned || found.value() == value);
    if (found && !isSigned && asked == kPurpose) {
      // libFuzzer remembers tokens of other inputs, which were signed with other values.
      const tarn::Text again = keys.sign(kPurpose, found.value(), kSeconds);
      isSigned = again && again.view() == sent;
    }
    EXPECT(static_cast<bool>(found) == isSigned);
    EXPECT(isSigned || found.value().empty());
    EXPECT((found.problem() == nullptr) == isSigned);
    EXPECT((found.verdict() == tarn::Verdict::missing) == sent.empty());
    const std::optional<std::string> bytes = bytesOf(sent);
    // One spelling: libsodium reads bytes above 127 as letters.
    const bool isSpelt = bytes && encoded(*bytes) == sent;
    const bool isMalformed = !sent.empty() && (!isSpelt || bytes->size() < 40);
    EXPECT((found.verdict() == tarn::Verdict::malformed) == isMalformed);
  }
  now = kNow + kSeconds;
  EXPECT(keys.verify(kPurpose, original).verdict() == tarn::Verdict::expired);
  EXPECT(!keys.verify(kPurpose, block.view()));

  // As a cookie and a form it is good for nothing.
  now = kNow;
  const CText text(sent);
  const std::string cookie = std::string(kPurpose) + "=" + text.data();
  script.emplace(
      std::initializer_list<Script::Variable>{
          {"KEYS", text.data()}, {"HTTP_COOKIE", cookie}, {"REQUEST_METHOD", "GET"}},
      "");
  const tarn::Request request;
  EXPECT(!keys.verify_cookie(request, kPurpose));
  EXPECT(!keys.verify_form(request, kPurpose, kPurpose));

  // Keys from the same bytes: all or none.
  const tarn::Keys others = tarn::Keys::from_variable("KEYS");
  EXPECT(static_cast<bool>(others) == (others.size() > 0));
  EXPECT(others.size() <= 8);
}
