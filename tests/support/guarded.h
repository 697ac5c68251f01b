// Bytes at the edge of a mapped page: reading or writing beyond them crashes, in every build.
#ifndef TARN_TESTS_SUPPORT_GUARDED_H
#define TARN_TESTS_SUPPORT_GUARDED_H

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace tarn_test {

// On which side of the bytes the inaccessible page is.
enum class Edge { kAfter, kBefore };

class Guarded {
 public:
  explicit Guarded(std::string_view bytes, Edge edge = Edge::kAfter) : size_(bytes.size()) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t room = (size_ + page) / page * page;
    mapped_ = room + page;
    void *const map =
        mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    EXPECT_NE(MAP_FAILED, map);
    map_ = static_cast<char *>(map);
    const bool after = edge == Edge::kAfter;
    EXPECT_EQ(0, mprotect(after ? map_ + room : map_, page, PROT_NONE));
    start_ = after ? map_ + room - size_ : map_ + page;
    if (size_ > 0) std::memcpy(start_, bytes.data(), size_);
  }
  ~Guarded() { munmap(map_, mapped_); }
  Guarded(const Guarded &) = delete;
  Guarded &operator=(const Guarded &) = delete;

  char *text() { return start_; }
  uint8_t *bytes() { return reinterpret_cast<uint8_t *>(start_); }
  uint32_t size() const { return static_cast<uint32_t>(size_); }
  std::string str() const { return {start_, size_}; }

 private:
  size_t size_;
  size_t mapped_;
  char *map_;
  char *start_;
};

// A text whose terminator is the last byte before that page.
class GuardedText : public Guarded {
 public:
  explicit GuardedText(std::string_view text) : Guarded(std::string(text) + '\0') {}
};

}  // namespace tarn_test

#endif
