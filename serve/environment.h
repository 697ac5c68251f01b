// How the program was started.
#ifndef TARN_SERVE_ENVIRONMENT_H
#define TARN_SERVE_ENVIRONMENT_H

#include <cstddef>

#include "core/bytes.h"

namespace tarn::server {

// Whether a web server started the program as a CGI script.
bool isCgi();

// Puts the listening sockets that the program was started with into `sockets`: descriptor 0, or those
// that systemd passes. Returns how many there are.
size_t inheritedListeners(int *sockets, size_t most);

// Opens an input without bytes: /dev/null or, where that is missing, the end of a pipe. The flags are
// those of open(). Returns -1 with errno set if it cannot.
int openNull(int flags);

// The command line of the process. The library is not called with it, so it comes from /proc or, where
// that is missing, from the stack.
class CommandLine {
 public:
  CommandLine() = default;
  ~CommandLine();
  CommandLine(const CommandLine &) = delete;
  CommandLine &operator=(const CommandLine &) = delete;

  // Returns false if it cannot be read.
  bool read();

  // The program's name is the first. A null pointer follows the last.
  char *const *arguments() const { return arguments_; }
  int count() const { return count_; }

 private:
  bool readProc();
  bool readStack();

  Bytes text_;
  char **arguments_ = nullptr;
  int count_ = 0;
};

}  // namespace tarn::server

#endif
