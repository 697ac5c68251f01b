/* counter: a hit counter that is safe under concurrent requests. The count is in the file named by
 * TARN_COUNTER_FILE, with FILE.lock and FILE.new beside it: the web server must be able to write
 * their folder and should not serve it. The files never hold more than one number.
 * The script counts GET requests, although a GET should change nothing: a page that acts on what
 * visitors send should do so only for a POST.
 *
 *   cc -std=c99 -o counter counter.c -ltarn_form -ltarn -ltarn_serve
 *
 * with page.h and store.h in the same folder.
 */
#include "store.h"

enum { COUNT_BYTES = 20 }; /* 18 digits, a line end and a zero byte */

/* Returns the count in the file: 0 if there is no file, -1 if it does not contain a count. */
static long long readCount(const char *path) {
  const int file = openRegular(path, O_RDONLY);
  char text[COUNT_BYTES] = "";
  if (file < 0) return errno == ENOENT ? 0 : -1;
  const ssize_t got = read(file, text, sizeof text - 1);
  const size_t digits = strspn(text, "0123456789");
  close(file);
  return got == (ssize_t)digits + 1 && digits > 0 && text[digits] == '\n' ? atoll(text) : -1;
}

/* The new count is on disk before it replaces the old one, so a crash leaves one of the two. */
static int writeCount(const char *path, const char *fresh, long long count) {
  char text[COUNT_BYTES];
  const int length = snprintf(text, sizeof text, "%lld\n", count);
  const int file = length < COUNT_BYTES ? openFresh(fresh) : -1;
  const int whole = file >= 0 && write(file, text, (size_t)length) == length && fsync(file) == 0;
  if (file >= 0) close(file);
  return whole && rename(fresh, path) == 0;
}

/* Adds one to the count under a lock and returns it; -1 on failure. The lock is on a separate file
 * because the file with the count is replaced each time. */
static long long incrementCount(const char *path) {
  char *lock = NULL;
  char *fresh = NULL;
  long long count = -1;
  if (tarn_asprintf(&lock, "%s.lock", path) && tarn_asprintf(&fresh, "%s.new", path)) {
    const int locked = openStore(lock, F_WRLCK);
    if (locked >= 0) {
      count = readCount(path);
      if (count >= 0 && !writeCount(path, fresh, ++count)) count = -1;
      close(locked);
    }
  }
  free(lock);
  free(fresh);
  return count;
}

static int script(void) {
  const char *path = getenv("TARN_COUNTER_FILE");
  const long long count = !path ? -1 : isMethod("HEAD") ? readCount(path) : incrementCount(path);
  printf("Status: %s\n", count < 0 ? "500 Internal Server Error" : "200 OK");
  if (beginPage("Counter")) {
    if (!path) {
      showProblem("TARN_COUNTER_FILE is not set, so visitors cannot be counted.");
    } else if (count < 0) {
      showProblem("The count could not be saved.");
    } else {
      printf("<p>You are visitor number <strong>%lld</strong>.</p>\n", count);
    }
    endPage();
  }
  return endResponse();
}

int main(void) { return tarn_serve(script); }
