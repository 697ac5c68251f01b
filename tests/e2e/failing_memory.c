/* Linked to an example: its malloc(), of which the allocations from number FAIL_FROM to FAIL_TO fail.
 * The first to fail says so by making the file that FAILED names. */
#include <fcntl.h>
#include <stddef.h>
#include <stdlib.h>
#include <unistd.h>

#ifdef TARN_TESTS_SANITIZED
#define REAL(function) __interceptor_##function
#else
#define REAL(function) __libc_##function
#endif
/* The sanitizers allocate before they are ready to check anything. */
#if defined(__clang__) || defined(__GNUC__)
#define UNCHECKED __attribute__((no_sanitize("address", "undefined")))
#endif

void *REAL(malloc)(size_t size);
void *REAL(calloc)(size_t count, size_t size);
void *REAL(realloc)(void *block, size_t size);

UNCHECKED static long number(const char *name) {
  const char *text = getenv(name);
  return text ? atol(text) : 0;
}

UNCHECKED static int grants(void) {
  static long count;
  static int told;
  const char *failed = getenv("FAILED");
  if (!failed || ++count < number("FAIL_FROM") || count > number("FAIL_TO")) return 1;
  if (!told) close(open(failed, O_WRONLY | O_CREAT, 0600));
  told = 1;
  return 0;
}

UNCHECKED void *malloc(size_t size) { return grants() ? REAL(malloc)(size) : NULL; }

UNCHECKED void *calloc(size_t count, size_t size) {
  return grants() ? REAL(calloc)(count, size) : NULL;
}

UNCHECKED void *realloc(void *block, size_t size) {
  return grants() ? REAL(realloc)(block, size) : NULL;
}
