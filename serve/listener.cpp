#include "serve/listener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
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

// How long to wait for another service that starts, in milliseconds. That takes less than one.
constexpr uint64_t kPatience = 5000;

// Lets one service at a time take a path. Between bind() and listen() a socket looks like one that
// nobody listens on, and no call replaces a file only if it is still the one that was looked at. So
// without a lock, two services that find the same old socket could each remove the other's new one.
//
// The lock is on a file beside the socket. A lock on the directory would leave no file behind, but
// everybody who may read a directory can lock it. Only the user of the service can open this file. It
// is removed while it is locked; so whoever gets the lock looks whether the file still has the name.
class PathLock {
 public:
  PathLock() = default;
  ~PathLock();
  PathLock(const PathLock &) = delete;
  PathLock &operator=(const PathLock &) = delete;

  // Returns false with errno set.
  bool take(const char *path);

 private:
  bool tryToTake();

  char path_[sizeof(sockaddr_un::sun_path) + 16] = "";
  int file_ = -1;
};

PathLock::~PathLock() {
  if (file_ < 0) return;
  const int error = errno;
  unlink(path_);
  close(file_);
  errno = error;
}

// Returns false with EWOULDBLOCK if another process has the lock.
bool PathLock::tryToTake() {
  const int file = open(path_, O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
  if (file < 0) return false;
  struct stat locked;
  struct stat named;
  int error = 0;
  if (flock(file, LOCK_EX | LOCK_NB) != 0 || fstat(file, &locked) != 0) {
    error = errno;
  } else if (lstat(path_, &named) != 0 || named.st_dev != locked.st_dev ||
             named.st_ino != locked.st_ino) {
    error = EWOULDBLOCK;  // the one who had it has just removed it
  }
  if (error == 0) {
    file_ = file;
    return true;
  }
  close(file);
  errno = error;
  return false;
}

bool PathLock::take(const char *path) {
  std::snprintf(path_, sizeof path_, "%s.tarn-lock", path);
  const uint64_t end = currentTime() + kPatience;
  while (!tryToTake()) {
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    if (currentTime() >= end) {
      errno = EWOULDBLOCK;
      return false;
    }
    poll(nullptr, 0, 1);
  }
  return true;
}

bool isSocket(const char *path) {
  struct stat about;
  return lstat(path, &about) == 0 && S_ISSOCK(about.st_mode);
}

// Whether the file is a socket whose owner has gone.
bool isStale(const Address &address) {
  if (!isSocket(address.local.sun_path)) return false;
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
  PathLock lock;
  if (!lock.take(path)) {
    return fail(problem, errno == EWOULDBLOCK
                             ? "another service starts there, and does not come to an end"
                             : "cannot lock the path, with a file whose name ends in .tarn-lock");
  }
  if (isStale(address)) unlink(path);
  const int file = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (file < 0) return fail(problem, "cannot create a socket");
  // Nobody can connect before listen(), so the mode is right in time.
  if (bind(file, &address.any, sizeof address.local) != 0) {
    const int error = errno;
    const char *what = error != EADDRINUSE ? "cannot bind the socket"
                       : isSocket(path)    ? "another service listens there"
                                           : "there is a file that is not a socket";
    errno = error;
    return fail(problem, what, file);
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
