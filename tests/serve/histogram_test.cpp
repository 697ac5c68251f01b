// Percentiles and counts of times, against the times themselves.
#include "serve/histogram.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <memory>
#include <random>
#include <vector>

#include "serve/date.h"

namespace {

using namespace tarn::server;

constexpr unsigned kPercentiles[] = {1, 500, 900, 950, 990, 999, 1000};

// Times of all sizes, from microseconds to days.
std::vector<uint64_t> someTimes(size_t count, unsigned seed) {
  std::mt19937_64 random(seed);
  std::vector<uint64_t> times(count);
  for (uint64_t &time : times) time = random() >> (27 + random() % 37);
  return times;
}

std::unique_ptr<Histogram> histogramOf(const std::vector<uint64_t> &times) {
  auto histogram = std::make_unique<Histogram>();
  for (const uint64_t time : times) histogram->add(time);
  return histogram;
}

TEST(Histogram, HasBucketsWithoutGaps) {
  EXPECT_EQ(Histogram::bucketOf(0), 0U);
  uint64_t before = 0;
  for (size_t i = 0; i + 1 < Histogram::kBuckets; ++i) {
    const uint64_t bound = Histogram::bound(i);
    ASSERT_GT(bound, before);
    ASSERT_EQ(Histogram::bucketOf(before + 1), i);
    ASSERT_EQ(Histogram::bucketOf(bound), i);
    // Two digits and zeros: less than 10 % above all times in it.
    ASSERT_LE((bound - before - 1) * 10, before) << bound;
    ASSERT_TRUE(bound > 100 || bound == before + 1) << bound;
    before = bound;
  }
  EXPECT_EQ(before, 10000000000U);
  EXPECT_EQ(Histogram::bucketOf(before + 1), Histogram::kBuckets - 1);
  EXPECT_EQ(Histogram::bucketOf(UINT64_MAX), Histogram::kBuckets - 1);
  EXPECT_EQ(Histogram::bound(Histogram::kBuckets - 1), UINT64_MAX);
}

TEST(Histogram, HasThePercentilesOfTheTimes) {
  for (const size_t count : {1, 2, 3, 19, 20, 21, 100, 999, 1001, 5000}) {
    std::vector<uint64_t> times = someTimes(count, static_cast<unsigned>(count));
    const auto histogram = histogramOf(times);
    std::sort(times.begin(), times.end());
    EXPECT_EQ(histogram->count(), count);
    EXPECT_EQ(histogram->longest(), times.back());
    for (const unsigned of_thousand : kPercentiles) {
      const size_t rank = std::max<size_t>((count * of_thousand + 999) / 1000, 1);
      const uint64_t exact = times[rank - 1];
      const uint64_t seen = histogram->percentile(of_thousand);
      EXPECT_GE(seen, exact) << of_thousand << " of " << count;
      // Above the last bound, only the longest time is known.
      if (exact > 10000000000U) continue;
      EXPECT_LE(seen - exact, std::max<uint64_t>(exact / 10, exact == 0))
          << of_thousand << " of " << count;
    }
  }
}

TEST(Histogram, KnowsWhatItContains) {
  const std::vector<uint64_t> times = someTimes(3000, 7);
  const auto histogram = histogramOf(times);
  for (size_t i = 0; i < Histogram::kBuckets; ++i) {
    const uint64_t bound = Histogram::bound(i);
    const auto count =
        std::count_if(times.begin(), times.end(), [&](uint64_t time) { return time <= bound; });
    ASSERT_EQ(histogram->countUpTo(bound), static_cast<uint64_t>(count)) << bound;
  }
}

TEST(Histogram, OfNothingIsZero) {
  const Histogram nothing;
  EXPECT_EQ(nothing.count(), 0U);
  EXPECT_EQ(nothing.sum(), 0U);
  for (const unsigned of_thousand : kPercentiles) EXPECT_EQ(nothing.percentile(of_thousand), 0U);
}

TEST(Histogram, OfEqualTimesHasThatTime) {
  for (const uint64_t time : {0U, 1U, 101U, 123456U}) {
    const auto histogram = histogramOf({time, time, time});
    for (const unsigned of_thousand : kPercentiles) {
      EXPECT_EQ(histogram->percentile(of_thousand), time);
    }
    EXPECT_EQ(histogram->sum(), 3 * time);
  }
}

TEST(Histogram, OfTwoIsThatOfAllTimes) {
  std::vector<uint64_t> all = someTimes(500, 1);
  const std::vector<uint64_t> more = someTimes(700, 2);
  const auto sum = histogramOf(all);
  sum->add(*histogramOf(more));
  all.insert(all.end(), more.begin(), more.end());
  const auto whole = histogramOf(all);
  for (size_t i = 0; i < Histogram::kBuckets; ++i) {
    ASSERT_EQ(sum->countUpTo(Histogram::bound(i)), whole->countUpTo(Histogram::bound(i)));
  }
  EXPECT_EQ(sum->sum(), whole->sum());
  EXPECT_EQ(sum->longest(), whole->longest());
}

TEST(Date, IsThatOfTheCLibrary) {
  std::mt19937_64 random(3);
  std::vector<uint64_t> times = {0, 59, 86399, 86400, 951782400, 951868799, 4107542400, 4102444799};
  for (int i = 0; i < 20000; ++i) times.push_back(random() % 32000000000);
  for (const uint64_t time : times) {
    const auto seconds = static_cast<time_t>(time);
    if (static_cast<uint64_t>(seconds) != time) continue;
    tm expected = {};
    gmtime_r(&seconds, &expected);
    const Date date = dateOf(time);
    ASSERT_EQ(static_cast<int>(date.year), expected.tm_year + 1900) << time;
    ASSERT_EQ(static_cast<int>(date.month), expected.tm_mon + 1) << time;
    ASSERT_EQ(static_cast<int>(date.day), expected.tm_mday) << time;
    ASSERT_EQ(static_cast<int>(date.hour), expected.tm_hour) << time;
    ASSERT_EQ(static_cast<int>(date.minute), expected.tm_min) << time;
    ASSERT_EQ(static_cast<int>(date.second), expected.tm_sec) << time;
  }
}

}  // namespace
