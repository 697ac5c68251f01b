// The body of a request, which is standard input of its script.
#ifndef TARN_SERVE_BODY_H
#define TARN_SERVE_BODY_H

#include <cstddef>
#include <cstdint>
#include <cstring>
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

  // Appends bytes of a body that is expected to have `expected` bytes, 0 if that is not known. Returns
  // 0 or an errno value.
  int append(std::string_view bytes, uint64_t most_in_memory, uint64_t expected = 0);

  // A descriptor from which the body can be read, from its beginning, and that cannot be written to.
  // It belongs to the caller. Returns -1 with errno set if there is none. The body must not be empty.
  int take();

  uint64_t size() const { return size_; }

  void clear();

 private:
  int moveToDisk();

  int file_ = -1;
  bool on_disk_ = false;
  uint64_t size_ = 0;
};

// Joins the pieces of a body in a block, between which there were headers, so that one call stores
// them.
class BodyPart {
 public:
  static constexpr size_t kAlignment = 4096;

  // `size` is that of the body so far. The pieces have to be in the block in their order, at least
  // kAlignment behind its beginning. They are moved to where the block is as far from the beginning of
  // a page as the file: some processors copy four times slower if the addresses differ by a few bytes.
  BodyPart(char *block, uint64_t size) : begin_(block + size % kAlignment) {}

  void add(std::string_view piece) {
    std::memmove(begin_ + size_, piece.data(), piece.size());
    size_ += piece.size();
  }

  // What was added since the last call.
  std::string_view take() {
    const std::string_view part(begin_, size_);
    begin_ += size_;
    size_ = 0;
    return part;
  }

  size_t size() const { return size_; }

 private:
  char *begin_;
  size_t size_ = 0;
};

}  // namespace tarn::server

#endif
