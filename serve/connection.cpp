#include "serve/connection.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace tarn::server {
namespace {

// What is read and thrown away of a request that was refused. A server that still sends it has not
// seen the answer; closing the connection earlier would destroy the answer on its way.
constexpr uint64_t kMostDiscarded = uint64_t{64} * 1024 * 1024;
constexpr uint64_t kSecondsToLinger = 10;

uint64_t later(uint64_t now, uint64_t seconds) {
  return seconds < (UINT64_MAX - now) / 1000 ? now + seconds * 1000 : UINT64_MAX;
}

// The number in a parameter; 0 if there is none.
uint64_t readSize(const char *text) {
  uint64_t size = 0;
  for (; text && *text >= '0' && *text <= '9'; ++text) {
    if (size > UINT64_MAX / 10 - 1) return UINT64_MAX;
    size = size * 10 + static_cast<uint64_t>(*text - '0');
  }
  return text && *text == '\0' ? size : 0;
}

bool isLocal(int socket) {
  int domain = AF_UNSPEC;
  socklen_t size = sizeof domain;
  return getsockopt(socket, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX;
}

}  // namespace

void Shared::close(int file) const {
  if (epoll >= 0) epoll_ctl(epoll, EPOLL_CTL_DEL, file, nullptr);
  ::close(file);
}

Connection::Connection(Shared &shared, int socket, bool is_new)
    : shared_(shared),
      options_(shared.options),
      reader_(options_.parameter_limits, shared.most_connections),
      sender_(socket),
      account_(shared.books),
      socket_(socket),
      is_new_(is_new) {}

Connection::~Connection() { close(); }

void Connection::closeSocket() {
  if (socket_ >= 0) shared_.close(socket_);
  socket_ = -1;
  send_deadline_ = held_until_ = UINT64_MAX;
}

// The server gets an error and not the end of the answer. It does only on TCP.
void Connection::resetSocket() const {
  const linger none = {1, 0};
  setsockopt(socket_, SOL_SOCKET, SO_LINGER, &none, sizeof none);
}

void Connection::close() {
  if (failure_ == Failure::kNone) failure_ = Failure::kVisitorLeft;
  closeAccount();
  if (!exited_) signalGroup(child_.process, SIGKILL);
  releaseChild();
  closeSocket();
  deadline_ = UINT64_MAX;
  stage_ = Stage::kClosed;
}

// ---- What arrives --------------------------------------------------------------------------------

void Connection::readSocket(uint64_t now) {
  char *const block = shared_.buffer();
  if (!block) {
    log("out of memory for a connection");
    return disconnected(now);
  }
  char *const buffer = block + Shared::kInput;
  const ssize_t count = recv(socket_, buffer, Shared::kBufferSize - Shared::kInput, MSG_DONTWAIT);
  if (count < 0) {
    if (errno != EAGAIN && errno != EINTR) disconnected(now);
    return;
  }
  if (count == 0) return inputEnded();
  is_new_ = false;
  const auto size = static_cast<size_t>(count);
  std::string_view input(buffer, size);
  BodyPart part(block, body_.size());
  if (stage_ == Stage::kIdle) discard(size);
  while (stage_ != Stage::kClosing && stage_ < Stage::kLingering) {
    const RequestReader::Event event = reader_.next(input);
    if (event == RequestReader::Event::kBody) {
      takeBody(part);
      continue;
    }
    const bool is_stored = storeBody(part);
    if (event == RequestReader::Event::kNone) break;
    // A request that has just been refused is not aborted, too.
    if (is_stored || event != RequestReader::Event::kAbort) takeEvent(event, now);
  }
  if (stage_ == Stage::kClosing || stage_ == Stage::kLingering) return discard(size);
  if (hurries_) return;
  if (stage_ == Stage::kReceiving || (stage_ == Stage::kIdle && !reader_.isBetweenRecords())) {
    deadline_ = later(now, options_.receive_seconds);
  } else if (stage_ == Stage::kIdle) {
    deadline_ = UINT64_MAX;
  }
}

void Connection::takeEvent(RequestReader::Event event, uint64_t now) {
  switch (event) {
    case RequestReader::Event::kNone:
    case RequestReader::Event::kBody:
      break;
    case RequestReader::Event::kBegin:
      stage_ = Stage::kReceiving;
      discarded_ = 0;
      account_.begin();
      break;
    case RequestReader::Event::kParameters:
      takeParameters();
      break;
    case RequestReader::Event::kBodyEnd:
      finishBody();
      break;
    case RequestReader::Event::kAbort:
      if (stage_ == Stage::kReceiving || stage_ == Stage::kWaiting) {
        failure_ = Failure::kAborted;
        return endRequest(0);
      }
      if (hasWholeAnswer()) break;
      fail(Failure::kAborted, "the server aborted the request");
      terminate(now);
      break;
    case RequestReader::Event::kReply:
      sender_.add(reader_.reply());
      break;
    case RequestReader::Event::kRefusal:
      sender_.add(reader_.reply());
      lingers_ = true;
      stage_ = Stage::kClosing;
      break;
    case RequestReader::Event::kMalformed:
      if (!account_.isOpen()) account_.countNotFastCgi();
      fail(Failure::kNotFastCgi, "the server sent something that is not FastCGI");
      disconnected(now);
      break;
  }
}

void Connection::takeParameters() {
  switch (reader_.parameters().state()) {
    case Parameters::State::kComplete:
      declared_size_ = readSize(reader_.parameters().find("CONTENT_LENGTH"));
      if (declared_size_ > options_.body_size) refuse(Failure::kBodySize, "the body is too large");
      break;
    case Parameters::State::kTooMany:
      return refuse(Failure::kTooManyParameters, "too many parameters");
    case Parameters::State::kOutOfMemory:
      return refuse(Failure::kNotStarted, "out of memory for parameters");
    default:
      return refuse(Failure::kMalformed, "malformed parameters");
  }
}

void Connection::takeBody(BodyPart &part) {
  if (stage_ != Stage::kReceiving) return;
  if (body_.size() + part.size() + reader_.body().size() > options_.body_size) {
    if (storeBody(part)) refuse(Failure::kBodySize, "the body is too large");
    return;
  }
  part.add(reader_.body());
}

// Returns false if the request has been refused.
bool Connection::storeBody(BodyPart &part) {
  if (part.size() == 0) return true;
  const int error = body_.append(part.take(), options_.body_in_memory, declared_size_);
  if (error == 0) return true;
  char text[128];
  std::snprintf(text, sizeof text, "cannot store the body: %s", std::strerror(error));
  refuse(Failure::kNotStarted, text);
  return false;
}

// Without a body, CONTENT_LENGTH stays as the server sent it.
void Connection::finishBody() {
  if (stage_ != Stage::kReceiving) return;
  if (body_.size() > 0 && body_.size() < declared_size_) {
    return refuse(Failure::kBodyCutOff, "the body was cut off");
  }
  if (body_.size() > 0 && body_.size() != declared_size_) {
    char length[24];
    std::snprintf(length, sizeof length, "%" PRIu64, body_.size());
    if (!reader_.parameters().set("CONTENT_LENGTH", length)) {
      return refuse(Failure::kNotStarted, "out of memory for parameters");
    }
  }
  deadline_ = UINT64_MAX;
  stage_ = Stage::kWaiting;
  account_.arrive();
}

// The server has closed its side. That need not mean that nobody waits for the answer.
//
// On a Unix socket epoll tells the difference: EPOLLHUP follows only if both sides are closed. On TCP
// both look the same until something is sent: the system of a server that has closed the connection
// answers with a reset, which epoll reports as EPOLLHUP, too. So a byte is sent that comes next in
// any case.
void Connection::inputEnded() {
  input_ended_ = true;
  switch (stage_) {
    case Stage::kIdle:
      if (sender_.unsent() == 0) return close();
      stage_ = Stage::kClosing;
      break;
    case Stage::kReceiving:
    case Stage::kLingering:
      return close();
    case Stage::kWaiting:
    case Stage::kRunning:
    case Stage::kDraining:
      if (!isLocal(socket_)) sender_.probe();
      break;
    default:
      break;
  }
  lingers_ = false;
}

// Counts what arrives while there is no request.
void Connection::discard(size_t size) {
  discarded_ += size;
  if (discarded_ <= kMostDiscarded) return;
  log("the server goes on sending a request that was refused");
  close();
}

void Connection::disconnected(uint64_t now) {
  if (stage_ != Stage::kRunning && stage_ != Stage::kDraining) return close();
  if (failure_ == Failure::kNone && hasWholeAnswer()) {
    // nginx does not wait for the end after HEAD, HAProxy not after the last byte of Content-Length.
    // The script may have something left to do.
    discards_ = true;
    return closeSocket();
  }
  fail(Failure::kVisitorLeft, "the visitor left");
  closeSocket();
  terminate(now);
}

bool Connection::isIdle() const {
  const bool awaits_first = is_new_ && hurries_;
  return stage_ == Stage::kIdle && sender_.unsent() == 0 && reader_.isBetweenRecords() &&
         !awaits_first;
}

// ---- What is sent --------------------------------------------------------------------------------

void Connection::refuse(Failure failure, const char *reason) {
  log(reason);
  failure_ = failure;
  sendErrorPage();
  lingers_ = stage_ == Stage::kReceiving && !input_ended_;
  endRequest(0);
}

void Connection::sendErrorPage() {
  char page[256];
  const size_t size = writeErrorPage(statusOf(failure_), page);
  sender_.stream(kStdout, reader_.request(), {page, size}, {}, true);
  account_.addPage({page, size});
}

// The request is over. Its parameters are still there.
void Connection::closeAccount() {
  const bool has_answer = output_.state() == Output::State::kBody;
  account_.end({
      .parameters = reader_.parameters(),
      .failure = failure_,
      .status = has_answer ? output_.status() : statusOf(failure_),
      .sent = has_answer ? output_.bodySize() : 0,
      .received = body_.size(),
      .process = child_.process,
      .exit_status = exited_ ? exitStatus() : -1,
  });
}

void Connection::endRequest(uint32_t app_status) {
  closeAccount();
  char end[2 * kRecordHeaderSize + kSmallRecordSize];
  char *place = end;
  for (const RecordType type : {kStderr, kStdout}) {
    if (type == kStderr && !sent_errors_) continue;
    writeRecordHeader({type, reader_.request(), 0, 0}, *reinterpret_cast<char(*)[8]>(place));
    place += kRecordHeaderSize;
  }
  writeEndRequest(reader_.request(), app_status, ProtocolStatus::kComplete,
                  *reinterpret_cast<char(*)[kSmallRecordSize]>(place));
  place += kSmallRecordSize;
  sender_.add({end, static_cast<size_t>(place - end)});
  releaseChild();
  body_.clear();
  output_.clear();
  sent_errors_ = false;
  failure_ = Failure::kNone;
  deadline_ = held_until_ = UINT64_MAX;
  stage_ = reader_.keepsConnection() && !input_ended_ ? Stage::kIdle : Stage::kClosing;
  reader_.finish();
}

void Connection::settle(uint64_t now) {
  if (stage_ == Stage::kDraining) endIfDrained(now);
  if (socket_ < 0) return;
  if (now >= held_until_ || stage_ != Stage::kRunning) held_until_ = UINT64_MAX;
  if (held_until_ != UINT64_MAX) return;
  sender_.flush();
  if (sender_.error() == ENOMEM) {
    fail(Failure::kMemory, "out of memory for the response");
    resetSocket();
  }
  if (sender_.error() != 0) {
    disconnected(now);
    if (stage_ == Stage::kDraining) endIfDrained(now);
    return;
  }
  if (sender_.unsent() == 0) {
    send_deadline_ = UINT64_MAX;
    if (stage_ == Stage::kClosing && !lingers_) return close();
    if (stage_ == Stage::kClosing) {
      stage_ = Stage::kLingering;
      shutdown(socket_, SHUT_WR);
      deadline_ = later(now, kSecondsToLinger);
    }
  } else if (send_deadline_ == UINT64_MAX || sent_ != sender_.total()) {
    send_deadline_ = later(now, options_.send_seconds);
    sent_ = sender_.total();
  }
}

// ---- Time ----------------------------------------------------------------------------------------

void Connection::hurry(uint64_t now) {
  const bool has_begun = stage_ == Stage::kIdle && (is_new_ || !reader_.isBetweenRecords());
  if (stage_ != Stage::kReceiving && !has_begun) return;
  deadline_ = std::min(deadline_, later(now, kSecondsToReceive));
  hurries_ = true;
}

void Connection::checkTime(uint64_t now) {
  if (now >= send_deadline_) {
    const bool is_first = failure_ != Failure::kNotRead && stage_ != Stage::kClosing;
    fail(Failure::kNotRead, "the server does not read the response");
    if (!is_first || (stage_ != Stage::kRunning && stage_ != Stage::kDraining)) {
      resetSocket();
      return disconnected(now);
    }
    // If it does read on, it must find out that this is not the whole answer.
    send_deadline_ = later(now, options_.send_seconds);
    return terminate(now);
  }
  if (now < deadline_) return;
  if (stage_ == Stage::kDraining) return finishAnswer();
  deadline_ = UINT64_MAX;
  switch (stage_) {
    case Stage::kIdle:
    case Stage::kReceiving:
      if (!is_new_) fail(Failure::kNotArrived, "the request did not arrive in time");
      return close();
    case Stage::kLingering:
      return close();
    case Stage::kRunning:
      if (!terminated_) {
        fail(Failure::kTime, "the script took too long");
        return terminate(now);
      }
      killed_ = true;
      signalGroup(child_.process, SIGKILL);
      break;
    default:
      break;
  }
}

uint32_t Connection::socketEvents() const {
  bool reads = !input_ended_;
  if (stage_ == Stage::kClosing) {
    reads &= lingers_;
  } else if (stage_ != Stage::kLingering) {
    reads &= mayRead();
  }
  const bool writes = sender_.unsent() > 0 && held_until_ == UINT64_MAX;
  return (reads ? EPOLLIN : 0U) | (writes ? EPOLLOUT : 0U);
}

}  // namespace tarn::server
