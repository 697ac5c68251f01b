/* Usage: driver ROUNDS BODY [EVERY PROGRAM ANSWER]...
 *
 * Runs ROUNDS rounds, and each PROGRAM in every EVERY-th of them. Its standard input is the file
 * descriptor BODY, rewound to its start, and it has the driver's environment. Prints for each run:
 *
 *   program (counted from 0), wall time in ns from posix_spawn() to wait4(), processor time in us,
 *   largest resident memory in KiB, page faults that needed no disk
 *
 * Stops if a program fails or if its output is not exactly ANSWER.
 *
 * On Linux, the largest memory of a child includes that of the process that spawned it. So this
 * program is small and linked statically.
 */
#define _GNU_SOURCE
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

extern char **environ;

static void check(int holds, const char *what) {
  if (!holds) {
    fprintf(stderr, "driver: %s\n", what);
    exit(1);
  }
}

static long long now(void) {
  struct timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return time.tv_sec * 1000000000LL + time.tv_nsec;
}

static long long microseconds(struct timeval time) {
  return time.tv_sec * 1000000LL + time.tv_usec;
}

static void checkAnswer(int answer, const char *program, const char *expected, int status) {
  static char text[4096];
  const ssize_t length = pread(answer, text, sizeof text, 0);
  check(length >= 0, "cannot read the answer");
  if (status == 0 && (size_t)length == strlen(expected) && !memcmp(text, expected, (size_t)length))
    return;
  fprintf(stderr, "driver: %s ended with status %d and answered\n%.*s\ninstead of\n%s\n", program,
          status, (int)length, text, expected);
  exit(1);
}

int main(int argc, char **argv) {
  check(argc >= 3 && argc % 3 == 0, "wrong number of arguments");
  const int rounds = atoi(argv[1]);
  const int body = atoi(argv[2]);
  const int answer = memfd_create("answer", MFD_CLOEXEC);
  check(answer >= 0, "cannot create a file for the answers");
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, body, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&files, answer, STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&files, body);
  for (int round = 0; round < rounds; round++) {
    for (int program = 0; program < argc / 3 - 1; program++) {
      char **candidate = argv + 3 + 3 * program;
      if (round % atoi(candidate[0]) != 0) continue;
      check(lseek(body, 0, SEEK_SET) == 0, "cannot rewind the body");
      check(ftruncate(answer, 0) == 0 && lseek(answer, 0, SEEK_SET) == 0, "cannot reset the file");
      char *arguments[] = {candidate[1], NULL};
      pid_t pid = 0;
      int status = 0;
      struct rusage usage;
      const long long start = now();
      const int failure = posix_spawn(&pid, candidate[1], &files, NULL, arguments, environ);
      check(failure == 0, "cannot start a program");
      check(wait4(pid, &status, 0, &usage) == pid, "cannot wait for a program");
      const long long wall = now() - start;
      checkAnswer(answer, candidate[1], candidate[2], status);
      printf("%d %lld %lld %ld %ld\n", program, wall,
             microseconds(usage.ru_utime) + microseconds(usage.ru_stime), usage.ru_maxrss,
             usage.ru_minflt);
    }
  }
  return fflush(stdout) == 0 ? 0 : 1;
}
