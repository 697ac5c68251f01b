// Tests of the time limit that all tests have.
#include "support/processor_time.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdlib>

namespace tarn_test {
namespace {

[[noreturn]] void loop() {
  volatile bool goesOn = true;
  while (goesOn) continue;
  std::abort();
}

TEST(ProcessorTimeDeathTest, EndsATestThatLoops) {
  const auto loopUnderTheLimit = [] {
    limitProcessorTime(0);
    loop();
  };
  EXPECT_EXIT(loopUnderTheLimit(), testing::ExitedWithCode(EXIT_FAILURE),
              "exceeded its processor time");
}

TEST(ProcessorTime, IsLimitedInEveryTest) {
  rlimit limit{};
  EXPECT_EQ(0, getrlimit(RLIMIT_CPU, &limit));
  rusage used{};
  EXPECT_EQ(0, getrusage(RUSAGE_SELF, &used));
  EXPECT_LE(limit.rlim_cur, static_cast<rlim_t>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) + 1 +
                                kSecondsForAnything * slowness());
}

}  // namespace
}  // namespace tarn_test
