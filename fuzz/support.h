// Shared by the fuzz targets, which define only fuzz().
#ifndef TARN_FUZZ_SUPPORT_H
#define TARN_FUZZ_SUPPORT_H

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/rules.h"
#include "tarn.h"

// Aborts if the condition is false; the fuzzer then saves the input.
#define EXPECT(condition) ((condition) ? void() : tarn_fuzz::fail(__FILE__, __LINE__, #condition))

namespace tarn_fuzz {

using namespace tarn_rules;

[[noreturn]] void fail(const char *file, int line, const char *condition);

// Splits an input into values. Past its end, every value is zero or empty.
class Input {
 public:
  explicit Input(std::string_view bytes) : rest_(bytes) {}

  bool empty() const { return rest_.empty(); }
  uint8_t byte();
  // A number below `limit`.
  uint32_t below(uint32_t limit);
  // Usually a small number, sometimes one near a limit of 32 bits.
  uint32_t anyNumber();
  std::string_view take(size_t count);
  // As many bytes as the next byte says.
  std::string_view piece() { return take(byte()); }
  // The next line, without its line end. Inputs made of lines are easy to read.
  std::string_view line();
  std::string_view rest() { return take(rest_.size()); }

 private:
  std::string_view rest_;
};

// Bytes in a heap block of exactly their size: AddressSanitizer reports any access outside it.
class Block {
 public:
  explicit Block(std::string_view bytes);

  char *data() const { return bytes_.get(); }
  uint32_t size() const { return size_; }
  std::string_view view() const { return {bytes_.get(), size_}; }

 private:
  std::unique_ptr<char[]> bytes_;
  uint32_t size_;
};

// A null-terminated text in a heap block of exactly its size.
class CText : public Block {
 public:
  explicit CText(std::string_view text);
};

// A stream that reads the given bytes, or one that keeps what is written to it.
class Stream {
 public:
  Stream();
  explicit Stream(std::string_view input);
  Stream(const Stream &) = delete;
  Stream &operator=(const Stream &) = delete;
  ~Stream();

  FILE *file() const { return file_; }
  std::string written();
  std::string unread();

 private:
  char *buffer_ = nullptr;
  size_t size_ = 0;
  FILE *file_;
};

// A text that is released with free().
using OwnedText = std::unique_ptr<char, decltype(&std::free)>;
inline OwnedText owned(const char *text) { return {const_cast<char *>(text), &std::free}; }

// Turns the process into a CGI script for its lifetime: sets the environment to these variables
// only, reads standard input from `body`, and captures what is printed.
class Script {
 public:
  using Variable = std::pair<std::string_view, std::string_view>;

  Script(std::initializer_list<Variable> variables, std::string_view body);
  Script(const Script &) = delete;
  Script &operator=(const Script &) = delete;
  ~Script();

  std::string unreadInput() { return streams_.unread(); }
  std::string printed() { return streams_.written(); }

 private:
  // Standard input and output.
  class Streams {
   public:
    explicit Streams(std::string_view body);
    Streams(const Streams &) = delete;
    Streams &operator=(const Streams &) = delete;
    ~Streams();

    std::string unread();
    std::string written();

   private:
#if defined(__GLIBC__)
    Stream input_;
    Stream output_;
    FILE *inputBefore_;
    FILE *outputBefore_;
#else
    int input_;
    int output_;
    int inputBefore_;
    int outputBefore_;
#endif
  };

  std::vector<CText> texts_;
  std::vector<char *> environment_;
  Streams streams_;
  char **environmentBefore_;
};

// The library keeps some blocks until the process ends. Here they are freed after each input, so
// that the fuzzer's memory does not grow and AddressSanitizer reports anyone else who frees one. A
// target that frees such a block itself must call this.
void notAbandoned(const void *block);

}  // namespace tarn_fuzz

// Runs the target on one input.
void fuzz(tarn_fuzz::Input input);

#endif
