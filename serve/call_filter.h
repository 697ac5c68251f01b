// Which system calls a script may make. A seccomp filter in the kernel refuses the others.
#ifndef TARN_SERVE_CALL_FILTER_H
#define TARN_SERVE_CALL_FILTER_H

#include <linux/filter.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace tarn::server {

// What a script may ask of the kernel, besides what every script may.
struct CallRights {
  bool network = false;       // create sockets for IPv4 and IPv6
  bool unix_sockets = false;  // create Unix sockets
  bool programs = false;      // start programs
  bool attributes = false;    // change modes, owners, times and extended attributes
  bool truncates = true;      // the file rules decide which files are truncated
};

class CallFilter {
 public:
  // Whether this kernel can filter, and a filter was written for this processor.
  static bool isSupported();

  // Refuses what could reach beyond the process: it is the same for all scripts.
  void build(const CallRights &rights);

  // Refuses signals to other processes than this one, for kernels in which no rule does it.
  void buildForSignals(pid_t self);

  // Installs the filter in this process, which passes it on to all that it starts. Returns 0 or an
  // errno value.
  int install() const;

 private:
  void begin();
  void addSockets(const CallRights &rights);
  void addProcesses();
  void addDevices(const CallRights &rights);
  void addTruncation();
  void addDenied(const CallRights &rights);

  // A rule for one system call: what follows up to end() applies to it alone.
  void when(int call);
  void load(unsigned argument);
  void mask(uint32_t bits);
  void ifEqual(uint32_t value, uint32_t action);
  void unlessEqual(uint32_t value, uint32_t action);
  void end(uint32_t action);
  void add(uint16_t code, uint32_t value, uint8_t if_true = 0, uint8_t if_false = 0);

  static constexpr size_t kMost = 512;

  sock_filter code_[kMost];
  size_t size_ = 0;
  size_t rule_ = 0;  // where the current rule begins
};

}  // namespace tarn::server

#endif
