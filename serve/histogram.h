// How long things took: counts of times, in buckets that grow with the time.
#ifndef TARN_SERVE_HISTOGRAM_H
#define TARN_SERVE_HISTOGRAM_H

#include <cstddef>
#include <cstdint>

namespace tarn::server {

// Times are in microseconds. There is a bucket for each time up to 100, and above it for each number
// of two digits with zeros behind: 110, 120, …, 1000, 1100 and so on, up to 10,000 seconds. A bucket
// has all times above the bound before it, up to its own bound. So a percentile is never too low, and
// less than 10 % too high. All bounds that are usual in monitoring are among them.
//
// The memory of a new object is all zeros, so that it can be in a new file.
class Histogram {
 public:
  // The bound of this bucket. The last one has none: UINT64_MAX.
  static uint64_t bound(size_t bucket);

  // The bucket of a time.
  static size_t bucketOf(uint64_t time);

  static constexpr size_t kBuckets = 100 + 8 * 90 + 1;

  void add(uint64_t time);
  void add(const Histogram &other);

  uint64_t count() const;

  // How many times were up to this one, which must be a bound.
  uint64_t countUpTo(uint64_t bound) const;

  // A time that this many of a thousand did not exceed; 0 without any.
  uint64_t percentile(unsigned of_thousand) const;

  uint64_t sum() const { return sum_; }
  uint64_t longest() const { return longest_; }

 private:
  uint64_t counts_[kBuckets] = {};
  uint64_t sum_ = 0;
  uint64_t longest_ = 0;
};

}  // namespace tarn::server

#endif
