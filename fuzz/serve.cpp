// Reads what a web server sends on a connection, and what a script answers. The first byte of the
// input chooses: "a" is followed by an answer; "b" by the bytes of a connection; "c" by a connection
// made of records, so that their lengths are right.
#include <algorithm>

#include "support.h"
#include "support/fastcgi.h"
#include "support/fastcgi_model.h"
#include "support/request_events.h"

using namespace tarn_fuzz;
using namespace tarn_test;

namespace {

// How the bytes arrive: all at once, one by one, and in parts that depend on the input.
void expectEvents(const std::vector<std::string> &pieces, const ConnectionRules &rules) {
  size_t size = 0;
  for (const std::string &piece : pieces) size += piece.size();
  const Events expected = modelOfConnection(pieces, rules);
  EXPECT(eventsOf(pieces, rules) == expected);
  EXPECT(eventsOf(pieces, rules, {1}) == expected);
  EXPECT(eventsOf(pieces, rules, {size % 61 + 1, 1, 7}) == expected);
}

// Low limits, which inputs reach.
ConnectionRules rulesOf(Input &input) {
  ConnectionRules rules;
  const uint8_t byte = input.byte();
  if (byte & 1) rules.most_parameters = 3;
  if (byte & 2) rules.most_parameter_bytes = 40;
  rules.answers = static_cast<Answers>(byte / 4 % 3);
  return rules;
}

// A piece of the input as a name-value pair, whose lengths may be false.
std::string pairOf(Input &input) {
  const uint8_t kind = input.byte();
  const std::string name(input.take(kind % 16));
  const std::string value(input.piece());
  if (kind < 128) return fastcgi::pair(name, value);
  if (kind < 224) return fastcgi::longPair(name, value);
  return fastcgi::longPair(name, input.anyNumber() & 0x7FFFFFFF, value,
                           input.anyNumber() & 0x7FFFFFFF);
}

std::string pairsOf(Input &input) {
  std::string pairs = pairOf(input);
  pairs += pairOf(input);
  return pairs;
}

std::string recordOf(Input &input) {
  using namespace fastcgi;
  const uint8_t kind = input.byte();
  const unsigned request = kind / 32 % 2 + 1U;
  const unsigned padding = kind >= 128 ? input.byte() : 0U;
  switch (kind % 16) {
    case 0: {
      const uint8_t flags = input.byte();
      return begin(request, flags, input.below(4));
    }
    case 1:
      return record(kParams, request, pairsOf(input), padding);
    case 2:
      return record(kParams, request, input.piece(), padding);
    case 3:
      return record(kParams, request, "", padding);
    case 4:
      return record(kStdin, request, input.piece(), padding);
    case 5:
      return record(kStdin, request, "", padding);
    case 6:
      return record(kAbort, request, "", padding);
    case 7:
      return record(kGetValues, 0, pairsOf(input), padding);
    case 8: {
      const uint8_t type = input.byte();
      return record(type, 0, input.piece(), padding);
    }
    case 9:
      return record(kBegin, request, input.piece(), padding);
    case 10: {
      const std::string parameters = pairOf(input);
      return fastcgi::request(request, parameters, input.piece(), kKeep);
    }
    default: {
      const uint8_t type = input.byte();
      return record(type, request, input.piece(), padding);
    }
  }
}

void records(Input &input) {
  const ConnectionRules rules = rulesOf(input);
  std::vector<std::string> pieces(1);
  while (!input.empty()) {
    // Here the service answers the request.
    if (input.byte() == '.') pieces.emplace_back();
    pieces.back() += recordOf(input);
  }
  expectEvents(pieces, rules);
}

void answer(std::string_view written) {
  const ModelAnswer expected = modelOfAnswer(written);
  EXPECT(answerOf(written) == expected);
  EXPECT(answerOf(written, {1}) == expected);
  EXPECT(answerOf(written, {written.size() % 61 + 1, 1, 7}) == expected);
}

}  // namespace

void fuzz(Input input) {
  switch (input.byte()) {
    case 'a':
      return answer(input.rest());
    case 'b': {
      const ConnectionRules rules = rulesOf(input);
      return expectEvents({std::string(input.rest())}, rules);
    }
    default:
      records(input);
  }
}
