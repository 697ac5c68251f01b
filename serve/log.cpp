#include "serve/log.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace tarn::server {
namespace {

constexpr int kPatience = 1000;  // milliseconds

bool is_stuck = false;

// A pipe that poll() reports as writable has room for PIPE_BUF bytes.
bool hasRoom() {
  pollfd file = {STDERR_FILENO, POLLOUT, 0};
  const int ready = poll(&file, 1, is_stuck ? 0 : kPatience);
  is_stuck = ready == 0;
  return ready != 0;
}

}  // namespace

void writeLog(std::string_view bytes) {
  while (!bytes.empty() && hasRoom()) {
    const ssize_t count =
        write(STDERR_FILENO, bytes.data(), std::min<size_t>(bytes.size(), PIPE_BUF));
    if (count < 0 && errno != EINTR && errno != EAGAIN) return;
    if (count > 0) bytes.remove_prefix(static_cast<size_t>(count));
  }
}

void log(const char *format, ...) {
  char line[1024] = "tarn-serve: ";
  const size_t start = std::strlen(line);
  const size_t room = sizeof line - start - 1;  // for the line end
  va_list arguments;
  va_start(arguments, format);
  const int wanted = std::vsnprintf(line + start, room, format, arguments);
  va_end(arguments);
  size_t size = wanted < 0 ? 0 : static_cast<size_t>(wanted);
  if (size >= room) size = room - 1;
  line[start + size] = '\n';
  writeLog({line, start + size + 1});
}

uint64_t currentTime() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<uint64_t>(time.tv_sec) * 1000 + static_cast<uint64_t>(time.tv_nsec) / 1000000;
}

}  // namespace tarn::server
