// Sends records to a web server without waiting for it.
#ifndef TARN_SERVE_SENDER_H
#define TARN_SERVE_SENDER_H

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "serve/private_memory.h"
#include "serve/records.h"

namespace tarn::server {

class Sender {
 public:
  explicit Sender(int socket) : socket_(socket) {}

  // Adds complete records, to be sent by flush().
  void add(std::string_view records);

  // Adds bytes of a stream, as records: `first` and then `second`. Sends them at once if it can, from
  // where they are; with `wait` only flush() sends them.
  void stream(RecordType type, uint16_t request, std::string_view first, std::string_view second,
              bool wait);

  // Sends as much as the socket takes.
  void flush();

  // Sends the first byte of the next record ahead, if nothing else waits. Every record begins with
  // the same byte, so this is always right; if the server has closed the connection, its system
  // answers with a reset.
  void probe();

  size_t unsent() const { return unsent_.size() - sent_; }

  // How many bytes the socket has taken.
  uint64_t total() const { return total_; }

  // Why nothing can be sent any more: an errno value, or 0.
  int error() const { return error_; }

 private:
  void send(iovec *parts, size_t count, bool wait);
  size_t sendNow(iovec *parts, size_t count);

  int socket_;
  PrivateBytes unsent_;
  size_t sent_ = 0;  // of unsent_
  uint64_t total_ = 0;
  int error_ = 0;
  bool begun_ = false;  // the first byte of the next record has been sent
};

}  // namespace tarn::server

#endif
