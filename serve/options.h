// What a service may be told.
#ifndef TARN_SERVE_OPTIONS_H
#define TARN_SERVE_OPTIONS_H

#include <cstddef>
#include <cstdint>

#include "serve/access_log.h"
#include "serve/child.h"
#include "serve/confine.h"
#include "serve/parameters.h"

namespace tarn::server {

inline constexpr size_t kMostListeners = 8;

struct Options {
  Script script;
  int (*prepare)() = nullptr;
  const char *listen[kMostListeners] = {};  // addresses
  size_t listen_count = 0;
  unsigned socket_mode = 0600;       // of the file of a Unix socket
  bool sends_errors = true;          // sends standard error to the web server, too
  const char *status = nullptr;      // an address where the status can be read; null for none
  const char *access_log = nullptr;  // a file, or "-" for standard output; null for none
  AccessFormat access_format = AccessFormat::kCommon;
  ChildLimits child_limits;
  ParameterLimits parameter_limits;
  Rights rights;
  uint64_t body_size = uint64_t{1024} * 1024 * 1024;
  uint64_t body_in_memory = uint64_t{1024} * 1024;
  uint64_t children = 0;  // at once; 0 for twice the number of processors
  uint64_t queue = 100;   // requests that wait for a child
  uint64_t idle_connections = 150;
  uint64_t seconds = 60;          // that a script may run
  uint64_t receive_seconds = 60;  // without a byte of a request
  uint64_t send_seconds = 60;     // without the server taking a byte
};

inline constexpr uint64_t kSecondsToTerminate = 2;  // between SIGTERM and SIGKILL
inline constexpr uint64_t kSecondsToReceive = 5;    // after the service was told to end

// Sets an option. `name` is its name without dashes; `value` is null for an option without one.
// Returns what is wrong, or null. Copies the value if it is kept.
const char *setOption(Options &options, const char *name, const char *value);

// Reads options from a command line, up to the first argument that is not one or to "--". Returns
// how many arguments it has read, or -1 after a message on standard error.
int readOptions(Options &options, int count, char *const *arguments);

}  // namespace tarn::server

#endif
