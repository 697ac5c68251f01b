// System calls that fail, or before which the process is killed. The test programs have their own
// functions for everything that the form reader asks of files, besides those in support/pieces.h.
#ifndef TARN_TESTS_SUPPORT_FAILING_CALLS_H
#define TARN_TESTS_SUPPORT_FAILING_CALLS_H

#include <cstddef>
#include <cstdint>

namespace tarn_test {

// What the file system can do.
enum class Can {
  kEverything,
  kNoFileWithoutAName,  // no O_TMPFILE
  kNoRename,            // neither that nor renameat2()
  kNoProc,              // /proc is not mounted
};

struct Calls {
  Can can = Can::kEverything;
  size_t first_failing = SIZE_MAX;
  size_t last_failing = SIZE_MAX;
  const char *only = nullptr;  // the name of the calls that fail; null for all
  size_t spared = 0;           // how many of those succeed before
  size_t most_failures = SIZE_MAX;
  int error = 0;                   // the errno value of calls that fail; 0 kills the process
  size_t most_written = SIZE_MAX;  // by one call

  bool watched = false;
  size_t count = 0;
  const char *failed = "none";  // the name of the last call that failed

  // Counts a call, and says whether it fails.
  bool fail(const char *name);
};

extern Calls calls;

// Runs an action whose calls are counted, and fail where they should. Returns its result.
template <class Action>
auto watchCalls(const Action &action) {
  struct Watch {
    Watch() { calls.watched = true; }
    ~Watch() { calls.watched = false; }
  } watch;
  return action();
}

}  // namespace tarn_test

#endif
