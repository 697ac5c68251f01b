// Every system call of a service fails in turn, with each error that matters, and every allocation:
// a visitor gets the whole answer, an error page or a closed connection, and nothing is left behind.
#include "support/failing_calls.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "serve/body.h"
#include "serve/child.h"
#include "serve/connection.h"
#include "serve/handover.h"
#include "serve/listener.h"
#include "serve/log.h"
#include "serve/status_server.h"
#include "serve/worker.h"
#include "support/failing_memory.h"
#include "support/fastcgi.h"
#include "support/processor_time.h"

namespace {

using namespace tarn::server;
using namespace tarn_test;
namespace fs = std::filesystem;
namespace fastcgi = tarn_test::fastcgi;

std::set<std::string> openDescriptors() {
  std::set<std::string> files;
  for (const auto &file : fs::directory_iterator("/proc/self/fd")) {
    std::error_code error;
    const std::string target = fs::read_symlink(file.path(), error);
    if (!error) files.insert(file.path().filename().string() + " " + target);
  }
  return files;
}

// Runs a scenario for each call that it makes, with that call failing, alone or with all later ones.
// A scenario has at least so many calls.
template <class Scenario>
void forEachFailingCall(int error, size_t least, const Scenario &scenario) {
  for (const bool and_later : {false, true}) {
    if (and_later && (error == EINTR || error == EAGAIN)) continue;  // these are tried again
    size_t failing = 0;
    do {
      calls = {};
      calls.error = error;
      calls.first_failing = ++failing;
      calls.last_failing = and_later ? SIZE_MAX : failing;
      SCOPED_TRACE("call " + std::to_string(failing) + (and_later ? " and later ones, " : ", ") +
                   std::strerror(error));
      const auto before = openDescriptors();
      scenario();
      EXPECT_EQ(openDescriptors(), before) << calls.failed;
    } while (calls.count >= failing && !testing::Test::HasFailure());
    EXPECT_GT(failing, least) << "few calls were made";
  }
  calls = {};
}

std::string readAll(int file) {
  std::string bytes;
  char buffer[4096];
  for (ssize_t count = 0; (count = read(file, buffer, sizeof buffer)) > 0;) {
    bytes.append(buffer, static_cast<size_t>(count));
  }
  return bytes;
}

// What the service writes to its log is not of interest here.
class Silence {
 public:
  Silence() : errors_(dup(STDERR_FILENO)) {
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(null, STDERR_FILENO);
    close(null);
  }
  ~Silence() {
    dup2(errors_, STDERR_FILENO);
    close(errors_);
  }
  Silence(const Silence &) = delete;
  Silence &operator=(const Silence &) = delete;

 private:
  int errors_;
};

// ---- Bodies --------------------------------------------------------------------------------------

TEST(BodyAtEachFailure, IsWholeOrReportsIt) {
  const std::string first(3000, 'a');
  const std::string second(100000, 'b');
  for (const int error : {EIO, ENOSPC, EMFILE, ENFILE, ENOMEM, EFBIG, EINTR, EOPNOTSUPP, EISDIR}) {
    for (const uint64_t most : {uint64_t{0}, uint64_t{4000}, uint64_t{1000000}}) {
      forEachFailingCall(error, 2, [&] {
        Body body;
        int result = 0;
        const int file = watchCalls([&] {
          result = body.append(first, most);
          if (result == 0) result = body.append(second, most);
          return result == 0 ? body.take() : -1;
        });
        if (file < 0) {
          EXPECT_EQ(result == 0 ? errno : result, error) << calls.failed;
          body.clear();
          EXPECT_EQ(body.size(), 0U);
          // The next body is not affected.
          EXPECT_EQ(body.append("next", 1000), 0);
          EXPECT_EQ(body.size(), 4U);
          return;
        }
        EXPECT_EQ(body.size(), first.size() + second.size());
        EXPECT_TRUE(readAll(file) == first + second) << calls.failed;
        close(file);
      });
    }
  }
}

TEST(BodyAtShortWrites, KeepsEveryByte) {
  calls = {};
  calls.most_written = 7;
  Body body;
  const std::string first(1000, 'a');
  const int file = watchCalls([&] {
    EXPECT_EQ(body.append(first, 2000), 0);
    EXPECT_EQ(body.append(std::string(5000, 'b'), 2000), 0);
    return body.take();
  });
  calls = {};
  EXPECT_TRUE(readAll(file) == first + std::string(5000, 'b'));
  close(file);
}

// ---- Listeners -----------------------------------------------------------------------------------

TEST(ListenerAtEachFailure, IsOpenOrReportsIt) {
  char folder[] = "/tmp/tarn-listener-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string path = std::string(folder) + "/s";
  const std::string local = "unix:" + path;
  for (const int error : {EMFILE, ENFILE, ENOBUFS, ENOMEM, EACCES, EPERM, EADDRINUSE}) {
    for (const bool is_stale : {false, true}) {
      forEachFailingCall(error, 3, [&] {
        const char *problem = nullptr;
        if (is_stale) close(openListener(local.c_str(), 0600, problem));
        const int file = watchCalls([&] { return openListener(local.c_str(), 0600, problem); });
        if (file >= 0) {
          EXPECT_TRUE(isListener(file));
          close(file);
        } else {
          // A stale socket that cannot be removed is in use.
          EXPECT_TRUE(errno == error || errno == EADDRINUSE) << errno << " after " << calls.failed;
          EXPECT_NE(problem, nullptr);
        }
        fs::remove(path);
      });
    }
    forEachFailingCall(error, 3, [&] {
      const char *problem = nullptr;
      const int file = watchCalls([&] { return openListener("tcp:127.0.0.1:0", 0, problem); });
      EXPECT_TRUE(file >= 0 || errno == error) << calls.failed;
      EXPECT_EQ(file < 0, problem != nullptr);
      if (file >= 0) close(file);
    });
  }
  fs::remove_all(folder);
}

// ---- Children ------------------------------------------------------------------------------------

constexpr char kAnswer[] = "Content-Type: text/plain\r\n\r\n";

// Answers with its standard input.
int echo() {
  calls.watched = false;
  const std::string body = readAll(STDIN_FILENO);
  std::fputs(kAnswer, stdout);
  std::fputs(body.c_str(), stdout);
  std::fputs("note", stderr);
  return 3;
}

TEST(ChildAtEachFailure, RunsOrReportsIt) {
  const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
  const int groups = memfd_create("groups", MFD_CLOEXEC);
  const GroupPlace place = {groups, 2};
  char *environment[] = {nullptr};
  char shell[] = "/bin/sh";
  char option[] = "-c";
  char commands[] = "printf 'Content-Type: text/plain\\r\\n\\r\\n'; exit 3";
  char *const program[] = {shell, option, commands, nullptr};
  for (const Script &script : {Script{echo}, Script{nullptr, program}}) {
    for (const int error : {EAGAIN, ENOMEM, EMFILE, ENFILE, ENOSYS}) {
      forEachFailingCall(error, 3, [&] {
        Child child;
        const KeptFiles kept;
        EXPECT_EQ(ftruncate(groups, 0), 0);
        const int result = watchCalls(
            [&] { return startChild(script, environment, null, {}, kept, place, child); });
        if (result != 0) {
          EXPECT_EQ(result, error) << calls.failed;
          EXPECT_LT(child.process, 0);
          EXPECT_EQ(waitpid(-1, nullptr, 0), -1) << "a child was started";
          return;
        }
        fcntl(child.output, F_SETFL, 0);
        const std::string output = readAll(child.output);
        int status = 0;
        EXPECT_EQ(waitpid(child.process, &status, 0), child.process);
        ASSERT_TRUE(WIFEXITED(status));
        // A script whose descriptors cannot be placed does not run.
        EXPECT_EQ(output, WEXITSTATUS(status) == 3 ? kAnswer : "") << calls.failed;
        EXPECT_TRUE(WEXITSTATUS(status) == 3 || WEXITSTATUS(status) == 127) << status;
        pid_t group = 0;
        const ssize_t size = pread(groups, &group, sizeof group, 2 * sizeof group);
        EXPECT_TRUE(group == child.process || (size == 0 && output.empty())) << calls.failed;
        close(child.output);
        close(child.errors);
      });
    }
  }
  close(groups);
  close(null);
}

// ---- Connections ---------------------------------------------------------------------------------

const std::string kBody(3000, 'b');
const std::string kRequest = fastcgi::request(
    1, fastcgi::pair("REQUEST_METHOD", "POST") + fastcgi::pair("REQUEST_URI", "/a"), kBody);

// The bytes of a stream, and how the request ended.
struct Answer {
  std::string output;
  std::string errors;
  bool ended = false;
  uint32_t status = 0;
};

Answer parse(std::string_view bytes) {
  Answer answer;
  while (bytes.size() >= 8) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const size_t size = byte(4) * 256U + byte(5);
    const std::string_view content = bytes.substr(8, size);
    if (content.size() < size) break;
    if (byte(1) == fastcgi::kStdout) answer.output += content;
    if (byte(1) == fastcgi::kStderr) answer.errors += content;
    if (byte(1) == fastcgi::kEnd) {
      answer.ended = true;
      answer.status = byte(8) << 24 | byte(9) << 16 | byte(10) << 8 | byte(11);
    }
    bytes.remove_prefix(8 + size + byte(6));
  }
  return answer;
}

// When the output of a child is read.
enum class Reading {
  kAtOnce,
  kAtTheEnd,  // so that the same calls are made in each run
};

// Does for one connection what a worker does, until the connection is closed.
void serve(Connection &connection, GroupPlace place, Reading reading) {
  for (int rounds = 0; connection.stage() != Stage::kClosed; ++rounds) {
    ASSERT_LT(rounds, 100000) << "in stage " << static_cast<int>(connection.stage());
    const Child child = connection.child();
    const bool runs = connection.stage() == Stage::kRunning;
    if (connection.stage() == Stage::kWaiting) {
      connection.start(place, currentTime());
    } else if (!runs || reading == Reading::kAtOnce) {
      const short output = connection.outputEvents() != 0 ? POLLIN : 0;
      const auto events = static_cast<short>(connection.socketEvents());
      pollfd files[] = {
          {connection.socket(), events, 0}, {child.output, output, 0}, {child.errors, POLLIN, 0}};
      poll(files, 3, 5);
      const uint64_t now = currentTime();
      if (files[1].revents != 0) connection.readOutput(now);
      if (files[2].revents != 0) connection.readErrors();
      if ((files[0].revents & POLLIN) != 0) {
        connection.readSocket(now);
      } else if ((files[0].revents & (POLLHUP | POLLERR)) != 0) {
        connection.disconnected(now);
      }
    }
    int status = 0;
    const pid_t process = connection.child().process;
    if (process > 0 && waitpid(process, &status, reading == Reading::kAtOnce ? WNOHANG : 0) > 0) {
      connection.childEnded(status, currentTime());
    }
    if (connection.stage() != Stage::kClosed) connection.settle(currentTime());
    if (connection.stage() != Stage::kClosed) connection.checkTime(currentTime());
  }
}

// A request over a pair of sockets, whose answer is read at the end.
class Exchange {
 public:
  explicit Exchange(uint64_t body_in_memory) {
    std::fflush(nullptr);  // or each child would write it
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_), 0);
    EXPECT_EQ(write(ends_[0], kRequest.data(), kRequest.size()),
              static_cast<ssize_t>(kRequest.size()));
    shutdown(ends_[0], SHUT_WR);
    shared_.options.script = {echo, nullptr};
    shared_.options.body_in_memory = body_in_memory;
    shared_.most_connections = 1;
    shared_.null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    shared_.condemned.setPlaces(groups_);
  }
  ~Exchange() {
    close(ends_[0]);
    close(place_.file);
    close(shared_.null);
    EXPECT_EQ(waitpid(-1, nullptr, 0), -1) << "a child is left";
  }
  Exchange(const Exchange &) = delete;
  Exchange &operator=(const Exchange &) = delete;

  // Serves the connection and closes its end.
  int run(Reading reading) {
    Connection connection(shared_, ends_[1]);
    serve(connection, place_, reading);
    return 0;
  }

  Answer answer() {
    // A child whose connection is closed is killed.
    while (waitpid(-1, nullptr, 0) > 0) {
    }
    return parse(readAll(ends_[0]));
  }

 private:
  Shared shared_;
  std::atomic<pid_t> groups_[CondemnedGroups::kMost] = {};
  GroupPlace place_ = {memfd_create("groups", MFD_CLOEXEC), 0};
  int ends_[2] = {-1, -1};
};

void expectAnswer(const Answer &answer) {
  const std::string whole = kAnswer + kBody;
  const bool is_page = answer.output.rfind("Status: 5", 0) == 0;
  if (answer.ended) {
    EXPECT_TRUE(answer.output == whole || is_page) << answer.output.substr(0, 100);
    EXPECT_TRUE(is_page || answer.status == 3) << answer.status;
  } else {
    EXPECT_TRUE(whole.rfind(answer.output, 0) == 0 || is_page) << answer.output.substr(0, 100);
  }
}

volatile sig_atomic_t signals = 0;

TEST(SignalGroup, ReachesTheGroupOfAChildAndNotThisOne) {
  const auto before = std::signal(SIGURG, [](int) { signals = signals + 1; });
  signalGroup(0, SIGURG);  // this group, to kill()
  EXPECT_EQ(0, signals);
  std::signal(SIGURG, before);

  const pid_t child = fork();
  if (child == 0) {
    for (;;) pause();
  }
  setpgid(child, child);
  signalGroup(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(SIGKILL, WTERMSIG(status));
}

TEST(Connections, AnswerARequest) {
  const Silence silence;
  for (const uint64_t most : {0, 1000, 1000000}) {
    Exchange exchange(most);
    exchange.run(Reading::kAtOnce);
    const Answer answer = exchange.answer();
    EXPECT_TRUE(answer.ended);
    EXPECT_EQ(answer.status, 3U);
    EXPECT_EQ(answer.output, kAnswer + kBody);
    EXPECT_EQ(answer.errors, "note");
  }
}

TEST(ConnectionsAtEachFailure, AnswerOrClose) {
  const Silence silence;
  const std::vector<int> all = {EIO, EAGAIN, EMFILE, ENOMEM, EINTR, ECONNRESET, EPIPE, ENOSPC};
  const std::vector<int> few(all.begin(), all.begin() + 3);
  for (const int error : slowness() > 1 ? few : all) {
    size_t whole = 0;
    forEachFailingCall(error, 10, [&] {
      Exchange exchange(1000);
      watchCalls([&] { return exchange.run(Reading::kAtOnce); });
      const Answer answer = exchange.answer();
      expectAnswer(answer);
      whole += answer.ended && answer.status == 3;
    });
    EXPECT_GT(whole, 0U) << error;
  }
}

TEST(ConnectionsAtEachFailure, OfMemoryAnswerOrClose) {
  const Silence silence;
  forEachFailingAllocation([&](FailingMemory &memory) {
    Exchange exchange(1000);
    memory.call([&] { return exchange.run(Reading::kAtTheEnd); });
    expectAnswer(exchange.answer());
  });
}

// ---- The status ----------------------------------------------------------------------------------

// A client of the status that has sent its request.
class StatusClient {
 public:
  explicit StatusClient(const std::string &path)
      : file_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path.c_str());
    EXPECT_EQ(connect(file_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    constexpr std::string_view kQuestion = "GET /ready HTTP/1.1\r\n\r\n";
    EXPECT_EQ(write(file_, kQuestion.data(), kQuestion.size()),
              static_cast<ssize_t>(kQuestion.size()));
    shutdown(file_, SHUT_WR);
    fcntl(file_, F_SETFL, O_NONBLOCK);
  }
  ~StatusClient() { close(file_); }
  StatusClient(const StatusClient &) = delete;
  StatusClient &operator=(const StatusClient &) = delete;

  // Reads what is there. Returns whether the connection has ended.
  bool read() {
    char block[4096];
    const ssize_t count = recv(file_, block, sizeof block, 0);
    if (count > 0) answer_.append(block, static_cast<size_t>(count));
    return count == 0 || (count < 0 && errno != EAGAIN);
  }

  const std::string &answer() const { return answer_; }

 private:
  int file_;
  std::string answer_;
};

// What the client gets. The clock goes on by 100 ms in each round.
std::string answerTo(StatusServer &server, StatusClient &client, uint64_t &now, bool fails) {
  Status status;
  status.ready = true;
  for (int rounds = 0; rounds < 100; ++rounds) {
    pollfd files[StatusServer::kMostFiles];
    const size_t count = server.watch(files);
    poll(files, count, 0);
    now += 100;
    const auto serve = [&] {
      if (server.receive(files, count, now)) server.answer(status);
      return 0;
    };
    fails ? watchCalls(serve) : serve();
    if (client.read()) return client.answer();
  }
  EXPECT_TRUE(fails) << "no end";
  return client.answer();
}

TEST(StatusAtEachFailure, IsAnsweredOrClosedAndThenAnswered) {
  const Silence silence;
  char folder[] = "/tmp/tarn-status-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string path = std::string(folder) + "/s";
  const std::string address = "unix:" + path;
  for (const int error : {EMFILE, ENFILE, ENOMEM, EINTR, EAGAIN, ECONNABORTED, ECONNRESET}) {
    size_t whole = 0;
    forEachFailingCall(error, 5, [&] {
      StatusServer server;
      if (!watchCalls([&] { return server.open(address.c_str(), 0600); })) return;
      uint64_t now = 1;
      StatusClient first(path);
      const std::string answer = answerTo(server, first, now, true);
      EXPECT_TRUE(answer.empty() || answer.ends_with("\r\n\r\nready\n")) << answer;
      whole += !answer.empty();
      StatusClient second(path);
      EXPECT_TRUE(answerTo(server, second, now, false).ends_with("\r\n\r\nready\n"));
    });
    EXPECT_GT(whole, 0U) << error;
    EXPECT_FALSE(fs::exists(path));
  }
  fs::remove_all(folder);
}

// ---- Workers -------------------------------------------------------------------------------------

// A worker in a process of its own, in which calls fail as `failing` says.
class ServingProcess {
 public:
  explicit ServingProcess(const Calls &failing) {
    EXPECT_NE(mkdtemp(folder_), nullptr);
    path_ = std::string(folder_) + "/s";
    const char *problem = nullptr;
    const int listener = openListener(("unix:" + path_).c_str(), 0600, problem);
    EXPECT_GE(listener, 0) << problem;
    int handover[2] = {-1, -1};
    int ready[2] = {-1, -1};
    EXPECT_TRUE(openHandover(handover));
    EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
    const int scoreboard = memfd_create("scoreboard", MFD_CLOEXEC);
    EXPECT_EQ(ftruncate(scoreboard, sizeof(Scoreboard)), 0);
    std::fflush(nullptr);
    process_ = fork();
    if (process_ == 0) {
      WorkerFiles files;
      files.listeners[0] = listener;
      files.listener_count = 1;
      files.ready = ready[1];
      files.handover = handover[0];
      files.successor = handover[1];
      files.scoreboard = scoreboard;
      Options options;
      options.script = {echo, nullptr};
      calls = failing;
      calls.watched = true;
      _exit(work(options, files));
    }
    for (const int file : {listener, handover[0], handover[1], ready[1], scoreboard}) close(file);
    char byte = 0;
    serves_ = read(ready[0], &byte, 1) == 1;
    close(ready[0]);
  }
  ~ServingProcess() {
    if (process_ > 0) end();
    fs::remove_all(folder_);
  }
  ServingProcess(const ServingProcess &) = delete;
  ServingProcess &operator=(const ServingProcess &) = delete;

  // Whether it has begun.
  bool serves() const { return serves_; }

  // Sends a request and waits for its answer.
  Answer ask() const {
    const int file = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path_.c_str());
    const timeval long_time = {60, 0};
    setsockopt(file, SOL_SOCKET, SO_RCVTIMEO, &long_time, sizeof long_time);
    EXPECT_EQ(connect(file, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    // The worker may have closed the connection by now.
    const ssize_t sent = send(file, kRequest.data(), kRequest.size(), MSG_NOSIGNAL);
    EXPECT_TRUE(sent == static_cast<ssize_t>(kRequest.size()) || errno == EPIPE) << errno;
    errno = 0;
    const Answer answer = parse(readAll(file));
    EXPECT_NE(errno, EAGAIN) << "no answer";
    close(file);
    return answer;
  }

  // Tells it to end. Returns its status, as waitpid() reports it.
  int end() {
    kill(process_, SIGTERM);
    int status = -1;
    EXPECT_EQ(waitpid(process_, &status, 0), process_);
    process_ = -1;
    return status;
  }

 private:
  char folder_[32] = "/tmp/tarn-worker-XXXXXX";
  std::string path_;
  pid_t process_ = -1;
  bool serves_ = false;
};

Calls failing(const char *name, int error, size_t times) {
  Calls failing;
  failing.only = name;
  failing.error = error;
  failing.first_failing = 1;
  failing.most_failures = times;
  return failing;
}

void expectWhole(const Answer &answer) {
  EXPECT_EQ(answer.output, kAnswer + kBody);
  EXPECT_TRUE(answer.ended);
}

TEST(WorkerAtEachFailure, AcceptsAgain) {
  const Silence silence;
  for (const int error : {EMFILE, ENFILE, ENOBUFS, ENOMEM, ECONNABORTED, EINTR, EAGAIN, EPROTO,
                          EPERM, ENETDOWN, EHOSTUNREACH, ETIMEDOUT}) {
    SCOPED_TRACE(std::strerror(error));
    ServingProcess worker(failing("accept4", error, 2));
    ASSERT_TRUE(worker.serves());
    expectWhole(worker.ask());
    expectWhole(worker.ask());
    EXPECT_EQ(worker.end(), 0);
  }
}

TEST(WorkerAtEachFailure, RefusesARequestThatItCannotServe) {
  const Silence silence;
  const struct {
    const char *name;
    int error;
  } failures[] = {{"fork", EAGAIN},  {"fork", ENOMEM},         {"fork", ENOSYS},
                  {"pipe2", EMFILE}, {"pipe2", ENFILE},        {"memfd_create", EMFILE},
                  {"lseek", EINVAL}, {"memfd_create", ENOMEM}, {"write", ENOSPC}};
  for (const auto &failure : failures) {
    SCOPED_TRACE(std::string(failure.name) + ": " + std::strerror(failure.error));
    Calls calls = failing(failure.name, failure.error, 1);
    // The first write tells that the worker has begun.
    calls.spared = std::strcmp(failure.name, "write") == 0 ? 1 : 0;
    ServingProcess worker(calls);
    ASSERT_TRUE(worker.serves());
    const Answer refused = worker.ask();
    EXPECT_EQ(refused.output.substr(0, 11), "Status: 503");
    EXPECT_TRUE(refused.ended);
    expectWhole(worker.ask());
    EXPECT_EQ(worker.end(), 0);
  }
}

TEST(WorkerAtEachFailure, ServesTheNextRequestIfItCannotWatchOne) {
  const Silence silence;
  size_t serving = 0;
  for (const int error : {ENOMEM, ENOSPC}) {
    for (size_t spared = 0; spared < 12; ++spared) {
      SCOPED_TRACE(spared);
      Calls calls = failing("epoll_ctl", error, 1);
      calls.spared = spared;
      ServingProcess worker(calls);
      if (!worker.serves()) {
        EXPECT_EQ(WEXITSTATUS(worker.end()), 1);
        continue;
      }
      ++serving;
      expectAnswer(worker.ask());
      // One request takes a few calls.
      expectAnswer(worker.ask());
      expectAnswer(worker.ask());
      expectWhole(worker.ask());
      EXPECT_EQ(worker.end(), 0);
    }
  }
  EXPECT_GT(serving, 10U);
}

}  // namespace
