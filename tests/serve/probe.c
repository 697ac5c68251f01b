/* A script that does what its query string says: commands such as "header&text=Hello&exit=3", done
 * in order. */
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <tarn_serve.h>
#include <time.h>
#include <unistd.h>

#include "scan.h"

extern char **environ;

/* Tests change the digits in copies of this program. */
static volatile const char changed[] = "VERSION:00000000";

static const char *version(void) {
  static char copy[sizeof changed];
  for (size_t i = 0; i < sizeof copy; ++i) copy[i] = changed[i];
  return copy;
}

static void die(const char *what) {
  perror(what);
  exit(99);
}

static void pause_for(long milliseconds) {
  struct timespec left;
  left.tv_sec = milliseconds / 1000;
  left.tv_nsec = milliseconds % 1000 * 1000000;
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

/* Adds a line to the file that NOTES names. */
static void note(const char *word, long number) {
  const char *path = getenv("NOTES");
  int file = path ? open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666) : -1;
  if (file < 0 || dprintf(file, "%s %ld\n", word, number) < 0) die("NOTES");
  close(file);
}

static void copy_file(const char *path) {
  char block[4096];
  size_t size;
  FILE *file = fopen(path, "r");
  if (!file) die(path);
  while ((size = fread(block, 1, sizeof block, file)) > 0) fwrite(block, 1, size, stdout);
  fclose(file);
}

/* The same bytes as pattern() in fastcgi.py. */
static void write_pattern(int file, unsigned long size, unsigned long seed) {
  char block[4096];
  unsigned long i = 0;
  fflush(stdout);
  while (i < size) {
    size_t count = 0;
    size_t done = 0;
    for (; count < sizeof block && i < size; ++i, ++count) {
      block[count] = (char)('a' + (i * 7 + seed) % 26);
    }
    while (done < count) {
      const ssize_t written = write(file, block + done, count - done);
      if (written < 0) exit(98);
      done += (size_t)written;
    }
  }
}

static void copy_body(int echo) {
  char block[65536];
  size_t size;
  unsigned long total = 0;
  while ((size = fread(block, 1, sizeof block, stdin)) > 0) {
    total += size;
    if (echo) fwrite(block, 1, size, stdout);
  }
  if (!echo) printf("%lu\n", total);
}

static void list_descriptors(void) {
  int file;
  for (file = 0; file < 1024; ++file) {
    const int flags = fcntl(file, F_GETFL);
    if (flags >= 0) printf("%d%s\n", file, flags & O_NONBLOCK ? " nonblocking" : "");
  }
}

static void print_limits(void) {
  const int kinds[] = {RLIMIT_CPU, RLIMIT_AS, RLIMIT_NOFILE, RLIMIT_NPROC};
  size_t i;
  for (i = 0; i < sizeof kinds / sizeof *kinds; ++i) {
    struct rlimit limits;
    getrlimit((unsigned)kinds[i], &limits);
    printf("%lld\n", (long long)limits.rlim_cur);
  }
}

/* Leaves a process behind that keeps the output open. */
static void leave_process(long milliseconds, int ignores_signals) {
  fflush(NULL);
  if (fork() != 0) return;
  if (ignores_signals) signal(SIGTERM, SIG_IGN);
  note("left", getpid());
  pause_for(milliseconds);
  _exit(0);
}

/* Tries to change the body. */
static void scribble(void) { printf("%d\n", write(0, "x", 1) < 0 && ftruncate(0, 0) != 0); }

static void burn(void) {
  volatile unsigned long i = 0;
  for (;;) ++i;
}

/* What a script sees of a limit: the error, or that all went well. */
static void report(int worked) { puts(worked ? "fine" : strerror(errno)); }

static void allocate(unsigned long size) {
  char *volatile memory = malloc(size); /* or compilers leave it out */
  if (memory) memset(memory, 1, size);
  report(memory != NULL);
  free(memory);
}

static void open_files(long count) {
  int files[64];
  int opened = 0;
  while (opened < count && opened < 64 && (files[opened] = open("/dev/null", O_RDONLY)) >= 0) {
    ++opened;
  }
  printf("%d ", opened);
  report(opened == count);
  while (opened > 0) close(files[--opened]);
}

static void fork_once(void) {
  pid_t child;
  fflush(NULL);
  child = fork();
  if (child == 0) _exit(0);
  report(child > 0);
  if (child > 0) waitpid(child, NULL, 0);
}

static void note_signal(int number) { note("told", number); }

static void run(const char *command, const char *value) {
  const long number = strtol(value, NULL, 10);
  char **entry;
  if (!strcmp(command, "header")) {
    fputs("Content-Type: text/plain\r\n\r\n", stdout);
  } else if (!strcmp(command, "length")) {
    printf("Content-Type: text/plain\r\nContent-Length: %s\r\n\r\n", value);
  } else if (!strcmp(command, "line")) {
    puts(value);
  } else if (!strcmp(command, "text")) {
    fputs(value, stdout);
  } else if (!strcmp(command, "version")) {
    for (entry = NULL, command = version(); *command; ++command) putchar(*command);
  } else if (!strcmp(command, "env")) {
    for (entry = environ; *entry; ++entry) puts(*entry);
  } else if (!strcmp(command, "body")) {
    copy_body(1);
  } else if (!strcmp(command, "size")) {
    copy_body(0);
  } else if (!strcmp(command, "write")) {
    write_pattern(1, strtoul(value, NULL, 10), 0);
  } else if (!strcmp(command, "seeded")) { /* seeded=SEED:SIZE */
    write_pattern(1, strtoul(strchr(value, ':') + 1, NULL, 10), (unsigned long)number);
  } else if (!strcmp(command, "complain")) {
    write_pattern(2, strtoul(value, NULL, 10), 0);
  } else if (!strcmp(command, "error")) {
    fprintf(stderr, "%s\n", value);
  } else if (!strcmp(command, "flush")) {
    fflush(stdout);
  } else if (!strcmp(command, "full")) { /* from here on, nothing can be written */
    fflush(stdout);
    dup2(open("/dev/full", O_WRONLY), 1);
  } else if (!strcmp(command, "close")) {
    fclose(stdout);
  } else if (!strcmp(command, "sleep")) {
    fflush(stdout);
    pause_for(number);
  } else if (!strcmp(command, "note")) {
    note(value, getpid());
  } else if (!strcmp(command, "leave")) {
    leave_process(number, 0);
  } else if (!strcmp(command, "stubborn")) {
    leave_process(number, 1);
  } else if (!strcmp(command, "ignore")) {
    signal(SIGTERM, SIG_IGN);
  } else if (!strcmp(command, "catch")) { /* notes SIGTERM, and goes on */
    signal(SIGTERM, note_signal);
  } else if (!strcmp(command, "descriptors")) {
    list_descriptors();
  } else if (!strcmp(command, "status")) {
    copy_file("/proc/self/status");
  } else if (!strcmp(command, "limits")) {
    print_limits();
  } else if (!strcmp(command, "allocate")) {
    allocate(strtoul(value, NULL, 10));
  } else if (!strcmp(command, "open")) {
    open_files(number);
  } else if (!strcmp(command, "fork")) {
    fork_once();
  } else if (!strcmp(command, "group")) {
    printf("%d\n", getpgrp() == getpid());
  } else if (!strcmp(command, "parent")) {
    printf("%d\n", (int)getppid());
  } else if (!strcmp(command, "scribble")) {
    scribble();
  } else if (!strcmp(command, "scan")) {
    scan_memory(value);
  } else if (!strcmp(command, "burn")) {
    burn();
  } else if (!strcmp(command, "signal")) {
    raise((int)number);
  } else if (!strcmp(command, "exit")) {
    exit((int)number);
  } else {
    fprintf(stderr, "probe: no command %s\n", command);
    exit(97);
  }
}

static int script(void) {
  char commands[4096];
  char *rest = commands;
  const char *query = getenv("QUERY_STRING");
  snprintf(commands, sizeof commands, "%s", query ? query : "");
  while (rest && *rest) {
    char *command = rest;
    char *value;
    rest = strchr(rest, '&');
    if (rest) *rest++ = '\0';
    value = strchr(command, '=');
    if (value) *value++ = '\0';
    run(command, value ? value : "");
  }
  return 0;
}

/* A child that does not get to run: it still has everything that its parent has open. */
static void wait_while_held(void) {
  while (access(getenv("HOLD"), F_OK) == 0) pause_for(5);
}

static int prepare(void) {
  const char *what = getenv("PREPARE");
  char text[16] = "";
  if (*what == '@') { /* the word is in a file */
    FILE *file = fopen(what + 1, "r");
    if (!file || fscanf(file, "%15s", text) != 1) die(what + 1);
    fclose(file);
    what = text;
  }
  fputs("prepared\n", stdout);
  if (!strcmp(what, "open")) {
    /* At a number of its own, to tell it from others. */
    if (dup2(open("/dev/null", O_RDONLY), 100) < 0) return 1;
  } else if (!strcmp(what, "hold")) {
    return pthread_atfork(NULL, NULL, wait_while_held);
  } else if (!strcmp(what, "crash")) {
    abort();
  } else if (!strcmp(what, "wait")) {
    note("preparing", getpid());
    pause_for(600000);
  } else if (!strcmp(what, "read")) {
    if (fgets(text, sizeof text, stdin)) return 2;
  } else if (strcmp(what, "nothing") != 0) {
    return atoi(what);
  }
  return 0;
}

static void unused(int number) { (void)number; }

/* Versions that are no service, and do nothing. One closes its files first. */
static void be_useless(void) {
  int file;
  const int closes = strcmp(version(), "VERSION:66666666") == 0;
  if (!closes && strcmp(version(), "VERSION:55555555") != 0) return;
  for (file = 0; closes && file < 1024; ++file) close(file);
  for (;;) pause();
}

int main(int count, char **arguments) {
  be_useless();
  if (getenv("HANDLERS")) {
    signal(SIGUSR1, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGALRM, unused);
  }
  if (getenv("CLOSE_STANDARD")) {
    close(0);
    close(1);
    close(2);
  }
  if (getenv("PREPARE")) tarn_serve_prepare(prepare);
  (void)count;
  (void)arguments;
  return tarn_serve(script);
}
