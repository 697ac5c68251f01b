/* older_kernel VERSION PROGRAM...: runs a program as on a kernel whose Landlock has this version.
 * "none": the kernel has no Landlock; "off": it is not enabled; "no-filters": the kernel has no
 * seccomp filters.
 */
#include <errno.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

struct attributes {
  uint64_t files, network, scoped;
};

static void stop(const char *what) {
  perror(what);
  _exit(99);
}

/* Whether that version has all that is asked for. */
static int isKnown(const struct attributes *asked, int version) {
  const int rights = version >= 5 ? 16 : version >= 3 ? 15 : version >= 2 ? 14 : 13;
  return asked->files >> rights == 0 && asked->network >> (version >= 4 ? 2 : 0) == 0 &&
         asked->scoped >> (version >= 6 ? 2 : 0) == 0;
}

static int readAttributes(const struct seccomp_notif *call, struct attributes *asked) {
  char path[64];
  const size_t size = call->data.args[1] < sizeof *asked ? call->data.args[1] : sizeof *asked;
  snprintf(path, sizeof path, "/proc/%u/mem", call->pid);
  memset(asked, 0, sizeof *asked);
  const int file = open(path, O_RDONLY);
  const ssize_t got = pread(file, asked, size, (off_t)call->data.args[0]);
  close(file);
  return got == (ssize_t)size;
}

/* Answers for the kernel until the last process with the filter has ended. */
static void answer(int listener, int version) {
  for (;;) {
    struct pollfd waiting = {listener, POLLIN, 0};
    struct seccomp_notif call;
    struct seccomp_notif_resp reply;
    struct attributes asked;
    if (poll(&waiting, 1, -1) < 0 || waiting.revents & (POLLHUP | POLLNVAL)) _exit(0);
    memset(&call, 0, sizeof call);
    memset(&reply, 0, sizeof reply);
    if (ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &call) != 0) continue;
    reply.id = call.id;
    if (call.data.args[2] & LANDLOCK_CREATE_RULESET_VERSION) {
      reply.val = version;
    } else if (readAttributes(&call, &asked) && isKnown(&asked, version)) {
      reply.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    } else {
      reply.error = -EINVAL;
    }
    ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &reply);
  }
}

static int filter(unsigned call, unsigned action, unsigned flags) {
  struct sock_filter code[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, action),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  struct sock_fprog program = {sizeof code / sizeof *code, code};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) stop("no new privileges");
  const long result = syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, flags, &program);
  if (result < 0) stop("seccomp");
  return (int)result;
}

/* A process that shares the descriptors answers, and closes its copies of the others. */
static void pretend(int version) {
  int ends[2];
  int listener = -1;
  if (pipe(ends) != 0) stop("pipe");
  const long process = syscall(SYS_clone, CLONE_FILES | SIGCHLD, 0, 0, 0, 0);
  if (process < 0) stop("clone");
  if (process == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setpgid(0, 0);
    if (read(ends[0], &listener, sizeof listener) != sizeof listener) _exit(1);
    if (unshare(CLONE_FILES) != 0) stop("unshare");
    for (int file = 0; file < 256; file++) {
      if (file != listener && file != 2) close(file);
    }
    answer(listener, version);
  }
  listener =
      filter(SYS_landlock_create_ruleset, SECCOMP_RET_USER_NOTIF, SECCOMP_FILTER_FLAG_NEW_LISTENER);
  if (write(ends[1], &listener, sizeof listener) != sizeof listener) stop("write");
  /* It must have unshared the descriptors before they are closed here. */
  while (syscall(SYS_landlock_create_ruleset, NULL, 0, LANDLOCK_CREATE_RULESET_VERSION) != version)
    ;
  close(ends[0]);
  close(ends[1]);
}

int main(int count, char **arguments) {
  if (count < 3) return 2;
  const char *kernel = arguments[1];
  if (strcmp(kernel, "none") == 0) {
    filter(SYS_landlock_create_ruleset, SECCOMP_RET_ERRNO | ENOSYS, 0);
  } else if (strcmp(kernel, "off") == 0) {
    filter(SYS_landlock_create_ruleset, SECCOMP_RET_ERRNO | EOPNOTSUPP, 0);
  } else if (strcmp(kernel, "no-filters") == 0) {
    filter(SYS_seccomp, SECCOMP_RET_ERRNO | ENOSYS, 0);
  } else {
    pretend(atoi(kernel));
  }
  execvp(arguments[2], arguments + 2);
  stop(arguments[2]);
}
