#include "serve/figures.h"

#include <sched.h>

#include <cstring>

namespace tarn::server {
namespace {

// A change takes less than a microsecond, unless the worker is stopped within it or has died.
constexpr int kAttempts = 100;

}  // namespace

void Counters::add(const Counters &other) {
  begun += other.begun;
  for (size_t i = 0; i < kFailures; ++i) ended[i] += other.ended[i];
  for (size_t i = 0; i < kClasses; ++i) answers[i] += other.answers[i];
  connections += other.connections;
  not_fastcgi += other.not_fastcgi;
  received_bytes += other.received_bytes;
  sent_bytes += other.sent_bytes;
  lost_lines += other.lost_lines;
  times.add(other.times);
  waits.add(other.waits);
}

uint64_t Counters::endedInAll() const {
  uint64_t count = 0;
  for (const uint64_t of_kind : ended) count += of_kind;
  return count;
}

// While one worker follows another, the limits of both hold.
void Gauges::add(const Gauges &other) {
  idle += other.idle;
  receiving += other.receiving;
  waiting += other.waiting;
  running += other.running;
  ending += other.ending;
  most_connections += other.most_connections;
  most_waiting += other.most_waiting;
  most_running += other.most_running;
}

bool Figures::read(Counters &counters, Gauges &gauges) const {
  if (layout_.load(std::memory_order_acquire) != kLayout) return false;
  for (int i = 0; i < kAttempts; ++i) {
    const uint32_t before = version_.load(std::memory_order_acquire);
    std::memcpy(static_cast<void *>(&counters), &counters_, sizeof counters);
    std::memcpy(static_cast<void *>(&gauges), &gauges_, sizeof gauges);
    std::atomic_thread_fence(std::memory_order_acquire);
    if (before % 2 == 0 && version_.load(std::memory_order_relaxed) == before) break;
    sched_yield();
  }
  return true;
}

}  // namespace tarn::server
