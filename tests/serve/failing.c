/* Makes a system call fail: preloaded, it reads the name of the call and an error number from the file
 * that FAILING names, whenever one of these functions is called. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

static int fails(const char *name) {
  char text[64];
  char *space;
  ssize_t size;
  const char *path = getenv("FAILING");
  const int file = path ? open(path, O_RDONLY | O_CLOEXEC) : -1;
  if (file < 0) return 0;
  size = syscall(SYS_read, file, text, sizeof text - 1);
  close(file);
  if (size <= 0) return 0;
  text[size] = '\0';
  space = strchr(text, ' ');
  if (!space || (size_t)(space - text) != strlen(name) || strncmp(text, name, strlen(name)) != 0) {
    return 0;
  }
  errno = atoi(space + 1);
  return 1;
}

pid_t fork(void) {
  pid_t (*real)(void);
  if (fails("fork")) return -1;
  *(void **)&real = dlsym(RTLD_NEXT, "fork");
  return real();
}

int clone(int (*start)(void *), void *stack, int flags, void *argument, ...) {
  int (*real)(int (*)(void *), void *, int, void *, ...);
  if (fails("clone")) return -1;
  *(void **)&real = dlsym(RTLD_NEXT, "clone");
  return real(start, stack, flags, argument);
}

/* A worker calls this when a child has been started. Where it would fail, the worker stands still. */
int setpgid(pid_t process, pid_t group) {
  if (process != 0 && fails("setpgid")) raise(SIGSTOP);
  return (int)syscall(SYS_setpgid, process, group);
}

int pipe2(int ends[2], int flags) {
  return fails("pipe2") ? -1 : (int)syscall(SYS_pipe2, ends, flags);
}

int memfd_create(const char *name, unsigned flags) {
  return fails("memfd_create") ? -1 : (int)syscall(SYS_memfd_create, name, flags);
}

int accept4(int file, struct sockaddr *address, socklen_t *size, int flags) {
  return fails("accept4") ? -1 : (int)syscall(SYS_accept4, file, address, size, flags);
}

/* Of pipes alone. */
static ssize_t read_pipe(int file, void *buffer, size_t size) {
  struct stat about;
  if (fstat(file, &about) == 0 && S_ISFIFO(about.st_mode) && fails("read")) return -1;
  return syscall(SYS_read, file, buffer, size);
}

ssize_t read(int file, void *buffer, size_t size) { return read_pipe(file, buffer, size); }

/* What read() is in a program that checks the sizes of its blocks. */
ssize_t __read_chk(int file, void *buffer, size_t size, size_t most);
ssize_t __read_chk(int file, void *buffer, size_t size, size_t most) {
  return size <= most ? read_pipe(file, buffer, size) : -1;
}

int epoll_ctl(int file, int operation, int other, struct epoll_event *event) {
  if (operation == EPOLL_CTL_ADD && fails("epoll_ctl")) return -1;
  return (int)syscall(SYS_epoll_ctl, file, operation, other, event);
}
