// The body of a request: how it is read, and how its bytes are copied.
#ifndef TARN_REQUEST_BODY_H
#define TARN_REQUEST_BODY_H

#include <sys/types.h>

#include <string_view>

#include "core/memory.h"

namespace tarn::internal {

// Reads a body, and copies what is in it. A large body is a private mapping of a file: of the file
// that is standard input, or of one in memory that the body goes through. A copy of many of its bytes
// is another private mapping of that file, so it costs memory only where one of them is changed.
class Body {
 public:
  Body() = default;
  ~Body();
  Body(const Body &) = delete;
  Body &operator=(const Body &) = delete;

  // Reads `length` bytes from standard input. A zero byte follows them, and those that do not arrive
  // are zero. Returns null if there is no memory for them; nothing is read then, unless it was the
  // last step that failed.
  OwnedBytes read(uint32_t length, size_t &arrived);

  // A copy of some bytes, with a zero byte after them; null if memory runs out.
  OwnedBytes copy(std::string_view bytes) const;

 private:
  bool mapInput(OwnedBytes &block, size_t length, size_t &arrived);
  size_t receive(OwnedBytes &block, size_t length);
  bool createFile(size_t size);

  const char *start_ = nullptr;
  int file_ = -1;
  bool is_own_ = false;
  off_t offset_ = 0;   // of the body in the file
  size_t backed_ = 0;  // how many bytes of the body are in the file; 0 without one
};

}  // namespace tarn::internal

#endif
