// The process that accepts connections and forks a child for each request.
#ifndef TARN_SERVE_WORKER_H
#define TARN_SERVE_WORKER_H

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "serve/child.h"
#include "serve/figures.h"
#include "serve/options.h"

namespace tarn::server {

// Memory that the supervisor shares, and scripts do not have: the process groups of children, so that
// the supervisor can kill what is left of them if the worker dies, and what the worker counts.
struct Scoreboard {
  static constexpr size_t kMost = 4096;  // connections

  std::atomic<pid_t> groups[kMost];  // at the beginning: children write to the file
  std::atomic<pid_t> condemned[CondemnedGroups::kMost];
  Figures figures;

  // Kills all groups.
  void kill();
};

// What a supervisor gives to a worker. All descriptors stay open when the worker's program is
// replaced.
struct WorkerFiles {
  int listeners[kMostListeners] = {};
  size_t listener_count = 0;
  int ready = -1;       // the worker writes a byte here when it can serve
  int handover = -1;    // a socket: idle connections from a worker that ends
  int successor = -1;   // its other end, on which this worker hands over its own
  int scoreboard = -1;  // a file of the size of a Scoreboard
};

// Serves until the supervisor sends a signal. SIGTERM: the worker stops listening and ends after the
// last request. SIGHUP: the same, and it hands idle connections over. Returns the exit status.
int work(const Options &options, const WorkerFiles &files);

}  // namespace tarn::server

#endif
