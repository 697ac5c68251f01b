/* Sends SIGHUP and SIGUSR1 to a program that has just begun to serve: preloaded, it does so when the
 * program looks up a variable for the first time in tarn_serve(). It does so once, as long as the file
 * that HANGUP names is there. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

char *getenv(const char *name) {
  char *(*real)(const char *);
  const char *file;
  *(void **)&real = dlsym(RTLD_NEXT, "getenv");
  file = real("HANGUP");
  if (file && strcmp(name, "TARN_SERVE_WORKER") == 0 && unlink(file) == 0) {
    raise(SIGHUP);
    raise(SIGUSR1);
  }
  return real(name);
}
