#include "serve/server.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "serve/environment.h"
#include "serve/handover.h"
#include "serve/listener.h"
#include "serve/log.h"
#include "serve/notifier.h"
#include "serve/program.h"
#include "serve/program_files.h"
#include "serve/status.h"
#include "serve/status_server.h"
#include "serve/worker.h"

namespace tarn::server {
namespace {

// A worker that dies as soon as this is started again only after a second.
constexpr uint64_t kShortLife = 1000;

// How long a worker may live after it has closed its end of the pipe without a word. One that dies
// closes it a moment before its end is reported.
constexpr uint64_t kTimeToDie = 1000;

constexpr size_t kMostWorkers = 32;

// Where a worker's program is: in the memory of this process, or in a file.
constexpr int kThisProcess = -1;

struct WorkerProcess {
  pid_t process = 0;
  uint64_t number = 0;   // a worker that was started later has a higher one
  uint64_t started = 0;  // when
  int file = kThisProcess;
  int ready = -1;  // to read; -1 once the worker has written to it or closed it
  Scoreboard *scoreboard = nullptr;
  bool serves = false;
  bool ending = false;            // it was told to end
  uint64_t kill_at = UINT64_MAX;  // when it has to be dead
};

class Supervisor {
 public:
  explicit Supervisor(const Options &options) : options_(options) {}
  ~Supervisor();
  Supervisor(const Supervisor &) = delete;
  Supervisor &operator=(const Supervisor &) = delete;

  bool open();
  int run();

 private:
  bool openListeners();
  static bool setUpListener(int &listener);
  void removeSocketFiles();
  bool start(int file);
  bool openFiles(WorkerProcess &worker, WorkerFiles &files) const;
  [[noreturn]] void becomeWorker(int file, const WorkerFiles &files, pid_t supervisor);
  void takeSignals();
  void reload();
  void end();
  void reap();
  void ended(WorkerProcess &worker, int status);
  void readReady(WorkerProcess &worker);
  void becameReady(WorkerProcess &worker);
  void killUseless();
  void keepFigures(const WorkerProcess &worker);
  void collect(Status &status) const;
  void logStatus() const;
  void serveStatus(const pollfd *files, size_t count);
  void release(WorkerProcess &worker) const;
  int nextTime() const;

  const Options &options_;
  Program program_;
  bool can_reload_ = false;
  bool ending_ = false;
  bool served_ = false;  // a worker has been ready
  int exit_status_ = 0;
  int proven_ = kThisProcess;  // the program of the last worker that was ready
  int listeners_[kMostListeners] = {};
  size_t listener_count_ = 0;
  SocketFile socket_files_[kMostListeners];
  int handover_[2] = {-1, -1};
  int signals_ = -1;
  uint64_t started_ = 0;   // workers
  uint64_t start_at_ = 0;  // when a worker has to be started; 0 for never
  WorkerProcess workers_[kMostWorkers];
  Counters past_;  // of workers that have ended
  uint64_t failed_ = 0;
  uint64_t since_ = currentTime();
  time_t since_1970_ = std::time(nullptr);
  StatusServer status_;
  Notifier notifier_;
};

// Scripts have a standard input of their own, so a listener cannot stay there.
bool Supervisor::setUpListener(int &listener) {
  if (listener == STDIN_FILENO) {
    listener = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    const int null = openNull(O_RDONLY | O_CLOEXEC);
    if (listener < 0 || null < 0 || dup2(null, STDIN_FILENO) < 0) return false;
    close(null);
  }
  fcntl(listener, F_SETFL, fcntl(listener, F_GETFL) | O_NONBLOCK);
  fcntl(listener, F_SETFD, FD_CLOEXEC);
  // Connections inherit these. An answer's end must not wait for the acknowledgement of its
  // beginning, and a server's machine can disappear without a word. They fail on a Unix socket.
  const int yes = 1;
  const int idle_seconds = 60;
  setsockopt(listener, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
  setsockopt(listener, SOL_SOCKET, SO_KEEPALIVE, &yes, sizeof yes);
  setsockopt(listener, IPPROTO_TCP, TCP_KEEPIDLE, &idle_seconds, sizeof idle_seconds);
  return true;
}

bool Supervisor::openListeners() {
  if (options_.listen_count == 0) {
    listener_count_ = inheritedListeners(listeners_, kMostListeners);
  }
  for (size_t i = 0; i < options_.listen_count; ++i) {
    const int listener = openListener(options_.listen[i], options_.socket_mode);
    if (listener < 0) return false;
    listeners_[listener_count_++] = listener;
    socket_files_[i] = SocketFile(options_.listen[i]);
  }
  for (size_t i = 0; i < listener_count_; ++i) {
    if (setUpListener(listeners_[i])) continue;
    log("cannot set up a listening socket: %s", std::strerror(errno));
    return false;
  }
  // They were for this process, not for scripts.
  for (const char *name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) unsetenv(name);
  return true;
}

bool Supervisor::open() {
  // Before anything else: without a worker, these signals must wait.
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD, SIGUSR1}) sigaddset(&set, number);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  std::signal(SIGCHLD, SIG_DFL);
  std::signal(SIGPIPE, SIG_IGN);
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  notifier_.open();
  can_reload_ = program_.find();
  signals_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  if (signals_ < 0 || !openHandover(handover_)) {
    log("cannot begin: %s", std::strerror(errno));
    return false;
  }
  return openListeners() &&
         (!options_.status || status_.open(options_.status, options_.socket_mode));
}

Supervisor::~Supervisor() { removeSocketFiles(); }

void Supervisor::removeSocketFiles() {
  for (SocketFile &file : socket_files_) file.remove();
}

// ---- Workers -------------------------------------------------------------------------------------

[[noreturn]] void Supervisor::becomeWorker(int file, const WorkerFiles &files, pid_t supervisor) {
  prctl(PR_SET_PDEATHSIG, SIGUSR2);
  if (getppid() != supervisor) _exit(1);
  if (file != kThisProcess) {
    // A program that is no service would never take them.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    sigprocmask(SIG_UNBLOCK, &ends, nullptr);
    program_.run(file, files);
    log("cannot start %s: %s", program_.path(), std::strerror(errno));
    _exit(127);
  }
  for (const WorkerProcess &other : workers_) {
    if (other.ready >= 0) close(other.ready);
    if (other.scoreboard) munmap(other.scoreboard, sizeof *other.scoreboard);
  }
  close(signals_);
  // A client would wait for the end of its connection.
  status_.closeFiles();
  _exit(work(options_, files));
}

bool Supervisor::openFiles(WorkerProcess &worker, WorkerFiles &files) const {
  std::memcpy(files.listeners, listeners_, sizeof listeners_);
  files.listener_count = listener_count_;
  files.handover = handover_[0];
  files.successor = handover_[1];
  int ready[2];
  if (pipe2(ready, O_CLOEXEC | O_NONBLOCK) != 0) return false;
  worker.ready = ready[0];
  files.ready = ready[1];
  files.scoreboard = memfd_create("tarn-scoreboard", MFD_CLOEXEC);
  if (files.scoreboard < 0 || ftruncate(files.scoreboard, sizeof(Scoreboard)) != 0) return false;
  void *memory =
      mmap(nullptr, sizeof(Scoreboard), PROT_READ | PROT_WRITE, MAP_SHARED, files.scoreboard, 0);
  if (memory == MAP_FAILED) return false;
  worker.scoreboard = static_cast<Scoreboard *>(memory);
  return true;
}

// Starts a worker that runs a program; `file` is this object's then.
bool Supervisor::start(int file) {
  start_at_ = 0;
  WorkerProcess *place = nullptr;
  for (WorkerProcess &worker : workers_) {
    if (worker.process == 0) place = &worker;
  }
  if (!place) {
    log("cannot start a worker: %zu are running already", kMostWorkers);
    return false;
  }
  WorkerProcess &worker = *place;
  WorkerFiles files;
  const pid_t supervisor = getpid();
  std::fflush(nullptr);
  worker.process = openFiles(worker, files) ? fork() : -1;
  if (worker.process == 0) becomeWorker(file, files, supervisor);
  const int error = errno;
  if (files.ready >= 0) close(files.ready);
  if (files.scoreboard >= 0) close(files.scoreboard);
  if (worker.process < 0) {
    log("cannot start a worker: %s", std::strerror(error));
    release(worker);
    return false;
  }
  worker.file = file;
  worker.number = ++started_;
  worker.started = currentTime();
  return true;
}

void Supervisor::release(WorkerProcess &worker) const {
  if (worker.ready >= 0) close(worker.ready);
  if (worker.scoreboard) munmap(worker.scoreboard, sizeof *worker.scoreboard);
  if (worker.file != kThisProcess && worker.file != proven_) close(worker.file);
  worker = {};
}

// The old worker serves until the new one is ready.
void Supervisor::reload() {
  if (!can_reload_) return log("cannot find the program's file, so it is not started again");
  const int file = program_.open();
  if (file < 0) return log("cannot open %s: %s", program_.path(), std::strerror(errno));
  if (!start(file)) {
    close(file);
    return;
  }
  notifier_.reloading();
}

void Supervisor::end() {
  if (ending_) return;
  ending_ = true;
  notifier_.stopping();
  start_at_ = 0;
  removeSocketFiles();
  for (size_t i = 0; i < listener_count_; ++i) close(listeners_[i]);
  listener_count_ = 0;
  for (WorkerProcess &worker : workers_) {
    if (worker.process > 0) kill(worker.process, SIGTERM);
    worker.ending = true;
  }
}

void Supervisor::readReady(WorkerProcess &worker) {
  char byte = 0;
  const ssize_t count = read(worker.ready, &byte, 1);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  close(worker.ready);
  worker.ready = -1;
  if (count == 1) return becameReady(worker);
  // It is dying. Or it is a program that has nothing to do with this one, and has closed the files of
  // the service.
  worker.kill_at = currentTime() + kTimeToDie;
}

void Supervisor::killUseless() {
  for (WorkerProcess &worker : workers_) {
    if (worker.process <= 0 || currentTime() < worker.kill_at) continue;
    log("a worker closed its files instead of serving, and is killed");
    kill(worker.process, SIGKILL);
    worker.kill_at = UINT64_MAX;
  }
}

void Supervisor::becameReady(WorkerProcess &worker) {
  worker.serves = true;
  served_ = true;
  const int before = proven_;
  proven_ = worker.file;
  bool used = before == proven_;
  for (WorkerProcess &other : workers_) {
    used |= other.process > 0 && other.file == before;
    if (other.process <= 0 || other.number >= worker.number) continue;
    if (!other.ending) kill(other.process, SIGHUP);
    other.ending = true;
  }
  if (before != kThisProcess && !used) close(before);
  if (!ending_) notifier_.ready();
}

// A worker that died may have left children.
void Supervisor::ended(WorkerProcess &worker, int status) {
  worker.scoreboard->kill();
  const uint64_t now = currentTime();
  const bool at_once = now - worker.started < kShortLife;
  const bool expected = worker.ending || ending_;
  keepFigures(worker);
  release(worker);
  if (expected) return;
  ++failed_;
  if (WIFSIGNALED(status)) {
    log("signal %d ended a worker", WTERMSIG(status));
  } else {
    log("a worker ended with status %d", WEXITSTATUS(status));
  }
  for (const WorkerProcess &other : workers_) {
    if (other.process <= 0 || other.ending) continue;
    // One is left: reloading has failed.
    if (other.serves) notifier_.ready();
    return;
  }
  if (!served_) {
    exit_status_ = WIFEXITED(status) && WEXITSTATUS(status) != 0 ? WEXITSTATUS(status) : 1;
    return end();
  }
  start_at_ = at_once ? now + kShortLife : now;
}

// As process 1 of a container, this process gets the zombies of others, too.
void Supervisor::reap() {
  int status = 0;
  pid_t process = 0;
  while ((process = waitpid(-1, &status, WNOHANG)) > 0) {
    for (WorkerProcess &worker : workers_) {
      if (worker.process != process) continue;
      if (worker.ready >= 0) readReady(worker);
      ended(worker, status);
    }
  }
}

void Supervisor::takeSignals() {
  signalfd_siginfo info;
  while (read(signals_, &info, sizeof info) == sizeof info) {
    switch (info.ssi_signo) {
      case SIGHUP:
        if (!ending_) reload();
        break;
      case SIGUSR1:
        logStatus();
        break;
      case SIGTERM:
      case SIGINT:
        end();
        break;
      default:
        break;
    }
  }
  reap();
}

int Supervisor::nextTime() const {
  uint64_t next = std::min(start_at_ != 0 ? start_at_ : UINT64_MAX, status_.nextTime());
  for (const WorkerProcess &worker : workers_) next = std::min(next, worker.kill_at);
  if (next == UINT64_MAX) return -1;
  const uint64_t now = currentTime();
  return next > now ? static_cast<int>(next - now) : 0;
}

// ---- Status --------------------------------------------------------------------------------------

// A worker that has ended. Requests that it had must not be missing in the sum.
void Supervisor::keepFigures(const WorkerProcess &worker) {
  Counters counters;
  Gauges gauges;
  if (!worker.scoreboard->figures.read(counters, gauges)) return;
  const uint64_t ended = counters.endedInAll();
  if (counters.begun > ended) {
    counters.ended[static_cast<size_t>(Failure::kWorkerDied)] += counters.begun - ended;
    counters.answers[0] += counters.begun - ended;
  }
  past_.add(counters);
}

void Supervisor::collect(Status &status) const {
  status.counters = past_;
  for (const WorkerProcess &worker : workers_) {
    if (worker.process <= 0) continue;
    ++status.workers;
    status.ready |= worker.serves && !worker.ending && !ending_;
    Counters counters;
    Gauges gauges;
    if (!worker.scoreboard->figures.read(counters, gauges)) continue;
    status.counters.add(counters);
    status.gauges.add(gauges);
  }
  status.started_workers = started_;
  status.failed_workers = failed_;
  status.since = static_cast<uint64_t>(since_1970_);
  status.age = (currentTime() - since_) / 1000;
}

void Supervisor::logStatus() const {
  Status status;
  collect(status);
  Bytes text;
  if (!writeStatus(status, text)) return log("out of memory for the status");
  char *line = text.data();
  while (char *end = std::strchr(line, '\n')) {
    *end = '\0';
    log("status: %s", line);
    line = end + 1;
  }
}

void Supervisor::serveStatus(const pollfd *files, size_t count) {
  if (!status_.receive(files, count, currentTime())) return;
  Status status;
  collect(status);
  status_.answer(status);
}

int Supervisor::run() {
  if (!start(kThisProcess)) return 1;
  for (;;) {
    pollfd files[1 + kMostWorkers + StatusServer::kMostFiles];
    WorkerProcess *waiting[1 + kMostWorkers] = {};
    files[0] = {signals_, POLLIN, 0};
    nfds_t count = 1;
    bool any = false;
    for (WorkerProcess &worker : workers_) {
      any |= worker.process > 0;
      if (worker.ready < 0) continue;
      waiting[count] = &worker;
      files[count++] = {worker.ready, POLLIN, 0};
    }
    if (!any && ending_) return exit_status_;
    const size_t of_status = status_.watch(files + count);
    poll(files, count + of_status, nextTime());
    for (nfds_t i = 1; i < count; ++i) {
      if (files[i].revents != 0) readReady(*waiting[i]);
    }
    if (files[0].revents != 0) takeSignals();
    killUseless();
    serveStatus(files + count, of_status);
    if (start_at_ != 0 && !ending_ && currentTime() >= start_at_ && !start(proven_)) {
      start_at_ = currentTime() + kShortLife;
    }
  }
}

// Whether the script's program can be run, as far as one can tell without running it. A service that
// could only answer with errors does not begin. Returns 0, or the exit status that shells use.
int checkProgram(const Script &script) {
  char path[PATH_MAX];
  if (!script.program || findProgram(script.program[0], path)) return 0;
  const int error = errno;
  log("%s: %s", script.program[0], std::strerror(error));
  return statusOfMissingProgram(error);
}

// Descriptors 0 to 2 must be open, or a socket would get one of these numbers.
bool openStandardFiles() {
  int file = 0;
  do {
    file = openNull(O_RDWR);
    if (file < 0) return false;
  } while (file <= STDERR_FILENO);
  close(file);
  return true;
}

}  // namespace

int serve(const Options &options) {
  if (!openStandardFiles()) return 1;
  WorkerFiles files;
  // What the program would do after it has served is for the process that was started first.
  if (takeOver(files)) _exit(work(options, files));
  if (const int status = checkProgram(options.script)) return status;
  Supervisor supervisor(options);
  return supervisor.open() ? supervisor.run() : 1;
}

}  // namespace tarn::server
