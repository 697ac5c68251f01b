#include "serve/worker.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <stdio_ext.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>

#include "serve/connection.h"
#include "serve/environment.h"
#include "serve/handover.h"
#include "serve/log.h"
#include "serve/private_memory.h"

namespace tarn::server {
namespace {

// What epoll reports about: the low bits of its data tell which descriptor of a slot it is.
enum Source : uint64_t { kSocket, kOutput, kErrors, kListener, kHandover, kSignals };

// In the data of an event: EPOLLIN was watched, so the event tells whether there is something to read.
// What is watched now does not tell that, if an earlier event has changed it.
constexpr uint64_t kWatchesInput = uint64_t{1} << 31;

// How long the worker waits for a descriptor, memory or a successor.
constexpr uint64_t kPauseOfAccept = 100;
constexpr uint64_t kPauseOfHandover = 10;

// How often the log says that no connection can be accepted, for the same reason.
constexpr uint64_t kSilence = 10000;

// Descriptors besides those of connections and children, with some to spare.
constexpr uint64_t kOwnFiles = 16 + kMostListeners;

// A connection and what epoll watches for it. A slot is used again after a connection is closed, and a
// connection for the next request; `generation` and `child` tell late events of the old one.
struct Slot {
  Connection *connection = nullptr;
  Stage stage = Stage::kClosed;  // as the counts know it
  uint32_t generation = 0;
  uint32_t child = 0;  // a number of its own for each child
  uint32_t socket_events = 0;
  uint32_t output_events = 0;
  uint32_t error_events = 0;
  int output = -1;
  int errors = -1;
  pid_t process = -1;
  uint64_t since = 0;  // when it came to its stage, as a number that grows
};

enum class Mode {
  kServing,
  kLeaving,  // another worker serves; this one answers the requests that it has
  kEnding,   // the service ends
};

class Worker {
 public:
  Worker(Shared &shared, const WorkerFiles &files)
      : shared_(shared), options_(shared.options), files_(files) {}
  ~Worker();
  Worker(const Worker &) = delete;
  Worker &operator=(const Worker &) = delete;

  bool open();
  void run();

 private:
  size_t mostConnections() const;
  bool watchService();
  void handle(const epoll_event &event);
  void accept(int listener);
  void acceptRest();
  void adopt();
  bool makeRoom();
  void add(int socket, bool is_new);
  void listen(bool on);
  void takeSignals();
  void leave(Mode mode);
  bool handOver(Slot &slot);
  void reap();
  void reap(Slot &slot);
  void schedule();
  Slot *waiting(bool first) const;
  void settle(Slot &slot);
  void publish() const;
  void release(Slot &slot);
  void setStage(Slot &slot, Stage stage);
  bool watch(int file, uint64_t data, uint32_t &current, uint32_t wanted, bool is_new) const;
  bool watchChild(Slot &slot);
  void checkConnections();
  int checkTime();
  uint64_t dataOf(const Slot &slot, Source source) const;
  size_t count(Stage stage) const { return counts_[static_cast<size_t>(stage)]; }

  Shared &shared_;
  const Options &options_;
  WorkerFiles files_;
  Scoreboard *scoreboard_ = nullptr;
  int signals_ = -1;
  Slot *slots_ = nullptr;
  size_t slot_count_ = 0;
  size_t used_ = 0;  // behind the last slot that has a connection
  size_t connections_ = 0;
  size_t children_ = 0;   // that have not been reaped
  uint32_t started_ = 0;  // children
  size_t counts_[kStages] = {};
  uint64_t changes_ = 0;  // of stages
  uint64_t now_ = 0;
  uint64_t next_ = UINT64_MAX;       // no deadline of a connection is earlier
  uint64_t accept_at_ = UINT64_MAX;  // when to try to accept again
  Mode mode_ = Mode::kServing;
  bool listening_ = false;
  int accept_error_ = 0;
  uint64_t accept_silence_ = 0;
};

Worker::~Worker() {
  for (size_t i = 0; i < slot_count_; ++i) {
    if (slots_[i].connection) slots_[i].connection->~Connection();
    PrivateMemory::release(slots_[i].connection, sizeof(Connection));
  }
  PrivateMemory::release(slots_, slot_count_ * sizeof(Slot));
}

// Tells the supervisor how things are.
void Worker::publish() const {
  const auto of = [this](Stage stage) { return static_cast<uint32_t>(count(stage)); };
  const Figures::Change change(scoreboard_->figures);
  Gauges &now = change.gauges();
  now.idle = of(Stage::kIdle);
  now.receiving = of(Stage::kReceiving);
  now.waiting = of(Stage::kWaiting);
  now.running = of(Stage::kRunning);
  now.ending =
      static_cast<uint32_t>(connections_) - now.idle - now.receiving - now.waiting - now.running;
  now.most_connections = static_cast<uint32_t>(slot_count_);
  now.most_waiting = static_cast<uint32_t>(options_.queue);
  now.most_running = static_cast<uint32_t>(options_.children);
}

// How many connections the worker can have without running out of descriptors: each needs one for
// itself and one for a body, and each child two.
size_t Worker::mostConnections() const {
  const uint64_t wanted = std::min<uint64_t>(
      options_.idle_connections + options_.queue + options_.children, Scoreboard::kMost);
  rlimit limits;
  if (getrlimit(RLIMIT_NOFILE, &limits) != 0) return static_cast<size_t>(wanted);
  const uint64_t used = kOwnFiles + 2 * options_.children;
  const uint64_t possible = limits.rlim_cur > used + 2 ? (limits.rlim_cur - used) / 2 : 1;
  if (possible >= wanted) return static_cast<size_t>(wanted);
  log("the limit of open files allows %u connections instead of %u",
      static_cast<unsigned>(possible), static_cast<unsigned>(wanted));
  return static_cast<size_t>(possible);
}

bool Worker::open() {
  slot_count_ = mostConnections();
  shared_.most_connections = static_cast<unsigned>(slot_count_);
  slots_ = static_cast<Slot *>(PrivateMemory::resize(nullptr, 0, slot_count_ * sizeof(Slot)));
  if (!slots_) slot_count_ = 0;
  for (size_t i = 0; i < slot_count_; ++i) new (&slots_[i]) Slot;
  shared_.epoll = epoll_create1(EPOLL_CLOEXEC);
  shared_.null = openNull(O_RDONLY | O_CLOEXEC);
  sigset_t set;
  sigemptyset(&set);
  for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD, SIGUSR1, SIGUSR2}) {
    sigaddset(&set, number);
  }
  signals_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  // Blocked and not ignored, so that children need not change it.
  sigaddset(&set, SIGPIPE);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  // The supervisor may be of an older version, whose scoreboard is smaller.
  struct stat about = {};
  if (fstat(files_.scoreboard, &about) != 0) return false;
  if (about.st_size < static_cast<off_t>(sizeof(Scoreboard)) &&
      ftruncate(files_.scoreboard, sizeof(Scoreboard)) != 0) {
    return false;
  }
  void *memory =
      mmap(nullptr, sizeof(Scoreboard), PROT_READ | PROT_WRITE, MAP_SHARED, files_.scoreboard, 0);
  if (slot_count_ == 0 || !shared_.buffer() || shared_.epoll < 0 || signals_ < 0 ||
      shared_.null < 0 || memory == MAP_FAILED ||
      madvise(memory, sizeof(Scoreboard), MADV_DONTFORK) != 0) {
    return false;
  }
  scoreboard_ = static_cast<Scoreboard *>(memory);
  shared_.condemned.setPlaces(scoreboard_->condemned);
  shared_.books.figures = &scoreboard_->figures;
  scoreboard_->figures.begin();
  return watchService();
}

bool Worker::watchService() {
  epoll_event event = {EPOLLIN, {.u64 = kSignals}};
  if (epoll_ctl(shared_.epoll, EPOLL_CTL_ADD, signals_, &event) != 0) return false;
  event.data.u64 = kHandover;
  if (epoll_ctl(shared_.epoll, EPOLL_CTL_ADD, files_.handover, &event) != 0) return false;
  for (size_t i = 0; i < files_.listener_count; ++i) {
    event.data.u64 = i << 3 | kListener;
    if (epoll_ctl(shared_.epoll, EPOLL_CTL_ADD, files_.listeners[i], &event) != 0) return false;
  }
  listening_ = true;
  return true;
}

uint64_t Worker::dataOf(const Slot &slot, Source source) const {
  const auto index = static_cast<uint64_t>(&slot - slots_);
  const uint32_t number = source == kSocket ? slot.generation : slot.child;
  return uint64_t{number} << 32 | index << 3 | source;
}

bool Worker::watch(int file, uint64_t data, uint32_t &current, uint32_t wanted, bool is_new) const {
  if (!is_new && current == wanted) return true;
  epoll_event event = {wanted, {.u64 = data | ((wanted & EPOLLIN) != 0 ? kWatchesInput : 0)}};
  current = wanted;
  return epoll_ctl(shared_.epoll, is_new ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, file, &event) == 0;
}

// While the worker can have no more connections, new ones wait in the kernel.
void Worker::listen(bool on) {
  if (listening_ == on || mode_ != Mode::kServing) return;
  listening_ = on;
  accept_at_ = UINT64_MAX;
  epoll_event event = {on ? EPOLLIN : 0U, {.u64 = kHandover}};
  epoll_ctl(shared_.epoll, EPOLL_CTL_MOD, files_.handover, &event);
  for (size_t i = 0; i < files_.listener_count; ++i) {
    event.data.u64 = i << 3 | kListener;
    epoll_ctl(shared_.epoll, EPOLL_CTL_MOD, files_.listeners[i], &event);
  }
}

// ---- Connections ---------------------------------------------------------------------------------

void Worker::setStage(Slot &slot, Stage stage) {
  if (slot.stage == stage) return;
  --counts_[static_cast<size_t>(slot.stage)];
  ++counts_[static_cast<size_t>(stage)];
  slot.stage = stage;
  slot.since = ++changes_;
}

void Worker::release(Slot &slot) {
  slot.connection->~Connection();
  PrivateMemory::release(slot.connection, sizeof(Connection));
  scoreboard_->groups[&slot - slots_] = 0;
  const uint32_t generation = slot.generation + 1;
  --counts_[static_cast<size_t>(slot.stage)];
  slot = {};
  slot.generation = generation;
  --connections_;
  while (used_ > 0 && !slots_[used_ - 1].connection) --used_;
  if (used_ == 0) next_ = UINT64_MAX;
  listen(true);
}

bool Worker::watchChild(Slot &slot) {
  const Child &child = slot.connection->child();
  const uint32_t events = slot.connection->outputEvents();
  bool watched = true;
  if (child.output >= 0) {
    watched &= watch(child.output, dataOf(slot, kOutput), slot.output_events, events,
                     slot.output != child.output);
  }
  if (child.errors >= 0) {
    watched &= watch(child.errors, dataOf(slot, kErrors), slot.error_events, events,
                     slot.errors != child.errors);
  }
  slot.output = child.output;
  slot.errors = child.errors;
  slot.process = child.process;
  if (child.process <= 0) scoreboard_->groups[&slot - slots_] = 0;
  return watched;
}

// After anything happened to a connection: sends what can be sent, and watches what it needs now.
void Worker::settle(Slot &slot) {
  Connection &connection = *slot.connection;
  connection.settle(now_);
  if (connection.stage() == Stage::kClosed) return release(slot);
  if (mode_ != Mode::kServing && connection.isIdle() && handOver(slot)) return;
  if (!watchChild(slot)) connection.giveUp(now_);
  if (connection.socket() >= 0) {
    watch(connection.socket(), dataOf(slot, kSocket), slot.socket_events, connection.socketEvents(),
          false);
  }
  setStage(slot, connection.stage());
  next_ = std::min(next_, connection.deadline());
}

void Worker::add(int socket, bool is_new) {
  void *block = PrivateMemory::resize(nullptr, 0, sizeof(Connection));
  if (!block) {
    log("out of memory for a connection");
    ::close(socket);
    return;
  }
  size_t i = 0;
  while (slots_[i].connection) ++i;
  used_ = std::max(used_, i + 1);
  Slot &slot = slots_[i];
  slot.connection = new (block) Connection(shared_, socket, is_new);
  slot.stage = Stage::kIdle;
  slot.since = ++changes_;
  ++counts_[static_cast<size_t>(Stage::kIdle)];
  ++connections_;
  if (!watch(socket, dataOf(slot, kSocket), slot.socket_events, EPOLLIN, true)) {
    log("cannot watch a connection: %s", std::strerror(errno));
    slot.connection->close();
    return release(slot);
  }
  // What it sends has often arrived already.
  slot.connection->readSocket(now_);
  settle(slot);
}

// Closes the connection that has been idle longest. Returns false if none is idle.
bool Worker::makeRoom() {
  for (;;) {
    Slot *oldest = nullptr;
    for (size_t i = 0; i < used_ && count(Stage::kIdle) > 0; ++i) {
      const Connection *connection = slots_[i].connection;
      if (!connection || !connection->isIdle()) continue;
      if (!oldest || slots_[i].since < oldest->since) oldest = &slots_[i];
    }
    if (!oldest) return false;
    // A request may have arrived meanwhile.
    oldest->connection->readSocket(now_);
    const bool is_idle = oldest->connection->isIdle();
    if (is_idle) oldest->connection->close();
    const size_t before = connections_;
    settle(*oldest);
    if (connections_ < before) return true;
  }
}

// One connection at a time: epoll reports the next one.
void Worker::accept(int listener) {
  if (connections_ == slot_count_ && !makeRoom()) return listen(false);
  const int socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (socket >= 0) {
    ++Figures::Change(scoreboard_->figures)->connections;
    return add(socket, true);
  }
  if (errno != EMFILE && errno != ENFILE && errno != ENOBUFS && errno != ENOMEM) return;
  if (errno != accept_error_ || now_ >= accept_silence_) {
    log("cannot accept a connection: %s", std::strerror(errno));
    accept_error_ = errno;
    accept_silence_ = now_ + kSilence;
  }
  if (makeRoom()) return;
  listen(false);
  accept_at_ = now_ + kPauseOfAccept;
}

// When the service ends: the clients of these connections cannot know that nobody serves them. More
// may come to a socket that another process keeps open.
void Worker::acceptRest() {
  size_t most = slot_count_;
  for (size_t i = 0; i < files_.listener_count; ++i) {
    pollfd listener = {files_.listeners[i], POLLIN, 0};
    while (most > 0 && (connections_ < slot_count_ || makeRoom()) && poll(&listener, 1, 0) == 1) {
      const int socket =
          accept4(files_.listeners[i], nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
      if (socket < 0 && errno != ECONNABORTED && errno != EINTR) break;
      if (socket >= 0) {
        ++Figures::Change(scoreboard_->figures)->connections;
        add(socket, true);
      }
      --most;
    }
  }
}

// ---- One worker follows another ------------------------------------------------------------------

// Returns false if the next worker cannot take it yet.
bool Worker::handOver(Slot &slot) {
  if (mode_ == Mode::kLeaving &&
      sendDescriptor(files_.successor, slot.connection->socket()) == EAGAIN) {
    return false;
  }
  slot.connection->close();
  release(slot);
  return true;
}

// Takes a connection that another worker hands over.
void Worker::adopt() {
  if (mode_ != Mode::kServing) return;
  if (connections_ == slot_count_ && !makeRoom()) return listen(false);
  const int socket = receiveDescriptor(files_.handover);
  if (socket >= 0) add(socket, false);
}

void Worker::leave(Mode mode) {
  if (mode <= mode_) return;
  if (mode_ == Mode::kServing) {
    if (mode == Mode::kEnding) acceptRest();
    epoll_ctl(shared_.epoll, EPOLL_CTL_DEL, files_.handover, nullptr);
    for (size_t i = 0; i < files_.listener_count; ++i) {
      epoll_ctl(shared_.epoll, EPOLL_CTL_DEL, files_.listeners[i], nullptr);
      ::close(files_.listeners[i]);
    }
    files_.listener_count = 0;
    accept_at_ = UINT64_MAX;
  }
  mode_ = mode;
  for (size_t i = 0; i < used_; ++i) {
    if (!slots_[i].connection) continue;
    if (mode == Mode::kEnding) slots_[i].connection->hurry(now_);
    settle(slots_[i]);
  }
}

// ---- Children ------------------------------------------------------------------------------------

void Worker::takeSignals() {
  signalfd_siginfo signals[4];
  const ssize_t size = read(signals_, signals, sizeof signals);
  const size_t count = size > 0 ? static_cast<size_t>(size) / sizeof *signals : 0;
  for (size_t i = 0; i < count; ++i) {
    const uint32_t number = signals[i].ssi_signo;
    if (number == SIGUSR2) {
      // The supervisor has died: nobody would look after the children.
      scoreboard_->kill();
      _exit(1);
    }
    if (number == SIGHUP) leave(Mode::kLeaving);
    if (number == SIGTERM || number == SIGINT) leave(Mode::kEnding);
  }
  reap();
}

void Worker::reap() {
  int status = 0;
  pid_t process = 0;
  while (children_ > 0 && (process = waitpid(-1, &status, WNOHANG)) > 0) {
    for (size_t i = 0; i < used_; ++i) {
      if (slots_[i].process != process) continue;
      --children_;
      slots_[i].connection->childEnded(status, now_);
      settle(slots_[i]);
      break;
    }
  }
}

// A child whose output has ended has often ended itself.
void Worker::reap(Slot &slot) {
  int status = 0;
  if (slot.stage != Stage::kRunning || slot.connection->child().output >= 0 ||
      waitpid(slot.process, &status, WNOHANG) != slot.process) {
    return;
  }
  --children_;
  slot.connection->childEnded(status, now_);
}

// The request that has waited longest, or that came last.
Slot *Worker::waiting(bool first) const {
  Slot *found = nullptr;
  for (size_t i = 0; i < used_; ++i) {
    if (slots_[i].stage != Stage::kWaiting) continue;
    if (!found || (slots_[i].since < found->since) == first) found = &slots_[i];
  }
  return found;
}

// Starts children for the requests that have waited longest, and refuses what the queue cannot hold.
void Worker::schedule() {
  while (count(Stage::kWaiting) > 0) {
    if (count(Stage::kRunning) < options_.children) {
      Slot &slot = *waiting(true);
      const auto index = static_cast<size_t>(&slot - slots_);
      slot.connection->start({files_.scoreboard, index}, now_);
      const pid_t process = slot.connection->child().process;
      if (process > 0) {
        ++children_;
        slot.child = ++started_;
        scoreboard_->groups[index] = process;  // as the child does
      }
      settle(slot);
    } else if (count(Stage::kWaiting) > options_.queue) {
      Slot &slot = *waiting(false);
      slot.connection->refuse(Failure::kTooManyRequests, "too many requests");
      settle(slot);
    } else {
      return;
    }
  }
}

// ---- The loop ------------------------------------------------------------------------------------

// What an event tells about a pipe.
PipeState stateOf(const epoll_event &event) {
  const bool has_bytes = (event.events & EPOLLIN) != 0;
  const bool tells_input = (event.data.u64 & kWatchesInput) != 0;
  if ((event.events & EPOLLERR) != 0 || !tells_input) return PipeState::kUnknown;
  if ((event.events & EPOLLHUP) == 0) return has_bytes ? PipeState::kOpen : PipeState::kUnknown;
  return has_bytes ? PipeState::kEnding : PipeState::kEnded;
}

void Worker::handle(const epoll_event &event) {
  const auto source = static_cast<Source>(event.data.u64 & 7);
  const size_t index = (event.data.u64 & (kWatchesInput - 1)) >> 3;
  if (source == kListener) {
    if (mode_ == Mode::kServing) accept(files_.listeners[index]);
    return;
  }
  if (source == kHandover) return adopt();
  if (source == kSignals) return takeSignals();
  Slot &slot = slots_[index];
  const uint32_t number = source == kSocket ? slot.generation : slot.child;
  if (!slot.connection || number != event.data.u64 >> 32) return;
  Connection &connection = *slot.connection;
  if (source == kOutput) {
    if (connection.child().output >= 0) connection.readOutput(now_, stateOf(event));
    reap(slot);
  } else if (source == kErrors) {
    if (connection.child().errors >= 0) connection.readErrors(stateOf(event));
  } else if (connection.socket() >= 0) {
    if (event.events & (EPOLLHUP | EPOLLERR)) {
      connection.disconnected(now_);
    } else if (event.events & EPOLLIN) {
      connection.readSocket(now_);
    }
  }
  settle(slot);
}

void Worker::checkConnections() {
  uint64_t next = UINT64_MAX;
  for (size_t i = 0; i < used_; ++i) {
    Slot &slot = slots_[i];
    if (!slot.connection) continue;
    if (slot.connection->deadline() <= now_) {
      slot.connection->checkTime(now_);
      settle(slot);
    } else if (mode_ == Mode::kLeaving && slot.connection->isIdle()) {
      settle(slot);
      next = std::min(next, now_ + kPauseOfHandover);
    }
    if (slot.connection) next = std::min(next, slot.connection->deadline());
  }
  next_ = next;
}

// Does what is due. Returns how long epoll may wait, in milliseconds.
int Worker::checkTime() {
  if (now_ >= accept_at_) listen(true);
  if (now_ >= next_ || mode_ == Mode::kLeaving) checkConnections();
  const uint64_t next = std::min({accept_at_, shared_.condemned.check(now_), next_});
  if (next == UINT64_MAX) return -1;
  const uint64_t left = next > now_ ? next - now_ : 0;
  return left < INT_MAX ? static_cast<int>(left) : INT_MAX;
}

void Worker::run() {
  epoll_event events[64];
  now_ = currentTime();
  for (;;) {
    schedule();
    const int wait = checkTime();
    publish();
    if (mode_ != Mode::kServing && connections_ == 0 && shared_.condemned.isEmpty()) return;
    const int count = epoll_wait(shared_.epoll, events, 64, wait);
    now_ = currentTime();
    for (int i = 0; i < count; ++i) handle(events[i]);
  }
}

uint64_t countProcessors() {
  cpu_set_t set;
  if (sched_getaffinity(0, sizeof set, &set) == 0) return static_cast<uint64_t>(CPU_COUNT(&set));
  const long count = sysconf(_SC_NPROCESSORS_ONLN);
  return count > 0 ? static_cast<uint64_t>(count) : 1;
}

}  // namespace

void Scoreboard::kill() {
  for (std::atomic<pid_t> &group : groups) {
    signalGroup(group, SIGKILL);
  }
  for (std::atomic<pid_t> &group : condemned) {
    signalGroup(group, SIGKILL);
  }
}

int work(const Options &options, const WorkerFiles &files) {
  Shared shared;
  PrivateMemory::forget();
  shared.options = options;
  if (options.children == 0) shared.options.children = 2 * countProcessors();
  // While the callback runs, signals end the process as usual.
  resetSignals();
  if (options.prepare) {
    if (const int status = shared.kept_files.callAndRemember(options.prepare)) return status;
    resetSignals();
    std::fflush(nullptr);
  }
  // No child may read again what was read ahead, or take an error in the output of the callback for
  // its own.
  __fpurge(stdin);
  std::clearerr(stdin);
  std::clearerr(stdout);
  // Opened by each worker, so that a new file is used after a reload.
  AccessLog access_log;
  if (options.access_log) {
    if (!access_log.open(options.access_log, options.access_format)) return 1;
    shared.books.access_log = &access_log;
  }
  Worker worker(shared, files);
  if (!worker.open()) {
    log("cannot start a worker: %s", std::strerror(errno));
    return 1;
  }
  Confinement confinement;
  if (options.rights.confine) {
    if (!confinement.open(options.rights, options.script) || !confinement.filterCalls()) return 1;
    shared.options.script.confinement = &confinement;
  }
  if (write(files.ready, "", 1) != 1) return 1;
  close(files.ready);
  worker.run();
  return 0;
}

}  // namespace tarn::server
