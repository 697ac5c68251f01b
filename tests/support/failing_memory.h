// Ways to run out of memory: after so many bytes, or at one allocation after the other.
#ifndef TARN_TESTS_SUPPORT_FAILING_MEMORY_H
#define TARN_TESTS_SUPPORT_FAILING_MEMORY_H

#include <cstddef>
#include <functional>

namespace tarn_test {

// Runs `action` while malloc() and its like have `spare` bytes to give and no more. The action must
// not allocate: it notes what it sees, and the test looks at its notes afterwards.
void withoutMemory(const std::function<void()> &action, size_t spare = 0);

// Enough for nodes and lists, not for a large text or array.
inline constexpr size_t kLittleMemory = 0x4000;

// What a scenario calls the library through.
class FailingMemory {
 public:
  // Makes one call, alone in the braces: only the library's allocations are to be counted.
  template <class Call>
  auto call(Call theCall) {
    const Counted counted(*this);
    return theCall();
  }

  // Whether an allocation of the last call failed.
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

// Runs a scenario with all its allocations granted, which tells how many there are; then, for each
// of them, with that one refused, and with that one and all later ones refused. Allocations are
// counted through all calls of the scenario, which must make some in each.
void forEachFailingAllocation(const std::function<void(FailingMemory &)> &scenario);

}  // namespace tarn_test

#endif
