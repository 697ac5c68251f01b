/* A script that was taken over: it tries everything and reports what it got.
 *
 * QUERY_STRING names attempts, with "+" between them; without any, it makes all of them. The answer
 * has a line for each: its name and 0, or the error number. Variables of the request name the
 * targets.
 */
#include <arpa/inet.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <linux/keyctl.h>
#include <linux/netlink.h>
#include <linux/sched.h>
#include <mqueue.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "tarn_serve.h"

/* What a successful attempt returns, and what a failed one does. */
static int done(long result) { return result < 0 ? errno : 0; }

static int opened(int file) {
  const int error = done(file);
  if (file >= 0) close(file);
  return error;
}

/* A path in the folder that a variable names. */
static const char *in(const char *variable, const char *name) {
  static char paths[4][4096];
  static int next;
  const char *folder = getenv(variable);
  char *path = paths[next++ % 4];
  snprintf(path, sizeof paths[0], "%s/%s", folder ? folder : "/nonexistent", name);
  return path;
}

static int number(const char *variable) {
  const char *text = getenv(variable);
  return text ? atoi(text) : -1;
}

/* Runs an attempt in another process, which may be changed or killed by it. */
static int apart(int (*attempt)(void)) {
  int status = 0;
  const pid_t process = fork();
  if (process < 0) return errno;
  if (process == 0) _exit(attempt());
  waitpid(process, &status, 0);
  return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
}

/* ---- Files that no option names --------------------------------------------------------------- */

static int readFile(void) { return opened(open(in("OUTSIDE", "secret"), O_RDONLY)); }
static int readPasswords(void) { return opened(open("/etc/passwd", O_RDONLY)); }
static int listRoot(void) { return opened(open("/", O_RDONLY | O_DIRECTORY)); }
static int listFolder(void) { return opened(open(getenv("OUTSIDE"), O_RDONLY | O_DIRECTORY)); }
static int createFile(void) { return opened(open(in("OUTSIDE", "new"), O_WRONLY | O_CREAT, 0600)); }
static int createUnnamed(void) { return opened(open(getenv("OUTSIDE"), O_TMPFILE | O_RDWR, 0600)); }
static int appendToFile(void) { return opened(open(in("OUTSIDE", "secret"), O_WRONLY | O_APPEND)); }
static int truncateFile(void) { return done(truncate(in("OUTSIDE", "cut"), 0)); }
/* For neither reading nor writing: 3, because musl's O_ACCMODE has O_PATH in it, too. */
static int truncateByOpening(void) { return opened(open(in("OUTSIDE", "cut"), 3 | O_TRUNC)); }
static int removeFile(void) { return done(unlink(in("OUTSIDE", "removable"))); }
static int makeFolder(void) { return done(mkdir(in("OUTSIDE", "folder"), 0700)); }
static int moveOut(void) { return done(rename(in("DATA", "moving"), in("OUTSIDE", "moved"))); }
static int moveIn(void) { return done(rename(in("OUTSIDE", "moving"), in("DATA", "moved"))); }
static int linkIn(void) { return done(link(in("OUTSIDE", "secret"), in("DATA", "linked"))); }
static int changeMode(void) { return done(chmod(in("OUTSIDE", "secret"), 0666)); }
static int changeOwner(void) { return done(chown(in("OUTSIDE", "secret"), getuid(), getgid())); }
static int changeTimes(void) { return done(utimensat(AT_FDCWD, in("OUTSIDE", "secret"), NULL, 0)); }
static int watchFolder(void) {
  const int file = inotify_init1(0);
  const int error = done(inotify_add_watch(file, getenv("OUTSIDE"), IN_CREATE));
  close(file);
  return error;
}
static int readEnvironment(void) {
  char path[64];
  snprintf(path, sizeof path, "/proc/%d/environ", getppid());
  return opened(open(path, O_RDONLY));
}
static int openMemory(void) {
  char path[64];
  snprintf(path, sizeof path, "/proc/%d/mem", getppid());
  return opened(open(path, O_RDWR));
}
static int readInChild(void) { return apart(readFile); }

/* ---- Between what options name ---------------------------------------------------------------- */

static int linkReadable(void) { return done(link(in("READABLE", "text"), in("DATA", "text"))); }
static int writeReadable(void) { return opened(open(in("READABLE", "text"), O_WRONLY)); }
static int truncateReadable(void) {
  return opened(open(in("READABLE", "text"), O_RDONLY | O_TRUNC));
}
static int changeReadable(void) {
  const int file = open(in("READABLE", "text"), O_RDONLY);
  const int error = file < 0 ? errno : done(fchmod(file, 0600));
  close(file);
  return error;
}
static int makeSymbolicLink(void) { return done(symlink("/etc/passwd", in("DATA", "symbolic"))); }
static int makePipe(void) { return done(mkfifo(in("DATA", "pipe"), 0600)); }

/* ---- Sockets ---------------------------------------------------------------------------------- */

static struct sockaddr_in internet(void) {
  struct sockaddr_in address;
  memset(&address, 0, sizeof address);
  address.sin_family = AF_INET;
  address.sin_port = htons((uint16_t)number("PORT"));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

static int connectTo(int type, const void *address, size_t size) {
  const int file = socket(((const struct sockaddr *)address)->sa_family, type, 0);
  if (file < 0) return errno;
  const int error = done(connect(file, address, (socklen_t)size));
  close(file);
  return error;
}

static int connectTcp(void) {
  const struct sockaddr_in address = internet();
  return connectTo(SOCK_STREAM, &address, sizeof address);
}
static int connectUdp(void) {
  const struct sockaddr_in address = internet();
  return connectTo(SOCK_DGRAM, &address, sizeof address);
}
static int bindTcp(void) {
  struct sockaddr_in address = internet();
  address.sin_port = 0;
  const int file = socket(AF_INET, SOCK_STREAM, 0);
  if (file < 0) return errno;
  const int error = done(bind(file, (struct sockaddr *)&address, sizeof address));
  close(file);
  return error;
}
static struct sockaddr_un local(const char *path) {
  struct sockaddr_un address;
  memset(&address, 0, sizeof address);
  address.sun_family = AF_UNIX;
  snprintf(address.sun_path, sizeof address.sun_path, "%s", path);
  return address;
}
static int connectLocal(void) {
  const struct sockaddr_un address = local(in("OUTSIDE", "socket"));
  return connectTo(SOCK_STREAM, &address, sizeof address);
}
static int connectAbstract(void) {
  struct sockaddr_un address = local("");
  const char *name = getenv("ABSTRACT");
  snprintf(address.sun_path + 1, sizeof address.sun_path - 1, "%s", name ? name : "");
  return connectTo(SOCK_STREAM, &address,
                   offsetof(struct sockaddr_un, sun_path) + 1 + strlen(address.sun_path + 1));
}
/* Datagrams go to any address, even from a socket that is one of a pair. */
static int sendFromPair(void) {
  const struct sockaddr_un address = local(in("OUTSIDE", "datagrams"));
  int pair[2];
  if (socketpair(AF_UNIX, SOCK_DGRAM, 0, pair) != 0) return errno;
  const int error =
      done(sendto(pair[0], "x", 1, 0, (const struct sockaddr *)&address, sizeof address));
  close(pair[0]);
  close(pair[1]);
  return error;
}
static int sendFromStreams(void) {
  const struct sockaddr_un address = local(in("OUTSIDE", "datagrams"));
  int pair[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) return errno;
  int error = done(sendto(pair[0], "x", 1, 0, (const struct sockaddr *)&address, sizeof address));
  if (error != 0) error = done(connect(pair[0], (const struct sockaddr *)&address, sizeof address));
  close(pair[0]);
  close(pair[1]);
  return error;
}
static int openNetlink(void) { return opened(socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE)); }
static int openCrypto(void) { return opened(socket(AF_ALG, SOCK_SEQPACKET, 0)); }

/* ---- Programs --------------------------------------------------------------------------------- */

static int startShell(void) {
  execl("/bin/sh", "sh", "-c", "exit 0", (char *)NULL);
  return errno;
}
static int executeShell(void) { return apart(startShell); }
static int startFromMemory(void) {
  static const char script[] = "#!/bin/sh\nexit 0\n";
  static char *const none[] = {NULL};
  const int file = memfd_create("script", 0);
  if (file < 0 || write(file, script, sizeof script - 1) < 0) return errno;
  syscall(SYS_execveat, file, "", none, none, AT_EMPTY_PATH);
  return errno;
}
static int executeMemory(void) { return apart(startFromMemory); }

/* ---- Other processes -------------------------------------------------------------------------- */

static int signalService(void) { return done(kill(getppid(), 0)); }
static int signalOther(void) { return done(kill(number("PROCESS"), 0)); }
static int queueSignal(void) {
  const union sigval value = {0};
  return done(sigqueue(number("PROCESS"), 0, value));
}
static int signalThread(void) {
  return done(syscall(SYS_tgkill, number("PROCESS"), number("PROCESS"), 0));
}
/* Succeeds if the kernel sends it; the test looks whether the process is alive. */
static int signalByFile(void) {
  int ends[2];
  if (pipe(ends) != 0) return errno;
  int error = done(fcntl(ends[0], F_SETOWN, number("PROCESS")));
  if (error == 0) error = done(fcntl(ends[0], F_SETSIG, SIGTERM));
  if (error == 0) error = done(fcntl(ends[0], F_SETFL, O_ASYNC | O_NONBLOCK));
  if (error == 0) error = done(write(ends[1], "x", 1));
  close(ends[0]);
  close(ends[1]);
  return error;
}
static int killService(void) { return done(kill(getppid(), SIGKILL)); }
static int traceService(void) {
  const int error = done(ptrace(PTRACE_SEIZE, getppid(), NULL, NULL));
  if (error == 0) ptrace(PTRACE_DETACH, getppid(), NULL, NULL);
  return error;
}
static int readMemory(void) {
  static char bytes[16];
  struct iovec own = {bytes, sizeof bytes};
  struct iovec other = {bytes, sizeof bytes}; /* the service is the same program */
  return done(process_vm_readv(getppid(), &own, 1, &other, 1, 0));
}
static int readOther(void) {
  static char bytes[16];
  struct iovec own = {bytes, sizeof bytes};
  struct iovec other = {NULL, sizeof bytes};
  const ssize_t got = process_vm_readv(number("PROCESS"), &own, 1, &other, 1, 0);
  return got < 0 && errno == EFAULT ? 0 : done(got); /* nothing is at that address */
}
static int limitService(void) {
  struct rlimit limits;
  return done(prlimit(getppid(), RLIMIT_NOFILE, NULL, &limits));
}
static int scheduleService(void) {
  const struct sched_param parameter = {0};
  return done(sched_setscheduler(getppid(), SCHED_OTHER, &parameter));
}
static int slowService(void) { return done(setpriority(PRIO_PROCESS, (id_t)getppid(), 0)); }
static int slowUser(void) { return done(setpriority(PRIO_USER, 0, 0)); }
static int shareMemory(void) { return done(shmget(IPC_PRIVATE, 1, IPC_CREAT | 0600)); }
static int openQueue(void) {
  char name[32];
  snprintf(name, sizeof name, "/tarn-%d", getpid());
  const mqd_t queue = mq_open(name, O_RDWR | O_CREAT, 0600, NULL);
  const int error = done(queue);
  if (queue >= 0) {
    mq_close(queue);
    mq_unlink(name);
  }
  return error;
}

/* ---- The kernel ------------------------------------------------------------------------------- */

static int enterUserNamespace(void) { return done(unshare(CLONE_NEWUSER)); }
static int unshareUser(void) { return apart(enterUserNamespace); }
static int cloneWith(unsigned long flags) {
#ifdef __s390x__
  const long process = syscall(SYS_clone, 0, flags | SIGCHLD, 0, 0, 0);
#else
  const long process = syscall(SYS_clone, flags | SIGCHLD, 0, 0, 0, 0);
#endif
  const int error = done(process);
  if (process == 0) _exit(0);
  if (process > 0) waitpid((pid_t)process, NULL, 0);
  return error;
}
static int cloneUser(void) { return cloneWith(CLONE_NEWUSER); }
static int cloneSibling(void) { return cloneWith(CLONE_PARENT); }
static int cloneByStructure(void) {
  struct clone_args arguments;
  memset(&arguments, 0, sizeof arguments);
  arguments.flags = CLONE_NEWUSER;
  arguments.exit_signal = SIGCHLD;
  const long process = syscall(SYS_clone3, &arguments, sizeof arguments);
  const int error = done(process);
  if (process == 0) _exit(0);
  if (process > 0) waitpid((pid_t)process, NULL, 0);
  return error;
}
static int setUpRing(void) {
  char parameters[120] = "";
  return opened((int)syscall(SYS_io_uring_setup, 1, parameters));
}
static int useBpf(void) {
  char attributes[72] = {2, 0, 0, 0, 4, 0, 0, 0, 4, 0, 0, 0, 1}; /* an array of one number */
  return opened((int)syscall(SYS_bpf, 0, attributes, sizeof attributes));
}
static int useKeys(void) {
  return done(syscall(SYS_keyctl, KEYCTL_GET_KEYRING_ID, KEY_SPEC_PROCESS_KEYRING, 1));
}
static int measure(void) {
  uint32_t attributes[32] = {1, sizeof attributes, 9}; /* a clock, in software */
  attributes[10] = 1 << 5 | 1 << 6;                    /* neither kernel nor hypervisor */
  return opened((int)syscall(SYS_perf_event_open, attributes, 0, -1, -1, 0));
}
static int catchFaults(void) { return opened((int)syscall(SYS_userfaultfd, O_CLOEXEC | 1)); }
static int mountHere(void) {
  return unshare(CLONE_NEWNS) != 0 ? errno : done(mount("x", getenv("OUTSIDE"), "tmpfs", 0, NULL));
}
static int mountFileSystem(void) { return apart(mountHere); }
static int changeRoot(void) { return done(chroot("/")); }
static int changeRootApart(void) { return apart(changeRoot); }
static int useNewCall(void) { return done(syscall(463, -1, "", 0, "", NULL, 0)); }
static int raisePowers(void) {
  struct __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  struct __user_cap_data_struct powers[_LINUX_CAPABILITY_U32S_3];
  if (syscall(SYS_capget, &header, powers) != 0) return errno;
  return powers[0].permitted | powers[1].permitted ? 0 : EPERM;
}
static int gainPrivileges(void) { return prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 0 ? 0 : EPERM; }
#ifdef __x86_64__
static int callForeign(void) {
  long result = 20; /* getpid() on i386 */
  __asm__ volatile("int $0x80" : "+a"(result) : : "memory", "r8", "r9", "r10", "r11");
  return result > 0 ? 0 : (int)-result;
}
static int useForeignCalls(void) { return apart(callForeign); }
static int callX32(void) { return done(syscall(0x40000000 | SYS_getpid)); }
static int useX32Calls(void) { return apart(callX32); }
#endif

static const struct {
  const char *name;
  int (*attempt)(void);
} attempts[] = {
    {"read a file", readFile},
    {"read /etc/passwd", readPasswords},
    {"list /", listRoot},
    {"list a folder", listFolder},
    {"create a file", createFile},
    {"create an unnamed file", createUnnamed},
    {"append to a file", appendToFile},
    {"truncate a file", truncateFile},
    {"truncate by open", truncateByOpening},
    {"remove a file", removeFile},
    {"make a folder", makeFolder},
    {"move out", moveOut},
    {"move in", moveIn},
    {"link in", linkIn},
    {"change a mode", changeMode},
    {"change an owner", changeOwner},
    {"change times", changeTimes},
    {"watch a folder", watchFolder},
    {"read the service's environment", readEnvironment},
    {"open the service's memory", openMemory},
    {"read in a child", readInChild},
    {"link a readable file", linkReadable},
    {"write a readable file", writeReadable},
    {"truncate a readable file", truncateReadable},
    {"change a readable file", changeReadable},
    {"make a symbolic link", makeSymbolicLink},
    {"make a named pipe", makePipe},
    {"connect by TCP", connectTcp},
    {"connect by UDP", connectUdp},
    {"bind a TCP port", bindTcp},
    {"connect to a Unix socket", connectLocal},
    {"connect to an abstract socket", connectAbstract},
    {"send from a pair", sendFromPair},
    {"send from streams", sendFromStreams},
    {"open netlink", openNetlink},
    {"open AF_ALG", openCrypto},
    {"execute a shell", executeShell},
    {"execute memory", executeMemory},
    {"signal the service", signalService},
    {"signal a process", signalOther},
    {"queue a signal", queueSignal},
    {"signal a thread", signalThread},
    {"trace the service", traceService},
    {"read the service's memory", readMemory},
    {"read a process's memory", readOther},
    {"read the service's limits", limitService},
    {"schedule the service", scheduleService},
    {"slow the service", slowService},
    {"slow the user", slowUser},
    {"share memory", shareMemory},
    {"open a message queue", openQueue},
    {"unshare users", unshareUser},
    {"clone users", cloneUser},
    {"clone a sibling", cloneSibling},
    {"clone by a structure", cloneByStructure},
    {"io_uring", setUpRing},
    {"bpf", useBpf},
    {"keys", useKeys},
    {"measure", measure},
    {"userfaultfd", catchFaults},
    {"mount", mountFileSystem},
    {"change the root", changeRootApart},
    {"a newer call", useNewCall},
    {"capabilities", raisePowers},
    {"new privileges", gainPrivileges},
#ifdef __x86_64__
    {"calls of i386", useForeignCalls},
    {"calls of x32", useX32Calls},
#endif
};

/* ---- What is asked for by name only ----------------------------------------------------------- */

static int useGranted(void) {
  char text[16] = "";
  int file = open(in("READABLE", "text"), O_RDONLY);
  if (file < 0 || read(file, text, sizeof text) < 0) return errno;
  close(file);
  if (opened(open(getenv("READABLE"), O_RDONLY | O_DIRECTORY)) != 0) return errno;
  file = open(in("DATA", "first"), O_RDWR | O_CREAT | O_EXCL, 0600);
  if (file < 0 || write(file, text, strlen(text)) < 0 || fsync(file) != 0) return errno;
  if (ftruncate(file, 1) != 0) return errno;
  close(file);
  if (opened(open(in("DATA", "first"), O_WRONLY | O_TRUNC)) != 0) return errno;
  if (mkdir(in("DATA", "folder"), 0700) != 0) return errno;
  if (rename(in("DATA", "first"), in("DATA", "second")) != 0) return errno;
  if (link(in("DATA", "second"), in("DATA", "third")) != 0) return errno;
  if (opened(open(getenv("DATA"), O_RDONLY | O_DIRECTORY)) != 0) return errno;
  if (unlink(in("DATA", "second")) != 0 || unlink(in("DATA", "third")) != 0) return errno;
  return done(rmdir(in("DATA", "folder")));
}
static int moveBetween(void) {
  if (opened(open(in("DATA", "first"), O_RDWR | O_CREAT, 0600)) != 0) return errno;
  return done(rename(in("DATA", "first"), in("OTHER", "first")));
}
static int bindLocal(void) {
  const struct sockaddr_un address = local(in("DATA", "bound"));
  const int file = socket(AF_UNIX, SOCK_STREAM, 0);
  if (file < 0) return errno;
  const int error = done(bind(file, (const struct sockaddr *)&address, sizeof address));
  close(file);
  return error;
}
static int useBasics(void) {
  if (opened(open("/dev/null", O_RDWR)) != 0 || opened(open("/dev/urandom", O_RDONLY)) != 0) {
    return errno;
  }
  return apart(gainPrivileges) == EPERM ? 0 : EINVAL;
}
static int confineAgain(void) { return tarn_confine() ? 0 : errno; }
static int confineLate(void) {
  const int file = open(in("OUTSIDE", "secret"), O_RDONLY);
  char text[16];
  if (file < 0) return errno;
  if (!tarn_serve_option("read", getenv("READABLE")) || !tarn_confine()) return errno;
  if (read(file, text, sizeof text) <= 0) return EIO;
  if (opened(open(in("READABLE", "text"), O_RDONLY)) != 0) return errno;
  return readFile() == EACCES ? 0 : EINVAL;
}
static int inheritDescriptors(void) {
  for (int file = 3; file < 4096; file++) {
    if (fcntl(file, F_GETFD) >= 0) return 0;
  }
  return EBADF;
}
static int abortApart(void) {
  abort();
  return 0;
}
static int crash(void) { return apart(abortApart); }
static int showProcess(void) {
  printf("\nprocess %d\n", getpid());
  fflush(stdout);
  pause();
  return errno;
}

static const struct {
  const char *name;
  int (*attempt)(void);
} requests[] = {
    {"granted", useGranted},
    {"move between", moveBetween},
    {"bind a socket", bindLocal},
    {"basics", useBasics},
    {"confine again", confineAgain},
    {"confine late", confineLate},
    {"descriptors", inheritDescriptors},
    {"kill the service", killService},
    {"signal by a file", signalByFile},
    {"abort", crash},
    {"wait", showProcess},
};

static int isNamed(const char *list, const char *name) {
  const size_t length = strlen(name);
  for (const char *at = list; *at; at += *at == '+') {
    const size_t size = strcspn(at, "+");
    if (size == length && memcmp(at, name, size) == 0) return 1;
    at += size;
  }
  return 0;
}

static int script(void) {
  const char *query = getenv("QUERY_STRING");
  const int all = !query || *query == '\0';
  puts("Content-Type: text/plain\n");
  for (size_t i = 0; i < sizeof attempts / sizeof *attempts; i++) {
    if (!all && !isNamed(query, attempts[i].name)) continue;
    fflush(stdout);
    printf("%s: %d\n", attempts[i].name, attempts[i].attempt());
  }
  for (size_t i = 0; i < sizeof requests / sizeof *requests && !all; i++) {
    if (!isNamed(query, requests[i].name)) continue;
    fflush(stdout);
    printf("%s: %d\n", requests[i].name, requests[i].attempt());
  }
  return 0;
}

/* As a CGI script, it takes options from a variable: names, and values after "=". */
int main(void) {
  char *options = getenv("OPTIONS");
  for (char *name = options ? strtok(options, " ") : NULL; name; name = strtok(NULL, " ")) {
    char *value = strchr(name, '=');
    if (value) *value++ = '\0';
    if (!tarn_serve_option(name, value)) return 2;
  }
  return tarn_serve(script);
}
