// The parameters of a request, which become the environment of a script.
#ifndef TARN_SERVE_PARAMETERS_H
#define TARN_SERVE_PARAMETERS_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/bytes.h"
#include "serve/private_memory.h"
#include "serve/records.h"

namespace tarn::server {

struct ParameterLimits {
  uint64_t count = 1000;
  uint64_t size = uint64_t{1024} * 1024;  // of all names and values
};

class Parameters {
 public:
  enum class State {
    kIncomplete,
    kComplete,
    kMalformed,  // a length that lies, a name with "=", a zero byte
    kTooMany,    // more than a limit allows
    kOutOfMemory,
  };

  explicit Parameters(const ParameterLimits &limits) : limits_(limits) {}

  // Adds bytes of the stream of parameters, or ends it.
  State add(std::string_view stream);
  State end();

  State state() const { return state_; }

  // The value of the last parameter with this name; null without one. Valid until another function
  // is called that is not const.
  const char *find(std::string_view name) const;

  // Replaces a parameter. Returns false if memory runs out.
  bool set(std::string_view name, std::string_view value);

  // An environment: these parameters, and what `inherited` contains besides variables that belong
  // to a request. HTTP_PROXY is left out: programs would take it for a setting, but the visitor
  // chooses it. Returns null if memory runs out. The array and the parameters are written into
  // `block`, which must be empty and which a child gets a copy of.
  char **environment(char **inherited, Bytes &block) const;

  // Forgets everything, for the next request.
  void clear();

 private:
  bool takePiece(PairReader::Event event);
  bool fail(State state);

  ParameterLimits limits_;
  PairReader pairs_;
  PrivateBytes entries_;  // "NAME=value" and a zero byte, one after the other
  size_t count_ = 0;
  uint64_t size_ = 0;  // as the pairs announce it
  State state_ = State::kIncomplete;
};

// Whether a variable describes a request, so that a script must not inherit it from its parent.
bool belongsToRequest(std::string_view name);

}  // namespace tarn::server

#endif
