#include "request/url_encoded.h"

#include "core/text.h"

namespace tarn::internal {

void parseUrlEncoded(const FormLists &lists, std::string_view text) {
  while (!text.empty()) {
    // A run of "&" costs one step a byte, without a search for each empty piece.
    if (text.front() == '&') {
      text.remove_prefix(1);
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
