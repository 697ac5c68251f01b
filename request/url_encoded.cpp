#include "request/url_encoded.h"

#include <cstring>

#include "core/text.h"

namespace tarn::internal {
namespace {

// How many "&" a text begins with, counted eight at a time: a form may consist of nothing else. This
// is cold, so that the compiler inlines what ordinary pairs need.
[[gnu::cold]] size_t leadingAmpersands(std::string_view text) {
  constexpr uint64_t kAmpersands = 0x2626262626262626;
  size_t count = 0;
  for (uint64_t word; text.size() - count >= sizeof word; count += sizeof word) {
    std::memcpy(&word, text.data() + count, sizeof word);
    if (word != kAmpersands) break;
  }
  while (count < text.size() && text[count] == '&') ++count;
  return count;
}

}  // namespace

void parseUrlEncoded(const FormLists &lists, std::string_view text) {
  while (!text.empty()) {
    // Empty pieces.
    if (text.front() == '&') {
      text.remove_prefix(leadingAmpersands(text));
      continue;
    }
    std::string_view piece;
    splitAtFirst(text, '&', piece, text);
    parsePair(lists, piece);
  }
}

void parsePair(const FormLists &lists, std::string_view pair) {
  std::string_view name;
  std::string_view value;
  if (!splitAtFirst(pair, '=', name, value)) return;
  appendEntry(lists, newDecodedFormEntry(name, value, lists.arena));
}

}  // namespace tarn::internal
