// Processes that run a script for one request.
#ifndef TARN_SERVE_CHILD_H
#define TARN_SERVE_CHILD_H

#include <sys/resource.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "core/bytes.h"

namespace tarn::server {

class Confinement;

// What a child runs: a function of this program, or another program.
struct Script {
  int (*function)() = nullptr;
  char *const *program = nullptr;            // its name and arguments, and null
  const Confinement *confinement = nullptr;  // null for none
};

// Limits that the kernel enforces; kNoLimit for none.
struct ChildLimits {
  static constexpr uint64_t kNoLimit = UINT64_MAX;

  uint64_t processor_seconds = 60;
  uint64_t address_space = kNoLimit;
  uint64_t open_files = kNoLimit;
  uint64_t processes = kNoLimit;
};

// The descriptors above 2 that children keep: those that the callback of tarn_serve_prepare() opened.
class KeptFiles {
 public:
  // Calls the callback and remembers which descriptors it opened. Returns its result, or 1 after a
  // message if memory runs out.
  int callAndRemember(int (*callback)());

  // In a child: closes all descriptors above 2 but those.
  void closeOthers() const;

 private:
  Bytes files_;  // numbers, in order
};

struct Child {
  pid_t process = -1;
  int output = -1;  // of this process, to read what the child writes
  int errors = -1;
};

// Where a child writes its number, the number of its group: a place in a file.
struct GroupPlace {
  int file;
  size_t index;
};

// Starts a script with an environment and standard input, in a process group of its own, whose number
// is in its place before the script begins. Returns 0 or an errno value. `input` stays the caller's; it
// and all descriptors of this process are above 2.
int startChild(const Script &script, char **environment, int input, const ChildLimits &limits,
               const KeptFiles &kept, GroupPlace place, Child &child);

// Ends the output of a script that has returned a status. Returns that, or 1 if standard output could
// not be written, now or before.
int flushOutput(int status);

// Sends a signal to all processes of a group. Does nothing if that is not the group of a child:
// kill(-1) and kill(0) would reach others, and kill(1) the first process of a container.
void signalGroup(pid_t group, int signal);

// Sets all signals to what they do by default, and blocks none.
void resetSignals();

// Process groups that were told to end, although their first process has ended. They are killed if
// any of their processes is left after a while.
class CondemnedGroups {
 public:
  static constexpr size_t kMost = 256;

  // `groups` has kMost places, which another process can read.
  void setPlaces(std::atomic<pid_t> *groups) { groups_ = groups; }

  // Kills the group at this time. Does so at once if there are too many.
  void add(pid_t group, uint64_t time);

  // Does what is due. Returns when it has to be called again; UINT64_MAX for never.
  uint64_t check(uint64_t now);

  bool isEmpty() const { return count_ == 0; }

 private:
  std::atomic<pid_t> *groups_ = nullptr;
  uint64_t times_[kMost] = {};
  size_t count_ = 0;
};

}  // namespace tarn::server

#endif
