// What a service must understand of the bytes on a connection, and of what a script answers, computed
// as plainly as possible, so that the tests and the fuzz target can compare any input with it.
// Nothing here calls Tarn.
#ifndef TARN_TESTS_SUPPORT_FASTCGI_MODEL_H
#define TARN_TESTS_SUPPORT_FASTCGI_MODEL_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarn_test {

// One line for each event, such as "begin 1, keep" or "body abc". What arrives of a body in one row is
// one event.
using Events = std::vector<std::string>;

// When the service answers a request.
enum class Answers {
  kNever,
  kWhenItIsComplete,  // also when it is aborted or its parameters are bad
  kAtTheFirstByteOfTheBody,
};

struct ConnectionRules {
  uint64_t most_parameters = 1000;
  uint64_t most_parameter_bytes = uint64_t{1024} * 1024;
  unsigned connections = 7;  // what the service says if it is asked
  Answers answers = Answers::kNever;
};

// The bytes of a connection. A request is answered between two pieces, too.
Events modelOfConnection(const std::vector<std::string> &pieces, const ConnectionRules &rules);

// What inherited environments contain in these tests: a variable that scripts see, and one that
// belongs to a request.
inline constexpr char kInherited[] = "PATH=/bin";
inline constexpr char kInheritedRequest[] = "HTTP_OLD=1";

struct ModelAnswer {
  bool operator==(const ModelAnswer &) const = default;

  enum class State { kNoHeaderYet, kBad, kHeader };

  State state = State::kNoHeaderYet;
  std::string header;  // with the empty line, as it is sent
  std::string body;
  bool is_short = false;  // the body is shorter than Content-Length
  bool is_whole = false;  // the web server needs nothing more
};

// What a script has written so far.
ModelAnswer modelOfAnswer(std::string_view written);

}  // namespace tarn_test

#endif
