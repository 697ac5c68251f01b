// How a service is doing, as text for people and for programs.
#ifndef TARN_SERVE_STATUS_H
#define TARN_SERVE_STATUS_H

#include <cstdint>

#include "core/bytes.h"
#include "serve/figures.h"

namespace tarn::server {

// Contains nothing that a visitor has sent.
struct Status {
  Counters counters;             // of all workers since the service began
  Gauges gauges;                 // of all workers that there are
  bool ready = false;            // there is a worker to take new requests
  uint32_t workers = 0;          // processes
  uint64_t started_workers = 0;  // since the service began
  uint64_t failed_workers = 0;   // that ended without being told to
  uint64_t since = 0;            // when the service began: seconds since 1970
  uint64_t age = 0;              // seconds
};

// The following append to `to`. They return false if memory runs out.

// For people: lines of at most 79 characters.
bool writeStatus(const Status &status, Bytes &to);

// For Prometheus: its text exposition format, version 0.0.4.
bool writeMetrics(const Status &status, Bytes &to);

}  // namespace tarn::server

#endif
