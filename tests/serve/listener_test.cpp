// Sockets that a service listens on.
#include "serve/listener.h"

#include <gtest/gtest.h>

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

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace tarn::server;
namespace fs = std::filesystem;

class Folder {
 public:
  Folder() {
    char path[] = "/tmp/tarn-listener-XXXXXX";
    path_ = mkdtemp(path);
  }
  ~Folder() { fs::remove_all(path_); }
  Folder(const Folder &) = delete;
  Folder &operator=(const Folder &) = delete;

  std::string path(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

class File {
 public:
  explicit File(int file) : file_(file) {}
  ~File() { close(); }
  File(const File &) = delete;
  File &operator=(const File &) = delete;

  operator int() const { return file_; }
  void close() {
    if (file_ >= 0) ::close(file_);
    file_ = -1;
  }

 private:
  int file_;
};

int openAt(const std::string &address, unsigned mode = 0600) {
  const char *problem = nullptr;
  const int file = openListener(address.c_str(), mode, problem);
  EXPECT_EQ(problem != nullptr, file < 0);
  return file;
}

struct Failure {
  std::string problem;
  int error;
};

Failure failureOf(const std::string &address) {
  const char *problem = "none";
  errno = 0;
  const File file(openListener(address.c_str(), 0600, problem));
  EXPECT_LT(file, 0) << address;
  return {problem, errno};
}

int connectTo(const std::string &path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, path.c_str());
  const int file = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(file, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) return file;
  close(file);
  return -1;
}

in_port_t portOf(int file) {
  sockaddr_storage address = {};
  socklen_t size = sizeof address;
  EXPECT_EQ(getsockname(file, reinterpret_cast<sockaddr *>(&address), &size), 0);
  return ntohs(reinterpret_cast<sockaddr_in *>(&address)->sin_port);
}

int option(int file, int level, int name) {
  int value = -1;
  socklen_t size = sizeof value;
  EXPECT_EQ(getsockopt(file, level, name, &value, &size), 0);
  return value;
}

TEST(UnixListener, TakesConnections) {
  const Folder folder;
  const File listener(openAt("unix:" + folder.path("s")));
  EXPECT_TRUE(isListener(listener));
  EXPECT_NE(fcntl(listener, F_GETFD) & FD_CLOEXEC, 0);
  const File client(connectTo(folder.path("s")));
  EXPECT_GE(client, 0);
  const File accepted(accept(listener, nullptr, nullptr));
  EXPECT_GE(accepted, 0);
  EXPECT_FALSE(isListener(accepted));
}

TEST(UnixListener, HasTheMode) {
  const Folder folder;
  const mode_t mask = umask(077);
  for (const unsigned mode : {0600U, 0660U, 0777U, 0U}) {
    const std::string path = folder.path(std::to_string(mode));
    const File listener(openAt("unix:" + path, mode));
    struct stat about;
    ASSERT_EQ(stat(path.c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 07777, mode);
  }
  umask(mask);
}

TEST(UnixListener, ReplacesOneThatNobodyListensOn) {
  const Folder folder;
  const std::string path = folder.path("s");
  { const File listener(openAt("unix:" + path)); }
  EXPECT_LT(connectTo(path), 0);
  const File listener(openAt("unix:" + path));
  EXPECT_GE(listener, 0);
  EXPECT_GE(File(connectTo(path)), 0);
}

TEST(UnixListener, LeavesAlone) {
  const Folder folder;
  const std::string address = "unix:" + folder.path("s");
  const File listener(openAt(address));
  const File waiting(connectTo(folder.path("s")));
  const Failure failure = failureOf(address);
  EXPECT_EQ(failure.error, EADDRINUSE) << "a socket that somebody listens on";
  EXPECT_EQ(failure.problem, "another service listens there");
  EXPECT_GE(File(connectTo(folder.path("s"))), 0);

  std::ofstream(folder.path("file")) << "kept";
  const Failure file = failureOf("unix:" + folder.path("file"));
  EXPECT_EQ(file.error, EADDRINUSE);
  EXPECT_EQ(file.problem, "there is a file that is not a socket");
  EXPECT_EQ(fs::file_size(folder.path("file")), 4U);

  { const File stale(openAt("unix:" + folder.path("stale"))); }
  fs::create_symlink("stale", folder.path("link"));
  EXPECT_EQ(failureOf("unix:" + folder.path("link")).error, EADDRINUSE);
  EXPECT_TRUE(fs::is_symlink(folder.path("link")));
}

// Several services start at once on a socket that nobody listens on any more, or on none.
TEST(UnixListener, IsGotByExactlyOne) {
  constexpr int kRounds = 200;
  constexpr int kThreads = 3;
  const Folder folder;
  const std::string path = folder.path("s");
  for (int round = 0; round < kRounds; ++round) {
    if (round % 2 == 0) {
      const File stale(openAt("unix:" + path));
    } else {
      fs::remove(path);
    }
    int files[kThreads];
    Failure failures[kThreads];
    std::atomic<int> waiting = kThreads;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&, i] {
        const char *problem = "none";
        --waiting;
        while (waiting > 0) {
        }
        files[i] = openListener(("unix:" + path).c_str(), 0600, problem);
        failures[i] = {problem, errno};
      });
    }
    for (std::thread &thread : threads) thread.join();
    int open = -1;
    for (int i = 0; i < kThreads; ++i) {
      if (files[i] >= 0) {
        EXPECT_LT(open, 0) << "two listen, in round " << round;
        open = files[i];
        continue;
      }
      EXPECT_EQ(failures[i].problem, "another service listens there");
      EXPECT_EQ(failures[i].error, EADDRINUSE);
    }
    ASSERT_GE(open, 0) << round;
    // It has the file: a client reaches it.
    const File client(connectTo(path));
    EXPECT_GE(client, 0) << round;
    pollfd arrived = {open, POLLIN, 0};
    EXPECT_EQ(poll(&arrived, 1, 1000), 1) << round;
    for (const int file : files) {
      if (file >= 0) close(file);
    }
  }
  fs::remove(path);
  EXPECT_TRUE(fs::is_empty(fs::path(path).parent_path()));
}

// A service that was killed while it started has left its lock.
TEST(UnixListener, NeedsNoLockOfTheDead) {
  const Folder folder;
  std::ofstream(folder.path("s.tarn-lock")) << "";
  EXPECT_GE(File(openAt("unix:" + folder.path("s"))), 0);
  EXPECT_FALSE(fs::exists(folder.path("s.tarn-lock")));
}

TEST(UnixListener, WaitsForAnotherThatStarts) {
  const Folder folder;
  const std::string lock = folder.path("s.tarn-lock");
  const int file = open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_EQ(flock(file, LOCK_EX), 0);
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    fs::remove(lock);
    close(file);
  });
  EXPECT_GE(File(openAt("unix:" + folder.path("s"))), 0);
  other.join();
  EXPECT_FALSE(fs::exists(lock));
}

TEST(UnixListener, DoesNotWaitForEver) {
  const Folder folder;
  const std::string lock = folder.path("s.tarn-lock");
  const File file(open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(flock(file, LOCK_EX), 0);
  const Failure failure = failureOf("unix:" + folder.path("s"));
  EXPECT_EQ(failure.problem, "another service starts there, and does not come to an end");
  EXPECT_EQ(failure.error, EWOULDBLOCK);
  EXPECT_TRUE(fs::exists(lock));
  EXPECT_FALSE(fs::exists(folder.path("s")));
}

// Somebody else's link must not make the service create a file elsewhere.
TEST(UnixListener, FollowsNoLinkToALock) {
  const Folder folder;
  fs::create_symlink("elsewhere", folder.path("s.tarn-lock"));
  EXPECT_EQ(failureOf("unix:" + folder.path("s")).error, ELOOP);
  EXPECT_FALSE(fs::exists(folder.path("elsewhere")));
}

TEST(UnixListener, NeedsAPathOfTheRightLength) {
  const Folder folder;
  std::string path = folder.path("");
  path.append(107 - path.size(), 'p');
  EXPECT_GE(File(openAt("unix:" + path)), 0);
  const Failure failure = failureOf("unix:" + path + "p");
  EXPECT_EQ(failure.error, 0);
  EXPECT_EQ(failure.problem, "the path after unix: must have 1 to 107 bytes");
  EXPECT_EQ(failureOf("unix:").problem, failure.problem);
  EXPECT_EQ(failureOf("unix:" + folder.path("none/s")).error, ENOENT);
}

TEST(UnixListener, IsRemoved) {
  const Folder folder;
  const std::string address = "unix:" + folder.path("s");
  const File listener(openAt(address));
  SocketFile file(address.c_str());
  EXPECT_TRUE(fs::exists(folder.path("s")));
  file.remove();
  EXPECT_FALSE(fs::exists(folder.path("s")));
  file.remove();
  SocketFile().remove();
  SocketFile("tcp:127.0.0.1:1").remove();
  SocketFile(address.c_str()).remove();
}

TEST(UnixListener, IsRemovedOnlyIfNoOtherTookItsName) {
  const Folder folder;
  const std::string address = "unix:" + folder.path("s");
  const File first(openAt(address));
  SocketFile file(address.c_str());
  fs::remove(folder.path("s"));
  const File second(openAt(address));
  ASSERT_GE(second, 0);
  file.remove();
  EXPECT_GE(File(connectTo(folder.path("s"))), 0);
}

TEST(TcpListener, TakesConnections) {
  for (const char *address : {"tcp:127.0.0.1:0", "tcp:[::1]:0"}) {
    const bool is_v6 = std::strchr(address, '[') != nullptr;
    const char *problem = nullptr;
    const File listener(openListener(address, 0600, problem));
    if (is_v6 && listener < 0 && (errno == EAFNOSUPPORT || errno == EADDRNOTAVAIL)) continue;
    ASSERT_TRUE(isListener(listener)) << address;
    EXPECT_NE(portOf(listener), 0);
    const File client(socket(is_v6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_storage own = {};
    socklen_t size = sizeof own;
    ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr *>(&own), &size), 0);
    ASSERT_EQ(connect(client, reinterpret_cast<sockaddr *>(&own), size), 0);
    const File accepted(accept(listener, nullptr, nullptr));
    ASSERT_GE(accepted, 0);
    // Small records are sent at once, and a web server whose machine is gone is noticed.
    EXPECT_NE(option(accepted, IPPROTO_TCP, TCP_NODELAY), 0);
    EXPECT_NE(option(accepted, SOL_SOCKET, SO_KEEPALIVE), 0);
  }
}

TEST(TcpListener, TakesAPortWhoseConnectionsFade) {
  in_port_t port = 0;
  {
    const File listener(openAt("tcp:127.0.0.1:0"));
    port = portOf(listener);
    const File client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in own = {};
    own.sin_family = AF_INET;
    own.sin_port = htons(port);
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(connect(client, reinterpret_cast<sockaddr *>(&own), sizeof own), 0);
    File accepted(accept(listener, nullptr, nullptr));
    accepted.close();  // this side closes first, so its port waits
    char byte = 0;
    EXPECT_EQ(::read(client, &byte, 1), 0);
  }
  const File listener(openAt("tcp:127.0.0.1:" + std::to_string(port)));
  EXPECT_GE(listener, 0);
  EXPECT_EQ(failureOf("tcp:127.0.0.1:" + std::to_string(port)).error, EADDRINUSE);
}

TEST(Listener, NeedsAnAddress) {
  for (const char *address :
       {"tcp:",
        "tcp:80",
        "tcp:127.0.0.1",
        "tcp:127.0.0.1:",
        "tcp:127.0.0.1:x",
        "tcp:127.0.0.1:65536",
        "tcp:127.0.0.1:-1",
        "tcp:127.0.0.1: 80",
        "tcp:127.0.0.1:+80",
        "tcp:127.0.0.1:80x",
        "tcp:127.0.0.1:99999999999999999999",
        "tcp:localhost:80",
        "tcp:::1:80",
        "tcp:[::1:80",
        "tcp:::1]:80",
        "tcp:[]:80",
        "tcp::80",
        "tcp:[127.0.0.1]:80",
        "tcp:[::1]80",
        "tcp:[::1]",
        "tcp:256.0.0.1:80",
        "tcp:1111111111111111111111111111111111111111111111111111111111111111111111:80"}) {
    const Failure failure = failureOf(address);
    EXPECT_EQ(failure.error, 0) << address;
    EXPECT_EQ(failure.problem,
              "the address must be tcp:IPV4:PORT or tcp:[IPV6]:PORT, such as tcp:127.0.0.1:9000 or "
              "tcp:[::1]:9000");
  }
  for (const char *address :
       {"", "unix", "tcp", "/run/socket", "127.0.0.1:80", "UNIX:/a", " tcp:1"}) {
    const Failure failure = failureOf(address);
    EXPECT_EQ(failure.error, 0) << address;
    EXPECT_EQ(failure.problem, "the address must begin with unix: or tcp:");
  }
}

TEST(Listener, IsASocketThatListens) {
  const File bound(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  EXPECT_FALSE(isListener(bound));
  EXPECT_FALSE(isListener(-1));
  const File null(open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_FALSE(isListener(null));
}

}  // namespace
