#include "serve/notifier.h"

#include <sys/time.h>
#include <unistd.h>

#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace tarn::server {
namespace {

constexpr const char *kVariable = "NOTIFY_SOCKET";

// How long systemd may take to make room for a message.
constexpr timeval kPatience = {1, 0};

}  // namespace

void Notifier::open() {
  const char *path = std::getenv(kVariable);
  const size_t size = path ? std::strlen(path) : 0;
  // The first byte of an abstract address is 0, which is written as "@".
  if (size > 1 && size < sizeof address_.sun_path && (*path == '/' || *path == '@')) {
    address_.sun_family = AF_UNIX;
    std::memcpy(address_.sun_path, path, size);
    if (*path == '@') address_.sun_path[0] = '\0';
    size_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size);
  }
  unsetenv(kVariable);
}

void Notifier::reloading() const {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  const uint64_t time =
      static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
  char message[64];
  std::snprintf(message, sizeof message, "RELOADING=1\nMONOTONIC_USEC=%" PRIu64, time);
  send(message);
}

// If nobody receives it, the service serves as usual.
void Notifier::send(const char *message) const {
  if (size_ == 0) return;
  const int to = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (to < 0) return;
  setsockopt(to, SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
  sendto(to, message, std::strlen(message), MSG_NOSIGNAL,
         reinterpret_cast<const sockaddr *>(&address_), size_);
  close(to);
}

}  // namespace tarn::server
