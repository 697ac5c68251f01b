#include "serve/confine.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "serve/log.h"
#include "serve/program_files.h"

namespace tarn::server {
namespace {

bool confined = false;

struct Flag {
  const char *name;
  bool Rights::*right;
};

constexpr Flag kFlags[] = {
    {"confine", &Rights::confine},
    {"network", &Rights::network},
    {"unix-sockets", &Rights::unix_sockets},
    {"attributes", &Rights::attributes},
    {"unconfined-if-unsupported", &Rights::unconfined_if_unsupported},
};

struct PathOption {
  const char *name;
  Access access;
};

constexpr PathOption kPathOptions[] = {
    {"read", Access::kRead},
    {"write", Access::kWrite},
    {"exec", Access::kExecute},
};

// Every script may use these, if they are there.
constexpr struct {
  const char *path;
  Access access;
} kBasics[] = {
    {"/dev/null", Access::kWrite},
    {"/dev/zero", Access::kRead},
    {"/dev/random", Access::kRead},
    {"/dev/urandom", Access::kRead},
};

// The versions of the kernel's file rules that cover truncating files, and sending signals.
constexpr int kRulesTruncation = 3;
constexpr int kRulesSignals = 6;

// A script whose interpreter is a script, and so on: the kernel gives up earlier.
constexpr int kMostInterpreters = 6;

const char *addPath(Rights &rights, Access access, const char *path) {
  if (!path || *path == '\0') return "needs a file or a directory";
  if (rights.path_count == Rights::kMostPaths) return "is allowed 64 times, with the others";
  rights.paths[rights.path_count] = {access, strdup(path)};
  if (!rights.paths[rights.path_count].path) return "needs more memory";
  ++rights.path_count;
  rights.confine = true;
  return nullptr;
}

bool report(int error, const char *what) {
  log("cannot confine the script: %s: %s", what, std::strerror(error));
  errno = error;
  return false;
}

// Root keeps none of its powers.
bool dropCapabilities() {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
  return syscall(SYS_capset, &header, none) == 0 || report(errno, "cannot drop capabilities");
}

}  // namespace

// ---- Options -------------------------------------------------------------------------------------

bool isFlag(const char *name) {
  return std::any_of(std::begin(kFlags), std::end(kFlags),
                     [&](const Flag &flag) { return std::strcmp(name, flag.name) == 0; });
}

bool setRight(Rights &rights, const char *name, const char *value, const char *&problem) {
  problem = nullptr;
  for (const Flag &flag : kFlags) {
    if (std::strcmp(name, flag.name) != 0) continue;
    if (value) {
      problem = "has no value";
      return true;
    }
    rights.*flag.right = true;
    if (flag.right != &Rights::unconfined_if_unsupported) rights.confine = true;
    return true;
  }
  for (const PathOption &option : kPathOptions) {
    if (std::strcmp(name, option.name) != 0) continue;
    problem = addPath(rights, option.access, value);
    return true;
  }
  return false;
}

// ---- Preparing -----------------------------------------------------------------------------------

// What the kernel lacks is reported even if the script runs without it.
bool Confinement::checkKernel(const Rights &rights) {
  version_ = FileRules::version();
  const int error = version_ < 0 ? errno : 0;
  filters_ = CallFilter::isSupported();
  if (version_ > 0 && filters_) return true;
  const char *outcome = rights.unconfined_if_unsupported ? "the script is not fully confined"
                                                         : "cannot confine the script";
  if (error == EOPNOTSUPP) {
    log("%s: Landlock is not enabled in this kernel; see its parameter lsm", outcome);
  } else if (version_ <= 0) {
    log("%s: this kernel has no Landlock, which needs Linux 5.13", outcome);
  }
  if (!filters_) {
    log("%s: this kernel has no seccomp filters for this processor's programs", outcome);
  }
  errno = ENOSYS;
  return rights.unconfined_if_unsupported;
}

bool Confinement::allow(const char *path, Access access) {
  const int error = rules_.allow(path, access);
  return error == 0 || report(error, path);
}

// A loader uses the directory that it is in, where the C library is, and /usr/local/lib.
bool Confinement::allowLoader(const char *path) {
  if (!allow(path, Access::kExecute)) return false;
  for (const char *optional : {"/etc/ld.so.cache", "/usr/local/lib"}) {
    rules_.allow(optional, Access::kRead);
  }
  char folder[PATH_MAX];
  if (!realpath(path, folder)) return report(errno, path);
  *std::strrchr(folder, '/') = '\0';
  return allow(*folder != '\0' ? folder : "/", Access::kRead);
}

// Whatever the kernel opens to start a program.
// NOLINTNEXTLINE(misc-no-recursion): it ends after a few interpreters
bool Confinement::allowProgram(const char *name, int depth) {
  char path[PATH_MAX];
  Runner runner;
  if (!findProgram(name, path) || !readRunner(path, runner)) return report(errno, name);
  if (!allow(path, Access::kExecute)) return false;
  if (depth == kMostInterpreters) return report(ELOOP, name);
  switch (runner.kind) {
    case Runner::Kind::kInterpreter:
      return allowProgram(runner.path, depth + 1) &&
             (*runner.name == '\0' || allowProgram(runner.name, depth + 1));
    case Runner::Kind::kLoader:
      return allowLoader(runner.path);
    case Runner::Kind::kNone:
      break;
  }
  return true;
}

bool Confinement::allowPaths(const Rights &rights) {
  for (const auto &[path, access] : kBasics) rules_.allow(path, access);
  for (size_t i = 0; i < rights.path_count; ++i) {
    const auto &[access, path] = rights.paths[i];
    if (access != Access::kExecute) {
      if (!allow(path, access)) return false;
      continue;
    }
    struct stat about;
    if (stat(path, &about) != 0) return report(errno, path);
    if (!S_ISDIR(about.st_mode)) {
      if (!allowProgram(path, 0)) return false;
      continue;
    }
    // The programs in a directory have the loader of this system.
    Runner shell;
    if (!allow(path, access)) return false;
    if (readRunner("/bin/sh", shell) && shell.kind == Runner::Kind::kLoader &&
        !allowLoader(shell.path)) {
      return false;
    }
  }
  return true;
}

bool Confinement::open(const Rights &rights, const Script &script) {
  if (!checkKernel(rights)) return false;
  CallRights calls;
  calls.network = rights.network;
  calls.unix_sockets = rights.unix_sockets;
  calls.attributes = rights.attributes;
  calls.programs = script.program != nullptr;
  for (size_t i = 0; i < rights.path_count; ++i) {
    calls.programs |= rights.paths[i].access == Access::kExecute;
  }
  calls.truncates = version_ <= 0 || version_ >= kRulesTruncation;
  filter_.build(calls);
  if (version_ <= 0) return true;
  if (const int error = rules_.create(version_, rights.network, rights.unix_sockets)) {
    return report(error, "Landlock");
  }
  return allowPaths(rights) && (!script.program || allowProgram(script.program[0], 0));
}

// ---- Applying ------------------------------------------------------------------------------------

bool Confinement::filterCalls() const {
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return report(errno, "no new privileges");
  if (!filters_) return true;
  const int error = filter_.install();
  return error == 0 || report(error, "seccomp");
}

// Newer kernels keep signals inside by their file rules. A second filter does it for the others.
bool Confinement::enter() const {
  if (version_ > 0) {
    if (const int error = rules_.restrict()) return report(error, "Landlock");
  }
  if (!dropCapabilities()) return false;
  if (filters_ && version_ < kRulesSignals) {
    CallFilter signals;
    signals.buildForSignals(getpid());
    if (const int error = signals.install()) return report(error, "seccomp");
  }
  confined = true;
  return true;
}

bool isConfined() { return confined; }

bool confineSelf(const Rights &rights, const Script &script) {
  if (confined) return true;
  Confinement confinement;
  return confinement.open(rights, script) && confinement.filterCalls() && confinement.enter();
}

}  // namespace tarn::server
