#include "serve/histogram.h"

#include <algorithm>

namespace tarn::server {
namespace {

// Up to it, each time has its own bucket.
constexpr size_t kExact = 100;

// Buckets for each power of ten above it: 11 to 100 times a unit.
constexpr size_t kOfEachUnit = 90;

}  // namespace

uint64_t Histogram::bound(size_t bucket) {
  if (bucket < kExact) return bucket + 1;
  if (bucket == kBuckets - 1) return UINT64_MAX;
  uint64_t unit = 10;
  for (size_t i = bucket - kExact; i >= kOfEachUnit; i -= kOfEachUnit) unit *= 10;
  return unit * ((bucket - kExact) % kOfEachUnit + 11);
}

size_t Histogram::bucketOf(uint64_t time) {
  if (time <= kExact) return time > 0 ? static_cast<size_t>(time) - 1 : 0;
  uint64_t unit = 10;
  for (size_t first = kExact; first < kBuckets - 1; first += kOfEachUnit) {
    if (time <= unit * 100) return first + static_cast<size_t>((time - 1) / unit) - 10;
    unit *= 10;
  }
  return kBuckets - 1;
}

void Histogram::add(uint64_t time) {
  ++counts_[bucketOf(time)];
  sum_ += time;
  longest_ = std::max(longest_, time);
}

void Histogram::add(const Histogram &other) {
  for (size_t i = 0; i < kBuckets; ++i) counts_[i] += other.counts_[i];
  sum_ += other.sum_;
  longest_ = std::max(longest_, other.longest_);
}

uint64_t Histogram::count() const {
  uint64_t count = 0;
  for (const uint64_t of_bucket : counts_) count += of_bucket;
  return count;
}

uint64_t Histogram::countUpTo(uint64_t bound) const {
  uint64_t count = 0;
  for (size_t i = 0; i <= bucketOf(bound); ++i) count += counts_[i];
  return count;
}

uint64_t Histogram::percentile(unsigned of_thousand) const {
  const uint64_t all = count();
  if (all == 0) return 0;
  // Rounded up: at least one.
  uint64_t left = all / 1000 * of_thousand + (all % 1000 * of_thousand + 999) / 1000;
  left = std::max<uint64_t>(left, 1);
  size_t bucket = 0;
  while (left > counts_[bucket]) left -= counts_[bucket++];
  return std::min(bound(bucket), longest_);
}

}  // namespace tarn::server
