// The rights of a script, and how they are enforced.
#ifndef TARN_SERVE_CONFINE_H
#define TARN_SERVE_CONFINE_H

#include <cstddef>

#include "serve/call_filter.h"
#include "serve/child.h"
#include "serve/file_rules.h"

namespace tarn::server {

// What options name. Any right confines the script to what is named.
struct Rights {
  struct Path {
    Access access;
    const char *path;
  };
  static constexpr size_t kMostPaths = 64;

  bool confine = false;
  bool network = false;
  bool unix_sockets = false;
  bool attributes = false;
  bool unconfined_if_unsupported = false;
  Path paths[kMostPaths] = {};
  size_t path_count = 0;
};

// Whether an option has no value.
bool isFlag(const char *name);

// Sets a right and copies its path. Returns false if no right has this name. If the value is wrong,
// `problem` says why; otherwise it is null.
bool setRight(Rights &rights, const char *name, const char *value, const char *&problem);

// Keeps a script to its rights. A service prepares this once, so that it costs a child little.
class Confinement {
 public:
  // Prepares the rules. Returns false after a message on standard error, with errno set.
  bool open(const Rights &rights, const Script &script);

  // Filters the system calls of this process and of all that it starts. A worker does it for its
  // children: it needs none of the calls that a script must not make, and installing a filter takes
  // longer than all the rest. Returns false as open() does.
  bool filterCalls() const;

  // Keeps this process to the files that it may use, and drops the capabilities of root. Returns
  // false as open() does.
  bool enter() const;

 private:
  bool checkKernel(const Rights &rights);
  bool allowPaths(const Rights &rights);
  bool allowProgram(const char *name, int depth);
  bool allowLoader(const char *path);
  bool allow(const char *path, Access access);

  FileRules rules_;
  CallFilter filter_;
  int version_ = -1;  // of the kernel's file rules; -1 for none
  bool filters_ = false;
};

// Whether enter() has been called in this process or the one that it is a copy of.
bool isConfined();

// Prepares and applies rights to this process. Returns false as Confinement::open() does.
bool confineSelf(const Rights &rights, const Script &script);

}  // namespace tarn::server

#endif
