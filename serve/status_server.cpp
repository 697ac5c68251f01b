#include "serve/status_server.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tarn::server {
namespace {

// How long to wait for a descriptor or memory.
constexpr uint64_t kPauseOfAccept = 1000;

constexpr char kText[] = "text/plain; charset=utf-8";
constexpr char kMetrics[] = "text/plain; version=0.0.4; charset=utf-8";

bool isComplete(std::string_view request) {
  return memmem(request.data(), request.size(), "\r\n\r\n", 4) ||
         memmem(request.data(), request.size(), "\n\n", 2);
}

// Takes the next word of a line.
std::string_view takeWord(std::string_view &line) {
  size_t size = 0;
  while (size < line.size() && line[size] != ' ' && line[size] != '\r' && line[size] != '\n') {
    ++size;
  }
  const std::string_view word(line.data(), size);
  const bool has_more = size < line.size() && line[size] == ' ';
  line.remove_prefix(has_more ? size + 1 : size);
  return word;
}

struct Reply {
  const char *status;
  const char *type = kText;
  const char *more = "";  // header fields
};

// Writes the body.
bool writePage(std::string_view request, const Status &status, Reply &reply, Bytes &body) {
  const std::string_view method = takeWord(request);
  std::string_view path = takeWord(request);
  const std::string_view version = takeWord(request);
  if (version.size() != 8 || std::memcmp(version.data(), "HTTP/1.", 7) != 0) {
    reply = {"400 Bad Request"};
    return body.append("This is not a request of HTTP/1.0 or HTTP/1.1.\n");
  }
  if (method != "GET" && method != "HEAD") {
    reply = {"405 Method Not Allowed", kText, "Allow: GET, HEAD\r\n"};
    return body.append("Only GET and HEAD are possible.\n");
  }
  if (const void *query = std::memchr(path.data(), '?', path.size())) {
    path = {path.data(), static_cast<size_t>(static_cast<const char *>(query) - path.data())};
  }
  reply = {"200 OK"};
  if (path == "/" || path == "/status") return writeStatus(status, body);
  if (path == "/metrics") {
    reply.type = kMetrics;
    return writeMetrics(status, body);
  }
  if (path == "/ready") {
    if (!status.ready) reply = {"503 Service Unavailable"};
    return body.append(status.ready ? "ready\n" : "not ready\n");
  }
  reply = {"404 Not Found"};
  return body.append("There are /status, /metrics and /ready.\n");
}

}  // namespace

bool answerHttp(std::string_view request, const Status &status, Bytes &to) {
  Bytes body;
  Reply reply = {"431 Request Header Fields Too Large"};
  const bool is_complete = isComplete(request);
  const bool written = is_complete ? writePage(request, status, reply, body)
                                   : body.append("The request is too long.\n");
  char header[512];
  const int size = std::snprintf(header, sizeof header,
                                 "HTTP/1.1 %s\r\nContent-Type: %s\r\nContent-Length: %zu\r\n"
                                 "%sCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n"
                                 "Connection: close\r\n\r\n",
                                 reply.status, reply.type, body.size(), reply.more);
  const bool is_head = request.size() >= 5 && std::memcmp(request.data(), "HEAD ", 5) == 0;
  return written && to.append({header, static_cast<size_t>(size)}) &&
         (is_head || to.append(body.view()));
}

// ---- Clients -------------------------------------------------------------------------------------

StatusServer::~StatusServer() {
  socket_file_.remove();
  closeFiles();
}

bool StatusServer::open(const char *address, unsigned socket_mode) {
  listener_ = openListener(address, socket_mode);
  if (listener_ < 0) return false;
  fcntl(listener_, F_SETFL, fcntl(listener_, F_GETFL) | O_NONBLOCK);
  socket_file_ = SocketFile(address);
  return true;
}

void StatusServer::closeFiles() {
  if (listener_ >= 0) ::close(listener_);
  listener_ = -1;
  for (Client &client : clients_) close(client);
}

size_t StatusServer::watch(pollfd *files) const {
  size_t count = 0;
  size_t clients = 0;
  for (const Client &client : clients_) {
    if (client.socket < 0) continue;
    ++clients;
    const short events = client.stage == Stage::kAnswering ? POLLOUT : POLLIN;
    files[count++] = {client.socket, events, 0};
  }
  if (listener_ >= 0 && clients < kMostClients && accept_at_ == 0) {
    files[count++] = {listener_, POLLIN, 0};
  }
  return count;
}

uint64_t StatusServer::nextTime() const {
  uint64_t next = accept_at_ != 0 ? accept_at_ : UINT64_MAX;
  for (const Client &client : clients_) {
    if (client.socket >= 0) next = std::min(next, client.deadline);
  }
  return next;
}

void StatusServer::accept(uint64_t now) {
  for (Client &client : clients_) {
    if (client.socket >= 0) continue;
    client.socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (client.socket >= 0) {
      client.stage = Stage::kReading;
      client.deadline = now + kSeconds * 1000;
      read(client);
      continue;
    }
    const bool is_full = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
    if (is_full) accept_at_ = now + kPauseOfAccept;
    return;
  }
}

bool StatusServer::receive(const pollfd *files, size_t count, uint64_t now) {
  if (now >= accept_at_) accept_at_ = 0;
  for (Client &client : clients_) {
    for (size_t i = 0; i < count && client.socket >= 0; ++i) {
      if (files[i].fd != client.socket || files[i].revents == 0) continue;
      if (client.stage == Stage::kReading) {
        read(client);
      } else if (client.stage == Stage::kAnswering) {
        send(client);
      } else {
        discard(client);
      }
      break;
    }
    if (client.socket >= 0 && now >= client.deadline) close(client);
  }
  // The clients that are new have no events yet.
  for (size_t i = 0; i < count; ++i) {
    if (files[i].fd == listener_ && files[i].revents != 0) accept(now);
  }
  return std::any_of(clients_, clients_ + kMostClients, [](const Client &client) {
    return client.socket >= 0 && client.stage == Stage::kAsked;
  });
}

void StatusServer::read(Client &client) {
  char block[4096];
  const ssize_t count = recv(client.socket, block, sizeof block, MSG_DONTWAIT);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count <= 0 || !client.request.append({block, static_cast<size_t>(count)})) {
    return close(client);
  }
  if (isComplete(client.request.view()) || client.request.size() > kMostRequest) {
    client.stage = Stage::kAsked;
  }
}

void StatusServer::answer(const Status &status) {
  for (Client &client : clients_) {
    if (client.socket < 0 || client.stage != Stage::kAsked) continue;
    if (!answerHttp(client.request.view(), status, client.answer)) {
      close(client);
      continue;
    }
    client.stage = Stage::kAnswering;
    send(client);
  }
}

void StatusServer::send(Client &client) {
  while (client.sent < client.answer.size()) {
    const ssize_t count = ::send(client.socket, client.answer.data() + client.sent,
                                 client.answer.size() - client.sent, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EAGAIN) return;
    if (count < 0) return close(client);
    client.sent += static_cast<size_t>(count);
  }
  // Closing it while something still arrives would destroy the answer on its way.
  shutdown(client.socket, SHUT_WR);
  client.stage = Stage::kLingering;
}

void StatusServer::discard(Client &client) {
  char block[4096];
  const ssize_t count = recv(client.socket, block, sizeof block, MSG_DONTWAIT);
  if (count > 0) client.discarded += static_cast<size_t>(count);
  const bool goes_on = count > 0 ? client.discarded < kMostRequest
                                 : count < 0 && (errno == EAGAIN || errno == EINTR);
  if (!goes_on) close(client);
}

void StatusServer::close(Client &client) {
  if (client.socket >= 0) ::close(client.socket);
  client.socket = -1;
  client.sent = client.discarded = 0;
  for (Bytes *bytes : {&client.request, &client.answer}) {
    bytes->clear();
    bytes->shrink();
  }
}

}  // namespace tarn::server
