// What a service counts: requests, failures, times.
#ifndef TARN_SERVE_FIGURES_H
#define TARN_SERVE_FIGURES_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "serve/failure.h"
#include "serve/histogram.h"

namespace tarn::server {

// They only grow. Every request that has begun ends once, with one failure or none.
struct Counters {
  // Classes of HTTP status: the first for none, then 1xx to 5xx.
  static constexpr size_t kClasses = 6;

  uint64_t begun = 0;               // requests
  uint64_t ended[kFailures] = {};   // requests, by what went wrong
  uint64_t answers[kClasses] = {};  // requests, by the class of their status
  uint64_t connections = 0;         // that were accepted
  uint64_t not_fastcgi = 0;         // connections on which something else came than a request
  uint64_t received_bytes = 0;      // of bodies
  uint64_t sent_bytes = 0;          // of answers without their header
  uint64_t lost_lines = 0;          // of the access log
  Histogram times;                  // from a request's first record to the end of its answer
  Histogram waits;                  // from its last record to the start of its child

  void add(const Counters &other);
  uint64_t endedInAll() const;
};

// How things are now.
struct Gauges {
  uint32_t idle = 0;       // connections without a request
  uint32_t receiving = 0;  // requests that arrive
  uint32_t waiting = 0;    // requests that wait for a child
  uint32_t running = 0;    // children
  uint32_t ending = 0;     // connections whose answer is on its way
  uint32_t most_connections = 0;
  uint32_t most_waiting = 0;
  uint32_t most_running = 0;

  void add(const Gauges &other);
};

// Shared by the worker that counts and the supervisor that reads. New memory is all zeros.
//
// The supervisor may be of an older version than the worker, so `layout` tells how the rest is
// arranged.
class Figures {
 public:
  // The worker begins to count.
  void begin() { layout_.store(kLayout, std::memory_order_release); }

  // Lets the worker change figures while it exists. It never waits for a reader.
  class Change {
   public:
    explicit Change(Figures &figures) : figures_(figures) {
      const uint32_t version = figures_.version_.load(std::memory_order_relaxed);
      figures_.version_.store(version + 1, std::memory_order_relaxed);
      std::atomic_thread_fence(std::memory_order_release);
    }
    ~Change() {
      const uint32_t version = figures_.version_.load(std::memory_order_relaxed);
      figures_.version_.store(version + 1, std::memory_order_release);
    }
    Change(const Change &) = delete;
    Change &operator=(const Change &) = delete;
    Counters *operator->() const { return &figures_.counters_; }
    Gauges &gauges() const { return figures_.gauges_; }

   private:
    Figures &figures_;
  };

  // Copies the figures, all as of one moment. Returns false if the worker does not count, or in
  // another way than this version. If the worker has died, its last change may be there in part.
  bool read(Counters &counters, Gauges &gauges) const;

 private:
  // To be changed with Counters and Gauges.
  static constexpr uint32_t kLayout = 0x74530001;

  std::atomic<uint32_t> layout_;
  std::atomic<uint32_t> version_;  // odd during a change
  alignas(8) Counters counters_;
  Gauges gauges_;
};

}  // namespace tarn::server

#endif
