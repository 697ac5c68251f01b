// Limits of processor time: what loops, or works out of proportion to its input, ends and fails its
// test, however busy the machine is. Every test has one, and so has every script that it runs.
#ifndef TARN_TESTS_SUPPORT_PROCESSOR_TIME_H
#define TARN_TESTS_SUPPORT_PROCESSOR_TIME_H

namespace tarn_test {

// How much longer than in a plain build the same work may take here: under Valgrind, in an emulator,
// with sanitizers or with coverage counters.
unsigned slowness();

// Many times what any input of the tests takes when the work grows in proportion to it; with the
// square of it, the larger ones take longer.
inline constexpr unsigned kSecondsInProportion = 3;

// From now on this process has so many seconds, times slowness(), before it ends as failed.
void limitProcessorTime(unsigned seconds = kSecondsInProportion);

// What a script has that is not limited any further. Each test has it too.
inline constexpr unsigned kSecondsForAnything = 10;

}  // namespace tarn_test

#endif
