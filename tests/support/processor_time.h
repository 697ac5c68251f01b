// Limits of processor time: a test that loops, or takes more than linear time, ends and fails,
// however busy the machine is. Every test has a limit, and so has every script that it runs.
#ifndef TARN_TESTS_SUPPORT_PROCESSOR_TIME_H
#define TARN_TESTS_SUPPORT_PROCESSOR_TIME_H

#include <cstddef>

namespace tarn_test {

// How many times longer than in a plain build the same work may take: under Valgrind, in an
// emulator, with sanitizers or with coverage counters.
unsigned slowness();

// Whether Valgrind or an emulator translates the machine code.
inline bool isTranslated() { return slowness() > 20; }

// How many rounds a test of random input runs. The first tenth is enough where each takes long: under
// Valgrind, in an emulator and with sanitizers.
inline int roundsInTime(int rounds) { return slowness() > 10 ? rounds / 10 : rounds; }

// From one place to the next, for a test that cuts a body at each: 7 under Valgrind and in an emulator,
// where each takes long and the sanitized build has cut at every one.
inline size_t placesInTime() { return isTranslated() ? 7 : 1; }

// Many times what any input of the tests takes in linear time; in quadratic time, the larger ones
// take longer than this.
inline constexpr unsigned kSecondsInProportion = 3;

// Limits this process to so many seconds from now on, times slowness(); after that it exits and
// fails.
void limitProcessorTime(unsigned seconds = kSecondsInProportion);

// The limit for a script that does not set a lower one, and for each test.
inline constexpr unsigned kSecondsForAnything = 10;

}  // namespace tarn_test

#endif
