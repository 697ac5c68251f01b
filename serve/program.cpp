#include "serve/program.h"

#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "serve/listener.h"

namespace tarn::server {
namespace {

// Tells a program that it is a worker: the numbers of WorkerFiles, with commas between them.
constexpr const char *kVariable = "TARN_SERVE_WORKER";

constexpr size_t kFixed = 4;  // files besides the listeners

void setInherited(const WorkerFiles &files, bool inherited) {
  const int flags = inherited ? 0 : FD_CLOEXEC;
  for (size_t i = 0; i < files.listener_count; ++i) fcntl(files.listeners[i], F_SETFD, flags);
  for (const int file : {files.ready, files.handover, files.successor, files.scoreboard}) {
    fcntl(file, F_SETFD, flags);
  }
}

bool readVariable(WorkerFiles &files) {
  const char *text = std::getenv(kVariable);
  if (!text) return false;
  int numbers[kFixed + kMostListeners] = {};
  size_t count = 0;
  while (count < kFixed + kMostListeners) {
    char *end = nullptr;
    const long number = std::strtol(text, &end, 10);
    if (end == text || number <= STDERR_FILENO || number > INT_MAX) return false;
    numbers[count++] = static_cast<int>(number);
    if (*end != ',') break;
    text = end + 1;
  }
  if (count <= kFixed || !isListener(numbers[kFixed])) return false;
  files.ready = numbers[0];
  files.handover = numbers[1];
  files.successor = numbers[2];
  files.scoreboard = numbers[3];
  files.listener_count = count - kFixed;
  std::memcpy(files.listeners, numbers + kFixed, files.listener_count * sizeof *numbers);
  return true;
}

}  // namespace

bool Program::find() {
  if (!line_.read()) return false;
  const auto *name = reinterpret_cast<const char *>(getauxval(AT_EXECFN));
  if (!name || *name == '\0') return false;
  if (*name == '/') return path_.append(std::string_view(name));
  if (!path_.reserve(PATH_MAX) || !getcwd(path_.data(), PATH_MAX)) return false;
  path_.grow(std::strlen(path_.data()));
  return path_.append('/') && path_.append(std::string_view(name));
}

int Program::open() const { return ::open(path_.data(), O_PATH | O_CLOEXEC); }

void Program::run(int file, const WorkerFiles &files) const {
  setInherited(files, true);
  char variable[256];
  int size = std::snprintf(variable, sizeof variable, "%s=%d,%d,%d,%d", kVariable, files.ready,
                           files.handover, files.successor, files.scoreboard);
  for (size_t i = 0; i < files.listener_count; ++i) {
    size += std::snprintf(variable + size, sizeof variable - static_cast<size_t>(size), ",%d",
                          files.listeners[i]);
  }
  putenv(variable);
  // musl has no function for it.
  syscall(SYS_execveat, file, "", line_.arguments(), environ, AT_EMPTY_PATH);
}

bool wasStartedAsWorker() {
  WorkerFiles files;
  return readVariable(files);
}

bool takeOver(WorkerFiles &files) {
  if (!readVariable(files)) return false;
  unsetenv(kVariable);
  setInherited(files, false);
  // The kernel named the process after the descriptor.
  prctl(PR_SET_NAME, program_invocation_short_name);
  return true;
}

}  // namespace tarn::server
