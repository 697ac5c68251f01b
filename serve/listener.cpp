#include "serve/listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "serve/log.h"

namespace tarn::server {
namespace {

// The kernel reduces it to /proc/sys/net/core/somaxconn.
constexpr int kBacklog = 4096;

int fail(const char *&problem, const char *what, int file = -1) {
  const int error = errno;
  problem = what;
  if (file >= 0) close(file);
  errno = error;
  return -1;
}

// The address is wrong. What the system would call that says nothing more.
int refuse(const char *&problem, const char *what) {
  errno = 0;
  return fail(problem, what);
}

union Address {
  sockaddr any;
  sockaddr_un local;
  sockaddr_in v4;
  sockaddr_in6 v6;
};

// Whether the file is a socket whose owner has gone.
bool isStale(const Address &address) {
  struct stat about;
  if (lstat(address.local.sun_path, &about) != 0 || !S_ISSOCK(about.st_mode)) return false;
  const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (probe < 0) return false;
  const bool refused =
      connect(probe, &address.any, sizeof address.local) != 0 && errno == ECONNREFUSED;
  close(probe);
  return refused;
}

int listenLocally(const char *path, unsigned mode, const char *&problem) {
  Address address = {};
  address.any.sa_family = AF_UNIX;
  const size_t length = std::strlen(path);
  if (length == 0 || length >= sizeof address.local.sun_path) {
    return refuse(problem, "the path after unix: must have 1 to 107 bytes");
  }
  std::memcpy(address.local.sun_path, path, length + 1);
  if (isStale(address)) unlink(path);
  const int file = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (file < 0) return fail(problem, "cannot create a socket");
  // Nobody can connect before listen(), so the mode is right in time.
  if (bind(file, &address.any, sizeof address.local) != 0) {
    return fail(problem, "cannot bind the socket", file);
  }
  if (chmod(path, mode) != 0 || listen(file, kBacklog) != 0) {
    const int error = errno;
    unlink(path);
    errno = error;
    return fail(problem, "cannot listen", file);
  }
  return file;
}

bool readPort(const char *text, in_port_t &port) {
  char *end = nullptr;
  const unsigned long number = std::strtoul(text, &end, 10);
  if (*text < '0' || *text > '9' || *end != '\0' || number > UINT16_MAX) return false;
  port = htons(static_cast<uint16_t>(number));
  return true;
}

// Reads "ADDRESS:PORT" or "[ADDRESS]:PORT". Returns the size of the address; 0 if it cannot be read.
socklen_t readAddress(const char *text, Address &address) {
  char host[64];
  const char *colon = std::strrchr(text, ':');
  if (!colon) return 0;
  std::string_view name(text, static_cast<size_t>(colon - text));
  const bool is_v6 = name.size() > 2 && name.front() == '[' && name.back() == ']';
  if (is_v6) name = {name.data() + 1, name.size() - 2};
  if (name.size() >= sizeof host) return 0;
  std::memcpy(host, name.data(), name.size());
  host[name.size()] = '\0';
  in_port_t port = 0;
  if (!readPort(colon + 1, port)) return 0;
  if (is_v6) {
    address.v6.sin6_family = AF_INET6;
    address.v6.sin6_port = port;
    return inet_pton(AF_INET6, host, &address.v6.sin6_addr) == 1 ? sizeof address.v6 : 0;
  }
  address.v4.sin_family = AF_INET;
  address.v4.sin_port = port;
  return inet_pton(AF_INET, host, &address.v4.sin_addr) == 1 ? sizeof address.v4 : 0;
}

int listenOnPort(const char *text, const char *&problem) {
  Address address = {};
  const socklen_t size = readAddress(text, address);
  if (size == 0) {
    return refuse(problem,
                  "the address must be tcp:IPV4:PORT or tcp:[IPV6]:PORT, such as "
                  "tcp:127.0.0.1:9000 or tcp:[::1]:9000");
  }
  const int file = socket(address.any.sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (file < 0) return fail(problem, "cannot create a socket");
  // Without it, a service cannot begin again while connections of the last one fade.
  const int yes = 1;
  setsockopt(file, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  // Connections inherit these: the end of an answer is sent at once, and a web server whose machine is
  // gone is noticed.
  setsockopt(file, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
  setsockopt(file, SOL_SOCKET, SO_KEEPALIVE, &yes, sizeof yes);
  if (bind(file, &address.any, size) != 0) return fail(problem, "cannot bind the socket", file);
  if (listen(file, kBacklog) != 0) return fail(problem, "cannot listen", file);
  return file;
}

}  // namespace

int openListener(const char *address, unsigned mode, const char *&problem) {
  if (std::strncmp(address, "unix:", 5) == 0) return listenLocally(address + 5, mode, problem);
  if (std::strncmp(address, "tcp:", 4) == 0) return listenOnPort(address + 4, problem);
  return refuse(problem, "the address must begin with unix: or tcp:");
}

int openListener(const char *address, unsigned mode) {
  const char *problem = nullptr;
  const int file = openListener(address, mode, problem);
  const int error = errno;
  if (file < 0 && error == 0) log("'%s': %s", address, problem);
  if (file < 0 && error != 0) log("%s: %s: %s", address, problem, std::strerror(error));
  return file;
}

SocketFile::SocketFile(const char *address) {
  struct stat about;
  if (std::strncmp(address, "unix:", 5) != 0 || lstat(address + 5, &about) != 0) return;
  path_ = address + 5;
  device_ = about.st_dev;
  number_ = about.st_ino;
}

// The kernel does not use the number again while the socket listens.
void SocketFile::remove() {
  struct stat about;
  if (path_ && lstat(path_, &about) == 0 && about.st_dev == device_ && about.st_ino == number_) {
    unlink(path_);
  }
  path_ = nullptr;
}

bool isListener(int descriptor) {
  int listens = 0;
  socklen_t size = sizeof listens;
  return getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens != 0;
}

}  // namespace tarn::server
