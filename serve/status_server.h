// Answers questions about the service over HTTP.
#ifndef TARN_SERVE_STATUS_SERVER_H
#define TARN_SERVE_STATUS_SERVER_H

#include <poll.h>

#include <cstddef>
#include <cstdint>

#include "core/bytes.h"
#include "serve/listener.h"
#include "serve/status.h"

namespace tarn::server {

// A small HTTP server inside the loop of the supervisor. It never waits for a client, and has few of
// them: more wait in the kernel. Each has some seconds.
class StatusServer {
 public:
  static constexpr size_t kMostClients = 8;
  static constexpr size_t kMostFiles = 1 + kMostClients;
  static constexpr size_t kMostRequest = 16384;  // bytes
  static constexpr uint64_t kSeconds = 5;

  StatusServer() = default;
  ~StatusServer();
  StatusServer(const StatusServer &) = delete;
  StatusServer &operator=(const StatusServer &) = delete;

  // Listens on an address, as openListener() does. Returns false after a message.
  bool open(const char *address, unsigned socket_mode);

  // Adds what poll() has to watch. Returns how many.
  size_t watch(pollfd *files) const;

  // When receive() has to be called at the latest; UINT64_MAX for never.
  uint64_t nextTime() const;

  // Does what is possible after poll(), and what is due. Returns whether answer() has to be called.
  bool receive(const pollfd *files, size_t count, uint64_t now);

  // Answers all complete requests.
  void answer(const Status &status);

  // In a child: closes all descriptors.
  void closeFiles();

 private:
  enum class Stage {
    kReading,
    kAsked,      // the request is complete
    kAnswering,  // the answer is on its way
    kLingering,  // it has been sent; what still arrives is thrown away
  };

  struct Client {
    int socket = -1;
    Stage stage = Stage::kReading;
    uint64_t deadline = 0;
    Bytes request;
    Bytes answer;
    size_t sent = 0;
    size_t discarded = 0;
  };

  void accept(uint64_t now);
  static void read(Client &client);
  static void discard(Client &client);
  static void send(Client &client);
  static void close(Client &client);

  int listener_ = -1;
  SocketFile socket_file_;
  uint64_t accept_at_ = 0;
  Client clients_[kMostClients];
};

// Writes the answer to an HTTP request. Returns false if memory runs out.
bool answerHttp(std::string_view request, const Status &status, Bytes &to);

}  // namespace tarn::server

#endif
