// The body of a request, and how its pieces are joined.
#include "serve/body.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace {

using tarn::server::Body;
using tarn::server::BodyPart;

// What /proc says about the file that a body is in, and its contents.
struct Taken {
  explicit Taken(Body &body) : file(body.take()) {
    char name[256];
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    const ssize_t size = readlink(link.c_str(), name, sizeof name);
    in_memory = std::string_view(name, size > 0 ? size : 0).starts_with("/memfd:");
    char bytes[4096];
    for (ssize_t count = 0; (count = read(file, bytes, sizeof bytes)) > 0;) {
      text.append(bytes, static_cast<size_t>(count));
    }
  }
  ~Taken() { close(file); }
  Taken(const Taken &) = delete;
  Taken &operator=(const Taken &) = delete;

  int file;
  bool in_memory = false;
  std::string text;
};

TEST(Body, GoesToADiskAtOnceIfItIsExpectedToBeLarge) {
  struct Case {
    uint64_t expected;
    bool in_memory;
  };
  for (const auto &[expected, in_memory] : {Case{0, true}, {1000, true}, {1001, false}}) {
    Body body;
    EXPECT_EQ(body.append("small", 1000, expected), 0);
    const Taken taken(body);
    EXPECT_EQ(taken.in_memory, in_memory) << expected;
    EXPECT_EQ(taken.text, "small");
  }
}

TEST(Body, GoesToADiskWhenItIsLargerThanExpected) {
  const std::string most(1000, 'a');
  for (const uint64_t expected : {0U, 3U}) {
    Body body;
    EXPECT_EQ(body.append(most, 1000, expected), 0);
    EXPECT_EQ(body.append("b", 1000, expected), 0);
    const Taken taken(body);
    EXPECT_FALSE(taken.in_memory);
    EXPECT_EQ(taken.text, most + "b");
  }
}

// Fills a block as a socket does: pieces with something before each of them.
class Block {
 public:
  explicit Block(const std::vector<size_t> &sizes, size_t gap) {
    size_t total = 0;
    for (const size_t size : sizes) total += gap + size;
    bytes_.assign(BodyPart::kAlignment + total, '-');
    size_t place = BodyPart::kAlignment;
    for (const size_t size : sizes) {
      place += gap;
      for (size_t i = 0; i < size; ++i) {
        bytes_[place + i] = static_cast<char>('a' + (body_.size() + i) % 23);
      }
      pieces_.emplace_back(bytes_.data() + place, size);
      body_ += pieces_.back();
      place += size;
    }
  }

  char *begin() { return bytes_.data(); }
  const std::vector<std::string_view> &pieces() const { return pieces_; }
  const std::string &body() const { return body_; }

 private:
  std::vector<char> bytes_;
  std::vector<std::string_view> pieces_;
  std::string body_;
};

const std::vector<size_t> kSizes = {1, 32768, 874, 0, 32768, 7, 4096, 65535};

TEST(BodyPart, JoinsPiecesOfAnySize) {
  for (const size_t gap : {0U, 8U, 263U}) {
    for (const uint64_t before : {0U, 1U, 4095U, 4096U, 70000U}) {
      Block block(kSizes, gap);
      BodyPart part(block.begin(), before);
      for (const std::string_view piece : block.pieces()) part.add(piece);
      EXPECT_EQ(part.size(), block.body().size());
      EXPECT_TRUE(part.take() == block.body()) << gap << ", " << before;
      EXPECT_EQ(part.size(), 0U);
    }
  }
}

TEST(BodyPart, JoinsWhatComesAfterAPartWasTaken) {
  for (size_t every = 1; every < kSizes.size(); ++every) {
    Block block(kSizes, 8);
    BodyPart part(block.begin(), 4000);
    std::string all;
    for (size_t i = 0; i < kSizes.size(); ++i) {
      part.add(block.pieces()[i]);
      if (i % every == 0) all += part.take();
    }
    all += part.take();
    EXPECT_TRUE(all == block.body()) << every;
  }
}

// In the block, a part begins as far from a multiple of a page as in the file.
TEST(BodyPart, LiesWhereTheFileIsCopiedFast) {
  for (const uint64_t before : {uint64_t{0}, uint64_t{9}, uint64_t{4095}, uint64_t{1} << 33 | 5}) {
    Block block(kSizes, 8);
    BodyPart part(block.begin(), before);
    uint64_t size = before;
    for (const std::string_view piece : block.pieces()) {
      part.add(piece);
      const std::string_view taken = part.take();
      EXPECT_EQ(static_cast<uint64_t>(taken.data() - block.begin()) % BodyPart::kAlignment,
                size % BodyPart::kAlignment);
      size += taken.size();
    }
  }
}

}  // namespace
