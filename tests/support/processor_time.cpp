#include "support/processor_time.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>

#include "support/handles.h"

namespace tarn_test {
namespace {

// Valgrind loads its own library into every program that it runs.
bool underValgrind() {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find("/vgpreload_") != std::string::npos) return true;
  }
  return false;
}

unsigned measuredSlowness() {
  if (kSanitized) return 15;
#ifdef TARN_TESTS_EMULATED
  return 40;
#endif
  if (underValgrind()) return 60;
#ifdef TARN_TESTS_COUNTED
  return 4;
#endif
  return 1;
}

const unsigned theSlowness = measuredSlowness();

void endWithoutTime(int) {
  constexpr char kMessage[] = "The test exceeded its processor time.\n";
  (void)!write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
  _exit(EXIT_FAILURE);
}

class EachTest : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo &) override { limitProcessorTime(kSecondsForAnything); }
};

// Linking this file into a program sets the limit.
const bool eachTestIsLimited = [] {
  testing::UnitTest::GetInstance()->listeners().Append(new EachTest);
  return true;
}();

}  // namespace

unsigned slowness() { return theSlowness; }

void limitProcessorTime(unsigned seconds) {
  rusage used{};
  rlimit limit{};
  EXPECT_EQ(0, getrusage(RUSAGE_SELF, &used));
  EXPECT_EQ(0, getrlimit(RLIMIT_CPU, &limit));
  // Only whole seconds are counted, so add the current one.
  const auto spent = static_cast<rlim_t>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) + 1;
  limit.rlim_cur = std::min(limit.rlim_max, spent + rlim_t{seconds} * slowness());
  std::signal(SIGXCPU, endWithoutTime);
  EXPECT_EQ(0, setrlimit(RLIMIT_CPU, &limit));
}

}  // namespace tarn_test
