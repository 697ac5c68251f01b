#include "serve/environment.h"

#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "serve/listener.h"

namespace tarn::server {
namespace {

constexpr int kFirstOfSystemd = 3;

// The number in a variable; -1 without one.
long variable(const char *name) {
  const char *text = std::getenv(name);
  char *end = nullptr;
  const long number = text ? std::strtol(text, &end, 10) : -1;
  return text && end != text && *end == '\0' ? number : -1;
}

}  // namespace

bool isCgi() {
  return !isListener(STDIN_FILENO) &&
         (std::getenv("GATEWAY_INTERFACE") != nullptr || std::getenv("REQUEST_METHOD") != nullptr);
}

size_t inheritedListeners(int *sockets, size_t most) {
  if (isListener(STDIN_FILENO)) {
    sockets[0] = STDIN_FILENO;
    return 1;
  }
  if (variable("LISTEN_PID") != getpid()) return 0;
  const long passed = variable("LISTEN_FDS");
  size_t count = 0;
  // They are descriptors in a row. The number may be a lie.
  for (int i = 0; i < passed && count < most; ++i) {
    const int socket = kFirstOfSystemd + i;
    if (fcntl(socket, F_GETFD) < 0) break;
    if (isListener(socket)) sockets[count++] = socket;
  }
  return count;
}

int openNull(int flags) {
  const int file = open("/dev/null", flags);
  int ends[2];
  if (file >= 0 || pipe2(ends, flags & O_CLOEXEC) != 0) return file;
  close(ends[1]);
  return ends[0];
}

CommandLine::~CommandLine() { std::free(arguments_); }

bool CommandLine::read() { return readProc() || readStack(); }

bool CommandLine::readProc() {
  const int file = open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC);
  if (file < 0) return false;
  ssize_t size = -1;
  while (text_.reserve(4096) && (size = ::read(file, text_.end(), 4096)) > 0) {
    text_.grow(static_cast<size_t>(size));
  }
  close(file);
  if (size != 0 || text_.size() == 0) return false;

  size_t count = 0;
  for (const char c : text_.view()) count += c == '\0';
  arguments_ = static_cast<char **>(std::calloc(count + 1, sizeof *arguments_));
  if (!arguments_) return false;
  char *argument = text_.data();
  for (size_t i = 0; i < count; ++i) {
    arguments_[i] = argument;
    argument += std::strlen(argument) + 1;
  }
  count_ = static_cast<int>(count);
  return count > 0;
}

// A program starts with this on its stack: the number of arguments, their addresses, a null pointer,
// and the environment. A program that has added variables may have moved its environment elsewhere.
bool CommandLine::readStack() {
  const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  const auto first = reinterpret_cast<uintptr_t>(environ);
  if (first < here + 2 * sizeof(uintptr_t) || first >= getauxval(AT_EXECFN)) return false;
  const auto *end = reinterpret_cast<const uintptr_t *>(environ) - 1;  // of the arguments
  if (*end != 0) return false;
  const size_t most = (first - here) / sizeof(uintptr_t) - 1;
  size_t count = 0;
  while (count < most && end[-1 - static_cast<ptrdiff_t>(count)] != count) ++count;
  if (count == 0 || count == most) return false;

  arguments_ = static_cast<char **>(std::calloc(count + 1, sizeof *arguments_));
  if (!arguments_) return false;
  std::memcpy(arguments_, end - count, count * sizeof *arguments_);
  count_ = static_cast<int>(count);
  return true;
}

}  // namespace tarn::server
