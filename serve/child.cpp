#include "serve/child.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/memory.h"
#include "serve/confine.h"
#include "serve/log.h"
#include "serve/private_memory.h"

namespace tarn::server {
namespace {

// A limit that is lower already stays.
void limit(int resource, uint64_t most, uint64_t grace = 0) {
  if (most == ChildLimits::kNoLimit) return;
  // C libraries disagree about its type.
  const auto kind = static_cast<decltype(RLIMIT_CPU)>(resource);
  rlimit limits;
  if (getrlimit(kind, &limits) != 0) return;
  const rlim_t hardest = limits.rlim_max;
  limits.rlim_cur = static_cast<rlim_t>(std::min<uint64_t>(most, hardest));
  limits.rlim_max = hardest - limits.rlim_cur > grace ? limits.rlim_cur + grace : hardest;
  setrlimit(kind, &limits);
}

void closeRange(unsigned first, unsigned last) {
  if (first > last || syscall(SYS_close_range, first, last, 0U) == 0) return;
  const long most = sysconf(_SC_OPEN_MAX);
  for (long file = first; file < most && static_cast<unsigned>(file) <= last; ++file) {
    close(static_cast<int>(file));
  }
}

bool append(Bytes &numbers, int number) {
  return numbers.append({reinterpret_cast<const char *>(&number), sizeof number});
}

const int *begin(const Bytes &numbers) { return reinterpret_cast<const int *>(numbers.data()); }

const int *end(const Bytes &numbers) { return begin(numbers) + numbers.size() / sizeof(int); }

// Without /proc, tries every number that can be a descriptor.
bool listByTrying(Bytes &files) {
  const long most = std::min(sysconf(_SC_OPEN_MAX), 65536L);
  for (int file = 3; file < most; ++file) {
    if (fcntl(file, F_GETFD) >= 0 && !append(files, file)) return false;
  }
  return true;
}

// Lists the open descriptors above 2, in order.
bool listOpenFiles(Bytes &files) {
  DIR *folder = opendir("/proc/self/fd");
  if (!folder) return listByTrying(files);
  bool complete = true;
  while (const dirent *entry = readdir(folder)) {
    const int file = std::atoi(entry->d_name);
    if (file > STDERR_FILENO && file != dirfd(folder)) complete &= append(files, file);
  }
  closedir(folder);
  auto *first = reinterpret_cast<int *>(files.data());
  std::sort(first, first + files.size() / sizeof(int));
  return complete;
}

// Calls for other requests may have left something on the stack. The loader, for one, saves all
// registers there when it looks up a function.
[[gnu::noinline]] void wipeStack() {
  char rest[size_t{6} * 1024];
  explicit_bzero(rest, sizeof rest);
}

// Of a set of signals, as the kernel knows it.
constexpr size_t kMaskSize = _NSIG / 8;

// A part of the C library that the child has not used yet costs a page fault, so some calls are made
// by their number, as close_range() is.
[[noreturn]] void runScript(const Script &script, char **environment, const int (&files)[3],
                            const ChildLimits &limits, const KeptFiles &kept, GroupPlace place,
                            pid_t parent) {
  setpgid(0, 0);
  // The worker may die before it can write this. If it is dead already, this may come too late for the
  // supervisor, so the script does not begin.
  const pid_t group = getpid();
  const auto offset = static_cast<off_t>(place.index * sizeof group);
  if (pwrite(place.file, &group, sizeof group, offset) != sizeof group) _exit(127);
  syscall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0);
  if (getppid() != parent) _exit(127);
  if (script.confinement && !script.confinement->enter()) _exit(127);
  for (int i = 0; i < 3; ++i) {
    if (dup2(files[i], i) < 0) _exit(127);
  }
  kept.closeOthers();
  limit(RLIMIT_CPU, limits.processor_seconds, 1);
  limit(RLIMIT_AS, limits.address_space);
  limit(RLIMIT_NOFILE, limits.open_files);
  limit(RLIMIT_NPROC, limits.processes);
  // The worker has reset the signals. SIGPIPE does what it does by default there, too: it is blocked.
  const unsigned long none[kMaskSize / sizeof(long)] = {};
  syscall(SYS_rt_sigprocmask, SIG_SETMASK, none, nullptr, kMaskSize);
  if (script.program) {
    // Searches the PATH of the service. Some web servers send one of their own.
    execvpe(script.program[0], script.program, environment);
    dprintf(2, "%s: %s\n", script.program[0], strerror(errno));
    _exit(127);
  }
  environ = environment;
  wipeStack();
  _exit(flushOutput(script.function()));
}

// What a child gets.
struct Start {
  const Script &script;
  char **environment;
  int files[3];
  const ChildLimits &limits;
  const KeptFiles &kept;
  GroupPlace place;
  pid_t parent;
};

[[noreturn]] void run(const Start &start) {
  runScript(start.script, start.environment, start.files, start.limits, start.kept, start.place,
            start.parent);
}

// The sanitizers know one stack for each thread.
#ifndef TARN_LEAK_SANITIZER

int runStart(void *start) { run(*static_cast<const Start *>(start)); }

// The child borrows the memory of this process, which waits until the program has taken the child's
// place, so nothing is copied only to be thrown away. Its stack has room for execvpe(), which puts a
// path and a copy of the arguments there.
pid_t startProgram(Start &start) {
  static char *stack = nullptr;
  size_t size = size_t{64} * 1024;
  for (char *const *place = start.script.program; *place; ++place) size += sizeof *place;
  if (!stack) {
    void *memory =
        mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED) return fork();
    stack = static_cast<char *>(memory);
  }
  return clone(runStart, stack + size / 16 * 16, CLONE_VM | CLONE_VFORK | SIGCHLD, &start);
}

#endif

void closeAll(const int (&files)[2]) {
  for (const int file : files) {
    if (file >= 0) close(file);
  }
}

}  // namespace

int KeptFiles::callAndRemember(int (*callback)()) {
  Bytes before;
  Bytes after;
  bool complete = listOpenFiles(before);
  if (const int status = callback()) return status;
  complete = listOpenFiles(after) && complete;
  for (const int *file = begin(after); file != end(after); ++file) {
    if (!std::binary_search(begin(before), end(before), *file)) {
      complete &= append(files_, *file);
    }
  }
  if (!complete) log("out of memory for a list of open files");
  return complete ? 0 : 1;
}

void KeptFiles::closeOthers() const {
  unsigned first = 3;
  for (const int *file = begin(files_); file != end(files_); ++file) {
    const auto kept = static_cast<unsigned>(*file);
    closeRange(first, kept - 1);
    first = kept + 1;
  }
  closeRange(first, ~0U);
}

int flushOutput(int status) { return fflush(nullptr) == 0 && ferror(stdout) == 0 ? status : 1; }

void resetSignals() {
  struct sigaction standard = {};
  standard.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) sigaction(number, &standard, nullptr);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

int startChild(const Script &script, char **environment, int input, const ChildLimits &limits,
               const KeptFiles &kept, GroupPlace place, Child &child) {
  int output[2] = {-1, -1};
  int errors[2] = {-1, -1};
  if (pipe2(output, O_CLOEXEC) != 0 || pipe2(errors, O_CLOEXEC) != 0) {
    const int error = errno;
    closeAll(output);
    return error;
  }
  Start start = {script, environment, {input, output[1], errors[1]}, limits, kept, place, getpid()};
#ifdef TARN_LEAK_SANITIZER
  const pid_t process = fork();
  if (process == 0) PrivateMemory::forget();
#else
  // Confinement changes what this process knows of itself.
  const bool borrows = script.program && !script.confinement;
  const pid_t process = borrows ? startProgram(start) : fork();
#endif
  if (process == 0) run(start);
  const int error = process < 0 ? errno : 0;
  close(output[1]);
  close(errors[1]);
  if (error != 0) {
    close(output[0]);
    close(errors[0]);
    return error;
  }
  // The child does the same: whoever comes first. So the group exists before it can be needed.
  setpgid(process, process);
  fcntl(output[0], F_SETFL, O_NONBLOCK);
  fcntl(errors[0], F_SETFL, O_NONBLOCK);
  child = {process, output[0], errors[0]};
  return 0;
}

// ---- Groups that have to end ---------------------------------------------------------------------

void signalGroup(pid_t group, int signal) {
  if (group > 1) kill(-group, signal);
}

namespace {

// How often to look. The number of a group that has ended may be used again, but not so soon.
constexpr uint64_t kInterval = 50;

bool exists(pid_t group) { return kill(-group, 0) == 0; }

}  // namespace

void CondemnedGroups::add(pid_t group, uint64_t time) {
  if (!exists(group)) return;
  if (count_ == kMost) {
    signalGroup(group, SIGKILL);
    return;
  }
  groups_[count_] = group;
  times_[count_++] = time;
}

uint64_t CondemnedGroups::check(uint64_t now) {
  for (size_t i = count_; i-- > 0;) {
    const pid_t group = groups_[i];
    const bool is_due = now >= times_[i];
    if (is_due) signalGroup(group, SIGKILL);
    if (!is_due && exists(group)) continue;
    --count_;
    groups_[i] = groups_[count_].load();
    times_[i] = times_[count_];
    groups_[count_] = 0;
  }
  return count_ > 0 ? now + kInterval : UINT64_MAX;
}

}  // namespace tarn::server
