// Memory that children do not get.
#include "serve/private_memory.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "support/failing_memory.h"

namespace {

using tarn::server::PrivateBytes;
using tarn::server::PrivateMemory;

const std::vector<size_t> kSizes = {1,     63,    64,    65,     1000,   4096,    32750,
                                    32768, 32769, 65536, 100000, 262144, 1 << 20, (1 << 20) + 1};

char *allocate(size_t size) { return static_cast<char *>(PrivateMemory::resize(nullptr, 0, size)); }

// Whether a new child can read a byte.
bool childCanRead(const char *byte) {
  const pid_t child = fork();
  if (child == 0) {
    int ends[2];
    _exit(pipe(ends) == 0 && write(ends[1], byte, 1) == 1 ? 0 : errno == EFAULT ? 1 : 2);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 2) << status;
  return status == 0;
}

TEST(PrivateMemory, IsNotInAChild) {
#ifdef TARN_TESTS_EMULATED
  GTEST_SKIP() << "the emulator gives a child all memory";
#endif
  const char shared = 'x';
  EXPECT_TRUE(childCanRead(&shared));
  for (const size_t size : kSizes) {
    char *block = allocate(size);
    EXPECT_FALSE(childCanRead(block)) << size;
    EXPECT_FALSE(childCanRead(block + size - 1)) << size;
    PrivateMemory::release(block, size);
  }
  PrivateBytes bytes;
  while (bytes.size() < 3000000) {
    ASSERT_TRUE(bytes.append(std::string(bytes.size() + 100, 'x')));
    EXPECT_FALSE(childCanRead(bytes.data())) << bytes.size();
    EXPECT_FALSE(childCanRead(bytes.data() + bytes.size() - 1)) << bytes.size();
  }
}

// As far as a sanitizer knows.
TEST(PrivateMemory, LeavesItsAddressesToOtherMemoryInAChildThatForgetsIt) {
  constexpr size_t size = 4096;
  char *block = allocate(size);
  PrivateMemory::release(block, size);
  const pid_t child = fork();
  if (child == 0) {
    PrivateMemory::forget();
    const auto page = reinterpret_cast<uintptr_t>(block) / size * size;
    void *other = mmap(reinterpret_cast<void *>(page), 2 * size, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
    if (other == MAP_FAILED) _exit(1);
    std::fill_n(static_cast<volatile char *>(other), 2 * size, 'x');
    _exit(0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(PrivateMemory, KeepsTheBytesOfABlockThatIsResized) {
  for (const size_t from : kSizes) {
    for (const size_t to : kSizes) {
      char *block = allocate(from);
      ASSERT_NE(block, nullptr);
      for (size_t i = 0; i < from; ++i) block[i] = static_cast<char>(i * 7 % 251);
      block = static_cast<char *>(PrivateMemory::resize(block, from, to));
      ASSERT_NE(block, nullptr);
      for (size_t i = 0; i < std::min(from, to); ++i) {
        ASSERT_EQ(block[i], static_cast<char>(i * 7 % 251)) << from << " to " << to << ": " << i;
      }
      std::fill(block, block + to, 'x');
      PrivateMemory::release(block, to);
    }
  }
}

TEST(PrivateMemory, HasBlocksThatDoNotOverlap) {
  struct Block {
    char *begin;
    size_t size;
    char fill;
  };
  std::vector<Block> blocks;
  unsigned random = 1;
  const auto next = [&random](size_t most) {
    random = random * 1103515245 + 12345;
    return random / 65536 % most;
  };
  for (int i = 0; i < 20000; ++i) {
    if (blocks.size() < 100 || next(2) == 0) {
      const size_t size = next(20) == 0 ? 1 + next(100000) : 1 + next(700);
      const char fill = static_cast<char>(i);
      char *begin = allocate(size);
      ASSERT_NE(begin, nullptr);
      std::fill(begin, begin + size, fill);
      blocks.push_back({begin, size, fill});
      continue;
    }
    const size_t which = next(blocks.size());
    const auto [begin, size, fill] = blocks[which];
    ASSERT_TRUE(std::all_of(begin, begin + size, [&](char c) { return c == fill; })) << i;
    PrivateMemory::release(begin, size);
    blocks[which] = blocks.back();
    blocks.pop_back();
  }
  for (const auto &[begin, size, fill] : blocks) PrivateMemory::release(begin, size);
}

TEST(PrivateMemory, UsesReleasedBlocksAgain) {
  std::vector<char *> first(3000);
  std::vector<char *> second(3000);
  for (char *&block : first) block = allocate(1000);
  for (char *block : first) PrivateMemory::release(block, 1000);
  for (char *&block : second) block = allocate(1000);
  for (char *block : second) PrivateMemory::release(block, 1000);
  std::sort(first.begin(), first.end());
  std::sort(second.begin(), second.end());
  EXPECT_EQ(first, second);
  EXPECT_EQ(std::unique(first.begin(), first.end()), first.end());
}

TEST(PrivateMemory, RefusesSizesThatNothingHas) {
  for (const size_t size : {SIZE_MAX, SIZE_MAX - 65536, size_t{PTRDIFF_MAX}, SIZE_MAX / 2 + 2}) {
    EXPECT_EQ(allocate(PrivateMemory::roundUp(size)), nullptr) << size;
  }
  PrivateBytes bytes;
  EXPECT_TRUE(bytes.append("text"));
  EXPECT_FALSE(bytes.reserve(PTRDIFF_MAX - 100000));
  EXPECT_EQ(bytes.view(), "text");
}

TEST(PrivateMemoryAtEachFailure, LeavesTheBytesAsTheyWere) {
  tarn_test::forEachFailingAllocation([](tarn_test::FailingMemory &memory) {
    PrivateBytes bytes;
    std::string expected;
    const std::string more(40, 'x');
    memory.call([&] {
      for (int i = 0; i < 2000 && bytes.append(more); ++i) {
      }
      return 0;
    });
    EXPECT_EQ(memory.failed(), bytes.size() < 2000 * more.size());
    expected.assign(bytes.size(), 'x');
    EXPECT_TRUE(bytes.view() == expected);
  });
}

}  // namespace
