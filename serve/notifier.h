// Tells systemd how the service is.
#ifndef TARN_SERVE_NOTIFIER_H
#define TARN_SERVE_NOTIFIER_H

#include <sys/socket.h>
#include <sys/un.h>

namespace tarn::server {

// What units of Type=notify wait for; see sd_notify(3). Without systemd it does nothing.
class Notifier {
 public:
  // Takes the address out of the environment, because scripts have nothing to tell.
  void open();

  void ready() const { send("READY=1"); }
  void reloading() const;
  void stopping() const { send("STOPPING=1"); }

 private:
  void send(const char *message) const;

  sockaddr_un address_ = {};
  socklen_t size_ = 0;  // of the address; 0 for none
};

}  // namespace tarn::server

#endif
