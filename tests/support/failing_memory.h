// Simulates running out of memory: after a number of bytes, or at each allocation in turn.
#ifndef TARN_TESTS_SUPPORT_FAILING_MEMORY_H
#define TARN_TESTS_SUPPORT_FAILING_MEMORY_H

#include <cstddef>
#include <functional>

namespace tarn_test {

// Runs `action` while malloc() and similar functions can allocate only `spare` bytes. The action
// must not use expectations, which allocate: it stores results for the test to check afterwards.
void withoutMemory(const std::function<void()> &action, size_t spare = 0);

// Enough for nodes and lists, not for a large text or array.
inline constexpr size_t kLittleMemory = 0x4000;

// Counts an allocation that does not use malloc(), and says whether it succeeds.
bool grantsMemory(size_t size);

// The errno value with which a call through syscall() fails, 0 if it does not. Null: no call fails,
// apart from mappings without memory. Programs with failing_mappings.cpp have it.
extern int (*errorOfCall)(long number);

// A scenario makes its calls to the library through this.
class FailingMemory {
 public:
  // Makes one call. The lambda must contain nothing else, so that only the library's allocations
  // are counted.
  template <class Call>
  auto call(Call theCall) {
    const Counted counted(*this);
    return theCall();
  }

  // True if an allocation failed in the last call.
  bool failed() const { return failed_; }

 private:
  friend void forEachFailingAllocation(const std::function<void(FailingMemory &)> &);

  struct Counted {
    explicit Counted(FailingMemory &memory);
    ~Counted();
    Counted(const Counted &) = delete;
    Counted &operator=(const Counted &) = delete;
    FailingMemory &memory;
  };

  size_t before_ = 0;
  bool failed_ = false;
};

// Runs a scenario once to count its allocations. Then, for each of them, runs it with only that one
// failing, and with that one and all later ones failing. Allocations are counted across all calls
// of the scenario; each call must make some.
void forEachFailingAllocation(const std::function<void(FailingMemory &)> &scenario);

}  // namespace tarn_test

#endif
