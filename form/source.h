// The bytes of a body, from memory or from a file descriptor, through a window.
#ifndef TARN_FORM_SOURCE_H
#define TARN_FORM_SOURCE_H

#include <sys/types.h>

#include <cstdint>
#include <string_view>

#include "form/problem.h"

namespace tarn::form {

class Source {
 public:
  Source() = default;
  ~Source();
  Source(const Source &) = delete;
  Source &operator=(const Source &) = delete;

  void openMemory(std::string_view bytes);

  // Reads `length` bytes, or all up to the end for TARN_FORM_UNLIMITED.
  void openDescriptor(int descriptor, uint64_t length);

  bool inMemory() const { return descriptor_ < 0; }
  uint64_t length() const { return length_; }

  // The bytes that have arrived and are not consumed.
  std::string_view window() const { return {begin_, static_cast<size_t>(end_ - begin_)}; }

  // Where in the body the window begins.
  uint64_t position() const { return position_; }

  void consume(size_t count) {
    begin_ += count;
    position_ += count;
  }

  // Waits for more bytes and adds them to the window, which may move. Returns false at the end of
  // the body, and with a problem: the body is shorter than its length, reading fails or takes too
  // long, the body is longer than its limit. The window may have up to kBufferSize bytes and a
  // delimiter.
  bool more(const Limits &limits, Problem &problem);

  // Large enough that system calls cost little, small enough for the processor's cache.
  static constexpr size_t kBufferSize = size_t{128} * 1024;

 private:
  bool startReading(const Limits &limits, Problem &problem);
  bool wait(const Limits &limits, Problem &problem) const;
  ssize_t readOnce(size_t most, const Limits &limits, Problem &problem);
  uint64_t arrived() const { return position_ + static_cast<uint64_t>(end_ - begin_); }

  const char *begin_ = nullptr;
  const char *end_ = nullptr;
  uint64_t position_ = 0;
  uint64_t length_ = 0;
  uint64_t deadline_ = 0;  // in milliseconds
  char *block_ = nullptr;
  char *buffer_ = nullptr;  // aligned, in the block
  size_t capacity_ = 0;
  int descriptor_ = -1;
  bool waits_ = false;  // reading may have to wait: not a regular file
  bool at_end_ = false;
};

}  // namespace tarn::form

#endif
