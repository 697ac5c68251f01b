// A growable run of bytes. The libraries have no C++ runtime, so they have no std::string.
#ifndef TARN_CORE_BYTES_H
#define TARN_CORE_BYTES_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace tarn {

// Where blocks usually come from.
struct Heap {
  // The size of the block that is best for so many bytes.
  static constexpr size_t roundUp(size_t size) { return size; }

  // Like realloc(). The block has `old` bytes; it is null for a new one.
  static void *resize(void *block, size_t /*old*/, size_t size) {
    return std::realloc(block, size);
  }

  static void release(void *block, size_t /*size*/) { std::free(block); }
};

template <class Memory>
class BasicBytes {
 public:
  BasicBytes() = default;
  ~BasicBytes() { Memory::release(data_, capacity_); }
  BasicBytes(const BasicBytes &) = delete;
  BasicBytes &operator=(const BasicBytes &) = delete;

  char *data() { return data_; }
  const char *data() const { return data_; }
  size_t size() const { return size_; }
  std::string_view view() const { return {data_, size_}; }

  // Forgets the bytes, but keeps the block for the next ones.
  void clear() { size_ = 0; }

  // The same, but keeps no block that is larger than this.
  void clear(size_t most_kept) {
    size_ = 0;
    if (capacity_ <= most_kept) return;
    Memory::release(data_, capacity_);
    data_ = nullptr;
    capacity_ = 0;
  }

  // The following return false if memory runs out; nothing is changed then.

  // Makes room for `more` bytes and a zero byte, so that as many can be appended without failing.
  bool reserve(size_t more) {
    if (more >= PTRDIFF_MAX - size_) return false;
    const size_t needed = size_ + more + 1;
    if (needed <= capacity_) return true;
    const size_t doubled = capacity_ < PTRDIFF_MAX / 2 ? capacity_ * 2 : needed;
    return resizeBlock(needed > doubled ? needed : doubled);
  }

  bool append(std::string_view bytes) {
    if (!reserve(bytes.size())) return false;
    if (!bytes.empty()) std::memcpy(data_ + size_, bytes.data(), bytes.size());
    size_ += bytes.size();
    data_[size_] = '\0';
    return true;
  }

  bool append(char byte) { return append(std::string_view(&byte, 1)); }

  // Gives unused memory back. Keeps the block as it is if that fails.
  void shrink() {
    if (size_ + 1 < capacity_) resizeBlock(size_ + 1);
  }

  // Where to write bytes for which reserve() made room, and what makes them part of the run.
  char *end() { return data_ + size_; }
  void grow(size_t more) {
    size_ += more;
    data_[size_] = '\0';
  }

  // Drops bytes at the end.
  void cut(size_t size) {
    size_ = size;
    if (data_) data_[size_] = '\0';
  }

 private:
  bool resizeBlock(size_t size) {
    const size_t capacity = Memory::roundUp(size);
    void *block = Memory::resize(data_, capacity_, capacity);
    if (!block) return false;
    data_ = static_cast<char *>(block);
    capacity_ = capacity;
    return true;
  }

  char *data_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

using Bytes = BasicBytes<Heap>;

}  // namespace tarn

#endif
