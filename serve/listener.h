// Sockets that a service listens on.
#ifndef TARN_SERVE_LISTENER_H
#define TARN_SERVE_LISTENER_H

#include <sys/types.h>

namespace tarn::server {

// Opens a socket to listen on: "unix:PATH", "tcp:ADDRESS:PORT" or "tcp:[ADDRESS]:PORT". Replaces a
// Unix socket that nobody listens on. `mode` is the mode of a Unix socket's file. Returns -1 with a
// message in `problem`, and errno set: to the reason, or to 0 if the address is wrong.
int openListener(const char *address, unsigned mode, const char *&problem);

// The same. Returns -1 after a message on standard error.
int openListener(const char *address, unsigned mode);

// The file of a Unix socket that openListener() has just created.
class SocketFile {
 public:
  SocketFile() = default;
  // The address must stay valid. One without a file will do.
  explicit SocketFile(const char *address);

  // Removes the file, unless another one has its name by now. Call it while the socket still listens.
  void remove();

 private:
  const char *path_ = nullptr;
  dev_t device_ = 0;
  ino_t number_ = 0;
};

// Whether a descriptor is a socket that listens.
bool isListener(int descriptor);

}  // namespace tarn::server

#endif
