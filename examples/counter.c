/* counter: tells each visitor which number they are. The count stands in the file that
 * TARN_COUNTER_FILE names, with FILE.lock and FILE.new beside it: the web server must be able to
 * write their folder, and should not serve it.
 *
 *   cc -std=c99 -o counter counter.c -ltarn       (with page.h beside it)
 */
#include "page.h"

#include <errno.h>

/* The count that stands in the file: 0 when there is none, -1 when it is no count. */
static long long readCount(const char *path) {
  FILE *in = fopen(path, "r");
  long long count = -1;
  char end = 0;
  if (!in) return errno == ENOENT ? 0 : -1;
  if (fscanf(in, "%18lld%c", &count, &end) != 2 || end != '\n') count = -1;
  fclose(in);
  return count;
}

/* The new count is whole on the disk before it takes the place of the old one: a crash leaves the
 * one or the other. */
static int writeCount(const char *path, const char *fresh, long long count) {
  FILE *out = fopen(fresh, "w");
  return out && closeWritten(out, fprintf(out, "%lld\n", count) > 0) && rename(fresh, path) == 0;
}

/* Counts one more, with nobody else between reading and writing; -1 when it cannot. The lock is on
 * a file of its own, since the file of the count is another one each time. */
static long long countOn(const char *path) {
  char *lock = NULL;
  char *fresh = NULL;
  long long count = -1;
  if (tarn_asprintf(&lock, "%s.lock", path) && tarn_asprintf(&fresh, "%s.new", path)) {
    FILE *locked = openLines(lock, F_WRLCK);
    if (locked) {
      count = readCount(path);
      if (count >= 0 && !writeCount(path, fresh, ++count)) count = -1;
      fclose(locked);
    }
  }
  free(lock);
  free(fresh);
  return count;
}

int main(void) {
  const char *path = getenv("TARN_COUNTER_FILE");
  const long long count = !path ? -1 : isMethod("HEAD") ? readCount(path) : countOn(path);
  printf("Status: %s\n", count < 0 ? "500 Internal Server Error" : "200 OK");
  if (beginPage("Counter")) {
    if (!path) {
      showProblem("TARN_COUNTER_FILE does not say where the count is.");
    } else if (count < 0) {
      showProblem("The count cannot be kept.");
    } else {
      printf("<p>You are visitor number <strong>%lld</strong>.</p>\n", count);
    }
    endPage();
  }
  return fflush(stdout) == 0 ? 0 : 1;
}
