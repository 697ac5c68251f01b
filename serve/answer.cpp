// How a connection runs a child, and what it makes of the child's end.
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "serve/connection.h"
#include "serve/log.h"

namespace tarn::server {
namespace {

// While more than this waits to be sent, the child's output is not read: it waits, as with any pipe.
constexpr size_t kMostUnsent = size_t{128} * 1024;

// A larger block for an environment is given back once its child has started.
constexpr size_t kMostKept = size_t{16} * 1024;

// A few bytes of an answer are held for a millisecond: most scripts end in that time, and everything
// is sent with one call, which also wakes the web server once.
constexpr size_t kMostHeld = size_t{8} * 1024;
constexpr uint64_t kTimeToHold = 1;

// What is read from a pipe before it is sent: as much as a pipe holds.
constexpr size_t kMostRead = size_t{64} * 1024;
static_assert(kMostRead <= Shared::kBufferSize);

// How long processes that the script left behind can delay the end of a request.
constexpr uint64_t kGraceForOutput = 1000;

// Reads until the pipe is empty or has ended, or there is enough to send. `error` is why it cannot be
// read, or 0.
std::string_view readPipe(int pipe, PipeState state, char *buffer, bool &has_ended, int &error) {
  size_t size = 0;
  error = 0;
  has_ended = !buffer || state == PipeState::kEnded;
  while (!has_ended && size < kMostRead) {
    const size_t room = kMostRead - size;
    const ssize_t count = read(pipe, buffer + size, room);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      has_ended = count == 0 || errno != EAGAIN;
      if (count < 0 && has_ended) error = errno;
      break;
    }
    size += static_cast<size_t>(count);
    // It is empty now, so the next call would only report that.
    if (static_cast<size_t>(count) == room || state == PipeState::kUnknown) continue;
    has_ended = state == PipeState::kEnding;
    break;
  }
  return {buffer, size};
}

// How many bytes a pipe holds.
size_t sizeOf(int pipe) {
  int size = 0;
  return ioctl(pipe, FIONREAD, &size) == 0 && size > 0 ? static_cast<size_t>(size) : 0;
}

}  // namespace

void Connection::log(const char *what) const {
  logRequest(what, reader_.parameters().find("REQUEST_URI"));
}

void Connection::fail(Failure failure, const char *what) {
  if (failure_ != Failure::kNone) return;
  failure_ = failure;
  log(what);
}

void Connection::start(GroupPlace place, uint64_t now) {
  account_.start();
  Bytes &block = shared_.environment;
  char **environment = reader_.parameters().environment(environ, block);
  const int body = body_.size() > 0 ? body_.take() : shared_.null;
  const int error = !environment ? ENOMEM
                    : body < 0
                        ? errno
                        : startChild(options_.script, environment, body, options_.child_limits,
                                     shared_.kept_files, place, child_);
  // The next child must not find it.
  if (environment) explicit_bzero(block.data(), block.size());
  block.clear(kMostKept);
  if (body >= 0 && body != shared_.null) ::close(body);
  exited_ = terminated_ = killed_ = discards_ = false;
  failure_ = Failure::kNone;
  if (error != 0) {
    char text[128];
    std::snprintf(text, sizeof text, "cannot start the script: %s", std::strerror(error));
    return refuse(Failure::kNotStarted, text);
  }
  stage_ = Stage::kRunning;
  deadline_ = options_.seconds < UINT64_MAX / 2000 ? now + options_.seconds * 1000 : UINT64_MAX;
}

// ---- What the child writes -----------------------------------------------------------------------

bool Connection::mayRead() const { return discards_ || sender_.unsent() < kMostUnsent; }

uint32_t Connection::outputEvents() const { return mayRead() ? EPOLLIN : 0U; }

void Connection::readOutput(uint64_t now, PipeState state) { readSomeOutput(now, state); }

void Connection::readErrors(PipeState state) { readSomeErrors(state); }

Connection::Read Connection::readSomeOutput(uint64_t now, PipeState state) {
  bool has_ended = false;
  int error = 0;
  const std::string_view bytes = readPipe(child_.output, state, shared_.buffer(), has_ended, error);
  takeOutput(bytes, has_ended, now);
  if (error != 0) {
    char text[128];
    std::snprintf(text, sizeof text, "cannot read the script's output: %s", std::strerror(error));
    fail(Failure::kMemory, text);
    terminate(now);
  }
  if (has_ended) {
    shared_.close(child_.output);
    child_.output = -1;
  }
  return bytes.size() == kMostRead ? Read::kMore : Read::kNoMore;
}

// What comes last is sent with the end of the request, which is seldom far: a few bytes wait for it.
void Connection::takeOutput(std::string_view bytes, bool is_last, uint64_t now) {
  if (discards_ || bytes.empty()) return;
  std::string_view rest;
  switch (output_.take(bytes, rest)) {
    case Output::State::kHeader:
      break;
    case Output::State::kBody:
      sendOutput(rest, is_last || exited_, now);
      break;
    case Output::State::kBad:
      fail(Failure::kNotAHeader, "the script did not begin with a header");
      terminate(now);
      break;
    case Output::State::kOutOfMemory:
      fail(Failure::kMemory, "out of memory for the script's header");
      terminate(now);
      break;
  }
}

void Connection::sendOutput(std::string_view rest, bool is_last, uint64_t now) {
  const std::string_view header = output_.header();
  const bool is_small = sender_.unsent() + header.size() + rest.size() <= kMostHeld;
  if (!is_small || is_last) {
    held_until_ = UINT64_MAX;
  } else if (sender_.unsent() == 0) {
    held_until_ = now + kTimeToHold;
  }
  sender_.stream(kStdout, reader_.request(), header, rest, is_small || is_last);
}

// Standard error goes to the log of this service and, unless an option says otherwise, to the
// server's.
Connection::Read Connection::readSomeErrors(PipeState state) {
  bool has_ended = false;
  int error = 0;  // concerns no answer
  const std::string_view bytes = readPipe(child_.errors, state, shared_.buffer(), has_ended, error);
  if (has_ended) {
    shared_.close(child_.errors);
    child_.errors = -1;
  }
  writeLog(bytes);
  if (socket_ >= 0 && !bytes.empty() && options_.sends_errors) {
    sender_.stream(kStderr, reader_.request(), bytes, {}, true);
    sent_errors_ = true;
  }
  return bytes.size() == kMostRead ? Read::kMore : Read::kNoMore;
}

// ---- How it ends ---------------------------------------------------------------------------------

void Connection::terminate(uint64_t now) {
  discards_ = true;
  if (terminated_) return;
  terminated_ = true;
  const uint64_t time = now + kSecondsToTerminate * 1000;
  signalGroup(child_.process, SIGTERM);
  if (exited_) {
    shared_.condemned.add(child_.process, time);
  } else {
    deadline_ = time;
  }
}

void Connection::giveUp(uint64_t now) {
  fail(Failure::kMemory, "cannot watch the script");
  terminate(now);
}

// All that the child wrote is in the pipes by now. It is read whether or not the server keeps up;
// what processes write that the child left behind is not.
void Connection::childEnded(int status, uint64_t now) {
  exited_ = true;
  status_ = status;
  stage_ = Stage::kDraining;
  if (terminated_ && !killed_) shared_.condemned.add(child_.process, deadline_);
  deadline_ = now + kGraceForOutput;
  if (child_.output >= 0 && readSomeOutput(now, PipeState::kUnknown) == Read::kMore) {
    for (size_t left = sizeOf(child_.output); left > 0 && child_.output >= 0;) {
      left -= std::min(left, kMostRead);
      readSomeOutput(now, PipeState::kUnknown);
    }
  }
  if (child_.errors >= 0 && readSomeErrors(PipeState::kUnknown) == Read::kMore) {
    for (size_t left = sizeOf(child_.errors); left > 0 && child_.errors >= 0;) {
      left -= std::min(left, kMostRead);
      readSomeErrors(PipeState::kUnknown);
    }
  }
}

void Connection::endIfDrained(uint64_t now) {
  const bool is_drained = child_.output < 0 && child_.errors < 0;
  if (is_drained || discards_ || now >= deadline_) finishAnswer();
}

int Connection::exitStatus() const {
  return WIFSIGNALED(status_) ? 128 + WTERMSIG(status_) : WEXITSTATUS(status_);
}

bool Connection::isHead() const {
  const char *method = reader_.parameters().find("REQUEST_METHOD");
  return method && std::strcmp(method, "HEAD") == 0;
}

// Whether the server needs nothing more of the answer.
bool Connection::hasWholeAnswer() const {
  return isHead() ? output_.state() == Output::State::kBody : output_.isWhole();
}

// Finds out what went wrong, unless that is known already.
void Connection::explainEnd() {
  if (failure_ != Failure::kNone) return;
  char text[160];
  const bool has_answer = output_.state() == Output::State::kBody;
  const int status = exitStatus();
  if (WIFSIGNALED(status_)) {
    const int signal = WTERMSIG(status_);
    std::snprintf(text, sizeof text, "signal %d (%s) ended the script", signal, strsignal(signal));
    fail(Failure::kSignal, text);
  } else if (!has_answer) {
    std::snprintf(text, sizeof text, "the script ended with status %d and sent no header", status);
    fail(Failure::kNoAnswer, status == 0 ? "the script sent no header" : text);
  } else if (output_.isShort() && !isHead()) {
    fail(Failure::kShort, "the script's response is shorter than its Content-Length");
  } else if (status != 0) {
    std::snprintf(text, sizeof text, "the script ended with status %d", status);
    fail(Failure::kStatus, text);
  }
}

void Connection::finishAnswer() {
  explainEnd();
  // Nobody waits for an answer.
  if (socket_ < 0) {
    closeAccount();
    return close();
  }
  if (failure_ == Failure::kAborted) return endRequest(static_cast<uint32_t>(exitStatus()));
  if (output_.state() == Output::State::kBody) {
    if (!cutsAnswer(failure_)) return endRequest(static_cast<uint32_t>(exitStatus()));
    // The visitor must not take half an answer for a whole one. Apache, HAProxy and, if it has begun to
    // send the answer, lighttpd see to that if the connection ends here. nginx may take that for the
    // end of the answer, unless it gets something that is not FastCGI: a record of version 0.
    sender_.add({"\0\0\0\0\0\0\0\0", kRecordHeaderSize});
    closeAccount();
    releaseChild();
    deadline_ = UINT64_MAX;
    stage_ = Stage::kClosing;
    return;
  }
  sendErrorPage();
  endRequest(static_cast<uint32_t>(exitStatus()));
}

void Connection::releaseChild() {
  for (const int file : {child_.output, child_.errors}) {
    if (file >= 0) shared_.close(file);
  }
  child_ = {};
}

}  // namespace tarn::server
