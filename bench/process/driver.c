/* Usage: driver ROUNDS BODY [EVERY PROGRAM ANSWER]...
 *
 * Runs ROUNDS rounds, each in another order, and each PROGRAM in every EVERY-th of them. The orders are
 * the same whenever the driver runs. PROGRAM is a path and arguments, separated by line ends. Its
 * standard input is the file descriptor BODY, rewound to its start; if PROGRAM begins with "|", it is a
 * pipe into which another process copies BODY, as a server does. It has the driver's environment.
 * Before each run the file "saved" in the folder FOLDER is removed, if that variable is set. Prints for
 * each run:
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
#include <fcntl.h>
#include <limits.h>
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
  static char text[128 * 1024];
  const ssize_t length = pread(answer, text, sizeof text, 0);
  check(length >= 0, "cannot read the answer");
  if (status == 0 && (size_t)length == strlen(expected) && !memcmp(text, expected, (size_t)length))
    return;
  fprintf(stderr, "driver: %s ended with status %d and answered\n%.*s\ninstead of\n%s\n", program,
          status, (int)length, text, expected);
  exit(1);
}

/* Starts a process that copies a file into a pipe. Returns the end to read from. */
static int startSender(int body, pid_t *sender) {
  static char block[64 * 1024];
  int ends[2];
  check(pipe2(ends, O_CLOEXEC) == 0, "cannot create a pipe");
  *sender = fork();
  check(*sender >= 0, "cannot start a process");
  if (*sender > 0) {
    close(ends[1]);
    return ends[0];
  }
  close(ends[0]);
  off_t sent = 0;
  ssize_t count;
  while ((count = pread(body, block, sizeof block, sent)) > 0) {
    for (ssize_t done = 0, written; done < count; done += written) {
      written = write(ends[1], block + done, (size_t)(count - done));
      if (written < 0) _exit(1);
    }
    sent += count;
  }
  _exit(count == 0 ? 0 : 1);
}

/* Splits a command at its line ends. */
static void split(char *command, char **arguments, int most) {
  char *rest = command;
  char *word;
  while ((word = strsep(&rest, "\n")) != NULL && most > 1) {
    *arguments++ = word;
    --most;
  }
  check(word == NULL, "too many arguments");
  *arguments = NULL;
}

static void removeSaved(void) {
  char path[PATH_MAX];
  const char *folder = getenv("FOLDER");
  if (!folder) return;
  snprintf(path, sizeof path, "%s/saved", folder);
  unlink(path);
}

struct Run {
  long long wall;
  struct rusage usage;
};

/* Runs a command. `body` and `answer` are its standard input and output. */
static struct Run measure(const char *command, int body, int answer, const char *expected) {
  static char words[4 * PATH_MAX];
  char *arguments[16];
  const int piped = *command == '|';
  pid_t sender = 0;
  pid_t pid = 0;
  int status = 0;
  struct Run run;
  check(strlen(command) < sizeof words, "a command is too long");
  split(strcpy(words, command + piped), arguments, 16);
  check(lseek(body, 0, SEEK_SET) == 0, "cannot rewind the body");
  check(ftruncate(answer, 0) == 0 && lseek(answer, 0, SEEK_SET) == 0, "cannot reset the file");
  removeSaved();
  const int input = piped ? startSender(body, &sender) : body;
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&files, answer, STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&files, body);
  const long long start = now();
  const int failure = posix_spawn(&pid, arguments[0], &files, NULL, arguments, environ);
  check(failure == 0, "cannot start a program");
  if (piped) close(input);
  check(wait4(pid, &status, 0, &run.usage) == pid, "cannot wait for a program");
  run.wall = now() - start;
  posix_spawn_file_actions_destroy(&files);
  checkAnswer(answer, command, expected, status);
  if (piped) check(waitpid(sender, &status, 0) == sender && status == 0, "sending failed");
  return run;
}

// Puts the candidates into another order. Which of them runs before it decides what a program finds in
// the processor's caches, so none may always come after the same one.
static void shuffle(int *order, int count) {
  for (int i = count - 1; i > 0; i--) {
    const int other = rand() % (i + 1);
    const int kept = order[i];
    order[i] = order[other];
    order[other] = kept;
  }
}

int main(int argc, char **argv) {
  int order[64];
  const int candidates = argc / 3 - 1;
  check(argc >= 3 && argc % 3 == 0 && candidates <= 64, "wrong number of arguments");
  const int rounds = atoi(argv[1]);
  const int body = atoi(argv[2]);
  const int answer = memfd_create("answer", MFD_CLOEXEC);
  check(answer >= 0, "cannot create a file for the answers");
  for (int i = 0; i < candidates; i++) order[i] = i;
  for (int round = 0; round < rounds; round++) {
    shuffle(order, candidates);
    for (int i = 0; i < candidates; i++) {
      const int program = order[i];
      char **candidate = argv + 3 + 3 * program;
      if (round % atoi(candidate[0]) != 0) continue;
      const struct Run run = measure(candidate[1], body, answer, candidate[2]);
      const struct rusage *usage = &run.usage;
      printf("%d %lld %lld %ld %ld\n", program, run.wall,
             microseconds(usage->ru_utime) + microseconds(usage->ru_stime), usage->ru_maxrss,
             usage->ru_minflt);
    }
  }
  return fflush(stdout) == 0 ? 0 : 1;
}
