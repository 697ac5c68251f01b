// A line for each request.
#ifndef TARN_SERVE_ACCESS_LOG_H
#define TARN_SERVE_ACCESS_LOG_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "serve/failure.h"
#include "serve/parameters.h"

namespace tarn::server {

enum class AccessFormat {
  kCommon,  // the common log format
  kJson,    // a JSON object
};

// What a line tells. Times are in microseconds.
struct AccessEntry {
  const Parameters &parameters;
  Failure failure = Failure::kNone;
  int status = 0;         // HTTP
  uint64_t sent = 0;      // bytes of the answer's body
  uint64_t received = 0;  // bytes of the request's body
  uint64_t duration = 0;  // from the first record to the end of the answer
  uint64_t wait = 0;      // for a child
  pid_t process = -1;     // the child; -1 if there was none
  int exit_status = -1;   // its own; -1 if it is not known
  uint64_t begun = 0;     // since 1970
};

// A pipe takes so many bytes in one piece.
inline constexpr size_t kMostAccessLine = 4096;

// Writes a line with its end, in printable ASCII. Bytes that a visitor chose can neither end it nor
// look like another field: those that are not printable ASCII, quotes and backslashes are escaped,
// and long texts are cut. Returns the size.
size_t writeAccessLine(const AccessEntry &entry, AccessFormat format,
                       char (&line)[kMostAccessLine]);

class AccessLog {
 public:
  AccessLog() = default;
  ~AccessLog();
  AccessLog(const AccessLog &) = delete;
  AccessLog &operator=(const AccessLog &) = delete;

  // Opens a file to append to; "-" is standard output. Returns false after a message.
  bool open(const char *path, AccessFormat format);

  // Writes a line, in one piece. If a pipe is full, the line is lost: the service does not wait for
  // readers of its log. Returns false then, and after any other failure.
  bool write(const AccessEntry &entry);

 private:
  enum class Kind { kFile, kSocket, kOther };

  bool hasRoom() const;
  bool report(int error);

  int file_ = -1;
  bool owned_ = false;
  Kind kind_ = Kind::kFile;
  AccessFormat format_ = AccessFormat::kCommon;
  bool cut_ = false;      // the last line has no end
  uint64_t silence_ = 0;  // until then, failures are not reported
};

}  // namespace tarn::server

#endif
