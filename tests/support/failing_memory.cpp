// The test programs' malloc(), which the library and the C library use too. Under the sanitizers it
// calls theirs.
#include "support/failing_memory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>

#include "support/handles.h"

// The sanitizers allocate memory before they are initialised.
#define TARN_UNCHECKED __attribute__((no_sanitize("address", "undefined")))

#ifdef TARN_TESTS_SANITIZED
#define TARN_REAL(function) __interceptor_##function
#else
#define TARN_REAL(function) __libc_##function
#endif

namespace {

bool limited = false;
size_t left = 0;

bool counting = false;
size_t counted = 0;
size_t firstRefused = SIZE_MAX;
size_t lastRefused = SIZE_MAX;

TARN_UNCHECKED bool grants(size_t size) {
  if (counting) {
    ++counted;
    return counted < firstRefused || counted > lastRefused;
  }
  if (!limited) return true;
  if (size > left) return false;
  left -= size;
  return true;
}

}  // namespace

namespace tarn_test {

bool grantsMemory(size_t size) { return grants(size); }

void withoutMemory(const std::function<void()> &action, size_t spare) {
  left = spare;
  limited = true;
  action();
  limited = false;
}

FailingMemory::Counted::Counted(FailingMemory &theMemory) : memory(theMemory) {
  memory.before_ = counted;
  counting = true;
}

FailingMemory::Counted::~Counted() {
  counting = false;
  memory.failed_ = counted >= firstRefused && memory.before_ < lastRefused;
  EXPECT_TRUE(firstRefused != SIZE_MAX || memory.before_ < counted)
      << "this call allocates nothing";
}

void forEachFailingAllocation(const std::function<void(FailingMemory &)> &scenario) {
  const auto run = [&](size_t first, size_t last) {
    firstRefused = first;
    lastRefused = last;
    counted = 0;
    FailingMemory memory;
    scenario(memory);
    EXPECT_LE(first == SIZE_MAX ? 1 : first, counted) << "no allocation was refused";
    firstRefused = lastRefused = SIZE_MAX;
    return counted;
  };
  // The C library allocates some things once in a process, such as the time zone. The first run does
  // that, whichever tests ran before, and the second one counts.
  run(SIZE_MAX, SIZE_MAX);
  const size_t all = run(SIZE_MAX, SIZE_MAX);
  for (size_t n = 1; n <= all && !testing::Test::HasFatalFailure(); ++n) {
    const std::string which = "allocation " + std::to_string(n) + " of " + std::to_string(all);
    SCOPED_TRACE(which + " fails");
    run(n, n);
    SCOPED_TRACE("and all after it");
    run(n, SIZE_MAX);
  }
}

}  // namespace tarn_test

extern "C" {

#ifdef TARN_TESTS_SANITIZED
// Larger blocks are refused, as if memory were short, instead of aborting the test.
const char *__asan_default_options();
const char *__asan_default_options() {
  return "allocator_may_return_null=1:max_allocation_size_mb=1536";
}
#endif

void *TARN_REAL(malloc)(size_t size);
void *TARN_REAL(calloc)(size_t count, size_t size);
void *TARN_REAL(realloc)(void *block, size_t size);

TARN_UNCHECKED void *malloc(size_t size) {
  return grants(size) ? TARN_REAL(malloc)(size) : nullptr;
}

TARN_UNCHECKED void *calloc(size_t count, size_t size) {
  size_t all = 0;
  if (__builtin_mul_overflow(count, size, &all)) return nullptr;
  return grants(all) ? TARN_REAL(calloc)(count, size) : nullptr;
}

TARN_UNCHECKED void *realloc(void *block, size_t size) {
  return grants(size) ? TARN_REAL(realloc)(block, size) : nullptr;
}
}
