// The body of a request, which is standard input of its script.
#ifndef TARN_SERVE_BODY_H
#define TARN_SERVE_BODY_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarn::server {

// Keeps a body outside the memory of this process, because each child begins as a copy of it: in an
// unnamed file in memory and, once the body is large, in one on a disk.
class Body {
 public:
  Body() = default;
  ~Body() { clear(); }
  Body(const Body &) = delete;
  Body &operator=(const Body &) = delete;

  // Appends bytes. Returns 0 or an errno value.
  int append(std::string_view bytes, uint64_t most_in_memory);

  // A descriptor from which the body can be read, from its beginning, and that cannot be written to.
  // It belongs to the caller.
  // Returns -1 with errno set if there is none. The body must not be empty.
  int take();

  uint64_t size() const { return size_; }

  void clear();

 private:
  int moveToDisk();

  int file_ = -1;
  bool on_disk_ = false;
  uint64_t size_ = 0;
};

}  // namespace tarn::server

#endif
